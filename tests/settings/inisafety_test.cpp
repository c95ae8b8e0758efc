// Settings files under stress: a writer killed at random moments while it
// saves, a disk that fills, and two processes changing one file at once.
// The file is always a whole text, a failed save leaves the old one, and no
// change of either process is lost.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <string>

#include "settings/ini_test_util.h"
#include "vosystem/errors.h"

namespace {

int WaitFor(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

TEST_F(IniFolder, AWriterKilledWhileSavingLeavesTheOldOrTheNewText) {
  // Two values of one length: each save rewrites the same span, so the
  // file's whole texts are exactly these two.
  const std::string a(300000, 'a'), b(300000, 'b');
  Write("k.ini", "[g]\nf=" + a + "\n");
  const std::string textA = Read("k.ini"), textB = "[g]\nf=" + b + "\n";
  std::mt19937 rng(5);
  int seenA = 0, seenB = 0;
  for (int round = 0; round < 40; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      void* h = Open("k.ini");
      for (int i = 0;; ++i) Put(h, "g", "f", (i % 2 ? a : b).c_str());
    }
    usleep(rng() % 30000);
    kill(child, SIGKILL);
    EXPECT_EQ(WaitFor(child), 128 + SIGKILL);
    const std::string now = Read("k.ini");
    ASSERT_TRUE(now == textA || now == textB)
        << "round " << round << ": " << now.size() << " bytes";
    (now == textA ? seenA : seenB)++;
  }
  // Whatever the moments, a store opened now reads a whole value.
  void* h = Open("k.ini");
  const std::string v = Get(h, "g", "f");
  EXPECT_TRUE(v == a || v == b);
  IniClose(h);
  RecordProperty("seenOld", seenA);
  RecordProperty("seenNew", seenB);
}

// The file-size limit stands in for a full disk: the write of the new text
// fails with the system's reason, and the old text stays.
TEST_F(IniFolder, AFullDiskLeavesTheOldFile) {
  Write("full.ini", "[g]\nf=old\n");
  const pid_t child = fork();
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    void* h = Open("full.ini");
    struct rlimit small = {64, 64};
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string big(1000, 'x');
    const int rc = Put(h, "g", "f", big.c_str());
    _exit(rc == VOERROR_FileTooLarge && Get(h, "g", "f") == big ? 0 : 1);
  }
  EXPECT_EQ(WaitFor(child), 0);
  EXPECT_EQ(Read("full.ini"), "[g]\nf=old\n");
  for (const auto& entry : std::filesystem::directory_iterator(m_dir))
    EXPECT_EQ(entry.path().filename().string(), "full.ini");  // no new file left behind
}

// Two writers of distinct fields and a reader of a field nobody changes:
// the reader always finds it (no torn text), and every field of both
// writers is there at the end.
TEST_F(IniFolder, TwoProcessesChangingOneFileLoseNothing) {
  Write("two.ini", "[g]\ncheck=ok\n");
  const int kFields = 40;
  pid_t writers[2];
  for (int w = 0; w < 2; ++w) {
    writers[w] = fork();
    if (writers[w] == 0) {
      void* h = Open("two.ini");
      bool ok = h != nullptr;
      for (int i = 0; i < kFields && ok; ++i) {
        const int v = w * 1000 + i;
        ok = IniWriteNumber(h, "g", (std::to_string(w) + "_" + std::to_string(i)).c_str(),
                            INITYPE_Int32, &v) == 0;
      }
      _exit(ok ? 0 : 1);
    }
  }
  const pid_t reader = fork();
  if (reader == 0) {
    void* h = Open("two.ini");
    bool ok = true;
    for (int i = 0; i < 400 && ok; ++i) ok = Get(h, "g", "check") == "ok";
    _exit(ok ? 0 : 1);
  }
  EXPECT_EQ(WaitFor(writers[0]), 0);
  EXPECT_EQ(WaitFor(writers[1]), 0);
  EXPECT_EQ(WaitFor(reader), 0);
  void* h = Open("two.ini");
  for (int w = 0; w < 2; ++w)
    for (int i = 0; i < kFields; ++i) {
      int v = -1;
      EXPECT_EQ(_iniRead(h, "g", (std::to_string(w) + "_" + std::to_string(i)).c_str(),
                         INITYPE_Int32, &v, 1),
                1);
      EXPECT_EQ(v, w * 1000 + i);
    }
  IniClose(h);
}
