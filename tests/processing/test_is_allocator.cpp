// The large-block allocator (threshold, whole pages, the heap when asked) and the cached image's
// statistics, printed exactly.
#include <gtest/gtest.h>
#include <vora/allocator.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

// The mapping of /proc/self/maps that starts at p, or "".
std::string mappingAt(const void* p) {
  std::ifstream maps("/proc/self/maps");
  char start[32];
  snprintf(start, sizeof start, "%lx-", (unsigned long)p);
  for (std::string line; std::getline(maps, line);)
    if (line.rfind(start, 0) == 0) return line;
  return "";
}

}  // namespace

TEST(IsAllocator, ThresholdPagesAndTheHeap) {
  ASSERT_EQ(TisAllocator::init(nullptr), 0);
  const uint32_t page = TisAllocator::fsPageSize;
  ASSERT_GE(page, 4096u);
  TisAllocator a;
  struct Case {
    uint32_t size, rounded;
    bool mapped;
  } cases[] = {{31743, 31743, false}, {31744, (31744 + page - 1) / page * page, true}, {100u << 20, 100u << 20, true}};
  for (const Case& c : cases) {
    TisBlock b;
    b.size = c.size;
    a.allocate(b);
    ASSERT_NE(b.address, nullptr) << c.size;
    EXPECT_EQ(b.size, c.rounded) << c.size;
    memset(b.address, 0xAB, b.size);
    std::string m = mappingAt(b.address);
    EXPECT_EQ(!m.empty(), c.mapped) << c.size << ": " << m;
    if (c.mapped) {
      EXPECT_EQ(reinterpret_cast<uintptr_t>(b.address) % page, 0u);
      unsigned long lo = 0, hi = 0;
      sscanf(m.c_str(), "%lx-%lx", &lo, &hi);
      EXPECT_GE(hi - lo, b.size);  // whole pages, read-write
      EXPECT_NE(m.find(" rw"), std::string::npos) << m;
    }
    a.deallocate(b);
    if (c.mapped) {
      EXPECT_EQ(mappingAt(b.address), "");
    }
  }
}

// VORA_USE_MALLOC is read when the library loads: this test runs itself again with it set.
TEST(IsAllocator, HeapOnlyWhenTheVariableIsSetAtLoad) {
  if (getenv("VORA_TEST_ALLOCATOR_CHILD")) {
    ASSERT_TRUE(TisAllocator::fsUseMalloc);
    TisAllocator::init(nullptr);
    EXPECT_EQ(TisAllocator::fsPageSize, 0u);  // init leaves the page size alone
    TisAllocator a;
    TisBlock b;
    b.size = 100u << 20;
    a.allocate(b);
    EXPECT_EQ(mappingAt(b.address), "");  // from the heap, not a mapping of its own
    EXPECT_EQ(b.size, 100u << 20);
    a.deallocate(b);
    return;
  }
  EXPECT_FALSE(TisAllocator::fsUseMalloc);
  const std::string self = "VORA_USE_MALLOC=1 VORA_TEST_ALLOCATOR_CHILD=1 /proc/" + std::to_string(getpid()) +
                           "/exe --gtest_filter=IsAllocator.HeapOnlyWhenTheVariableIsSetAtLoad > /dev/null";
  EXPECT_EQ(system(self.c_str()), 0);
}
