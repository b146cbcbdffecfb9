// A fax's whole life, with the daemon and the simulator of the rest.
#include "client/ctl.h"
#include "support/own_ipc.h"
#include "support/simulator_process.h"

namespace {

using ctl::Expect;
using ctl::Server;
using support::Exit;
using support::ReadFile;
using support::SimulatorProcess;
using support::WriteFile;

class Submit : public ::testing::Test {
 protected:
  void SetUp() override {
    SKIP_WITHOUT(ipc_);
    WriteFile(file_, "%!PS\n");
  }
  void Simulate(const std::vector<std::string>& args) {
    sim_ =
        std::make_unique<SimulatorProcess>(KRTSIM_PATH, server_.root(), args);
    server_.Start();
  }

  OwnIpc ipc_;
  Server server_;
  const std::string file_ = server_.Path("doc.ps");
  std::unique_ptr<SimulatorProcess> sim_;
};

TEST_F(Submit, LifeOfARequest) {
  Simulate({"--delay", "0.1", "--retry", "0.1", "--outcome", "99=busy"});
  Expect(server_, {{{"submit", file_, "-t", "555-0142"},
                    0,
                    "request 1 queued for 555-0142\n",
                    ""},
                   {{"submit", file_, "-qt1", "-t", "2"}, 0, "2\n3\n", ""},
                   {{"wait", "1", "2", "-q", "3"}, 0, "", ""},
                   {{"submit", "--wait", "-q", file_, "--to", "99"},
                    1,
                    "4\n",
                    "krtctl: submit 4: Max attempts reached\n"}});
  const Exit piped = server_.Shell(
      "echo hello | krtctl submit - -t 7 -j --cover std --subject 'A b' --note "
      "n --at +1h --priority h --resolution fine --notify each --tag a=b");
  EXPECT_EQ(piped.status, 0) << piped.err;
  EXPECT_NE(piped.out.find("\"seqno\":5,"), piped.out.npos) << piped.out;
  EXPECT_NE(piped.out.find("\"tofnum\":\"7\""), piped.out.npos) << piped.out;
  const Exit attempts = server_.Run({"status", "4", "--attempts", "-q"});
  EXPECT_EQ(std::count(attempts.out.begin(), attempts.out.end(), '\n'), 4)
      << attempts.out;
  EXPECT_EQ(server_.root().SpoolNames(),
            (std::vector<std::string>{"efifo", "kfifo"}));
}

TEST_F(Submit, WaitingRequestsAreShownAndCancelled) {
  Simulate({});
  ASSERT_EQ(server_.Run({"submit", file_, "-qt", "1", "--at", "+2h"}).out,
            "1\n");
  const Exit queue = server_.Run({"queue", "-q"});
  EXPECT_EQ(queue.out.substr(0, 2), "1\t");
  EXPECT_EQ(server_.Run({"queue", "--shape", "-q", "--all"}).out.substr(0, 8),
            "all\t1\t1\t");
  EXPECT_EQ(server_.Run({"-n", "queue"}).status, 0);
  Expect(server_, {{{"cancel", "1"}, 0, "request 1 cancelled\n", ""},
                   {{"wait", "1"}, 1, "*", "krtctl: wait 1: Cancelled\n"},
                   {{"cancel", "9"}, 1, "", "*"}});
  if (getuid() != 0) return;
  server_.root().AddUser("nobody");
  ASSERT_EQ(server_.Run({"submit", file_, "-qt", "1", "--at", "+2h"}).out,
            "2\n");
  Expect(server_, {{{"-u", "nobody", "cancel", "2"},
                    77,
                    "",
                    "krtctl: cancel 2: Permission denied (12)\n"}});
}

TEST_F(Submit, WhatIsRefusedLeavesNothingBehind) {
  server_.Start();
  WriteFile(server_.Path("empty"), "");
  const std::string long_text(64, 'x');
  Expect(
      server_,
      {{{"submit", file_, "-t", "1"},
        69,
        "",
        "krtctl: submit 1: Cannot open cmd fifo: No such file or directory "
        "(13); the queueing side is not running: krtctl check\n"},
       {{"submit", server_.Path("none"), "-t", "1"},
        66,
        "",
        "krtctl: submit: " + server_.Path("none") +
            ": No such file or directory\n"},
       {{"submit", server_.Path("empty"), "-t", "1"},
        66,
        "",
        "krtctl: submit: " + server_.Path("empty") + ": is empty\n"},
       {{"submit", "/tmp", "-t", "1"},
        66,
        "",
        "krtctl: submit: /tmp: not a file\n"},
       {{"submit", file_, "-t", "1", "--subject", long_text},
        65,
        "",
        "krtctl: submit: subject: at most 63 bytes, not 64\n"},
       {{"submit", file_, "-t", "1", "--at", "25:00"},
        64,
        "",
        "krtctl: --at: \"25:00\" is not a time (now, HH:MM, YYYY-MM-DD HH:MM, "
        "+2h)\n"},
       {{"submit", file_, "-t", "1", "--tag", "x"},
        64,
        "",
        "krtctl: --tag: not NAME=VALUE: x\n"}});
  const Exit dry = server_.Run({"-n", "submit", file_, "-t", "1", "-t", "2"});
  EXPECT_EQ(dry.status, 0);
  EXPECT_NE(dry.out.find("reference=2\n"), dry.out.npos);
  EXPECT_EQ(server_.root().SpoolNames(), std::vector<std::string>{});
  // Given up, the copy goes with the command.
  server_.Stop();
  server_.Pretend();
  EXPECT_EQ(server_.Run({"submit", file_, "-t1", "--timeout", "1"}).status, 75);
  EXPECT_EQ(server_.root().SpoolNames(), std::vector<std::string>{});
}

TEST_F(Submit, NumbersComeFromThePhoneBook) {
  Simulate({"--delay", "0.1"});
  ASSERT_EQ(server_.Run({"pb", "init", "--book", "system"}).status, 0);
  ASSERT_EQ(server_.Run({"pb", "init"}).status, 0);
  for (const char* line :
       {"pb add palias=ann fname=Ann lname=Lee fax='49 89 1234 x5'",
        "pb add palias=bob lname=Bob fax=2", "pb add palias=nofax lname=C",
        "pb group add all", "pb group join all ann bob nofax",
        "pb add --book system palias=sys fax=3"}) {
    const Exit end = server_.Shell(std::string("krtctl -q ") + line);
    EXPECT_EQ(end.status, 0) << line << ": " << end.err;
  }
  Expect(server_, {{{"submit", file_, "-t", "@ANN"},
                    0,
                    "request 1 queued for 49-89-1234 x5\n",
                    ""},
                   {{"submit", file_, "-t", "@all", "-t", "@sys"},
                    65,
                    "request 2 queued for 49-89-1234 x5\n"
                    "request 3 queued for 2\nrequest 4 queued for 3\n",
                    "krtctl: submit @nofax: the person has no fax number\n"},
                   {{"submit", file_, "-t", "@nofax"},
                    65,
                    "",
                    "krtctl: submit @nofax: the person has no fax number\n"},
                   {{"submit", file_, "-t", "@zed"},
                    1,
                    "",
                    "krtctl: submit @zed: not in the phone book\n"}});
}

// A command that is not waited for leaves its copy until the answer is there.
TEST_F(Submit, CopiesStayUntilTheAnswerIsCollected) {
  Simulate({"--delay", "0.1"});
  const Exit sent =
      server_.Run({"submit", file_, "-t", "1", "--no-wait", "-q"});
  const std::string name = sent.out.substr(0, 8);
  EXPECT_TRUE(
      std::filesystem::exists(server_.root().spool() / (name + ".1.ps")));
  const Exit answer = server_.Run({"collect", name});
  EXPECT_EQ(answer.status, 0) << answer.err;
  EXPECT_NE(answer.out.find("seqno=1\n"), answer.out.npos);
  EXPECT_EQ(server_.root().SpoolNames(),
            (std::vector<std::string>{"efifo", "kfifo"}));
}

}  // namespace
