// Streams: the memory stream and the file stream against one model of a
// byte string under random operations, then what only one of them has
// (capabilities, access modes, locks, full disks, file-size limits).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>

#include "test_util.h"
#include "vosystem/errors.h"
#include "vosystem/fileraw.h"
#include "vosystem/genericrw.h"

namespace {

class Streams : public testing::Test {
 protected:
  void SetUp() override {
    std::string t = std::string(VOSYS_TEST_SCRATCH) + "/rwXXXXXX";
    ASSERT_NE(mkdtemp(&t[0]), nullptr);
    m_dir = t;
  }
  void TearDown() override { std::filesystem::remove_all(m_dir); }
  FILEPATH At(const char* name) const {
    return FILEPATH((m_dir + "/" + name).c_str(), CHAR_ENCODING_UTF8);
  }
  void Write(const char* name, const std::string& data) const {
    std::ofstream(m_dir + "/" + name, std::ios::binary) << data;
  }
  std::string Read(const char* name) const {
    std::ifstream in(m_dir + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  std::string m_dir;
};

// Counts what reaches the stream behind the front.
class SPY : public GENERICRW {
 public:
  int resizes = 0;
  long long limit = 100;

 protected:
  int v_GetCapabilities() const override { return 0; }
  long long v_GetSize() const override { return 0; }
  long long v_GetSizeLimit() const override { return limit; }
  long v_Read(void*, long length, bool) override { return length; }
  int v_Resize(long long) override { return ++resizes, 0; }
  long long v_Seek(long long p, SEEKFROM) override { return p; }
  long long v_Tell() const override { return 0; }
  long v_Write(const void*, long length) override { return length; }
};

}  // namespace

TEST(StreamFront, ResizeIsCheckedBeforeTheStreamAndCombinedCallsGiveZero) {
  SPY spy;
  EXPECT_EQ(spy.Resize(-1), VOERROR_InvalidArgument);
  EXPECT_EQ(spy.Resize(101), VOERROR_InvalidArgument);
  EXPECT_EQ(spy.resizes, 0);
  EXPECT_EQ(spy.Resize(100), 0);
  EXPECT_EQ(spy.resizes, 1);
  char buf[8];
  EXPECT_EQ(spy.SeekAndRead(5, buf, 8), 0);
  EXPECT_EQ(spy.SeekAndWrite(5, buf, 8), 0);
}

// The same random operations on a memory stream, a file stream and a plain
// string: same results, same bytes. The streams differ in one place only: a
// read at the end gives -1 from memory and 0 from a file.
TEST_F(Streams, MemoryAndFileAgreeWithAByteStringModel) {
  std::mt19937 rng(13);
  for (int round = 0; round < 20; ++round) {
    GENERICRW_MEMORY mem;
    FILE_RAW file;
    ASSERT_EQ(file.Open(At("model"), FILE_ACCESS_Create, FILE_SHARE_All), 0);
    std::string model;
    long long pos = 0;
    for (int step = 0; step < 200; ++step) {
      const int op = rng() % 4;
      const long len = 1 + rng() % 300;
      if (op == 0) {  // write at a position, perhaps past the end
        std::string data(len, '\0');
        for (char& c : data) c = static_cast<char>(rng());
        if (pos > static_cast<long long>(model.size())) model.resize(pos, '\0');
        model.replace(pos, std::min<size_t>(len, model.size() - pos), data);
        EXPECT_EQ(mem.Write(data.data(), len), len);
        EXPECT_EQ(file.Write(data.data(), len), len);
        pos += len;
      } else if (op == 1) {
        pos = rng() % (model.size() + 50);
        EXPECT_EQ(mem.Seek(pos, GENERICRW::SEEKFROM_Start), pos);
        EXPECT_EQ(file.Seek(pos - file.Tell(), GENERICRW::SEEKFROM_Current), pos);
      } else if (op == 2) {
        std::string a(len, 'x'), b(len, 'y');
        const long ra = mem.Read(&a[0], len, true), rb = file.Read(&b[0], len, true);
        const long left = pos < static_cast<long long>(model.size()) ? model.size() - pos : 0;
        const long want = std::min(len, left);
        EXPECT_EQ(ra, want ? want : -1);
        EXPECT_EQ(rb, want);
        const std::string expected = want ? model.substr(pos, want) : std::string();
        EXPECT_EQ(a.substr(0, want), expected);
        EXPECT_EQ(b.substr(0, want), expected);
        pos += want;
      } else {
        const long long size = rng() % (model.size() + 100);
        model.resize(size, '\0');
        EXPECT_EQ(mem.Resize(size), 0);
        EXPECT_EQ(file.Resize(size), 0);
      }
      ASSERT_EQ(mem.GetSize(), static_cast<long long>(model.size()));
      ASSERT_EQ(file.GetSize(), static_cast<long long>(model.size()));
      ASSERT_EQ(mem.Tell(), pos);
      ASSERT_EQ(file.Tell(), pos);
    }
    file.Close();
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(mem.GetBuffer()), model.size()), model);
    EXPECT_EQ(Read("model"), model);
  }
}

