// The daemon's command line, as a person meets it.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <sstream>
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
          {{"-d"},
           1,
           "",
           KRTCMD_PATH ": option requires an argument -- d\n" +
               std::string(kHint)},
      };
  for (const auto& [args, status, out, err] : kCases) {
    SCOPED_TRACE(args.back());
    const Exit exit = RunProgram(KRTCMD_PATH, args);
    EXPECT_EQ(exit.status, status);
    EXPECT_EQ(exit.out.substr(0, exit.out.find('\n') + 1), out);
    EXPECT_EQ(exit.err, err);
  }
}

std::vector<pid_t> Registered(const SampleRoot& root) {
  std::vector<pid_t> pids;
  std::istringstream list(ReadFile(root / "krtnet/krtnet.lck"));
  for (std::string line; std::getline(list, line);) {
    pids.push_back(std::atoi(line.c_str()));
    EXPECT_EQ(line, std::to_string(pids.back()) + ":krtcmd");
  }
  return pids;
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
    const auto pids = Registered(root);
    for (const pid_t pid : pids) kill(pid, SIGTERM);
    for (const pid_t pid : pids) {
      EXPECT_TRUE(Eventually([&] { return kill(pid, 0) != 0; })) << pid;
    }
  }
}

// Also at once, in the idle sleep: a blocked pass would outlive the deadline.
TEST(Startup, ForegroundDaemonSaysWhatItDoesAndWhatEndsIt) {
  const std::pair<int, const char*> kSignals[] = {
      {SIGTERM, "SIGTERM"}, {SIGINT, "SIGINT"}, {SIGQUIT, "SIGQUIT"}};
  for (const auto& [sig, name] : kSignals) {
    const SampleRoot root;
    DaemonProcess daemon(KRTCMD_PATH, root,
                         {"-Z", "xDyz", "-L", "9", "-w", "3600"});
    const std::string pid = std::to_string(daemon.pid());
    EXPECT_TRUE(daemon.AwaitLog(": krtcmd daemon version 2.1.0 started: pid " +
                                pid + "\n"));
    EXPECT_EQ(daemon.Stop(sig), 0) << name;
    const std::string log = daemon.Log();
    EXPECT_TRUE(log.starts_with(pid + ":")) << log;
    EXPECT_NE(log.find(std::string(": Signal ") + name + " caught\n"),
              log.npos);
    EXPECT_NE(log.find(": Terminating\n"), log.npos);
  }
}

TEST(Startup, MissingDirectoryEndsWithStatusZero) {
  const SampleRoot root;
  const Exit exit = RunProgram(
      KRTCMD_PATH, {"-Z", "F", "-d", "/no/such/folder"}, root.path());
  EXPECT_EQ(exit.status, 0);
  for (const char* text :
       {"Cannot stat directory /no/such/folder: No such file "
        "or directory\n",
        "Terminating\n"}) {
    EXPECT_NE(exit.err.find(text), std::string::npos) << exit.err;
  }
}

}  // namespace
