// Dates and times as text: a scanner over UTF-16 text driven by a format
// string in the manner of strptime, and output through strftime.
//
// The scanner writes straight into the tm fields, in place; what the format
// doesn't mention stays, and so does the local/UTC flag. It walks the format
// once, with three pieces of state besides the text position: the optional
// flag (between %[ and %], a literal character or a separator that doesn't
// match is passed over, a missing number reads as 0 and a compound part
// that fails is passed over), the split-year flag (%C and %y build one year
// in either order), and the modifier (E or O) of the present conversion,
// which only has to be one the conversion allows.
//
//   blank in the format   any run (maybe none) of space separators (U+0020
//                         and category Zs) in the text; %n and %t the same
//   %%                    a percent sign, which must match even when optional
//   %/  %:                one of "/", "-", " "; one of ":", "."
//   %[  %]                open and close an optional group
//   %a %A, %b %B %h       English day and month names, full or three
//                         letters, ignoring case, as a prefix of the text
//   %d %e %H %k %I %l %j %m %M %S %U %W %w %y %Y %C   numbers
//   %p                    the whole rest of the text is "AM" or "PM"
//   %c %D %r %R %T %x %X  compound: "%[%x %X%]", "%m%/%d%/%y",
//                         "%I:%M%[:%S%] %p", "%H:%M", "%H:%M%[:%S%]", the
//                         three dates "%D", "%d%/%b%/%y", "%b %d, %Y", the
//                         two times "%r", "%T"
//
// A number reads at most as many digits as its upper bound has, and stops
// early once one more digit would pass the bound: "0230" by "%H%M" is 02:30,
// and "45" by "%d" reads 4. A compound conversion is a fresh scan of its own
// format over the rest of the text, so it has its own flags.
//
// The names are fixed English words, never those of the process's locale or
// of the text resources: stored and exchanged dates must read the same
// everywhere. Output, by contrast, is strftime's and follows LC_TIME.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "vosystem/datetime.h"
#include "vosystem/ucdata.h"
#include "vosystem/ucstring.h"
#include "vosystem/vostring.h"

namespace {

const char16_t* const kDays[7][2] = {
    {u"Sunday", u"Sun"},   {u"Monday", u"Mon"}, {u"Tuesday", u"Tue"}, {u"Wednesday", u"Wed"},
    {u"Thursday", u"Thu"}, {u"Friday", u"Fri"}, {u"Saturday", u"Sat"}};
const char16_t* const kMonths[12][2] = {
    {u"January", u"Jan"},   {u"February", u"Feb"}, {u"March", u"Mar"},    {u"April", u"Apr"},
    {u"May", u"May"},       {u"June", u"Jun"},     {u"July", u"Jul"},     {u"August", u"Aug"},
    {u"September", u"Sep"}, {u"October", u"Oct"},  {u"November", u"Nov"}, {u"December", u"Dec"}};

inline const unsigned short* Units(const char16_t* s) {
  return reinterpret_cast<const unsigned short*>(s);
}

// White space of a format: the C locale's isspace, whatever the locale.
bool IsFormatSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// White space of the text: the space separators. U+0020 is one even when
// the character database can't be read.
bool IsTextSpace(unsigned short c) {
  return c == 0x20 || (c > 0x20 && ucisprop(c, UCPROP_MASK(UCCATEGORY_Zs)));
}

bool IsDigit(unsigned short c) {
  return c >= '0' && c <= '9';
}

// The modifiers a conversion allows ("" for none), or null for a character
// that is no conversion.
const char* AllowedModifiers(char conversion) {
  switch (conversion) {
    case '%':
    case '/':
    case ':':
    case '[':
    case ']':
      return "EO";
    case 'c':
    case 'C':
    case 'x':
    case 'X':
    case 'Y':
      return "E";
    case 'y':
      return "EO";
    case 'd':
    case 'e':
    case 'H':
    case 'I':
    case 'm':
    case 'M':
    case 'S':
    case 'U':
    case 'W':
    case 'w':
      return "O";
    case 'a':
    case 'A':
    case 'b':
    case 'B':
    case 'h':
    case 'D':
    case 'k':
    case 'l':
    case 'j':
    case 'n':
    case 't':
    case 'p':
    case 'r':
    case 'R':
    case 'T':
      return "";
    default:
      return nullptr;
  }
}

// One decimal number of low to high at *text. 1 with the number in *value;
// with no digit there, optional (0 read, nothing consumed); 0 for a number
// out of range (its digits consumed, *value 0). See the file's opening for
// how many digits are taken.
int ConvertNum(const unsigned short** text, int* value, int low, int high, bool optional) {
  *value = 0;
  const unsigned short* p = *text;
  if (!IsDigit(*p)) return optional ? 1 : 0;
  int number = 0;
  for (int limit = high;;) {
    number = number * 10 + (*p++ - '0');
    limit /= 10;
    if (number * 10 > high || limit == 0 || !IsDigit(*p)) break;
  }
  *text = p;
  if (number < low || number > high) return 0;
  *value = number;
  return 1;
}

// The year's century and the year within it, by floor division, so that
// years before 0 split as well.
long long CenturyOf(long long year) {
  return year >= 0 ? year / 100 : -((-year + 99) / 100);
}

}  // namespace

