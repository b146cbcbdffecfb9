// Each verb against the real daemon, with its usual failure.
#include "support/ctl.h"

namespace {

using ctl::Server;
using ctl::Session;
using support::Exit;

class Verbs : public ::testing::Test {
 protected:
  Verbs() { server_.Start(); }
  Server server_;
};

TEST(CommandLine, WrongUseIsNamedAndEndsWith64) {
  const Server server;
  Session(server, R"(
64$ krtctl
! no verb given; see: krtctl help
64$ krtctl pign
! unknown verb "pign"; did you mean "ping"?
64$ krtctl fax
! fax: one of list get put rm print route
64$ krtctl fax lits
! unknown fax verb "lits"; did you mean "list"?
64$ krtctl ping x
! ping: unexpected argument "x"
64$ krtctl cancel
! cancel: needs SEQNO...
64$ krtctl cancel 4x
! "4x" is not a request number
64$ krtctl --jsno ping
! unknown option --jsno; did you mean "json"?
64$ krtctl ping -z
! unknown option -z
64$ krtctl --watch 1 ping
! ping: does not take --watch
64$ krtctl ping --timeout
! --timeout needs a value: S
64$ krtctl ping --timeout soon
! --timeout: not a number of seconds
64$ krtctl ping --json=x
! --json takes no value
64$ krtctl ping --color red
! --color: not one of: auto always never
64$ krtctl ping -j --text
!{"type":"error","verb":"ping","message":"--json and --text exclude each other","status":64}
64$ krtctl list prioritys
! unknown kind "prioritys"; one of covers allcovers filetypes pglengths priorities queues resolutions results groups prtdests retrys tnps; did you mean "priorities"?
64$ krtctl submit x
! submit: needs --to NUMBER
)");
}

TEST(CommandLine, RootIsChosenInOrder) {
  const Server server;
  Session(server, R"(
$ krtctl -v -n ping 2>&1 >/dev/null | head -n 1
krtctl: root ROOT (--root), spool ROOT/krtnet/filspool, user USER
$ KFAXDIR=ROOT $KRTCTL ping -vn 2>&1 >/dev/null | head -n 1
krtctl: root ROOT (KFAXDIR), spool ROOT/krtnet/filspool, user USER
78$ krtctl --root /nonexistent ping
! ping: root (--root) /nonexistent: No such file or directory
78$ krtctl --spool /nonexistent ping
! ping: spool directory /nonexistent: No such file or directory
)" + std::string(getuid() == 0 ? "65" : "77") +
                      "$ krtctl -u sixteen_letters_ ping\n!*\n");
}

TEST(CommandLine, DryRunPrintsTheCommandAndSendsNothing) {
  const Server server;
  char host[64] = "";
  gethostname(host, sizeof host - 1);
  Session(server, R"(
$ krtctl -n -u USER cancel 42 | sed 's/^\(sessionid=\)[0-9]*$/\1N/'
objbeg=obj-cmdrsp
clientid=USER
hostname=)" + std::string(host) +
                      R"(
sessionid=N
reference=1
cmdtype=cmd-cancel
iscmd=true
respond=true
objptr=obj-reqid
objbeg=obj-reqid
seqno=42
reqtype=req-regular
objend=obj-reqid
objend=obj-cmdrsp
)");
  EXPECT_EQ(server.root().SpoolNames(), std::vector<std::string>{});
}

TEST_F(Verbs, System) {
  Session(server_, R"(
$ krtctl state
scheduler      not running
$ krtctl state -j
{"type":"obj-state","schedup":false}
$ krtctl state --text
objbeg=obj-state
schedup=false
objend=obj-state
$ krtctl list resolutions
NAME	DESCRIPTION
std	standard
fine	fine
$ krtctl list resolutions -j
[{"type":"obj-resource","rname":"std","rdesc":"standard"},
 {"type":"obj-resource","rname":"fine","rdesc":"fine"}]
1$ krtctl list queues
!*
$ krtctl clean
cleaned
$ krtctl queue
no requests are waiting
1$ krtctl status 42 43
! status 42: Cannot get status for 42: No such file or directory (13)
! status 43: Cannot get status for 43: No such file or directory (13)
69$ krtctl retry 42
! retry 42: Scheduler not running (17); start the fax scheduler, then: krtctl state
1$ krtctl cancel 42
! cancel 42: Cannot cancel request: No such file or directory (3)
)");
  WriteFile(server_.Queue("events/7"),
            "objbeg=obj-status\nseqno=7\nrresult=1003\nsubject=a \"b\" \\\n"
            "submittime=20240102030405\ndone=true\nobjend=obj-status\n");
  Session(server_, R"(
$ krtctl status 7 -j
[{"type":"obj-status","seqno":7,"subject":"a \"b\" \\","rresult":1003,"done":true,"submittime":"2024-01-02T03:04:05Z"}]
1$ krtctl wait 7 -q
! wait 7: Max attempts reached
$ krtctl msg list --events -qj
*
$ (krtctl state --watch 1; echo $? >&2) | true
!74
)");
}

