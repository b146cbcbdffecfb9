// Every command with the real daemon: command files in, response files compared
// whole; who the daemon runs others' programs as, and what becomes of them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <fstream>
#include <optional>
#include <tuple>

#include "faxserver/fax_root.h"
#include "faxserver/fsshm.h"
#include "handler_test.h"
#include "support/account.h"
#include "support/daemon_process.h"
#include "support/own_ipc.h"

namespace {

using support::Command;
using support::DaemonProcess;
using support::Eventually;
using support::SampleRoot;

// Each mode answers alike: workers, and inline.
class Served : public ::testing::TestWithParam<const char*> {
 protected:
  Served() {
    root_.AddUser("jsmith");
    root_.AddUser("bob");
  }
  void Start() {
    daemon_.emplace(KRTCMD_PATH, root_,
                    std::vector<std::string>{"-N", GetParam(), "-w", "60"});
  }
  std::string Path(const std::string& name) const { return root_ / name; }
  // Drops a command and gives what its response holds beside the envelope: what
  // the handler set, and "respond" where it is not false.
  std::string Ask(const std::string& type, const std::string& argument,
                  const std::string& client = "jsmith") {
    const int reference = ++reference_;
    const std::string name = support::ExchangeName(1, reference);
    root_.Drop(name, Command(type, 1, reference,
                             "clientid=" + client + "\n" + argument));
    const std::string head = "objbeg=obj-cmdrsp\nclientid=" + client +
                             "\nhostname=hostA\nsessionid=1\nreference=" +
                             std::to_string(reference) + "\ncmdtype=" + type +
                             "\niscmd=false\n";
    const std::string tail = "objend=obj-cmdrsp\n";
    const std::string response = root_.Response(name);
    if (!response.starts_with(head) || !response.ends_with(tail)) {
      return "odd envelope: " + response;
    }
    const std::string body = response.substr(
        head.size(), response.size() - head.size() - tail.size());
    const std::string usual = "respond=false\n";
    return body.starts_with(usual) ? body.substr(usual.size()) : body;
  }
  static std::string External(const std::string& line,
                              const std::string& more = "") {
    return Argument("obj-extcmd", "cmdstr=" + line + "\n" + more);
  }
  static std::string Text(const std::vector<std::string>& lines) {
    return Argument("obj-msg", TextsField("lines", "obj-text", "text", lines));
  }