struct DATETIME::SCAN {
  DATETIME& dt;
  const unsigned short* const start;
  const unsigned short* p;
  bool optional = false;
  bool splitYear = false;

  SCAN(DATETIME& d, const unsigned short* text) : dt(d), start(text), p(text) {}

  const unsigned short* Run(const char* format) {
    for (const char* f = format; *f;) {
      const char c = *f++;
      if (IsFormatSpace(c)) {
        SkipSpace();
      } else if (c != '%') {
        if (*p == static_cast<unsigned char>(c))
          ++p;
        else if (!optional)
          return nullptr;
      } else {
        char modifier = 0;
        if (*f == 'E' || *f == 'O') {
          modifier = *f++;
          if (*f == 'E' || *f == 'O') return nullptr;
        }
        const char conversion = *f;
        if (!conversion) return nullptr;
        ++f;
        const char* allowed = AllowedModifiers(conversion);
        if (!allowed || (modifier && !std::strchr(allowed, modifier))) return nullptr;
        if (!Convert(conversion)) return nullptr;
      }
    }
    return p == start ? nullptr : p;
  }

  void SkipSpace() {
    while (IsTextSpace(*p)) ++p;
  }

  // A number into *field, stored as number + offset; false fails the scan.
  bool Number(int* field, int low, int high, int offset) {
    int value;
    if (!ConvertNum(&p, &value, low, high, optional)) return false;
    if (field) *field = value + offset;
    return true;
  }

  bool OneOf(const char* set) {
    if (*p && *p < 0x80 && std::strchr(set, static_cast<char>(*p))) {
      ++p;
      return true;
    }
    return optional;
  }

  // A day or month name; no match fails even in an optional group.
  template <int N>
  bool Name(const char16_t* const (&names)[N][2], int* field) {
    for (int i = 0; i < N; ++i) {
      for (const char16_t* name : names[i]) {
        const int n = ucstrlen(Units(name));
        if (ucstrnicmp(p, Units(name), n) == 0) {
          p += n;
          *field = i;
          return true;
        }
      }
    }
    return false;
  }

  // A fresh scan of format over the rest of the text.
  bool Compound(const char* format) {
    const unsigned short* end = dt.Set(p, format);
    if (end) p = end;
    return end != nullptr || optional;
  }

  bool FirstOf(const char* const* formats, int n) {
    for (int i = 0; i < n; ++i) {
      const unsigned short* end = dt.Set(p, formats[i]);
      if (end) {
        p = end;
        return true;
      }
    }
    return false;
  }

  // The rest of the text is "AM" or "PM", after an hour of 0 to 11.
  bool AmPm() {
    const bool am = ucstricmp(p, Units(u"AM")) == 0;
    if (!am && ucstricmp(p, Units(u"PM")) != 0) return false;
    if (dt.m_tm.tm_hour > 11) return false;
    if (!am) dt.m_tm.tm_hour += 12;
    p += 2;
    return true;
  }

  // %y: the year within its century. Alone, 69 to 99 are 1969 to 1999 and
  // 0 to 68 are 2000 to 2068; after %C, the year within that century.
  bool YearInCentury() {
    int n;
    if (!Number(&n, 0, 99, 0)) return false;
    tm& t = dt.m_tm;
    if (!splitYear) {
      t.tm_year = n >= 69 ? n : n + 100;
      splitYear = true;
    } else {
      t.tm_year = static_cast<int>(CenturyOf(t.tm_year + 1900LL) * 100 + n - 1900);
    }
    return true;
  }

