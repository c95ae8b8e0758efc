// Dates: the calendar on Julian day numbers and the text forms of a moment,
// beside what a C++17 program would otherwise use. C++17 has no civil
// calendar in <chrono>, so the comparison is the well-known integer
// days-from-civil algorithm (and its inverse), which C++20's
// year_month_day implements, and glibc's timegm and gmtime_r; text is
// compared with glibc's strptime and strftime.
//
// Names read "<operation>/<implementation>":
//   julian_from_date  MdtJulianDate / days_from_civil / timegm (a whole tm)
//   date_from_julian  MdtCalendarDate / civil_from_days / gmtime_r
//   parse             DATETIME::Set of UTF-16 text / strptime of UTF-8 text,
//                     both by "%Y-%m-%d %H:%M:%S"
//   format            DATETIME::StrfTime appended to a cleared VOSTRING /
//                     strftime into a buffer, same format
// Each works through 4096 dates of the years 1600 to 2400 and counts them
// as items. At the end the ratios of ours to each other are printed.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "vosystem/datetime.h"
#include "vosystem/vostring.h"

namespace {

struct DATE {
  int year, month, day;
};

struct CORPUS {
  std::vector<DATE> dates;
  std::vector<long> julian;
  std::vector<tm> fields;
  std::vector<std::string> texts;
  std::vector<std::u16string> units;

  CORPUS() {
    std::mt19937_64 rng(1);
    for (int i = 0; i < 4096; ++i) {
      // Midnight of 1 January 1600 UTC plus up to 800 years.
      const time_t t = -11676096000LL + static_cast<time_t>(rng() % 25245561600ULL);
      tm g;
      gmtime_r(&t, &g);
      dates.push_back({g.tm_year + 1900, g.tm_mon + 1, g.tm_mday});
      julian.push_back(static_cast<long>(t / 86400 + 2440587));
      fields.push_back(g);
      char buf[64];
      strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &g);
      texts.push_back(buf);
      units.emplace_back(texts.back().begin(), texts.back().end());
    }
  }
};

const CORPUS& Corpus() {
  static const CORPUS corpus;
  return corpus;
}

const char kFormat[] = "%Y-%m-%d %H:%M:%S";

// Days from 1 January 1970 of a Gregorian date, in integers.
long long DaysFromCivil(long long y, unsigned m, unsigned d) {
  y -= m <= 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<long long>(doe) - 719468;
}

DATE CivilFromDays(long long z) {
  z += 719468;
  const long long era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  const unsigned d = doy - (153 * mp + 2) / 5 + 1;
  const unsigned m = mp < 10 ? mp + 3 : mp - 9;
  return {static_cast<int>(yoe + era * 400 + (m <= 2)), static_cast<int>(m), static_cast<int>(d)};
}

void Items(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(Corpus().dates.size()));
}

void JulianFromDateVosys(benchmark::State& state) {
  for (auto _ : state)
    for (const DATE& d : Corpus().dates)
      benchmark::DoNotOptimize(MdtJulianDate(d.day, d.month, d.year));
  Items(state);
}

void JulianFromDateCivil(benchmark::State& state) {
  for (auto _ : state)
    for (const DATE& d : Corpus().dates)
      benchmark::DoNotOptimize(
          DaysFromCivil(d.year, static_cast<unsigned>(d.month), static_cast<unsigned>(d.day)) +
          2440587);
  Items(state);
}

void JulianFromDateTimegm(benchmark::State& state) {
  for (auto _ : state) {
    for (const tm& f : Corpus().fields) {
      tm copy = f;
      benchmark::DoNotOptimize(timegm(&copy) / 86400 + 2440587);
    }
  }
  Items(state);
}

void DateFromJulianVosys(benchmark::State& state) {
  for (auto _ : state) {
    for (long j : Corpus().julian) {
      int d, m, y;
      MdtCalendarDate(j, &d, &m, &y);
      benchmark::DoNotOptimize(d + m + y);
    }
  }
  Items(state);
}

void DateFromJulianCivil(benchmark::State& state) {
  for (auto _ : state) {
    for (long j : Corpus().julian) {
      const DATE date = CivilFromDays(j - 2440587);
      benchmark::DoNotOptimize(date.day + date.month + date.year);
    }
  }
  Items(state);
}

