// Session numbers, waiting, giving up, and many clients at once.
#include "link/exchange.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "client/krtclient.h"
#include "link/link.h"
#include "support/ctl.h"
#include "util/kuttime.h"

namespace {

using client::Exchange;
using client::Place;
using client::Slot;
using client::Status;
using ctl::Server;
using support::Eventually;
using support::Exit;

Place PlaceOf(const Server& server) {
  Place place;
  EXPECT_TRUE(
      client::FindPlace(server.root().path().c_str(), nullptr, nullptr, &place)
          .ok());
  return place;
}

std::vector<std::string> Sessions(const Server& server) {
  std::vector<std::string> names;
  for (const auto& entry :
       std::filesystem::directory_iterator(server.Path("krtnet/sessions"))) {
    names.push_back(entry.path().filename());
  }
  return names;
}

kx::Object Noop() { return kx::Object(krt_command("cmd-noop", nullptr)); }

// Takes the command that appears as the daemon does: its new path.
std::string Claim(const Server& server, const std::string& name) {
  const auto from = server.root().spool() / (name + ".cmd");
  const auto to = server.root().spool() / (name + ".1");
  return rename(from.c_str(), to.c_str()) == 0 ? to.string() : "";
}

TEST(Slots, LeftOverNumberGoesOnCountingAndUsedOneIsLeftAlone) {
  const Server server;
  const Place place = PlaceOf(server);
  // Every number but one has something in the spool.
  for (int i = 0; i < client::kSlots; ++i) {
    char name[32];
    snprintf(name, sizeof name, "%04d-001.rsp", i);
    if (i != 77) WriteFile(server.root().spool() / name, "");
  }
  WriteFile(server.Path("krtnet/sessions/0077.ctl"), "998\n");
  Slot slot;
  ASSERT_TRUE(slot.Reserve(place).ok());
  EXPECT_EQ(slot.number(), 77);
  EXPECT_EQ(slot.session() % 10000, 77);
  int reference = 0;
  for (const int expected : {999, 1, 2}) {
    ASSERT_TRUE(slot.NextReference(&reference).ok());
    EXPECT_EQ(reference, expected);
  }
  Slot second;
  EXPECT_EQ(second.Reserve(place).code, krt_system);
  EXPECT_EQ(Sessions(server), std::vector<std::string>{"0077.ctl"});
}

TEST(Exchanges, ResponseOfAnotherSessionIsNotTaken) {
  const Server server;
  Exchange exchange;
  ASSERT_TRUE(exchange.Open(PlaceOf(server)).ok());
  kx::Object cmd = Noop();
  std::string name;
  ASSERT_TRUE(exchange.Name(cmd.get(), &name).ok());
  ASSERT_TRUE(exchange.Send(cmd.get(), name).ok());
  const std::string text = ReadFile(server.root().spool() / (name + ".cmd"));
  EXPECT_EQ(text, client::TextForm(cmd.get()));
  // A late response to the number's earlier owner.
  const auto rsp = server.root().spool() / (name + ".rsp");
  kx::Object late(Kfx_Copy_Obj(cmd.get()));
  kx::SetNumber(late.get(), "sessionid",
                kx::Number(cmd.get(), "sessionid") ^ 10000);
  WriteFile(rsp, client::TextForm(late.get()));
  size_t which;
  kx::Object answer;
  client::WaitFor wait{Kut_now_ms() + 100, -1, nullptr};
  EXPECT_EQ(exchange.WaitAny({name}, wait, &which, &answer).code,
            krt_timed_out);
  EXPECT_EQ(answer, nullptr);
  kx::SetNumber(cmd.get(), "result", 0);
  WriteFile(rsp, client::TextForm(cmd.get()));
  wait.deadline = client::After(10);
  EXPECT_TRUE(exchange.WaitAny({name}, wait, &which, &answer).ok());
  EXPECT_FALSE(std::filesystem::exists(rsp));
}

// A command must not replace another one that nobody has taken yet.
TEST(Exchanges, NoMoreThanThereAreReferences) {
  const Server server;
  Exchange exchange;
  ASSERT_TRUE(exchange.Open(PlaceOf(server)).ok());
  const kx::Object cmd = Noop();
  std::string name;
  for (int i = 0; i < client::kMaxReference; ++i) {
    ASSERT_TRUE(exchange.Name(cmd.get(), &name).ok()) << i;
    WriteFile(server.root().spool() / (name + ".cmd"), "");
  }
  EXPECT_EQ(exchange.Name(cmd.get(), &name).code, krt_system);
}

// Client and daemon reach for the command at the same time: one of them gets
// it, whatever the moment.
TEST(Exchanges, WithdrawalAndClaimNeverBothSucceed) {
  const Server server;
  Exchange exchange;
  ASSERT_TRUE(exchange.Open(PlaceOf(server)).ok());
  int withdrawn = 0;
  for (int i = 0; i < 300; ++i) {
    kx::Object cmd = Noop();
    std::string name;
    ASSERT_TRUE(exchange.Name(cmd.get(), &name).ok());
    ASSERT_TRUE(exchange.Send(cmd.get(), name).ok());
    std::string claimed;
    std::atomic<bool> go = false;
    std::thread daemon([&] {
      while (!go) {
      }
      const auto start = std::chrono::steady_clock::now();
      while (std::chrono::steady_clock::now() - start <
             std::chrono::nanoseconds(i * 100)) {
      }
      claimed = Claim(server, name);
    });
    go = true;
    const Status s = exchange.Withdraw(name);
    daemon.join();
    ASSERT_EQ(s.ok(), claimed.empty()) << i << ": " << s.text;
    withdrawn += s.ok() ? 1 : 0;
    if (!claimed.empty()) std::filesystem::remove(claimed);
  }
  EXPECT_EQ(server.root().SpoolNames(), std::vector<std::string>{});
  RecordProperty("withdrawn", withdrawn);
}

TEST(GivingUp, UnclaimedCommandIsTakenBack) {
  Server server;
  server.Pretend();
  ctl::Session(server, R"(
75$ krtctl ping --timeout 1
! ping: no answer in 1 s, not executed
75$ KRTCTL_TIMEOUT=1 krtctl --json ping
!{"type":"error","verb":"ping","message":"no answer in 1 s, not executed","status":75}
)");
  EXPECT_EQ(server.root().SpoolNames(), std::vector<std::string>{});
  EXPECT_EQ(Sessions(server), std::vector<std::string>{});
}

TEST(GivingUp, ClaimedCommandIsCollectedLater) {
  Server server;
  server.Pretend();
  std::string name;
  std::thread daemon([&] {
    name = server.AwaitCommand();
    Claim(server, name);
  });
  const Exit end = server.Run({"ping", "--timeout", "1"});
  daemon.join();
  EXPECT_EQ(end.status, 75);
  EXPECT_EQ(end.err, "krtctl: ping: outcome unknown, later: krtctl collect " +
                         name + "\n");
  // The slot's file waits with the answer.
  EXPECT_EQ(Sessions(server),
            std::vector<std::string>{name.substr(0, 4) + ".ctl"});
  const Exit early = server.Run({"collect", name, "--timeout", "1"});
  EXPECT_EQ(early.status, 75);
  EXPECT_EQ(early.err, "krtctl: collect " + name + ": no answer\n");

  const std::string claim = server.root().spool() / (name + ".1");
  const std::string answer = ReadFile(claim);
  std::filesystem::remove(claim);
  WriteFile(server.root().spool() / (name + ".rsp"), answer);
  const Exit late = server.Run({"collect", name});
  EXPECT_EQ(late.status, 1);  // a command has no "result"
  EXPECT_EQ(late.out, answer);
  EXPECT_EQ(server.root().SpoolNames(), std::vector<std::string>{});
  EXPECT_EQ(Sessions(server), std::vector<std::string>{});
}

TEST(GivingUp, SignalsEndTheWaitAndTakeTheCommandBack) {
  for (const int sig : {SIGINT, SIGTERM}) {
    Server server;
    server.Pretend();
    ctl::Session(
        server,
        std::to_string(128 + sig) +
            "$ $KRTCTL --root ROOT ping & pid=$!; while [ -z \"$(ls SPOOL)\" "
            "]; do :; done; kill -" +
            std::to_string(sig) +
            " $pid; wait $pid\n! ping: interrupted, not executed\n"
            // It reads its input, and is killed where it does not heed this.
            "124$ mkfifo ROOT/pipe; timeout -k 9 -s " +
            std::to_string(sig) + " 0.5 $KRTCTL raw ROOT/pipe\n");
    EXPECT_EQ(server.root().SpoolNames(), std::vector<std::string>{});
  }
}

TEST(GivingUp, DaemonThatDoesNotRunIsSaidSo) {
  const Server server;
  // A dead entry may be that of another host: the command is offered a while.
  ctl::Session(server, R"(
69$ krtctl ping
! ping: the daemon is not running; start it (systemctl start krtcmd), then: krtctl ping
69$ echo 999999999:krtcmd > ROOT/krtnet/krtnet.lck; krtctl ping --timeout 1
! ping: the daemon is not running; start it (systemctl start krtcmd), then: krtctl ping
)");
  EXPECT_EQ(server.root().SpoolNames(), std::vector<std::string>{});
}

// What lies under the response's name and is none stays: it is all that tells
// what became of the command.
TEST(Responses, OnlyWholeRegularFilesAreTaken) {
  ctl::Session(Server(), R"(
70$ cd SPOOL; echo hello > 0007-001.rsp; krtctl collect 0007-001
! collect 0007-001: SPOOL/0007-001.rsp: not a response: User rtn failed
70$ cd SPOOL; echo objbeg=obj-cmdrsp > 0007-002.rsp; krtctl collect 0007-002
! collect 0007-002: SPOOL/0007-002.rsp: not a response: User rtn failed
70$ cd SPOOL; printf 'objbeg=obj-arg\nobjend=\n' > 0007-003.rsp; krtctl collect 0007-003
! collect 0007-003: SPOOL/0007-003.rsp: not a response: Invalid object
74$ cd SPOOL; ln -s /etc/passwd 0007-004.rsp; krtctl collect 0007-004
! collect 0007-004: SPOOL/0007-004.rsp: Too many levels of symbolic links
74$ cd SPOOL; mkfifo 0007-005.rsp; krtctl collect 0007-005
! collect 0007-005: SPOOL/0007-005.rsp: Invalid argument
74$ cd SPOOL; mkdir 0007-006.rsp; krtctl collect 0007-006
! collect 0007-006: SPOOL/0007-006.rsp: Is a directory
$ ls SPOOL | wc -l
6
)");
}

TEST(Places, RootComesFromTheFirstThatNamesOne) {
  const Server server;
  const std::string root = server.root().path();
  const std::string defaults = server.Path("defaults");
  const struct {
    const char* line;  // %s is the root
    bool found;
  } kCases[] = {{"KFAXDIR=%s", true},
                {"KFAXDIR=%s # where it is", true},
                {"export KFAXDIR=\"%s\"", true},
                {"  KFAXDIR='%s'", true},
                {"KFAXDIR=/nonexistent\nKFAXDIR=%s", true},
                {"#KFAXDIR=%s", false},
                {"NOTKFAXDIR=%s", false},
                {"KFAXDIR=", false}};
  for (const auto& c : kCases) {
    std::string text = c.line;
    const size_t at = text.find("%s");
    if (at != text.npos) text.replace(at, 2, root);
    WriteFile(defaults, text + "\n");
    Place place;
    client::ChooseRoot(nullptr, defaults.c_str(), &place);
    EXPECT_EQ(place.root, c.found ? root : "/usr/krtfax/spool") << text;
    EXPECT_EQ(place.source, c.found ? defaults : "built-in default") << text;
  }
  // A directory without the folders of a root.
  Place place;
  EXPECT_EQ(client::FindPlace("/", nullptr, defaults.c_str(), &place).code,
            krt_no_root);
}

// A daemon that watches another folder than the protocol's.
TEST(Places, SpoolOfAnotherDaemon) {
  Server server;
  const std::string spool = server.Path("other");
  std::filesystem::create_directory(spool);
  server.Start({"-d", spool});
  ctl::Session(server, R"(
$ krtctl --spool ROOT/other ping -q
)");
}

// Every client sends a host name of its own, which its answer must repeat.
TEST(ManyClients, TwoHundredKeepTheirAnswersApart) {
  Server server;
  server.Start();
  const std::string out = server.Path("answers");
  std::filesystem::create_directory(out);
  ctl::Session(server, R"(
$ for i in $(seq 200); do printf "objbeg=obj-cmdrsp\nhostname=h$i\ncmdtype=cmd-noop\nobjend=\n" | krtctl --timeout 120 raw > ROOT/answers/$i 2>&1 & done; wait
)");
  for (int i = 1; i <= 200; ++i) {
    const std::string answer = ReadFile(out + "/" + std::to_string(i));
    EXPECT_NE(answer.find("\nhostname=h" + std::to_string(i) + "\n"),
              answer.npos)
        << i << ": " << answer;
    EXPECT_NE(answer.find("\nresult=0\n"), answer.npos) << i;
  }
  EXPECT_EQ(server.root().SpoolNames(), std::vector<std::string>{});
  EXPECT_EQ(Sessions(server), std::vector<std::string>{});
}

// The library, as another program uses it.
TEST(Library, CallSendAndWait) {
  Server server;
  server.Start();
  const std::string root = server.root().path();
  const krt_options options = {root.c_str(), nullptr, nullptr, 20, 0};
  krt_client* client = nullptr;
  kx_object* answer = nullptr;
  ASSERT_EQ(krt_open(&options, &client), krt_ok) << krt_open_error();
  EXPECT_STREQ(krt_root_source(client), "--root");
  EXPECT_EQ(krt_call(client, krt_command("cmd-noop", nullptr), &answer),
            krt_ok);
  EXPECT_STREQ(kx::Text(answer, "clientid"), server.user().c_str());
  Kfx_Free_Obj(answer);
  EXPECT_EQ(krt_call(client, krt_command("cmd-image", nullptr), &answer),
            krt_refused);
  EXPECT_EQ(krt_result(client), 13);
  EXPECT_STREQ(krt_error(client), "Image cmd not yet implemented (13)");
  Kfx_Free_Obj(answer);
  EXPECT_EQ(krt_call(client, krt_command("cmd-bogus", nullptr), &answer),
            krt_usage);
  EXPECT_EQ(answer, nullptr);
  char first[16];
  char second[16];
  ASSERT_EQ(krt_send(client, krt_command("cmd-noop", nullptr), first), krt_ok);
  ASSERT_EQ(krt_send(client, krt_command("cmd-noop", nullptr), second), krt_ok);
  for (const char* name : {second, first}) {
    EXPECT_EQ(krt_wait(client, name, &answer), krt_ok) << krt_error(client);
    Kfx_Free_Obj(answer);
  }
  for (const char* name : {static_cast<const char*>(nullptr), "../x"}) {
    EXPECT_EQ(krt_wait(client, name, &answer), krt_usage);
    EXPECT_STREQ(krt_error(client), "no name of an exchange");
  }
  krt_close(client);
  const krt_options nowhere = {"/nonexistent", nullptr, nullptr, -1, 0};
  EXPECT_EQ(krt_open(&nowhere, &client), krt_no_root);
  EXPECT_STREQ(krt_open_error(),
               "root (--root) /nonexistent: No such file or directory");
}

}  // namespace
