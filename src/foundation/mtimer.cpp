// MTIMER: seconds as doubles from VOSYSTEM::GetTimerValue, and the two ways
// of telling them.
//
// The words come from text resources on every call: the language may change
// while a program runs, and a timer is read rarely. Numbers are written with
// std::to_chars, so the text is the same whatever the process locale.
//
// Values the words can't hold (negative, not a number, beyond about 285
// million years) are clamped to 0 or to that bound before they are split
// into hours, minutes and seconds, so the split never overflows.
#include "vosystem/mtimer.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "vosystem/system.h"

namespace {

const double kMaxSeconds = 9.0e15;  // whole seconds stay exact in a double

double Clamp(double v) {
  if (!(v > 0)) return 0;  // also NaN
  return v < kMaxSeconds ? v : kMaxSeconds;
}

VOSTRING Word(int id) {
  return TEXTRES::GetString(id);
}

void AppendNumber(VOSTRING& out, int64_t n, int width = 0) {
  char buf[32];
  char* end = std::to_chars(buf, buf + sizeof buf, n).ptr;
  for (long pad = width - (end - buf); pad > 0; --pad) out += "0";
  *end = 0;
  out += buf;
}

// The label, then a blank; placeholders of 9000 take the name's text.
void Label(VOSTRING& out, const VOSTRING& what) {
  out = Word(9000);
  out << what;
  out += " ";
}

}  // namespace

MTIMER::MTIMER() : m_seconds(0), m_start(0), m_running(0) {}

void MTIMER::Start() {
  if (m_running) return;
  m_start = VOSYSTEM::GetTimerValue();
  m_running = 1;
}

void MTIMER::Stop() {
  if (!m_running) return;
  m_seconds += VOSYSTEM::GetTimerValue() - m_start;
  m_running = 0;
}

void MTIMER::Clear() {
  m_seconds = 0;
  m_running = 0;
  m_start = VOSYSTEM::GetTimerValue();
}

void MTIMER::Set(double seconds) {
  m_seconds = seconds;
  if (m_running) m_start = VOSYSTEM::GetTimerValue();
}

double MTIMER::GetValue() const {
  return m_running ? m_seconds + (VOSYSTEM::GetTimerValue() - m_start) : m_seconds;
}

void MTIMER::GetString(VOSTRING& out) const {
  out.Clear();
  const int64_t total = static_cast<int64_t>(std::floor(Clamp(GetValue()) + 0.5));
  const int64_t h = total / 3600, m = total / 60 % 60, s = total % 60;
  if (h) {
    AppendNumber(out, h);
    out += " ";
    out += Word(h < 2 ? 1704 : 1705);
  }
  if (!h && !m) {
    if (s)
      AppendNumber(out, s);
    else
      out += "<1";
    out += " ";
    out += Word(s > 1 ? 1701 : 1700);
    return;
  }
  if (h) out += ", ";
  AppendNumber(out, m);
  out += " ";
  out += Word(m == 1 ? 1702 : 1703);
  if (s) {
    out += ", ";
    AppendNumber(out, s);
    out += " ";
    out += Word(s == 1 ? 1700 : 1701);
  }
}

void MTIMER::Report(VOSTRING& out, TEXTID id) const {
  VOSTRING words;
  GetString(words);
  out.Clear();
  if (id != 0) Label(out, TEXTRES::GetString(id));
  out += words;
}

void MTIMER::Report(VOSTRING& out, const char* group, const char* name) const {
  VOSTRING words;
  GetString(words);
  out.Clear();
  if (group || name) {
    Label(out, VOSTRING(group, name ? name : "Process"));
  }
  out += words;
}

void MTIMER::ReportShort(VOSTRING& out, int decimals) const {
  const double v = Clamp(GetValue());
  const int64_t h = static_cast<int64_t>(v / 3600);
  const int64_t m = static_cast<int64_t>((v - static_cast<double>(h) * 3600) / 60);
  double s = v - static_cast<double>(h) * 3600 - static_cast<double>(m) * 60;
  if (s < 0) s = 0;  // rounding of the subtractions
  int width = 0;
  if (h) {
    AppendNumber(out, h);
    out += ":";
    width = 2;
  }
  if (h || m) {
    AppendNumber(out, m, width);
    out += ":";
    width = 2;
  }
  if (decimals < 0) decimals = 0;
  if (decimals > 17) decimals = 17;
  char buf[64];
  char* end = std::to_chars(buf, buf + sizeof buf - 1, s, std::chars_format::fixed, decimals).ptr;
  for (long pad = width - (end - buf); pad > 0; --pad) out += "0";
  *end = 0;
  out += buf;
}

void MtimerClear(MTIMER* timer) {
  if (timer) timer->Clear();
}

void MtimerStart(MTIMER* timer) {
  if (timer) timer->Start();
}

void MtimerStop(MTIMER* timer) {
  if (timer) timer->Stop();
}

double MtimerValue(MTIMER* timer) {
  return timer ? timer->GetValue() : 0;
}

long MtimerTickCount(void) {
  return VOSYSTEM::GetTickCount();
}

void MtimerReportStr(MTIMER* timer, unsigned short* out, const char* group, const char* name) {
  if (!timer || !out) return;
  VOSTRING text;
  timer->Report(text, group, name);
  memcpy(out, text.GetReference(), (text.GetLength() + 1) * sizeof(unsigned short));
}
