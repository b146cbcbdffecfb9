// What a daemon that is root does in folders that belong to users.
#include <fcntl.h>
#include <signal.h>

#include <fstream>

#include "served.h"
#include "util/kutio.h"

namespace {

namespace fs = std::filesystem;
using support::Eventually;

class Folders : public AccountsTest {
 protected:
  void SetUp() override {
    AccountsTest::SetUp();
    for (const auto& [user, uid] :
         {std::pair{"alice", kAlice}, std::pair{"bob", kBob}}) {
      Own("faxq/" + std::string(user), uid, 02770);
      for (const char* folder : {"msgs", "events"}) {
        Own("faxq/" + std::string(user) + "/" + folder, uid, 02770);
      }
      fs::remove(root_.path() / "faxq" / user / "options");
    }
    // No path leads there for the user, but what is open does.
    Own("faxq", kKrtfax, 0700);
    Own("krtnet", kKrtfax, 0755);
    StartIn({kClosed});
  }
  void Put(const std::string& name, const std::string& content, uid_t uid,
           mode_t mode = 0660) const {
    root_.Put(name, content);
    Own(name, uid, mode);
  }
  struct stat Status(const std::string& name) const {
    return StatusOf(Path(name));
  }
  std::string Send(const std::string& type, const std::string& name) {
    return Ask({kAlice}, type, "alice", Route("alice", "bob", name));
  }
  std::string Store(const std::string& path, const std::string& name,
                    uid_t uid = kAlice) {
    return Ask({uid}, "cmd-imgstore", "alice", Upload(path, name));
  }
  // The answer to a command, while every entry below the queue is looked at:
  // what is there belongs to its user, at any moment.
  std::string AskAndWatch(const std::string& type, const std::string& argument,
                          const std::string& user, uid_t uid) {
    const std::string name = Drop({kAlice}, type, "alice", argument);
    EXPECT_TRUE(Eventually([&] {
      for (const auto& entry : fs::recursive_directory_iterator(
               Path("faxq/" + user),
               fs::directory_options::skip_permission_denied)) {
        struct stat st;
        if (lstat(entry.path().c_str(), &st) != 0) continue;
        EXPECT_EQ(st.st_uid, uid) << entry.path();
      }
      return root_.Has("krtnet/filspool/" + name + ".rsp");
    }));
    return support::Outcome(root_.Response(name));
  }
};
INSTANTIATE_TEST_SUITE_P(Modes, Folders, ::testing::Values("0", "1"));

// A file of root's, or a user's file with his own words that root has made,
// would be a command of root's once it was renamed into a spool directory.
TEST_P(Folders, NothingThereIsEverRoots) {
  Put("faxq/alice/big.fax", std::string(16 << 20, 'x'), kAlice);
  const std::string copy = Route("alice", "alice", "big.fax");
  EXPECT_EQ(AskAndWatch("cmd-copyfax", copy, "alice", kAlice), kDone);
  EXPECT_EQ(AskAndWatch("cmd-fwdfax", copy, "alice", kAlice), kDone);
  EXPECT_EQ(fs::file_size(Path("faxq/alice/big.fax")), 16u << 20);
  const std::string settings[][2] = {
      {"cmd-setcfg", Argument("obj-config", "bname=a\n")},
      {"cmd-setmon",
       Argument("obj-monitor", "clientid=alice\nmontype=mon-excall\n")}};
  for (const auto& [type, argument] : settings) {
    EXPECT_EQ(AskAndWatch(type, argument, "alice", kAlice), kDone);
  }
  // The fax system's group goes on having what it had.
  EXPECT_EQ(Status("faxq/alice/options").st_mode, S_IFDIR | 02770u);
  for (const char* name : {"options", "options/config", "options/monitors"}) {
    EXPECT_EQ(Status("faxq/alice/" + std::string(name)).st_gid, kKrtfax);
  }
}

// The group is the queue's, also where the file system does not hand it down
// and the receiver is not in it.
TEST_P(Folders, AFaxArrivesAsTheReceiversWhole) {
  for (const mode_t mode : {02770U, 0770U}) {
    Own("faxq/bob", kBob, mode);
    Put("faxq/alice/a.fax", "image", kAlice);
    const timespec old[2] = {{1000, 0}, {2000, 0}};
    utimensat(AT_FDCWD, Path("faxq/alice/a.fax").c_str(), old, 0);
    EXPECT_EQ(Send("cmd-fwdfax", "a.fax"), kDone);
    EXPECT_FALSE(root_.Has("faxq/alice/a.fax"));
    const struct stat st = Status("faxq/bob/a.fax");
    EXPECT_EQ(st.st_uid, kBob);
    EXPECT_EQ(st.st_gid, kKrtfax);
    EXPECT_EQ(st.st_mode, S_IFREG | 0666u);
    EXPECT_EQ(st.st_mtime, 2000);
    fs::remove(Path("faxq/bob/a.fax"));
  }
}

// Who has it open, or knows it by another name, does not go on writing it.
TEST_P(Folders, AForwardedFaxIsNobodyElsesAnyMore) {
  Put("faxq/alice/a.fax", "image", kAlice);
  Put("carols", "image", kClerk, 0666);
  fs::create_hard_link(Path("carols"), Path("faxq/alice/b.fax"));
  std::ofstream kept(Path("faxq/alice/a.fax"), std::ios::in | std::ios::out);
  for (const char* name : {"a.fax", "b.fax"}) {
    EXPECT_EQ(Send("cmd-fwdfax", name), kDone);
  }
  kept << "IMAGE" << std::flush;
  root_.Put("carols", "IMAGE");
  EXPECT_EQ(ReadFile(Path("faxq/bob/a.fax")), "image");
  EXPECT_EQ(ReadFile(Path("faxq/bob/b.fax")), "image");
  EXPECT_EQ(Status("carols").st_uid, kClerk);
}

TEST_P(Folders, ForwardsOfOneStemDoNotMeet) {
  constexpr int kFaxes = 40;
  Put("faxq/bob/a.tmp", "half of another", kBob);
  std::vector<std::string> names;
  for (int i = 0; i < kFaxes; ++i) {
    const std::string fax = "a." + std::to_string(i);
    Put("faxq/alice/" + fax, std::string(100000, 'x') + fax, kAlice);
    names.push_back(
        Drop({kAlice}, "cmd-fwdfax", "alice", Route("alice", "bob", fax)));
  }
  for (int i = 0; i < kFaxes; ++i) {
    const std::string fax = "a." + std::to_string(i);
    EXPECT_NE(
        root_.Response(names[static_cast<std::size_t>(i)]).find("\nresult=0\n"),
        std::string::npos);
    EXPECT_EQ(ReadFile(Path("faxq/bob/" + fax)),
              std::string(100000, 'x') + fax);
  }
  EXPECT_EQ(ReadFile(Path("faxq/bob/a.tmp")), "half of another");
}

TEST_P(Folders, WhatTheFaxSystemDeliveredIsReadAndNoOthers) {
  Put("faxq/alice/a.fax", "fax", kKrtfax, 0600);
  Put("faxq/alice/b.fax", "fax", kRoot, 0600);
  Put("faxq/alice/c.fax", "fax", kBob, 0600);
  Put("faxq/alice/d.fax", "fax", kRoot, 0600);
  fs::create_hard_link(Path("faxq/alice/d.fax"), Path("second"));
  for (const auto& [name, read] : {std::pair{"a.fax", true},
                                   {"b.fax", true},
                                   {"c.fax", false},
                                   {"d.fax", false}}) {
    EXPECT_EQ(Send("cmd-copyfax", name) == kDone, read) << name;
  }
}

// The command's owner must be able to reach what is stored; nobody learns what
// there is from how it fails.
TEST_P(Folders, OnlyWhatItsOwnerCanReachIsStored) {
  fs::create_directories(Path("private"));
  fs::create_directories(Path("mine"));
  Put("private/alices", "x", kAlice, 0666);
  Put("mine/up", "x", kAlice, 0600);
  Put("mine/bobs", "x", kBob, 0666);
  ASSERT_EQ(mkfifo(Path("mine/fifo").c_str(), 0666), 0);
  Own("private", kBob, 0700);
  Own("mine", kAlice, 0700);
  for (const char* name : {"private/alices", "private/missing", "private",
                           "mine/bobs", "mine/fifo", "mine/missing"}) {
    EXPECT_EQ(Store(Path(name), "b.fax"),
              "result=13\nerrmsg=Cannot move file " + Path(name) +
                  ": No such file or directory\n");
  }
  EXPECT_EQ(Store(Path("mine/up"), "b.fax"), kDone);
  EXPECT_EQ(Status("faxq/alice/b.fax").st_uid, kAlice);
  EXPECT_FALSE(root_.Has("mine/up"));
  EXPECT_TRUE(root_.Has("private/alices"));
  // A session of the fax system's has the spool directory besides.
  Put("krtnet/filspool/up", "x", kClerk, 0600);
  EXPECT_EQ(Store(Path("krtnet/filspool/up"), "c.fax", kClerk), kDone);
  Put("krtnet/filspool/up", "x", kClerk, 0600);
  EXPECT_NE(Store(Path("krtnet/filspool/up"), "c.fax"), kDone);
}

// Whoever can be the fax system's user is not yet root: what he puts into the
// fax system's folders is entered, and run, as him.
TEST_P(Folders, TheFaxSystemIsNotRoot) {
  fs::create_directories(Path("roots"));
  root_.Put("roots/secret", "secret");
  Own("roots", kRoot, 0700, 0);
  Own("roots/secret", kRoot, 0600, 0);
  fs::create_directory_symlink(Path("roots"), Path("faxq/evil"));
  for (const auto& [type, argument] :
       {std::pair<std::string, std::string>{"cmd-imgret",
                                            FaxInfo("secret", "evil")},
        {"cmd-imgdel", FaxInfo("secret", "evil")},
        {"cmd-copyfax", Route("evil", "alice", "secret")},
        {"cmd-pbcmd",
         Argument("obj-pbcom", "pbcmd=pbc-create\npbtype=pbt-usr\n")},
        {"cmd-setcfg", Argument("obj-config", "bname=a\n")}}) {
    EXPECT_NE(Ask({kClerk}, type, "evil", argument), kDone) << type;
  }
  EXPECT_EQ(ReadFile(Path("roots/secret")), "secret");
  EXPECT_EQ(std::distance(fs::directory_iterator(Path("roots")), {}), 1);
  fs::remove(Path("faxq/evil"));
  root_.PutProgram("Covers/own",
                   "id -u > " + Path("in/uid") + "; echo to:R:F:Courier:30:x");
  Own("in", kKrtfax, 0755);
  EXPECT_NE(
      Ask({kAlice}, "cmd-cvrtags", "alice", Named("own")).find("tagname=to"),
      std::string::npos);
  EXPECT_EQ(ReadFile(Path("in/uid")), std::to_string(kKrtfax) + "\n");
}

// Nor are files of root's read through links in a tree that is krtfax's, or
// reached by a command of root's file that others could have written.
TEST_P(Folders, LinksInTheTreeLeadToNothingOfRoots) {
  daemon_.reset();
  Own("", kKrtfax, 0755);
  fs::create_directories(Path("roots"));
  root_.Put("roots/secret", std::string(212, 's'));
  Own("roots/secret", kRoot, 0600, 0);
  Own("roots", kRoot, 0700, 0);
  for (const char* name : {"dstat", "qstat", "Default", "retrys"}) {
    fs::remove(Path(name));
    fs::create_symlink(Path("roots/secret"), Path(name));
  }
  fs::remove_all(Path("groups"));
  fs::create_directory_symlink(Path("roots"), Path("groups"));
  StartIn({kClosed});
  EXPECT_EQ(Ask({kClerk}, "cmd-state", "clerk").find("sss"), std::string::npos);
  for (const char* list : {"lst-retrys", "lst-groups"}) {
    const std::string answer =
        Ask({kClerk}, "cmd-reslist", "clerk", ListOf(list));
    EXPECT_EQ(answer.find("secret"), answer.npos) << answer;
    EXPECT_EQ(answer.find("sss"), answer.npos) << answer;
  }
  EXPECT_EQ(daemon_->Log().find("sss"), std::string::npos);
  // As krtfax's at most: what the group could write, in its directory.
  fs::create_directories(Path("faxq/root"));
  Own("faxq/root", kKrtfax, 02770);
  EXPECT_NE(Ask({kRoot, kKrtfax, 0660}, "cmd-imgstore", "root",
                Upload(Path("roots/secret"), "loot")),
            kDone);
  EXPECT_TRUE(root_.Has("roots/secret"));
  // A spool directory that has become a link is not worked in.
  fs::rename(Path("krtnet/filspool"), Path("krtnet/old"));
  fs::create_directory_symlink(Path("roots"), Path("krtnet/filspool"));
  root_.Put("roots/x.cmd", "");
  EXPECT_FALSE(Eventually([&] { return !root_.Has("roots/x.cmd"); },
                          std::chrono::milliseconds(1500)));
}

// What a user brings from elsewhere is not the fax system's, and what is there
// already is not his to replace.
TEST_P(Folders, AUserPutsNothingInAnothersPlace) {
  Put("faxq/alice/r.fax", "root's", kRoot, 0600);
  Own("faxq/alice/r.fax", kRoot, 0600, 0);
  EXPECT_NE(Send("cmd-copyfax", "r.fax"), kDone);
  Put("faxq/alice/a.fax", "alice's", kAlice);
  Put("faxq/bob/a.fax", "bob's", kBob);
  for (const char* type : {"cmd-copyfax", "cmd-fwdfax"}) {
    EXPECT_TRUE(Send(type, "a.fax").ends_with("failed: File exists\n"));
  }
  EXPECT_EQ(ReadFile(Path("faxq/bob/a.fax")), "bob's");
  EXPECT_EQ(ReadFile(Path("faxq/alice/a.fax")), "alice's");
  // A lease on what is stored holds nobody up.
  fs::create_directories(Path("mine"));
  Own("mine", kAlice, 0700);
  Put("mine/up", "x", kAlice, 0600);
  const UniqueFd held(Kut_open(Path("mine/up").c_str(), O_RDONLY));
  ASSERT_EQ(fcntl(held.get(), F_SETLEASE, F_WRLCK), 0);
  signal(SIGIO, SIG_IGN);
  EXPECT_NE(Store(Path("mine/up"), "b.fax"), kDone);
}

// Where others can enter, an answer is its receiver's alone.
TEST_P(Folders, AnAnswerInAnOpenSpoolIsItsReceivers) {
  for (const auto& [mode, answer] :
       {std::pair<mode_t, mode_t>{kClosed, 0666}, {kOpen, 0600}}) {
    Set({mode});
    EXPECT_EQ(Ask({kAlice}, "cmd-noop", "alice"), kDone);
    EXPECT_EQ(response_.st_uid, kAlice);
    EXPECT_EQ(response_.st_mode, S_IFREG | answer);
  }
}

TEST_P(Folders, ListsShowWhatIsTheUsers) {
  Put("faxq/alice/a.fax", "", kAlice);
  Put("faxq/alice/msgs/m", "one\n", kAlice);
  for (const auto& [type, shown] :
       {std::pair{"lst-faxfiles", "filename=a.fax\n"},
        {"lst-tmsgs", "=m\n"},
        {"lst-events", ""},
        {"lst-srvmsgs", ""}}) {
    const std::string answer =
        Ask({kAlice}, "cmd-msglist", "alice", ListOf(type));
    EXPECT_TRUE(answer.starts_with(kDone)) << type << answer;
    EXPECT_NE(answer.find(shown), answer.npos) << type << answer;
  }
}

// A directory that another owner may not enter holds nothing that is gone.
TEST_P(Folders, EventsOfRequestsThatTheUserMayNotSeeAreKept) {
  Put("requests/r-5", "", kKrtfax, 0600);
  Own("requests", kKrtfax, 0700);
  Put("faxq/alice/events/5", "", kAlice);
  Put("faxq/alice/events/6", "", kKrtfax);
  EXPECT_EQ(Ask({kAlice}, "cmd-faxcln", "alice"), kDone);
  EXPECT_TRUE(root_.Has("faxq/alice/events/5"));
  EXPECT_FALSE(root_.Has("faxq/alice/events/6"));
}

}  // namespace
