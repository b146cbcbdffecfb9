// The daemon's command line, as a person meets it.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <tuple>

#include "support/processes.h"

namespace {

using support::DaemonProcess;
using support::Eventually;
using support::Exit;
using support::RunProgram;
using support::SampleRoot;

constexpr char kHint[] = "Type \"krtcmd -help\" for help\n";
constexpr char kVersion[] =
    "krtcmd: KRT*FAX network cmd daemon version 2.1.0\n";

TEST(Startup, OptionsThatPrintAndExit) {
  const std::tuple<std::vector<std::string>, int, std::string, std::string>
      kCases[] = {
          {{"-help"}, 0, "usage: krtcmd [options]\n", ""},
          {{"-?"}, 0, "usage: krtcmd [options]\n", ""},
          {{"-V"}, 0, kVersion, ""},
          {{"-s", "-V", "-y"}, 0, kVersion, ""},
          {{"-x"}, 1, "", kHint},
          {{"-D", "-?"}, 1, "", kHint},
          {{"-q"}, 1, "", kHint},
      };
  for (const auto& [args, status, out, err] : kCases) {
    SCOPED_TRACE(args.back());
    const Exit exit = RunProgram(KRTCMD_PATH, args);
    EXPECT_EQ(exit.status, status);
    EXPECT_EQ(exit.out.substr(0, exit.out.find('\n') + 1), out);
    EXPECT_EQ(exit.err, err);
  }
  const Exit exit = RunProgram(KRTCMD_PATH, {"-d"});
  EXPECT_EQ(exit.status, 1);
  EXPECT_NE(exit.err.find("option requires an argument -- d\n"),
            std::string::npos);
}

std::vector<pid_t> Registered(const SampleRoot& root) {
  std::vector<pid_t> pids;
  const std::string list = ReadFile(root.path() / "krtnet/krtnet.lck");
  for (size_t at = 0; at < list.size(); at = list.find('\n', at) + 1) {
    pids.push_back(std::atoi(list.c_str() + at));
    EXPECT_EQ(list.substr(list.find(':', at), 8), ":krtcmd\n") << list;
  }
  return pids;
}

void StopAll(const std::vector<pid_t>& pids) {
  for (const pid_t pid : pids) kill(pid, SIGTERM);
  for (const pid_t pid : pids) {
    EXPECT_TRUE(Eventually([&] { return kill(pid, 0) != 0; })) << pid;
  }
}

TEST(Startup, StartingProcessLeavesTheDaemonsBehind) {
  const struct {
    std::vector<std::string> args;
    size_t daemons;
  } kCases[] = {{{}, 1},
                {{"-N", "0"}, 1},
                {{"-N", "3"}, 3},
                {{"-N", "-1"}, 0},
                {{"-N", "abc"}, 1}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.args.empty() ? "" : c.args.back());
    const SampleRoot root;
    EXPECT_EQ(RunProgram(KRTCMD_PATH, c.args, root.path()).status, 0);
    EXPECT_TRUE(
        Eventually([&] { return Registered(root).size() == c.daemons; }));
    if (c.daemons > 0) {
      root.Drop("a", support::Command("cmd-noop", 5, 12));
      EXPECT_NE(root.Response("0005-012"), "");
    }
    StopAll(Registered(root));
  }
}

TEST(Startup, ForegroundAndDebugFlags) {
  const SampleRoot root;
  DaemonProcess daemon(KRTCMD_PATH, root, {"-Z", "xDyz", "-L", "9"});
  const std::string pid = std::to_string(daemon.pid());
  EXPECT_TRUE(daemon.AwaitLog(": krtcmd daemon version 2.1.0 started: pid " +
                              pid + "\n"));
  EXPECT_EQ(daemon.Stop(SIGINT), 0);
  EXPECT_NE(daemon.Log().find(": Signal SIGINT caught\n"), std::string::npos);
  EXPECT_NE(daemon.Log().find(": Terminating\n"), std::string::npos);
  EXPECT_EQ(daemon.Log().rfind(pid + ":", 0), 0U) << daemon.Log();
}

TEST(Startup, MissingDirectoryEndsWithStatusZero) {
  const SampleRoot root;
  const Exit exit = RunProgram(
      KRTCMD_PATH, {"-Z", "F", "-d", "/no/such/folder"}, root.path());
  EXPECT_EQ(exit.status, 0);
  EXPECT_NE(exit.err.find("Cannot stat directory /no/such/folder: No such file "
                          "or directory\n"),
            std::string::npos)
      << exit.err;
  EXPECT_NE(exit.err.find("Terminating\n"), std::string::npos);
}

// A blocked pass would outlive the test's deadline.
TEST(Startup, StopsAtOnceDuringTheIdleSleep) {
  for (const int sig : {SIGTERM, SIGINT, SIGQUIT}) {
    const SampleRoot root;
    DaemonProcess daemon(KRTCMD_PATH, root, {"-w", "3600"});
    EXPECT_EQ(daemon.Stop(sig), 0) << sig;
  }
}

}  // namespace
