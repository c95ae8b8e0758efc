// The resource-fork reader on forks built here byte by byte: well-formed
// ones, and ones whose counts, offsets and lengths lie.
#include "vosystem/macresource.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "vosystem/errors.h"
#include "vosystem/ucstring.h"
#include "vosystem/viofuncs.h"

namespace {

const uint32_t kTEXT = 0x54455854;  // 'TEXT'
const uint32_t kICON = 0x49434F4E;  // 'ICON'

void Put16(std::string& s, size_t at, uint32_t v) {
  s[at] = static_cast<char>(v >> 8);
  s[at + 1] = static_cast<char>(v);
}
void Put32(std::string& s, size_t at, uint32_t v) {
  Put16(s, at, v >> 16);
  Put16(s, at + 2, v & 0xFFFF);
}
void Add16(std::string& s, uint32_t v) {
  s.append(2, 0);
  Put16(s, s.size() - 2, v);
}
void Add32(std::string& s, uint32_t v) {
  s.append(4, 0);
  Put32(s, s.size() - 4, v);
}

struct RES {
  uint16_t id;
  std::string bytes;
};
struct TYPE {
  uint32_t type;
  std::vector<RES> resources;
};

// A fork as the published layout has it: header, 240 bytes of nothing, the
// data (each a length and bytes), then the map with its type list right
// after the 30-byte head, the reference lists after the type rows.
std::string BuildFork(const std::vector<TYPE>& types) {
  std::string data;
  std::vector<std::vector<uint32_t>> offsets;
  for (const TYPE& t : types) {
    offsets.emplace_back();
    for (const RES& r : t.resources) {
      offsets.back().push_back(static_cast<uint32_t>(data.size()));
      Add32(data, static_cast<uint32_t>(r.bytes.size()));
      data += r.bytes;
    }
  }
  std::string map(24, '\0');
  Add16(map, 28);  // type list right after the head
  Add16(map, 0);   // name list: not read
  Add16(map, static_cast<uint32_t>(types.size()) - 1);
  // The type list: its count, the rows, then the reference lists.
  size_t refAt = 2 + 8 * types.size();
  std::string rows, refs;
  for (size_t i = 0; i < types.size(); ++i) {
    Add32(rows, types[i].type);
    Add16(rows, static_cast<uint32_t>(types[i].resources.size()) - 1);
    Add16(rows, static_cast<uint32_t>(refAt + refs.size()));
    for (size_t j = 0; j < types[i].resources.size(); ++j) {
      Add16(refs, types[i].resources[j].id);
      Add16(refs, 0xFFFF);         // no name
      Add32(refs, offsets[i][j]);  // attributes 0, then the 24-bit offset
      Add32(refs, 0);
    }
  }
  map += rows + refs;
  std::string fork(256, '\0');
  Put32(fork, 0, 256);
  Put32(fork, 4, static_cast<uint32_t>(256 + data.size()));
  Put32(fork, 8, static_cast<uint32_t>(data.size()));
  Put32(fork, 12, static_cast<uint32_t>(map.size()));
  return fork + data + map;
}

class ResourceFork : public testing::Test {
 protected:
  void SetUp() override {
    const char* tmp = getenv("TMPDIR");
    std::string t = std::string(tmp && *tmp ? tmp : VOSYS_TEST_SCRATCH) + "/rsrcXXXXXX";
    ASSERT_NE(mkdtemp(&t[0]), nullptr);
    m_dir = t;
  }
  void TearDown() override {
    if (m_handle > 0) VioClose(m_handle);
    std::filesystem::remove_all(m_dir);
  }
  // Writes the bytes to a file and opens it; the handle.
  int Open(const std::string& bytes) {
    if (m_handle > 0) VioClose(m_handle);
    const std::string path = m_dir + "/fork";
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    unsigned short* p = nullptr;
    MucConvertUTF8ToUnicode(path.c_str(), &p);
    m_handle = VioOpen(p, "r", nullptr);
    free(p);
    return m_handle;
  }
  // The resource by number as text, or "<code>" for a result of no bytes.
  std::string ByNum(uint32_t type, int index) {
    void* data = reinterpret_cast<void*>(1);
    const int n = MacReadResourceByNum(m_handle, type, index, &data);
    return Text(n, data);
  }
  std::string ById(uint32_t type, int id) {
    void* data = reinterpret_cast<void*>(1);
    const int n = MacReadResourceByID(m_handle, type, id, &data);
    return Text(n, data);
  }
  static std::string Text(int n, void* data) {
    std::string out = n > 0 ? std::string(static_cast<char*>(data), n)
                            : "<" + std::to_string(n) + (data ? " block>" : ">");
    free(data);
    return out;
  }
  std::string m_dir;
  int m_handle = -1;
};

std::vector<TYPE> Sample() {
  return {{kTEXT, {{128, "first"}, {0x8001, "high id"}, {7, ""}}}, {kICON, {{1, "icon bits"}}}};
}

}  // namespace

