// Bidi classes as the scans of the bidirectional string test them: bit n of
// a mask stands for class n of the character database (UCBIDICLASS), units
// below 32 and units without a record count as L. The byte-order mark counts
// as white space whatever its class: it joins the runs and trims with the
// spaces, and decides nothing.
#ifndef VOSYS_SRC_SCRIPTS_BIDI_PRIV_H
#define VOSYS_SRC_SCRIPTS_BIDI_PRIV_H

#include <cstdint>

#include "text/ucdata_priv.h"
#include "vosystem/ucdata.h"

enum : uint32_t {
  kBidiStrong = 0x19,           // L, R, AL
  kBidiStrongRTL = 0x18,        // R, AL
  kBidiRtlOrNeutral = 0x30018,  // R, AL, S, WS
  kBidiNumeric = 0x3F00,        // EN, ES, ET, AN, CS, NSM
  kBidiNumericNoMark = 0x1F00,  // EN, ES, ET, AN, CS
  kBidiLtrRun = 0x33F01,        // L, EN to NSM, S, WS
  kBidiRtlRun = 0x33F18,        // R, AL, EN to NSM, S, WS
  kBidiTrimmable = 0x31F00      // EN to CS, S, WS
};

// The loaded database, asked without a call per unit.
class BIDICLASSES {
 public:
  BIDICLASSES() : m_table(UcdataTable()) {}

  // The class bit of c, 0 for a class number of 32 or more.
  uint32_t Bits(unsigned short c) const {
    if (c == 0xFEFF) return uint32_t{1} << UCBIDICLASS_WS;
    const unsigned n = m_table.Props(c) >> UCDATA_PROP_BidiShift & UCDATA_PROP_BidiBits;
    return static_cast<uint32_t>(uint64_t{1} << n);
  }
  // A non-spacing mark or a decimal digit (categories Mn, Nd).
  bool MarkOrDigit(unsigned short c) const { return m_table.IsProp(c, 0x240); }

 private:
  const UCDATA_TABLE& m_table;
};

#endif
