// Books in the folders of users: whose their files are, what their owners can
// do to the rest of the world with them, and for how long.
#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>

#include "book.h"
#include "cm/cmlimits.h"
#include "isam/issys.h"
#include "support/accounts.h"
#include "support/child.h"
#include "util/kutident.h"
#include "util/kutio.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kFax = 64101, kAlice = 64102, kBob = 64103, kNobody = 64109;
constexpr uid_t kUsers = 64110;  // a group of all users

int (*g_open)(const char*, int, mode_t);
std::string g_strange;  // files that had another owner at first

// Opens as the store does, and looks whose the file is.
int Watch(const char* path, int flags, mode_t mode) {
  const int fd = g_open(path, flags, mode);
  struct stat st;
  if (fd >= 0 && fstat(fd, &st) == 0 && st.st_uid == 0 && S_ISREG(st.st_mode)) {
    g_strange += std::string(path) + " ";
  }
  return fd;
}

class Owner : public testing::Test {
 protected:
  Owner()
      : accounts_(
            "krtfax:x:64101:64101::/:/bin/sh\n"
            "alice:x:64102:64102::/:/bin/sh\n"
            "bob:x:64103:64110::/:/bin/sh\n",
            "krtfax:x:64101:\nalice:x:64102:\nusers:x:64110:\n") {
    setenv("KFAXDIR", root_.path().c_str(), 1);
    Kut_env_reset();
  }
  void SetUp() override {
    SKIP_WITHOUT_ACCOUNTS(accounts_);
    umask(022);
    Lay("", kFax, kFax, 0755);
    Lay("faxq", kFax, kFax, 0755);
    Lay("faxq/alice", kAlice, kFax, 02770);
    Lay("faxq/bob", kBob, kUsers, 0755);
    Lay("faxq/ghost", kNobody, kFax, 02770);
    g_open = isam::g_sys.open;
    isam::g_sys.open = Watch;
  }
  void TearDown() override {
    if (g_open != nullptr) isam::g_sys.open = g_open;
    EXPECT_EQ(g_strange, "");
    EXPECT_EQ(geteuid(), 0U);
  }
  void Lay(const std::string& name, uid_t uid, gid_t gid, mode_t mode) const {
    const std::string path = root_ / name;
    fs::create_directories(path);
    ASSERT_EQ(chown(path.c_str(), uid, gid), 0);
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
  }
  // "uid:gid mode" of a file.
  std::string Is(const std::string& name) const {
    const struct stat st = StatusOf(root_ / name);
    if (st.st_nlink == 0) return "none";
    char text[40];
    std::snprintf(text, sizeof text, "%u:%u %o", st.st_uid, st.st_gid,
                  st.st_mode & 07777);
    return text;
  }

  const OwnAccounts accounts_;
  TempDir root_;
};

TEST_F(Owner, ABookIsTheFoldersOwnersFromItsFirstByte) {
  const struct {
    const char *client, *type, *folder, *made, *files;
  } kBooks[] = {
      {"alice", "usr", "faxq/alice/options", "64102:64101 2770",
       "64102:64101 660"},
      {"bob", "usr", "faxq/bob/options", "64103:64110 755", "64103:64110 600"},
      {"ghost", "usr", "faxq/ghost/options", "64109:64101 2770",
       "64109:64101 660"},
      {"newcomer", "usr", "faxq/newcomer/options", "64101:64101 755",
       "64101:64101 660"},
      {"alice", "sys", ".", "64101:64101 755", "64101:64101 660"},
  };
  for (const auto& book : kBooks) {
    SCOPED_TRACE(std::string(book.client) + " " + book.folder);
    Client client(book.client);
    client.Set({{"pbtype", std::string("pbt-") + book.type}});
    client.Talk("create\npersons a\nlstper rcmd=pbc-first => [a]");
    EXPECT_EQ(Is(book.folder), book.made);
    for (const char* name : {"/pbper.dat", "/pbper.idx", "/pbmem.idx"}) {
      EXPECT_EQ(Is(book.folder + std::string(name)), book.files) << name;
    }
  }
  // Whoever repairs other people's books does it as they.
  pb_setup("alice", root_.path().c_str(), nullptr);
  fs::remove(root_ / "faxq/alice/options/pbper.idx");
  EXPECT_EQ(pb_check(kx_pbt_usr, "pbper", nullptr, nullptr), -1);
  EXPECT_EQ(pb_repair(kx_pbt_usr, "pbper", nullptr, nullptr), 0);
  EXPECT_EQ(pb_check(kx_pbt_usr, "pbper", nullptr, nullptr), 0);
  EXPECT_EQ(Is("faxq/alice/options/pbper.idx"), "64102:64101 660");
  // A later daemon that is not root goes on with it through the group.
  EXPECT_EQ(InChild([] {
              if (setgroups(0, nullptr) != 0 || setgid(kFax) != 0 ||
                  setuid(kFax) != 0) {
                return 2;
              }
              Client client;
              client.Talk("persons b\nlstper rcmd=pbc-first => [a b]\ndelete");
              return HasFailure() ? 1 : 0;
            }),
            0);
  EXPECT_EQ(Is("faxq/alice/options/pbper.dat"), "none");
}

