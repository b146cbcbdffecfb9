// Submitting, cancelling, retrying, routing, and what is told of requests.
#include <sys/ipc.h>

#include <cerrno>

#include "daemon/kfifo.h"
#include "faxserver/fscom.h"
#include "faxserver/fsshm.h"
#include "handler_test.h"
#include "support/own_ipc.h"

namespace {

using Requests = HandlerTest;

// ---- Submit ----

std::string Record(const std::string& name) {
  std::string record = name;
  record.resize(16);
  record += "hostA";
  record.resize(80);
  return record;
}

TEST_F(Requests, SubmitKeepsTheCommandAndAnnouncesIt) {
  const FifoReader fifo(spool_ + "/kfifo");
  const std::string sent =
      "clientid=jsmith\nsessionid=1\nreference=2\ncmdtype=cmd-sendfax\n";
  for (const auto& [respond, inverted] :
       {std::pair("respond=true\n", 0), std::pair("respond=false\n", 1),
        std::pair("", 0)}) {
    SCOPED_TRACE(respond);
    EXPECT_EQ(Run("cmd-sendfax", respond), kDone);
    EXPECT_EQ(kx::Bool(cmd_.get(), "respond"), inverted);
    EXPECT_EQ(fifo.Take(), Record("0001-002"));
    const std::string queued = "krtnet/queued/0001-002";
    EXPECT_EQ(ReadFile(root_ / queued), Object("obj-cmdrsp", sent + respond));
    struct stat st;
    EXPECT_EQ(stat((root_ / queued).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0660u);
    EXPECT_EQ(std::filesystem::hard_link_count(root_ / queued), 1u);
    std::filesystem::remove(root_ / queued);
  }
}

TEST_F(Requests, SubmitNeverReplacesAQueuedCommand) {
  const FifoReader fifo(spool_ + "/kfifo");
  for (const char* name : {"0001-002", "0001-002-1", "0001-002-2"}) {
    EXPECT_EQ(Run("cmd-sendfax"), kDone);
    EXPECT_EQ(fifo.Take(), Record(name));
    EXPECT_TRUE(root_.Has(std::string("krtnet/queued/") + name));
    WriteFile(root_ / (std::string("krtnet/queued/") + name), name);
  }
  EXPECT_EQ(ReadFile(root_ / "krtnet/queued/0001-002"), "0001-002");
}

TEST_F(Requests, SubmitFindsTheFifoInTheWatchedDirectoryFirst) {
  root_.MakeDir("watched");
  const std::string watched = root_ / "watched";
  file_dir = watched.c_str();
  const FifoReader own(spool_ + "/kfifo");
  WriteFile(watched + "/kfifo", "no fifo");
  EXPECT_EQ(Run("cmd-sendfax"), kDone);
  EXPECT_EQ(own.Take(), Record("0001-002"));
  std::filesystem::remove(watched + "/kfifo");
  const FifoReader first(watched + "/kfifo");
  EXPECT_EQ(Run("cmd-sendfax"), kDone);
  EXPECT_EQ(first.Take(), Record("0001-002-1"));
  EXPECT_EQ(own.Take(), "");
}

TEST_F(Requests, SubmitThatFailsLeavesNothingBehind) {
  ExpectFailure(13, "Cannot open cmd fifo: No such file or directory",
                "cmd-sendfax", "respond=true\n");
  EXPECT_EQ(kx::Bool(cmd_.get(), "respond"), 1);
  WriteFile(spool_ + "/kfifo", "");
  ExpectFailure(13, "Cannot open cmd fifo: Invalid argument", "cmd-sendfax",
                "");
  EXPECT_TRUE(std::filesystem::is_empty(root_ / "krtnet/queued"));
  std::filesystem::remove(root_ / "krtnet/queued");
  ExpectFailure(13, "Cannot queue cmd: No such file or directory",
                "cmd-sendfax", "");
}

// ---- Cancel and try ----

std::string SchedulerRecord(char code, int seqno) {
  std::string record(68, '\0');
  record[0] = code;
  record.replace(8, 4, reinterpret_cast<const char*>(&seqno), 4);
  return record;
}

class Scheduled : public HandlerTest {
 protected:
  void PutRequest(int seqno, const std::string& uid) const {
    std::string lines = std::to_string(seqno) + "\n" + uid + "\n";
    for (int i = 2; i < 34; ++i) lines += "\n";
    root_.Put("requests/r-" + std::to_string(seqno), lines);
  }
  // jsmith is no user of the system: what jsmith may do is what this process
  // may.
  const std::string self_ = std::to_string(getuid());
  const FifoReader fifo_{root_ / "FIFO"};
  EventReaders events_{root_};
  const OwnIpc ipc_;
};

const std::string kRequest =
    Argument("obj-reqid", "seqno=7\nreqtype=req-regular\n");

TEST_F(Scheduled, CancelAndTryReachTheScheduler) {
  SKIP_WITHOUT(ipc_);
  ASSERT_EQ(fx_creat_stat_shm("", 1), 0);
  PutRequest(7, self_);
  EXPECT_EQ(Run("cmd-cancel", kRequest), kDone);
  EXPECT_EQ(fifo_.Take(), SchedulerRecord(7, 7));
  EXPECT_EQ(events_.Take(), "16 jsmith\n");
  EXPECT_EQ(Run("cmd-try", kRequest), kDone);
  EXPECT_EQ(fifo_.Take(), SchedulerRecord(12, 7));
  EXPECT_EQ(events_.Take(), "");
  EXPECT_EQ(returned_, 0);
}

TEST_F(Scheduled, CancelAndTryTellWhyNot) {
  SKIP_WITHOUT(ipc_);
  const std::string kCancel = "Cannot cancel request: ";
  const std::string kTry = "Cannot try request: ";
  const auto reqid = [](const std::string& fields) {
    return Argument("obj-reqid", fields);
  };
  PutRequest(7, self_);
  for (const std::string& wrong : {std::string(), Argument("obj-route")}) {
    ExpectFailure(11, "Invalid cancel command", "cmd-cancel", wrong);
    ExpectFailure(11, "Invalid try command", "cmd-try", wrong);
  }
  ExpectFailure(13, kCancel + "Command failed", "cmd-cancel", kRequest);
  ExpectFailure(17, kTry + "Scheduler not running", "cmd-try", kRequest);
  ASSERT_EQ(fx_creat_stat_shm("", 1), 0);
  const struct {
    int number;
    std::string text, fields;
  } kCancels[] = {
      {13, "Command failed", "seqno=7\nreqtype=req-group\n"},
      {19, "Invalid data", "seqno=7\nreqtype=req-recv\n"},
      {19, "Invalid data", "seqno=7\n"},
      {19, "Invalid data", "reqtype=req-regular\n"},
      {3, "No such file or directory", "seqno=8\nreqtype=req-regular\n"},
  };
  for (const auto& c : kCancels) {
    ExpectFailure(c.number, kCancel + c.text, "cmd-cancel", reqid(c.fields));
  }
  for (const char* seqno : {"seqno=8\n", ""}) {
    ExpectFailure(19, kTry + "Invalid data", "cmd-try", reqid(seqno));
  }
  EXPECT_EQ(Run("cmd-cancel", kRequest, "clientid=nobody-here\n"),
            "result=19\nerrmsg=Cannot cancel request: Invalid data\n");
  EXPECT_EQ(fifo_.Take() + events_.Take(), "");
}

TEST_F(Scheduled, OnlyOwnersAndAdministratorsCancel) {
  SKIP_WITHOUT(ipc_);
  if (getuid() != 0) GTEST_SKIP() << "needs several users; runs as root only";
  ASSERT_EQ(fx_creat_stat_shm("", 1), 0);
  root_.MakeUser("daemon");
  root_.MakeUser("root");
  PutRequest(7, "2");
  EXPECT_EQ(Run("cmd-cancel", kRequest, "clientid=daemon\n"),
            "result=12\nerrmsg=Cannot cancel request: Permission denied\n");
  EXPECT_EQ(fifo_.Take(), "");
  EXPECT_EQ(Run("cmd-cancel", kRequest, "clientid=root\n"), kDone);
  PutRequest(7, "1");
  EXPECT_EQ(Run("cmd-cancel", kRequest, "clientid=daemon\n"), kDone);
}

// ---- Status ----

TEST_F(Requests, StatusIsTheUsersOwn) {
  const std::string status = "clientid=jsmith\nseqno=7\nattempt=0\n";
  root_.Put("faxq/jsmith/events/7", Object("obj-status", status));
  root_.Put("faxq/bob/events/8", Object("obj-status", "seqno=8\n"));
  EXPECT_EQ(Run("cmd-status", kRequest),
            kDone + Argument("obj-status", status));
  EXPECT_EQ(Run("cmd-statatt", kRequest),
            kDone + ListField("objptr", "obj-status", {status}));
  for (const char* type : {"cmd-status", "cmd-statatt"}) {
    ExpectFailure(13, "Invalid status cmd", type, Argument("obj-route"));
    ExpectFailure(13, "Invalid status cmd", type, "");
    ExpectFailure(13, "Cannot get status for 8: No such file or directory",
                  type, Argument("obj-reqid", "seqno=8\n"));
    ExpectFailure(13, "Cannot get status for -1: No such file or directory",
                  type, Argument("obj-reqid"));
  }
}

// ---- Copying and forwarding ----

struct Routing : HandlerTest {
  std::string Route(const std::string& from, const std::string& to,
                    const std::string& name) const {
    return Argument("obj-route", "fromid=" + from + "\ntoid=" + to +
                                     "\nfilename=" + name + "\n");
  }
  EventReaders events_{root_};
};

TEST_F(Routing, MovesOrCopiesWithTimesAndOwner) {
  const std::string fax = root_ / "faxq/jsmith/a.fax";
  const std::string arrived = root_ / "faxq/bob/a.fax";
  const struct {
    const char* type;
    const char* events;
    bool stays;
  } kCases[] = {{"cmd-copyfax", "2 bob\n", true},
                {"cmd-fwdfax", "2 jsmith\n2 bob\n", false}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.type);
    WriteFile(arrived, "old");
    WriteFile(fax, "image");
    chmod(fax.c_str(), 0640);
    const timespec times[2] = {{1000, 0}, {2000, 0}};
    utimensat(AT_FDCWD, fax.c_str(), times, 0);
    if (getuid() == 0) {
      ASSERT_EQ(chown((root_ / "faxq/bob").c_str(), 1, 2), 0);
    }
    EXPECT_EQ(Run(c.type, Route("jsmith", "bob", "a.fax")), kDone);
    EXPECT_EQ(events_.Take(), c.events);
    EXPECT_EQ(std::filesystem::exists(fax), c.stays);
    struct stat st;
    ASSERT_EQ(stat(arrived.c_str(), &st), 0);
    EXPECT_EQ(ReadFile(arrived), "image");
    EXPECT_EQ(st.st_mode & 07777, 0666u);
    EXPECT_EQ(st.st_mtime, 2000);
    if (getuid() == 0) {
      EXPECT_EQ(st.st_uid + 10 * st.st_gid, 21u);
    }
    EXPECT_FALSE(root_.Has("faxq/bob/a.tmp"));
  }
}

TEST_F(Routing, RefusesWhatIsNoFaxOrNoUser) {
  root_.Put("faxq/jsmith/a.fax", "image");
  symlink("/etc/passwd", (root_ / "faxq/jsmith/link").c_str());
  mkfifo((root_ / "faxq/jsmith/fifo").c_str(), 0600);
  const std::string dir = root_ / "faxq/jsmith/";
  for (const char* type : {"cmd-copyfax", "cmd-fwdfax"}) {
    ExpectFailure(11, "Invalid route request", type, Argument("obj-faxinfo"));
    for (const char* user : {"carol", "..", "", "../faxq/bob"}) {
      ExpectFailure(19, std::string("Invalid from route ") + user, type,
                    Route(user, "bob", "a.fax"));
      ExpectFailure(19, std::string("Invalid to route ") + user, type,
                    Route("jsmith", user, "a.fax"));
    }
    for (const char* name : kBadNames) {
      ExpectFailure(13, "faxfile " + dir + name + " does not exist", type,
                    Route("jsmith", "bob", name));
    }
    for (const char* name : {"missing", "link", "fifo", "msgs"}) {
      ExpectFailure(13, "faxfile " + dir + name + " does not exist", type,
                    Route("jsmith", "bob", name));
    }
  }
  root_.MakeDir("faxq/bob/a.tmp");
  ExpectFailure(13, "Copy of a.fax failed: Is a directory", "cmd-copyfax",
                Route("jsmith", "bob", "a.fax"));
  ExpectFailure(13, "Rename of a.fax failed: Is a directory", "cmd-fwdfax",
                Route("jsmith", "bob", "a.fax"));
  EXPECT_EQ(events_.Take(), "");
  EXPECT_EQ(ReadFile(root_ / "faxq/jsmith/a.fax"), "image");
}

// The envelope's type decides, also against the table's row.
TEST_F(Routing, OtherTypesAreNoRoute) {
  root_.Put("faxq/jsmith/a.fax", "image");
  const kx::Object cmd = kx::Build("obj-cmdrsp");
  const kx::Object rsp = kx::Build("obj-cmdrsp");
  kx::Object route = kx::Build("obj-route");
  kx::SetText(route.get(), "fromid", "jsmith");
  kx::SetText(route.get(), "toid", "bob");
  kx::SetText(route.get(), "filename", "a.fax");
  kx::SetChild(cmd.get(), "objptr", std::move(route));
  EXPECT_EQ(find_ptbl(kx_cmd_fwdfax, cmd_table)->handler(cmd.get(), rsp.get()),
            -1);
  EXPECT_STREQ(kx::Text(rsp.get(), "errmsg"), "Invalid route command");
  EXPECT_EQ(kx::Number(rsp.get(), "result"), 11);
}

// ---- The table ----

TEST(CommandTable, OnlySubmitLeavesTheAnswerToTheClient) {
  int rows = 0;
  for (const cmd_row* row = cmd_table; row->type != 0; ++row, ++rows) {
    EXPECT_EQ(row->client_decides, row->type == kx_cmd_sendfax) << row->type;
    EXPECT_EQ(find_ptbl(row->type, cmd_table), row);
  }
  EXPECT_EQ(rows, 28);
  EXPECT_EQ(find_ptbl(kx_cmd_statlst, cmd_table), nullptr);
  EXPECT_EQ(find_ptbl(0, cmd_table), nullptr);
  const cmd_row empty[] = {{0, nullptr, 0, 0}};
  EXPECT_EQ(find_ptbl(kx_cmd_noop, empty), nullptr);
}

}  // namespace
