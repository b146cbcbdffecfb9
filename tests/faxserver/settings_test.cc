#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include <tuple>

#include "cm/cmlimits.h"
#include "faxserver/fsconfig.h"
#include "faxserver/fsextcmd.h"
#include "faxserver/fsmon.h"
#include "faxserver/fspopen.h"
#include "support/accounts.h"
#include "support/peers.h"
#include "util/kutenv.h"

namespace {

using Configuration = FaxTest;
using Monitors = FaxTest;
using ExternalCommand = FaxTest;

// ---- Configuration ----

TEST_F(Configuration, IsTheUsersOrEmpty) {
  root.MakeDir("faxq/bob");
  const kx::Object fresh(fx_get_config(root.root(), "bob"));
  EXPECT_EQ(ToText(fresh.get()), Object("obj-config", ""));
  kx::SetText(fresh.get(), "queue", "sales");
  ASSERT_EQ(fx_set_config(root.root(), "bob", fresh.get()), 0);
  const kx::Object stored(fx_get_config(root.root(), "bob"));
  EXPECT_STREQ(kx::Text(stored.get(), "queue"), "sales");

  root.Put("faxq/bob/options/config", "objbeg=obj-config\nqueue=cut");
  EXPECT_EQ(ErrorOf(fx_get_config(root.root(), "bob")), 6);
  for (const char* user : {"carol", "", "..", "../faxq/bob"}) {
    EXPECT_EQ(ErrorOf(fx_get_config(root.root(), user)), 7) << user;
    EXPECT_EQ(ErrorOf(fx_set_config(root.root(), user, fresh.get())), 19);
  }
  EXPECT_EQ(fx_get_config(root.root(), nullptr), nullptr);
  std::filesystem::remove_all(root / "faxq/bob/options");
  root.Put("faxq/bob/options", "no directory");
  EXPECT_EQ(ErrorOf(fx_set_config(root.root(), "bob", fresh.get())), 3);
}

// ---- Monitors ----

TEST_F(Monitors, FileIsReadByItsRulesAndWrittenByTheKind) {
  root.AddUser("bob");
  const auto read = [&] {
    const kx::Object monitor(fx_get_monlist(root.root(), "bob"));
    EXPECT_STREQ(kx::TextOrEmpty(monitor.get(), "clientid"), "bob");
    // A client may send back what it got.
    EXPECT_EQ(fx_set_monlist(root.root(), monitor.get()), 0);
    return kx::TextOrEmpty(monitor.get(), "montype") + std::string(" ") +
           Shown(kx::Child(monitor.get(), "names"), {"rname"});
  };
  EXPECT_EQ(read(), "mon-excall ");
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"", "mon-excall ", ""},
      {"ALLOWALL\n!bob\ncarol\n", "mon-incall bob;", "ALLOWALL\n!bob\n"},
      {"!bob\ncarol\n ALLOWALL \n!ann\n", "mon-incall bob;ann;",
       "ALLOWALL\n!bob\n!ann\n"},
      {"# note\n\n carol \n!bob\nann", "mon-excall carol;ann;", "carol\nann\n"},
      {"!ALLOWALL\ncarol\n", "mon-excall carol;", "carol\n"},
      {"ALLOWALL\n!ALLOWALL\n", "mon-incall ALLOWALL;",
       "ALLOWALL\n!ALLOWALL\n"},
      {"allowall\n", "mon-excall allowall;", "allowall\n"},
      {"a-name-that-is-too-long\nann\n", "mon-excall ann;", "ann\n"},
      {"ALLOWALL\n! bob\n!\n! \t\n", "mon-incall bob;", "ALLOWALL\n!bob\n"},
      {"a\rb\nann\r\n", "mon-excall ann;", "ann\n"},
  };
  for (const auto& [content, shown, written] : cases) {
    root.Put("faxq/bob/options/monitors", content);
    EXPECT_EQ(read(), shown) << content;
    EXPECT_EQ(ReadFile(root / "faxq/bob/options/monitors"), written) << content;
  }
  EXPECT_EQ(ErrorOf(fx_get_monlist(root.root(), "carol")), 7);
}

