#include "daemon/spool/rsp.h"

#include <gtest/gtest.h>

#include "daemon/spool/logfile.h"
#include "support/objects.h"
#include "support/sample_root.h"

namespace {

class Rsp : public ::testing::Test {
 protected:
  ~Rsp() override {
    while (rsp_check(0) != -1) {
    }
    dmn_log_close();
  }
  // Writes a response into a folder that may be missing.
  int Write(int session) {
    kx::Object rsp =
        Parsed("obj-cmdrsp",
               "clientid=jsmith\ncmdtype=cmd-noop\nreference=7\nsessionid=" +
                   std::to_string(session) + "\n");
    return rsp_write(dir_.c_str(), rsp.release(), 0);
  }
  // The log since the last look, without time stamps.
  std::string Log() {
    std::string lines;
    for (std::string line; std::getline(log_, line);) {
      lines += line.substr(20) + "\n";
    }
    log_.clear();
    return lines;
  }
  support::SampleRoot root_;
  const int opened_ = dmn_log_open((root_ / "log").c_str(), 0, 0);
  std::string dir_ = root_.path() / "late";
  std::ifstream log_{root_ / "log"};
};

TEST_F(Rsp, WrittenAtOnceOrLater) {
  EXPECT_EQ(rsp_check(3), -1) << "nothing is queued";
  EXPECT_EQ(Write(42), 1);
  EXPECT_EQ(Log(),
            "Queueing cmd-noop response for jsmith (42-7): No such file or "
            "directory\n");
  EXPECT_EQ(rsp_check(3), 0);
  EXPECT_EQ(Log(),
            "Error writing cmd-noop response attempt 2 for jsmith (42-7): No "
            "such file or directory\n");
  std::filesystem::create_directory(dir_);
  EXPECT_EQ(rsp_check(3), -1);
  EXPECT_TRUE(std::filesystem::exists(dir_ + "/0042-007.rsp"));
  EXPECT_EQ(Write(43), 0);
  EXPECT_EQ(rsp_check(3), -1);
  EXPECT_EQ(Log(), "");
}

TEST_F(Rsp, DroppedAfterTheLastTryWhichEndsThePass) {
  EXPECT_EQ(Write(42), 1);
  EXPECT_EQ(rsp_check(3), 0);
  EXPECT_EQ(Write(43), 1);
  EXPECT_EQ(rsp_check(3), 0);
  EXPECT_EQ(rsp_check(3), 0);
  const std::string log = Log();
  for (const char* text :
       {"attempt 2 for jsmith (42-7)", "attempt 3 for jsmith (42-7)",
        "attempt 4 for jsmith (42-7)", "attempt 3 for jsmith (43-7)"}) {
    EXPECT_NE(log.find(text), std::string::npos) << text;
  }
  EXPECT_EQ(rsp_check(3), 42);
  EXPECT_EQ(Log(),
            "Cannot write cmd-noop response for jsmith (42-7): Max tries "
            "exceeded\n");
  EXPECT_EQ(rsp_check(0), 43);
  EXPECT_EQ(rsp_check(3), -1);
}

}  // namespace
