// FILEPATH against std::filesystem::path: parsing 100,000 path texts,
// composing each with a relative text, and listing a folder of 10,000 files.
// Paths are ASCII (a folder tree of a project) or hold accented names; the
// listing folder is made in the system's temporary folder and removed.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "vosystem/filepath.h"

namespace {

const std::vector<std::string>& Texts(bool accented) {
  static std::vector<std::string> sets[2];
  std::vector<std::string>& texts = sets[accented];
  if (texts.empty()) {
    std::mt19937 rng(7);
    const char* words[] = {"projects", "survey", "tiles", "2024", "north", "raw", "dem", "ortho"};
    const char* extra[] = {"r\xC3\xA9seau", "\xC3\xA9t\xC3\xA9",
                           "Stra\xC3\x9F"
                           "e",
                           "\xD0\xBA\xD0\xB0"};
    for (int i = 0; i < 100000; ++i) {
      std::string t;
      const int depth = 3 + static_cast<int>(rng() % 4);
      for (int d = 0; d < depth; ++d) {
        t += "/";
        t += accented && rng() % 3 == 0 ? extra[rng() % 4] : words[rng() % 8];
      }
      t += "/img_" + std::to_string(i) + ".tif";
      texts.push_back(t);
    }
  }
  return texts;
}

int64_t Bytes(const std::vector<std::string>& texts) {
  int64_t n = 0;
  for (const std::string& t : texts) n += static_cast<int64_t>(t.size());
  return n;
}

void ParseOurs(benchmark::State& state) {
  const auto& texts = Texts(state.range(0));
  for (auto _ : state)
    for (const std::string& t : texts) {
      FILEPATH p(t.c_str(), CHAR_ENCODING_UTF8);
      benchmark::DoNotOptimize(p.GetText().GetLength());
    }
  state.SetBytesProcessed(state.iterations() * Bytes(texts));
}

void ParseStd(benchmark::State& state) {
  const auto& texts = Texts(state.range(0));
  for (auto _ : state)
    for (const std::string& t : texts) {
      std::filesystem::path p(t);
      benchmark::DoNotOptimize(p.native().size());
    }
  state.SetBytesProcessed(state.iterations() * Bytes(texts));
}

// The composition a program makes when it resolves a file next to another:
// the folder, one level up, a new name.
void ComposeOurs(benchmark::State& state) {
  const auto& texts = Texts(state.range(0));
  for (auto _ : state)
    for (const std::string& t : texts) {
      FILEPATH p(t.c_str(), CHAR_ENCODING_UTF8);
      p.Append("../mosaic/out.tif", CHAR_ENCODING_ASCII);
      benchmark::DoNotOptimize(p.GetText().GetLength());
    }
  state.SetBytesProcessed(state.iterations() * Bytes(texts));
}

void ComposeStd(benchmark::State& state) {
  const auto& texts = Texts(state.range(0));
  for (auto _ : state)
    for (const std::string& t : texts) {
      std::filesystem::path p =
          (std::filesystem::path(t).parent_path() / "../mosaic/out.tif").lexically_normal();
      benchmark::DoNotOptimize(p.native().size());
    }
  state.SetBytesProcessed(state.iterations() * Bytes(texts));
}

// Ten thousand files, made once.
const std::string& ListingFolder() {
  static std::string folder;
  if (folder.empty()) {
    const char* tmp = getenv("TMPDIR");
    std::string t = std::string(tmp && *tmp ? tmp : "/tmp") + "/vosys_benchXXXXXX";
    if (!mkdtemp(&t[0])) std::abort();
    folder = t;
    for (int i = 0; i < 10000; ++i) std::ofstream(folder + "/tile_" + std::to_string(i) + ".tif");
    std::atexit([] { std::filesystem::remove_all(folder); });
  }
  return folder;
}

void ListOurs(benchmark::State& state) {
  const FILEPATH folder(ListingFolder().c_str(), CHAR_ENCODING_UTF8);
  const CHILDTYPE type = static_cast<CHILDTYPE>(state.range(0));
  for (auto _ : state) {
    VOLIST<VOSTRING> list;
    benchmark::DoNotOptimize(folder.GetChildren(list, VOSTRING("*.tif"), type));
  }
  state.SetItemsProcessed(state.iterations() * 10000);
}

void ListStd(benchmark::State& state) {
  const std::filesystem::path folder(ListingFolder());
  const bool files = state.range(0) == CHILDTYPE_File;
  for (auto _ : state) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (files && (!entry.is_regular_file() || entry.path().extension() != ".tif")) continue;
      names.push_back(entry.path().filename().string());
    }
    benchmark::DoNotOptimize(names.size());
  }
  state.SetItemsProcessed(state.iterations() * 10000);
}

}  // namespace

BENCHMARK(ParseOurs)->Name("parse/vosys")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(ParseStd)->Name("parse/std")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(ComposeOurs)->Name("compose/vosys")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(ComposeStd)->Name("compose/std")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(ListOurs)
    ->Name("list/vosys")
    ->Arg(CHILDTYPE_Any)
    ->Arg(CHILDTYPE_File)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ListStd)
    ->Name("list/std")
    ->Arg(CHILDTYPE_Any)
    ->Arg(CHILDTYPE_File)
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
