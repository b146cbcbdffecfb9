// Each test runs in a child of its own: there is one table a process.
#include "daemon/subtask.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "daemon/signals.h"
#include "daemon/spool/logfile.h"
#include "daemon/spool/settings.h"
#include "support/sample_root.h"

namespace {

using support::Eventually;

// Runs `body` in a child; whether it returned true. Its log goes to `log`.
bool InChild(const std::function<bool()>& body, std::string* log = nullptr) {
  const support::SampleRoot root;
  const pid_t pid = fork();
  if (pid == 0) {
    dmn_log_open((root.path() / "log").c_str(), 0, 0);
    _exit(body() ? 0 : 1);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  if (log != nullptr) *log = ReadFile(root.path() / "log");
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

pid_t ForkSleeper(bool deaf = false) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  if (deaf) signal(SIGTERM, SIG_IGN);
  for (;;) pause();
}

bool Gone(pid_t pid) { return kill(pid, 0) != 0; }

TEST(Subtask, UseBeforeAndSecondInitAreLogged) {
  std::string log;
  EXPECT_TRUE(InChild(
      [] {
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
      },
      &log));
  EXPECT_NE(log.find("SUBTASK: Subtask table not initialized\n"),
            std::string::npos);
  EXPECT_NE(log.find("SUBTASK: init called more than once\n"),
            std::string::npos);
}

TEST(Subtask, ForcedSweepKillsAndCollectsEvenTheDeaf) {
  EXPECT_TRUE(InChild([] {
    signals_install(true);
    subtask_init(20);
    const pid_t deaf = ForkSleeper(true);
    const pid_t other = ForkSleeper();
    for (const pid_t pid : {deaf, other}) {
      subtask_add(pid, -1, kRunning);
      subtask_cnt = subtask_cnt + 1;
    }
    subtask_add(1000001, -1, kFinished);
    subtask_sweep(1);
    return Gone(deaf) && Gone(other) && subtask_cnt == 0 &&
           subtask_del(1000001, 0) == -1;
  }));
}

TEST(Subtask, YoungWorkersSurviveAnUnforcedSweep) {
  EXPECT_TRUE(InChild([] {
    subtask_init(4);
    const pid_t pid = ForkSleeper();
    subtask_add(pid, -1, kRunning);
    subtask_sweep(0);
    const bool alive = !Gone(pid);
    kill(pid, SIGKILL);
    return alive && subtask_del(pid, 0) == 0;
  }));
}

TEST(Subtask, WaitEndsWhenAWorkerDoes) {
  EXPECT_TRUE(InChild([] {
    signals_install(true);
    subtask_init(2);  // one worker at a time
    for (int i = 0; i < 200; ++i) {
      if (subtask_wait() != 0) return false;
      const SubtaskGuard guard;
      const pid_t pid = fork();
      if (pid == 0) _exit(0);
      subtask_add(pid, -1, kRunning);
      subtask_cnt = subtask_cnt + 1;
    }
    return Eventually([] { return subtask_cnt == 0; });
  }));
}

// Signals merge: fifty children that end at once are fewer than fifty signals.
TEST(Subtask, EveryEndedChildIsCollectedWithoutNoise) {
  std::string log;
  EXPECT_TRUE(InChild(
      [] {
        signals_install(true);
        subtask_init(60);
        for (int round = 0; round < 20; ++round) {
          const SubtaskGuard guard;
          for (int i = 0; i < 50; ++i) {
            const pid_t pid = fork();
            if (pid == 0) _exit(0);
            subtask_add(pid, -1, kRunning);
            subtask_cnt = subtask_cnt + 1;
          }
        }
        return Eventually([] { return subtask_cnt == 0; }) &&
               waitpid(-1, nullptr, WNOHANG) == -1;
      },
      &log));
  EXPECT_EQ(log, "");
}

TEST(Subtask, AWorkerThatEndedBeforeItWasAddedIsDropped) {
  std::string log;
  EXPECT_TRUE(InChild(
      [] {
        subtask_init(4);
        const pid_t pid = fork();
        if (pid == 0) _exit(0);
        siginfo_t info;
        waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
        catch_cld(SIGCHLD);  // records it as finished
        subtask_add(pid, -1, kRunning);
        subtask_sweep(1);
        catch_cld(SIGCHLD);  // nothing left to collect
        return subtask_del(pid, 0) == -1;
      },
      &log));
  EXPECT_NE(log.find("Error in catch_cld routine: No child processes\n"),
            std::string::npos);
}

}  // namespace
