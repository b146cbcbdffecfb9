#include "daemon/spool/kfifo.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "support/temp_dir.h"
#include "util/kutio.h"

namespace {

class Kfifo : public ::testing::Test {
 protected:
  ~Kfifo() override { kfifo_close(); }
  const char* dir() const { return dir_.path().c_str(); }
  const TempDir dir_;
  char record_[KFIFO_RECORD_SIZE] = "a record";
  char back_[KFIFO_RECORD_SIZE] = "";
};

TEST_F(Kfifo, CarriesWholeRecords) {
  EXPECT_EQ(kfifo_open(dir(), 1), -1);
  EXPECT_EQ(kfifo_write(record_), -1);
  EXPECT_EQ(kfifo_read(back_, 0), -1);

  ASSERT_EQ(kfifo_make(dir()), 0);
  EXPECT_EQ(StatusOf(dir_ / "kfifo").st_mode, S_IFIFO | 0664U);
  EXPECT_EQ(kfifo_make(dir()), 0);

  ASSERT_EQ(kfifo_open(dir(), 0), 0);
  EXPECT_EQ(kfifo_read(back_, 0), 1);
  EXPECT_EQ(kfifo_write(record_), 0);
  EXPECT_EQ(kfifo_write(record_), 0);
  EXPECT_EQ(kfifo_read(back_, 5), 0);
  EXPECT_EQ(std::memcmp(record_, back_, sizeof record_), 0);
  EXPECT_EQ(kfifo_read(back_, 5), 0);
  EXPECT_EQ(kfifo_read(back_, 0), 1);

  // Out of step: nothing is read, however often it is tried.
  const UniqueFd writer(open((dir_ / "kfifo").c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(write(writer.get(), record_, 40), 40);
  EXPECT_EQ(kfifo_read(back_, 5), -1);
  EXPECT_EQ(kfifo_read(back_, 5), -1);
  ASSERT_EQ(write(writer.get(), record_, 40), 40);
  EXPECT_EQ(kfifo_read(back_, 5), 0);
  EXPECT_EQ(kfifo_close(), 0);
}

TEST_F(Kfifo, ServesAProcessWithManyFiles) {
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit raised = {std::min<rlim_t>(2048, limit.rlim_max),
                         limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
  // More than a set of select(2) has room for.
  std::vector<UniqueFd> files;
  do {
    files.emplace_back(dup(STDIN_FILENO));
    ASSERT_TRUE(files.back().valid());
  } while (files.back().get() < FD_SETSIZE);
  ASSERT_EQ(kfifo_make(dir()), 0);
  ASSERT_EQ(kfifo_open(dir(), 0), 0);
  EXPECT_EQ(kfifo_read(back_, 1), 1);
  EXPECT_EQ(kfifo_write(record_), 0);
  EXPECT_EQ(kfifo_read(back_, 5), 0);
  EXPECT_STREQ(back_, record_);
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace
