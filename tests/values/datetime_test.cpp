// Dates and times: every day from -4712 to 9999 against integer calendar
// arithmetic written here and against glibc's timegm and gmtime; seconds
// counts against timegm; local and UTC forms under time zones with
// daylight saving (POSIX TZ strings, so no zone files are needed).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <random>

#include "test_util.h"
#include "vosystem/datetime.h"

namespace {

long long FloorDiv(long long a, long long b) {
  return a >= 0 ? a / b : -((-a + b - 1) / b);
}

// Day of the March-based year, for both calendars.
long long DayOfMarchYear(int month, int day) {
  return (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
}

// The day numbers at midnight, counted so that 1 January 1970 (Gregorian)
// is 2440587 and 1 March of year 0 (Julian) is 1721117: 400-year and
// 4-year cycles in integers.
long long GregorianDay(long long y, int m, int d) {
  y -= m <= 2;
  const long long era = FloorDiv(y, 400);
  const long long yoe = y - era * 400;
  return era * 146097 + yoe * 365 + yoe / 4 - yoe / 100 + DayOfMarchYear(m, d) - 719468 + 2440587;
}

long long JulianCalendarDay(long long y, int m, int d) {
  y -= m <= 2;
  const long long era = FloorDiv(y, 4);
  return era * 1461 + (y - era * 4) * 365 + DayOfMarchYear(m, d) + 1721117;
}

int DaysIn(int year, int month, bool gregorian) {
  static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = gregorian ? (year % 4 == 0 && year % 100 != 0) || year % 400 == 0
                              : FloorDiv(year, 4) * 4 == year;
  return kDays[month - 1] + (month == 2 && leap);
}

void SetTZ(const char* tz) {
  setenv("TZ", tz, 1);
  tzset();
}

const char kBerlin[] = "CET-1CEST,M3.5.0,M10.5.0/3";
const char kNewYork[] = "EST5EDT,M3.2.0,M11.1.0";

}  // namespace

TEST(Calendar, EveryDayFromMinus4712To9999MatchesIntegerArithmeticAndTimegm) {
  long long expectedNext = JulianCalendarDay(-4712, 1, 1);
  ASSERT_EQ(expectedNext, -1);
  int previousWeekday = 0;
  long count = 0;
  for (int y = -4712; y <= 9999; ++y) {
    for (int m = 1; m <= 12; ++m) {
      const bool gregorian = y > 1582 || (y == 1582 && m >= 10);
      for (int d = 1; d <= DaysIn(y, m, gregorian); ++d) {
        if (y == 1582 && m == 10 && d > 4 && d < 15) {
          ASSERT_FALSE(MdtValidDate(d, m, y)) << d;  // the days the reform left out
          continue;
        }
        const bool julianPart = !gregorian || (y == 1582 && m == 10 && d < 15);
        const long long want = julianPart ? JulianCalendarDay(y, m, d) : GregorianDay(y, m, d);
        ASSERT_EQ(want, expectedNext) << y << "-" << m << "-" << d;  // no gap, no overlap
        expectedNext = want + 1;
        const long jd = MdtJulianDate(d, m, y);
        ASSERT_EQ(jd, want) << y << "-" << m << "-" << d;
        int dd = 0, mm = 0, yy = 0;
        MdtCalendarDate(jd, &dd, &mm, &yy);
        ASSERT_TRUE(dd == d && mm == m && yy == y) << jd << ": " << yy << "-" << mm << "-" << dd;
        ASSERT_TRUE(MdtValidDate(d, m, y));
        const int weekday = MdtDayOfWeek(jd);
        if (previousWeekday) {
          ASSERT_EQ(weekday, previousWeekday % 7 + 1) << jd;
        }
        previousWeekday = weekday;
        if (!julianPart) {
          tm t = {};
          t.tm_year = y - 1900;
          t.tm_mon = m - 1;
          t.tm_mday = d;
          const time_t s = timegm(&t);
          ASSERT_EQ(FloorDiv(s, 86400) + 2440587, jd);
          ASSERT_EQ(t.tm_wday + 1, weekday);
        }
        ++count;
      }
      if (y % 97 == 0) {  // days past the month's end don't come back
        ASSERT_FALSE(MdtValidDate(DaysIn(y, m, gregorian) + 1, m, y));
        ASSERT_FALSE(MdtValidDate(0, m, y));
      }
    }
  }
  EXPECT_EQ(count, expectedNext - JulianCalendarDay(-4712, 1, 1));
  EXPECT_FALSE(MdtValidDate(1, 13, 2000));
  EXPECT_FALSE(MdtValidDate(1, 0, 2000));
}

TEST(Calendar, KnownDaysAndTheReform) {
  const int kDays[][4] = {{1, 1, 2000, 2451544},  {1, 1, 1970, 2440587}, {15, 10, 1582, 2299160},
                          {4, 10, 1582, 2299159}, {1, 1, 1, 1721423},    {1, 1, 0, 1721057},
                          {1, 1, -1, 1720692}};
  for (const auto& k : kDays) EXPECT_EQ(MdtJulianDate(k[0], k[1], k[2]), k[3]) << k[2];
  EXPECT_EQ(MdtDayOfWeek(2451544), 7);  // a Saturday
  EXPECT_EQ(MdtDayOfWeek(2299160), 6);
  int d, m, y;
  MdtCalendarDate(MdtJulianDate(10, 10, 1582), &d, &m, &y);
  EXPECT_TRUE(d == 20 && m == 10 && y == 1582);
  EXPECT_FALSE(MdtValidDate(29, 2, 1900));
  EXPECT_TRUE(MdtValidDate(29, 2, 1500));  // a Julian leap year
  EXPECT_TRUE(MdtValidDate(29, 2, 2000));
  // Weekdays stay in 1 to 7 before the day numbered 0 too.
  for (long j = -30; j < 30; ++j) {
    EXPECT_EQ(MdtDayOfWeek(j) % 7 + 1, MdtDayOfWeek(j + 1));
  }
  // Extreme arguments stay defined.
  MdtCalendarDate(MdtJulianDate(INT32_MAX, INT32_MAX, INT32_MAX), &d, &m, &y);
  MdtCalendarDate(static_cast<long>(INT64_MIN), &d, &m, &y);
  MdtCalendarDate(static_cast<long>(INT64_MAX), nullptr, nullptr, nullptr);
}

TEST(DateTime, SecondsCountsMatchTimegmAndFileTimes) {
  std::mt19937_64 rng(3);
  for (int i = 0; i < 20000; ++i) {
    const long t = static_cast<long>(rng() % 253402300800ULL);  // to the end of 9999
    DATETIME v(t);
    ASSERT_TRUE(v.IsUTCTime());
    tm g;
    gmtime_r(&t, &g);
    ASSERT_EQ(v.GetYear(), g.tm_year + 1900);
    ASSERT_EQ(v.GetTimeT(), t);
    ASSERT_EQ(DATETIME::TimeTFromTM(&g), t);
    ASSERT_EQ(v.GetNanoTime(), (static_cast<unsigned long long>(t) + 11644473600ULL) * 10000000);
    DATETIME back;
    back.SetNanoTime(v.GetNanoTime() + 9999999);  // the part of a second is dropped
    ASSERT_EQ(back.GetTimeT(), t);
    ASSERT_EQ(v.GetDayOfWeek(), g.tm_wday + 1);
    ASSERT_EQ(v.GetDayOfYear(), g.tm_yday + 1);
    ASSERT_EQ(v.GetDateJulian(), t / 86400 + 2440587);
  }
  tm t = {};
  t.tm_year = 72;
  t.tm_mon = 2;
  t.tm_mday = 1;
  EXPECT_EQ(DATETIME::TimeTFromTM(&t), 68256000);
  t.tm_year = 101;
  t.tm_mon = 0;
  EXPECT_EQ(DATETIME::TimeTFromTM(&t), 978307200);
  t.tm_year = 69;
  t.tm_mon = 11;
  t.tm_mday = 31;
  EXPECT_EQ(DATETIME::TimeTFromTM(&t), 0);
  EXPECT_EQ(DATETIME(1970, 1, 1, 0, 0, 0, false).GetNanoTime(), 116444736000000000ULL);
  DATETIME early;
  early.SetNanoTime(0);  // 1 January 1601
  EXPECT_EQ(early.GetYear(), 1601);
  EXPECT_EQ(early.GetDayOfMonth(), 1);
  // UTC values before 1970 all count as 0 seconds, and so compare equal.
  EXPECT_TRUE(DATETIME(1960, 1, 1) == DATETIME(1965, 1, 1));
  EXPECT_TRUE(DATETIME(1969, 12, 31) < DATETIME(1970, 1, 1));
}

TEST(DateTime, JulianDayWithTimeIsExactToTheSecond) {
  std::mt19937 rng(5);
  for (long day : {0L, 1L, 1721057L, 2299160L, 2440587L, 2451544L, 5373484L}) {
    for (unsigned long s = 0; s < 86400; s += 1 + rng() % 7) {
      DATETIME v;
      v.SetDateJulian(day);
      v.SetTimeOfDay(s, false);
      const double jd = v.GetDateTimeJulian();
      ASSERT_DOUBLE_EQ(jd, static_cast<double>(day) + static_cast<double>(s) / 86400.0);
      DATETIME back;
      back.SetDateTimeJulian(jd);
      ASSERT_EQ(back.GetDateJulian(), day);
      ASSERT_EQ(back.GetTimeOfDay(false), static_cast<long>(s)) << day;
    }
  }
  DATETIME noon;
  noon.SetDateTimeJulian(2451544.5);
  EXPECT_EQ(noon.GetHour(), 12);         // the day starts at midnight
  noon.SetDateTimeJulian(std::nan(""));  // no undefined conversion
  noon.SetDateTimeJulian(1e300);
}

TEST(DateTime, FieldsAreStoredAsGiven) {
  DATETIME v(2004, 6, 2);
  EXPECT_EQ(v.GetTimeOfDay(false), 61);  // 00:01:01
  EXPECT_TRUE(v.IsUTCTime());
  v.SetMonth(14);
  EXPECT_EQ(v.GetMonth(), 14);
  EXPECT_FALSE(MdtValidDate(v.GetDayOfMonth(), v.GetMonth(), v.GetYear()));
  v.SetDateYYYYMMDD(20040602);
  EXPECT_EQ(v.GetDateYYYYMMDD(), 20040602);
  EXPECT_EQ(DATETIME(2000, 12, 31).GetDayOfYear(), 366);
  tm t;
  v.Get(t, false);
  EXPECT_EQ(t.tm_wday, -1);  // unknown after a change of date
  v.SetTimeOfDay(3725, true);
  EXPECT_TRUE(v.GetHour() == 1 && v.GetMin() == 2 && v.GetSec() == 5 && v.IsLocalTime());
  v.SetYear(INT32_MAX);  // sums wrap rather than overflow
  v.GetDateJulian();
  v.GetDateYYYYMMDD();
  v.SetDate(INT64_MIN, 0, 0);
  v.GetYear();
  DATETIME build;
  build.SetBuild();
  EXPECT_TRUE(MdtValidDate(build.GetDayOfMonth(), build.GetMonth(), build.GetYear()));
  EXPECT_GE(build.GetYear(), 2000);
  EXPECT_TRUE(build.IsUTCTime() && build.GetTimeOfDay(false) == 12 * 3600);
}

TEST(DateTime, LocalAndUtcFormsConvertBothWaysAcrossDaylightSaving) {
  for (const char* tz : {kBerlin, kNewYork, "UTC0", "NZST-12NZDT,M9.5.0,M4.1.0/3"}) {
    SetTZ(tz);
    std::mt19937_64 rng(11);
    for (int i = 0; i < 3000; ++i) {
      const long t = static_cast<long>(rng() % 4102444800ULL);  // 1970 to 2100
      DATETIME v(t);
      v.ConvertToLocal();
      ASSERT_TRUE(v.IsLocalTime());
      tm l;
      localtime_r(&t, &l);
      ASSERT_TRUE(v.GetHour() == l.tm_hour && v.GetDayOfMonth() == l.tm_mday) << tz << " " << t;
      ASSERT_EQ(v.GetTimeT(), t) << tz;
      ASSERT_EQ(v, DATETIME(t));  // one moment in two forms
      ASSERT_EQ(v.GetTimeOfDay(false), t % 86400);
      QVCDATETIME rec;
      v.Get(rec);
      ASSERT_EQ(rec.year + 1900, l.tm_year + 1900);
      const DATETIME fromRecord(rec);
      ASSERT_TRUE(fromRecord.IsLocalTime());
      ASSERT_EQ(fromRecord.GetHour(), l.tm_hour);
      // Ambiguous hours when the clocks go back may take either offset.
      ASSERT_LE(std::labs(fromRecord.GetTimeT() - t), 3600);
      v.ConvertToUTC();
      ASSERT_TRUE(v.IsUTCTime());
      ASSERT_EQ(v.GetTimeT(), t);
      v.ConvertToUTC();  // nothing to do
      ASSERT_EQ(v.GetTimeT(), t);
    }
  }
  // Local fields made by hand take the daylight-saving rule of their date.
  SetTZ(kBerlin);
  const DATETIME local(2004, 6, 2, 12, 0, 0, true);
  EXPECT_EQ(local.GetTimeT(), 1086170400);                                 // 10:00 UTC
  EXPECT_EQ(DATETIME(2004, 1, 2, 12, 0, 0, true).GetTimeT(), 1073041200);  // 11:00 UTC
  // Assignment keeps the target's form, unlike the copy: 12:00 UTC is two
  // hours after 12:00 in Berlin's summer.
  DATETIME utc;
  utc = local;
  EXPECT_TRUE(utc.IsUTCTime() && utc.GetHour() == 12 && DATETIME(local).IsLocalTime());
  EXPECT_NE(utc, local);
  DATETIME now;
  now.SetCurrent(true);
  EXPECT_TRUE(now.IsLocalTime());
}
