// Commands in, responses out, with the real daemon.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <tuple>

#include "support/processes.h"

namespace {

using support::Command;
using support::DaemonProcess;
using support::Eventually;
using support::SampleRoot;

std::string Answer(const std::string& head, const std::string& tail) {
  return "objbeg=obj-cmdrsp\nclientid=jsmith\nhostname=hostA\n" + head +
         "iscmd=false\n" + tail + "objend=obj-cmdrsp\n";
}

// Each mode answers alike: workers, and inline. The daemon sleeps for a minute
// a pass; each command wakes it.
class Exchange : public ::testing::TestWithParam<const char*> {
 protected:
  std::vector<std::string> Args() const {
    return {"-N", GetParam(), "-w", "60", "-Z", "F"};
  }
};
INSTANTIATE_TEST_SUITE_P(Modes, Exchange, ::testing::Values("0", "1"));

TEST_P(Exchange, EveryKindOfCommandHasItsAnswerAndACopyOnDemand) {
  const SampleRoot root;
  DaemonProcess daemon(KRTCMD_PATH, root,
                       {"-N", GetParam(), "-w", "60", "-Z", "FS"});
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
  };
  for (const auto& [name, command, response] : kCases) {
    root.Drop("any-" + name, command);
    EXPECT_EQ(root.Response(name), response);
    EXPECT_EQ(ReadFile(root.spool() / ("save/" + name + ".rsp")), response);
  }
  // Without "respond", a bad type has no answer; the next command shows that
  // it was dealt with.
  root.Drop("a", Command("cmd-bogus", 2, 1));
  root.Drop("b", Command("cmd-login", 2, 2, "respond=false\n"));
  EXPECT_TRUE(daemon.AwaitLog("Unsupported command type cmd-login\n"));
  EXPECT_TRUE(daemon.AwaitLog("Invalid command type cmd-bogus\n"));
  EXPECT_TRUE(Eventually(
      [&] { return root.SpoolNames() == std::vector<std::string>{"save"}; }));
  EXPECT_EQ(ReadFile(root.spool() / "save/0001-005.cmd"),
            std::get<1>(kCases[4]));
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

}  // namespace
