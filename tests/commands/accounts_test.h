// Command files of real accounts, answered by the real daemon, with workers and
// without. The accounts exist for the test alone.
#ifndef COMMANDS_ACCOUNTS_TEST_H_
#define COMMANDS_ACCOUNTS_TEST_H_

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "handler_test.h"
#include "support/daemon_process.h"
#include "support/own_accounts.h"

constexpr uid_t kRoot = 0;
constexpr uid_t kFax = 64101;
constexpr uid_t kAlice = 64102;
constexpr uid_t kClerk = 64103;  // in the fax system's group
constexpr uid_t kNameless = 64109;
constexpr gid_t kFaxGroup = 64101;
constexpr gid_t kAliceGroup = 64102;
constexpr gid_t kStaff = 64104;

inline constexpr char kDenied[] = "result=12\nerrmsg=Permission denied\n";

constexpr mode_t kPrivate = 0755;
constexpr mode_t kClosed = 02770;  // what the package lays out, of kFaxGroup
constexpr mode_t kOpen = 01777;

struct CommandFile {
  uid_t uid;
  gid_t gid = 0;
  mode_t mode = 0640;
};

class AccountsTest : public testing::TestWithParam<const char*> {
 protected:
  AccountsTest()
      : accounts_(
            "krtfax:x:64101:64101::/:/bin/sh\n"
            "alice:x:64102:64102::/:/bin/sh\n"
            "bob:x:64105:64105::/:/bin/sh\n"
            "clerk:x:64103:64104::/:/bin/sh\n",
            "krtfax:x:64101:clerk\n"
            "alice:x:64102:\nstaff:x:64104:\n") {
    for (const char* user : {"alice", "bob", "clerk", "root"}) {
      root_.AddUser(user);
    }
  }
  void SetUp() override {
    if (!accounts_.made()) GTEST_SKIP() << "needs root and mount(2)";
  }
  struct Spool {
    mode_t mode;
    uid_t uid = kFax;
    gid_t gid = kFaxGroup;
  };
  void Set(const Spool& spool) const {
    ASSERT_EQ(chown(root_.spool().c_str(), spool.uid, spool.gid), 0);
    ASSERT_EQ(chmod(root_.spool().c_str(), spool.mode), 0);
  }
  void Start(const Spool& spool, const std::string& program = KRTCMD_PATH) {
    Set(spool);
    daemon_.emplace(program, root_,
                    std::vector<std::string>{"-N", GetParam(), "-w", "60"});
  }
  // Drops a command whose file is as said; the name of its exchange.
  std::string Drop(const CommandFile& file, const std::string& type,
                   const std::string& client, const std::string& argument) {
    char name[32];
    std::snprintf(name, sizeof name, "0001-%03d", ++reference_);
    const std::string path = root_.spool() / (std::string(name) + ".new");
    WriteFile(path, support::Command(type, 1, reference_,
                                     "clientid=" + client + "\n" + argument));
    EXPECT_EQ(chown(path.c_str(), file.uid, file.gid), 0);
    EXPECT_EQ(chmod(path.c_str(), file.mode), 0);
    std::filesystem::rename(path, root_.spool() / (std::string(name) + ".cmd"));
    return name;
  }
  // What the response says from its result on.
  std::string Ask(const CommandFile& file, const std::string& type,
                  const std::string& client, const std::string& argument = "") {
    const std::string name = Drop(file, type, client, argument);
    const std::string path = root_.spool() / (name + ".rsp");
    support::Eventually([&] { return std::filesystem::exists(path); });
    stat(path.c_str(), &response_);
    std::string text = root_.Response(name);
    text.erase(0, text.find("result="));
    return text.substr(0, text.rfind("objend="));
  }
  bool IsDenied(const CommandFile& file, const std::string& client) {
    const std::string answer = Ask(file, "cmd-noop", client);
    EXPECT_TRUE(answer == kDone || answer == kDenied) << answer;
    return answer == kDenied;
  }

  const OwnAccounts accounts_;
  const support::SampleRoot root_;
  std::optional<support::DaemonProcess> daemon_;
  struct stat response_ = {};
  int reference_ = 0;
};

#endif  // COMMANDS_ACCOUNTS_TEST_H_
