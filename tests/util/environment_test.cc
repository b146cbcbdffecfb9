#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <tuple>

#include "util/kutenv.h"
#include "util/kuterr.h"
#include "util/kutsig.h"
#include "util/kutuser.h"

namespace {

struct Environment : testing::Test {
  Environment() {
    for (const char* name : {"KFAXDIR", "KFAXBIN", "FXDEBUG"}) unsetenv(name);
    Kut_env_reset();
  }
};

TEST_F(Environment, RootIsTakenOnceAndKept) {
  EXPECT_STREQ(Kut_get_kfaxdir(), "/usr/krtfax/spool");
  setenv("KFAXDIR", "/later", 1);
  EXPECT_STREQ(Kut_get_kfaxdir(), "/usr/krtfax/spool");
}

TEST_F(Environment, FirstAnswerForProgramsIsTheRoot) {
  setenv("KFAXBIN", "/bin", 1);
  EXPECT_EQ(Kut_get_kfaxbin(), nullptr);
  EXPECT_STREQ(Kut_get_kfaxbin(), "/bin");
  Kut_env_reset();
  setenv("KFAXDIR", "/root", 1);
  Kut_get_kfaxdir();
  EXPECT_STREQ(Kut_get_kfaxbin(), "/root");
  EXPECT_STREQ(Kut_get_kfaxbin(), "/bin");
}

TEST_F(Environment, DebugSwitch) {
  const std::pair<const char*, int> cases[] = {
      {"1", 1},   {"10x", 1}, {"0", 0},    {"00", 0},
      {"on", 1},  {"yes", 1}, {"true", 1}, {"On", 0},
      {"on ", 0}, {"", 0},    {"-1", 0},   {"99999999999999999999", 1},
      {" 1", 0}};
  for (const auto& [value, on] : cases) {
    setenv("FXDEBUG", value, 1);
    Kut_env_reset();
    EXPECT_EQ(Kut_get_kfaxdbg(), on) << "'" << value << "'";
  }
}

TEST(Signals, FirstRowOfANumberWins) {
  const std::tuple<int, const char*, const char*> cases[] = {
      {6, "SIGIOT", "IOT trap"},
      {18, "SIGCHLD", "Child death"},
      {22, "SIGIO", "I/O available"},
      {31, "SIGXFSZ", "File size too large"},
      {0, "<signal 0>", "<signal 0>"},
      {32, "<signal 32>", "<signal 32>"},
      {-2147483647 - 1, "<signal -2147483648>", "<signal -2147483648>"}};
  for (const auto& [number, name, text] : cases) {
    const char* shown = Kut_signame(number);
    EXPECT_STREQ(Kut_sigdesc(number), text) << number;
    EXPECT_STREQ(shown, name) << "one buffer for both";
  }
}

TEST(Errors, TextsHaveTheirOwnBuffersAndKeepErrno) {
  errno = ENOENT;
  const char* current = Kut_sys_errstr();
  EXPECT_STREQ(Kut_strerror(EACCES), "Permission denied");
  EXPECT_STREQ(current, "No such file or directory");
  EXPECT_STREQ(Kut_strerror(12345), "Unknown error 12345");
  EXPECT_EQ(errno, ENOENT);
}

TEST(Users, NamesAndIdsAreEachOthersReverse) {
  EXPECT_EQ(Kut_uname_to_uid("root"), 0);
  EXPECT_STREQ(Kut_uid_to_uname(0), "root");
  EXPECT_EQ(Kut_gname_to_gid("root"), 0);
  EXPECT_STREQ(Kut_gid_to_gname(0), "root");
  const passwd* self = getpwuid(getuid());
  ASSERT_NE(self, nullptr);
  EXPECT_STREQ(Kut_get_usrname(), self->pw_name);
  EXPECT_STREQ(Kut_get_homedir(), self->pw_dir);
  for (const char* name : {"", "no-such-user-here", "0", "root:x", "../root",
                           static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(Kut_gname_to_gid(name), -1);
    errno = 0;
    EXPECT_EQ(Kut_uname_to_uid(name), -1);
    EXPECT_TRUE(errno == ENOENT || name == nullptr) << name;
  }
  EXPECT_EQ(Kut_uid_to_uname(-1), nullptr);
  EXPECT_EQ(Kut_gid_to_gname(-1), nullptr);
}

}  // namespace
