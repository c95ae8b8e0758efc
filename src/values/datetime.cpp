// Dates and times: the calendar on Julian day numbers and the DATETIME value.
//
// The calendar functions follow the astronomers' floating-point formulas
// (month 30.6001 days, year 365.25 days, the Gregorian correction from 15
// October 1582 on): every intermediate value is an integer or a quarter in
// double, exactly representable, so trunc gives the exact day for all the
// years the formulas are meant for (-4712 to 9999, checked day by day in the
// tests against integer arithmetic). The only added care is at the edges:
// a double is turned into an int or a long only after it has been clamped
// to the target's range, so no input reaches an undefined conversion.
//
// DATETIME keeps a struct tm and a flag. Fields are stored as given; sums
// that could pass the range of int (a year plus 1900, a year minus 1900)
// wrap as 32-bit numbers instead of overflowing. Conversions between the
// two forms go through the reentrant platform calls; mktime's result is
// trusted only when it has filled tm_wday, since -1 is also a real second.
#include "vosystem/datetime.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "vosystem/filefind.h"

namespace {

// Seconds from 1 January 1601 to 1 January 1970; ticks of 100 ns a second.
const unsigned long long kSeconds1601To1970 = 11644473600ULL;
const unsigned long long kTicksPerSecond = 10000000ULL;

// a + b as a 32-bit number, wrapping instead of overflowing.
int WrapAdd(long long a, long long b) {
  return static_cast<int>(static_cast<uint32_t>(static_cast<unsigned long long>(a) +
                                                static_cast<unsigned long long>(b)));
}

// trunc(v), without a call into the maths library where the processor's
// baseline has no rounding instruction: below 2^52 through a 64-bit
// integer, above it v is whole already. NaN stays NaN.
inline double Trunc(double v) {
  return std::fabs(v) < 4503599627370496.0 ? static_cast<double>(static_cast<long long>(v)) : v;
}

// trunc(v) clamped to the range of int; NaN gives 0.
int ToInt(double v) {
  if (!(v == v)) return 0;
  if (v <= -2147483648.0) return INT32_MIN;
  if (v >= 2147483647.0) return INT32_MAX;
  return static_cast<int>(v);
}

// trunc(v) clamped to the range of a 64-bit long; NaN gives 0.
long ToLong(double v) {
  if (!(v == v)) return 0;
  if (v <= -9223372036854775808.0) return static_cast<long>(INT64_MIN);
  if (v >= 9223372036854775807.0) return static_cast<long>(INT64_MAX);
  return static_cast<long>(v);
}

void MarkChanged(tm& t, bool dateChanged) {
  if (dateChanged) t.tm_wday = -1;
  t.tm_isdst = -1;
}

// mktime of a copy of t; false when the platform can't place it.
bool LocalToTimeT(const tm& t, time_t* out) {
  tm copy = t;
  copy.tm_wday = -1;
  *out = mktime(&copy);
  return copy.tm_wday != -1;
}

// The build date, read once from the text the compiler wrote: a month
// abbreviation, the day and the year ("Jun  2 2004").
struct BUILDDATE {
  long year = 0;
  unsigned long month = 1;
  unsigned long day = 0;

  explicit BUILDDATE(const char* text) {
    static const char* const kMonths[12] = {"jan", "feb", "mar", "apr", "may", "jun",
                                            "jul", "aug", "sep", "oct", "nov", "dec"};
    const char* p = text;
    while (*p == ' ') ++p;
    char word[4] = {};
    int n = 0;
    for (; *p && *p != ' '; ++p)
      if (n < 4) word[n++] = static_cast<char>(*p | 0x20);
    for (int m = 0; m < 12; ++m)
      if (n == 3 && std::memcmp(word, kMonths[m], 3) == 0)
        month = static_cast<unsigned long>(m + 1);
    day = static_cast<unsigned long>(Number(p));
    year = Number(p);
    if (year <= 99) year += 2000;
    if (year < 2000) year += 1900;
  }

