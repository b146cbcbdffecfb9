// What others leave in the directories that all may write to, and in their own:
// files in a response's place, all session numbers, links in root's way.
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <thread>

#include "link/exchange.h"
#include "support/accounts.h"
#include "support/child.h"
#include "support/ctl.h"

namespace {

using ctl::Server;
using support::Exit;

// What this process does as somebody else while it lives.
class As {
 public:
  explicit As(uid_t uid) { EXPECT_EQ(seteuid(uid), 0); }
  ~As() { EXPECT_EQ(seteuid(0), 0); }
};

class Strangers : public testing::Test {
 protected:
  void SetUp() override {
    SKIP_WITHOUT_ACCOUNTS(accounts_);
    chmod(server_.root().root(), 0755);
    Own(server_.root().spool(), kKrtfax, 03777);
    Own(server_.Path("krtnet/sessions"), kKrtfax, 03777);
    place_.root = server_.root().path();
    place_.spool = server_.root().spool();
    place_.sessions = server_.Path("krtnet/sessions");
  }
  static void Own(const std::string& path, uid_t uid, mode_t mode) {
    EXPECT_EQ(lchown(path.c_str(), uid, uid), 0) << path;
    EXPECT_EQ(chmod(path.c_str(), mode), 0) << path;
  }
  void Put(const std::string& name, uid_t owner, const std::string& text) {
    WriteFile(server_.root().spool() / name, text);
    Own(server_.root().spool() / name, owner, 0666);
  }

  const OwnAccounts accounts_;
  const Server server_;
  client::Place place_;
};

TEST_F(Strangers, TheirFilesAreNoAnswers) {
  const std::string text = support::Command("cmd-noop", 1, 2);
  const std::string path = server_.root().spool() / "0001-002.rsp";
  // A daemon of a user of its own, registered once it ran.
  const pid_t daemon =
      BeginChild([] { return setuid(kRunner) == 0 ? pause() : 1; });
  const std::string list = server_.Path("krtnet/krtnet.lck");
  WriteFile(list, std::to_string(daemon) + ":krtcmd\n");
  const struct {
    uid_t reader, owner;
    bool linked, fresh, taken;
  } kCases[] = {{0, 0, false, true, true},
                {0, kKrtfax, false, true, true},
                {0, kAlice, false, true, false},
                {0, kRunner, false, true, true},
                {0, kRunner, false, false, false},
                {0, 0, true, true, false},
                {kAlice, kAlice, false, true, true},
                {kAlice, 0, false, true, true},
                {kAlice, kKrtfax, false, true, true},
                {kAlice, kMallory, false, true, false},
                {kAlice, kAlice, true, true, false}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message()
                 << c.reader << " " << c.owner << " " << c.linked << c.fresh);
    // An entry from before the process began is a dead one's.
    const timespec times[2] = {{1, 0}, {c.fresh ? time(nullptr) : 1, 0}};
    utimensat(AT_FDCWD, list.c_str(), times, 0);
    Put("0001-002.rsp", c.owner, text);
    if (c.linked) std::filesystem::create_hard_link(path, path + ".2");
    std::string ignored;
    kx::Object answer;
    support::Eventually([&] {  // until the daemon is its user's
      const As as(c.reader);
      client::Exchange exchange;
      exchange.Attach(place_);
      const bool taken = exchange.Take("0001-002", nullptr, &answer).ok();
      ignored = exchange.ignored();
      return taken == c.taken;
    });
    EXPECT_EQ(answer != nullptr, c.taken);
    // With the sticky bit nobody else can remove it.
    const bool removed = c.taken && (c.reader == 0 || c.reader == c.owner);
    EXPECT_EQ(std::filesystem::exists(path), !removed);
    EXPECT_EQ(ignored.empty(), c.taken);
    std::filesystem::remove(path);
    std::filesystem::remove(path + ".2");
  }
  kill(daemon, SIGKILL);
  Reaped(daemon);
}

TEST_F(Strangers, TheirFilesAreNamedAndTheAnswerIsStillTaken) {
  const std::string path = server_.root().spool() / "0001-002.rsp";
  Put("0001-002.rsp", kMallory, support::Command("cmd-noop", 1, 2));
  ctl::Session(server_, R"(
75$ krtctl collect 0001-002 --timeout 1
! collect 0001-002: no answer; SPOOL/0001-002.rsp of mallory is not taken
)");
  for (const bool directory : {false, true}) {
    std::filesystem::remove(path);
    if (directory) mkdir(path.c_str(), 0755);
    if (!directory) mkfifo(path.c_str(), 0666);
    Own(path, kMallory, 0777);
    std::thread daemon([&] {
      Put("real", kKrtfax, support::Command("cmd-noop", 1, 2, "result=0\n"));
      std::filesystem::remove(path);
      rename((server_.root().spool() / "real").c_str(), path.c_str());
    });
    EXPECT_EQ(server_.Run({"collect", "0001-002", "--timeout", "20"}).status,
              0);
    daemon.join();
  }
}

