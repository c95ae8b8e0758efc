// The settings store against GLib's GKeyFile on one generated file of 1 MB
// (200 groups of about 240 fields): loading it, reading 10,000 fields drawn
// at random (the same ones for both), and writing 100 fields.
//
// The two keep the file differently. The store keeps its text and scans it
// on every read (one stat, to see whether the file changed, then a search
// for the group and the field); GKeyFile parses the file once into hash
// tables and never looks at the file again. A write of the store is on the
// disk when it returns (the whole text to a new file, synced, renamed over
// the old one); GKeyFile writes nothing until it is saved, so it is shown
// both saving after every field, which is what the store does, and saving
// once after all of them.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "vosystem/inifuncs.h"

namespace {

struct FIELD {
  std::string group, name;
};

// The file, in a folder of its own, and the fields to read.
struct CORPUS {
  std::string dir, path;
  std::vector<FIELD> reads;
  size_t size = 0;

  CORPUS() {
    const char* tmp = getenv("TMPDIR");
    dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/inibenchXXXXXX";
    if (!mkdtemp(&dir[0])) abort();
    path = dir + "/bench.ini";
    std::mt19937 rng(1);
    std::string text = "# generated for the settings benchmark\n";
    std::vector<FIELD> all;
    for (int g = 0; text.size() < (1u << 20); ++g) {
      const std::string group = "Group" + std::to_string(g);
      text += "\n[" + group + "]\n";
      for (int f = 0; f < 240; ++f) {
        const std::string name = "field" + std::to_string(f);
        text += name + "=value " + std::to_string(rng() % 1000000) + " of " + group + "\n";
        all.push_back({group, name});
      }
    }
    std::ofstream(path, std::ios::binary) << text;
    size = text.size();
    for (int i = 0; i < 10000; ++i) reads.push_back(all[rng() % all.size()]);
    // Older than the clock, as a settings file is: a file written this very
    // moment is read again at every access until its time is in the past.
    const std::filesystem::file_time_type old =
        std::filesystem::last_write_time(path) - std::chrono::seconds(10);
    std::filesystem::last_write_time(path, old);
  }
  ~CORPUS() { std::filesystem::remove_all(dir); }
  std::string Copy(const char* name) const {
    const std::string to = dir + "/" + name;
    std::filesystem::copy_file(path, to, std::filesystem::copy_options::overwrite_existing);
    return to;
  }
};

const CORPUS& Corpus() {
  static const CORPUS corpus;
  return corpus;
}

void* OpenStore(const std::string& path) {
  void* h = nullptr;
  if (IniOpen(path.c_str(), &h, INIOPEN_FullPath) < 0) abort();
  return h;
}

void Load_vosystem(benchmark::State& state) {
  const CORPUS& c = Corpus();
  for (auto _ : state) IniClose(OpenStore(c.path));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * c.size));
}

void Load_gkeyfile(benchmark::State& state) {
  const CORPUS& c = Corpus();
  for (auto _ : state) {
    GKeyFile* k = g_key_file_new();
    if (!g_key_file_load_from_file(k, c.path.c_str(), G_KEY_FILE_NONE, nullptr)) abort();
    g_key_file_free(k);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * c.size));
}

void Read10000_vosystem(benchmark::State& state) {
  const CORPUS& c = Corpus();
  void* h = OpenStore(c.path);
  for (auto _ : state) {
    for (const FIELD& f : c.reads) {
      void* value = nullptr;
      if (IniReadStringAlloc(h, f.group.c_str(), f.name.c_str(), &value, INITYPE_String) < 0)
        abort();
      free(value);
    }
  }
  IniClose(h);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * c.reads.size()));
}

void Read10000_gkeyfile(benchmark::State& state) {
  const CORPUS& c = Corpus();
  GKeyFile* k = g_key_file_new();
  if (!g_key_file_load_from_file(k, c.path.c_str(), G_KEY_FILE_NONE, nullptr)) abort();
  for (auto _ : state) {
    for (const FIELD& f : c.reads) {
      gchar* value = g_key_file_get_string(k, f.group.c_str(), f.name.c_str(), nullptr);
      if (!value) abort();
      g_free(value);
    }
  }
  g_key_file_free(k);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * c.reads.size()));
}

// 100 fields, the first 50 new ones in new groups' place and the rest
// rewriting existing fields, each on the disk before the next.
void Write100_vosystem(benchmark::State& state) {
  const CORPUS& c = Corpus();
  const std::string path = c.Copy("write-vo.ini");
  void* h = OpenStore(path);
  int round = 0;
  for (auto _ : state) {
    for (int i = 0; i < 100; ++i) {
      const std::string group = "Group" + std::to_string(i * 2);
      const std::string name = i < 50 ? "new" + std::to_string(i) : "field" + std::to_string(i);
      const std::string value = "written " + std::to_string(round);
      if (IniWriteString(h, group.c_str(), name.c_str(), INITYPE_String, value.c_str()) < 0)
        abort();
    }
    ++round;
  }
  IniClose(h);
  state.SetItemsProcessed(state.iterations() * 100);
}

void Write100(benchmark::State& state, bool saveEach) {
  const CORPUS& c = Corpus();
  const std::string path = c.Copy("write-gk.ini");
  GKeyFile* k = g_key_file_new();
  if (!g_key_file_load_from_file(k, path.c_str(), G_KEY_FILE_KEEP_COMMENTS, nullptr)) abort();
  int round = 0;
  for (auto _ : state) {
    for (int i = 0; i < 100; ++i) {
      const std::string group = "Group" + std::to_string(i * 2);
      const std::string name = i < 50 ? "new" + std::to_string(i) : "field" + std::to_string(i);
      const std::string value = "written " + std::to_string(round);
      g_key_file_set_string(k, group.c_str(), name.c_str(), value.c_str());
      if (saveEach && !g_key_file_save_to_file(k, path.c_str(), nullptr)) abort();
    }
    if (!saveEach && !g_key_file_save_to_file(k, path.c_str(), nullptr)) abort();
    ++round;
  }
  g_key_file_free(k);
  state.SetItemsProcessed(state.iterations() * 100);
}

void Write100_gkeyfile_save_each(benchmark::State& state) {
  Write100(state, true);
}
void Write100_gkeyfile_save_once(benchmark::State& state) {
  Write100(state, false);
}

}  // namespace

BENCHMARK(Load_vosystem)->Unit(benchmark::kMillisecond);
BENCHMARK(Load_gkeyfile)->Unit(benchmark::kMillisecond);
BENCHMARK(Read10000_vosystem)->Unit(benchmark::kMillisecond);
BENCHMARK(Read10000_gkeyfile)->Unit(benchmark::kMillisecond);
BENCHMARK(Write100_vosystem)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(Write100_gkeyfile_save_each)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(Write100_gkeyfile_save_once)->Unit(benchmark::kMillisecond)->Iterations(3);

BENCHMARK_MAIN();