  static long Number(const char*& p) {
    while (*p == ' ') ++p;
    long v = 0;
    for (; *p >= '0' && *p <= '9' && v < 100000; ++p) v = v * 10 + (*p - '0');
    return v;
  }
};

}  // namespace

// ---------------------------------------------------------------- calendar

extern "C" long MdtJulianDate(int day, int month, int year) {
  double y = year, m = month;
  const double d = day;
  const double c = year <= 0 ? 0.75 : 0;
  if (month == 1 || month == 2) {
    y -= 1;
    m += 12;
  }
  double b = 0;
  if (y * 10000 + m * 100 + d >= 15821015) {
    const double a = Trunc(y / 100);
    b = Trunc(a / 4) - a + 2;
  }
  return ToLong(Trunc(y * 365.25 - c) + Trunc((m + 1) * 30.6001) + d + b + 1720994);
}

extern "C" void MdtCalendarDate(long julian, int* day, int* month, int* year) {
  const double z = static_cast<double>(julian) + 1;
  double a = z;
  if (z > 2299160) {
    const double alpha = Trunc((z - 1867216.25) / 36524.25);
    a = z + alpha - Trunc(alpha / 4) + 1;
  }
  const double b = a + 1524;
  const double c = Trunc((b - 122.1) / 365.25);
  const double d = Trunc(c * 365.25);
  const double e = Trunc((b - d) / 30.6001);
  const double dd = b - d - Trunc(e * 30.6001);
  const double mm = e < 13.5 ? e - 1 : e - 13;
  const double yy = mm > 2.5 ? c - 4716 : c - 4715;
  if (day) *day = ToInt(dd);
  if (month) *month = ToInt(mm);
  if (year) *year = ToInt(yy);
}

// (julian + 2) mod 7 + 1, with the modulo taken toward minus infinity, so
// that days before the number 0 get their weekday too.
extern "C" int MdtDayOfWeek(long julian) {
  return static_cast<int>((julian % 7 + 7 + 2) % 7) + 1;
}

extern "C" bool MdtValidDate(int day, int month, int year) {
  int d = 0, m = 0, y = 0;
  MdtCalendarDate(MdtJulianDate(day, month, year), &d, &m, &y);
  return d == day && m == month && y == year;
}

// ---------------------------------------------------------------- construction

DATETIME::DATETIME() : m_tm(), m_local(0) {
  m_tm.tm_wday = -1;
}

DATETIME::DATETIME(int year, int month, int day) : DATETIME() {
  SetDate(year, static_cast<unsigned long>(month), static_cast<unsigned long>(day));
  m_tm.tm_hour = 0;
  m_tm.tm_min = 1;
  m_tm.tm_sec = 1;
}

DATETIME::DATETIME(int year, int month, int day, int hour, int min, int sec, bool local)
    : DATETIME() {
  SetDate(year, static_cast<unsigned long>(month), static_cast<unsigned long>(day));
  m_tm.tm_hour = hour;
  m_tm.tm_min = min;
  m_tm.tm_sec = sec;
  m_local = local;
}

DATETIME::DATETIME(const DATETIME& other) = default;

DATETIME::DATETIME(const QVCDATETIME& record) : DATETIME() {
  Set(record);
}

DATETIME::DATETIME(const tm& fields, bool local) : m_tm(fields), m_local(local) {}

DATETIME::DATETIME(long t) : DATETIME() {
  Set(t);
}

DATETIME& DATETIME::operator=(const DATETIME& other) {
  m_tm = other.m_tm;
  return *this;
}

DATETIME& DATETIME::operator=(const QVCDATETIME& record) {
  Set(record);
  return *this;
}

DATETIME& DATETIME::operator=(long t) {
  Set(t);
  return *this;
}

// ---------------------------------------------------------------- reading

void DATETIME::Get(tm& out, bool local) const {
  if (local == (m_local != 0)) {
    out = m_tm;
  } else if (local) {
    const time_t t = TimeTFromTM(&m_tm);
    if (!localtime_r(&t, &out)) out = m_tm;
  } else {
    time_t t;
    if (!LocalToTimeT(m_tm, &t) || !gmtime_r(&t, &out)) out = m_tm;
  }
}

