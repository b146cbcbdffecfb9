// Submitting, cancelling, retrying, routing, and what is told of requests.

#include <tuple>

#include "faxserver/fsshm.h"
#include "handler.h"
#include "support/own_ipc.h"
#include "util/kutuser.h"

namespace {

using Requests = HandlerTest;

// ---- Submit ----

// The announcement of a saved command.
std::string Record(const std::string& name) {
  return Bytes(name, 16) + Bytes("hostA", 64);
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
    EXPECT_EQ(PermsOf(root_ / queued), 0660u);
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

TEST_F(Requests, CancelAndTryTellWhyNot) {
  const OwnIpc ipc;
  SKIP_WITHOUT(ipc);
  const std::string self = Kut_get_usrname();
  root_.AddUser(self);
  root_.Put("requests/r-7",
            "7\n" + std::to_string(getuid()) + std::string(33, '\n'));
  const FifoReader fifo(root_ / "FIFO");
  EventReaders events(root_);
  // As this process's user, whose the request is.
  const auto run = [&](const char* type, const char* seqno) {
    return Run(type, RequestId(seqno), "clientid=" + self + "\n");
  };
  const std::string cancel = "errmsg=Cannot cancel request: ";
  const std::string attempt = "errmsg=Cannot try request: ";
  EXPECT_EQ(run("cmd-cancel", "7"),
            "result=13\n" + cancel + "Command failed\n");
  EXPECT_EQ(run("cmd-try", "7"),
            "result=17\n" + attempt + "Scheduler not running\n");
  ASSERT_EQ(fx_creat_stat_shm("", 1), 0);
  EXPECT_EQ(run("cmd-cancel", "8"),
            "result=3\n" + cancel + "No such file or directory\n");
  EXPECT_EQ(returned_, -1);
  EXPECT_EQ(run("cmd-try", "8"), "result=19\n" + attempt + "Invalid data\n");
  EXPECT_EQ(returned_, -1);
  EXPECT_EQ(Run("cmd-cancel", RequestId("7"), "clientid=nobody-here\n"),
            "result=19\n" + cancel + "Invalid data\n");
  EXPECT_EQ(fifo.Take() + events.Take(), "");
}

// ---- Copying and forwarding ----

struct Routing : HandlerTest {
  EventReaders events_{root_};
};

TEST_F(Routing, MovesOrCopiesWithTimesAndOwner) {
  const std::string fax = root_ / "faxq/jsmith/a.fax";
  const std::string arrived = root_ / "faxq/bob/a.fax";
  const std::tuple<const char*, const char*, bool> kCases[] = {
      {"cmd-copyfax", "2 bob\n", true},
      {"cmd-fwdfax", "2 jsmith\n2 bob\n", false}};
  for (const auto& [type, events, stays] : kCases) {
    SCOPED_TRACE(type);
    WriteFile(arrived, "old");
    WriteFile(fax, "image");
    chmod(fax.c_str(), 0640);
    const timespec times[2] = {{1000, 0}, {2000, 0}};
    utimensat(AT_FDCWD, fax.c_str(), times, 0);
    EXPECT_EQ(Run(type, Route("jsmith", "bob", "a.fax")), kDone);
    EXPECT_EQ(events_.Take(), events);
    EXPECT_EQ(std::filesystem::exists(fax), stays);
    struct stat st;
    ASSERT_EQ(stat(arrived.c_str(), &st), 0);
    EXPECT_EQ(ReadFile(arrived), "image");
    EXPECT_EQ(st.st_mode & 07777, 0666u);
    EXPECT_EQ(st.st_mtime, 2000);
    EXPECT_FALSE(root_.Has("faxq/bob/a.tmp"));
  }
}

TEST_F(Routing, RefusesWhatIsNoFaxOrNoUser) {
  root_.Put("faxq/jsmith/a.fax", "image");
  symlink("/etc/passwd", (root_ / "faxq/jsmith/link").c_str());
  mkfifo((root_ / "faxq/jsmith/fifo").c_str(), 0600);
  root_.Put("faxq/jsmith/.hidden", "image");
  root_.Put("faxq/jsmith/half.tmp", "image");
  const std::string dir = root_ / "faxq/jsmith/";
  for (const char* type : {"cmd-copyfax", "cmd-fwdfax"}) {
    for (const char* user : {"carol", "..", "", "../faxq/bob"}) {
      ExpectFailure(19, std::string("Invalid from route ") + user, type,
                    Route(user, "bob", "a.fax"));
      ExpectFailure(19, std::string("Invalid to route ") + user, type,
                    Route("jsmith", user, "a.fax"));
    }
    for (const char* name :
         {"../x", "a/b", "/etc/passwd", ".", "..", "", "a\tb", "missing",
          "link", "fifo", "msgs", ".hidden", "half.tmp"}) {
      ExpectFailure(13, "faxfile " + dir + name + " does not exist", type,
                    Route("jsmith", "bob", name));
    }
  }
  root_.MakeDir("faxq/bob/a.fax");
  ExpectFailure(13, "Copy of a.fax failed: Is a directory", "cmd-copyfax",
                Route("jsmith", "bob", "a.fax"));
  ExpectFailure(13, "Rename of a.fax failed: Is a directory", "cmd-fwdfax",
                Route("jsmith", "bob", "a.fax"));
  EXPECT_EQ(events_.Take(), "");
  EXPECT_EQ(ReadFile(root_ / "faxq/jsmith/a.fax"), "image");
}

// ---- Every command ----

// What an argument that is missing, or is of another type, is answered with.
TEST_F(Requests, WrongArgumentsHaveTheirTexts) {
  const std::tuple<int, const char*, const char*> kCases[] = {
      {11, "Invalid list request command", "cmd-reslist"},
      {11, "Invalid list request command", "cmd-msglist"},
      {11, "Invalid file-type command", "cmd-filetype"},
      {11, "Invalid image retrieve command", "cmd-imgret"},
      {11, "Invalid image store command", "cmd-imgstore"},
      {11, "Invalid image delete command", "cmd-imgdel"},
      {11, "Invalid image print command", "cmd-imgprint"},
      {11, "Invalid msg delete command", "cmd-msgret"},
      {11, "Invalid msg delete command", "cmd-msgdel"},
      {11, "Invalid cancel command", "cmd-cancel"},
      {11, "Invalid try command", "cmd-try"},
      {13, "Invalid status cmd", "cmd-status"},
      {13, "Invalid status cmd", "cmd-statatt"},
      {11, "Invalid route request", "cmd-fwdfax"},
      {11, "Invalid route request", "cmd-copyfax"},
      {11, "Invalid set config cmd", "cmd-setcfg"},
      {11, "Invalid set monitors cmd", "cmd-setmon"},
      {11, "Invalid extern cmd command", "cmd-extcmd"},
      {19, "No tags supplied", "cmd-cvrmatch"},
  };
  for (const auto& [number, text, type] : kCases) {
    ExpectFailure(number, text, type, "");
    ExpectFailure(number, text, type, Argument("obj-person"));
  }
  // A cover page is any object with a name.
  const std::string nothing =
      "Cannot get status for -1: No such file or directory";
  ExpectFailures(
      {{13, nothing, "cmd-status", Argument("obj-reqid")},
       {13, nothing, "cmd-statatt", Argument("obj-reqid")},
       {19, "No coverpage supplied", "cmd-cvrtags", ""},
       {19, "Invalid coverpage ", "cmd-cvrtags", Argument("obj-person")},
       {11, "Invalid image print command", "cmd-imgprint",
        Argument("obj-reqprt")},
       {11, "Invalid image print command", "cmd-imgprint",
        Argument("obj-reqprt", Field("finfoptr", "obj-route"))},
       {19, "No filename specified", "cmd-msgret", Argument("obj-resource")},
       {19, "No filename specified", "cmd-msgdel", Argument("obj-resource")},
       {19, "Invalid phone-book cmd", "cmd-pbcmd", Argument("obj-person")}});
}

}  // namespace
