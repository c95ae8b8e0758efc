// mkucdata: writes the character database "ucdata.ref" from the Unicode
// Character Database's UnicodeData.txt.
//
//   mkucdata UnicodeData.txt ucdata.ref
//
// One record per Basic Multilingual Plane code point that the file lists,
// the ranges it gives by their first and last entries included. Unassigned
// code points get no record. The numbers of categories, bidi classes and
// decomposition types are those of vosystem/ucdata.h.
//
// Case partner: the simple lower-case mapping of an upper-case letter (Lu),
// the simple upper-case mapping of a lower-case letter (Ll); for any other
// character the lower-case mapping, else the upper-case mapping (title-case
// letters and the cased numbers and symbols keep theirs this way, though the
// library maps only Lu and Ll). A character without one is its own partner.
//
// Decomposition: one level, as the file gives it, with its tag. Hangul
// syllables, which the file leaves to an algorithm, get their full canonical
// decomposition into two or three conjoining jamo: that is the form in which
// decomposing file systems store them, and composing it back needs one step.
// A record without decomposition has the type UCDECOMPTYPE_None.
//
// The header word holds the format revision, 1.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "vosystem/ucdata.h"

namespace {

struct RECORD {
  uint16_t code = 0;
  uint16_t partner = 0;
  uint8_t category = 0;
  uint8_t bidi = 0;
  uint8_t decompType = UCDECOMPTYPE_None;
  std::vector<uint16_t> decomposition;
};

const std::map<std::string, int> kCategories = {
    {"Lu", UCCATEGORY_Lu}, {"Ll", UCCATEGORY_Ll}, {"Lt", UCCATEGORY_Lt}, {"Lm", UCCATEGORY_Lm},
    {"Lo", UCCATEGORY_Lo}, {"Mn", UCCATEGORY_Mn}, {"Mc", UCCATEGORY_Mc}, {"Me", UCCATEGORY_Me},
    {"Nd", UCCATEGORY_Nd}, {"Nl", UCCATEGORY_Nl}, {"No", UCCATEGORY_No}, {"Zs", UCCATEGORY_Zs},
    {"Zl", UCCATEGORY_Zl}, {"Zp", UCCATEGORY_Zp}, {"Cc", UCCATEGORY_Cc}, {"Cf", UCCATEGORY_Cf},
    {"Cs", UCCATEGORY_Cs}, {"Co", UCCATEGORY_Co}, {"Cn", UCCATEGORY_Cn}, {"Pc", UCCATEGORY_Pc},
    {"Pd", UCCATEGORY_Pd}, {"Ps", UCCATEGORY_Ps}, {"Pe", UCCATEGORY_Pe}, {"Pi", UCCATEGORY_Pi},
    {"Pf", UCCATEGORY_Pf}, {"Po", UCCATEGORY_Po}, {"Sm", UCCATEGORY_Sm}, {"Sc", UCCATEGORY_Sc},
    {"Sk", UCCATEGORY_Sk}, {"So", UCCATEGORY_So}};

const std::map<std::string, int> kBidiClasses = {
    {"L", UCBIDICLASS_L},     {"LRE", UCBIDICLASS_LRE}, {"LRO", UCBIDICLASS_LRO},
    {"R", UCBIDICLASS_R},     {"AL", UCBIDICLASS_AL},   {"RLE", UCBIDICLASS_RLE},
    {"RLO", UCBIDICLASS_RLO}, {"PDF", UCBIDICLASS_PDF}, {"EN", UCBIDICLASS_EN},
    {"ES", UCBIDICLASS_ES},   {"ET", UCBIDICLASS_ET},   {"AN", UCBIDICLASS_AN},
    {"CS", UCBIDICLASS_CS},   {"NSM", UCBIDICLASS_NSM}, {"BN", UCBIDICLASS_BN},
    {"B", UCBIDICLASS_B},     {"S", UCBIDICLASS_S},     {"WS", UCBIDICLASS_WS},
    {"ON", UCBIDICLASS_ON},   {"LRI", UCBIDICLASS_LRI}, {"RLI", UCBIDICLASS_RLI},
    {"FSI", UCBIDICLASS_FSI}, {"PDI", UCBIDICLASS_PDI}};

const std::map<std::string, int> kDecompTags = {
    {"<initial>", UCDECOMPTYPE_Initial},   {"<medial>", UCDECOMPTYPE_Medial},
    {"<final>", UCDECOMPTYPE_Final},       {"<isolated>", UCDECOMPTYPE_Isolated},
    {"<font>", UCDECOMPTYPE_Font},         {"<noBreak>", UCDECOMPTYPE_NoBreak},
    {"<circle>", UCDECOMPTYPE_Circle},     {"<super>", UCDECOMPTYPE_Super},
    {"<sub>", UCDECOMPTYPE_Sub},           {"<vertical>", UCDECOMPTYPE_Vertical},
    {"<wide>", UCDECOMPTYPE_Wide},         {"<narrow>", UCDECOMPTYPE_Narrow},
    {"<small>", UCDECOMPTYPE_Small},       {"<square>", UCDECOMPTYPE_Square},
    {"<fraction>", UCDECOMPTYPE_Fraction}, {"<compat>", UCDECOMPTYPE_Compat}};

[[noreturn]] void Fail(int line, const std::string& why) {
  std::cerr << "mkucdata: line " << line << ": " << why << "\n";
  std::exit(1);
}

std::vector<std::string> Split(const std::string& s, char sep) {
  std::vector<std::string> parts;
  std::string part;
  std::istringstream in(s);
  while (std::getline(in, part, sep)) parts.push_back(part);
  if (!s.empty() && s.back() == sep) parts.emplace_back();
  return parts;
}

bool ParseHex(const std::string& s, uint32_t* value) {
  if (s.empty() || s.size() > 6) return false;
  char* end = nullptr;
  unsigned long v = std::strtoul(s.c_str(), &end, 16);
  if (*end || v > 0x10FFFF) return false;
  *value = static_cast<uint32_t>(v);
  return true;
}

int Lookup(const std::map<std::string, int>& table, const std::string& key, int line,
           const char* what) {
  auto it = table.find(key);
  if (it == table.end()) Fail(line, std::string("unknown ") + what + " \"" + key + "\"");
  return it->second;
}

void AppendUtf16(std::vector<uint16_t>& units, uint32_t cp) {
  if (cp < 0x10000) {
    units.push_back(static_cast<uint16_t>(cp));
  } else {
    cp -= 0x10000;
    units.push_back(static_cast<uint16_t>(0xD800 + (cp >> 10)));
    units.push_back(static_cast<uint16_t>(0xDC00 + (cp & 0x3FF)));
  }
}

void ParseDecomposition(const std::string& field, RECORD& rec, int line) {
  if (field.empty()) return;
  rec.decompType = UCDECOMPTYPE_Canonical;
  for (const std::string& word : Split(field, ' ')) {
    if (word.empty()) continue;
    if (word[0] == '<') {
      rec.decompType = static_cast<uint8_t>(Lookup(kDecompTags, word, line, "decomposition tag"));
      continue;
    }
    uint32_t cp = 0;
    if (!ParseHex(word, &cp)) Fail(line, "bad decomposition \"" + field + "\"");
    AppendUtf16(rec.decomposition, cp);
  }
  if (rec.decomposition.empty() || rec.decomposition.size() > 255)
    Fail(line, "decomposition of unusable length");
}

// The partner of the header comment; cp is the record's own code.
uint16_t CasePartner(int category, uint32_t cp, const std::string& upper, const std::string& lower,
                     int line) {
  uint32_t up = 0, low = 0;
  bool hasUp = !upper.empty(), hasLow = !lower.empty();
  if ((hasUp && !ParseHex(upper, &up)) || (hasLow && !ParseHex(lower, &low)))
    Fail(line, "bad case mapping");
  uint32_t partner = cp;
  if (category == UCCATEGORY_Ll) {
    if (hasUp) partner = up;
  } else if (hasLow) {
    partner = low;
  } else if (hasUp && category != UCCATEGORY_Lu) {
    partner = up;
  }
  return static_cast<uint16_t>(partner <= 0xFFFF ? partner : cp);
}

void AddHangulDecomposition(RECORD& rec) {
  const uint32_t kSBase = 0xAC00, kLBase = 0x1100, kVBase = 0x1161, kTBase = 0x11A7;
  const uint32_t kVCount = 21, kTCount = 28;
  uint32_t s = rec.code - kSBase;
  rec.decompType = UCDECOMPTYPE_Canonical;
  rec.decomposition = {static_cast<uint16_t>(kLBase + s / (kVCount * kTCount)),
                       static_cast<uint16_t>(kVBase + s % (kVCount * kTCount) / kTCount)};
  if (s % kTCount) rec.decomposition.push_back(static_cast<uint16_t>(kTBase + s % kTCount));
}

bool IsHangulSyllable(uint32_t cp) {
  return cp >= 0xAC00 && cp <= 0xD7A3;
}

std::vector<RECORD> ReadUnicodeData(std::istream& in) {
  std::vector<RECORD> records;
  std::string text;
  int line = 0;
  uint32_t rangeFirst = 0;
  bool inRange = false;
  while (std::getline(in, text)) {
    ++line;
    if (!text.empty() && text.back() == '\r') text.pop_back();
    if (text.empty() || text[0] == '#') continue;
    std::vector<std::string> f = Split(text, ';');
    if (f.size() != 15) Fail(line, "expected 15 fields");
    uint32_t cp = 0;
    if (!ParseHex(f[0], &cp)) Fail(line, "bad code point");
    const std::string& name = f[1];
    bool first = name.size() > 8 && name.compare(name.size() - 8, 8, ", First>") == 0;
    bool last = name.size() > 7 && name.compare(name.size() - 7, 7, ", Last>") == 0;
    if (first) {
      rangeFirst = cp;
      inRange = true;
      continue;
    }
    if (inRange != last) Fail(line, "range entries out of pairs");
    uint32_t from = last ? rangeFirst : cp;
    inRange = false;
    if (from > 0xFFFF) continue;
    RECORD proto;
    proto.category = static_cast<uint8_t>(Lookup(kCategories, f[2], line, "category"));
    proto.bidi = static_cast<uint8_t>(Lookup(kBidiClasses, f[4], line, "bidi class"));
    ParseDecomposition(f[5], proto, line);
    for (uint32_t c = from; c <= cp && c <= 0xFFFF; ++c) {
      RECORD rec = proto;
      rec.code = static_cast<uint16_t>(c);
      rec.partner = CasePartner(rec.category, c, f[12], f[13], line);
      if (IsHangulSyllable(c) && rec.decomposition.empty()) AddHangulDecomposition(rec);
      records.push_back(rec);
    }
  }
  if (inRange) Fail(line, "range without its last entry");
  return records;
}

void PutWord(std::string& out, uint16_t w) {
  out.push_back(static_cast<char>(w & 0xFF));
  out.push_back(static_cast<char>(w >> 8));
}

std::string Serialize(const std::vector<RECORD>& records) {
  std::string out;
  PutWord(out, 1);
  for (const RECORD& rec : records) {
    PutWord(out, rec.code);
    PutWord(out, rec.partner);
    PutWord(out, 0);  // composite chains are built at load
    PutWord(out, 0);
    out.push_back(static_cast<char>(rec.category));
    out.push_back(static_cast<char>(rec.bidi));
    out.push_back(static_cast<char>(rec.decompType));
    out.push_back(static_cast<char>(rec.decomposition.size()));
    for (uint16_t unit : rec.decomposition) PutWord(out, unit);
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: mkucdata UnicodeData.txt ucdata.ref\n";
    return 2;
  }
  std::ifstream in(argv[1]);
  if (!in) {
    std::cerr << "mkucdata: can't read " << argv[1] << "\n";
    return 1;
  }
  std::string data = Serialize(ReadUnicodeData(in));
  // Written beside the target and renamed, so that a failed run leaves no
  // half-written file for the build to take as current.
  std::string temp = std::string(argv[2]) + ".tmp";
  std::ofstream out(temp, std::ios::binary | std::ios::trunc);
  out.write(data.data(), static_cast<std::streamsize>(data.size()));
  out.close();
  if (!out || std::rename(temp.c_str(), argv[2]) != 0) {
    std::cerr << "mkucdata: can't write " << argv[2] << "\n";
    std::remove(temp.c_str());
    return 1;
  }
  return 0;
}
