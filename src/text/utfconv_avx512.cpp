// The AVX-512 kernel of the UTF converters (see utfconv_priv.h).
#include "text/utfconv_priv.h"

namespace utfconv {

void DecodeZoneAvx512(const uint8_t*&, uint16_t*&, const uint8_t*) {}
void EncodeZoneAvx512(const uint16_t*&, uint8_t*&, const uint16_t*) {}

}  // namespace utfconv
