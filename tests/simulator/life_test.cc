// The life of a fax, from a client's command to its end, by the real daemon and
// the simulator.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <optional>
#include <tuple>

#include "faxserver/fsolog.h"
#include "faxserver/fsshm.h"
#include "simulator/sim_root.h"
#include "support/objects.h"
#include "support/own_ipc.h"
#include "support/processes.h"

namespace {

using support::DaemonProcess;
using support::SimulatorProcess;

std::string Destination(const std::string& number) {
  return Argument("obj-dest", "tofnum=" + number + "\n");
}

class Life : public testing::Test {
 protected:
  void SetUp() override { SKIP_WITHOUT(ipc_); }

  void Start(const std::vector<std::string>& args) {
    sim_.emplace(KRTSIM_PATH, root_, args);
    daemon_.emplace(KRTCMD_PATH, root_);
  }
  // Sends a command of the caller's and gives the answer.
  std::string Ask(const std::string& type, const std::string& more) {
    return root_.Ask(type, "clientid=" + root_.user() + "\n" + more);
  }
  void Submit(const std::string& number, const std::string& more = "") {
    Ask("cmd-sendfax",
        "respond=true\n" +
            Argument("obj-senv", "tofnum=" + number + "\n" + more));
  }
  std::string SubmitAll(const std::string& destinations,
                        const std::string& more = "") {
    return Ask("cmd-sendfax",
               "respond=true\n" +
                   Argument("obj-env",
                            Field("destptr", "obj-list", destinations) + more));
  }
  std::string AskFor(const std::string& type, int seqno) {
    return Ask(type, RequestId(std::to_string(seqno)));
  }
  std::string Status(int seqno) { return AskFor("cmd-status", seqno); }
  // An answer of this client's.
  std::string Answer(const std::string& type, const std::string& result = "0\n",
                     const char* respond = "false") const {
    return Object("obj-cmdrsp",
                  "clientid=" + root_.user() +
                      "\nhostname=hostA\nsessionid=1\nreference=" +
                      std::to_string(root_.reference()) + "\ncmdtype=" + type +
                      "\niscmd=false\nrespond=" + respond +
                      "\nresult=" + result);
  }
  std::string Message(const std::string& name) const {
    return ReadFile(root_ / "faxq/" + root_.user() + "/msgs/" + name);
  }