  // %C: the century, as strptime reads it: 20 is the years 2000 to 2099,
  // with tm_year counting from 1900 like everywhere else. (A century stored
  // as number x 100 straight into tm_year would make "2004" by "%C%y" the
  // year 3904.) After %y, the century of the year %y gave is replaced, so
  // "%C%y" and "%y%C" read "20" and "04" as the same 2004.
  bool Century() {
    int n;
    if (!Number(&n, 0, 99, 0)) return false;
    tm& t = dt.m_tm;
    if (!splitYear) {
      t.tm_year = n * 100 - 1900;
      splitYear = true;
    } else {
      const long long year = t.tm_year + 1900LL;
      const long long within = year - CenturyOf(year) * 100;
      t.tm_year = static_cast<int>(n * 100LL + within - 1900);
    }
    return true;
  }

  bool Convert(char conversion) {
    tm& t = dt.m_tm;
    switch (conversion) {
      case '%':
        if (*p != '%') return false;
        ++p;
        return true;
      case '/':
        return OneOf("/- ");
      case ':':
        return OneOf(":.");
      case '[':
        optional = true;
        return true;
      case ']':
        optional = false;
        return true;
      case 'a':
      case 'A':
        return Name(kDays, &t.tm_wday);
      case 'b':
      case 'B':
      case 'h':
        return Name(kMonths, &t.tm_mon);
      case 'c':
        return Compound("%[%x %X%]");
      case 'C':
        return Century();
      case 'd':
      case 'e':
        return Number(&t.tm_mday, 1, 31, 0);
      case 'D':
        return Compound("%m%/%d%/%y");
      case 'H':
      case 'k':
        return Number(&t.tm_hour, 0, 23, 0);
      case 'I':
      case 'l':
        if (!Number(&t.tm_hour, 1, 12, 0)) return false;
        if (t.tm_hour == 12) t.tm_hour = 0;  // %p adds 12 for PM
        return true;
      case 'j':
        return Number(&t.tm_yday, 1, 366, -1);
      case 'm':
        return Number(&t.tm_mon, 1, 12, -1);
      case 'M':
        return Number(&t.tm_min, 0, 59, 0);
      case 'n':
      case 't':
        SkipSpace();
        return true;
      case 'p':
        return AmPm();
      case 'r':
        return Compound("%I:%M%[:%S%] %p");
      case 'R':
        return Compound("%H:%M");
      case 'S':
        return Number(&t.tm_sec, 0, 61, 0);
      case 'T':
        return Compound("%H:%M%[:%S%]");
      case 'U':
      case 'W':
        return Number(nullptr, 0, 53, 0);
      case 'w':
        return Number(&t.tm_wday, 0, 6, 0);
      case 'x': {
        static const char* const kDates[] = {"%D", "%d%/%b%/%y", "%b %d, %Y"};
        if (FirstOf(kDates, 3)) return true;
        if (!optional) return false;
        t.tm_mday = t.tm_mon = t.tm_year = 0;
        return true;
      }
      case 'X': {
        static const char* const kTimes[] = {"%r", "%T"};
        if (FirstOf(kTimes, 2)) return true;
        if (!optional) return false;
        dt.SetTimeOfDay(0, 0, 0, false);
        return true;
      }
      case 'y':
        return YearInCentury();
      case 'Y':
        return Number(&t.tm_year, 0, 9999, -1900);
      default:
        return false;
    }
  }
};

const unsigned short* DATETIME::Set(const unsigned short* text, const char* format) {
  if (!text || !format) return nullptr;
  SCAN scan(*this, text);
  return scan.Run(format);
}

// The weekday and the day of the year are worked out from the date, since
// the fields hold them only after a conversion by the platform (tm_wday is
// -1 after a change of date). A year before 1900 has no date strftime's
// "%c" could print in every locale, so "%c" (and "%Ec") print the time
// alone, as "%X".
void DATETIME::StrfTime(VOSTRING& out, const char* format, bool local) const {
  if (!format) return;
  tm t;
  Get(t, local);
  const DATETIME date(t, local);
  const long julian = date.GetDateJulian();
  t.tm_wday = MdtDayOfWeek(julian) - 1;
  const long yday = julian - MdtJulianDate(1, 1, date.GetYear());
  if (yday >= 0 && yday <= 365) t.tm_yday = static_cast<int>(yday);
  char* changed = nullptr;
  if (t.tm_year < 0) {
    changed = strdup(format);
    if (!changed) return;
    for (char* f = changed; *f; ++f) {
      if (*f != '%') continue;
      if (f[1] == 'E' || f[1] == 'O') ++f;
      if (f[1] == 'c') f[1] = 'X';
      if (f[1]) ++f;
    }
  }
  char buffer[1024];
  const size_t n = strftime(buffer, sizeof buffer, changed ? changed : format, &t);
  free(changed);
  if (n == 0) return;
  out += buffer;
}