TEST_F(Monitors, RefusedListLeavesTheFileAsItWas) {
  root.AddUser("bob");
  root.Put("faxq/bob/options/monitors", "carol\n");
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"", "mon-incall", "ann"},
      {"dave", "mon-incall", "ann"},
      {"../faxq/bob", "mon-incall", "ann"},
      {"bob", "", "ann"},
      {"bob", "cmd-noop", "ann"},
      {"bob", "mon-excall", "ALLOWALL"},
      {"bob", "mon-excall", "!ann"},
      {"bob", "mon-excall", "#ann"},
      {"bob", "mon-incall", "a\nb"},
      {"bob", "mon-incall", " ann"},
  };
  const auto set = [&](auto user, auto type, std::vector<std::string> names) {
    const kx::Object monitor = kx::Build("obj-monitor");
    kx::SetText(monitor.get(), "clientid", user);
    kx::SetText(monitor.get(), "montype", type);
    kx::SetChild(monitor.get(), "names",
                 TextList("obj-resource", "rname", names));
    return ErrorOf(fx_set_monlist(root.root(), monitor.get()));
  };
  for (const auto& [user, type, name] : cases) {
    EXPECT_EQ(set(user, type, {name}), 19)
        << user << " " << type << " " << name;
  }
  EXPECT_EQ(ReadFile(root / "faxq/bob/options/monitors"), "carol\n");
  EXPECT_EQ(set("bob", "mon-excall", {"ann", ""}), 0);
  EXPECT_EQ(ReadFile(root / "faxq/bob/options/monitors"), "ann\n");
}

// ---- External commands ----

std::string Me() { return getpwuid(geteuid())->pw_name; }

kx::Object Command(const std::string& line,
                   const std::vector<std::string>& args, bool object = false) {
  kx::Object command = kx::Build("obj-extcmd");
  kx::SetText(command.get(), "cmdstr", line.c_str());
  kx::SetBool(command.get(), "retobj", object);
  kx::SetChild(command.get(), "args", TextList("obj-arg", "argstr", args));
  return command;
}

kx::Object Execute(const kx::Object& command, const std::string& user = Me()) {
  return kx::Object(fx_extcmd("", user.c_str(), command.get()));
}

// The error number, without an answer.
int Failed(const kx::Object& command, const std::string& user = Me()) {
  return ErrorOf(fx_extcmd("", user.c_str(), command.get()));
}

std::string Lines(const kx::Object& message) {
  return Kfx_Is_Obj_Type(message.get(), "obj-msg") == 0
             ? "no message"
             : Shown(kx::Child(message.get(), "lines"), {"text"});
}

// What the rest of a command line's output is.
std::string Rest(FILE* pipe) {
  std::string all;
  for (int c; pipe != nullptr && (c = fgetc(pipe)) != EOF;) {
    all += static_cast<char>(c);
  }
  return all;
}

std::string Shell(const std::string& script) {
  const kx::Object output = Execute(Command("sh -c", {script}));
  const int error = kx_errno;
  return std::to_string(error) + " " + Lines(output);
}

TEST_F(ExternalCommand, OutputIsTheAnswer) {
  EXPECT_EQ(Lines(Execute(Command("printf %s|  one two", {"a b", "", "*"}))),
            "one|two|a b||*|;");
  EXPECT_EQ(Shell("exit 0"), "0 ");
  EXPECT_EQ(Shell("echo out; echo err >&2"), "0 out;");
  EXPECT_EQ(Shell("cat; echo eof"), "0 eof;") << "input is /dev/null";
  EXPECT_EQ(Shell("ls /proc/self/fd | wc -l"), "0 4;")
      << "three descriptors, and that of ls";
}

TEST_F(ExternalCommand, FailureIsItsErrorOutput) {
  EXPECT_EQ(Shell("echo out; echo bad news >&2; exit 2"), "13 bad news;");
  EXPECT_EQ(Shell("kill -9 $$"), "13 ");
  const kx::Object nothing = Execute(Command("/no/such/command", {}));
  EXPECT_EQ(kx_errno, 13);
  EXPECT_EQ(Lines(nothing), "");
  char name[32];
  snprintf(name, sizeof name, "/tmp/fx%05d.err", static_cast<int>(getpid()));
  EXPECT_NE(access(name, F_OK), 0) << "the error file is left";
}

