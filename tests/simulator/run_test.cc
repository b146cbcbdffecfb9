// krtsim among the other processes of a machine: what it takes, what it refuses
// to take, and that it leaves all as it was.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include "faxserver/fsdmnlst.h"
#include "faxserver/fsefifo.h"
#include "faxserver/fsshm.h"
#include "simulator/sim_root.h"
#include "support/own_ipc.h"
#include "support/simulator_process.h"

namespace {

using support::Exit;
using support::RunProgram;
using support::SimulatorProcess;

TEST(Run, StopLeavesEverythingAsItWas) {
  OwnIpc ipc;
  SKIP_WITHOUT(ipc);
  const SimRoot root;
  // One fifo has to be made, and is removed again.
  std::filesystem::remove(root.Path("krtnet/netspool/efifo"));
  WriteFile(root.Path("krtnet/krtnet.lck"),
            std::to_string(getpid()) + ":other\n");
  const auto before = root.Tree();
  for (const int sig : {SIGTERM, SIGINT, SIGHUP}) {
    SimulatorProcess sim(KRTSIM_PATH, root);
    EXPECT_TRUE(fx_is_sched_running(""));
    EXPECT_EQ(fx_get_num_modems(""), 2);
    EXPECT_EQ(fx_chk_daemon_list(root.root(), "krtnet.fil"), sim.pid());
    EXPECT_EQ(fx_chk_daemon_list(root.root(), "krtnet.net"), sim.pid());
    fx_shm_detach();
    EXPECT_EQ(sim.Stop(sig), 0) << sig;
    EXPECT_EQ(shmget(kFxShmKey, 0, 0), -1) << sig;
    EXPECT_EQ(ReadFile(root.Path("krtnet/krtnet.lck")),
              std::to_string(getpid()) + ":other\n");
    EXPECT_EQ(root.Tree(), before) << sig;
  }
}

TEST(Run, LiveSchedulerAndDaemonsAreLeftAlone) {
  OwnIpc ipc;
  SKIP_WITHOUT(ipc);
  const SimRoot root;
  const std::string self = std::to_string(getpid());
  ASSERT_EQ(fx_creat_stat_shm("another", 1), 0);
  const int id = shmget(kFxShmKey, 0, 0);
  Exit end = RunProgram(KRTSIM_PATH, {"run", root.path()});
  EXPECT_EQ(end.status, 69);
  EXPECT_EQ(end.err,
            "krtsim: a scheduler runs on this machine, its segment made by "
            "process " +
                self + "\n");
  EXPECT_EQ(shmget(kFxShmKey, 0, 0), id);
  fx_rm_stat_shm("");

  fx_add_daemon_list(root.root(), "krtnet.net", getpid());
  const std::string list = ReadFile(root.Path("krtnet/krtnet.lck"));
  end = RunProgram(KRTSIM_PATH, {"run", root.path()});
  EXPECT_EQ(end.status, 69);
  EXPECT_EQ(end.err, "krtsim: krtnet.net runs already, process " + self + "\n");
  EXPECT_EQ(ReadFile(root.Path("krtnet/krtnet.lck")), list);
  EXPECT_EQ(shmget(kFxShmKey, 0, 0), -1);
  fx_upd_daemon_list(root.root(), "krtnet.net");

  const SimulatorProcess first(KRTSIM_PATH, root);
  end = RunProgram(KRTSIM_PATH, {"run", root.path()});
  EXPECT_EQ(end.status, 69);
  EXPECT_EQ(end.err,
            "krtsim: another krtsim serves " + root.path().string() + "\n");
}

TEST(Run, RemainsOfAKilledRunAreReplaced) {
  OwnIpc ipc;
  SKIP_WITHOUT(ipc);
  const SimRoot root;
  const auto before = root.Tree();
  {
    SimulatorProcess killed(KRTSIM_PATH, root);
    killed.Stop(SIGKILL);
  }
  EXPECT_NE(shmget(kFxShmKey, 0, 0), -1);
  SimulatorProcess sim(KRTSIM_PATH, root);
  EXPECT_EQ(sim.Stop(), 0);
  EXPECT_EQ(shmget(kFxShmKey, 0, 0), -1);
  EXPECT_EQ(root.Tree(), before);
}

TEST(Run, FolderThatIsNoRootIsNamed) {
  const Exit end = RunProgram(KRTSIM_PATH, {"run", "/nonexistent"});
  EXPECT_EQ(end.status, 78);
  EXPECT_EQ(end.err,
            "krtsim: /nonexistent/krtnet/filspool is no directory; krtsim "
            "init makes a root\n");
}

TEST(Run, EventsAreSaidByBothSessionDaemons) {
  OwnIpc ipc;
  SKIP_WITHOUT(ipc);
  const SimRoot root;
  SimulatorProcess sim(KRTSIM_PATH, root);
  const Exit end = RunProgram(KRTSIM_PATH, {"receive", root.path(), "bob"});
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_TRUE(
      sim.Await("krtnet.fil: event 2 for bob: received faxes changed\n"
                "krtnet.net: event 2 for bob: received faxes changed\n"));
}

TEST(Run, EndsByItselfWhenIdleAfterWork) {
  OwnIpc ipc;
  SKIP_WITHOUT(ipc);
  const SimRoot root;
  WriteFile(root.Path("krtnet/queued/0001-001"),
            support::Command("cmd-sendfax", 1, 1,
                             "respond=true\nobjptr=obj-senv\nobjbeg=obj-senv\n"
                             "tofnum=1\nobjend=obj-senv\nclientid=bob\n"));
  SimulatorProcess sim(KRTSIM_PATH, root, {"--exit-when-idle", "-d", "0.05"});
  std::string record(80, '\0');
  record.replace(0, 8, "0001-001");
  WriteFile(root.Path("krtnet/filspool/kfifo"), record);
  EXPECT_EQ(sim.Stop(0), 0);
  EXPECT_NE(sim.Said().find("request 1: over: Normal\n"), std::string::npos);
  EXPECT_NE(root.Response("0001-001"), "");
}

}  // namespace
