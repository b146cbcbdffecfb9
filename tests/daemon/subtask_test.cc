// Each test runs in a child of its own: there is one table a process.
#include "daemon/subtask.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <functional>

#include "daemon/signals.h"
#include "daemon/spool/logfile.h"
#include "daemon/spool/settings.h"
#include "support/child.h"
#include "support/sample_root.h"

namespace {

using support::Eventually;

class Subtask : public testing::Test {
 protected:
  // Whether `body` returns true in a child, which logs to log().
  bool Holds(const std::function<bool()>& body) const {
    return InChild([&] {
             dmn_log_open((root_ / "log").c_str(), 0, 0);
             return body() ? 0 : 1;
           }) == 0;
  }
  std::string Log() const { return ReadFile(root_ / "log"); }

 private:
  const support::SampleRoot root_;
};

// Adds a worker that does `body`.
template <typename Body>
pid_t AddWorker(Body body) {
  const pid_t pid = BeginChild(body);
  subtask_add(pid, -1, kRunning);
  subtask_cnt = subtask_cnt + 1;
  return pid;
}

int End() { return 0; }

TEST_F(Subtask, UseBeforeAndSecondInitAreLogged) {
  EXPECT_TRUE(Holds([] {
    const bool before = subtask_add(5, -1, kRunning) == -1 &&
                        subtask_del(5, 0) == -1 && subtask_wait() == -1;
    return before && subtask_init(3) == 0 && subtask_init(9) == -1 &&
           subtask_add(1000001, -1, kRunning) == 0 &&
           subtask_add(1000002, -1, kRunning) == 0 &&
           subtask_add(1000001, -1, kRunning) == 0 &&
           subtask_add(1000003, -1, kRunning) == 0 &&
           subtask_add(1000004, -1, kRunning) == -1 &&
           subtask_del(1000009, 0) == -1 && subtask_del(0, 0) == -1 &&
           subtask_del(1000002, 0) == 0 &&
           subtask_add(1000004, -1, kRunning) == 0;
  }));
  for (const char* line : {"SUBTASK: Subtask table not initialized\n",
                           "SUBTASK: init called more than once\n"}) {
    EXPECT_NE(Log().find(line), std::string::npos) << line;
  }
}

TEST_F(Subtask, ForcedSweepKillsAndCollectsEvenTheDeaf) {
  EXPECT_TRUE(Holds([] {
    signals_install(true);
    subtask_init(20);
    const pid_t deaf = AddWorker([] {
      signal(SIGTERM, SIG_IGN);
      return pause();
    });
    const pid_t other = AddWorker(pause);
    subtask_sweep(0);  // those are young
    const bool kept = subtask_del(other, 0) == 0 && kill(other, 0) == 0;
    subtask_add(other, -1, kRunning);
    subtask_add(1000001, -1, kFinished);
    subtask_sweep(1);
    return kept && kill(deaf, 0) != 0 && kill(other, 0) != 0 &&
           subtask_cnt == 0 && subtask_del(1000001, 0) == -1;
  }));
}

TEST_F(Subtask, WaitEndsWhenAWorkerDoes) {
  EXPECT_TRUE(Holds([] {
    signals_install(true);
    subtask_init(2);  // one worker at a time
    for (int i = 0; i < 200; ++i) {
      if (subtask_wait() != 0) return false;
      const SubtaskGuard guard;
      AddWorker(End);
    }
    return Eventually([] { return subtask_cnt == 0; });
  }));
}

// Signals merge: fifty children that end at once are fewer than fifty signals.
TEST_F(Subtask, EveryEndedChildIsCollectedWithoutNoise) {
  EXPECT_TRUE(Holds([] {
    signals_install(true);
    subtask_init(60);
    for (int round = 0; round < 20; ++round) {
      const SubtaskGuard guard;
      for (int i = 0; i < 50; ++i) AddWorker(End);
    }
    return Eventually([] { return subtask_cnt == 0; }) &&
           waitpid(-1, nullptr, WNOHANG) == -1;
  }));
  EXPECT_EQ(Log(), "");
}

TEST_F(Subtask, AWorkerThatEndedBeforeItWasAddedIsDropped) {
  EXPECT_TRUE(Holds([] {
    subtask_init(4);
    const pid_t pid = BeginChild(End);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
    catch_cld(SIGCHLD);  // records it as finished
    subtask_add(pid, -1, kRunning);
    subtask_sweep(1);
    catch_cld(SIGCHLD);  // nothing left to collect
    return subtask_del(pid, 0) == -1;
  }));
  EXPECT_NE(Log().find("Error in catch_cld routine: No child processes\n"),
            std::string::npos);
}

}  // namespace
