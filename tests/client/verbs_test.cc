// Each verb against the real daemon, with its usual failure.
#include <sys/stat.h>

#include "client/ctl.h"

namespace {

using ctl::Expect;
using ctl::Server;
using support::Exit;
using support::ReadFile;
using support::WriteFile;

class Verbs : public ::testing::Test {
 protected:
  Verbs() { server_.Start(); }
  Server server_;
};

TEST(CommandLine, WrongUseIsNamedAndEndsWith64) {
  const Server server;
  Expect(
      server,
      {{{}, 64, "", "krtctl: no verb given; see: krtctl help\n"},
       {{"pign"},
        64,
        "",
        "krtctl: unknown verb \"pign\"; did you mean \"ping\"?\n"},
       {{"zzzz"}, 64, "", "krtctl: unknown verb \"zzzz\"\n"},
       {{"fax"}, 64, "", "krtctl: fax: one of list get put rm print route\n"},
       {{"fax", "lits"},
        64,
        "",
        "krtctl: unknown fax verb \"lits\"; did you mean \"list\"?\n"},
       {{"ping", "x"}, 64, "", "krtctl: ping: unexpected argument \"x\"\n"},
       {{"cancel"}, 64, "", "krtctl: cancel: needs SEQNO...\n"},
       {{"cancel", "4x"}, 64, "", "krtctl: \"4x\" is not a request number\n"},
       {{"--jsno", "ping"},
        64,
        "",
        "krtctl: unknown option --jsno; did you mean \"json\"?\n"},
       {{"ping", "-z"}, 64, "", "krtctl: unknown option -z\n"},
       {{"ping", "--watch", "1"}, 64, "", "krtctl: unknown option --watch\n"},
       {{"--watch", "1", "ping"},
        64,
        "",
        "krtctl: ping: does not take --watch\n"},
       {{"ping", "--timeout"}, 64, "", "krtctl: --timeout needs a value: S\n"},
       {{"ping", "--timeout", "soon"},
        64,
        "",
        "krtctl: --timeout: not a number of seconds\n"},
       {{"ping", "--json=x"}, 64, "", "krtctl: --json takes no value\n"},
       {{"ping", "--color", "red"},
        64,
        "",
        "krtctl: --color: not one of: auto always never\n"},
       {{"ping", "-j", "--text"},
        64,
        "",
        "{\"type\":\"error\",\"verb\":\"ping\",\"message\":\"--json and --text "
        "exclude each other\",\"status\":64}\n"},
       {{"list", "prioritys"},
        64,
        "",
        "krtctl: unknown kind \"prioritys\"; one of covers allcovers filetypes "
        "pglengths priorities queues resolutions results groups prtdests "
        "retrys tnps; did you mean \"priorities\"?\n"},
       {{"config", "set", "quue=x"},
        64,
        "",
        "krtctl: unknown field \"quue\"; did you mean \"queue\"?\n"},
       {{"submit", "x"}, 64, "", "krtctl: submit: needs --to NUMBER\n"},
       {{"completion", "csh"},
        64,
        "",
        "krtctl: unknown shell \"csh\"; one of: bash zsh fish\n"}});
}

TEST(CommandLine, RootIsChosenInOrder) {
  const Server server;
  const std::string root = server.root().path();
  const std::string tail =
      ", spool " + root + "/krtnet/filspool, user " + server.user() + "\n";
  Exit end = server.Run({"-v", "-n", "ping"});
  EXPECT_EQ(end.err.substr(0, end.err.find('\n') + 1),
            "krtctl: root " + root + " (--root)" + tail);
  end = support::RunProgram(KRTCTL_PATH, {"ping", "-vn"}, root);
  EXPECT_EQ(end.err.substr(0, end.err.find('\n') + 1),
            "krtctl: root " + root + " (KFAXDIR)" + tail);
  Expect(
      server,
      {{{"--root", "/nonexistent", "ping"},
        78,
        "",
        "krtctl: ping: root (--root) /nonexistent: No such file or "
        "directory\n"},
       {{"--spool", "/nonexistent", "ping"},
        78,
        "",
        "krtctl: ping: spool directory /nonexistent: No such file "
        "or directory\n"},
       {{"-u", "sixteen_letters_", "ping"}, getuid() == 0 ? 65 : 77, "", "*"}});
}

TEST(CommandLine, DryRunPrintsTheCommandAndSendsNothing) {
  const Server server;
  char host[64] = "";
  gethostname(host, sizeof host - 1);
  const Exit end = server.Run({"-n", "-u", server.user(), "cancel", "42"});
  const std::string session =
      end.out.substr(end.out.find("sessionid="),
                     end.out.find("reference=") - end.out.find("sessionid="));
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_EQ(end.out,
            "objbeg=obj-cmdrsp\nclientid=" + server.user() +
                "\nhostname=" + host + "\n" + session +
                "reference=1\ncmdtype=cmd-cancel\niscmd=true\nrespond=true\n"
                "objptr=obj-reqid\nobjbeg=obj-reqid\nseqno=42\n"
                "reqtype=req-regular\nobjend=obj-reqid\nobjend=obj-cmdrsp\n");
  EXPECT_EQ(server.root().SpoolNames(), std::vector<std::string>{});
}

TEST_F(Verbs, System) {
  Expect(
      server_,
      {{{"ping", "-q"}, 0, "", ""},
       {{"state"}, 0, "scheduler      not running\n", ""},
       {{"state", "-j"}, 0, "{\"type\":\"obj-state\",\"schedup\":false}\n", ""},
       {{"state", "--text"},
        0,
        "objbeg=obj-state\nschedup=false\nobjend=obj-state\n",
        ""},
       {{"list", "resolutions"},
        0,
        "NAME\tDESCRIPTION\nstd\tstandard\nfine\tfine\n",
        ""},
       {{"-q", "list", "resolutions"}, 0, "std\tstandard\nfine\tfine\n", ""},
       {{"list", "groups", "-j"}, 0, "[]\n", ""},
       {{"list", "resolutions", "-j"},
        0,
        "[{\"type\":\"obj-resource\",\"rname\":\"std\",\"rdesc\":"
        "\"standard\"},\n {\"type\":\"obj-resource\",\"rname\":\"fine\","
        "\"rdesc\":\"fine\"}]\n",
        ""},
       {{"list", "queues"}, 1, "", "*"},
       {{"clean"}, 0, "cleaned\n", ""},
       {{"queue"}, 0, "no requests are waiting\n", ""},
       {{"status", "42", "43"},
        1,
        "",
        "krtctl: status 42: Cannot get status for 42: No such file or "
        "directory (13)\nkrtctl: status 43: Cannot get status for 43: No "
        "such file or directory (13)\n"},
       {{"retry", "42"},
        69,
        "",
        "krtctl: retry 42: Scheduler not running (17); start the fax "
        "scheduler, then: krtctl state\n"},
       {{"cancel", "42"},
        1,
        "",
        "krtctl: cancel 42: Cannot cancel request: No such file or "
        "directory (3)\n"}});
  WriteFile(server_.Queue("events/7"),
            "objbeg=obj-status\nseqno=7\nrresult=1003\nsubject=a \"b\" \\\n"
            "submittime=20240102030405\ndone=true\nobjend=obj-status\n");
  Expect(
      server_,
      {{{"status", "7", "-j"},
        0,
        "[{\"type\":\"obj-status\",\"seqno\":7,\"subject\":\"a \\\"b\\\" "
        "\\\\\",\"rresult\":1003,\"done\":true,\"submittime\":"
        "\"2024-01-02T03:04:05Z\"}]\n",
        ""},
       {{"wait", "7", "-q"}, 1, "", "krtctl: wait 7: Max attempts reached\n"},
       {{"msg", "list", "--events", "-qj"}, 0, "*", ""}});
  // Nobody reads any more.
  EXPECT_EQ(server_.Shell("(krtctl state --watch 1; echo $? >&2) | true").err,
            "74\n");
}

TEST_F(Verbs, ReceivedFaxes) {
  server_.root().AddUser("bob");
  WriteFile(server_.Queue("in.fax"), std::string("a\0b\n", 4));
  const std::string out = server_.Path("got");
  Expect(
      server_,
      {{{"fax", "get", "in.fax", "-o", out}, 0, "in.fax -> " + out + "\n", ""},
       {{"fax", "get", "in.fax", "-o", out},
        73,
        "",
        "krtctl: fax get in.fax: " + out + " exists; --yes replaces it\n"},
       {{"fax", "get", "no.fax", "-o", out, "-y"},
        1,
        "",
        "krtctl: fax get no.fax: File no.fax does not exist (13)\n"},
       {{"fax", "route", "in.fax", "bob", "eve"},
        1,
        "in.fax copied to bob\n",
        "krtctl: fax route in.fax eve: Invalid to route eve (19)\n"},
       {{"fax", "route", "in.fax", "bob", "--move", "-q"}, 0, "", ""},
       {{"fax", "rm", "in.fax"},
        1,
        "",
        "krtctl: fax rm in.fax: Cannot delete file in.fax: No such file or "
        "directory (5)\n"},
       {{"fax", "put", out, "new.tif"}, 0, "new.tif stored\n", ""},
       {{"fax", "put", out, "../new.tif"},
        65,
        "",
        "krtctl: fax put ../new.tif: not a plain file name\n"},
       {{"fax", "put", "/nonexistent"},
        66,
        "",
        "krtctl: fax put: /nonexistent: No such file or directory\n"},
       {{"fax", "put", "-"},
        66,
        "",
        "krtctl: fax put: standard input: is empty\n"},
       {{"fax", "get", "new.tif", "-o", "-"}, 0, "*", ""},
       {{"fax", "print", "new.tif"}, 1, "", "*"},
       {{"fax", "rm", "new.tif"}, 0, "new.tif deleted\n", ""}});
  EXPECT_EQ(ReadFile(out), std::string("a\0b\n", 4));
  EXPECT_EQ(ReadFile(server_.Path("faxq/bob/in.fax")),
            std::string("a\0b\n", 4));
  EXPECT_EQ(server_.root().SpoolNames(), std::vector<std::string>{});
}

// What the server names its file is no path for the client.
TEST_F(Verbs, FetchedFileGoesWhereItShould) {
  const std::string dir = server_.Path("here");
  std::filesystem::create_directory(dir);
  WriteFile(server_.Queue("x.txt"), "text\n");
  const Exit end = server_.Shell("cd " + dir +
                                 " && umask 077 && krtctl fax "
                                 "get x.txt && ls -A\n"
                                 "mkfifo pipe; krtctl -yq fax get x.txt -o "
                                 "pipe & cat pipe; wait; test -p pipe");
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_EQ(end.out, "x.txt -> x.txt\nx.txt\ntext\n");
  EXPECT_EQ(ReadFile(dir + "/x.txt"), "text\n");
}

TEST_F(Verbs, Messages) {
  WriteFile(server_.Queue("msgs/m1"), "one\n\n  two\n");
  Expect(server_,
         {{{"msg", "show", "m1"}, 0, "one\n\ntwo\n", ""},
          {{"msg", "show", "m1", "-j"},
           0,
           "[{\"type\":\"obj-msg\",\"lines\":[{\"type\":\"obj-text\",\"text\":"
           "\"one\"},{\"type\":\"obj-text\",\"text\":\" \"},{\"type\":"
           "\"obj-text\",\"text\":\"two\"}]}]\n",
           ""},
          {{"msg", "list", "--since", "2037-01-01"}, 0, "", ""},
          {{"msg", "rm", "m1", "m1"},
           1,
           "m1 deleted\n",
           "krtctl: msg rm m1: Cannot delete file m1: No such file or "
           "directory (13)\n"},
          {{"msg", "show", std::string(16, 'x')},
           65,
           "",
           "krtctl: msg show xxxxxxxxxxxxxxxx: rname: at most 15 bytes, not "
           "16\n"}});
}

TEST_F(Verbs, CoverPages) {
  const std::string cover = server_.Path("Covers/std.sh");
  WriteFile(cover,
            "#!/bin/sh\necho 'to:R:F:Courier:30:\"To whom\" re:O:P::60:'\n");
  chmod(cover.c_str(), 0755);
  Expect(server_,
         {{{"cover", "list", "-q"}, 0, "std\t\n", ""},
          {{"cover", "tags", "std"},
           0,
           "NAME\tKIND\tLENGTH\tFONT\tFONT NAME\tDESCRIPTION\n"
           "to\treq\t30\tfixed\tCourier\tTo whom\nre\topt\t60\tprop\t\t\n",
           ""},
          {{"cover", "tags", "nix"},
           1,
           "",
           "krtctl: cover tags nix: Invalid coverpage nix (19)\n"},
          {{"cover", "match", "to", "re", "-q"}, 0, "std\t\n", ""},
          {{"cover", "match", "to", "zz", "-j"}, 1, "[]\n", ""}});
}

TEST_F(Verbs, SettingsAndMonitors) {
  Expect(
      server_,
      {{{"config", "show"}, 0, "", ""},
       {{"config", "set", "notify=okfail", "QUEUE=fast", "-q"}, 0, "", ""},
       {{"config", "set", "queue=", "frname=A = B"}, 0, "stored\n", ""},
       {{"config", "show"}, 0, "notify       okfail\nfrname       A = B\n", ""},
       {{"config", "set", "notify=req-exp"},
        65,
        "",
        "krtctl: config set: notify: \"req-exp\" is no value for it\n"},
       {{"config", "set", "queue=sixteen-letters-"},
        65,
        "",
        "krtctl: config set: queue: at most 15 bytes, not 16\n"},
       {{"config", "set", "queue=a\nb"},
        65,
        "",
        "krtctl: config set: queue: one line without control characters "
        "only\n"},
       {{"monitor", "show"}, 0, "no calls\n", ""},
       {{"monitor", "only", "bob", "eve", "-q"}, 0, "", ""},
       {{"monitor", "show"}, 0, "only the calls of\nbob\neve\n", ""},
       {{"monitor", "except", "-q"}, 0, "", ""},
       {{"monitor", "show"}, 0, "all calls\n", ""}});
  const Exit edited = server_.Shell(
      "EDITOR='kill -INT $PPID; sed -i s/^queue=.*/queue=slow/' "
      "krtctl config edit && "
      "krtctl config show");
  EXPECT_EQ(edited.out,
            "stored\nnotify       okfail\nfrname       A = B\n"
            "queue        slow\n");
  const Exit bad = server_.Shell(
      "EDITOR='sed -i s/^queue/quue/' krtctl "
      "config edit");
  EXPECT_EQ(bad.status, 65);
  EXPECT_EQ(bad.err, "krtctl: config edit: line 10: unknown field \"quue\"\n");
}

TEST_F(Verbs, CommandsAsSuch) {
  Expect(server_,
         {{{"run", "--", "printf", "%s|", "a  b", "-n"}, 0, "a  b|-n|\n", ""},
          {{"run", "sh", "-c", "echo no >&2; exit 3"},
           1,
           "",
           "krtctl: run sh: no\nkrtctl: run sh: Command failed (13)\n"},
          {{"run", "--", "a b"},
           65,
           "",
           "krtctl: run a b: the program's name has a blank in it\n"},
          {{"raw", "/nonexistent"},
           66,
           "",
           "krtctl: raw: /nonexistent: No such file or directory\n"},
          {{"collect", "12-1"},
           64,
           "",
           "krtctl: \"12-1\" is no exchange (NNNN-RRR)\n"}});
  const struct {
    const char* text;
    int status;
    const char* err;
  } kRaw[] = {
      {"objbeg=obj-cmdrsp\ncmdtype=cmd-noop\nobjend=obj-cmdrsp\n", 0, ""},
      {"objbeg=obj-cmdrsp\ncmdtype=cmd-login\nobjend=obj-cmdrsp\n", 1,
       "krtctl: raw: Unsupported command type cmd-login (19)\n"},
      {"objbeg=obj-cmdrsp\ncmdtyp=cmd-noop\nobjend=obj-cmdrsp\n", 65,
       "krtctl: raw -: line 2: unknown field \"cmdtyp\"\n"},
      {"objbeg=obj-cmdrsp\ncmdtype=cmd-nope\nobjend=obj-cmdrsp\n", 65,
       "krtctl: raw -: line 2: cmdtype: \"cmd-nope\" is no value for it\n"},
      {"objbeg=obj-cmdrsp\nobjptr=obj-reqid\nobjbeg=obj-reqid\nqueue="
       "sixteen-letters-\n",
       65, "krtctl: raw -: line 4: queue: at most 15 bytes, not 16\n"},
      {"objbeg=obj-cmdrsp\n", 65,
       "krtctl: raw -: line 1: the text ends inside an object\n"},
      {"\n", 66, "krtctl: raw: -: is empty\n"},
  };
  for (const auto& c : kRaw) {
    SCOPED_TRACE(c.text);
    const std::string file = server_.Path("raw");
    WriteFile(file, c.text);
    const Exit end = server_.Shell("krtctl raw < " + file);
    EXPECT_EQ(end.status, c.status);
    EXPECT_EQ(end.err, c.err);
  }
  const Exit sent = server_.Shell("krtctl -q --no-wait clean");
  ASSERT_EQ(sent.out.size(), 9U) << sent.out;
  Expect(server_, {{{"collect", "-q", sent.out.substr(0, 8)}, 0, "*", ""}});
  // Where nothing can be unpacked, a file that comes is not lost.
  WriteFile(server_.Queue("f.txt"), "text\n");
  EXPECT_EQ(server_
                .Shell("cd /proc; n=$(krtctl -q --no-wait fax get f.txt -o -)\n"
                       "d=$(krtctl collect $n | sed -n 's/^files: //p')\n"
                       "cat $d/f.txt; rm -r $d")
                .out,
            "text\n");
  EXPECT_EQ(server_.root().SpoolNames(), std::vector<std::string>{});
}

TEST_F(Verbs, Users) {
  // A broken link is no user, and what is missing of one is made.
  std::filesystem::create_symlink("loop", server_.Path("faxq/loop"));
  std::filesystem::create_directory(server_.Path("faxq/daemon"));
  Expect(server_,
         {{{"user", "list"}, 0, "daemon\n" + server_.user() + "\n", ""},
          {{"user", "add", "daemon", "no-such-user", "a/b"},
           67,
           "daemon is a fax user now\n",
           "krtctl: user add no-such-user: no such user on this system\n"
           "krtctl: user add a/b: not a plain name of at most 15 "
           "characters\n"},
          {{"user", "add", "daemon"},
           1,
           "",
           "krtctl: user add daemon: is a fax user already\n"}});
  EXPECT_TRUE(std::filesystem::is_directory(server_.Path("faxq/daemon/msgs")));
  if (getuid() != 0) return;
  Expect(server_, {{{"-u", "nobody", "config", "show"},
                    67,
                    "",
                    "krtctl: config show: Cannot get config object for nobody "
                    "(13); nobody is no fax user: krtctl user add nobody\n"}});
}

// What a user without rights to the spool is told.
TEST_F(Verbs, PermissionDenied) {
  if (getuid() != 0) GTEST_SKIP() << "needs another user";
  const Exit end = support::RunProgram(
      "/usr/bin/env", {"-i", "setpriv", "--reuid", "65534", "--clear-groups",
                       KRTCTL_PATH, "--root", server_.root().path(), "ping"});
  EXPECT_EQ(end.status, 77);
  EXPECT_NE(end.err.find("Permission denied"), end.err.npos) << end.err;
}

TEST(JsonOutput, IsReadByAnotherParser) {
  if (support::RunProgram("/bin/sh", {"-c", "python3 -c pass"}).status != 0) {
    GTEST_SKIP() << "no python3";
  }
  Server server;
  server.Start();
  WriteFile(server.Queue("msgs/m"),
            "q\" b\\ t\x01 \xC3\xA9 \xFF \xED\xA0\x80 \xF0\x9F\x93\xA0\n");
  const std::string python =
      " | python3 -c 'import json,sys; print(ascii(json.load(sys.stdin)))'";
  EXPECT_EQ(server.Shell("krtctl -j msg show m" + python).out,
            "[{'type': 'obj-msg', 'lines': [{'type': 'obj-text', 'text': "
            "'q\" b\\\\ t\\x01 \\xe9 \\ufffd \\ufffd\\ufffd\\ufffd "
            "\\U0001f4e0'}]}]\n");
  for (const char* verb : {"ping",
                           "state",
                           "list results",
                           "queue",
                           "fax list",
                           "msg list",
                           "cover list",
                           "config show",
                           "config set queue=q",
                           "monitor show",
                           "monitor except",
                           "clean",
                           "run -- echo x",
                           "check",
                           "user list",
                           "completion bash",
                           "help",
                           "help fax",
                           "ping --help",
                           "--help",
                           "-n user list",
                           "--no-wait clean"}) {
    const Exit end = server.Shell(std::string("krtctl -j ") + verb + python);
    EXPECT_EQ(end.status, 0) << verb << ": " << end.out << end.err;
    EXPECT_NE(end.out, "") << verb;
  }
  for (const char* verb : {"status 1", "pign", "fax get x", "--root / ping"}) {
    const Exit end = server.Shell(std::string("krtctl -j ") + verb +
                                  " 2>&1 >/dev/null" + python);
    EXPECT_EQ(end.out.substr(0, 16), "{'type': 'error'") << verb << end.err;
  }
}

}  // namespace