TEST_F(Verbs, ReceivedFaxes) {
  server_.root().AddUser("bob");
  WriteFile(server_.Queue("in.fax"), std::string("a\0b\n", 4));
  Session(server_, R"(
$ krtctl fax get in.fax -o ROOT/got
in.fax -> ROOT/got
73$ krtctl fax get in.fax -o ROOT/got
! fax get in.fax: ROOT/got exists; --yes replaces it
1$ krtctl fax get no.fax -o ROOT/got -y
! fax get no.fax: File no.fax does not exist (13)
1$ krtctl fax route in.fax bob eve
in.fax copied to bob
! fax route in.fax eve: Invalid to route eve (19)
$ krtctl fax route in.fax bob --move -q
1$ krtctl fax rm in.fax
! fax rm in.fax: Cannot delete file in.fax: No such file or directory (5)
$ krtctl fax put ROOT/got new.tif
new.tif stored
65$ krtctl fax put ROOT/got ../new.tif
! fax put ../new.tif: not a plain file name
66$ krtctl fax put /nonexistent
! fax put: /nonexistent: No such file or directory
66$ krtctl fax put -
! fax put: standard input: is empty
$ krtctl fax get new.tif -o -
*
1$ krtctl fax print new.tif
!*
$ krtctl fax rm new.tif
new.tif deleted
)");
  for (const char* copy : {"got", "faxq/bob/in.fax"}) {
    EXPECT_EQ(ReadFile(server_.Path(copy)), std::string("a\0b\n", 4)) << copy;
  }
  EXPECT_EQ(server_.root().SpoolNames(), std::vector<std::string>{});
}

// What the server names its file is no path for the client.
TEST_F(Verbs, FetchedFileGoesWhereItShould) {
  WriteFile(server_.Queue("x.txt"), "text\n");
  Session(server_, R"(
$ mkdir ROOT/here && cd ROOT/here && umask 077 && krtctl fax get x.txt && ls -A
x.txt -> x.txt
x.txt
$ cat ROOT/here/x.txt
text
$ cd ROOT; mkfifo pipe; krtctl -yq fax get x.txt -o pipe & cat pipe; wait; test -p pipe
text
)");
}

TEST_F(Verbs, Messages) {
  WriteFile(server_.Queue("msgs/m1"), "one\n\n  two\n");
  Session(server_, R"(
$ krtctl msg show m1
one

two
$ krtctl msg show m1 -j
[{"type":"obj-msg","lines":[{"type":"obj-text","text":"one"},{"type":"obj-text","text":" "},{"type":"obj-text","text":"two"}]}]
$ krtctl msg list --since 2037-01-01
1$ krtctl msg rm m1 m1
m1 deleted
! msg rm m1: Cannot delete file m1: No such file or directory (13)
)");
}

TEST_F(Verbs, CoverPages) {
  server_.root().PutProgram("Covers/std.sh",
                            "echo 'to:R:F:Courier:30:\"To whom\" re:O:P::60:'");
  Session(server_, R"(
$ krtctl cover tags std
NAME	KIND	LENGTH	FONT	FONT NAME	DESCRIPTION
to	req	30	fixed	Courier	To whom
re	opt	60	prop		
1$ krtctl cover tags nix
! cover tags nix: Invalid coverpage nix (19)
$ krtctl cover match to re -q
std	
1$ krtctl cover match to zz -j
[]
)");
}

