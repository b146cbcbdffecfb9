#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <tuple>

#include "support/child.h"
#include "support/temp_dir.h"
#include "util/kutio.h"
#include "util/kutproc.h"

namespace {

struct Outcome {
  pid_t pid = -1;
  int status = -1;
  std::string output;
};

// Runs `what` to its end with its standard output caught.
Outcome RunToEnd(kut_spawn what) {
  int ends[2];
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  what.fds[1] = writer.get();
  Outcome outcome;
  outcome.pid = Kut_spawn(&what);
  const int error = errno;
  writer.reset();
  char buffer[4096];
  const ssize_t n = Kut_read_full(reader.get(), buffer, sizeof buffer);
  if (n > 0) outcome.output.assign(buffer, static_cast<size_t>(n));
  if (outcome.pid > 0) {
    EXPECT_EQ(Kut_wait_child(outcome.pid, &outcome.status), outcome.pid);
  }
  errno = error;
  return outcome;
}

Outcome RunShell(const char* command) {
  kut_spawn what;
  what.command = command;
  return RunToEnd(what);
}

TEST(Spawn, ArgumentsReachTheProgramUnchanged) {
  const char* const argv[] = {"printf", "%s|", "a b", "", "$HOME", nullptr};
  kut_spawn what;
  what.argv = argv;
  const Outcome outcome = RunToEnd(what);
  EXPECT_EQ(outcome.output, "a b||$HOME|");
  EXPECT_EQ(outcome.status, 0);
}

TEST(Spawn, StatusTellsExitFromSignal) {
  EXPECT_EQ(WEXITSTATUS(RunShell("exit 3").status), 3);
  const int killed = RunShell("kill -9 $$").status;
  EXPECT_TRUE(WIFSIGNALED(killed) && WTERMSIG(killed) == SIGKILL);
}

TEST(Spawn, ChildHasNoOtherDescriptors) {
  const UniqueFd leaked(open("/dev/null", O_RDONLY));  // not close-on-exec
  const UniqueFd high(fcntl(leaked.get(), F_DUPFD, 900));
  // The shell opens one more for the directory it lists.
  EXPECT_EQ(RunShell("cd /proc/$$/fd && echo *").output, "0 1 2 3\n");
}

TEST(Spawn, DescriptorsMayTradePlaces) {
  const TempDir dir;
  kut_spawn what;
  what.command = "echo out; echo err >&2";
  const UniqueFd out(open((dir / "out").c_str(), O_WRONLY | O_CREAT, 0600));
  const UniqueFd err(open((dir / "err").c_str(), O_WRONLY | O_CREAT, 0600));
  const UniqueFd saved_out(dup(1));
  const UniqueFd saved_err(dup(2));
  dup2(out.get(), 2);
  dup2(err.get(), 1);
  what.fds[1] = 2;
  what.fds[2] = 1;
  const pid_t pid = Kut_spawn(&what);
  dup2(saved_out.get(), 1);
  dup2(saved_err.get(), 2);
  ASSERT_GT(pid, 0);
  Kut_wait_child(pid, nullptr);
  EXPECT_EQ(ReadFile(dir / "out"), "out\n");
  EXPECT_EQ(ReadFile(dir / "err"), "err\n");
}

TEST(Spawn, SignalsAreAtTheirDefaults) {
  signal(SIGPIPE, SIG_IGN);
  sigset_t block;
  sigset_t old;
  sigemptyset(&block);
  sigaddset(&block, SIGTERM);
  sigprocmask(SIG_BLOCK, &block, &old);
  const std::string lines =
      RunShell("grep -E '^Sig(Blk|Ign)' /proc/self/status").output;
  sigset_t after;
  sigprocmask(SIG_SETMASK, &old, &after);
  signal(SIGPIPE, SIG_DFL);
  EXPECT_EQ(lines, "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
  EXPECT_TRUE(sigismember(&after, SIGTERM)) << "the caller's mask is its own";
}

TEST(Spawn, FailuresBeforeTheProgramAreTheCallers) {
  const char* const none[] = {"/nonexistent/program", nullptr};
  const char* const text[] = {"/etc/passwd", nullptr};
  const char* const echo[] = {"echo", nullptr};
  const std::tuple<const char* const*, const char*, int> cases[] = {
      {none, nullptr, ENOENT},
      {text, nullptr, EACCES},
      {echo, "/nonexistent", ENOENT},
      {none + 1, nullptr, EINVAL}};
  kut_spawn what;
  for (const auto& [argv, dir, error] : cases) {
    what.argv = argv;
    what.dir = dir;
    EXPECT_EQ(RunToEnd(what).pid, -1);
    EXPECT_EQ(errno, error);
  }
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left behind";
  what.argv = none;
  what.exec_status = 1;
  EXPECT_EQ(WEXITSTATUS(RunToEnd(what).status), 1);
}

TEST(Spawn, TheProgramIsFoundByThePathThatItGets) {
  const TempDir dir;
  WriteFile(dir / "only-here", "#!/bin/sh\npwd\n");
  chmod((dir / "only-here").c_str(), 0700);
  const std::string path = "PATH=" + dir.path();
  const char* const argv[] = {"only-here", nullptr};
  const char* const envp[] = {path.c_str(), nullptr};
  kut_spawn what;
  what.argv = argv;
  what.envp = envp;
  what.dir = "/nonexistent";
  what.dir_or_root = true;
  EXPECT_EQ(RunToEnd(what).output, "/\n");
}

TEST(Spawn, LimitsOfTheCallerAreNotThePrograms) {
  const char* const show = "ulimit -f; ulimit -v";
  const std::string before = RunShell(show).output;
  EXPECT_EQ(InChild([&] {
              rlimit now;
              return Kut_lower_limit(RLIMIT_FSIZE, 1 << 20) == 0 &&
                             Kut_lower_limit(RLIMIT_FSIZE, 1 << 19) == 0 &&
                             getrlimit(RLIMIT_FSIZE, &now) == 0 &&
                             now.rlim_cur == 1 << 19 &&
                             RunShell(show).output == before
                         ? 0
                         : 1;
            }),
            0);
}

TEST(Spawn, IdentityIsTakenWhole) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const char* const ids =
      "id -u; id -g; id -G; grep -E '^(Uid|CapEff)' /proc/self/status";
  kut_identity who = {12345, 54321, nullptr};
  kut_spawn what;
  what.command = ids;
  what.identity = &who;
  EXPECT_EQ(RunToEnd(what).output,
            "12345\n54321\n54321\nUid:\t12345\t12345\t12345\t12345\n"
            "CapEff:\t0000000000000000\n");
  who.user = "root";
  gid_t groups[64];
  int count = 64;
  ASSERT_GT(getgrouplist(who.user, who.gid, groups, &count), 0);
  std::string expected = "12345\n54321\n";
  for (int i = 0; i < count; i++) {
    expected += (i > 0 ? " " : "") + std::to_string(groups[i]);
  }
  EXPECT_EQ(RunToEnd(what).output.substr(0, expected.size() + 1),
            expected + "\n");
}

// Without the right to change its identity a child must not run as what it is;
// and a process that one may not signal exists.
TEST(Spawn, WithoutRightsNothingRunsAndOthersExist) {
  const pid_t child = BeginChild([] {
    if (geteuid() == 0 && setresuid(12345, 12345, 12345) != 0) return 2;
    const kut_identity root = {0, 0, nullptr};
    kut_spawn what;
    what.command = "exit 0";
    what.identity = &root;
    if (Kut_spawn(&what) != -1 || errno != EPERM) return 1;
    return kill(1, 0) != 0 && Kut_process_exists(1) && !Kut_process_exists(0) &&
                   !Kut_process_exists(-1)
               ? 0
               : 3;
  });
  EXPECT_EQ(Reaped(child), 0);
  EXPECT_FALSE(Kut_process_exists(child));
}

TEST(Spawn, ChildDiesWithItsParent) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  const pid_t parent = BeginChild([&] {
    const kut_identity who = {12345, 54321, nullptr};
    kut_spawn what;
    const char* const sleep[] = {"sleep", "100", nullptr};  // no shell between
    what.argv = sleep;
    what.fds[1] = writer.get();
    if (geteuid() == 0) what.identity = &who;  // would clear the request
    return Kut_spawn(&what) > 0 ? 0 : 1;
  });
  writer.reset();
  ASSERT_EQ(Reaped(parent), 0);
  // The end of the pipe is the end of the grandchild.
  const auto start = std::chrono::steady_clock::now();
  char byte;
  EXPECT_EQ(Kut_read_full(reader.get(), &byte, 1), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(50));
}

TEST(Spawn, SessionIsItsOwnWhenAskedFor) {
  kut_spawn what;
  what.command = "cut -d' ' -f6 /proc/$$/stat; echo $$";
  what.new_session = true;
  const Outcome outcome = RunToEnd(what);
  const std::string pid = std::to_string(outcome.pid) + "\n";
  EXPECT_EQ(outcome.output, pid + pid);
}

}  // namespace