void DATETIME::Get(QVCDATETIME& out) const {
  tm t;
  Get(t, true);
  out.year = static_cast<unsigned char>(static_cast<unsigned>(t.tm_year));
  out.month = static_cast<unsigned char>(static_cast<unsigned>(t.tm_mon) + 1);
  out.day = static_cast<unsigned char>(t.tm_mday);
  out.hour = static_cast<unsigned char>(t.tm_hour);
  out.minute = static_cast<unsigned char>(t.tm_min);
  out.second = static_cast<unsigned char>(t.tm_sec);
  out.zero[0] = out.zero[1] = 0;
}

int DATETIME::GetYear() const {
  return WrapAdd(m_tm.tm_year, 1900);
}

int DATETIME::GetMonth() const {
  return WrapAdd(m_tm.tm_mon, 1);
}

int DATETIME::GetDayOfMonth() const {
  return m_tm.tm_mday;
}

int DATETIME::GetHour() const {
  return m_tm.tm_hour;
}

int DATETIME::GetMin() const {
  return m_tm.tm_min;
}

int DATETIME::GetSec() const {
  return m_tm.tm_sec;
}

long DATETIME::GetDateJulian() const {
  return MdtJulianDate(m_tm.tm_mday, GetMonth(), GetYear());
}

double DATETIME::GetDateTimeJulian() const {
  const double seconds = m_tm.tm_hour * 3600.0 + m_tm.tm_min * 60.0 + m_tm.tm_sec;
  return static_cast<double>(GetDateJulian()) + seconds / 86400.0;
}

int DATETIME::GetDateYYYYMMDD() const {
  const long long n = GetYear() * 10000LL + GetMonth() * 100LL + m_tm.tm_mday;
  return static_cast<int>(static_cast<uint32_t>(static_cast<unsigned long long>(n)));
}

unsigned long long DATETIME::GetNanoTime() const {
  const unsigned long long t = static_cast<unsigned long long>(TimeTFromTM(&m_tm));
  return (t + kSeconds1601To1970) * kTicksPerSecond;
}

long DATETIME::GetTimeOfDay(bool local) const {
  tm t;
  Get(t, local);
  return t.tm_hour * 3600L + t.tm_min * 60L + t.tm_sec;
}

long DATETIME::GetTimeT() const {
  if (!m_local) return TimeTFromTM(&m_tm);
  tm copy = m_tm;
  return static_cast<long>(mktime(&copy));
}

int DATETIME::GetDayOfWeek() const {
  return MdtDayOfWeek(GetDateJulian());
}

int DATETIME::GetDayOfYear() const {
  const long first = MdtJulianDate(1, 1, GetYear());
  return static_cast<int>(GetDateJulian() - first + 1);
}

long DATETIME::TimeTFromTM(const tm* fields) {
  return static_cast<long>(::TimeTFromTM(fields));
}

// ---------------------------------------------------------------- writing

void DATETIME::Set(long t) {
  const time_t tt = static_cast<time_t>(t);
  tm out;
  if (!gmtime_r(&tt, &out)) return;
  m_tm = out;
  m_local = 0;
}

void DATETIME::Set(const tm& fields, bool local) {
  m_tm = fields;
  m_local = local;
}

void DATETIME::Set(const QVCDATETIME& record) {
  m_tm = tm();
  m_tm.tm_year = record.year;
  m_tm.tm_mon = record.month - 1;
  m_tm.tm_mday = record.day;
  m_tm.tm_hour = record.hour;
  m_tm.tm_min = record.minute;
  m_tm.tm_sec = record.second;
  MarkChanged(m_tm, true);
  m_local = 1;
}

void DATETIME::SetBuild() {
  static const BUILDDATE build(__DATE__);
  SetDate(build.year, build.month, build.day);
  SetTimeOfDay(12, 0, 0, false);
}