TEST(MemoryStream, EdgesOfReadingSeekingAndOwnership) {
  GENERICRW_MEMORY mem;
  char ten[10] = "abcdefghi";
  EXPECT_EQ(mem.Write(ten, 10), 10);
  EXPECT_EQ(mem.Seek(20, GENERICRW::SEEKFROM_Start), 20);
  EXPECT_EQ(mem.Write("z", 1), 1);
  EXPECT_EQ(mem.GetSize(), 21);
  EXPECT_EQ(mem.GetBuffer()[15], 0);  // the gap reads as zero
  EXPECT_EQ(mem.Seek(-22, GENERICRW::SEEKFROM_End), VOERROR_InvalidArgument);
  EXPECT_EQ(mem.Seek(0, static_cast<GENERICRW::SEEKFROM>(3)), VOERROR_InvalidArgument);
  EXPECT_EQ(mem.Seek(18, GENERICRW::SEEKFROM_Start), 18);
  char buf[8];
  EXPECT_EQ(mem.Read(buf, 8, false), VOERROR_InvalidArgument);  // short: recorded, still moved
  EXPECT_EQ(mem.Tell(), 21);
  EXPECT_EQ(mem.Read(buf, 0, true), VOERROR_InvalidArgument);
  EXPECT_EQ(mem.Write(nullptr, 1), VOERROR_InvalidArgument);
  EXPECT_EQ(mem.GetCapabilities(), 15);
  EXPECT_EQ(mem.GetSizeLimit(), 0x7FFFFFFF);
  EXPECT_EQ(mem.Seek(0x7FFFFFFF, GENERICRW::SEEKFROM_Start), 0x7FFFFFFF);
  EXPECT_EQ(mem.Write("a", 1), VOERROR_InvalidArgument);  // beyond the 32-bit size

  unsigned char* block = static_cast<unsigned char*>(malloc(4));
  unsigned char* given = block;
  mem.Attach(block, 4);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(mem.GetSize(), 4);
  EXPECT_EQ(mem.Tell(), 0);
  unsigned char* back = mem.Detach();
  EXPECT_EQ(back, given);
  EXPECT_EQ(mem.GetSize(), 0);
  EXPECT_EQ(mem.GetBuffer(), nullptr);
  free(back);
}

