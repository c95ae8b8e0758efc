// MTIMER: a stopwatch that adds up running time in seconds and tells it as
// words ("1 minute, 1 second") or digits ("1:02:5.5"), and the Mtimer
// functions that do the same on a pointer to one.
//
// The unit words are text resources 1700 to 1705 (second, seconds, minute,
// minutes, hour, hours), and 9000 introduces a labelled report. The clock is
// VOSYSTEM::GetTimerValue. One thread at a time per timer.
#ifndef VOSYSTEM_MTIMER_H
#define VOSYSTEM_MTIMER_H

#include "vosystem/export.h"
#include "vosystem/textres.h"
#include "vosystem/vostring.h"

class VOSYS_API MTIMER {
 public:
  MTIMER();  // 0 seconds, stopped

  void Start();  // runs from now; nothing if running
  void Stop();   // adds the time since Start; nothing if stopped
  void Clear();  // 0 seconds, stopped
  // Sets the seconds counted; a running timer goes on from now.
  void Set(double seconds);
  // The seconds counted, with the time since Start if running.
  double GetValue() const;
  bool IsOn() const { return m_running != 0; }

  // The value in whole seconds (rounded) as words: "<1 " and the word for
  // seconds below half a second, else hours, minutes and seconds, each with
  // its unit word, those that are 0 left out, apart from minutes after
  // hours: "2 hours, 0 minutes, 5 seconds". Negative values read as 0.
  void GetString(VOSTRING& out) const;
  // Text 9000 with the text resource id (into its placeholder, if it has
  // one), a blank, then GetString. An id of 0: GetString alone.
  void Report(VOSTRING& out, TEXTID id) const;
  // The same with the text named "group.name" (a null group is "generic",
  // a null name "Process"); with both null, GetString alone.
  void Report(VOSTRING& out, const char* group, const char* name) const;
  // Appends the value as digits: "h:mm:" or "m:" before the seconds when
  // there are hours or minutes, the seconds with decimals digits after the
  // point, and a width of 2 (padded with "0") for the fields after the
  // first: 3725.5 at 1 gives "1:02:5.5".
  void ReportShort(VOSTRING& out, int decimals) const;

 private:
  double m_seconds;  // counted so far
  double m_start;    // GetTimerValue at the last Start
  unsigned char m_running;
};

extern "C" {
// A null timer is ignored (its value is 0).
VOSYS_API void MtimerClear(MTIMER* timer);
VOSYS_API void MtimerStart(MTIMER* timer);
VOSYS_API void MtimerStop(MTIMER* timer);
VOSYS_API double MtimerValue(MTIMER* timer);
VOSYS_API long MtimerTickCount(void);  // VOSYSTEM::GetTickCount()
// The group/name report as UTF-16 with its terminator, into out, which the
// caller makes large enough. A null timer or out does nothing.
VOSYS_API void MtimerReportStr(MTIMER* timer, unsigned short* out, const char* group,
                               const char* name);
}

#endif
