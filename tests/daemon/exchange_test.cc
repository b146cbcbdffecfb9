// Commands in, responses out, with the real daemon.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <tuple>

#include "support/daemon_process.h"

namespace {

using support::Command;
using support::DaemonProcess;
using support::Eventually;
using support::SampleRoot;

std::string Answer(const std::string& head, const std::string& tail) {
  return "objbeg=obj-cmdrsp\nclientid=jsmith\nhostname=hostA\n" + head +
         "iscmd=false\n" + tail + "objend=obj-cmdrsp\n";
}

// Each mode answers alike: workers, and inline.
class Exchange : public ::testing::TestWithParam<const char*> {
 protected:
  std::vector<std::string> Args() const {
    return {"-N", GetParam(), "-w", "60", "-Z", "F"};
  }
};
INSTANTIATE_TEST_SUITE_P(Modes, Exchange, ::testing::Values("0", "1"));

TEST_P(Exchange, EveryKindOfCommandHasItsAnswer) {
  const SampleRoot root;
  DaemonProcess daemon(KRTCMD_PATH, root, Args());
  const std::tuple<std::string, std::string, std::string> kCases[] = {
      {"3456-007",
       Command("cmd-noop", 123456, 7, "clntport=99\nrespond=false\n"),
       Answer("sessionid=123456\nreference=7\nclntport=99\ncmdtype=cmd-noop\n",
              "respond=true\nresult=0\n")},
      {"0001-002", Command("cmd-noop", 1, 2),
       Answer("sessionid=1\nreference=2\ncmdtype=cmd-noop\n",
              "respond=false\nresult=0\n")},
      {"0001-003", Command("cmd-bogus", 1, 3, "respond=true\n"),
       Answer("sessionid=1\nreference=3\n",
              "respond=false\nresult=19\nerrmsg=Invalid command type "
              "cmd-bogus\n")},
      {"0001-004", Command("", 1, 4, "respond=yes\n"),
       Answer("sessionid=1\nreference=4\n",
              "respond=false\nresult=19\nerrmsg=Invalid command type \n")},
      {"0001-005", Command("cmd-statlst", 1, 5, "respond=true\n"),
       Answer("sessionid=1\nreference=5\ncmdtype=cmd-statlst\n",
              "respond=false\nresult=19\nerrmsg=Unsupported command type "
              "cmd-statlst\n")},
      {"0001-006", Command("srv-start", 1, 6, "respond=true\n"),
       Answer("sessionid=1\nreference=6\ncmdtype=srv-start\n",
              "respond=false\nresult=19\nerrmsg=Unsupported command type "
              "srv-start\n")},
  };
  for (const auto& [name, command, response] : kCases) {
    root.Drop("any-" + name, command);
    EXPECT_EQ(root.Response(name), response);
  }
  // Without "respond", a bad type has no answer; the next command shows that
  // it was dealt with.
  root.Drop("a", Command("cmd-bogus", 2, 1));
  root.Drop("b", Command("cmd-login", 2, 2, "respond=false\n"));
  EXPECT_TRUE(daemon.AwaitLog("Unsupported command type cmd-login\n"));
  EXPECT_TRUE(daemon.AwaitLog("Invalid command type cmd-bogus\n"));
  EXPECT_TRUE(Eventually([&] { return root.SpoolNames().empty(); }));
  EXPECT_EQ(daemon.Stop(), 0);
}

TEST_P(Exchange, WhatIsNoCommandIsLoggedAndHoldsNobody) {
  const SampleRoot root;
  DaemonProcess daemon(KRTCMD_PATH, root, Args());
  const std::string pid = "." + std::to_string(daemon.pid());
  root.Drop("garbage", "no pairs here\n");
  EXPECT_TRUE(daemon.AwaitLog("Error processing cmd file garbage" + pid +
                              ": User rtn failed\n"));
  mkdir((root.spool() / "dir.new").c_str(), 0777);
  rename((root.spool() / "dir.new").c_str(),
         (root.spool() / "dir.cmd").c_str());
  EXPECT_TRUE(daemon.AwaitLog("Error processing cmd file dir" + pid +
                              ": Is a directory\n"));
  root.Drop("a", Command("cmd-noop", 1, 1));
  EXPECT_NE(root.Response("0001-001"), "");
  EXPECT_EQ(root.SpoolNames(), std::vector<std::string>{"dir" + pid});
}

TEST_P(Exchange, ResponseIsRetriedUntilItIsGivenUp) {
  const SampleRoot root;
  DaemonProcess daemon(KRTCMD_PATH, root,
                       {"-N", GetParam(), "-w", "0", "-r", "2"});
  // A folder in the place of the temporary file cannot be removed.
  std::filesystem::create_directories(root.spool() / "0009-001.tmp/x");
  root.Drop("a", Command("cmd-noop", 9, 1));
  EXPECT_TRUE(daemon.AwaitLog(
      "Queueing cmd-noop response for jsmith (9-1): Is a directory\n"));
  EXPECT_TRUE(daemon.AwaitLog("response attempt 3 for jsmith (9-1)"));
  EXPECT_TRUE(daemon.AwaitLog(
      "Cannot write cmd-noop response for jsmith (9-1): Max tries exceeded\n"));
  root.Drop("b", Command("cmd-noop", 9, 2));
  EXPECT_NE(root.Response("0009-002"), "");
}

TEST_P(Exchange, CopiesAreKeptOnDemand) {
  const SampleRoot root;
  DaemonProcess daemon(KRTCMD_PATH, root, {"-N", GetParam(), "-Z", "FS"});
  const std::string command = Command("cmd-statlst", 7, 1, "respond=true\n");
  root.Drop("a", command);
  const std::string response = root.Response("0007-001");
  EXPECT_EQ(ReadFile(root.spool() / "save/0007-001.cmd"), command);
  EXPECT_EQ(ReadFile(root.spool() / "save/0007-001.rsp"), response);
}

// The daemon sleeps for a minute a pass; each command wakes it.
TEST_P(Exchange, LoneCommandIsAnsweredAtOnce) {
  const SampleRoot root;
  DaemonProcess daemon(KRTCMD_PATH, root, Args());
  for (int i = 1; i <= 20; ++i) {
    const auto start = std::chrono::steady_clock::now();
    root.Drop("a", Command("cmd-noop", 1, i));
    const std::string name = support::ExchangeName(1, i);
    EXPECT_NE(root.Response(name), "") << name;
    EXPECT_LT(std::chrono::steady_clock::now() - start,
              std::chrono::seconds(10));
  }
}

long Count(const SampleRoot& root, const std::string& ending) {
  const auto names = root.SpoolNames();
  return std::count_if(names.begin(), names.end(), [&](const auto& name) {
    return name.ends_with(ending);
  });
}

TEST(Workers, LimitHoldsAndEveryCommandIsAnswered) {
  const SampleRoot root;
  DaemonProcess daemon(KRTCMD_PATH, root, {"-M", "3"});
  for (int i = 1; i <= 200; ++i) {
    root.Drop(std::to_string(i), Command("cmd-noop", i, 1));
  }
  EXPECT_TRUE(Eventually([&] { return Count(root, ".rsp") == 200; }));
  EXPECT_EQ(root.SpoolNames().size(), 200U);
  EXPECT_EQ(daemon.Stop(), 0);
}

TEST(Workers, WithoutRoomForAWorkerCommandsWait) {
  for (const char* tasks : {"0", "1", "-3"}) {
    const SampleRoot root;
    DaemonProcess daemon(KRTCMD_PATH, root, {"-M", tasks, "-w", "0"});
    EXPECT_TRUE(daemon.AwaitLog("commands are left waiting\n"));
    root.Drop("a", Command("cmd-noop", 1, 1));
    EXPECT_EQ(daemon.Stop(), 0) << tasks;
    EXPECT_EQ(root.SpoolNames(), std::vector<std::string>{"a.cmd"});
  }
}

size_t OpenDescriptors(pid_t pid) {
  size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(
           "/proc/" + std::to_string(pid) + "/fd")) {
    ++count;
  }
  return count;
}