TEST_F(ExternalCommand, ObjectIsDataAndNothingIsUnpacked) {
  const auto print = [](const std::string& text) {
    const kx::Object object = Execute(Command("printf %s", {text}, true));
    return object == nullptr
               ? std::to_string(kx_errno)
               : Kfx_Object_Type(object.get()) +
                     std::string(kx::TextOrEmpty(object.get(), "pathname"));
  };
  EXPECT_EQ(print(Object("obj-user", "")), "obj-user");
  EXPECT_EQ(print("objbeg=obj-file\npathname=*\nfilebeg=x\nfiledata= \n"
                  "fileend=x\nobjend=obj-file\n"),
            "obj-file*");
  for (const char* text : {"", "hello\n", "objbeg=obj-none\n", "a=b\n",
                           "objbeg=obj-user\nclientid=cut\n"}) {
    EXPECT_EQ(print(text), "19") << text;
  }
}

TEST_F(ExternalCommand, ArgumentsAndOutputHaveTheirLimits) {
  std::vector<std::string> args(kFxMaxArgs - 2, "x");
  const std::string shown = Lines(Execute(Command("echo x", args)));
  EXPECT_EQ(std::count(shown.begin(), shown.end(), 'x'), 255);
  args.emplace_back("one too many");
  EXPECT_EQ(Failed(Command("echo x", args)), 19);
  for (const char* line : {"", " \t "}) {
    EXPECT_EQ(Failed(Command(line, {})), 19) << line;
  }
}

TEST_F(ExternalCommand, NothingOfItStaysBehind) {
  for (const char* start :
       {"sleep 600 &", "setsid sleep 600 &", "set -m; sleep 600 &",
        "trap '' HUP; sleep 600 &"}) {
    const std::string shown = Shell(start + std::string(" echo $!"));
    ASSERT_EQ(shown.substr(0, 2), "0 ") << start;
    EXPECT_NE(kill(std::stoi(shown.substr(2)), 0), 0) << start;
  }
}

TEST_F(ExternalCommand, EnvironmentAndDirectoryAreTheUsers) {
  setenv("SECRET", "secret", 1);
  const passwd self = *getpwuid(geteuid());
  const std::string path = getenv("PATH");
  std::string wanted =
      std::string("HOME=") + self.pw_dir + ";KFAXDIR=" + Kut_get_kfaxdir() +
      ";LANG=C.UTF-8;LOGNAME=" + self.pw_name +
      ";PATH=/usr/krtfax/bin:" + path + ";PWD=" + self.pw_dir +
      ";SHELL=" + self.pw_shell + ";USER=" + self.pw_name + ";";
  setenv("LANG", "C.UTF-8", 1);
  EXPECT_EQ(Shell("env | grep -v ^_= | sort"), "0 " + wanted);
  FILE* pipe = fx_popen("env | grep -v ^_= | sort | tr '\\n' ';'");
  EXPECT_EQ(Rest(pipe), wanted) << "a command line";
  fx_pclose(pipe);
  root.Put("wanted", wanted);
  EXPECT_EQ(fx_run_as(Me().c_str(),
                      ("env | grep -v ^_= | sort | tr '\\n' ';' | cmp " +
                       root / "wanted")
                          .c_str()),
            0);
}

TEST_F(ExternalCommand, AHomeThatTheUserCannotEnterIsTheRoot) {
  const TempDir home;
  chmod(home.path().c_str(), 0700);
  const OwnAccounts accounts("krthome:x:54321:54321::" + home.path() + ":\n",
                             "");
  SKIP_WITHOUT_ACCOUNTS(accounts);
  EXPECT_EQ(
      Lines(Execute(Command("sh -c", {"pwd; echo $HOME $SHELL"}), "krthome")),
      "/;" + home.path() + " /bin/sh;");
}

// ---- Budgets ----

