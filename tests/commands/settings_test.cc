// Users' settings, and commands run for them.
#include "handler.h"

namespace {

using Settings = HandlerTest;

TEST_F(Settings, AreTheClientsOrTheUsersWhomTheyName) {
  const std::string config = Argument("obj-config", "queue=sales\n");
  const auto monitor = [](const std::string& user) {
    return Argument("obj-monitor",
                    "clientid=" + user + "\nmontype=mon-incall\n" +
                        ListField("names", "obj-resource", {"rname=carol\n"}));
  };
  EXPECT_EQ(Run("cmd-setcfg", config), kDone);
  EXPECT_EQ(Run("cmd-getcfg", "", "clientid=bob\n"),
            kDone + Argument("obj-config"));
  EXPECT_EQ(Run("cmd-setmon", monitor("bob")), kDone);
  EXPECT_EQ(Run("cmd-getmon", "", "clientid=bob\n"), kDone + monitor("bob"));
  EXPECT_EQ(
      Run("cmd-getmon"),
      kDone + Argument("obj-monitor", "clientid=jsmith\nmontype=mon-excall\n"));
  ExpectFailure(11, "Cannot set monitor list: Invalid data", "cmd-setmon",
                monitor(".."));
  const std::string nobody = "clientid=carol\n";
  EXPECT_EQ(Run("cmd-getmon", "", nobody),
            "result=13\nerrmsg=Cannot get monitor list for carol\n");
  EXPECT_EQ(Run("cmd-getcfg", "", nobody),
            "result=13\nerrmsg=Cannot get config object for carol\n");
  EXPECT_EQ(Run("cmd-setcfg", config, nobody),
            "result=11\nerrmsg=Cannot set config\n");
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
  const std::string seven = Named("7");
  const std::string monitor =
      Argument("obj-monitor", "clientid=jsmith\nmontype=mon-excall\n");
  ExpectFailures(
      {{13, "Cannot create msg object: Not a directory", "cmd-msgret", seven},
       {13, "Cannot delete file 7: Not a directory", "cmd-msgdel", seven},
       {13, "Cannot get status for 7: Not a directory", "cmd-status",
        RequestId("7")},
       {13, "Cannot get config object for jsmith", "cmd-getcfg", ""},
       {11, "Cannot set config", "cmd-setcfg", Argument("obj-config")},
       {11, "Cannot set monitor list: Not a directory", "cmd-setmon",
        monitor}});
  EXPECT_EQ(Run("cmd-faxcln"), kDone);
  EXPECT_EQ(ReadFile(root_ / "outside/7"), status);
  EXPECT_EQ(ReadFile(root_ / "outside/config"), config);
  EXPECT_FALSE(root_.Has("outside/monitors"));
}

TEST_F(Settings, ProgramsRunForUsersOfTheSystemAlone) {
  EXPECT_EQ(Run("cmd-extcmd", Argument("obj-extcmd", "cmdstr=true\n"),
                "clientid=nobody-here\n"),
            "result=12\nerrmsg=Extern cms failed: Permission denied\n");
  EXPECT_EQ(returned_, 12);
}

}  // namespace
