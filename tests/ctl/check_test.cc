// check: what it finds, and what it repairs.
#include "ctl/check/check.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <utime.h>

#include "cm/cmkrt.h"
#include "support/accounts.h"
#include "support/ctl.h"

namespace {

using ctl::Server;
using support::Exit;

// The findings that are not "ok", but for what this machine may lack: the fax
// system's user, the processes of the rest of the fax server, and settings.
std::string Troubles(const Exit& end) {
  std::string found;
  for (size_t at = 0; at < end.out.size();) {
    const size_t next = end.out.find('\n', at) + 1;
    const std::string line = end.out.substr(at, next - at);
    at = next;
    if (line.find("krtfax") == line.npos &&
        line.find("start the") == line.npos &&
        line.find("fs.protected") == line.npos) {
      found += line;
    }
  }
  return found;
}

std::string Check(const Server& server, const std::string& options = "") {
  return Troubles(server.Shell("krtctl check -q " + options));
}

TEST(Check, MissingFoldersAreMadeAndOpenOnesNamed) {
  const Server server;
  const std::string spool = server.root().spool();
  std::filesystem::remove(server.Path("krtnet/queued"));
  std::filesystem::remove_all(spool);
  const std::string missing = " is missing; fix: krtctl check --fix\n";
  const Exit before = server.Run({"check", "-q", "--offline"});
  EXPECT_EQ(before.status, 1);
  EXPECT_EQ(Troubles(before), "FAIL  " + spool + missing + "FAIL  " +
                                  server.Path("krtnet/queued") + missing);
  EXPECT_EQ(Check(server, "--offline --fix"), "");
  EXPECT_EQ(PermsOf(spool), 02770U);
  const bool user = cm_get_krt_uid() >= 0 && cm_get_krt_gid() >= 0;
  const Exit after = server.Run({"check", "-q", "--offline"});
  EXPECT_EQ(Troubles(after), "");
  EXPECT_EQ(after.status, user ? 0 : 1);
  EXPECT_EQ(server.Run({"--root", "/nonexistent", "check", "-q"}).status, 1);
}

TEST(Check, DirectoriesThatLetStrangersInAreNamed) {
  const OwnAccounts accounts;
  SKIP_WITHOUT_ACCOUNTS(accounts);
  const Server server;
  // As it is laid out again, nothing is wrong with it.
  for (const char* dir : {"krtnet", "faxq", "Covers", "temp"}) {
    std::filesystem::remove_all(server.Path(dir));
  }
  server.Run({"check", "--offline", "--fix", "-q"});
  const auto said = [&] {
    return server.Run({"check", "--offline", "-q"}).out;
  };
  EXPECT_EQ(said(), "");
  const struct {
    const char* dir;
    mode_t mode;
    uid_t uid;
    gid_t gid;
    std::string finding;
  } kCases[] = {
      {"Covers", 0777, 0, 0,
       "FAIL  * can be written by everybody; fix: chmod 0755 *\n"},
      {"Covers", 01777, 0, 0,
       "FAIL  * can be written by everybody; fix: chmod 0755 *\n"},
      {"Covers", 0775, 0, kKrtfax,
       "warn  * can be written by its group; fix: chmod g-w *\n"},
      {"Covers", 0755, kMallory, 0,
       "warn  * belongs to mallory; fix: chown root *\n"},
      {"Covers", 0755, kKrtfax, kKrtfax, ""},
      {"krtnet", 0755, kMallory, kKrtfax,
       "warn  * belongs to mallory; fix: chown krtfax *\n"},
      {"krtnet/filspool", 02775, kKrtfax, kKrtfax,
       "warn  * can be entered by everybody; fix: chmod o-rwx *\n"},
      {"krtnet/filspool", 02777, kKrtfax, kKrtfax,
       "FAIL  * can be written by everybody; fix: chmod 2770 *\n"},
      {"krtnet/filspool", 03777, kKrtfax, kKrtfax, ""},
      {"krtnet/filspool", 02750, kKrtfax, kKrtfax,
       "warn  * is not open to its group; fix: chmod g+rwx *\n"},
      {"krtnet/filspool", 02770, kKrtfax, 0,
       "warn  * does not belong to the group krtfax; fix: chgrp krtfax *\n"},
      {"", 0777, kKrtfax, kKrtfax,
       "FAIL  * can be written by everybody; fix: chmod 0755 *\n"},
  };
  for (const auto& c : kCases) {
    const std::string path =
        *c.dir != '\0' ? server.Path(c.dir) : server.root().root();
    struct stat before;
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    ASSERT_EQ(chown(path.c_str(), c.uid, c.gid), 0);
    ASSERT_EQ(chmod(path.c_str(), c.mode), 0);
    std::string expected = c.finding;
    for (size_t at; (at = expected.find('*')) != expected.npos;) {
      expected.replace(at, 1, path);
    }
    EXPECT_EQ(said(), expected) << std::oct << c.mode;
    ASSERT_EQ(chown(path.c_str(), before.st_uid, before.st_gid), 0);
    ASSERT_EQ(chmod(path.c_str(), before.st_mode & 07777), 0);
  }
}

TEST(Check, WhatLiesAboutIsFoundAndRepaired) {
  Server server;
  server.Start();
  const auto spool = server.root().spool();
  // What was alive when the daemon registered and is dead now.
  const std::string reg = server.Path("krtnet/krtnet.lck");
  WriteFile(reg, ReadFile(reg) + "999999998:krtcmd\n");
  const utimbuf old = {1, 1};
  const std::string command = support::Command("cmd-noop", 1, 2);
  WriteFile(spool / "0001-002.999999999", command);
  WriteFile(spool / "0001-003.rsp", command);
  WriteFile(spool / "0001-004.tmp", command);
  for (const char* name :
       {"0001-002.999999999", "0001-003.rsp", "0001-004.tmp"}) {
    utime((spool / name).c_str(), &old);
  }
  WriteFile(server.Path("krtnet/sessions/0042.ctl"), "3\n");
  WriteFile(server.Path("krtnet/sessions/0043.ctl"), "3\n");
  const int held =
      open(server.Path("krtnet/sessions/0043.ctl").c_str(), O_RDWR | O_CLOEXEC);
  flock(held, LOCK_EX);

  const std::string found = Check(server);
  for (const char* line :
       {"warn  register of daemons: dead entries 999999998:krtcmd; fix: krtctl "
        "check --fix\n",
        "warn  abandoned command 0001-002.999999999; fix: krtctl check --fix, "
        "or remove it\n",
        " old; fix: krtctl collect 0001-003\n",
        "warn  1 session numbers are left over; fix: krtctl check --fix\n"}) {
    EXPECT_NE(found.find(line), found.npos) << line << found;
  }
  EXPECT_NE(found.find("warn  0001-004.tmp is "), found.npos) << found;

  // Without a terminal nobody can be asked, so the command stays.
  server.Run({"check", "--fix"});
  EXPECT_TRUE(std::filesystem::exists(spool / "0001-002.999999999"));
  server.Run({"check", "--fix", "--yes"});
  EXPECT_NE(server.root().Response("0001-002"), "");
  EXPECT_EQ(ReadFile(reg).find("999999998"), std::string::npos);
  EXPECT_FALSE(
      std::filesystem::exists(server.Path("krtnet/sessions/0042.ctl")));
  EXPECT_TRUE(std::filesystem::exists(server.Path("krtnet/sessions/0043.ctl")));
  close(held);
}

// A claim lives for a moment. Who has it, and since when, tells whether it was
// left behind.
TEST(Check, ClaimIsAbandonedByTheDeadAndAfterAMinuteByTheLiving) {
  const long gone = 999999999;
  const struct {
    long pid;
    time_t since;
    bool abandoned;
  } kCases[] = {{getpid(), 0, false}, {getpid(), 59, false}, {1, 0, false},
                {getpid(), 60, true}, {1, 3600, true},       {gone, 0, true},
                {gone, 3600, true}};
  for (const auto& c : kCases) {
    EXPECT_EQ(client::IsAbandonedClaim(c.pid, c.since), c.abandoned)
        << c.pid << " " << c.since;
  }
}

TEST(Check, PuttingBackOverwritesNothing) {
  const Server server;
  const auto spool = server.root().spool();
  WriteFile(spool / "0001-002.999999999", "first");
  WriteFile(spool / "0001-002.cmd", "second");
  EXPECT_NE(
      Troubles(server.Run({"check", "-q", "--fix", "--yes"}))
          .find("FAIL  abandoned command 0001-002.999999999: File exists"),
      std::string::npos);
  EXPECT_EQ(support::ReadFile(spool / "0001-002.999999999"), "first");
  EXPECT_EQ(support::ReadFile(spool / "0001-002.cmd"), "second");
}

TEST(Check, DamagedPhoneBookIsFoundAndMadeAnew) {
  Server server;
  server.Start();
  ASSERT_EQ(server.Run({"pb", "init"}).status, 0);
  ASSERT_EQ(server.Run({"pb", "add", "palias=a", "lname=b"}).status, 0);
  EXPECT_EQ(Check(server), "");
  const std::string index = server.Queue("options/pbper.idx");
  ctl::Damage(index);
  const Exit end = server.Run({"check", "-q"});
  EXPECT_EQ(end.status, 1);
  EXPECT_NE(Troubles(end).find("FAIL  " + server.Queue("options/pbper.dat")),
            std::string::npos)
      << end.out;
  // The records are whole, so the indexes can be made from them.
  EXPECT_NE(Check(server, "--fix"), "");
  EXPECT_EQ(Check(server, "--fix --yes"), "");
  EXPECT_EQ(Check(server), "");
  EXPECT_EQ(server.Run({"pb", "show", "a"}).status, 0);
}

}  // namespace
