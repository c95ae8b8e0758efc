// Dates as text: every directive written by strftime and read back; the
// reader against glibc's strptime on numeric fields with plain separators;
// the places where the reader differs from strptime on purpose, each named.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <utility>
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

// The fields named by letters agree: y(ear) m(onth) d(ay) j (day of the
// year) w(eekday) H M S, and C, the century with the rest of the year 0.
bool Same(const char* fields, const tm& a, const tm& b) {
  static const char kLetters[] = "ymdjwHMS";
  static int tm::*const kFields[] = {&tm::tm_year, &tm::tm_mon,  &tm::tm_mday, &tm::tm_yday,
                                     &tm::tm_wday, &tm::tm_hour, &tm::tm_min,  &tm::tm_sec};
  for (const char* f = fields; *f; ++f) {
    const bool same = *f == 'C' ? (a.tm_year + 1900) / 100 * 100 == b.tm_year + 1900
                                : a.*kFields[strchr(kLetters, *f) - kLetters] ==
                                      b.*kFields[strchr(kLetters, *f) - kLetters];
    if (!same) return false;
  }
  return true;
}

}  // namespace

TEST(DateText, EveryDirectiveReadsBackWhatStrftimeWrote) {
  // Each format with the fields its text sets (see Same); space-padded
  // numbers stand behind a blank of the format that takes the padding.
  const std::pair<const char*, const char*> cases[] = {
      {"%a", "w"},          {"%A", "w"},
      {"%b", "m"},          {"%B", "m"},
      {"%h", "m"},          {"%C", "C"},
      {"%d", "d"},          {"%Od", "d"},
      {"%D", "ymd"},        {"%H", "H"},
      {"%I %p", "H"},       {"%j", "j"},
      {"%m", "m"},          {"%M", "M"},
      {"%r", "HMS"},        {"%R", "HM"},
      {"%S", "S"},          {"%T", "HMS"},
      {"%U %W", ""},        {"%w", "w"},
      {"%x", "ymd"},        {"%Ex", "ymd"},
      {"%X", "HMS"},        {"%y", "y"},
      {"%Y", "y"},          {"%C%y", "y"},
      {"%y%C", "y"},        {"%%%Y%%", "y"},
      {"%EY %Oy %EC", "y"}, {"%OH:%OM:%OS %EX", "HMS"},
      {" %e", "d"},         {" %k", "H"},
      {" %l %p", "H"},      {"%A, %B %d, %Y %T", "ymdHMS"}};
  std::mt19937 rng(1);
  for (int i = 0; i < 2000; ++i) {
    const tm want = RandomMoment(rng);
    const DATETIME value(want, false);
    for (const auto& [format, fields] : cases) {
      VOSTRING text;
      value.StrfTime(text, format, false);
      ASSERT_EQ(U8(text), Strftime(format, want));
      DATETIME got;
      ASSERT_EQ(Parse(got, U16(text), format), text.GetLength()) << format << " " << U8(text);
      ASSERT_TRUE(Same(fields, want, Fields(got))) << format << " " << U8(text);
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
  // Text, format, units used, and the field read back: H(our), M(inute),
  // m(onth), d(ay) or y(ear). One value goes through all, as fields stay.
  // A name is a prefix of the text, and a missing one fails even when
  // optional; %C%y and %y%C read the century as strptime does; a number
  // takes two digits at most, and only as many as keep it in range; past 11
  // there is no PM to add; a modifier must be one the conversion takes.
  const struct {
    const char *text, *format;
    int used;
    char field = 0;
    int value = 0;
  } cases[] = {{"5:15 PM", "%r", 7, 'H', 17},
               {"12:15 AM", "%r", 8, 'H', 0},
               {"12:15 pm", "%r", 8, 'H', 12},
               {"13:15 PM", "%r", -1},
               {"14 PM", "%H %p", -1},
               {"Marching", "%B", 5, 'm', 3},
               {"sEPTEMBER", "%b", 9},
               {"Sept", "%b", 3, 'm', 9},
               {"Thursday", "%a", 8},
               {"x", "%[%a%]", -1},
               {"69", "%y", 2, 'y', 1969},
               {"68", "%y", 2, 'y', 2068},
               {"2004", "%C%y", 4, 'y', 2004},
               {"0420", "%y%C", 4, 'y', 2004},
               {"17", "%C", 2, 'y', 1700},
               {"123", "%d", 2, 'd', 12},
               {"32", "%d", -1},
               {"45", "%d", 1, 'd', 4},
               {"0230", "%H%M", 4, 'H', 2},
               {"0230", "%H%M", 4, 'M', 30},
               {"9999", "%Y", 4, 'y', 9999},
               {"366", "%j", 3},
               {"", "%H", -1},
               {"12", "", -1},
               {"", "%[%H%]", -1},
               {"12", "%EH", -1},
               {"12", "%OH", 2},
               {"12", "%EOH", -1},
               {"12", "%q", -1},
               {"12", "%H%", -1}};
  DATETIME v;
  for (const auto& c : cases) {
    EXPECT_EQ(Parse(v, c.text, c.format), c.used) << c.text << " " << c.format;
    const int got = c.field == 'H'   ? v.GetHour()
                    : c.field == 'M' ? v.GetMin()
                    : c.field == 'm' ? v.GetMonth()
                    : c.field == 'd' ? v.GetDayOfMonth()
                                     : v.GetYear();
    EXPECT_TRUE(!c.field || got == c.value) << c.text << " " << c.format << " gave " << got;
  }
  EXPECT_EQ(v.Set(nullptr, "%H"), nullptr);
  EXPECT_EQ(v.Set(Units(u"12"), nullptr), nullptr);
}

// The places where the reader differs from strptime on purpose: AM/PM only
// at the end of the text, only space separators are spaces, space-padded
// numbers need a blank in the format, and %c is the date and time of %x.
TEST(DateText, DiffersFromStrptimeOnPurpose) {
  const tm when = {15, 30, 12, 2, 5, 104, 3, 153, 0, 0, nullptr};
  const std::string c = Strftime("%c", when);  // "Wed Jun  2 12:30:15 2004"
  const struct {
    const char *text, *ours, *theirs;
  } refused[] = {{"5:15 PM and more", "%r", "%I:%M %p"},
                 {"12\t30", "%H %M", "%H %M"},
                 {" 2", "%e", "%e"},
                 {c.c_str(), "%c", "%c"}};
  DATETIME v;
  for (const auto& r : refused) {
    EXPECT_EQ(Parse(v, r.text, r.ours), -1) << r.text;
    tm t = {};
    EXPECT_NE(strptime(r.text, r.theirs, &t), nullptr) << r.text;
  }
  EXPECT_EQ(Parse(v, "12\n", "%H%n"), 2);  // the line feed isn't taken
  EXPECT_EQ(Parse(v, u"12\u3000\u00A0 30", "%H %M"), 7);
  EXPECT_EQ(v.GetMin(), 30);
  EXPECT_EQ(Parse(v, " 2", " %e"), 2);
  EXPECT_EQ(Parse(v, "Jun 2, 2004 12:30:15", "%c"), 20);
  EXPECT_TRUE(v.GetDateYYYYMMDD() == 20040602 && v.GetTimeOfDay(false) == 45015);
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
