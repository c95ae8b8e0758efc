// The AVX2 kernel of the UTF converters (see utfconv_priv.h).
#include "text/utfconv_priv.h"

namespace utfconv {

void DecodeZoneAvx2(const uint8_t*&, uint16_t*&, const uint8_t*) {}
void EncodeZoneAvx2(const uint16_t*&, uint8_t*&, const uint16_t*) {}

}  // namespace utfconv