TEST_F(Verbs, SettingsAndMonitors) {
  Session(server_, R"(
$ krtctl config show
$ krtctl config set notify=okfail QUEUE=fast -q
$ krtctl config set queue= 'frname=A = B'
stored
$ krtctl config show
notify       okfail
frname       A = B
65$ krtctl config set notify=req-exp
! config set: notify: "req-exp" is no value for it
65$ krtctl config set queue=sixteen-letters-
! config set: queue: at most 15 bytes, not 16
65$ krtctl config set "queue=$(printf 'a\nb')."
! config set: queue: one line without control characters only
$ krtctl monitor show
no calls
$ krtctl monitor only bob eve -q
$ krtctl monitor show
only the calls of
bob
eve
$ krtctl monitor except -q
$ krtctl monitor show
all calls
$ EDITOR='kill -INT $PPID; sed -i s/^queue=.*/queue=slow/' krtctl config edit
stored
$ krtctl config show
notify       okfail
frname       A = B
queue        slow
65$ EDITOR='sed -i s/^queue/quue/' krtctl config edit
! config edit: line 10: unknown field "quue"
)");
}

TEST_F(Verbs, CommandsAsSuch) {
  Session(server_, R"(
$ krtctl run -- printf '%s|' 'a  b' -n
a  b|-n|
1$ krtctl run sh -c 'echo no >&2; exit 3'
! run sh: no
! run sh: Command failed (13)
65$ krtctl run -- 'a b'
! run a b: the program's name has a blank in it
64$ krtctl collect 12-1
! "12-1" is no exchange (NNNN-RRR)
$ printf 'objbeg=obj-cmdrsp\ncmdtype=cmd-noop\nobjend=\n' | krtctl raw
*
1$ printf 'objbeg=obj-cmdrsp\ncmdtype=cmd-login\nobjend=\n' | krtctl raw
*
! raw: Unsupported command type cmd-login (19)
65$ printf 'objbeg=obj-cmdrsp\ncmdtyp=cmd-noop\n' | krtctl raw
! raw -: line 2: unknown field "cmdtyp"
65$ printf 'objbeg=obj-cmdrsp\n' | krtctl raw
! raw -: line 1: the text ends inside an object
66$ echo | krtctl raw
! raw: -: is empty
$ krtctl collect -q $(krtctl -q --no-wait clean)
*
$ echo text > ROOT/faxq/USER/f.txt; krtctl -q --no-wait fax get f.txt -o - > ROOT/name
$ cd /proc; d=$(krtctl collect $(cat ROOT/name) | sed -n 's/^files: //p'); cat $d/f.txt; rm -r $d
text
)");
  EXPECT_EQ(server_.root().SpoolNames(), std::vector<std::string>{});
}

TEST_F(Verbs, Users) {
  // A broken link is no user, and what is missing of one is made.
  Session(server_, R"(
$ ln -s loop ROOT/faxq/loop; mkdir ROOT/faxq/daemon; krtctl user list
daemon
USER
67$ krtctl user add daemon no-such-user a/b
daemon is a fax user now
! user add no-such-user: no such user on this system
! user add a/b: not a plain name of at most 15 characters
1$ krtctl user add daemon
! user add daemon: is a fax user already
)");
  EXPECT_TRUE(std::filesystem::is_directory(server_.Path("faxq/daemon/msgs")));
  if (getuid() != 0) return;
  Session(server_, R"(
67$ krtctl -u nobody config show
! config show: Cannot get config object for nobody (13); nobody is no fax user: krtctl user add nobody
)");
}

// What a user without rights to the spool is told.
TEST_F(Verbs, PermissionDenied) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  const Exit end = support::RunProgram(
      "/usr/bin/env", {"-i", "setpriv", "--reuid", "65534", "--clear-groups",
                       KRTCTL_PATH, "--root", server_.root().path(), "ping"});
  EXPECT_EQ(end.status, 77);
  EXPECT_NE(end.err.find("Permission denied"), end.err.npos) << end.err;
}

TEST(JsonOutput, IsReadByAnotherParser) {
  if (support::RunShell("python3 -c pass").status != 0) {
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
  std::istringstream verbs(
      "ping;state;list results;queue;fax list;msg list;cover list;config show;"
      "config set queue=q;monitor show;monitor except;clean;run -- echo x;"
      "check;user list;completion bash;help;help fax;ping --help;--help;"
      "-n user list;--no-wait clean");
  for (std::string verb; std::getline(verbs, verb, ';');) {
    const Exit end = server.Shell("krtctl -j " + verb + python);
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
