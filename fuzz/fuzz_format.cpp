// Fuzzes the string as a format template: the input is a template followed by
// a stream of typed values and settings applied with operator<<. The template
// also goes to Sprintf, but only when its conversions have been checked to ask
// for at most three arguments, which are then passed with the right types.
//
// Input: [n] [n UTF-16 units, little-endian] then ops: [opcode] [payload].
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vosystem/textres.h"
#include "vosystem/ucstring.h"
#include "vosystem/vostring.h"

namespace {

// Each insertion scans the whole text, so long texts only slow the search.
const int kMaxLength = 1 << 14;

class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
  bool Empty() const { return m_pos >= m_size; }
  template <typename T>
  T Get() {
    T value{};
    size_t n = std::min(sizeof value, m_size - m_pos);
    memcpy(&value, m_data + m_pos, n);
    m_pos += n;
    return value;
  }
  // n units; zeros become 'z' so the text has no early terminator.
  std::vector<unsigned short> Units(size_t n) {
    std::vector<unsigned short> units;
    for (size_t i = 0; i < n && !Empty(); ++i) {
      unsigned short u = Get<unsigned short>();
      units.push_back(u ? u : 'z');
    }
    units.push_back(0);
    return units;
  }

 private:
  const uint8_t* m_data;
  size_t m_size;
  size_t m_pos = 0;
};

bool IsDigit(unsigned short c) {
  return c >= '0' && c <= '9';
}

// The arguments a format asks for, one letter each: i int, l long, q long
// long, d double, e long double, p char*, w UTF-16 string. False if more than
// three.
bool Signature(const unsigned short* f, char (&sig)[4]) {
  int n = 0;
  auto add = [&](char c) {
    if (n == 3) return false;
    sig[n++] = c;
    sig[n] = 0;
    return true;
  };
  sig[0] = 0;
  const int len = ucstrlen(f);
  for (int i = 0; i < len;) {
    if (f[i++] != '%') continue;
    if (i < len && f[i] == '%') {
      ++i;
      continue;
    }
    while (i < len && (f[i] == ' ' || f[i] == '+' || f[i] == '-' || f[i] == '#' || f[i] == '0'))
      ++i;
    if (i < len && f[i] == '*') {
      if (!add('i')) return false;
      ++i;
    }
    while (i < len && IsDigit(f[i])) ++i;
    if (i < len && f[i] == '.') {
      ++i;
      if (i < len && f[i] == '*') {
        if (!add('i')) return false;
        ++i;
      }
      while (i < len && IsDigit(f[i])) ++i;
    }
    int lCount = 0;
    bool bigL = false;
    for (; i < len && (f[i] == 'h' || f[i] == 'l' || f[i] == 'L'); ++i) {
      lCount += f[i] == 'l';
      bigL |= f[i] == 'L';
    }
    if (i >= len) break;
    char kind = 0;
    switch (f[i++]) {
      case 'c':
        kind = 'i';
        break;
      case 's':
        kind = 'p';
        break;
      case 'S':
        kind = 'w';
        break;
      case 'd':
      case 'i':
      case 'o':
      case 'u':
      case 'x':
      case 'X':
        kind = bigL || lCount >= 2 ? 'q' : lCount == 1 ? 'l' : 'i';
        break;
      case 'e':
      case 'E':
      case 'f':
      case 'g':
      case 'G':
        kind = bigL ? 'e' : 'd';
        break;
      default:
        break;
    }
    if (kind && !add(kind)) return false;
  }
  return true;
}

struct FixedArgs {
  int i;
  long l;
  long long q;
  double d;
  long double e;
  const char* p;
  const unsigned short* w;
};

template <typename... A>
void CallSprintf(VOSTRING& s, const unsigned short* fmt, const char* sig, const FixedArgs& x,
                 A... args) {
  if constexpr (sizeof...(A) < 3) {
    switch (*sig) {
      case 'i':
        return CallSprintf(s, fmt, sig + 1, x, args..., x.i);
      case 'l':
        return CallSprintf(s, fmt, sig + 1, x, args..., x.l);
      case 'q':
        return CallSprintf(s, fmt, sig + 1, x, args..., x.q);
      case 'd':
        return CallSprintf(s, fmt, sig + 1, x, args..., x.d);
      case 'e':
        return CallSprintf(s, fmt, sig + 1, x, args..., x.e);
      case 'p':
        return CallSprintf(s, fmt, sig + 1, x, args..., x.p);
      case 'w':
        return CallSprintf(s, fmt, sig + 1, x, args..., x.w);
      default:
        break;
    }
  }
  if (*sig) return;
  int rc = s.Sprintf(fmt, args...);
  if (rc >= 0 && rc != s.GetLength()) abort();
}

