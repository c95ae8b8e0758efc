// DATETIME: a moment as broken-down calendar fields plus one flag that says
// whether the fields are local time or UTC; the calendar functions on Julian
// day numbers (the Mdt family); QVCDATETIME, the 8-byte stored form; and the
// text forms of a moment, read by a format string and written by strftime.
//
// The calendar. Dates from 15 October 1582 on are Gregorian, earlier ones
// Julian: the day before 15 October 1582 is 4 October 1582. Years are
// astronomical: year 0 is the year before 1 (a leap year), and -1 comes
// before it. The Julian day number here counts whole days at midnight: 1
// January 2000 is 2451544, 1 January 1970 is 2440587, 15 October 1582 is
// 2299160, and 1 January -4712 is -1. Exact for every day of the years
// -4712 to 9999; beyond them the arithmetic goes on by the same formulas.
//
// A DATETIME is a plain value. Its setters store what they are given
// without checking (SetMonth(14) stores it); MdtValidDate tells real dates
// apart. tm_wday is -1 after any change of the date (unknown until a
// conversion through the platform's time functions fills it). tm_isdst is
// -1 after any change of a field, so that local fields are read with the
// daylight-saving rule of their own date; a tm copied in keeps its own.
//
// Seconds counts are long, as wide as the platform's time_t: no wrap in
// 2038. UTC fields count from 1970 through TimeTFromTM, which gives 0 for
// every year before 1970, so that such UTC values compare equal and go to
// local time as 1 January 1970.
//
// Threads: values belong to one thread at a time. The conversions use the
// reentrant platform calls (localtime_r, gmtime_r), and mktime reads the
// process's time zone (TZ), which must not change while they run.
#ifndef VOSYSTEM_DATETIME_H
#define VOSYSTEM_DATETIME_H

#include <ctime>

#include "vosystem/export.h"

class VOSTRING;

// A date and time of local time in stored records: 8 bytes.
struct QVCDATETIME {
  unsigned char year;   // year minus 1900 (1900 to 2155); other years keep their low 8 bits
  unsigned char month;  // 1 to 12
  unsigned char day;    // day of month
  unsigned char hour;
  unsigned char minute;
  unsigned char second;
  unsigned char zero[2];  // always 0
};

class VOSYS_API DATETIME {
 public:
  // ---- construction
  DATETIME();  // all fields 0, tm_wday -1, UTC
  // That date at 00:01:01 (hour 0, minute 1, second 1), UTC.
  DATETIME(int year, int month, int day);
  DATETIME(int year, int month, int day, int hour, int min, int sec, bool local);
  DATETIME(const DATETIME& other);  // the fields and the flag
  explicit DATETIME(const QVCDATETIME& record);
  DATETIME(const tm& fields, bool local);
  explicit DATETIME(long t);  // Set(t)

  // Copies the fields and keeps this value's own flag (unlike the copy
  // constructor): the fields then count in this value's form.
  DATETIME& operator=(const DATETIME& other);
  DATETIME& operator=(const QVCDATETIME& record);
  DATETIME& operator=(long t);

  // ---- reading
  // The fields in the wanted form, converted if the value is in the other:
  // UTC to local through localtime of TimeTFromTM, local to UTC through
  // mktime and gmtime. A moment the platform can't convert gives a copy of
  // the fields.
  void Get(tm& out, bool local) const;
  void Get(QVCDATETIME& out) const;  // local time
  int GetYear() const;               // tm_year + 1900
  int GetMonth() const;              // tm_mon + 1
  int GetDayOfMonth() const;
  int GetHour() const;
  int GetMin() const;
  int GetSec() const;
  long GetDateJulian() const;  // MdtJulianDate of the fields
  // The Julian day number plus the time of day (in the value's own form) /
  // 86400: the day starts at midnight, so .5 is noon.
  double GetDateTimeJulian() const;
  int GetDateYYYYMMDD() const;  // year x 10000 + month x 100 + day
  // 100-nanosecond ticks since 1 January 1601 (the file time of other
  // systems), the fields counted as UTC whatever the flag.
  unsigned long long GetNanoTime() const;
  long GetTimeOfDay(bool local) const;  // seconds since midnight, in the wanted form
  // Seconds since 1 January 1970 UTC: mktime of local fields, TimeTFromTM
  // of UTC fields (0 for a year before 1970).
  long GetTimeT() const;
  int GetDayOfWeek() const;  // 1 = Sunday to 7 = Saturday
  int GetDayOfYear() const;  // 1-based, by Julian day numbers
  bool IsLocalTime() const { return m_local != 0; }
  bool IsUTCTime() const { return m_local == 0; }

