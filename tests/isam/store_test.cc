// What the store does when nothing goes wrong.
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "isam/harness.h"

namespace {

class StoreTest : public testing::Test {
 protected:
  Started started_;
  Faults faults_;
  TempDir dir_;
  std::string name_ = dir_ / "book";
};

using Store = StoreTest;

TEST_F(Store, RandomChangesMatchTheModel) {
  Model model;
  ASSERT_EQ(0, Create(name_));
  const int file = Open(name_);
  std::mt19937 random(1);
  uint32_t last = 0;
  for (uint32_t n = 0; n < 900; ++n) {
    // The size swings, so that trees grow to three levels and vanish again.
    const size_t most = n / 150 % 2 == 0 ? 120 : 6;
    const Op op = RandomOp(model, random, most, n % 200);
    const int code = Do(file, op, model);
    ASSERT_TRUE(code == 0 || code == kIsamDuplicate) << n << ": " << code;
    if (op.kind == Op::kAdd && code == 0) {
      ASSERT_GT(isam_current(file), last) << "a serial number came again";
      last = isam_current(file);
    }
    if (n % 30 == 0) {
      ASSERT_EQ("", Verify(name_, model)) << "after " << n;
    }
  }
  ASSERT_EQ(0, CLRFIL(file));
  EXPECT_EQ("", Verify(name_, model));
}

}  // namespace
