#include <gtest/gtest.h>

#include "faxserver/fsdmnlst.h"
#include "support/peers.h"

namespace {

using Register = FaxTest;

constexpr char kList[] = "krtnet/krtnet.lck";

std::string Line(pid_t pid, const std::string& name) {
  return std::to_string(pid) + ":" + name + "\n";
}

TEST_F(Register, MissingListIsNoDaemon) {
  EXPECT_EQ(fx_chk_daemon_list(root.root(), "d"), -1);
  EXPECT_EQ(fx_kill_daemons(root.root(), "d"), -1);
  EXPECT_EQ(fx_upd_daemon_list(root.root(), "d"), 0);
  EXPECT_EQ(fx_chk_daemon_list(root.root(), "d"), 0);
  EXPECT_EQ(fx_add_daemon_list((root / "none").c_str(), "d", 1), -1);
}

TEST_F(Register, FirstLivingEntryOfTheNameIsFound) {
  const pid_t dead = DeadPid();
  const LivePid alive;
  fx_add_daemon_list(root.root(), "d", dead);
  fx_add_daemon_list(root.root(), "dd", getpid());
  fx_add_daemon_list(root.root(), "d", alive.get());
  fx_add_daemon_list(root.root(), "d", getpid());
  EXPECT_EQ(ReadFile(root / kList), Line(dead, "d") + Line(getpid(), "dd") +
                                        Line(alive.get(), "d") +
                                        Line(getpid(), "d"));
  EXPECT_EQ(fx_chk_daemon_list(root.root(), "d"), alive.get());
  EXPECT_EQ(fx_chk_daemon_list(root.root(), "x"), 0);
}

TEST_F(Register, RewriteKeepsTheOthersThatLive) {
  // Who may not signal the first of all processes sees that it runs.
  const std::string keep =
      Line(getpid(), "keep") + Line(getpid(), "k:2") + Line(1, "first");
  root.Put(kList, Line(getpid(), "gone") + Line(DeadPid(), "keep") + keep +
                      "-1:keep\n0:keep\nno colon\n" + Line(getpid(), "never"));
  ASSERT_EQ(fx_upd_daemon_list(root.root(), "gone"), 0);
  EXPECT_EQ(ReadFile(root / kList), keep);
  EXPECT_EQ(fx_chk_daemon_list(root.root(), "first"), geteuid() == 0 ? 1 : 0);
  EXPECT_EQ(PermsOf(root / kList), 0664u);
}

TEST_F(Register, StopsEveryDaemonOfTheNameAndNobodyElse) {
  LivePid first, second, other;
  // "0" and "-1" would be groups of processes, this one among them.
  root.Put(kList, "0:d\n-1:d\n:d\nxyz:d\n" + Line(first.get(), "d") +
                      Line(other.get(), "e") + "  " + Line(second.get(), "d "));
  const std::string before = ReadFile(root / kList);
  ASSERT_EQ(fx_kill_daemons(root.root(), "d"), 0);
  EXPECT_EQ(first.Wait(), SIGTERM);
  EXPECT_EQ(second.Wait(), SIGTERM) << "surrounding blanks do not count";
  EXPECT_EQ(kill(other.get(), 0), 0);
  EXPECT_EQ(ReadFile(root / kList), before);
}

}  // namespace
