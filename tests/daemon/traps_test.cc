// What others lay in the daemon's way: in the spool directory, in the place of
// responses and of copies. All as root, who can be tricked into most.
#include <functional>
#include <tuple>

#include "daemon/spool/logfile.h"
#include "daemon/spool/rsp.h"
#include "daemon/subtask.h"
#include "spool_files.h"
#include "support/child.h"
#include "util/kutident.h"

namespace {

using support::Command;

constexpr uid_t kMallory = 61001;
constexpr uid_t kAlice = 61002;

class Traps : public SpoolFiles {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root";
    chmod(root_.root(), 0755);
    dmn_log_open((root_ / "log").c_str(), 0, 0);
  }
  ~Traps() override { dmn_log_close(); }
  std::string Log() const { return ReadFile(root_ / "log"); }
  void Put(const std::string& name, uid_t owner,
           const std::string& content = "") const {
    WriteFile(Path(name), content);
    EXPECT_EQ(chown(Path(name).c_str(), owner, owner), 0) << name;
  }
  void PutDir(const std::string& name, uid_t owner) const {
    std::filesystem::create_directories(Path(name) + "/full");
    EXPECT_EQ(chown(Path(name).c_str(), owner, owner), 0) << name;
  }
  struct stat Look(const std::string& name) const {
    return StatusOf(Path(name));
  }
  // The claimed file's name without the ending, or "" when none is ready.
  std::string Claim() const {
    const std::string claimed = SpoolFiles::Claim();
    return claimed.substr(0, claimed.rfind('.'));
  }
  kx::Object Read(const std::string& content, uid_t owner, int save = 0) const {
    Put("x.1", owner, content);
    return kx::Object(sx_cmd(dir(), "x.1", save));
  }
};

TEST_F(Traps, NamesThatCannotBeClaimedKeepNobodyOut) {
  const std::string pid = "." + std::to_string(getpid());
  if (pid.size() < 5) GTEST_SKIP() << "no claim is longer than its command";
  const std::string longest(255 - pid.size() - 3, 'x');
  for (int i = 100; i < 300; ++i) {
    const std::string number = std::to_string(i);
    Put("x" + longest + number + ".cmd", kMallory);  // one byte too many
    if (i >= 250) continue;
    Put(longest + number + ".cmd", kMallory);  // its only claim is taken
    Put(longest + number + pid, kMallory);
  }
  for (int i = 100; i < 350; ++i) Put("r" + std::to_string(i) + ".cmd", 0);
  Put("z.cmd", kAlice);
  // A daemon that is not root may not take others' files there.
  chmod(dir(), 01777);
  {
    const FileIdentity alice({kAlice, kAlice});
    EXPECT_EQ(Claim(), "z");
    EXPECT_EQ(Claim(), "");
  }
  Put("zz.cmd", kAlice);
  std::vector<std::string> claimed;
  for (int i = 0; i < 1000; ++i) claimed.push_back(Claim());
  EXPECT_EQ(std::ranges::count(claimed, "zz"), 1);
  EXPECT_EQ(std::ranges::count(claimed, ""), 1000 - 150 - 250 - 1);
  EXPECT_EQ(std::ranges::count_if(
                root_.SpoolNames(),
                [](const auto& name) { return name.ends_with(".cmd"); }),
            200);
  // They stand for no work that waits: an old directory is left alone.
  for (int i = 0; i < 3; ++i) {
    SetTime({1000, 0});
    EXPECT_EQ(Claim(), "");
  }
  Put("late.cmd", kAlice);
  SetTime({1000, 0});
  EXPECT_EQ(Claim(), "");
  utimensat(AT_FDCWD, dir(), nullptr, 0);
  EXPECT_EQ(Claim(), "late");
  // Each is told once.
  const std::string log = Log();
  const std::string line = "file x" + longest + "150.cmd: File name too long\n";
  EXPECT_NE(log.find(line), log.npos);
  EXPECT_EQ(log.find(line), log.rfind(line));
}

TEST_F(Traps, FloodOfOneKeepsNobodyOut) {
  for (int i = 100; i < 500; ++i) Put(std::to_string(i) + ".cmd", kMallory);
  for (const char* name : {"a.cmd", "b.cmd"}) Put(name, kAlice);
  std::vector<std::string> claimed;
  for (int i = 0; i < 12; ++i) claimed.push_back(Claim());
  EXPECT_TRUE(std::ranges::is_sorted(claimed));
  EXPECT_EQ(claimed[10], "a");
  EXPECT_EQ(claimed[11], "b");
  // The rest in lists as long as ever.
  int count = 12;
  for (int calls = 0; calls < 1000; ++calls) count += Claim().empty() ? 0 : 1;
  EXPECT_EQ(count, 402);
}

TEST_F(Traps, WhoHasHisShareOfTheWorkersIsPassedOver) {
  const auto share = [&] {
    subtask_init(5);  // four workers, two for each
    const auto add = [](pid_t pid) {
      subtask_add(pid, -1, kRunning);
      subtask_set_owner(pid, kMallory);
    };
    add(1000001);
    add(1000002);
    for (const char* name : {"a.cmd", "b.cmd", "d.cmd"}) Put(name, kMallory);
    Put("c.cmd", 0);  // root has no share to have had
    Put("e.cmd", kAlice);
    std::string order;
    for (int i = 0; i < 5; ++i) {
      if (i == 3) subtask_del(1000001, 0);
      order += Claim();
    }
    // The last worker is never one user's who has all the others.
    add(1000003);
    add(1000004);
    Put("f.cmd", kMallory);
    order += Claim() + Claim();  // the list before has ended
    if (sx_ready_held()) order += "held";
    Put("g.cmd", kAlice);
    order += Claim();
    subtask_del(1000003, 0);
    order += Claim();
    EXPECT_EQ(order, "ceabdheldgf");
    return HasFailure() ? 1 : 0;
  };
  EXPECT_EQ(InChild(share), 0);
}

