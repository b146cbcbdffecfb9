#include <gtest/gtest.h>

#include "simulator/sim_root.h"

namespace {

using support::Exit;

TEST(CommandLine, FaultsAreNamedAndExitWith64) {
  const std::pair<std::vector<std::string>, const char*> kCases[] = {
      {{}, "what shall it do?"},
      {{"walk"}, "unknown verb walk"},
      {{"run"}, "the arguments of run are ROOT"},
      {{"receive", "a"}, "the arguments of receive are ROOT USER"},
      {{"receive", "a", "b/c"}, "\"b/c\" is no user name"},
      {{"run", "a", "--speed=3"}, "unknown option --speed"},
      {{"run", "a", "--delay"},
       "--delay wants a number of seconds, at most a day"},
      {{"run", "a", "--delay", "nan"},
       "--delay wants a number of seconds, at most a day, not \"nan\""},
      {{"run", "a", "-p", "0"}, "-p wants a number from 1 to 999, not \"0\""},
      {{"run", "a", "--quiet=yes"}, "--quiet takes no value"},
      {{"run", "a", "-o", "9=engaged"},
       "-o wants [DIGITS=]OUTCOME[,OUTCOME]..., not \"9=engaged\""},
      {{"init", "a", "--user", "0123456789abcdef"},
       "--user wants a user name of at most 15 characters, not "
       "\"0123456789abcdef\""},
      {{"run", "a", "--user", "bob"}, "run has no option --user"},
      {{"init", "--", "-a", "--pages"}, "the arguments of init are ROOT"},
  };
  for (const auto& [args, fault] : kCases) {
    EXPECT_EQ(SimRoot::Refusal(64, args), std::string("krtsim: ") + fault +
                                              " (krtsim --help tells more)\n");
  }
}

TEST(CommandLine, HelpAndVersionAreAnsweredBesideAnythingElse) {
  const Exit help = SimRoot::Sim({"run", "--help"});
  EXPECT_EQ(help.status, 0);
  for (const char* text : {"init ROOT", "receive ROOT USER", "-o, --outcome",
                           "noanswer", "--exit-when-idle"}) {
    EXPECT_NE(help.out.find(text), std::string::npos) << text;
  }
  const Exit version = SimRoot::Sim({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out,
            "krtsim: KRT*FAX fax server simulator version 2.1.0\n");
  EXPECT_EQ(support::RunShell(KRTSIM_PATH " --version >/dev/full").status, 74);
}

}  // namespace
