// MTIMER: the words and digits of set values, and the running clock's
// bookkeeping (never its speed). The unit words are text resources: the
// expected texts are built from the same resources, so the arrangement is
// checked whatever words the resource files hold, or none.
#include "vosystem/mtimer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "test_util.h"
#include "vosystem/textres.h"

namespace {

std::string W(int id) {
  return U8(TEXTRES::GetString(id));
}

std::string Words(double seconds) {
  MTIMER t;
  t.Set(seconds);
  VOSTRING out("old text");
  t.GetString(out);
  return U8(out);
}

std::string Short(double seconds, int decimals) {
  MTIMER t;
  t.Set(seconds);
  VOSTRING out("> ");
  t.ReportShort(out, decimals);
  return U8(out);
}

}  // namespace

TEST(Timer, WordsOfSetValues) {
  EXPECT_EQ(Words(0), "<1 " + W(1700));
  EXPECT_EQ(Words(0.49), "<1 " + W(1700));
  EXPECT_EQ(Words(1), "1 " + W(1700));
  EXPECT_EQ(Words(2), "2 " + W(1701));
  EXPECT_EQ(Words(59.6), "1 " + W(1702));  // rounds to a minute
  EXPECT_EQ(Words(61), "1 " + W(1702) + ", 1 " + W(1700));
  EXPECT_EQ(Words(125), "2 " + W(1703) + ", 5 " + W(1701));
  EXPECT_EQ(Words(3600), "1 " + W(1704) + ", 0 " + W(1703));
  EXPECT_EQ(Words(7261), "2 " + W(1705) + ", 1 " + W(1702) + ", 1 " + W(1700));
  EXPECT_EQ(Words(-5), "<1 " + W(1700));
  EXPECT_EQ(Words(NAN), "<1 " + W(1700));
  EXPECT_EQ(Words(1e300).substr(0, 12), "250000000000");  // clamped, not overflowed
}

TEST(Timer, DigitsOfSetValues) {
  EXPECT_EQ(Short(3725.5, 1), "> 1:02:5.5");
  EXPECT_EQ(Short(3725, 0), "> 1:02:05");
  EXPECT_EQ(Short(65.25, 2), "> 1:5.25");
  EXPECT_EQ(Short(7.5, 3), "> 7.500");
  EXPECT_EQ(Short(0, -3), "> 0");
}

TEST(Timer, RunningBookkeeping) {
  MTIMER t;
  EXPECT_FALSE(t.IsOn());
  EXPECT_EQ(t.GetValue(), 0);
  t.Set(10);
  t.Start();
  EXPECT_TRUE(t.IsOn());
  const double a = t.GetValue();
  t.Start();  // no effect: the start time stays
  const double b = t.GetValue();
  EXPECT_GE(a, 10);
  EXPECT_GE(b, a);
  t.Stop();
  const double stopped = t.GetValue();
  t.Stop();  // adds nothing more
  EXPECT_EQ(t.GetValue(), stopped);
  EXPECT_FALSE(t.IsOn());
  t.Clear();
  EXPECT_EQ(t.GetValue(), 0);
  EXPECT_FALSE(t.IsOn());
  // The C functions pass through; a null timer is ignored.
  MtimerStart(&t);
  EXPECT_TRUE(t.IsOn());
  MtimerStop(&t);
  EXPECT_GE(MtimerValue(&t), 0);
  MtimerClear(&t);
  EXPECT_EQ(MtimerValue(&t), 0);
  MtimerStart(nullptr);
  EXPECT_EQ(MtimerValue(nullptr), 0);
  EXPECT_GE(MtimerTickCount(), 10000);
}

TEST(Timer, LabelledReports) {
  MTIMER t;
  t.Set(61);
  VOSTRING words, out;
  t.GetString(words);
  t.Report(out, static_cast<TEXTID>(0));
  EXPECT_EQ(U8(out), U8(words));
  t.Report(out, static_cast<TEXTID>(1702));
  VOSTRING label = TEXTRES::GetString(9000);
  label << TEXTRES::GetString(1702);
  EXPECT_EQ(U8(out), U8(label) + " " + U8(words));
  t.Report(out, nullptr, nullptr);
  EXPECT_EQ(U8(out), U8(words));
  // A named label: whatever its text, the words end the report.
  t.Report(out, "timing", nullptr);
  const std::string named = U8(out);
  ASSERT_GE(named.size(), U8(words).size() + 1);
  EXPECT_EQ(named.substr(named.size() - U8(words).size() - 1), " " + U8(words));
  unsigned short buf[512];
  MtimerReportStr(&t, buf, "timing", nullptr);
  EXPECT_EQ(U8(VOSTRING(buf)), named);
  MtimerReportStr(&t, nullptr, nullptr, nullptr);
}
