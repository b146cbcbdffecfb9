// Command files answered by the real daemon, with workers and inline: each mode
// answers alike.
#ifndef COMMANDS_SERVED_H_
#define COMMANDS_SERVED_H_

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "support/accounts.h"
#include "support/objects.h"
#include "support/processes.h"

constexpr uid_t kRoot = 0;
constexpr uid_t kNameless = 64109;

inline constexpr char kDone[] = "result=0\n";
inline constexpr char kDenied[] = "result=12\nerrmsg=Permission denied\n";

constexpr mode_t kPrivate = 0755;
constexpr mode_t kClosed = 02770;  // what the package lays out, of its group
constexpr mode_t kOpen = 01777;

struct CommandFile {
  uid_t uid;
  gid_t gid = 0;
  mode_t mode = 0640;
};

class Served : public testing::TestWithParam<const char*> {
 protected:
  Served() {
    for (const char* user : {"jsmith", "bob"}) root_.AddUser(user);
  }
  // With these settings of the daemon's limits.
  void Start(const std::string& limits = "",
             const std::string& program = KRTCMD_PATH) {
    setenv("KFAXLIMITS", limits.c_str(), 1);
    daemon_.emplace(program, root_,
                    std::vector<std::string>{"-N", GetParam(), "-w", "60"});
    unsetenv("KFAXLIMITS");
  }
  std::string Path(const std::string& name) const { return root_ / name; }
  // What the response holds from its result on.
  std::string Ask(const std::string& type, const std::string& argument,
                  const std::string& client = "jsmith") {
    return support::Outcome(
        root_.Ask(type, "clientid=" + client + "\n" + argument));
  }
  // What "cmd-extcmd" takes, and its answer with these lines.
  static std::string External(const std::string& line,
                              const std::string& more = "") {
    return Argument("obj-extcmd", "cmdstr=" + line + "\n" + more);
  }
  static std::string Text(const std::vector<std::string>& lines) {
    return Argument("obj-msg", TextsField("lines", "obj-text", "text", lines));
  }
  // An argument that takes more than 64K of memory.
  static std::string Much() {
    return ListField("objptr", "obj-text",
                     std::vector<std::string>(400, "text=x\n"));
  }

  support::SampleRoot root_;
  std::optional<support::DaemonProcess> daemon_;
};

// Command files of accounts that exist for the test alone.
class AccountsTest : public Served {
 protected:
  AccountsTest() {
    for (const char* user : {"alice", "clerk", "root"}) root_.AddUser(user);
  }
  void SetUp() override { SKIP_WITHOUT_ACCOUNTS(accounts_); }
  void Own(const std::string& name, uid_t uid, mode_t mode,
           gid_t gid = kKrtfax) const {
    ASSERT_EQ(chown(Path(name).c_str(), uid, gid), 0) << name;
    ASSERT_EQ(chmod(Path(name).c_str(), mode), 0) << name;
  }
  struct Spool {
    mode_t mode;
    uid_t uid = kKrtfax;
    gid_t gid = kKrtfax;
  };
  void Set(const Spool& spool) const {
    Own("krtnet/filspool", spool.uid, spool.mode, spool.gid);
  }
  void StartIn(const Spool& spool, const std::string& program = KRTCMD_PATH) {
    Set(spool);
    Start("object-bytes=64K", program);
  }
  // Drops a command whose file is as said; the name of its exchange.
  std::string Drop(const CommandFile& file, const std::string& type,
                   const std::string& client, const std::string& argument) {
    const std::string name = support::ExchangeName(1, ++dropped_);
    const std::string path = "krtnet/filspool/" + name;
    root_.Put(path + ".new",
              support::Command(type, 1, dropped_,
                               "clientid=" + client + "\n" + argument));
    Own(path + ".new", file.uid, file.mode, file.gid);
    std::filesystem::rename(Path(path + ".new"), Path(path + ".cmd"));
    return name;
  }
  std::string Ask(const CommandFile& file, const std::string& type,
                  const std::string& client, const std::string& argument = "") {
    const std::string name = Drop(file, type, client, argument);
    const std::string path = root_.spool() / (name + ".rsp");
    support::Eventually([&] { return stat(path.c_str(), &response_) == 0; });
    return support::Outcome(root_.Response(name));
  }
  bool IsDenied(const CommandFile& file, const std::string& client) {
    const std::string answer = Ask(file, "cmd-noop", client);
    EXPECT_TRUE(answer == kDone || answer == kDenied) << answer;
    return answer == kDenied;
  }

  const OwnAccounts accounts_;
  struct stat response_ = {};
  int dropped_ = 0;
};

#endif  // COMMANDS_SERVED_H_
