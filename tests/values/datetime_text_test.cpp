// Dates as text: every directive written by strftime and read back; the
// reader against glibc's strptime on numeric fields with plain separators;
// the places where the reader differs from strptime on purpose, each named.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "test_util.h"
#include "vosystem/datetime.h"
#include "vosystem/vostring.h"

namespace {

const unsigned short* Units(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

// Reads text by format into a cleared UTC value: the units used, or -1.
int Parse(DATETIME& v, const std::u16string& text, const char* format) {
  const unsigned short* end = v.Set(Units(text), format);
  return end ? static_cast<int>(end - Units(text)) : -1;
}

int Parse(DATETIME& v, const char* text, const char* format) {
  return Parse(v, std::u16string(text, text + strlen(text)), format);
}

tm Fields(const DATETIME& v) {
  tm t;
  v.Get(t, false);
  return t;
}

// A random moment of the years 1969 to 2068, which two-digit years reach.
tm RandomMoment(std::mt19937& rng) {
  const time_t t = -31536000 + static_cast<time_t>(rng() % 3155760000u);
  tm g;
  gmtime_r(&t, &g);
  return g;
}

std::string Strftime(const char* format, const tm& t) {
  char buf[256];
  const size_t n = strftime(buf, sizeof buf, format, &t);
  return std::string(buf, n);
}

}  // namespace

TEST(DateText, EveryDirectiveReadsBackWhatStrftimeWrote) {
  struct CASE {
    const char* format;
    std::function<bool(const tm& want, const tm& got)> same;
  };
  const auto date = [](const tm& a, const tm& b) {
    return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday;
  };
  const auto hm = [](const tm& a, const tm& b) {
    return a.tm_hour == b.tm_hour && a.tm_min == b.tm_min;
  };
  const auto hms = [hm](const tm& a, const tm& b) { return hm(a, b) && a.tm_sec == b.tm_sec; };
  const std::vector<CASE> cases = {
      {"%a", [](const tm& a, const tm& b) { return a.tm_wday == b.tm_wday; }},
      {"%A", [](const tm& a, const tm& b) { return a.tm_wday == b.tm_wday; }},
      {"%b", [](const tm& a, const tm& b) { return a.tm_mon == b.tm_mon; }},
      {"%B", [](const tm& a, const tm& b) { return a.tm_mon == b.tm_mon; }},
      {"%h", [](const tm& a, const tm& b) { return a.tm_mon == b.tm_mon; }},
      {"%C",
       [](const tm& a, const tm& b) { return (a.tm_year + 1900) / 100 * 100 == b.tm_year + 1900; }},
      {"%d", [](const tm& a, const tm& b) { return a.tm_mday == b.tm_mday; }},
      {"%Od", [](const tm& a, const tm& b) { return a.tm_mday == b.tm_mday; }},
      {"%D", date},
      {"%H", [](const tm& a, const tm& b) { return a.tm_hour == b.tm_hour; }},
      {"%I %p", [](const tm& a, const tm& b) { return a.tm_hour == b.tm_hour; }},
      {"%j", [](const tm& a, const tm& b) { return a.tm_yday == b.tm_yday; }},
      {"%m", [](const tm& a, const tm& b) { return a.tm_mon == b.tm_mon; }},
      {"%M", [](const tm& a, const tm& b) { return a.tm_min == b.tm_min; }},
      {"%r", hms},
      {"%R", hm},
      {"%S", [](const tm& a, const tm& b) { return a.tm_sec == b.tm_sec; }},
      {"%T", hms},
      {"%U %W", [](const tm&, const tm&) { return true; }},
      {"%w", [](const tm& a, const tm& b) { return a.tm_wday == b.tm_wday; }},
      {"%x", date},
      {"%Ex", date},
      {"%X", hms},
      {"%y", [](const tm& a, const tm& b) { return a.tm_year == b.tm_year; }},
      {"%Y", [](const tm& a, const tm& b) { return a.tm_year == b.tm_year; }},
      {"%C%y", [](const tm& a, const tm& b) { return a.tm_year == b.tm_year; }},
      {"%y%C", [](const tm& a, const tm& b) { return a.tm_year == b.tm_year; }},
      {"%%%Y%%", [](const tm& a, const tm& b) { return a.tm_year == b.tm_year; }},
      {"%EY %Oy %EC", [](const tm& a, const tm& b) { return a.tm_year == b.tm_year; }},
      {"%OH:%OM:%OS %EX", hms},
      // Space-padded numbers, behind a blank of the format that takes the padding.
      {" %e", [](const tm& a, const tm& b) { return a.tm_mday == b.tm_mday; }},
      {" %k", [](const tm& a, const tm& b) { return a.tm_hour == b.tm_hour; }},
      {" %l %p", [](const tm& a, const tm& b) { return a.tm_hour == b.tm_hour; }},
      {"%A, %B %d, %Y %T",
       [date, hms](const tm& a, const tm& b) { return date(a, b) && hms(a, b); }},
  };
  std::mt19937 rng(1);
  for (int i = 0; i < 2000; ++i) {
    const tm want = RandomMoment(rng);
    const DATETIME value(want, false);
    for (const CASE& c : cases) {
      VOSTRING text;
      value.StrfTime(text, c.format, false);
      ASSERT_EQ(U8(text), Strftime(c.format, want));
      DATETIME got;
      ASSERT_EQ(Parse(got, U16(text), c.format), text.GetLength()) << c.format << " " << U8(text);
      ASSERT_TRUE(c.same(want, Fields(got))) << c.format << " " << U8(text);
    }
  }
}

// Where both read the same text the same way: zero-padded numbers, plain
// separators, years 1000 to 9999.
TEST(DateText, NumericFieldsAgreeWithStrptime) {
  const char* const formats[] = {"%Y-%m-%d %H:%M:%S",
                                 "%d/%m/%Y",
                                 "%H%M",
                                 "%y%m%d",
                                 "%C%y",
                                 "%y%C",
                                 "%D %R",
                                 "%T",
                                 "%I:%M:%S %p",
                                 "%m/%d/%y %H:%M",
                                 "%Y%m%d%H%M%S",
                                 "%j",
                                 "%d.%m.%Y"};
  std::mt19937 rng(2);
  for (int i = 0; i < 5000; ++i) {
    tm src = RandomMoment(rng);
    src.tm_year = 1000 + static_cast<int>(rng() % 9000) - 1900;
    for (const char* format : formats) {
      const std::string text = Strftime(format, src);
      tm theirs = {};
      theirs.tm_sec = 1, theirs.tm_min = 2, theirs.tm_hour = 3, theirs.tm_mday = 4;
      theirs.tm_mon = 5, theirs.tm_year = 6, theirs.tm_yday = 7;
      DATETIME ours(theirs, false);
      const char* end = strptime(text.c_str(), format, &theirs);
      const int used = Parse(ours, text.c_str(), format);
      ASSERT_EQ(used, end ? static_cast<int>(end - text.c_str()) : -1) << format << " " << text;
      const tm o = Fields(ours);
      ASSERT_TRUE(o.tm_year == theirs.tm_year && o.tm_mon == theirs.tm_mon &&
                  o.tm_mday == theirs.tm_mday && o.tm_hour == theirs.tm_hour &&
                  o.tm_min == theirs.tm_min && o.tm_sec == theirs.tm_sec)
          << format << " " << text;
      if (strchr(format, 'j')) {
        ASSERT_EQ(o.tm_yday, theirs.tm_yday) << text;
      }
    }
  }
}

TEST(DateText, SeparatorsAndOptionalGroups) {
  for (const char* text : {"12/25/04", "12-25-04", "12 25 04"}) {
    DATETIME v;
    EXPECT_EQ(Parse(v, text, "%m%/%d%/%y"), 8) << text;
    EXPECT_EQ(v.GetDateYYYYMMDD(), 20041225) << text;
  }
  DATETIME v(2000, 1, 1, 9, 9, 9, false);
  EXPECT_EQ(Parse(v, "12:30", "%H:%M%[:%S%]"), 5);
  EXPECT_TRUE(v.GetHour() == 12 && v.GetMin() == 30 && v.GetSec() == 0);
  EXPECT_EQ(Parse(v, "12:30:15", "%H:%M%[:%S%]"), 8);
  EXPECT_EQ(v.GetSec(), 15);
  EXPECT_EQ(Parse(v, "12.30", "%H%:%M"), 5);
  EXPECT_EQ(Parse(v, "12:30", "%H%:%M"), 5);
  EXPECT_EQ(Parse(v, "12.30", "%H:%M"), -1);      // a plain ":" matches only itself
  EXPECT_EQ(Parse(v, "12:30", "%H:%M%[:%S"), 5);  // a group left open ends with the format
  EXPECT_EQ(Parse(v, "1230", "%H%[%%%]%M"), -1);  // "%%" must match even when optional
  // An optional number that isn't there reads as 0: a month of -1.
  EXPECT_EQ(Parse(v, "x", "x%[%m%]"), 1);
  EXPECT_EQ(v.GetMonth(), 0);
  // %c: a date alone leaves the time at midnight, UTC.
  DATETIME c(1999, 9, 9, 9, 9, 9, true);
  EXPECT_EQ(Parse(c, "Feb 3, 2004", "%c"), 11);
  EXPECT_TRUE(c.GetDateYYYYMMDD() == 20040203 && c.GetTimeOfDay(false) == 0 && c.IsUTCTime());
  EXPECT_EQ(Parse(c, "3/Feb/04", "%x"), 8);
  EXPECT_EQ(c.GetDateYYYYMMDD(), 20040203);
  EXPECT_EQ(Parse(c, "07/04/76 5:15 PM", "%c"), 16);
  EXPECT_TRUE(c.GetDateYYYYMMDD() == 19760704 && c.GetHour() == 17);
  EXPECT_EQ(Parse(c, "x", "x%[%x%]"), 1);  // no date: day, month and year all 0
  EXPECT_TRUE(c.GetDayOfMonth() == 0 && c.GetMonth() == 1 && c.GetYear() == 1900);
}

TEST(DateText, HoursNamesYearsAndNumbers) {
  DATETIME v;
  EXPECT_EQ(Parse(v, "5:15 PM", "%r"), 7);
  EXPECT_EQ(v.GetHour(), 17);
  EXPECT_EQ(Parse(v, "12:15 AM", "%r"), 8);
  EXPECT_EQ(v.GetHour(), 0);
  EXPECT_EQ(Parse(v, "12:15 pm", "%r"), 8);
  EXPECT_EQ(v.GetHour(), 12);
  EXPECT_EQ(Parse(v, "13:15 PM", "%r"), -1);
  EXPECT_EQ(Parse(v, "14 PM", "%H %p"), -1);  // past 11 there is nothing to add
  EXPECT_EQ(Parse(v, "Marching", "%B"), 5);   // a name is a prefix of the text
  EXPECT_EQ(v.GetMonth(), 3);
  EXPECT_EQ(Parse(v, "sEPTEMBER", "%b"), 9);
  EXPECT_EQ(Parse(v, "Sept", "%b"), 3);
  EXPECT_EQ(v.GetMonth(), 9);
  EXPECT_EQ(Parse(v, "Thursday", "%a"), 8);
  EXPECT_EQ(Parse(v, "x", "%[%a%]"), -1);  // a missing name fails even when optional
  EXPECT_EQ(Parse(v, "69", "%y"), 2);
  EXPECT_EQ(v.GetYear(), 1969);
  EXPECT_EQ(Parse(v, "68", "%y"), 2);
  EXPECT_EQ(v.GetYear(), 2068);
  EXPECT_EQ(Parse(v, "2004", "%C%y"), 4);
  EXPECT_EQ(v.GetYear(), 2004);  // the century of the year, as strptime reads it
  EXPECT_EQ(Parse(v, "0420", "%y%C"), 4);
  EXPECT_EQ(v.GetYear(), 2004);
  EXPECT_EQ(Parse(v, "17", "%C"), 2);
  EXPECT_EQ(v.GetYear(), 1700);
  EXPECT_EQ(Parse(v, "123", "%d"), 2);  // two digits at most
  EXPECT_EQ(v.GetDayOfMonth(), 12);
  EXPECT_EQ(Parse(v, "32", "%d"), -1);
  EXPECT_EQ(Parse(v, "45", "%d"), 1);  // 4: one more digit would pass 31
  EXPECT_EQ(v.GetDayOfMonth(), 4);
  EXPECT_EQ(Parse(v, "0230", "%H%M"), 4);
  EXPECT_TRUE(v.GetHour() == 2 && v.GetMin() == 30);
  EXPECT_EQ(Parse(v, "9999", "%Y"), 4);
  EXPECT_EQ(v.GetYear(), 9999);
  EXPECT_EQ(Parse(v, "366", "%j"), 3);
  EXPECT_EQ(Parse(v, "", "%H"), -1);
  EXPECT_EQ(Parse(v, "12", ""), -1);  // nothing consumed
  EXPECT_EQ(Parse(v, "", "%[%H%]"), -1);
  EXPECT_EQ(Parse(v, "12", "%EH"), -1);  // a modifier the conversion doesn't take
  EXPECT_EQ(Parse(v, "12", "%OH"), 2);
  EXPECT_EQ(Parse(v, "12", "%EOH"), -1);
  EXPECT_EQ(Parse(v, "12", "%q"), -1);
  EXPECT_EQ(Parse(v, "12", "%H%"), -1);
  EXPECT_EQ(v.Set(nullptr, "%H"), nullptr);
  EXPECT_EQ(v.Set(Units(u"12"), nullptr), nullptr);
}

// The places where the reader differs from strptime on purpose.
TEST(DateTextDiffers, AmPmOnlyAtTheEndOfTheText) {
  DATETIME v;
  EXPECT_EQ(Parse(v, "5:15 PM and more", "%r"), -1);
  tm t = {};
  EXPECT_NE(strptime("5:15 PM and more", "%I:%M %p", &t), nullptr);
}

TEST(DateTextDiffers, SpaceIsSpaceSeparatorsOnly) {
  DATETIME v;
  EXPECT_EQ(Parse(v, "12\t30", "%H %M"), -1);
  EXPECT_EQ(Parse(v, "12\n", "%H%n"), 2);  // the line feed isn't taken
  EXPECT_EQ(Parse(v, u"12\u3000\u00A0 30", "%H %M"), 7);
  EXPECT_EQ(v.GetMin(), 30);
  tm t = {};
  EXPECT_NE(strptime("12\t30", "%H %M", &t), nullptr);
}

TEST(DateTextDiffers, SpacePaddedNumbersNeedABlankInTheFormat) {
  DATETIME v;
  EXPECT_EQ(Parse(v, " 2", "%e"), -1);
  EXPECT_EQ(Parse(v, " 2", " %e"), 2);
  tm t = {};
  EXPECT_NE(strptime(" 2", "%e", &t), nullptr);
}

TEST(DateTextDiffers, CIsTheDateAndTimeOfX) {
  const tm when = {15, 30, 12, 2, 5, 104, 3, 153, 0, 0, nullptr};
  const std::string c = Strftime("%c", when);  // "Wed Jun  2 12:30:15 2004"
  DATETIME v;
  EXPECT_EQ(Parse(v, c.c_str(), "%c"), -1);
  EXPECT_EQ(Parse(v, "Jun 2, 2004 12:30:15", "%c"), 20);
  EXPECT_TRUE(v.GetDateYYYYMMDD() == 20040602 && v.GetTimeOfDay(false) == 45015);
  tm t = {};
  EXPECT_NE(strptime(c.c_str(), "%c", &t), nullptr);
}

TEST(DateText, StrfTimeAppendsAndPrintsOldYearsWithoutTheirDate) {
  setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);
  tzset();
  VOSTRING out("at ");
  const DATETIME v(2004, 6, 2, 12, 30, 15, false);
  v.StrfTime(out, "%Y-%m-%d %H:%M:%S", false);
  EXPECT_EQ(U8(out), "at 2004-06-02 12:30:15");
  out.Clear();
  v.StrfTime(out, "%H:%M %Z", true);
  EXPECT_EQ(U8(out), "08:30 EDT");
  out.Clear();
  DATETIME old(1815, 6, 18, 11, 0, 0, false);
  old.StrfTime(out, "%c|%%c|%Ec", false);
  EXPECT_EQ(U8(out), "11:00:00|%c|11:00:00");
  out.Clear();
  v.StrfTime(out, "%c", false);
  EXPECT_EQ(U8(out), "Wed Jun  2 12:30:15 2004");
  out.Clear();
  v.StrfTime(out, std::string(2000, 'x').c_str(), false);  // too long: nothing
  v.StrfTime(out, nullptr, false);
  EXPECT_TRUE(out.IsEmpty());
  DATETIME odd;
  odd.SetMonth(40);
  odd.SetDayOfMonth(-5);
  odd.StrfTime(out, "%a %b %c %Z %s", false);  // out-of-range fields stay in bounds
}
