#include "daemon/spool/kfifo.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "support/sample_root.h"
#include "util/kutio.h"

namespace {

class Kfifo : public ::testing::Test {
 protected:
  ~Kfifo() override { kfifo_close(); }
  const char* dir() const { return dir_.c_str(); }
  support::SampleRoot root_;
  std::string dir_ = root_.spool();
};

TEST_F(Kfifo, CarriesWholeRecords) {
  char record[KFIFO_RECORD_SIZE];
  char back[KFIFO_RECORD_SIZE];
  std::memset(record, 'r', sizeof record);
  EXPECT_EQ(kfifo_open(dir(), 1), -1);
  EXPECT_EQ(kfifo_write(record), -1);
  EXPECT_EQ(kfifo_read(back, 0), -1);

  ASSERT_EQ(kfifo_make(dir()), 0);
  struct stat made;
  ASSERT_EQ(stat((dir_ + "/kfifo").c_str(), &made), 0);
  EXPECT_TRUE(S_ISFIFO(made.st_mode));
  EXPECT_EQ(made.st_mode & 07777, 0664U);
  EXPECT_EQ(kfifo_make(dir()), 0);

  ASSERT_EQ(kfifo_open(dir(), 0), 0);
  EXPECT_EQ(kfifo_read(back, 0), 1);
  EXPECT_EQ(kfifo_write(record), 0);
  EXPECT_EQ(kfifo_write(record), 0);
  EXPECT_EQ(kfifo_read(back, 5), 0);
  EXPECT_EQ(std::memcmp(record, back, sizeof record), 0);
  EXPECT_EQ(kfifo_read(back, 5), 0);
  EXPECT_EQ(kfifo_read(back, 0), 1);

  // Out of step: nothing is read, however often it is tried.
  const int fd = open((dir_ + "/kfifo").c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_EQ(write(fd, record, 40), 40);
  EXPECT_EQ(kfifo_read(back, 5), -1);
  EXPECT_EQ(kfifo_read(back, 5), -1);
  ASSERT_EQ(write(fd, record, 40), 40);
  EXPECT_EQ(kfifo_read(back, 5), 0);
  close(fd);
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
  char record[KFIFO_RECORD_SIZE] = "a record";
  char back[KFIFO_RECORD_SIZE] = "";
  ASSERT_EQ(kfifo_make(dir()), 0);
  ASSERT_EQ(kfifo_open(dir(), 0), 0);
  EXPECT_EQ(kfifo_read(back, 1), 1);
  EXPECT_EQ(kfifo_write(record), 0);
  EXPECT_EQ(kfifo_read(back, 5), 0);
  EXPECT_STREQ(back, record);
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace
