// Commands with the real daemon: what only the whole of it does; who it runs
// others' programs as, and what becomes of them.
#include "served.h"

#include <signal.h>

#include <fstream>
#include <tuple>

#include "util/kutuser.h"

namespace {

using support::Command;
using support::Eventually;

INSTANTIATE_TEST_SUITE_P(Modes, Served, ::testing::Values("0", "1"));

// A fetched image comes with its file; what a program printed, or a user's file
// says, is not what the daemon reads.
TEST_P(Served, OnlyTheFileThatWasAskedForIsEmbedded) {
  root_.Put("secret", "secret");
  const std::string file = "pathname=" + Path("secret") + "\n";
  root_.Put("object", Object("obj-file", file));
  root_.Put("faxq/jsmith/events/7",
            Object("obj-status",
                   "seqno=7\n" + ListField("ltags", "obj-file", {file})));
  root_.Put("faxq/jsmith/a.fax", "Cat");
  Start();
  EXPECT_EQ(Ask("cmd-imgret", FaxInfo("a.fax", "jsmith")),
            kDone + Argument("obj-file",
                             "pathname=*\nfilebeg=a.fax\nfiledata=#0V%T\n"
                             "filedata= \nfileend=a.fax\nfiletype=fax\n"));
  EXPECT_EQ(
      Ask("cmd-extcmd", External("cat " + Path("object"), "retobj=true\n"),
          Kut_get_usrname()),
      kDone + Argument("obj-file", file));
  const std::string answer = Ask("cmd-status", RequestId("7"));
  EXPECT_TRUE(answer.starts_with(kDone)) << answer;
  EXPECT_EQ(answer.find("filedata"), answer.npos) << answer;
  // Nor what came with the command itself.
  EXPECT_EQ(Ask("cmd-pbcmd",
                Argument("obj-pbcom", "pbcmd=pbc-close\n" +
                                          Field("objptr", "obj-file", file)))
                .find("filedata"),
            std::string::npos);
}

// ---- Limits ----

TEST_P(Served, WhoAsksTooMuchIsToldTheLimit) {
  const std::string memory =
      "result=24\nerrmsg=Command takes more than 64K of memory\n";
  const std::string size = "result=24\nerrmsg=Command is larger than 64K\n";
  const std::string text =
      "result=13\nerrmsg=Cannot create msg object: Data too long\n";
  const std::string much = Much();
  std::string pad, messages;
  for (int i = 0; i < 400; ++i) {
    pad += "unknown=" + std::string(200, 'x') + "\n";
    messages += Object("obj-servmsg", "");
  }
  root_.Put("faxq/jsmith/b.fax", std::string(4096, 'x'));
  root_.Put("faxq/jsmith/msgs/lines", "\n\n\n\n");
  root_.Put("faxq/jsmith/msgs/bytes", std::string(256, 'x') + "\n");
  root_.Put("faxq/jsmith/msgs/full", std::string(255, 'x') + "\n");
  root_.Put("faxq/jsmith/msgs/msg.srv", messages);
  for (const char* hole : {"faxq/jsmith/a.fax", "faxq/jsmith/msgs/hole"}) {
    root_.Put(hole, "");
    std::filesystem::resize_file(Path(hole), 1L << 40);
  }
  Start(
      "object-bytes=64K command-bytes=64K file-bytes=4K message-lines=3 "
      "message-bytes=256");

  root_.Drop("0001-999", Command("cmd-sendfax", 1, 999, much));
  root_.Drop("nameless", "cmdtype=cmd-noop\n" + much + "objend=\n");
  const std::tuple<std::string, std::string, std::string> kCases[] = {
      {"cmd-noop", much, memory},
      {"cmd-noop", "objptr=obj-text\n" + pad, size},
      // What is behind it counts as well.
      {"cmd-sendfax", much + "respond=true\n", memory},
      {"cmd-login", much + "respond=true\n",
       "result=19\nerrmsg=Unsupported command type cmd-login\n"},
      {"cmd-imgdel", FaxInfo("a.fax", "jsmith") + much, memory},
      {"cmd-imgdel", FaxInfo("a.fax", "jsmith") + pad, size},
      {"cmd-imgret", FaxInfo("a.fax", "jsmith"),
       "result=13\nerrmsg=File a.fax is larger than 4K\n"},
      {"cmd-msgret", Named("lines"), text},
      {"cmd-msgret", Named("hole"), text},
      {"cmd-msgret", Named("bytes"), text},
      {"cmd-msgret", Named("full"), kDone + Text({std::string(255, 'x')})},
      {"cmd-msglist", ListOf("lst-srvmsgs"),
       "result=19\nerrmsg=Invalid msg type lst-srvmsgs\n"},
  };
  for (const auto& [type, argument, answer] : kCases) {
    EXPECT_EQ(Ask(type, argument), answer) << type;
  }
  EXPECT_TRUE(Ask("cmd-imgret", FaxInfo("b.fax", "jsmith")).starts_with(kDone));
  EXPECT_TRUE(root_.Has("faxq/jsmith/a.fax"));
  EXPECT_TRUE(daemon_->AwaitLog(
      "Message lines of jsmith has more than 3 lines or 256"));
  EXPECT_TRUE(daemon_->AwaitLog("Error processing cmd file nameless."));
  EXPECT_TRUE(daemon_->AwaitLog("File too large"));
  EXPECT_TRUE(Eventually([&] { return root_.SpoolNames().empty(); }));
}

// ---- Signals ----

class Inline : public Served {};
INSTANTIATE_TEST_SUITE_P(, Inline, ::testing::Values("1"));

TEST_P(Inline, TheCommandInHandIsAnsweredAfterASignal) {
  root_.PutProgram("Covers/slow.cvr",
                   "echo > " + Path("started") + "\nsleep 1000");
  Start();
  root_.Drop("a", Command("cmd-cvrtags", 2, 1, Named("slow")));
  ASSERT_TRUE(Eventually([&] { return root_.Has("started"); }));
  EXPECT_EQ(daemon_->Stop(), 0) << "it waited for the program";
  const std::string response = root_.Response("0002-001");
  EXPECT_NE(response.find("errmsg=Invalid coverpage slow\n"), std::string::npos)
      << response;
  EXPECT_NE(daemon_->Log().find("-dump: The program was ended: the server is "
                                "stopping\n"),
            std::string::npos);
}

// ---- Limits ----

#ifndef __SANITIZE_ADDRESS__  // which leaves no limit of memory
TEST_P(Served, AWorkerHasLimitsAndItsProgramsHaveNot) {
  const bool worker = GetParam() == std::string("0");
  // How many of the two the program has, and how many its parent, which is a
  // fork of who carries out the command.
  root_.PutProgram("limits",
                   "for pid in $$ $PPID; do awk '/Max address space/ && "
                   "$4 == 67108864 || /Max file size/ && $4 == 2097152 "
                   "{n++} END {print n + 0}' /proc/$pid/limits; done");
  root_.PutProgram("big",
                   "echo objbeg=obj-list\n"
                   "yes 'objptr=obj-senv\nobjbeg=obj-senv\nobjend=obj-senv' "
                   "| head -n 300000\necho objend=obj-list");
  Start("worker-bytes=64M worker-file-bytes=2M object-bytes=1G");
  const std::string self = Kut_get_usrname();
  EXPECT_EQ(Ask("cmd-extcmd", External(Path("limits")), self),
            kDone + Text({"0", worker ? "2" : "0"}));
  if (!worker) return;
  EXPECT_EQ(Ask("cmd-extcmd", External(Path("big"), "retobj=true\n"), self),
            "result=1\nerrmsg=Extern cms failed: No memory\n");
}
#endif

// ---- Identity ----

using Identity = AccountsTest;
INSTANTIATE_TEST_SUITE_P(Modes, Identity, ::testing::Values("0", "1"));

TEST_P(Identity, ProgramsRunAsTheUserAndTheDaemonStaysItself) {
  for (const char* dir : {"", "/msgs", "/events", "/options"}) {
    Own(std::string("faxq/clerk") + dir, kClerk, 0755, kStaff);
  }
  root_.Put("faxq/jsmith/a.fax", "image");
  root_.Put("secret", "secret");
  chmod(Path("secret").c_str(), 0600);
  root_.MakeDir("bin");
  root_.PutProgram("bin/krtprint", "id -u >&2; exit 1");
  root_.PutProgram("bin/who", "id -u; id -ru; id -g; id -G\nls /proc/$$/fd");
  const std::string path = getenv("PATH");
  setenv("PATH", (Path("bin") + ":" + path).c_str(), 1);
  StartIn({kPrivate, kRoot, 0});
  setenv("PATH", path.c_str(), 1);

  // Descriptor 10 is the shell's own, its script.
  EXPECT_EQ(Ask({kRoot}, "cmd-extcmd", "clerk", External("who")),
            kDone + Text({"64103", "64103", "64104", "64104 64101", "0", "1",
                          "10", "2"}));
  EXPECT_EQ(
      Ask({kRoot}, "cmd-extcmd", "clerk", External("cat " + Path("secret"))),
      "result=13\nerrmsg=Extern cms failed: Command failed\n" +
          Text({"cat: " + Path("secret") + ": Permission denied"}));
  EXPECT_EQ(
      Ask({kRoot}, "cmd-imgprint", "clerk",
          Argument("obj-reqprt", Field("finfoptr", "obj-faxinfo",
                                       "filename=a.fax\nclientid=jsmith\n"))),
      "result=13\nerrmsg=64103\n");
  struct stat st;
  ASSERT_EQ(stat(Path("faxq/clerk/msgs/0001-003.msg").c_str(), &st), 0);
  EXPECT_EQ(st.st_uid, kClerk);
  EXPECT_EQ(st.st_mode & 0777, 0666u);
  // What only the daemon may write is still written.
  EXPECT_EQ(Ask({kRoot}, "cmd-setcfg", "jsmith", Argument("obj-config")),
            kDone);
}

// ---- Orphans ----

pid_t ReadPid(const std::string& path) {
  pid_t pid = 0;
  std::ifstream(path) >> pid;
  return pid;
}

// Gone, or dead and waiting for somebody to notice.
bool HasEnded(pid_t pid) {
  const std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
  return stat.empty() || stat.find(") Z ") != stat.npos;
}

class Orphans : public Served {
 protected:
  // Starts a command that runs for ever, and a child of it; waits for both.
  void StartForEver() {
    root_.PutProgram("forever", "cd " + Path("") +
                                    "; sleep 1000 & echo $! > child\n"
                                    "echo $$ > pid.new; mv pid.new pid; wait");
    Start();
    root_.Drop("a", Command("cmd-extcmd", 2, 1,
                            "clientid=" + std::string(Kut_get_usrname()) +
                                "\n" + External(Path("forever"))));
    ASSERT_TRUE(Eventually([&] { return ReadPid(Path("pid")) > 0; }));
    command_ = ReadPid(Path("pid"));
    child_ = ReadPid(Path("child"));
    ASSERT_FALSE(HasEnded(command_));
  }
  pid_t command_ = 0;
  pid_t child_ = 0;
};
INSTANTIATE_TEST_SUITE_P(Workers, Orphans, ::testing::Values("0"));

TEST_P(Orphans, ACommandDiesWithItsWorker) {
  ASSERT_NO_FATAL_FAILURE(StartForEver());
  const std::vector<pid_t> workers = support::ChildrenOf(daemon_->pid());
  ASSERT_EQ(workers.size(), 1U);
  ASSERT_NE(workers[0], command_);
  kill(workers[0], SIGKILL);
  EXPECT_TRUE(Eventually([&] { return HasEnded(command_); }));
  EXPECT_TRUE(Eventually([&] { return HasEnded(child_); }));
  EXPECT_EQ(Ask("cmd-noop", ""), kDone);
}

TEST_P(Orphans, NothingOfACommandOutlivesTheDaemon) {
  ASSERT_NO_FATAL_FAILURE(StartForEver());
  EXPECT_EQ(daemon_->Stop(), 0);
  EXPECT_TRUE(
      Eventually([&] { return HasEnded(command_) && HasEnded(child_); }));
}

}  // namespace