TEST_F(Owner, AFolderLeadsNowhereItsOwnerCouldNotGo) {
  const std::string mine = root_ / "faxq/alice/options";
  const std::string bobs = root_ / "faxq/bob/options";
  const std::string secret = root_ / "secret";
  Client alice;
  Client bob("bob");
  bob.Talk("create\npersons b");
  constexpr char kNoBook[] = "open => 38\ncreate => 40\ndelete => 29";
  const struct {
    const char* what;
    std::function<void()> lay;
    const char* comes;
  } kTraps[] = {
      {"a link to a foreign folder", [&] { fs::create_symlink(secret, mine); },
       kNoBook},
      {"a link to another's options", [&] { fs::create_symlink(bobs, mine); },
       kNoBook},
      {"a fifo", [&] { ASSERT_EQ(mkfifo(mine.c_str(), 0666), 0); }, kNoBook},
      {"a foreign folder", [&] { fs::rename(secret, mine); },
       "open => 29\ncreate => 29\ndelete => 29"},
      {"tables of another",
       [&] {
         fs::create_directory(mine);
         for (const auto& file : fs::directory_iterator(bobs)) {
           fs::create_hard_link(file, mine / file.path().filename());
         }
       },
       "open => 29\ncreate => 29"},
  };
  for (const auto& trap : kTraps) {
    SCOPED_TRACE(trap.what);
    fs::remove_all(mine);
    Lay("secret", 0, 0, 0700);
    trap.lay();
    alice.Talk(trap.comes);
    EXPECT_TRUE(!fs::exists(secret) || fs::is_empty(secret));
    EXPECT_TRUE(!fs::is_directory(mine) ||
                Is("faxq/alice/options") != "0:0 700" || fs::is_empty(mine));
  }
  bob.Talk("lstper rcmd=pbc-first => [b]");
}

// All the bytes that anybody locks, of both files of each table.
std::vector<UniqueFd> LockAll(const std::string& folder) {
  std::vector<UniqueFd> held;
  for (const auto& file : fs::directory_iterator(folder)) {
    if (!file.is_regular_file()) continue;
    held.emplace_back(Kut_open(file.path().c_str(), O_RDWR));
    struct flock range = {};
    range.l_type = F_WRLCK;
    range.l_start = off_t{1} << 62;
    EXPECT_EQ(fcntl(held.back().get(), F_OFD_SETLK, &range), 0);
  }
  return held;
}

TEST_F(Owner, LocksHeldForEverHoldNobodyUp) {
  ASSERT_EQ(cm_set_limits("book-wait=300"), nullptr);
  Client alice;
  alice.Talk("create\npersons a\ngroup g");
  auto held = LockAll(root_ / "faxq/alice/options");
  const auto begin = std::chrono::steady_clock::now();
  alice.Talk(R"(
peradd | palias=b => 29
perupd | palias=a fname=x => 29
perdel pbkey=a => 29
memadd | galias=g palias=a => 29
perget rcmd=pbc-alias pbkey=a
)");
  // Whoever dies in a commit leaves a table that readers lock; and an index
  // without its table has its creator wait.
  for (const char* table : {"pbper", "pbgrp", "pbmem"}) {
    const std::string idx = root_ / "faxq/alice/options/" + table + ".idx";
    const UniqueFd fd(Kut_open(idx.c_str(), O_RDWR));
    EXPECT_EQ(Kut_pwrite_full(fd.get(), "torn", 4, 2048), 0);
  }
  alice.Talk(R"(
perget rcmd=pbc-alias pbkey=a => 29
cntper pbbeg=a pbend=b => 29
)");
  fs::resize_file(root_ / "faxq/alice/options/pbper.dat", 0);
  alice.Talk("create => 29");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

// The system's book is locked by the fax system alone, and waited for.
TEST_F(Owner, TheSystemsBookIsWaitedFor) {
  Client alice;
  alice.Talk("create pbtype=pbt-sys");
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t pid = BeginChild([&] {
    const auto held = LockAll(root_.path());
    if (write(ready[1], "", 1) != 1) return 2;
    usleep(900'000);  // so long they are kept
    return HasFailure() ? 1 : 0;
  });
  char byte;
  EXPECT_EQ(read(ready[0], &byte, 1), 1);
  alice.Talk("persons a");
  EXPECT_EQ(Reaped(pid), 0);
}

}  // namespace