TEST_F(ResourceFork, WellFormedForks) {
  ASSERT_GT(Open(BuildFork({{kICON, {{5, "only"}}}})), 0);
  // Both stored counts 0: one type with one resource.
  EXPECT_EQ(MacNumResourcesOfType(m_handle, kICON), 1);
  EXPECT_EQ(ByNum(kICON, 0), "only");
  EXPECT_EQ(ById(kICON, 5), "only");
  EXPECT_EQ(ByNum(kICON, 1), "<0>");  // index equal to the count
  EXPECT_EQ(ByNum(kICON, -1), "<0>");
  EXPECT_EQ(ById(kICON, 6), "<0>");
  // A missing type: 0 everywhere, no block.
  EXPECT_EQ(MacNumResourcesOfType(m_handle, kTEXT), 0);
  EXPECT_EQ(ByNum(kTEXT, 0), "<0>");
  EXPECT_EQ(ById(kTEXT, 5), "<0>");

  ASSERT_GT(Open(BuildFork(Sample())), 0);
  EXPECT_EQ(MacNumResourcesOfType(m_handle, kTEXT), 3);
  EXPECT_EQ(ByNum(kTEXT, 1), "high id");
  EXPECT_EQ(ById(kTEXT, -32767), "high id");  // ids compare as unsigned 16 bits
  EXPECT_EQ(ById(kTEXT, 0x8001), "high id");
  EXPECT_EQ(ById(kICON, 1), "icon bits");
  // A resource of length 0: result 0 and a block to free.
  EXPECT_EQ(ById(kTEXT, 7), "<0 block>");
  // Without data only the length.
  EXPECT_EQ(MacReadResourceByID(m_handle, kTEXT, 128, nullptr), 5);
  // The type is compared on its low 32 bits only.
  EXPECT_EQ(MacNumResourcesOfType(m_handle, kICON | (1UL << 40)), 1);
  // An empty map stores -1 types.
  std::string empty = BuildFork({{kICON, {{5, "x"}}}});
  Put16(empty, 256 + 4 + 1 + 28, 0xFFFF);
  ASSERT_GT(Open(empty), 0);
  EXPECT_EQ(MacNumResourcesOfType(m_handle, kICON), 0);
  // A type whose count is stored as another negative number has none.
  std::string negative = BuildFork({{kICON, {{5, "x"}}}});
  Put16(negative, 256 + 4 + 1 + 30 + 4, 0x8000);
  ASSERT_GT(Open(negative), 0);
  EXPECT_EQ(MacNumResourcesOfType(m_handle, kICON), 0);
  EXPECT_EQ(ByNum(kICON, 0), "<0>");
}

