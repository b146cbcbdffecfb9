#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "util/kutmem.h"

namespace {

class Memory : public testing::TestWithParam<int> {
 protected:
  void SetUp() override { ASSERT_EQ(Kut_mdebug(GetParam()), 0); }
  void TearDown() override { EXPECT_EQ(Kut_mdebug(0), 0); }

  static kut_memstats Stats() {
    kut_memstats stats;
    Kut_mstats(&stats);
    return stats;
  }
};

INSTANTIATE_TEST_SUITE_P(Statistics, Memory, testing::Values(0, 1));

TEST_P(Memory, BlocksAreAlignedDistinctAndWhole) {
  for (const size_t size : {size_t{0}, size_t{1}, size_t{4097}}) {
    char* a = static_cast<char*>(Kut_malloc(size));
    char* b = static_cast<char*>(Kut_calloc(size, 1));
    ASSERT_TRUE(a != nullptr && b != nullptr) << size;
    EXPECT_NE(a, b);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(a) % alignof(max_align_t), 0u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(b) % alignof(max_align_t), 0u);
    memset(a, 'x', size);
    for (size_t i = 0; i < size; i++) ASSERT_EQ(b[i], 0);
    Kut_free(a);
    Kut_free(b);
  }
}

TEST_P(Memory, OverflowingSizesFail) {
  volatile size_t huge = SIZE_MAX;  // volatile: the compiler warns otherwise
  for (const size_t less : {0U, 1U, 2U, 3U}) {
    errno = 0;
    EXPECT_EQ(Kut_malloc(huge - less), nullptr);
    EXPECT_EQ(errno, ENOMEM);
  }
  EXPECT_EQ(Kut_calloc(huge / 2, 3), nullptr);
}

TEST_P(Memory, CallsAreCountedAndTheModeIsFixedWhileBlocksAreOut) {
  const kut_memstats before = Stats();
  Kut_free(Kut_malloc(1));
  Kut_free(nullptr);
  EXPECT_EQ(Kut_strdup(nullptr), nullptr);
  EXPECT_EQ(Stats().allocs, before.allocs + 1);
  EXPECT_EQ(Stats().frees, before.frees + 1);
  char* copy = Kut_strdup("text");
  EXPECT_STREQ(copy, "text");
  errno = 0;
  EXPECT_EQ(Kut_mdebug(1 - GetParam()), -1);
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(Kut_mdebug(GetParam()), 0) << "no change is no switch";
  Kut_free(copy);
  EXPECT_EQ(Kut_mdebug(1 - GetParam()), 0);
}

TEST(MemoryStatistics, TotalAndPeakFollowTheRoundedSizes) {
  ASSERT_EQ(Kut_mdebug(1), 0);
  kut_memstats stats;
  Kut_mstats(&stats);
  EXPECT_EQ(stats.total, 0u);
  void* large = Kut_malloc(1'000'001);
  void* small = Kut_malloc(5);
  uint32_t word;
  memcpy(&word, static_cast<char*>(small) - 4, sizeof word);
  EXPECT_EQ(word, 8u);
  Kut_free(large);
  Kut_mstats(&stats);
  EXPECT_EQ(stats.total, 8u);
  EXPECT_EQ(stats.peak, 1'000'012u);
  Kut_free(small);
  EXPECT_EQ(Kut_mdebug(0), 0);
}

}  // namespace
