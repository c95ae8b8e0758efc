// The system services: user and environment, the tick count, errno by name,
// and the two thread primitives under real threads.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <thread>
#include <vector>

#include "test_util.h"
#include "vosystem/errors.h"
#include "vosystem/system.h"

TEST(VoSystem, UserEnvironmentAndClocks) {
  unsetenv("USER");
  EXPECT_EQ(U8(VOSYSTEM::GetCurrentUserName()), "UnknownUser");
  setenv("USER", "", 1);
  EXPECT_EQ(U8(VOSYSTEM::GetCurrentUserName()), "UnknownUser");
  setenv("USER", "ren\xC3\xA9", 1);
  EXPECT_EQ(U8(VOSYSTEM::GetCurrentUserName()), "ren\xC3\xA9");
  unsetenv("VOSYS_UNSET_VARIABLE");
  EXPECT_TRUE(VOSYSTEM::GetEnvironmentValue("VOSYS_UNSET_VARIABLE").IsEmpty());
  EXPECT_TRUE(VOSYSTEM::GetEnvironmentValue(nullptr).IsEmpty());

  const long first = VOSYSTEM::GetTickCount();
  EXPECT_GE(first, 10000);
  EXPECT_LT(first, 10100);
  VOSYSTEM::Sleep(0.05);
  const long later = VOSYSTEM::GetTickCount();
  EXPECT_GE(later - first, 45);
  EXPECT_EQ(VOSYSTEM::GetTicksPerSecond(), 1000);
  EXPECT_GT(VOSYSTEM::GetTimerValue(), 1.7e9);
  EXPECT_EQ(VOSYSTEM::GetPlatform(), 8193);
  EXPECT_EQ(VOSYSTEM::GetPhysicalMemoryTotal(), -1);
}

// By the system's own names: the numbers differ between systems.
TEST(VoSystem, SystemErrorsByName) {
  const struct {
    int number, code;
  } table[] = {{EDQUOT, -1009},    {EFBIG, -1010},   {EACCES, -1011}, {EROFS, -1011},
               {ETIMEDOUT, -1013}, {ENFILE, -1014},  {ENOENT, -1102}, {EMFILE, -1103},
               {ENOSPC, -1105},    {EBADF, -1112},   {EIO, -1115},    {EXDEV, -1116},
               {EINVAL, -1213},    {ENOTDIR, -1526}, {EISDIR, -1526}, {EEXIST, 0},
               {EPIPE, -42}};
  for (const auto& row : table) {
    errno = row.number;
    long syserr = 0;
    EXPECT_EQ(VOSYSTEM::TranslateSystemError(-42, syserr), row.code) << row.number;
    EXPECT_EQ(syserr, row.number);
  }
  EXPECT_EQ(GetLastErrCode(), 0);  // translating records nothing
}

TEST(VoSystem, CriticalSectionAndThreadLocalStorage) {
  CRITICALSECTION section(4000);
  EXPECT_EQ(section.SetSpinCount(10), 0);
  section.Enter();
  section.Enter();  // the holder may enter again
  section.Leave();
  section.Leave();

  long counter = 0;
  THREADLOCALSTORAGE tls;
  EXPECT_EQ(tls.GetValue(), nullptr);
  int mine = 0;
  tls.SetValue(&mine);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      if (tls.GetValue() != nullptr) ++wrong;  // each thread starts with its own null
      int own = t;
      tls.SetValue(&own);
      for (int i = 0; i < 20000; ++i) {
        section.Enter();
        ++counter;
        section.Leave();
      }
      if (tls.GetValue() != &own) ++wrong;
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(counter, 80000);
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(tls.GetValue(), &mine);
}
