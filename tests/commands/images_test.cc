// Images and messages: fetched, stored, deleted, printed.
#include "handler.h"
#include "util/kutuser.h"

namespace {

std::string Info(const std::string& name) { return FaxInfo(name, "jsmith"); }

struct Images : HandlerTest {
  Images() {
    root_.Put("faxq/jsmith/a.fax", "image");
    root_.Put("faxq/jsmith/msgs/hello.msg", "one\n\n two \n");
    for (const char* dir : {"faxq/jsmith/", "faxq/jsmith/msgs/"}) {
      symlink("/etc/passwd", (root_ / dir + "link").c_str());
      mkfifo((root_ / dir + "fifo").c_str(), 0666);
    }
  }
  EventReaders events_{root_};
};

// What a planted name must never reach, for each command that takes one.
TEST_F(Images, OnlyPlainNamesOfRegularFilesAreImagesOrMessages) {
  for (const char* name : {"../x", "a/b", ".", "..", "", "a\tb", "missing",
                           "link", "fifo", "../bob/msgs", "events"}) {
    const std::string file = name;
    const bool exists = file == "events";
    const std::string gone = "No such file or directory";
    ExpectFailure(13, "File " + file + " does not exist", "cmd-imgret",
                  Info(file));
    ExpectFailure(5, "Cannot delete file " + file + ": " + gone, "cmd-imgdel",
                  Info(file));
    if (file.size() > 15 || file.empty() || exists) continue;
    ExpectFailure(13, "Cannot delete file " + file + ": " + gone, "cmd-msgdel",
                  Named(file));
    EXPECT_TRUE(
        Run("cmd-msgret", Named(file))
            .starts_with("result=13\nerrmsg=Cannot create msg object: "));
  }
  for (const char* user : {"carol", "..", "", "../faxq/jsmith"}) {
    ExpectFailure(13, "File a.fax does not exist", "cmd-imgret",
                  FaxInfo("a.fax", user));
    ExpectFailure(5, "Cannot delete file a.fax: No such file or directory",
                  "cmd-imgdel", FaxInfo("a.fax", user));
  }
  EXPECT_TRUE(root_.Has("faxq/jsmith/link") && root_.Has("faxq/jsmith/fifo"));
  EXPECT_EQ(events_.Take(), "");
}

TEST_F(Images, DeletionIsTold) {
  EXPECT_EQ(Run("cmd-imgdel", Info("a.fax")), kDone);
  EXPECT_EQ(events_.Take(), "2 jsmith\n");
  EXPECT_EQ(Run("cmd-msgdel", Named("hello.msg")), kDone);
  EXPECT_EQ(events_.Take(), "8 jsmith\n");
  EXPECT_FALSE(root_.Has("faxq/jsmith/a.fax") ||
               root_.Has("faxq/jsmith/msgs/hello.msg"));
}

// ---- Store ----

TEST_F(Images, UploadsReplaceAnImageInOneStep) {
  WriteFile(spool_ + "/up.1", "new image");
  EXPECT_EQ(Run("cmd-imgstore", Upload(spool_ + "/up.1", "a.fax")), kDone);
  EXPECT_EQ(ReadFile(root_ / "faxq/jsmith/a.fax"), "new image");
  EXPECT_FALSE(std::filesystem::exists(spool_ + "/up.1"));
  EXPECT_EQ(events_.Take(), "2 jsmith\n");
  // A planted link is replaced, not followed.
  WriteFile(spool_ + "/up.2", "other image");
  EXPECT_EQ(Run("cmd-imgstore", Upload(spool_ + "/up.2", "link")), kDone);
  EXPECT_FALSE(std::filesystem::is_symlink(root_ / "faxq/jsmith/link"));
}

TEST_F(Images, UploadsFromElsewhereStayWhereTheyAre) {
  root_.MakeDir("outside");
  root_.MakeDir("krtnet/filspool/sub");
  const std::string gone = ": No such file or directory";
  WriteFile(spool_ + "/up", "new");
  root_.Put("outside/secret", "secret");
  root_.Put("krtnet/filspool/sub/deep", "deep");
  symlink((root_ / "outside/secret").c_str(), (spool_ + "/link").c_str());
  mkfifo((spool_ + "/fifo").c_str(), 0666);
  symlink(spool_.c_str(), (root_ / "outside/spool").c_str());
  const std::pair<std::string, std::string> kCases[] = {
      {root_ / "outside/secret", "a.fax"},
      {spool_ + "/../../outside/secret", "a.fax"},
      {spool_ + "/sub/deep", "a.fax"},
      {spool_ + "/link", "a.fax"},
      {spool_ + "/fifo", "a.fax"},
      {spool_ + "/sub", "a.fax"},
      {spool_ + "/missing", "a.fax"},
      {"up", "a.fax"},
      {"", "a.fax"},
      {spool_ + "/up", "../bob/a.fax"},
      {spool_ + "/up", ".."},
      {spool_ + "/up", ""},
      {spool_ + "/up", "msgs"},
      {spool_ + "/up", ".a.fax"},
      {spool_ + "/up", "a.tmp"}};
  for (const auto& [path, name] : kCases) {
    ExpectFailure(13, "Cannot move file " + path + gone, "cmd-imgstore",
                  Upload(path, name));
  }
  ExpectFailure(13, "Cannot move file " + gone, "cmd-imgstore",
                Argument("obj-reqsto"));
  EXPECT_EQ(ReadFile(root_ / "faxq/jsmith/a.fax"), "image");
  EXPECT_EQ(ReadFile(root_ / "outside/secret"), "secret");
  EXPECT_EQ(events_.Take(), "");
  // The directory counts, not how it is spelled.
  EXPECT_EQ(Run("cmd-imgstore", Upload(root_ / "outside/spool/up", "b.fax")),
            kDone);
}

// ---- Print ----

// "krtprint" is a script of the test's; users that the system does not know
// print as the fax system's user, so that the client here is this process's.
struct Printing : Images {
  Printing() {
    root_.AddUser(user_);
    root_.MakeDir("bin");
    setenv("PATH", (root_ / "bin:" + path_).c_str(), 1);
  }
  ~Printing() override { setenv("PATH", path_.c_str(), 1); }
  std::string Print(const std::string& name, const std::string& script) {
    root_.PutProgram("bin/krtprint", script);
    return Run("cmd-imgprint",
               Argument("obj-reqprt",
                        Field("finfoptr", "obj-faxinfo",
                              "clientid=jsmith\nfilename=" + name + "\n")),
               "clientid=" + user_ + "\n");
  }
  std::string MessagesPath(const std::string& name) const {
    return root_ / "faxq/" + user_ + "/msgs/" + name;
  }
  const std::string user_ = Kut_get_usrname(), path_ = getenv("PATH");
};

TEST_F(Printing, PassesThePathAsOneWord) {
  for (const char* name : {"a.fax", "it's $(touch x) \"; *"}) {
    EXPECT_EQ(Print(name, "echo warning >&2\nprintf %s \"$#$1\" > " +
                              root_ / "printed"),
              kDone)
        << name;
    EXPECT_EQ(ReadFile(root_ / "printed"),
              "1" + root_ / "faxq/jsmith/" + name + "/");
  }
  EXPECT_TRUE(std::filesystem::is_empty(MessagesPath("")));
}

TEST_F(Printing, FailureIsAMessageToTheUser) {
  const std::pair<const char*, const char*> kCases[] = {
      {"printf ' no paper \\nmore\\n' >&2\nexit 3", "no paper"},
      {"exit 1", "fxprint cmd failed"},
  };
  for (const auto& [script, message] : kCases) {
    SCOPED_TRACE(script);
    EXPECT_EQ(Print("a.fax", script),
              std::string("result=13\nerrmsg=") + message + "\n");
    EXPECT_EQ(returned_, -1);
    EXPECT_EQ(PermsOf(MessagesPath("0001-002.msg")), 0666u);
    EXPECT_FALSE(std::filesystem::exists(MessagesPath("0001-002.tmp")));
  }
  const std::string longest(300, 'x');
  EXPECT_EQ(Print("a.fax", "echo " + longest + " >&2; exit 1"),
            "result=13\nerrmsg=" + longest.substr(0, 255) + "\n");
}

TEST_F(Printing, WhatCannotBePrintedIsNotTried) {
  const std::string failed = "result=13\nerrmsg=fxprint cmd failed\n";
  const std::string leaves_a_trace = "touch " + root_ / "printed";
  for (const char* name : {"../jsmith/a.fax", "..", "", "link", "fifo"}) {
    EXPECT_EQ(Print(name, leaves_a_trace), failed) << name;
  }
  // An error file that cannot be made, or is somebody else's file.
  std::filesystem::create_directory(MessagesPath("0001-002.tmp"));
  EXPECT_EQ(Print("a.fax", leaves_a_trace), failed);
  std::filesystem::remove(MessagesPath("0001-002.tmp"));
  std::filesystem::remove_all(MessagesPath(""));
  EXPECT_EQ(Print("a.fax", leaves_a_trace), failed);
  symlink((root_ / "bin").c_str(), (root_ / "faxq/" + user_ + "/msgs").c_str());
  EXPECT_EQ(Print("a.fax", leaves_a_trace), failed);
  EXPECT_FALSE(root_.Has("printed"));
}

TEST_F(Printing, AnErrorFileReplacedByALinkIsLeftAlone) {
  root_.Put("victim", "line");
  chmod((root_ / "victim").c_str(), 0600);
  for (const char* link : {"ln -s ", "ln "}) {
    EXPECT_EQ(Print("a.fax", "rm -f " + MessagesPath("0001-002.tmp") + "; " +
                                 link + root_ / "victim " +
                                 MessagesPath("0001-002.tmp") + "; exit 1"),
              "result=13\nerrmsg=fxprint cmd failed\n");
    EXPECT_EQ(PermsOf(root_ / "victim"), 0600u);
  }
}

}  // namespace