TEST_F(Traps, ResponseTakesItsPlace) {
  const auto put = [this](const char* name, uid_t owner) {
    return [=, this] { Put(name, owner, "trap"); };
  };
  const auto put_dir = [this](const char* name) {
    return [=, this] { PutDir(name, kMallory); };
  };
  static constexpr char kTmp[] = "0007-001.tmp", kRsp[] = "0007-001.rsp";
  const std::tuple<const char*, std::function<void()>, const char*, long>
      cases[] = {
          {"directory at .tmp", put_dir(kTmp), kRsp, 1},
          {"directory at .rsp", put_dir(kRsp), kRsp, 1},
          {"file at .tmp, perhaps an answer", put(kTmp, kMallory), kRsp, 1},
          {"own file at .tmp", put(kTmp, kAlice), kRsp, 0},
          {"link at .rsp",
           [this] { symlink("/etc/hosts", Path(kRsp).c_str()); }, kRsp, 0},
          {"fifo at .rsp", [this] { mkfifo(Path(kRsp).c_str(), 0666); }, kRsp,
           0},
          {"answer of before", put(kRsp, kAlice), kRsp, 0},
          {"another's answer", put(kRsp, kMallory), kTmp, 1},
      };
  for (const auto& [what, lay, name, others] : cases) {
    SCOPED_TRACE(what);
    lay();
    const kx::Object cmd = Read(Command("cmd-noop", 7, 1), kAlice);
    EXPECT_EQ(sx_rsp(dir(), Response(7, 1).get(), 0), 0);
    EXPECT_EQ(Look(name).st_uid, kAlice);
    EXPECT_TRUE(S_ISREG(Look(name).st_mode));
    EXPECT_NE(ReadFile(Path(name)).find("reference=1\n"), std::string::npos);
    EXPECT_EQ(root_.SpoolNames().size(), 1U + others);
    for (const auto& left : root_.SpoolNames()) {
      std::filesystem::remove_all(Path(left));
    }
  }
  EXPECT_NE(Log().find("that belongs to uid 61001\n"), std::string::npos);
  // Only root can move what is another's there: it is gone around.
  PutDir(kTmp, kMallory);
  chmod(dir(), 01777);
  const FileIdentity alice({kAlice, kAlice});
  EXPECT_EQ(sx_rsp_to(dir(), Response(7, 1).get(), 0, 0), 0);
  EXPECT_EQ(root_.SpoolNames(), (std::vector<std::string>{kRsp, kTmp}));
}

TEST_F(Traps, LateResponseIsItsReceivers) {
  const kx::Object first = Read(Command("cmd-noop", 7, 1), kAlice);
  const std::string late = root_ / "late";
  EXPECT_EQ(rsp_write(late.c_str(), Response(7, 1).release(), 0), 1);
  const kx::Object second = Read(Command("cmd-noop", 8, 1), kMallory);
  std::filesystem::create_directory(late);
  EXPECT_EQ(rsp_check(3), -1);
  EXPECT_EQ(Look("../../late/0007-001.rsp").st_uid, kAlice);
}

TEST_F(Traps, CopiesAreKeptInAFolderOfTheDaemonsOwn) {
  const auto make = [this](uid_t owner, gid_t group, mode_t mode) {
    return [=, this] {
      mkdir(Path("save").c_str(), 0700);
      EXPECT_EQ(chown(Path("save").c_str(), owner, group), 0);
      chmod(Path("save").c_str(), mode);
    };
  };
  const std::string victim = root_ / "victim";
  WriteFile(victim, "untouched");
  std::filesystem::create_directory(root_ / "elsewhere");
  const std::tuple<const char*, std::function<void()>, bool> cases[] = {
      {"none", [] {}, true},
      {"own", make(0, 0, 02755), true},
      {"open to its group", make(0, 0, 02770), false},
      {"a client's", make(kMallory, 0, 0700), false},
      {"open to all", make(0, 0, 01777), false},
      {"open to a foreign group", make(0, kMallory, 0770), false},
      {"link",
       [this] { symlink((root_ / "elsewhere").c_str(), Path("save").c_str()); },
       false},
      {"links in it",
       [&, this] {
         make(0, 0, 0700)();
         link(victim.c_str(), Path("save/0005-012.cmd").c_str());
         symlink(victim.c_str(), Path("save/0005-012.rsp").c_str());
       },
       true},
  };
  for (const auto& [what, lay, kept] : cases) {
    SCOPED_TRACE(what);
    lay();
    EXPECT_NE(Read(Command("cmd-state", 5, 12), kAlice, 1), nullptr);
    EXPECT_EQ(sx_rsp(dir(), Response(5, 12).get(), 1), 0);
    for (const char* name : {"save/0005-012.cmd", "save/0005-012.rsp"}) {
      EXPECT_EQ(Look(name).st_uid, kept ? kAlice : 0U);
      EXPECT_EQ(Look(name).st_mode, kept ? S_IFREG | 0600U : 0U);
    }
    std::filesystem::remove_all(Path("save"));
  }
  EXPECT_EQ(ReadFile(victim), "untouched");
  EXPECT_TRUE(std::filesystem::is_empty(root_ / "elsewhere"));
}

}  // namespace