void DateFromJulianGmtime(benchmark::State& state) {
  for (auto _ : state) {
    for (long j : Corpus().julian) {
      const time_t t = static_cast<time_t>(j - 2440587) * 86400;
      tm g;
      gmtime_r(&t, &g);
      benchmark::DoNotOptimize(g.tm_mday + g.tm_mon + g.tm_year);
    }
  }
  Items(state);
}

void ParseVosys(benchmark::State& state) {
  DATETIME v;
  for (auto _ : state) {
    for (const std::u16string& text : Corpus().units) {
      benchmark::DoNotOptimize(
          v.Set(reinterpret_cast<const unsigned short*>(text.c_str()), kFormat));
    }
  }
  Items(state);
}

void ParseStrptime(benchmark::State& state) {
  tm t = {};
  for (auto _ : state)
    for (const std::string& text : Corpus().texts)
      benchmark::DoNotOptimize(strptime(text.c_str(), kFormat, &t));
  Items(state);
}

void FormatVosys(benchmark::State& state) {
  std::vector<DATETIME> values;
  for (const tm& f : Corpus().fields) values.emplace_back(f, false);
  VOSTRING out;
  for (auto _ : state) {
    for (const DATETIME& v : values) {
      out.Truncate(0);
      v.StrfTime(out, kFormat, false);
      benchmark::DoNotOptimize(out.GetReference());
    }
  }
  Items(state);
}

void FormatStrftime(benchmark::State& state) {
  char buf[64];
  for (auto _ : state) {
    for (const tm& f : Corpus().fields) {
      benchmark::DoNotOptimize(strftime(buf, sizeof buf, kFormat, &f));
      benchmark::ClobberMemory();
    }
  }
  Items(state);
}

// Keeps each run's best throughput for the ratios printed at the end.
class RATIOREPORTER : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      auto it = run.counters.find("items_per_second");
      double& best = m_best[run.benchmark_name()];
      if (it != run.counters.end()) best = std::max(best, static_cast<double>(it->second));
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void PrintRatios() const {
    std::printf("\nratio of throughputs (best run), ours to theirs:\n");
    const char* const pairs[][2] = {{"julian_from_date", "civil"}, {"julian_from_date", "timegm"},
                                    {"date_from_julian", "civil"}, {"date_from_julian", "gmtime"},
                                    {"parse", "strptime"},         {"format", "strftime"}};
    for (const auto& pair : pairs) {
      const double ours = Get(pair[0], "vosys"), theirs = Get(pair[0], pair[1]);
      if (ours > 0 && theirs > 0)
        std::printf("  %-17s vosys/%-9s %6.2fx\n", pair[0], pair[1], ours / theirs);
    }
  }

 private:
  double Get(const char* op, const char* impl) const {
    auto it = m_best.find(std::string(op) + "/" + impl);
    return it == m_best.end() ? 0 : it->second;
  }
  std::map<std::string, double> m_best;
};

}  // namespace

int main(int argc, char** argv) {
  setenv("TZ", "UTC0", 1);
  tzset();
  benchmark::RegisterBenchmark("julian_from_date/vosys", JulianFromDateVosys);
  benchmark::RegisterBenchmark("julian_from_date/civil", JulianFromDateCivil);
  benchmark::RegisterBenchmark("julian_from_date/timegm", JulianFromDateTimegm);
  benchmark::RegisterBenchmark("date_from_julian/vosys", DateFromJulianVosys);
  benchmark::RegisterBenchmark("date_from_julian/civil", DateFromJulianCivil);
  benchmark::RegisterBenchmark("date_from_julian/gmtime", DateFromJulianGmtime);
  benchmark::RegisterBenchmark("parse/vosys", ParseVosys);
  benchmark::RegisterBenchmark("parse/strptime", ParseStrptime);
  benchmark::RegisterBenchmark("format/vosys", FormatVosys);
  benchmark::RegisterBenchmark("format/strftime", FormatStrftime);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Corpus();
  RATIOREPORTER reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  return 0;
}