TEST(Budget, AProgramThatExceedsItEndsAndSaysWhich) {
  int stop[2];
  ASSERT_EQ(pipe2(stop, O_CLOEXEC), 0);
  const UniqueFd reader(stop[0]), writer(stop[1]);
  ASSERT_EQ(write(writer.get(), "", 1), 1);
  const TempDir dir;
  const std::string errors = dir / "errors";
  constexpr bool kStop = true;
  const struct {
    const char *limits, *script, *why;
    bool stopped = false;
  } cases[] = {
      {"program-seconds=1", "sleep 600", " after 1 seconds"},
      {"program-seconds=1", "exec >&- 2>&-; sleep 600", " after 1 seconds"},
      {"program-bytes=64K", "yes", ": more than 64K of output"},
      {"program-bytes=256", "printf %300s x", ": more than 256 of output"},
      {"program-error-bytes=64K", "yes >&2", ": more than 64K of error output"},
      {"program-error-bytes=256", "printf %300s x >&2",
       ": more than 256 of error output"},
      {"", "sleep 600", ": the server is stopping", kStop},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.script);
    const std::string why = std::string("The program was ended") + c.why;
    ASSERT_EQ(cm_set_limits(c.limits), nullptr);
    if (c.stopped) fx_stop_programs_at(reader.get());
    const std::string script =
        "echo $$ > " + dir / "pid" + "; " + std::string(c.script);
    EXPECT_EQ(Shell(script), "13 " + why + ";");
    if (!c.stopped) {  // else it may not even have begun
      // One that is just writing to a busy disk dies when that lets it.
      const int pid = std::stoi(ReadFile(dir / "pid"));
      EXPECT_TRUE(support::Eventually([pid] { return kill(pid, 0) != 0; }));
    }
    if (why.find(" of output") == why.npos) {
      std::string told;
      fx_run_as(Me().c_str(), ("exec 2> " + errors + "; " + script).c_str(),
                {AT_FDCWD, errors.c_str()}, &told);
      EXPECT_EQ(told, why);
    }
    if (why.find(" error ") == why.npos) {
      FILE* pipe = fx_popen(script.c_str());
      ASSERT_NE(pipe, nullptr);
      Rest(pipe);
      EXPECT_EQ(fx_pclose(pipe), -1);
    }
    fx_stop_programs_at(-1);
    cm_set_limits(
        "program-seconds=300 program-bytes=16M program-error-bytes=1M");
  }
}

TEST_F(ExternalCommand, RunsAsTheUserOrNotAtAll) {
  for (const char* user : {"no-such-user", ""}) {
    EXPECT_EQ(Failed(Command("id", {}), user), 12) << user;
  }
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  EXPECT_EQ(Lines(Execute(Command("sh -c", {"id -u; id -g; id -G"}), "daemon")),
            "1;1;1;");
  EXPECT_EQ(fx_run_as("daemon", "test $(id -u) = 1"), 0);
}

// ---- Command lines ----

TEST(Shell, AnyTextIsOneWord) {
  for (const char* text :
       {"", "plain", "a b", "it's", "''", "$HOME `id` \\ \"q\" *", "-n", "a\nb",
        "\xff;|&<>(){}!#~"}) {
    FILE* pipe = fx_popen(("printf %s. " + fx_shell_word(text)).c_str());
    EXPECT_EQ(Rest(pipe), std::string(text) + ".") << text;
    EXPECT_EQ(fx_pclose(pipe), 0);
  }
}

TEST(Shell, ChildHandlerOfTheProcessIsKeptAway) {
  struct sigaction reap = {}, old;
  reap.sa_handler = [](int) {
    const int saved = errno;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    errno = saved;
  };
  sigaction(SIGCHLD, &reap, &old);
  FILE* pipe = fx_popen("exit 5");
  EXPECT_EQ(fx_popen("exit 6"), nullptr) << "one at a time";
  EXPECT_EQ(WEXITSTATUS(fx_pclose(pipe)), 5);
  EXPECT_EQ(fx_pclose(pipe), -1);
  EXPECT_EQ(fx_run_as(Me().c_str(), "exit 4"), 4);
  EXPECT_EQ(fx_run_as(Me().c_str(), "kill -9 $$"), 128 + 9);
  EXPECT_EQ(Shell("exit 2"), "13 ");
  sigaction(SIGCHLD, &old, nullptr);
}

}  // namespace