  OwnIpc ipc_;
  SimRoot root_;
  std::optional<SimulatorProcess> sim_;
  std::optional<DaemonProcess> daemon_;
};

bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// The daemon answers who wants no response, the queueing side everybody else;
// never both.
TEST_F(Life, EverySubmitHasOneAnswer) {
  Start({"--delay", "60"});
  const std::string envelope = Argument("obj-senv", "tofnum=5550100\n");
  int seqno = 0;
  for (const std::string respond : {"respond=true\n", "respond=false\n", ""}) {
    const std::string answer = Ask("cmd-sendfax", respond + envelope);
    const std::string number = std::to_string(++seqno);
    ASSERT_TRUE(sim_->Await("request " + number + ": queued")) << respond;
    const std::string id =
        Argument("obj-reqid",
                 "seqno=" + number +
                     "\nreqtype=req-regular\nsessionid=1\nreference=" + number +
                     "\nqueue=any\n");
    EXPECT_EQ(answer, respond == "respond=false\n"
                          ? Answer("cmd-sendfax", "0\n", "true")
                          : Answer("cmd-sendfax", "0\n" + id));
  }
  // The noop goes the same way and comes after.
  EXPECT_NE(Ask("cmd-noop", ""), "");
  EXPECT_EQ(root_.SpoolNames(), (std::vector<std::string>{"efifo", "kfifo"}));
  EXPECT_TRUE(std::filesystem::is_empty(root_.Path("krtnet/queued")));
}

TEST_F(Life, BusyOnceThenSent) {
  Start({"--outcome", "99=busy,ok", "--delay", "0.1", "--retry", "0.1",
         "--pages", "3"});
  Submit("555-0199", "notify=not-okfail\n");
  ASSERT_TRUE(sim_->Await("request 1: over: Normal"));

  const std::string status = Status(1);
  for (const char* line :
       {"\nattempt=2\n", "\naresult=1\n", "\nrresult=1000\n", "\nnpages=3\n",
        "\nnumpgs=3\n", "\ndone=true\n", "\nactive=act-done\n",
        "\ndialed=555-0199\n", "\ncsi=FAX 555-0199\n"}) {
    EXPECT_TRUE(Holds(status, line)) << line << status;
  }
  const std::string attempts = AskFor("cmd-statatt", 1);
  const size_t busy = attempts.find("\nattempt=1\n");
  EXPECT_LT(busy, attempts.find("\naresult=4\nrresult=1001\n"));
  EXPECT_LT(attempts.find("\naresult=4\n"), attempts.find("\nattempt=2\n"));
  EXPECT_LT(attempts.find("\nattempt=2\n"), attempts.find("\nattempt=0\n"));

  const auto log = fx_read_olog_list(root_.root(), 1, root_.user().c_str(), 10);
  ASSERT_EQ(log.size(), 2U);
  EXPECT_EQ(log[0].aresult, 4);
  EXPECT_EQ(log[1].npages, 3);
  EXPECT_EQ(log[1].clientid, root_.user());
  EXPECT_EQ(log[1].queue, "any");

  EXPECT_TRUE(root_.Has("expired/x-1"));
  EXPECT_FALSE(root_.Has("requests/r-1"));
  EXPECT_FALSE(root_.Has("temp/f-1.fax"));
  EXPECT_EQ(fx_get_jobs_in_queue(""), 0);
  EXPECT_EQ(fx_get_device_state("", 0), 2);
  EXPECT_EQ(Message("fax-1.msg"),
            "Your fax to 555-0199 (request 1)\nNormal\nAttempts: 2\n"
            "Pages: 3\n");
  EXPECT_TRUE(sim_->Await("krtnet.net: event 8 for " + root_.user() +
                          ": messages changed\n"));
}

TEST_F(Life, CancelEndsARequestThatIsSentAndOneThatWaits) {
  Start({"--delay", "60", "--outcome", "1=busy"});
  Submit("5550101");
  ASSERT_TRUE(sim_->Await("request 1: attempt 1 on fax0\n"));
  // The only other device is taken by the second, so the third waits.
  Submit("5550100");
  Submit("5550100");
  ASSERT_TRUE(sim_->Await("request 2: attempt 1 on fax1\n"));
  ASSERT_TRUE(sim_->Await("request 3: queued"));
  EXPECT_TRUE(
      support::Eventually([] { return fx_get_jobs_in_queue("") == 3; }));
  EXPECT_EQ(fx_get_device_state("", 1), 3);

  const std::string cancelled = AskFor("cmd-cancel", 3);
  EXPECT_EQ(cancelled, Answer("cmd-cancel"));
  EXPECT_TRUE(
      sim_->Await("scheduler: cancel request 3\n"
                  "request 3: over: Cancelled\n"));
  const std::string status = Status(3);
  EXPECT_TRUE(Holds(status, "\nattempt=0\n")) << status;
  EXPECT_TRUE(Holds(status, "\naresult=2\nrresult=1004\n")) << status;

  AskFor("cmd-cancel", 1);
  EXPECT_TRUE(sim_->Await("request 1: over: Cancelled\n"));
  EXPECT_TRUE(Holds(Status(1), "\naresult=3\nrresult=1004\n"));
  EXPECT_TRUE(sim_->Await("krtnet.fil: event 16 for " + root_.user() +
                          ": a request was cancelled\n"));
  EXPECT_EQ(fx_get_jobs_in_queue(""), 1);
  // A request that is over is no longer there to be cancelled.
  EXPECT_TRUE(Holds(AskFor("cmd-cancel", 1), "\nresult=3\n"));
}

TEST_F(Life, TryDoesNotWaitForTheTimeToSend) {
  Start({"--delay", "0.05"});
  SubmitAll(Destination("5550100"),
            Field("paramptr", "obj-param", "sendtime=20370101000000\n"));
  EXPECT_TRUE(Holds(Status(1), "\nattempt=0\n"));
  const std::string tried = AskFor("cmd-try", 1);
  EXPECT_EQ(tried, Answer("cmd-try"));
  EXPECT_TRUE(
      sim_->Await("scheduler: try request 1 now\n"
                  "request 1: attempt 1 on fax0\n"));
  EXPECT_TRUE(sim_->Await("request 1: over: Normal\n"));
}

TEST_F(Life, EachDestinationIsARequestOrNoneIs) {
  Start({"--delay", "60"});
  const std::string refused =
      SubmitAll(Destination("5550100") + Argument("obj-dest", "toname=Ann\n"));
  EXPECT_EQ(refused, Answer("cmd-sendfax", "19\nerrmsg=No fax number\n"));
  for (const char* dir : {"requests", "temp", "krtnet/queued"}) {
    // The saved command goes last, after the answer.
    EXPECT_TRUE(support::Eventually([&] {
      return std::filesystem::is_empty(root_.Path(dir));
    })) << dir;
  }
  const std::string answer =
      SubmitAll(Destination("5550101") + Destination("5550102"));
  const auto member = [&](const char* seqno, const char* memno) {
    return Argument("obj-reqid", std::string("seqno=") + seqno +
                                     "\nreqtype=req-regular\nnummems=2\n"
                                     "gseqno=1\nmemno=" +
                                     memno +
                                     "\nsessionid=1\nreference=2\nqueue=any\n");
  };
  EXPECT_EQ(answer, Answer("cmd-sendfax",
                           "0\n" + Argument("obj-list", member("2", "1") +
                                                            member("3", "2"))));
  EXPECT_TRUE(Holds(Status(3), "\ntofnum=5550102\n"));
}

TEST_F(Life, WhatCannotBeQueuedIsRefusedWithTheReason) {
  Start({});
  const std::string missing = root_.Path("missing.ps");
  const std::tuple<std::string, int, std::string> kCases[] = {
      {"", 11, "Invalid submit command"},
      {Argument("obj-reqid", "seqno=1\n"), 11, "Invalid submit command"},
      {Argument("obj-env", ""), 19, "No destination"},
      {Argument("obj-senv", "toname=Ann\n"), 19, "No fax number"},
      {Argument("obj-senv", "tofnum=1\npathname=" + missing + "\n"), 13,
       "Cannot read " + missing + ": No such file or directory"},
      {"clientid=nobody.here\n" + Argument("obj-senv", "tofnum=1\n"), 7,
       "Cannot make request: Invalid user"},
  };
  for (const auto& [more, result, errmsg] : kCases) {
    const std::string answer = Ask("cmd-sendfax", "respond=true\n" + more);
    EXPECT_TRUE(Holds(answer, "\nresult=" + std::to_string(result) +
                                  "\nerrmsg=" + errmsg + "\n"))
        << more << answer;
  }
  // Who had the daemon's answer finds a message.
  Ask("cmd-sendfax", "respond=false\n" + Argument("obj-env", ""));
  EXPECT_TRUE(support::Eventually([&] {
    return Message("0001-007.msg") ==
           "Your fax was not queued: No destination\n";
  }));
}

TEST_F(Life, RequestOfAKilledRunIsTakenUp) {
  Start({"--delay", "60"});
  Submit("5550100", "toname=Ann\n");
  ASSERT_TRUE(sim_->Await("request 1: attempt 1 on fax0\n"));
  sim_->Stop(SIGKILL);
  // Saved by the daemon for a reader that never saw the record.
  const std::string queued = root_.Path("krtnet/queued/0001-009");
  WriteFile(queued,
            support::Command("cmd-sendfax", 1, 9,
                             "clientid=" + root_.user() + "\nrespond=true\n" +
                                 Argument("obj-senv", "tofnum=5550101\n")));
  root_.Put("krtnet/queued/0001-010", ReadFile(queued));
  std::filesystem::last_write_time(
      queued,
      std::filesystem::file_time_type::clock::now() - std::chrono::minutes(5));

  sim_.emplace(KRTSIM_PATH, root_, std::vector<std::string>{"--delay", "0.1"});
  EXPECT_TRUE(sim_->Await("request 1: over: Normal\n"));
  EXPECT_TRUE(Holds(Status(1), "\ntoname=Ann\n"));
  EXPECT_TRUE(sim_->Await("request 2: over: Normal\n"));
  EXPECT_NE(root_.Response("0001-009"), "");
  // The record of this one may still come.
  EXPECT_TRUE(root_.Has("krtnet/queued/0001-010"));
}

TEST_F(Life, SavedCommandThatIsNoneIsPutAside) {
  Start({});
  root_.Put("krtnet/queued/junk", "no pairs here\n");
  const std::string record = "junk" + std::string(76, '\0');
  const int fifo = open(root_.Path("krtnet/filspool/kfifo").c_str(), O_WRONLY);
  // Half a record before it is thrown away.
  ASSERT_EQ(write(fifo, record.data(), 40), 40);
  ASSERT_TRUE(sim_->Await("fifo: half a record, thrown away\n"));
  ASSERT_EQ(write(fifo, record.data(), 80), 80);
  close(fifo);
  EXPECT_TRUE(sim_->Await("queued command junk cannot be read"));
  EXPECT_TRUE(
      support::Eventually([&] { return root_.Has("krtnet/queued/junk.bad"); }));
}

}  // namespace