TEST(Workers, DescriptorsAndZombiesDoNotGrow) {
  const SampleRoot root;
  DaemonProcess daemon(KRTCMD_PATH, root);
  size_t before = 0;
  for (int i = 1; i <= 300; ++i) {
    root.Drop("a", Command("cmd-noop", i, 1));
    const std::string name = support::ExchangeName(i, 1);
    ASSERT_NE(root.Response(name), "") << name;
    if (i == 5) before = OpenDescriptors(daemon.pid());
  }
  EXPECT_EQ(OpenDescriptors(daemon.pid()), before);
  const auto children = "/proc/" + std::to_string(daemon.pid()) + "/task/" +
                        std::to_string(daemon.pid()) + "/children";
  EXPECT_TRUE(Eventually([&] { return ReadFile(children).empty(); }));
}

// Three daemons on one directory; one is killed in the middle. What it had
// claimed and not answered is lost with it, and stays under its claimed name;
// all else is answered exactly once.
TEST(SeveralDaemons, AnswerEachCommandOnceEvenWhenOneDies) {
  constexpr int kCommands = 600;
  const SampleRoot root;
  std::vector<std::unique_ptr<DaemonProcess>> daemons;
  for (int i = 0; i < 3; ++i) {
    daemons.push_back(std::make_unique<DaemonProcess>(
        KRTCMD_PATH, root, std::vector<std::string>{"-N", "1", "-Z", "FD"}));
  }
  for (int i = 1; i <= kCommands; ++i) {
    root.Drop(std::to_string(i), Command("cmd-noop", i, 1));
    if (i == kCommands / 2) kill(daemons[0]->pid(), SIGKILL);
  }
  const std::string dead = "." + std::to_string(daemons[0]->pid());
  // A name that is renamed while the folder is read may be missed, so that the
  // absence of others alone says nothing.
  const auto settled = [&] {
    const auto names = root.SpoolNames();
    return Count(root, ".rsp") >= kCommands - 1 &&
           std::all_of(names.begin(), names.end(), [&](const auto& name) {
             return name.ends_with(".rsp") || name.ends_with(".tmp") ||
                    name.ends_with(dead);
           });
  };
  EXPECT_TRUE(Eventually(settled));

  std::map<std::string, int> processed;  // by what the logs say
  for (const auto& daemon : daemons) {
    const std::string log = daemon->Log();
    const std::string text = "Processing cmd-noop for jsmith (";
    for (size_t at = 0; (at = log.find(text, at)) != std::string::npos; ++at) {
      ++processed[log.substr(at + text.size(), 8)];
    }
  }
  for (const auto& [exchange, times] : processed) {
    EXPECT_EQ(times, 1) << exchange;
  }
  EXPECT_LE(Count(root, dead), 1);
  EXPECT_GE(Count(root, ".rsp"), kCommands - 1);
}

}  // namespace
