// Who may ask for what: command files of real accounts, answered by the real
// daemon.
#include "served.h"

namespace {

using Access = AccountsTest;
INSTANTIATE_TEST_SUITE_P(Modes, Access, ::testing::Values("0", "1"));

TEST_P(Access, TheOwnerDecidesForWhom) {
  StartIn({kClosed});
  const struct {
    CommandFile file;
    const char* client;
    bool denied;
  } kCases[] = {
      {{kRoot}, "bob", false},      {{kKrtfax}, "bob", false},
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
  EXPECT_EQ(Ask({kAlice}, "cmd-noop", "bob", Much()), kDenied);
  EXPECT_TRUE(
      Ask({kAlice}, "cmd-noop", "alice", Much()).starts_with("result=24"));
  EXPECT_TRUE(daemon_->AwaitLog(
      "Refused cmd-noop for bob (1-6): its file belongs to alice (uid 64102)"));
  EXPECT_TRUE(daemon_->AwaitLog("belongs to nobody known (uid 64109)"));
}

// Wherever a command names a user to act for.
TEST_P(Access, NobodyElseIsNamedInsideTheCommand) {
  for (const char* fax : {"bob/f.fax", "alice/f.fax", "alice/g.fax"}) {
    root_.Put(std::string("faxq/") + fax, "");
  }
  StartIn({kClosed});
  const struct {
    std::string type, argument;
    bool denied;
  } kCases[] = {
      {"cmd-imgret", FaxInfo("f.fax", "bob"), true},
      {"cmd-imgret", FaxInfo("f.fax", "alice"), false},
      {"cmd-imgdel", FaxInfo("f.fax", "bob"), true},
      {"cmd-imgstore",
       Argument("obj-reqsto",
                Field("finfoptr", "obj-faxinfo", "clientid=bob\n") +
                    Field("filobjptr", "obj-file", "pathname=x\n")),
       true},
      {"cmd-copyfax", Route("bob", "alice", "f.fax"), true},
      {"cmd-copyfax", Route("alice", "bob", "g.fax"), false},
      {"cmd-setmon",
       Argument("obj-monitor", "clientid=bob\nmontype=mon-excall\n"), true},
      {"cmd-noop",
       ListField("objptr", "obj-faxinfo",
                 {"clientid=alice\n", "clientid=bob\n"}),
       true},
  };
  for (const auto& c : kCases) {
    const std::string answer = Ask({kAlice}, c.type, "alice", c.argument);
    EXPECT_EQ(answer == kDenied, c.denied) << c.type << c.argument << answer;
    EXPECT_TRUE(c.denied || answer.starts_with(kDone)) << answer;
  }
  EXPECT_TRUE(Ask({kClerk}, "cmd-imgret", "alice", FaxInfo("f.fax", "bob"))
                  .starts_with(kDone));
}

// A file says no more of its owner than those who could have written it, or put
// it where it lies, leave true.
TEST_P(Access, AFileIsNeverMoreTrustedThanItsFolder) {
  const Spool kRoots = {kPrivate, kRoot, 0};
  const Spool kFaxSystems = {kPrivate};
  const Spool kAlices = {kPrivate, kAlice, kAlice};
  const Spool kStaffs = {0770, kRoot, kStaff};
  StartIn({kClosed});
  const struct {
    Spool spool;
    CommandFile file;
    const char* client;
    bool denied;
  } kCases[] = {
      {{kClosed}, {kRoot, kKrtfax, 0666}, "bob", false},
      {{kClosed}, {kRoot, kKrtfax, 0660}, "bob", false},
      {{kClosed}, {kRoot, kStaff, 0660}, "bob", true},
      {{kClosed}, {kAlice, kAlice, 0664}, "alice", false},
      {{kClosed, kRoot, 0}, {kClerk}, "bob", false},
      {{kOpen}, {kRoot}, "bob", true},
      {{kOpen}, {kRoot}, "root", true},
      {{kOpen}, {kKrtfax, kKrtfax}, "bob", true},
      {{kOpen}, {kClerk}, "clerk", true},
      {{kOpen}, {kRoot, kKrtfax, 0666}, "bob", true},
      {{kOpen}, {kAlice, kAlice, 0644}, "alice", false},
      {{kOpen}, {kAlice, kAlice, 0644}, "bob", true},
      {{kOpen}, {kAlice, kAlice, 0646}, "alice", true},
      {kStaffs, {kRoot}, "bob", true},
      {kStaffs, {kAlice}, "alice", false},
      {kRoots, {kRoot}, "bob", false},
      {kRoots, {kAlice}, "alice", false},
      {kRoots, {kRoot, 0, 0666}, "bob", true},
      {kFaxSystems, {kRoot}, "bob", false},
      {kFaxSystems, {kKrtfax}, "bob", false},
      {kAlices, {kAlice}, "alice", false},
      {kAlices, {kAlice}, "bob", true},
      {kAlices, {kRoot}, "alice", true},
      {kAlices, {kKrtfax}, "bob", true},
  };
  for (const auto& c : kCases) {
    Set(c.spool);
    EXPECT_EQ(IsDenied(c.file, c.client), c.denied)
        << std::oct << c.spool.mode << " " << c.file.mode << std::dec << " of "
        << c.spool.uid << ":" << c.spool.gid << ", " << c.file.uid << ":"
        << c.file.gid << " for " << c.client;
  }
}

TEST_P(Access, OnlyRootsOwnFileInRootsOwnFolderRunsAProgramAsRoot) {
  StartIn({kPrivate, kRoot, 0});
  const std::string who = External("id -u");
  const auto Ran = [](const std::string& uid) { return kDone + Text({uid}); };
  EXPECT_EQ(Ask({kRoot}, "cmd-extcmd", "root", who), Ran("0"));
  EXPECT_EQ(Ask({kRoot}, "cmd-extcmd", "alice", who), Ran("64102"));
  EXPECT_EQ(Ask({kClerk}, "cmd-extcmd", "alice", who), Ran("64102"));
  EXPECT_EQ(Ask({kAlice}, "cmd-extcmd", "alice", who), Ran("64102"));
  EXPECT_EQ(Ask({kAlice}, "cmd-extcmd", "clerk", who), kDenied);
  for (const CommandFile& file :
       {CommandFile{kKrtfax}, {kClerk}, {kAlice}, {kRoot, kKrtfax, 0660}}) {
    SCOPED_TRACE(file.uid);
    EXPECT_EQ(Ask(file, "cmd-extcmd", "root", who), kDenied);
    EXPECT_EQ(Ask(file, "cmd-imgprint", "root",
                  Argument("obj-reqprt", Field("finfoptr", "obj-faxinfo"))),
              kDenied);
  }
  for (const Spool& spool : {Spool{kClosed}, {kPrivate}, {kOpen}}) {
    Set(spool);
    EXPECT_EQ(Ask({kRoot}, "cmd-extcmd", "root", who), kDenied) << spool.mode;
  }
}

// What the daemon makes for a user is the user's, and so no way to a file of
// root's with the user's words in it.
TEST_P(Access, WhatAUserAskedForBelongsToTheUser) {
  Own("faxq/alice/options", kAlice, 0755);
  StartIn({kClosed});
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
  for (const auto& file :
       std::filesystem::directory_iterator(Path("faxq/alice/options"))) {
    struct stat st;
    ASSERT_EQ(stat(file.path().c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, kAlice) << file.path();
    ++files;
  }
  EXPECT_EQ(files, 2);
}

TEST_P(Access, AFileWithASecondNameIsNoCommand) {
  const std::string path = Path("mine");
  WriteFile(path, support::Command("cmd-noop", 1, 1, "clientid=bob\n"));
  StartIn({kClosed});
  std::filesystem::create_hard_link(path, root_.spool() / "a.new");
  std::filesystem::rename(root_.spool() / "a.new", root_.spool() / "a.cmd");
  EXPECT_TRUE(daemon_->AwaitLog("Error processing cmd file a."));
  EXPECT_TRUE(daemon_->AwaitLog("Too many links"));
  EXPECT_FALSE(IsDenied({kRoot}, "bob"));
  EXPECT_EQ(std::filesystem::hard_link_count(path), 1u);
}

// A daemon that is not root believes its own user.
TEST_P(Access, TheDaemonsOwnUserIsTrusted) {
  root_.PutProgram(
      "as-alice",
      "exec setpriv --reuid=64102 --regid=64102 --clear-groups " KRTCMD_PATH
      " \"$@\"");
  for (const char* dir : {"", "krtnet"}) Own(dir, kAlice, 0755, kAlice);
  StartIn({0770, kAlice, kAlice}, Path("as-alice"));
  EXPECT_FALSE(IsDenied({kAlice, kAlice}, "bob"));
  EXPECT_TRUE(IsDenied({kNameless, 0, 0644}, "bob"));
  EXPECT_FALSE(IsDenied({kRoot, 0, 0644}, "bob"));
  Set({0777, kAlice, kAlice});
  EXPECT_TRUE(IsDenied({kAlice, kAlice}, "bob"));
}

}  // namespace