TEST_F(Streams, AccessModesCapabilitiesAndFailures) {
  FILE_RAW f;
  EXPECT_EQ(f.GetCapabilities(), 0);
  EXPECT_EQ(f.Open(FILEPATH(), FILE_ACCESS_Read, FILE_SHARE_All), VOERROR_NotADirectory);
  EXPECT_EQ(f.Open(At("x"), static_cast<FILE_ACCESS>(5), FILE_SHARE_All), VOERROR_InvalidArgument);
  EXPECT_EQ(f.Open(At("missing"), FILE_ACCESS_Read, FILE_SHARE_All), VOERROR_FileNotFound);
  EXPECT_NE(U8(GetErrStrUC(VOERROR_FileNotFound, nullptr)).find(m_dir + "/missing"),
            std::string::npos);
  EXPECT_FALSE(f.IsOpen());
  char buf[4];
  EXPECT_EQ(f.Read(buf, 4, true), VOERROR_StreamNotOpen);
  EXPECT_EQ(f.GetSizeLimit(), VOERROR_Failed);

  ASSERT_EQ(f.Open(At("w"), FILE_ACCESS_Write, FILE_SHARE_All), 0);  // created
  EXPECT_EQ(f.GetCapabilities(), 15);
  EXPECT_NE(fcntl(f.GetDescriptor(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(f.Write("hello", 5), 5);
  FILEPATH p;
  EXPECT_TRUE(f.GetPath(p) && p.IsEqual(At("w")));
  f.Close();
  EXPECT_FALSE(f.GetPath(p) || !p.IsEmpty());
  ASSERT_EQ(f.Open(At("w"), FILE_ACCESS_ReadWrite, FILE_SHARE_All), 0);  // kept
  EXPECT_EQ(f.GetSize(), 5);
  ASSERT_EQ(f.Open(At("w"), FILE_ACCESS_Append, FILE_SHARE_All), 0);
  EXPECT_EQ(f.Write("!", 1), 1);
  EXPECT_EQ(Read("w"), "hello!");
  ASSERT_EQ(f.Open(At("w"), FILE_ACCESS_Read, FILE_SHARE_All), 0);
  EXPECT_EQ(f.GetCapabilities(), 5);
  EXPECT_EQ(f.Seek(6, GENERICRW::SEEKFROM_Start), 6);
  EXPECT_EQ(f.Read(buf, 4, true), 0);  // at the end: 0, not -1
  EXPECT_EQ(f.Read(buf, 4, false), VOERROR_ShortRead);
  EXPECT_EQ(f.Seek(-1, GENERICRW::SEEKFROM_Start), VOERROR_InvalidArgument);
  EXPECT_EQ(f.Open(At("w"), FILE_ACCESS_Create, FILE_SHARE_Exclusive), 0);  // emptied
  EXPECT_EQ(f.GetSize(), 0);
  EXPECT_EQ(f.Open(At("w"), FILE_ACCESS_CreateNew, FILE_SHARE_All), VOERROR_CannotCreate);
  f.Close();
  f.Close();
  EXPECT_EQ(f.GetCapabilities(), 0);
}

// The lock holds against any other open file, read-only ones included, and
// an open that empties the file waits for it before cutting.
TEST_F(Streams, ExclusiveOpensExcludeEachOtherAndTruncateUnderTheLock) {
  Write("locked", "old text");
  FILE_RAW reader;
  ASSERT_EQ(reader.Open(At("locked"), FILE_ACCESS_Read, FILE_SHARE_Exclusive), 0);
  const int probe = open((m_dir + "/locked").c_str(), O_RDONLY);
  EXPECT_NE(flock(probe, LOCK_EX | LOCK_NB), 0);
  std::thread creator([&] {
    FILE_RAW writer;
    EXPECT_EQ(writer.Open(At("locked"), FILE_ACCESS_Create, FILE_SHARE_Exclusive), 0);
    EXPECT_EQ(writer.Write("new", 3), 3);
  });
  usleep(50000);  // gives the creator time to block; the check holds whether it did or not
  char buf[8];
  EXPECT_EQ(reader.Read(buf, 8, false), 8);
  EXPECT_EQ(std::string(buf, 8), "old text");
  reader.Close();
  creator.join();
  EXPECT_EQ(Read("locked"), "new");
  EXPECT_EQ(flock(probe, LOCK_EX | LOCK_NB), 0);
  close(probe);
}

// A full device and a file-size limit: the write reports the system's
// reason, and the limit is what GetSizeLimit says (an unlimited limit is
// the largest size, not a negative one).
TEST_F(Streams, FullDiskAndFileSizeLimitAreReported) {
  FILE_RAW full;
  ASSERT_EQ(
      full.Open(FILEPATH("/dev/full", CHAR_ENCODING_ASCII), FILE_ACCESS_Write, FILE_SHARE_All), 0);
  EXPECT_EQ(full.Write("x", 1), VOERROR_NoSpace);

  struct rlimit rl;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &rl), 0);
  FILE_RAW f;
  ASSERT_EQ(f.Open(At("limited"), FILE_ACCESS_Create, FILE_SHARE_All), 0);
  if (rl.rlim_cur == RLIM_INFINITY) {
    EXPECT_EQ(f.GetSizeLimit(), INT64_MAX);
  }
  const pid_t child = fork();
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit small = {4096, rl.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    std::string big(10000, 'a');
    const bool ok = f.GetSizeLimit() == 4096 &&
                    f.Write(big.data(), 10000) == VOERROR_FileTooLarge && f.GetSize() == 4096 &&
                    f.Resize(5000) == VOERROR_InvalidArgument;
    _exit(ok ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}