void DATETIME::SetCurrent(bool local) {
  Set(static_cast<long>(time(nullptr)));
  if (local) ConvertToLocal();
}

void DATETIME::SetDate(long year, unsigned long month, unsigned long day) {
  m_tm.tm_year = WrapAdd(year, -1900);
  m_tm.tm_mon = WrapAdd(static_cast<long long>(month), -1);
  m_tm.tm_mday = WrapAdd(static_cast<long long>(day), 0);
  MarkChanged(m_tm, true);
}

void DATETIME::SetDateJulian(long julian) {
  int day = 0, month = 0, year = 0;
  MdtCalendarDate(julian, &day, &month, &year);
  SetDate(year, static_cast<unsigned long>(month), static_cast<unsigned long>(day));
}

// The time of day is the fraction of |value| in whole seconds. A double
// near a day number of two million has some 31 bits below the point, so
// value - trunc(value) carries a rounding error of a few units in its last
// place: plain truncation would give 60 for a value written from 61
// seconds about half the time. The fraction is read with that error added
// back (four units in the last place of value, a fraction of a
// millisecond for any day of the years -4712 to 9999), which makes the
// pair exact to the second and changes nothing else.
void DATETIME::SetDateTimeJulian(double value) {
  SetDateJulian(ToLong(value));
  const double magnitude = std::fabs(value);
  const double fraction = magnitude - Trunc(magnitude);
  const double slack = 4 * (std::nextafter(magnitude, HUGE_VAL) - magnitude) * 86400;
  long seconds = ToLong(fraction * 86400 + slack);
  if (seconds < 0) seconds = 0;
  if (seconds > 86399) seconds = 86399;
  SetTimeOfDay(static_cast<unsigned long>(seconds), m_local != 0);
}

void DATETIME::SetDateYYYYMMDD(int yyyymmdd) {
  SetDate(yyyymmdd / 10000, static_cast<unsigned long>(yyyymmdd % 10000 / 100),
          static_cast<unsigned long>(yyyymmdd % 100));
}

void DATETIME::SetNanoTime(unsigned long long ticks) {
  Set(static_cast<long>(ticks / kTicksPerSecond) - static_cast<long>(kSeconds1601To1970));
}

void DATETIME::SetYear(int year) {
  m_tm.tm_year = WrapAdd(year, -1900);
  MarkChanged(m_tm, true);
}

void DATETIME::SetMonth(int month) {
  m_tm.tm_mon = WrapAdd(month, -1);
  MarkChanged(m_tm, true);
}

void DATETIME::SetDayOfMonth(int day) {
  m_tm.tm_mday = day;
  MarkChanged(m_tm, true);
}

void DATETIME::SetHour(int hour) {
  m_tm.tm_hour = hour;
  MarkChanged(m_tm, false);
}

void DATETIME::SetMin(int min) {
  m_tm.tm_min = min;
  MarkChanged(m_tm, false);
}

void DATETIME::SetSec(int sec) {
  m_tm.tm_sec = sec;
  MarkChanged(m_tm, false);
}

void DATETIME::SetTimeOfDay(unsigned long hour, unsigned long min, unsigned long sec, bool local) {
  m_tm.tm_hour = WrapAdd(static_cast<long long>(hour), 0);
  m_tm.tm_min = WrapAdd(static_cast<long long>(min), 0);
  m_tm.tm_sec = WrapAdd(static_cast<long long>(sec), 0);
  MarkChanged(m_tm, false);
  m_local = local;
}

void DATETIME::SetTimeOfDay(unsigned long seconds, bool local) {
  SetTimeOfDay(seconds / 3600, seconds % 3600 / 60, seconds % 60, local);
}

void DATETIME::ConvertToLocal() {
  if (m_local) return;
  tm t;
  Get(t, true);
  m_tm = t;
  m_local = 1;
}

void DATETIME::ConvertToUTC() {
  if (!m_local) return;
  tm t;
  Get(t, false);
  m_tm = t;
  m_local = 0;
}