  // ---- writing
  void Set(long t);  // gmtime of t, UTC; a t out of the platform's range changes nothing
  void Set(const tm& fields, bool local);
  void Set(const QVCDATETIME& record);  // all fields cleared, then the record's; local
  // Reads text by format, writing the fields it finds in place (the others
  // and the flag stay). The position behind the last character used, or
  // null on failure (fields may have changed then). A null text or format
  // fails. Directives: see datetime_text.cpp; the names of days and months
  // are the English ones, whatever the locale.
  const unsigned short* Set(const unsigned short* text, const char* format);
  void SetBuild();  // the library's build date at 12:00:00 UTC
  void SetCurrent(bool local);
  void SetDate(long year, unsigned long month, unsigned long day);  // time and flag stay
  void SetDateJulian(long julian);
  // trunc(value) is the day; the fraction of |value| the time of day, in
  // whole seconds, set with the present flag. The inverse of
  // GetDateTimeJulian to the second for day numbers of 0 and above.
  void SetDateTimeJulian(double value);
  void SetDateYYYYMMDD(int yyyymmdd);
  void SetNanoTime(unsigned long long ticks);  // UTC
  void SetYear(int year);
  void SetMonth(int month);  // 1 = January
  void SetDayOfMonth(int day);
  void SetHour(int hour);
  void SetMin(int min);
  void SetSec(int sec);
  void SetTimeOfDay(unsigned long hour, unsigned long min, unsigned long sec, bool local);
  void SetTimeOfDay(unsigned long seconds, bool local);
  void ConvertToLocal();  // nothing if already local
  void ConvertToUTC();

  // Appends the value, as local time or UTC, formatted by the platform's
  // strftime (in the process's LC_TIME locale) into at most 1023 bytes,
  // taken as 8-bit text; the weekday and the day of the year come from the
  // date. A year before 1900 prints "%c" as "%X", its time only. A result
  // that doesn't fit appends nothing.
  void StrfTime(VOSTRING& out, const char* format, bool local) const;

  // ---- comparison: GetTimeT of both sides, in whole seconds, across forms
  friend bool operator==(const DATETIME& a, const DATETIME& b) {
    return a.GetTimeT() == b.GetTimeT();
  }
  friend bool operator!=(const DATETIME& a, const DATETIME& b) {
    return a.GetTimeT() != b.GetTimeT();
  }
  friend bool operator<(const DATETIME& a, const DATETIME& b) {
    return a.GetTimeT() < b.GetTimeT();
  }
  friend bool operator<=(const DATETIME& a, const DATETIME& b) {
    return a.GetTimeT() <= b.GetTimeT();
  }
  friend bool operator>(const DATETIME& a, const DATETIME& b) {
    return a.GetTimeT() > b.GetTimeT();
  }
  friend bool operator>=(const DATETIME& a, const DATETIME& b) {
    return a.GetTimeT() >= b.GetTimeT();
  }

  // Seconds since 1970 of the fields taken as UTC, with no time zone and no
  // mktime; 0 for a year before 1970. A month outside 0 to 11 counts as
  // January.
  static long TimeTFromTM(const tm* fields);

 private:
  struct SCAN;
  friend struct SCAN;
  tm m_tm;
  int m_local;  // non-zero: the fields are local time
};

extern "C" {

// The Julian day number of a date of the calendar above (day, month 1 to
// 12, year), computed in floating point as the astronomers' formula does.
// Out-of-range days and months go through the same arithmetic.
VOSYS_API long MdtJulianDate(int day, int month, int year);
// The calendar date of a Julian day number. Numbers whose year is outside
// int saturate.
VOSYS_API void MdtCalendarDate(long julian, int* day, int* month, int* year);
// 1 = Sunday to 7 = Saturday.
VOSYS_API int MdtDayOfWeek(long julian);
// True if the date converts to a Julian day number and back unchanged.
VOSYS_API bool MdtValidDate(int day, int month, int year);

}  // extern "C"

#endif