// An answer can name any file; what it does not carry is not fetched.
TEST_F(Strangers, AnswersPathIsNotOpened) {
  WriteFile(server_.Path("secret"), "secret");
  server_.Pretend();
  std::thread daemon([&] {
    const std::string name = server_.AwaitCommand();
    std::string text = ReadFile(server_.root().spool() / (name + ".cmd"));
    text.insert(text.find("objptr="),
                "result=0\nobjptr=obj-file\nobjbeg=obj-file\npathname=" +
                    server_.Path("secret") + "\nobjend=obj-file\n");
    std::filesystem::remove(server_.root().spool() / (name + ".cmd"));
    Put("new", kKrtfax, text.substr(0, text.rfind("objptr=")) + "objend=\n");
    rename((server_.root().spool() / "new").c_str(),
           (server_.root().spool() / (name + ".rsp")).c_str());
  });
  ctl::Session(server_, R"(
70$ krtctl fax get x.tif -o ROOT/got
! fax get x.tif: the answer carries no file
65$ cd ROOT; krtctl fax get ..
! fax get ..: not a plain file name
1$ ls ROOT | grep got
)");
  daemon.join();
}

TEST_F(Strangers, ControlCharactersAreShownAndNotSent) {
  for (const char* form : {"-q", "--json", "--text"}) {
    Put("0001-002.rsp", 0,
        support::Command("cmd-noop", 1, 2,
                         "result=13\nerrmsg=a\x1B]0;b\x07\xC2\x9B"
                         "c\x9B\x7F\n"));
    const Exit end = server_.Run({form, "collect", "0001-002"});
    EXPECT_EQ(end.status, 1);
    for (const std::string& text : {end.out, end.err}) {
      EXPECT_NE(text.find("]0;b"), text.npos) << text;
      for (const char c : text) {
        // The only bytes above ASCII's are those that JSON cannot name.
        EXPECT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << text;
      }
    }
  }
}

// All numbers are one user's, as files of the sessions or in the spool; others
// keep those that they have, and have what is left.
TEST_F(Strangers, TheirFilesLeaveSessionNumbers) {
  const auto make = [&](bool spool, int number, uid_t owner) {
    char name[32];
    snprintf(name, sizeof name, spool ? "/%04d-001.x" : "/%04d.ctl", number);
    const std::string path = (spool ? place_.spool : place_.sessions) + name;
    WriteFile(path, "1\n");
    EXPECT_EQ(chown(path.c_str(), owner, owner), 0);
    chmod(path.c_str(), 0600);
  };
  constexpr int kFree = 7777;
  for (const bool spool : {false, true}) {
    // So many files take long on a disk.
    for (const std::string& dir : {place_.sessions, place_.spool}) {
      ASSERT_EQ(mount("none", dir.c_str(), "tmpfs", 0, "mode=1777"), 0);
    }
    for (int i = 0; i < client::kSlots; ++i) make(spool, i, kMallory);
    {
      const As alice(kAlice);
      client::Slot slot;
      client::Slot other;
      EXPECT_TRUE(slot.Reserve(place_).ok());
      EXPECT_TRUE(other.Reserve(place_).ok());
      EXPECT_NE(slot.number(), other.number());
      slot.Release(true);
      other.Release(true);
    }
    for (int i = client::kSlotShare; i < client::kSlots; ++i) {
      if (i != kFree)
        make(spool, i, static_cast<uid_t>(70000 + i / client::kSlotShare));
    }
    const As alice(kAlice);
    client::Slot slot;
    client::Slot none;
    EXPECT_TRUE(slot.Reserve(place_).ok());
    EXPECT_EQ(slot.number(), kFree);
    EXPECT_EQ(none.Reserve(place_).ok(), false);
    slot.Release(true);
    seteuid(0);
    for (const std::string& dir : {place_.sessions, place_.spool}) {
      umount2(dir.c_str(), MNT_DETACH);
    }
  }
}

