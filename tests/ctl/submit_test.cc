// A fax's whole life, with the daemon and the simulator of the rest.
#include "support/ctl.h"
#include "support/own_ipc.h"
#include "support/processes.h"

namespace {

using ctl::Server;
using ctl::Session;
using support::Exit;
using support::SimulatorProcess;

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
  Session(server_, R"(
$ krtctl submit ROOT/doc.ps -t 555-0142
request 1 queued for 555-0142
$ krtctl submit ROOT/doc.ps -qt1 -t 2
2
3
$ krtctl wait 1 2 -q 3
1$ krtctl submit --wait -q ROOT/doc.ps --to 99
4
! submit 4: Max attempts reached
)");
  Session(server_, R"(
$ echo hello | krtctl submit - -t 7 -j --cover std --subject 'A b' --note n --at +1h --priority h --resolution fine --notify each --tag a=b | grep -o '"seqno":5,\|"tofnum":"7"'
"seqno":5,
"tofnum":"7"
$ krtctl status 4 --attempts -q | wc -l
4
)");
  EXPECT_EQ(server_.root().SpoolNames(),
            (std::vector<std::string>{"efifo", "kfifo"}));
}

TEST_F(Submit, WaitingRequestsAreShownAndCancelled) {
  Simulate({});
  Session(server_, R"(
$ krtctl submit ROOT/doc.ps -qt 1 --at +2h
1
$ krtctl queue -q | cut -f1
1
$ krtctl queue --shape -q --all | head -n 1 | cut -f1-3
all	1	1
$ krtctl -n queue
*
$ krtctl cancel 1
request 1 cancelled
1$ krtctl wait 1
*
! wait 1: Cancelled
1$ krtctl cancel 9
!*
)");
  if (getuid() != 0) return;
  server_.root().AddUser("nobody");
  Session(server_, R"(
$ krtctl submit ROOT/doc.ps -qt 1 --at +2h
2
77$ krtctl -u nobody cancel 2
! cancel 2: Permission denied (12)
)");
}

TEST_F(Submit, WhatIsRefusedLeavesNothingBehind) {
  server_.Start();
  WriteFile(server_.Path("empty"), "");
  Session(server_, R"(
69$ krtctl submit ROOT/doc.ps -t 1
! submit 1: Cannot open cmd fifo: No such file or directory (13); the queueing side is not running: krtctl check
66$ krtctl submit ROOT/none -t 1
! submit: ROOT/none: No such file or directory
66$ krtctl submit ROOT/empty -t 1
! submit: ROOT/empty: is empty
66$ krtctl submit /tmp -t 1
! submit: /tmp: not a file
65$ krtctl submit ROOT/doc.ps -t 1 --subject xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx
! submit: subject: at most 63 bytes, not 64
64$ krtctl submit ROOT/doc.ps -t 1 --at 25:00
! --at: "25:00" is not a time (now, HH:MM, YYYY-MM-DD HH:MM, +2h)
64$ krtctl submit ROOT/doc.ps -t 1 --tag x
! --tag: not NAME=VALUE: x
$ krtctl -n submit ROOT/doc.ps -t 1 -t 2 | grep reference
reference=1
reference=2
)");
  EXPECT_EQ(server_.root().SpoolNames(), std::vector<std::string>{});
  // Given up, the copy goes with the command.
  server_.Stop();
  server_.Pretend();
  EXPECT_EQ(server_.Run({"submit", file_, "-t1", "--timeout", "1"}).status, 75);
  EXPECT_EQ(server_.root().SpoolNames(), std::vector<std::string>{});
}

TEST_F(Submit, NumbersComeFromThePhoneBook) {
  Simulate({"--delay", "0.1"});
  Session(server_, R"(
$ krtctl -q pb init && krtctl -q pb init --book system
$ printf 'palias,lname,fax\nann,Lee,49 89 1234 x5\nbob,Bob,2\nnofax,C,\n' | krtctl -q pb import -
$ krtctl -q pb group add all && krtctl -q pb group join all ann bob nofax
$ krtctl -q pb add --book system palias=sys fax=3
sys
$ krtctl submit ROOT/doc.ps -t @ANN
request 1 queued for 49-89-1234 x5
65$ krtctl submit ROOT/doc.ps -t @all -t @sys
request 2 queued for 49-89-1234 x5
request 3 queued for 2
request 4 queued for 3
! submit @nofax: the person has no fax number
65$ krtctl submit ROOT/doc.ps -t @nofax
! submit @nofax: the person has no fax number
1$ krtctl submit ROOT/doc.ps -t @zed
! submit @zed: not in the phone book
)");
}

// A command that is not waited for leaves its copy until the answer is there.
TEST_F(Submit, CopiesStayUntilTheAnswerIsCollected) {
  Simulate({"--delay", "0.1"});
  const Exit sent =
      server_.Run({"submit", file_, "-t", "1", "--no-wait", "-q"});
  const std::string name = sent.out.substr(0, 8);
  EXPECT_TRUE(
      std::filesystem::exists(server_.root().spool() / (name + ".1.ps")));
  Session(server_, "$ krtctl collect " + name + " | grep seqno\nseqno=1\n");
  EXPECT_EQ(server_.root().SpoolNames(),
            (std::vector<std::string>{"efifo", "kfifo"}));
}

}  // namespace