void CheckText(const VOSTRING& s) {
  if (ucstrlen(s.GetReference()) != s.GetLength()) abort();
}

void ApplyOp(VOSTRING& s, Reader& in) {
  switch (in.Get<uint8_t>() % 27) {
    case 0:
      s << in.Get<int>();
      break;
    case 1:
      s << in.Get<unsigned>();
      break;
    case 2:
      s << in.Get<long long>();
      break;
    case 3:
      s << in.Get<unsigned long long>();
      break;
    case 4:
      s << in.Get<long>();
      break;
    case 5:
      s << in.Get<unsigned long>();
      break;
    case 6:
      s << in.Get<double>();
      break;
    case 7:
      s << in.Get<float>();
      break;
    case 8:
      s << in.Units(in.Get<uint8_t>()).data();
      break;
    case 9: {
      std::vector<unsigned short> units = in.Units(in.Get<uint8_t>());
      std::vector<char> bytes(units.begin(), units.end());
      for (size_t i = 0; i + 1 < bytes.size(); ++i)
        if (!bytes[i]) bytes[i] = 'z';
      s << bytes.data();
      break;
    }
    case 10:
      s << in.Get<char>();
      break;
    case 11:
      s << static_cast<STR_OP>(in.Get<uint8_t>() % 64);  // the enum holds 0..63
      break;
    case 12:
      s.FmtSetBase(in.Get<int8_t>());
      break;
    case 13:
      s.FmtSetWidth(in.Get<int16_t>());
      break;
    case 14:
      s.FmtSetPrecision(in.Get<int16_t>());
      break;
    case 15:
      s.FmtSetFill(in.Get<unsigned short>());
      break;
    case 16:
      s.FmtSetFloat(static_cast<FLOATFMT>(in.Get<uint8_t>() % 4));
      break;
    case 17:
      s.FmtSetSign(in.Get<uint8_t>() & 1);
      break;
    case 18:
      s.FmtEnableSubstitution(in.Get<uint8_t>() & 1);
      break;
    case 19:
      s.FillSubs();
      break;
    case 20:
      s << static_cast<bool>(in.Get<uint8_t>() & 1);
      break;
    case 21: {
      VOSTRING before(s.GetReference()), copy(s);
      copy << in.Get<int>();
      if (s != before) abort();  // the edit reached a shared body
      break;
    }
    case 22:
      s << s;
      break;
    case 23:
      s << in.Get<short>() << in.Get<unsigned char>();
      break;
    case 24:
      s.Remove(in.Get<uint8_t>(), in.Get<uint8_t>());
      break;
    case 25:
      s.Insert(in.Get<uint8_t>(), VOSTRING("%d$1"));
      break;
    case 26:
      s << static_cast<const char*>(nullptr) << static_cast<const unsigned short*>(nullptr);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Reader in(data, size);
  std::vector<unsigned short> tmpl = in.Units(in.Get<uint8_t>());

  char sig[4];
  if (Signature(tmpl.data(), sig)) {
    static const unsigned short kWide[] = {'w', 0x263A, 0};
    FixedArgs args{
        static_cast<int>(size) - 40, -5000000000L, INT64_MIN, -1.5e300, 1e4000L, "narrow", kWide};
    VOSTRING out("x");
    CallSprintf(out, tmpl.data(), sig, args);
    CheckText(out);
    // A format that lies in the string's own text, if it asks for nothing.
    if (Signature(out.GetReference(), sig) && !sig[0]) out.Sprintf(out.GetReference());
    CheckText(out);
  }

  VOSTRING s(tmpl.data());
  while (!in.Empty() && s.GetLength() < kMaxLength) {
    ApplyOp(s, in);
    CheckText(s);
  }
  return 0;
}