  const SampleRoot root_;
  std::optional<DaemonProcess> daemon_;
  int reference_ = 0;
};
INSTANTIATE_TEST_SUITE_P(Modes, Served, ::testing::Values("0", "1"));

TEST_P(Served, EveryCommandHasItsAnswer) {
  const OwnIpc ipc;
  SKIP_WITHOUT(ipc);
  ASSERT_EQ(fx_creat_stat_shm("", 1), 0);
  const FifoReader scheduler(Path("FIFO"));
  const FifoReader spool(Path("krtnet/filspool/kfifo"));
  std::string request = "7\n" + std::to_string(getuid()) + "\n";
  for (int i = 2; i < 34; ++i) request += "\n";
  root_.Put("requests/r-7", request);
  const std::string status = "clientid=jsmith\nseqno=7\nattempt=0\n";
  root_.Put("faxq/jsmith/events/7", Object("obj-status", status));
  root_.Put("faxq/jsmith/a.fax", "Cat");
  root_.Put("faxq/jsmith/msgs/m", "hello\n");
  root_.Put("krtnet/filspool/up", "uploaded");
  root_.PutProgram("Covers/std.cvr", "echo to:R");
  Start();

  const std::string reqid = "seqno=7\nreqtype=req-regular\n";
  const std::string info = "filename=a.fax\nclientid=jsmith\n";
  const std::string route = "fromid=jsmith\ntoid=bob\nfilename=a.fax\n";
  const std::string monitor =
      "clientid=jsmith\nmontype=mon-excall\n" +
      ListField("names", "obj-resource", {"rname=carol\n"});
  const std::string request_object =
      std::string("clientid=") + getpwuid(getuid())->pw_name +
      "\nseqno=7\nactive=act-ready\nsubmittime=now\nsendtime=now\n"
      "exptime=now\natttime=now\nprilevel=0\nattempt=0\nmaxtrys=0\n"
      "retrymins=0\nsendres=?\nnotify=not-fail\ngseqno=0\nmemno=0\nrresult=0\n";
  const std::string ok = kDone;
  const std::tuple<std::string, std::string, std::string> kCases[] = {
      // Who wants no answer from the other side has this daemon's.
      {"cmd-sendfax", "respond=false\n", "respond=true\n" + ok},
      {"cmd-try", Argument("obj-reqid", reqid), ok},
      {"cmd-cancel", Argument("obj-reqid", reqid), ok},
      {"cmd-status", Argument("obj-reqid", reqid),
       ok + Argument("obj-status", status)},
      {"cmd-statatt", Argument("obj-reqid", reqid),
       ok + ListField("objptr", "obj-status", {status})},
      {"cmd-state", "",
       ok + Argument("obj-state",
                     "schedup=true\n" +
                         ListField("freqlist", "obj-freq", {request_object}))},
      {"cmd-copyfax", Argument("obj-route", route), ok},
      {"cmd-imgret", Argument("obj-faxinfo", info),
       ok + Argument("obj-file",
                     "pathname=*\nfilebeg=a.fax\nfiledata=#0V%T\n"
                     "filedata= \nfileend=a.fax\nfiletype=fax\n")},
      {"cmd-fwdfax", Argument("obj-route", route), ok},
      {"cmd-imgstore",
       Argument("obj-reqsto",
                Field("finfoptr", "obj-faxinfo", info) +
                    Field("filobjptr", "obj-file",
                          "pathname=" + Path("krtnet/filspool/up") + "\n")),
       ok},
      {"cmd-imgdel", Argument("obj-faxinfo", info), ok},
      {"cmd-image", "", "result=13\nerrmsg=Image cmd not yet implemented\n"},
      {"cmd-reslist", Argument("obj-reqlst", "listtype=lst-covers\n"),
       ok + Argument("obj-reqlst", "listtype=lst-covers\n" +
                                       ListField("listptr", "obj-resource",
                                                 {"rname=std\n"}))},
      {"cmd-cvrtags", Argument("obj-resource", "rname=std\n"),
       ok + Argument("obj-reqlst",
                     "listtype=lst-cvrtags\nlistid=std\n" +
                         ListField("listptr", "obj-cvrtag",
                                   {"tagname=to\ntagtype=tag-req\n"}))},
      {"cmd-cvrmatch", ListField("objptr", "obj-cvrtag", {"tagname=to\n"}),
       ok + ListField("objptr", "obj-resource", {"rname=std\n"})},
      {"cmd-filetype", Argument("obj-file", "pathname=x.ps\n"),
       ok + Argument("obj-resource", "rname=ps\n")},
      {"cmd-msglist", Argument("obj-reqlst", "listtype=lst-routes\n"),
       ok + Argument("obj-reqlst",
                     "listtype=lst-routes\n" +
                         ListField("listptr", "obj-route",
                                   {"fromid=jsmith\ntoid=bob\n"}))},
      {"cmd-msgret", Argument("obj-resource", "rname=m\n"),
       ok + Text({"hello"})},
      {"cmd-msgdel", Argument("obj-resource", "rname=m\n"), ok},
      {"cmd-setcfg", Argument("obj-config", "queue=q\n"), ok},
      {"cmd-getcfg", "", ok + Argument("obj-config", "queue=q\n")},
      {"cmd-setmon", Argument("obj-monitor", monitor), ok},
      {"cmd-getmon", "", ok + Argument("obj-monitor", monitor)},
      {"cmd-faxcln", "", ok},
      {"cmd-noop", "", ok},
  };
  for (const auto& [type, argument, answer] : kCases) {
    SCOPED_TRACE(type + "\n" + argument);
    EXPECT_EQ(Ask(type, argument), answer);
  }
  EXPECT_EQ(scheduler.Take().size(), 2u * 68);
  EXPECT_EQ(spool.Take().size(), 80u);
  EXPECT_EQ(ReadFile(Path("faxq/bob/a.fax")), "Cat");
  EXPECT_EQ(daemon_->Stop(), 0);
}

TEST_P(Served, SubmitThatWantsAnAnswerGetsItFromTheOtherSide) {
  const FifoReader spool(Path("krtnet/filspool/kfifo"));
  Start();
  root_.Drop("a", Command("cmd-sendfax", 1, 1, "respond=true\n"));
  EXPECT_TRUE(Eventually([&] { return spool.Take().size() == 80; }));
  // Its failure is this daemon's to tell.
  std::filesystem::remove(Path("krtnet/filspool/kfifo"));
  root_.Drop("b", Command("cmd-sendfax", 1, 2, "respond=true\n"));
  const std::string failed = root_.Response("0001-002");
  EXPECT_NE(failed.find("result=13\nerrmsg=Cannot open cmd fifo: No such file "
                        "or directory\n"),
            std::string::npos)
      << failed;
  EXPECT_FALSE(std::filesystem::exists(Path("krtnet/filspool/0001-001.rsp")));
}

// What a program printed, or a user's file says, is not what the daemon reads.
TEST_P(Served, FilesNamedInHandedOnObjectsAreNotEmbedded) {
  const passwd* self = getpwuid(getuid());
  ASSERT_NE(self, nullptr);
  root_.Put("secret", "secret");
  const std::string file = "pathname=" + Path("secret") + "\n";
  const std::string status =
      "seqno=7\n" + ListField("ltags", "obj-file", {file});
  root_.Put("object", Object("obj-file", file));
  root_.Put("faxq/jsmith/events/7", Object("obj-status", status));
  Start();
  EXPECT_EQ(
      Ask("cmd-extcmd", External("cat " + Path("object"), "retobj=true\n"),
          self->pw_name),
      kDone + Argument("obj-file", file));
  const std::string answer =
      Ask("cmd-status", Argument("obj-reqid", "seqno=7\n"));
  EXPECT_TRUE(answer.starts_with(kDone)) << answer;
  EXPECT_EQ(answer.find("filedata"), std::string::npos) << answer;
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
  const std::string much = ListField("objptr", "obj-text",
                                     std::vector<std::string>(400, "text=x\n"));
  std::string pad, messages;
  for (int i = 0; i < 400; ++i) {
    pad += "unknown=" + std::string(200, 'x') + "\n";
    messages += Object("obj-servmsg", "");
  }
  const auto Image = [](const std::string& name) {
    return Argument("obj-faxinfo", "filename=" + name + "\nclientid=jsmith\n");
  };
  const auto Message = [](const std::string& name) {
    return Argument("obj-resource", "rname=" + name + "\n");
  };
  root_.Put("faxq/jsmith/b.fax", std::string(4096, 'x'));
  root_.Put("faxq/jsmith/msgs/lines", "\n\n\n\n");
  root_.Put("faxq/jsmith/msgs/bytes", std::string(256, 'x') + "\n");
  root_.Put("faxq/jsmith/msgs/full", std::string(255, 'x') + "\n");
  root_.Put("faxq/jsmith/msgs/msg.srv", messages);
  for (const char* hole : {"faxq/jsmith/a.fax", "faxq/jsmith/msgs/hole"}) {
    root_.Put(hole, "");
    std::filesystem::resize_file(Path(hole), 1L << 40);
  }
  setenv("KFAXLIMITS",
         "object-bytes=64K command-bytes=64K file-bytes=4K message-lines=3 "
         "message-bytes=256",
         1);
  Start();
  unsetenv("KFAXLIMITS");

  root_.Drop("0001-999", Command("cmd-sendfax", 1, 999, much));
  root_.Drop("nameless", "cmdtype=cmd-noop\n" + much + "objend=\n");
  const std::tuple<std::string, std::string, std::string> kCases[] = {
      {"cmd-noop", much, memory},
      {"cmd-noop", "objptr=obj-text\n" + pad, size},
      // What is behind it counts as well.
      {"cmd-sendfax", much + "respond=true\n", memory},
      {"cmd-login", much + "respond=true\n",
       "result=19\nerrmsg=Unsupported command type cmd-login\n"},
      {"cmd-imgdel", Image("a.fax") + much, memory},
      {"cmd-imgdel", Image("a.fax") + pad, size},
      {"cmd-imgret", Image("a.fax"),
       "result=13\nerrmsg=File a.fax is larger than 4K\n"},
      {"cmd-msgret", Message("lines"), text},
      {"cmd-msgret", Message("hole"), text},
      {"cmd-msgret", Message("bytes"), text},
      {"cmd-msgret", Message("full"), kDone + Text({std::string(255, 'x')})},
      {"cmd-msglist", Argument("obj-reqlst", "listtype=lst-srvmsgs\n"),
       "result=19\nerrmsg=Invalid msg type lst-srvmsgs\n"},
  };
  for (const auto& [type, argument, answer] : kCases) {
    EXPECT_EQ(Ask(type, argument), answer) << type;
  }
  EXPECT_TRUE(Ask("cmd-imgret", Image("b.fax")).starts_with(kDone));
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
  root_.Drop("a", Command("cmd-cvrtags", 1, 1,
                          Argument("obj-resource", "rname=slow\n")));
  ASSERT_TRUE(Eventually([&] { return root_.Has("started"); }));
  EXPECT_EQ(daemon_->Stop(), 0) << "it waited for the program";
  const std::string response = root_.Response(support::ExchangeName(1, 1));
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
  setenv("KFAXLIMITS", "worker-bytes=64M worker-file-bytes=2M object-bytes=1G",
         1);
  Start();
  unsetenv("KFAXLIMITS");
  const std::string self = getpwuid(getuid())->pw_name;
  EXPECT_EQ(Ask("cmd-extcmd", External(Path("limits")), self),
            kDone + Text({"0", worker ? "2" : "0"}));
  if (!worker) return;
  EXPECT_EQ(Ask("cmd-extcmd", External(Path("big"), "retobj=true\n"), self),
            "result=1\nerrmsg=Extern cms failed: No memory\n");
}
#endif

// ---- Identity ----

TEST_P(Served, ProgramsRunAsTheUserAndTheDaemonStaysItself) {
  const Account account;
  SKIP_WITHOUT_ACCOUNT(account);
  root_.AddUser(account.name());
  for (const char* dir : {"", "/msgs", "/events", "/options"}) {
    const std::string path = Path("faxq/" + account.name() + dir);
    ASSERT_EQ(chown(path.c_str(), account.uid(), account.gid()), 0);
  }
  root_.Put("faxq/jsmith/a.fax", "image");
  root_.Put("secret", "secret");
  chmod(Path("secret").c_str(), 0600);
  std::filesystem::create_directory(Path("bin"));
  root_.PutProgram("bin/krtprint", "id -u >&2; exit 1");
  root_.PutProgram("bin/who", "id -u; id -ru; id -g; id -G\nls /proc/$$/fd");
  const std::string path = getenv("PATH");
  setenv("PATH", (Path("bin") + ":" + path).c_str(), 1);
  Start();
  setenv("PATH", path.c_str(), 1);

  const std::string uid = std::to_string(account.uid());
  std::string groups = account.Groups();
  groups.pop_back();
  // Descriptor 10 is the shell's own, its script.
  EXPECT_EQ(Ask("cmd-extcmd", External("who"), account.name()),
            kDone + Text({uid, uid, std::to_string(account.gid()), groups, "0",
                          "1", "10", "2"}));
  EXPECT_EQ(
      Ask("cmd-extcmd", External("cat " + Path("secret")), account.name()),
      "result=13\nerrmsg=Extern cms failed: Command failed\n" +
          Text({"cat: " + Path("secret") + ": Permission denied"}));
  EXPECT_EQ(
      Ask("cmd-imgprint",
          Argument("obj-reqprt", Field("finfoptr", "obj-faxinfo",
                                       "filename=a.fax\nclientid=jsmith\n")),
          account.name()),
      "result=13\nerrmsg=" + uid + "\n");
  struct stat st;
  const std::string message =
      "/msgs/" + support::ExchangeName(1, reference_) + ".msg";
  ASSERT_EQ(stat(Path("faxq/" + account.name() + message).c_str(), &st), 0);
  EXPECT_EQ(st.st_uid, account.uid());
  EXPECT_EQ(st.st_mode & 0777, 0666u);
  // What only the daemon may write is still written.
  EXPECT_EQ(Ask("cmd-setcfg", Argument("obj-config")), kDone);
}

// ---- Orphans ----

pid_t ReadPid(const std::string& path) {
  pid_t pid = 0;
  std::ifstream(path) >> pid;
  return pid;
}

// Gone, or dead and waiting for somebody to notice.
bool HasEnded(pid_t pid) {
  std::string name, state;
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  return !(stat >> pid >> name >> state) || state == "Z";
}

pid_t ParentOf(pid_t pid) {
  std::string name, state;
  pid_t parent = 0;
  std::ifstream("/proc/" + std::to_string(pid) + "/stat") >> pid >> name >>
      state >> parent;
  return parent;
}

class Orphans : public Served {
 protected:
  // Starts a command that runs for ever, and a child of it; waits for both.
  void StartForEver() {
    root_.PutProgram("forever", "sleep 1000 & echo $! > " + Path("child.new") +
                                    "\necho $$ > " + Path("pid.new") + "\nmv " +
                                    Path("child.new") + " " + Path("child") +
                                    "\nmv " + Path("pid.new") + " " +
                                    Path("pid") + "\nwait");
    Start();
    const passwd* self = getpwuid(getuid());
    root_.Drop("a", Command("cmd-extcmd", 1, 1,
                            std::string("clientid=") + self->pw_name + "\n" +
                                External(Path("forever"))));
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
  pid_t worker = command_;
  while (ParentOf(worker) > 1 && ParentOf(worker) != daemon_->pid()) {
    worker = ParentOf(worker);
  }
  ASSERT_NE(worker, command_);
  kill(worker, SIGKILL);
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