TEST_F(ResourceFork, LengthsFromTheFileAreNotTrusted) {
  const std::string good = BuildFork(Sample());
  const size_t map = 256 + 4 + 5 + 4 + 7 + 4 + 0 + 4 + 9;
  // A resource length far past the end: a short read, no allocation.
  std::string lie = good;
  Put32(lie, 256, 0x7FFFFFF0);
  ASSERT_GT(Open(lie), 0);
  EXPECT_EQ(ByNum(kTEXT, 0), "<-1122>");
  EXPECT_EQ(GetLastErrCode(), VOERROR_ShortRead);
  EXPECT_EQ(MacReadResourceByNum(m_handle, kTEXT, 0, nullptr), VOERROR_ShortRead);
  EXPECT_EQ(ByNum(kTEXT, 1), "high id");  // the others still read
  // The header's data or map length past the end.
  for (size_t field : {8, 12}) {
    lie = good;
    Put32(lie, field, 0xFFFFFFFF);
    ASSERT_GT(Open(lie), 0);
    EXPECT_EQ(MacNumResourcesOfType(m_handle, kTEXT), VOERROR_ShortRead);
  }
  // The map or the data somewhere else.
  lie = good;
  Put32(lie, 4, 0xFFFFFF00);
  ASSERT_GT(Open(lie), 0);
  EXPECT_EQ(MacNumResourcesOfType(m_handle, kTEXT), VOERROR_ShortRead);
  lie = good;
  Put32(lie, 0, 0x00FFFFFF);
  ASSERT_GT(Open(lie), 0);
  EXPECT_EQ(ByNum(kTEXT, 0), "<-1122>");
  // A type count far beyond the rows: a type found before the end of the
  // file is found; a missing one runs into the end.
  lie = good;
  Put16(lie, map + 28, 0x7FFF);
  ASSERT_GT(Open(lie), 0);
  EXPECT_EQ(MacNumResourcesOfType(m_handle, kICON), 1);
  EXPECT_EQ(MacNumResourcesOfType(m_handle, 0x41424344), VOERROR_ShortRead);
  // A file cut inside the map, and one cut to nothing.
  ASSERT_GT(Open(good.substr(0, good.size() - 20)), 0);
  EXPECT_LT(MacNumResourcesOfType(m_handle, kTEXT), 0);
  ASSERT_GT(Open(""), 0);
  EXPECT_EQ(MacNumResourcesOfType(m_handle, kTEXT), VOERROR_ShortRead);
  // A bad handle.
  EXPECT_EQ(MacNumResourcesOfType(0, kTEXT), VOERROR_HandleNotOpen);
  void* data = reinterpret_cast<void*>(1);
  EXPECT_EQ(MacReadResourceByID(777, kTEXT, 1, &data), VOERROR_HandleNotOpen);
  EXPECT_EQ(data, nullptr);
}

TEST_F(ResourceFork, RandomDamageGivesResultsOrCodes) {
  // Bytes of a good fork changed at random: every call ends in a length that
  // the file can hold, 0, or a code, and leaves no block behind on failure.
  const std::string good = BuildFork(Sample());
  std::mt19937 rng(11);
  for (int round = 0; round < 400; ++round) {
    std::string bad = good;
    for (int k = 1 + rng() % 4; k > 0; --k) bad[rng() % bad.size()] = static_cast<char>(rng());
    if (rng() % 4 == 0) bad.resize(rng() % bad.size());
    ASSERT_GT(Open(bad), 0);
    for (uint32_t type : {kTEXT, kICON}) {
      const int count = MacNumResourcesOfType(m_handle, type);
      ASSERT_TRUE(count >= 0 || count <= -1000) << count;
      for (int i = -1; i < 4; ++i) {
        void* data = nullptr;
        const int n = MacReadResourceByNum(m_handle, type, i, &data);
        ASSERT_TRUE(n <= 0 || static_cast<size_t>(n) <= bad.size());
        ASSERT_TRUE(n >= 0 || data == nullptr);
        free(data);
        data = nullptr;
        const int m = MacReadResourceByID(m_handle, type, i == 3 ? 128 : i, &data);
        ASSERT_TRUE(m >= 0 || data == nullptr);
        free(data);
      }
    }
  }
}
