// krtsim among the other processes of a machine: what it takes, what it refuses
// to take, and that it leaves all as it was.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include "faxserver/fsdmnlst.h"
#include "faxserver/fsefifo.h"
#include "faxserver/fsshm.h"
#include "simulator/sim_root.h"
#include "support/objects.h"
#include "support/own_ipc.h"
#include "support/processes.h"

namespace {

using support::SimulatorProcess;

class Run : public testing::Test {
 protected:
  void SetUp() override { SKIP_WITHOUT(ipc_); }
  const OwnIpc ipc_;
  SimRoot root;
  const std::string register_ = root.Path("krtnet/krtnet.lck");
};

TEST_F(Run, StopLeavesEverythingAsItWas) {
  // One fifo has to be made, and is removed again.
  std::filesystem::remove(root.Path("krtnet/netspool/efifo"));
  WriteFile(register_, std::to_string(getpid()) + ":other\n");
  const auto before = root.Tree();
  for (const int sig : {SIGTERM, SIGINT, SIGHUP}) {
    SimulatorProcess sim(KRTSIM_PATH, root);
    EXPECT_TRUE(fx_is_sched_running(""));
    EXPECT_EQ(fx_get_num_modems(""), 2);
    EXPECT_EQ(fx_chk_daemon_list(root.root(), "krtnet.fil"), sim.pid());
    EXPECT_EQ(fx_chk_daemon_list(root.root(), "krtnet.net"), sim.pid());
    fx_shm_detach();
    if (sig == SIGHUP) {  // what happens is said by both session daemons
      EXPECT_EQ(SimRoot::Sim({"receive", root.path(), "bob"}).status, 0);
      EXPECT_TRUE(
          sim.Await("krtnet.fil: event 2 for bob: received faxes changed\n"
                    "krtnet.net: event 2 for bob: received faxes changed\n"));
      std::filesystem::remove(root.Path("faxq/bob/in-3.fax"));
    }
    EXPECT_EQ(sim.Stop(sig), 0) << sig;
    EXPECT_EQ(shmget(kFxShmKey, 0, 0), -1) << sig;
    EXPECT_EQ(ReadFile(register_), std::to_string(getpid()) + ":other\n");
    EXPECT_EQ(root.Tree(), before) << sig;
  }
}

TEST_F(Run, LiveSchedulerAndDaemonsAreLeftAlone) {
  const std::string self = std::to_string(getpid());
  ASSERT_EQ(fx_creat_stat_shm("another", 1), 0);
  const int id = shmget(kFxShmKey, 0, 0);
  const std::vector<std::string> run = {"run", root.path()};
  EXPECT_EQ(SimRoot::Refusal(69, run),
            "krtsim: a scheduler runs on this machine, its segment made by "
            "process " +
                self + "\n");
  EXPECT_EQ(shmget(kFxShmKey, 0, 0), id);
  fx_rm_stat_shm("");

  fx_add_daemon_list(root.root(), "krtnet.net", getpid());
  const std::string list = ReadFile(register_);
  EXPECT_EQ(SimRoot::Refusal(69, run),
            "krtsim: krtnet.net runs already, process " + self + "\n");
  EXPECT_EQ(ReadFile(register_), list);
  EXPECT_EQ(shmget(kFxShmKey, 0, 0), -1);
  fx_upd_daemon_list(root.root(), "krtnet.net");

  const SimulatorProcess first(KRTSIM_PATH, root);
  EXPECT_EQ(SimRoot::Refusal(69, run),
            "krtsim: another krtsim serves " + root.path().string() + "\n");
  EXPECT_EQ(SimRoot::Refusal(78, {"run", "/nonexistent"}),
            "krtsim: /nonexistent/krtnet/filspool is no directory; krtsim "
            "init makes a root\n");
}

TEST_F(Run, RemainsOfAKilledRunAreReplaced) {
  const auto before = root.Tree();
  SimulatorProcess(KRTSIM_PATH, root).Stop(SIGKILL);
  EXPECT_NE(shmget(kFxShmKey, 0, 0), -1);
  SimulatorProcess sim(KRTSIM_PATH, root);
  EXPECT_EQ(sim.Stop(), 0);
  EXPECT_EQ(shmget(kFxShmKey, 0, 0), -1);
  EXPECT_EQ(root.Tree(), before);
}

TEST_F(Run, EndsByItselfWhenIdleAfterWork) {
  root.Put("krtnet/queued/0001-001",
           support::Command("cmd-sendfax", 1, 1,
                            "respond=true\nclientid=bob\n" +
                                Argument("obj-senv", "tofnum=1\n")));
  SimulatorProcess sim(KRTSIM_PATH, root, {"--exit-when-idle", "-d", "0.05"});
  root.Put("krtnet/filspool/kfifo", "0001-001" + std::string(72, '\0'));
  EXPECT_EQ(sim.Stop(0), 0);
  EXPECT_NE(sim.Said().find("request 1: over: Normal\n"), std::string::npos);
  EXPECT_NE(root.Response("0001-001"), "");
}

}  // namespace
