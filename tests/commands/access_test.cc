// Who may ask for what: command files of real accounts, answered by the real
// daemon.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "handler_test.h"
#include "support/daemon_process.h"
#include "support/own_accounts.h"

namespace {

using support::Command;
using support::DaemonProcess;
using support::SampleRoot;

constexpr uid_t kRoot = 0;
constexpr uid_t kFax = 64101;
constexpr uid_t kAlice = 64102;
constexpr uid_t kClerk = 64103;  // in the fax system's group
constexpr uid_t kNameless = 64109;
constexpr gid_t kFaxGroup = 64101;
constexpr gid_t kAliceGroup = 64102;
constexpr gid_t kStaff = 64104;

constexpr char kDenied[] = "result=12\nerrmsg=Permission denied\n";

constexpr mode_t kClosed = 02770;  // what the package lays out, of kFaxGroup
constexpr mode_t kOpen = 01777;

struct CommandFile {
  uid_t uid;
  gid_t gid = 0;
  mode_t mode = 0640;
};

class Access : public testing::TestWithParam<const char*> {
 protected:
  Access()
      : accounts_(
            "krtfax:x:64101:64101::/:/bin/sh\n"
            "alice:x:64102:64102::/:/bin/sh\n"
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
  void Start(mode_t spool_mode, const std::string& program = KRTCMD_PATH) {
    ASSERT_EQ(chown(root_.spool().c_str(), kFax, kFaxGroup), 0);
    ASSERT_EQ(chmod(root_.spool().c_str(), spool_mode), 0);
    setenv("KFAXLIMITS", "object-bytes=64K", 1);
    daemon_.emplace(program, root_,
                    std::vector<std::string>{"-N", GetParam(), "-w", "60"});
  }
  // Drops a command whose file is as said; the name of its exchange.
  std::string Drop(const CommandFile& file, const std::string& type,
                   const std::string& client, const std::string& argument) {
    char name[16];
    std::snprintf(name, sizeof name, "0001-%03d", ++reference_);
    const std::string path = root_.spool() / (std::string(name) + ".new");
    WriteFile(path, Command(type, 1, reference_,
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
  const SampleRoot root_;
  std::optional<DaemonProcess> daemon_;
  struct stat response_ = {};
  int reference_ = 0;
};
INSTANTIATE_TEST_SUITE_P(Modes, Access, ::testing::Values("0", "1"));

TEST_P(Access, TheOwnerDecidesForWhom) {
  Start(kClosed);
  const struct {
    CommandFile file;
    const char* client;
    bool denied;
  } kCases[] = {
      {{kRoot}, "bob", false},      {{kFax}, "bob", false},
      {{kClerk}, "bob", false},     {{kClerk}, "clerk", false},
      {{kAlice}, "alice", false},   {{kAlice}, "bob", true},
      {{kAlice}, "root", true},     {{kAlice}, "", true},
      {{kAlice}, "alic", true},     {{kNameless}, "bob", true},
      {{kNameless}, "64109", true},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(IsDenied(c.file, c.client), c.denied)
        << c.file.uid << " for " << c.client;
  }
  // Also who asks too much is told so only as the client it may be.
  const std::string much = ListField("objptr", "obj-text",
                                     std::vector<std::string>(400, "text=x\n"));
  EXPECT_EQ(Ask({kAlice}, "cmd-noop", "bob", much), kDenied);
  EXPECT_TRUE(
      Ask({kAlice}, "cmd-noop", "alice", much).starts_with("result=24"));
  EXPECT_TRUE(daemon_->AwaitLog(
      "Refused cmd-noop for bob (1-6): its file belongs to alice (uid 64102)"));
  EXPECT_TRUE(daemon_->AwaitLog("belongs to nobody known (uid 64109)"));
}

// Wherever a command names a user to act for.
TEST_P(Access, NobodyElseIsNamedInsideTheCommand) {
  WriteFile(root_.path() / "faxq/bob/f.fax", "Bob's");
  WriteFile(root_.path() / "faxq/alice/f.fax", "Alice's");
  Start(kClosed);
  const auto Info = [](const std::string& user) {
    return "filename=f.fax\nclientid=" + user + "\n";
  };
  const auto Route = [](const std::string& from, const std::string& to) {
    return Argument("obj-route",
                    "fromid=" + from + "\ntoid=" + to + "\nfilename=f.fax\n");
  };
  const std::string stored = Argument(
      "obj-reqsto", Field("finfoptr", "obj-faxinfo", Info("bob")) +
                        Field("filobjptr", "obj-file", "pathname=x\n"));
  const struct {
    std::string type, argument;
    bool denied;
  } kCases[] = {
      {"cmd-imgret", Argument("obj-faxinfo", Info("bob")), true},
      {"cmd-imgret", Argument("obj-faxinfo", Info("alice")), false},
      {"cmd-imgdel", Argument("obj-faxinfo", Info("bob")), true},
      {"cmd-imgstore", stored, true},
      {"cmd-copyfax", Route("bob", "alice"), true},
      {"cmd-copyfax", Route("alice", "bob"), false},
      {"cmd-setmon",
       Argument("obj-monitor", "clientid=bob\nmontype=mon-excall\n"), true},
      {"cmd-noop",
       ListField("objptr", "obj-faxinfo", {Info("alice"), Info("bob")}), true},
  };
  for (const auto& c : kCases) {
    const std::string answer = Ask({kAlice}, c.type, "alice", c.argument);
    EXPECT_EQ(answer == kDenied, c.denied) << c.type << c.argument << answer;
    EXPECT_TRUE(c.denied || answer.starts_with(kDone)) << answer;
  }
  EXPECT_TRUE(
      Ask({kClerk}, "cmd-imgret", "alice", Argument("obj-faxinfo", Info("bob")))
          .starts_with(kDone));
}

// A file that another could have written says nothing of its owner.
TEST_P(Access, WhatOthersCouldWriteIsNotTheOwners) {
  const struct {
    mode_t spool;
    CommandFile file;
    const char* client;
    bool denied;
  } kCases[] = {
      {kClosed, {kRoot, kFaxGroup, 0666}, "bob", false},
      {kClosed, {kRoot, kFaxGroup, 0660}, "bob", false},
      {kClosed, {kRoot, kStaff, 0660}, "bob", true},
      {kClosed, {kAlice, kAliceGroup, 0664}, "alice", false},
      {kOpen, {kRoot, kFaxGroup, 0640}, "bob", false},
      {kOpen, {kRoot, kFaxGroup, 0666}, "bob", true},
      {kOpen, {kAlice, kAliceGroup, 0644}, "alice", false},
      {kOpen, {kAlice, kAliceGroup, 0646}, "alice", true},
  };
  for (const auto& c : kCases) {
    if (!daemon_) Start(c.spool);
    ASSERT_EQ(chmod(root_.spool().c_str(), c.spool), 0);
    EXPECT_EQ(IsDenied(c.file, c.client), c.denied)
        << std::oct << c.spool << " " << c.file.mode << " uid " << std::dec
        << c.file.uid << " gid " << c.file.gid;
  }
}

TEST_P(Access, OnlyRootsOwnFileRunsAProgramAsRoot) {
  Start(kClosed);
  const std::string who = Argument("obj-extcmd", "cmdstr=id -u\n");
  const auto Ran = [](const std::string& uid) {
    return kDone + Argument("obj-msg", ListField("lines", "obj-text",
                                                 {"text=" + uid + "\n"}));
  };
  EXPECT_EQ(Ask({kRoot}, "cmd-extcmd", "root", who), Ran("0"));
  EXPECT_EQ(Ask({kRoot}, "cmd-extcmd", "alice", who), Ran("64102"));
  EXPECT_EQ(Ask({kClerk}, "cmd-extcmd", "alice", who), Ran("64102"));
  EXPECT_EQ(Ask({kAlice}, "cmd-extcmd", "alice", who), Ran("64102"));
  EXPECT_EQ(Ask({kAlice}, "cmd-extcmd", "clerk", who), kDenied);
  for (const CommandFile& file :
       {CommandFile{kFax}, {kClerk}, {kAlice}, {kRoot, kFaxGroup, 0660}}) {
    SCOPED_TRACE(file.uid);
    EXPECT_EQ(Ask(file, "cmd-extcmd", "root", who), kDenied);
    EXPECT_EQ(Ask(file, "cmd-imgprint", "root",
                  Argument("obj-reqprt", Field("finfoptr", "obj-faxinfo"))),
              kDenied);
  }
}

// What the daemon makes for a user is the user's, and so no way to a file of
// root's with the user's words in it.
TEST_P(Access, WhatAUserAskedForBelongsToTheUser) {
  const std::string options = root_.path() / "faxq/alice/options";
  ASSERT_EQ(chown(options.c_str(), kAlice, kFaxGroup), 0);
  Start(kClosed);
  EXPECT_EQ(
      Ask({kAlice}, "cmd-setcfg", "alice", Argument("obj-config", "bname=a\n")),
      kDone);
  EXPECT_EQ(response_.st_uid, kAlice);
  EXPECT_EQ(response_.st_mode & 0777, 0666u);
  EXPECT_EQ(Ask({kAlice}, "cmd-setmon", "alice",
                Argument("obj-monitor", "clientid=alice\nmontype=mon-excall\n" +
                                            ListField("names", "obj-resource",
                                                      {"rname=bob\n"}))),
            kDone);
  int files = 0;
  for (const auto& file : std::filesystem::directory_iterator(options)) {
    struct stat st;
    ASSERT_EQ(stat(file.path().c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, kAlice) << file.path();
    ++files;
  }
  EXPECT_EQ(files, 2);
}

TEST_P(Access, AFileWithASecondNameIsNoCommand) {
  const std::string path = root_.path() / "mine";
  WriteFile(path, Command("cmd-noop", 1, 1, "clientid=bob\n"));
  Start(kClosed);
  std::filesystem::create_hard_link(path, root_.spool() / "a.new");
  std::filesystem::rename(root_.spool() / "a.new", root_.spool() / "a.cmd");
  EXPECT_TRUE(daemon_->AwaitLog("Error processing cmd file a."));
  EXPECT_TRUE(daemon_->AwaitLog("Too many links"));
  EXPECT_FALSE(IsDenied({kRoot}, "bob"));
  EXPECT_EQ(std::filesystem::hard_link_count(path), 1u);
}

// A daemon that is not root believes its own user.
TEST_P(Access, TheDaemonsOwnUserIsTrusted) {
  const std::string program = root_.path() / "as-alice";
  WriteFile(program,
            "#!/bin/sh\nexec setpriv --reuid=64102 --regid=64102 "
            "--clear-groups " KRTCMD_PATH " \"$@\"\n");
  ASSERT_EQ(chmod(program.c_str(), 0755), 0);
  for (const char* dir : {"", "krtnet"}) {
    ASSERT_EQ(chown((root_.path() / dir).c_str(), kAlice, kAliceGroup), 0);
  }
  Start(0777, program);
  EXPECT_FALSE(IsDenied({kAlice, kAliceGroup}, "bob"));
  EXPECT_TRUE(IsDenied({kNameless, 0, 0644}, "bob"));
  EXPECT_FALSE(IsDenied({kRoot, 0, 0644}, "bob"));
}

}  // namespace
