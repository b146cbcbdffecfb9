#include "daemon/spool/rsp.h"

#include <gtest/gtest.h>

#include "daemon/spool/logfile.h"
#include "support/sample_root.h"

namespace {

using support::SampleRoot;

class Rsp : public ::testing::Test {
 protected:
  Rsp() { dmn_log_open((root_.path() / "log").c_str(), 0, 0); }
  ~Rsp() override {
    while (rsp_check(0) != -1) {
    }
    dmn_log_close();
  }
  // Writes a response into a folder that may be missing.
  int Write(int session) {
    kx_object* rsp = Kfx_Build_Obj("obj-cmdrsp");
    kx::SetText(rsp, "clientid", "jsmith");
    kx::SetEnum(rsp, "cmdtype", kx_cmd_noop);
    kx::SetNumber(rsp, "sessionid", session);
    kx::SetNumber(rsp, "reference", 7);
    return rsp_write(dir_.c_str(), rsp, 0);
  }
  // The log since the last look, without time stamps.
  std::string Log() {
    const std::string all = ReadFile(root_.path() / "log");
    std::string lines;
    for (size_t at = seen_; at < all.size();) {
      const size_t end = all.find('\n', at);
      lines += all.substr(at + 20, end - at - 19);
      at = end + 1;
    }
    seen_ = all.size();
    return lines;
  }
  SampleRoot root_;
  std::string dir_ = root_.path() / "late";
  size_t seen_ = 0;
};

TEST_F(Rsp, EmptyQueueSaysNothing) {
  EXPECT_EQ(rsp_check(3), -1);
  EXPECT_EQ(Log(), "");
}

TEST_F(Rsp, WrittenAtOnceOrLater) {
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