TEST_F(Strangers, CheckSaysWhoIsTrusted) {
  const std::string spool = server_.root().spool();
  const unsigned char acl[] = {
      2,    0,    0,    0,    1,    0,    7,    0,    0xff, 0xff, 0xff,
      0xff, 2,    0,    7,    0,    0x6a, 0xfa, 0,    0,    4,    0,
      7,    0,    0xff, 0xff, 0xff, 0xff, 0x10, 0,    7,    0,    0xff,
      0xff, 0xff, 0xff, 0x20, 0,    0,    0,    0xff, 0xff, 0xff, 0xff};
  const std::string alone =
      "commands are trusted for their owners alone, and those of root, krtfax "
      "and its group refused: ";
  const struct {
    uid_t uid;
    gid_t gid;
    mode_t mode;
    bool acl;
    std::string said;
  } kCases[] = {
      {0, 0, 0755, false, "trusted as root, who alone writes "},
      {kMallory, kMallory, 0755, false, "trusted as mallory, who alone "},
      {kKrtfax, kKrtfax, 02770, false, "for any client but never as root"},
      {kKrtfax, 0, 0770, false, "for any client but never as root"},
      {kKrtfax, kAlice, 0770, false, alone + "the group alice can write "},
      {kKrtfax, kKrtfax, 03777, false, alone + "everybody can write "},
      {kKrtfax, kKrtfax, 02770, true, alone + "mallory can write "},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(chown(spool.c_str(), c.uid, c.gid), 0);
    chmod(spool.c_str(), c.mode);
    if (c.acl && setxattr(spool.c_str(), "system.posix_acl_access", acl,
                          sizeof acl, 0) != 0) {
      continue;  // the file system has no such lists
    }
    const std::string out = server_.Run({"check", "--offline"}).out;
    EXPECT_NE(out.find(c.said), out.npos) << c.said << "\n" << out;
  }
  const std::string off = server_.Path("off");
  const char* setting = "/proc/sys/fs/protected_hardlinks";
  WriteFile(off, "0\n");
  ASSERT_EQ(mount(off.c_str(), setting, nullptr, MS_BIND, nullptr), 0);
  std::filesystem::create_directories(server_.Path("open/spool"));
  Own(server_.Path("open"), kKrtfax, 0777);
  const std::string out =
      server_.Run({"--spool", server_.Path("open/spool"), "check", "--offline"})
          .out;
  umount(setting);
  EXPECT_NE(out.find("fix: sysctl -w fs.protected_hardlinks=1\n"), out.npos);
  EXPECT_NE(out.find(server_.Path("open") + ", above the spool directory, can "
                                            "be written by everybody"),
            out.npos)
      << out;
}

// Root repairs in a user's folder what is that user's, as the user, and goes
// nowhere else.
TEST_F(Strangers, RootsRepairsStayWhereTheyBelong) {
  Server book;
  book.Start();
  ASSERT_EQ(book.Run({"pb", "init"}).status, 0);
  ASSERT_EQ(book.Run({"pb", "add", "palias=a", "lname=b"}).status, 0);
  const auto lay = [&](const std::string& dir, uid_t uid) {
    std::filesystem::copy(book.Queue("options"), dir);
    for (const auto& file : std::filesystem::directory_iterator(dir)) {
      Own(file.path(), uid, 0660);
    }
    Own(dir, uid, 0700);
    return ctl::Damage(dir + "/pbper.idx");
  };
  const std::string queue = server_.Path("faxq/mallory");
  mkdir(queue.c_str(), 0755);
  chmod(server_.Path("faxq").c_str(), 0755);
  const std::string foreign = server_.Path("foreign");
  const std::string damaged = lay(foreign, kAlice);
  std::filesystem::create_directory_symlink(foreign, queue + "/options");
  Own(queue, kMallory, 0700);
  // The other way into another's folder, while the tree is made whole.
  std::filesystem::remove(server_.Path("krtnet/queued"));
  std::filesystem::rename(server_.Path("krtnet"), server_.Path("real"));
  std::filesystem::create_directory_symlink("real", server_.Path("krtnet"));
  server_.Run({"check", "--offline", "--fix", "--yes"});
  EXPECT_FALSE(std::filesystem::exists(server_.Path("real/queued")));
  std::filesystem::remove(server_.Path("krtnet"));
  std::filesystem::rename(server_.Path("real"), server_.Path("krtnet"));
  server_.Run({"check", "--fix", "--yes", "--timeout", "1"});
  EXPECT_EQ(ReadFile(foreign + "/pbper.idx"), damaged);

  std::filesystem::remove(queue + "/options");
  lay(queue + "/options", kMallory);
  server_.Run({"check", "--fix", "--yes", "--timeout", "1"});
  EXPECT_NE(ReadFile(queue + "/options/pbper.idx"), damaged);
  for (const auto& file :
       std::filesystem::directory_iterator(queue + "/options")) {
    EXPECT_EQ(StatusOf(file.path()).st_uid, kMallory) << file.path();
  }

  EXPECT_EQ(server_.Run({"user", "add", "alice"}).status, 0);
  for (const char* dir : {"alice", "alice/options", "alice/msgs"}) {
    const struct stat st = StatusOf(server_.Path(std::string("faxq/") + dir));
    EXPECT_EQ(st.st_uid, kAlice);
    EXPECT_EQ(st.st_gid, kKrtfax);
    EXPECT_EQ(st.st_mode & 07777, 02770U) << dir;
  }
}

}  // namespace
