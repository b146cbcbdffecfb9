// Users' settings, and commands run for them.
#include <pwd.h>

#include "handler_test.h"

namespace {

using Settings = HandlerTest;

TEST_F(Settings, ConfigurationIsKeptForTheClient) {
  EXPECT_EQ(Run("cmd-getcfg"), kDone + Argument("obj-config"));
  const std::string config = Argument("obj-config", "queue=sales\n");
  EXPECT_EQ(Run("cmd-setcfg", config), kDone);
  EXPECT_EQ(Run("cmd-getcfg"), kDone + config);
  EXPECT_EQ(Run("cmd-getcfg", "", "clientid=bob\n"),
            kDone + Argument("obj-config"));
  ExpectFailure(11, "Invalid set config cmd", "cmd-setcfg", "");
  for (const char* user : {"carol", "..", ""}) {
    const std::string client = std::string("clientid=") + user + "\n";
    EXPECT_EQ(Run("cmd-getcfg", "", client),
              std::string("result=13\nerrmsg=Cannot get config object for ") +
                  user + "\n");
    EXPECT_EQ(Run("cmd-setcfg", config, client),
              "result=11\nerrmsg=Cannot set config\n");
  }
}

TEST_F(Settings, MonitorsBelongToTheUserTheyName) {
  const auto monitor = [](const std::string& user, const std::string& type,
                          const std::string& name) {
    const std::string names =
        ListField("names", "obj-resource", {"rname=" + name + "\n"});
    return Argument("obj-monitor",
                    "clientid=" + user + "\nmontype=" + type + "\n" + names);
  };
  EXPECT_EQ(
      Run("cmd-getmon"),
      kDone + Argument("obj-monitor", "clientid=jsmith\nmontype=mon-excall\n"));
  const std::string set = monitor("bob", "mon-incall", "carol");
  EXPECT_EQ(Run("cmd-setmon", set), kDone);
  EXPECT_EQ(ReadFile(root_ / "faxq/bob/options/monitors"),
            "ALLOWALL\n!carol\n");
  EXPECT_EQ(Run("cmd-getmon", "", "clientid=bob\n"), kDone + set);
  ExpectFailure(11, "Invalid set monitors cmd", "cmd-setmon", "");
  ExpectFailure(11, "Cannot set monitor list: Invalid data", "cmd-setmon",
                monitor("..", "mon-incall", "x"));
  ExpectFailure(11, "Cannot set monitor list: Invalid data", "cmd-setmon",
                monitor("bob", "cmd-noop", "x"));
  EXPECT_EQ(Run("cmd-getmon", "", "clientid=carol\n"),
            "result=13\nerrmsg=Cannot get monitor list for carol\n");
}

TEST_F(Settings, CleaningKeepsEventsOfLivingRequests) {
  root_.Put("requests/r-7", "");
  root_.Put("faxq/jsmith/events/7", "");
  root_.Put("faxq/jsmith/events/8", "");
  EXPECT_EQ(Run("cmd-faxcln"), kDone);
  EXPECT_TRUE(root_.Has("faxq/jsmith/events/7"));
  EXPECT_FALSE(root_.Has("faxq/jsmith/events/8"));
  EXPECT_EQ(Run("cmd-faxcln", "", "clientid=..\n"), kDone);
}

// A user who owns the queue directory could point what lies in it elsewhere.
TEST_F(Settings, LinksInPlaceOfAUsersDirectoriesLeadNowhere) {
  const std::string status = Object("obj-status", "seqno=7\n");
  const std::string config = Object("obj-config", "queue=q\n");
  root_.MakeDir("outside");
  root_.Put("outside/7", status);
  root_.Put("outside/config", config);
  for (const char* dir : {"msgs", "events", "options"}) {
    const std::string path = root_ / "faxq/jsmith/" + dir;
    std::filesystem::remove(path);
    symlink((root_ / "outside").c_str(), path.c_str());
  }
  const std::string seven = Argument("obj-resource", "rname=7\n");
  ExpectFailure(13, "Cannot create msg object: Not a directory", "cmd-msgret",
                seven);
  ExpectFailure(13, "Cannot delete file 7: Not a directory", "cmd-msgdel",
                seven);
  ExpectFailure(13, "Cannot get status for 7: Not a directory", "cmd-status",
                Argument("obj-reqid", "seqno=7\n"));
  ExpectFailure(13, "Cannot get config object for jsmith", "cmd-getcfg", "");
  ExpectFailure(11, "Cannot set config", "cmd-setcfg", Argument("obj-config"));
  ExpectFailure(
      11, "Cannot set monitor list: Not a directory", "cmd-setmon",
      Argument("obj-monitor", "clientid=jsmith\nmontype=mon-excall\n"));
  EXPECT_EQ(Run("cmd-faxcln"), kDone);
  EXPECT_EQ(ReadFile(root_ / "outside/7"), status);
  EXPECT_EQ(ReadFile(root_ / "outside/config"), config);
  EXPECT_FALSE(root_.Has("outside/monitors"));
}

// ---- External commands ----

struct External : HandlerTest {
  External() {
    const passwd* self = getpwuid(getuid());
    client_ = std::string("clientid=") +
              (self != nullptr ? self->pw_name : "") + "\n";
  }
  std::string RunCommand(const std::string& line,
                         const std::string& more = "") {
    return Run("cmd-extcmd",
               Argument("obj-extcmd", "cmdstr=" + line + "\n" + more), client_);
  }
  static std::string Text(const std::vector<std::string>& lines) {
    std::vector<std::string> elements;
    for (const auto& line : lines) elements.push_back("text=" + line + "\n");
    const std::string list = ListField("lines", "obj-text", elements);
    return Argument("obj-msg", list);
  }
  static std::string Arguments(const std::vector<std::string>& texts) {
    std::vector<std::string> elements;
    for (const auto& text : texts) elements.push_back("argstr=" + text + "\n");
    const std::string list = ListField("args", "obj-arg", elements);
    return list;
  }
  std::string client_;
};

TEST_F(External, OutputIsATextOrAnObject) {
  EXPECT_EQ(RunCommand("printf %s,%s\\n", Arguments({"a b", "$HOME'"})),
            kDone + Text({"a b,$HOME'"}));
  root_.Put("object", Object("obj-file", "pathname=/etc/shadow\n"));
  EXPECT_EQ(RunCommand("cat " + root_ / "object", "retobj=true\n"),
            kDone + Argument("obj-file", "pathname=/etc/shadow\n"));
  EXPECT_EQ(RunCommand("true"), kDone + Text({}));
}

TEST_F(External, FailureHasANumberATextAndTheErrorOutput) {
  root_.PutProgram("fail", "echo lost; echo why >&2; exit 2");
  const auto failure = [](int number, const std::string& text) {
    return "result=" + std::to_string(number) +
           "\nerrmsg=Extern cms failed: " + text + "\n";
  };
  EXPECT_EQ(RunCommand(root_ / "fail"),
            failure(13, "Command failed") + Text({"why"}));
  EXPECT_EQ(returned_, 13);
  EXPECT_EQ(RunCommand(root_ / "missing"),
            failure(13, "Command failed") + Text({}));
  EXPECT_EQ(RunCommand("echo text", "retobj=true\n"),
            failure(19, "Invalid data"));
  EXPECT_EQ(RunCommand("echo", Arguments(std::vector<std::string>(256, "x"))),
            failure(19, "Invalid data"));
  client_ = "clientid=nobody-here\n";
  EXPECT_EQ(RunCommand("true"), failure(12, "Permission denied"));
  EXPECT_EQ(returned_, 12);
  ExpectFailure(11, "Invalid extern cmd command", "cmd-extcmd", "");
}

}  // namespace
