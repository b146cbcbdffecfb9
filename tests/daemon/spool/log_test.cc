#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>

#include "daemon/spool/logfile.h"
#include "support/sample_root.h"

namespace {

using support::SampleRoot;

class Log : public ::testing::Test {
 protected:
  void TearDown() override { dmn_log_close(); }
  std::string path() const { return root_.path() / "daemon.log"; }
  SampleRoot root_;
};

TEST_F(Log, LinesCarryTimeAndInDebugThePid) {
  setenv("TZ", "UTC-5:30", 1);
  tzset();
  ASSERT_GE(dmn_log_open(path().c_str(), 0, 0), 0);
  const time_t before = time(nullptr);
  dmn_log_write("one");
  dmn_log_writed("only in debug");
  dmn_log_separator();
  ASSERT_GE(dmn_log_open((path() + "2").c_str(), 0, 1), 0);
  dmn_log_writed("two\nlines \x1b[2J \xc2\x9b \x9b \xc3\xa9");
  dmn_logf("%s %d", "three", 3);
  setenv("TZ", "UTC", 1);
  tzset();

  // Taken again by other means: the C library's local time at that offset.
  std::string expected[2];
  for (int i = 0; i < 2; ++i) {
    const time_t shifted = before + i + 5 * 3600 + 30 * 60;
    std::tm tm{};
    gmtime_r(&shifted, &tm);
    char text[64];
    snprintf(text, sizeof text, "%02d/%02d/%02d %02d:%02d:%02d: one\n",
             tm.tm_year, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
             tm.tm_sec);
    expected[i] = std::string(text) + "--------------------------\n";
  }
  const std::string first = ReadFile(path());
  EXPECT_TRUE(first == expected[0] || first == expected[1]) << first;

  // Every digit as a 9: what is left is the form.
  const auto digits = [](std::string text) {
    for (char& c : text) {
      if (isdigit(static_cast<unsigned char>(c)) != 0) c = '9';
    }
    return text;
  };
  const std::string form = std::to_string(getpid()) + ":000/00/00 00:00:00: ";
  EXPECT_EQ(digits(ReadFile(path() + "2")),
            digits(form + "two\\x0alines \\x1b[2J \\xc2\\x9b \\x9b \xc3\xa9\n" +
                   form + "three 3\n"));
}

TEST_F(Log, LongMessageIsCutAndNothingIsWrittenWithoutALog) {
  dmn_log_close();
  dmn_log_write("nowhere");
  ASSERT_GE(dmn_log_open(path().c_str(), 0, 0), 0);
  dmn_log_write(std::string(5000, 'x').c_str());
  const std::string line = ReadFile(path());
  EXPECT_LT(line.size(), 1200U);
  EXPECT_EQ(line.back(), '\n');
}

TEST_F(Log, ReopenTakesOnlyAWritableDescriptor) {
  EXPECT_EQ(dmn_log_reopen(999, 0), -1);
  WriteFile(path(), "");
  const int fd = open(path().c_str(), O_RDONLY);
  EXPECT_EQ(dmn_log_reopen(fd, 0), -1);
  close(fd);
  EXPECT_EQ(dmn_log_reopen(-1, 0), 0);
}

TEST_F(Log, AgeKeepsTheNewestCopies) {
  const std::string base = root_.path() / "d";
  for (const char* name : {".log", "-0.log", "-1.log", "-2.log"}) {
    WriteFile(base + name, name);
  }
  const std::string log = base + ".log";
  EXPECT_EQ(dmn_log_age(log.c_str(), 2), 0);
  EXPECT_EQ(ReadFile(base + "-0.log"), ".log");
  EXPECT_EQ(ReadFile(base + "-1.log"), "-0.log");
  EXPECT_EQ(ReadFile(base + "-2.log"), "-1.log");
  EXPECT_FALSE(root_.Has("d.log"));
  EXPECT_EQ(dmn_log_age(log.c_str(), 2), -1);
  EXPECT_FALSE(root_.Has("d-0.log"));  // moved on to -1

  WriteFile(base, "plain");
  EXPECT_EQ(dmn_log_age(base.c_str(), 0), 0);
  EXPECT_EQ(ReadFile(base + "-0"), "plain");
}

}  // namespace
