// FILE_RAW against plain read and write: one file written and read
// sequentially in blocks of 1 MB, the same blocks for both. The size is 1 GB
// (VOSYS_BENCH_FILE_MB sets another); the file lies in TMPDIR, mostly in
// the page cache, so the figures are of the calls, not of the disk.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "vosystem/fileraw.h"

namespace {

const long kBlock = 1 << 20;

long long FileSize() {
  const char* mb = getenv("VOSYS_BENCH_FILE_MB");
  return (mb && atoi(mb) > 0 ? atoll(mb) : 1024) * kBlock;
}

struct FILES {
  std::string dir, path;
  std::vector<char> block = std::vector<char>(kBlock, 'x');
  FILES() {
    const char* tmp = getenv("TMPDIR");
    dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/rawbenchXXXXXX";
    if (!mkdtemp(&dir[0])) abort();
    path = dir + "/big";
    for (long i = 0; i < kBlock; ++i) block[i] = static_cast<char>(i * 7);
  }
  ~FILES() {
    unlink(path.c_str());
    rmdir(dir.c_str());
  }
};

FILES& Files() {
  static FILES files;
  return files;
}

void Write_FILE_RAW(benchmark::State& state) {
  FILES& f = Files();
  const FILEPATH path(f.path.c_str(), CHAR_ENCODING_UTF8);
  for (auto _ : state) {
    FILE_RAW out;
    if (out.Open(path, FILE_ACCESS_Create, FILE_SHARE_All) < 0) abort();
    for (long long done = 0; done < FileSize(); done += kBlock)
      if (out.Write(f.block.data(), kBlock) != kBlock) abort();
  }
  state.SetBytesProcessed(state.iterations() * FileSize());
}

void Write_posix(benchmark::State& state) {
  FILES& f = Files();
  for (auto _ : state) {
    const int fd = open(f.path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) abort();
    for (long long done = 0; done < FileSize(); done += kBlock)
      if (write(fd, f.block.data(), kBlock) != kBlock) abort();
    close(fd);
  }
  state.SetBytesProcessed(state.iterations() * FileSize());
}

void Read_FILE_RAW(benchmark::State& state) {
  FILES& f = Files();
  const FILEPATH path(f.path.c_str(), CHAR_ENCODING_UTF8);
  std::vector<char> buffer(kBlock);
  for (auto _ : state) {
    FILE_RAW in;
    if (in.Open(path, FILE_ACCESS_Read, FILE_SHARE_All) < 0) abort();
    for (long long done = 0; done < FileSize(); done += kBlock)
      if (in.Read(buffer.data(), kBlock, false) != kBlock) abort();
  }
  state.SetBytesProcessed(state.iterations() * FileSize());
}

void Read_posix(benchmark::State& state) {
  FILES& f = Files();
  std::vector<char> buffer(kBlock);
  for (auto _ : state) {
    const int fd = open(f.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) abort();
    for (long long done = 0; done < FileSize(); done += kBlock)
      if (read(fd, buffer.data(), kBlock) != kBlock) abort();
    close(fd);
  }
  state.SetBytesProcessed(state.iterations() * FileSize());
}

}  // namespace

// Writes first, so that the reads find the file; each pair alternates.
BENCHMARK(Write_posix)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(Write_FILE_RAW)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(Read_posix)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(Read_FILE_RAW)->Unit(benchmark::kMillisecond)->Iterations(5);

BENCHMARK_MAIN();
