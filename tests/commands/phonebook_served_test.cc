// The phone book through the real daemon: every sub-command on both books, and
// many clients at once, in every mode.
#include <gtest/gtest.h>

#include <memory>

#include "support/daemon_process.h"
#include "support/objects.h"

namespace {

using support::Command;
using support::DaemonProcess;
using support::SampleRoot;

// Three daemons inline, or one with workers.
class ServedPhoneBook : public ::testing::TestWithParam<int> {
 protected:
  ServedPhoneBook() {
    root_.AddUser("jsmith");
    for (int i = 0; i < (GetParam() == 0 ? 1 : GetParam()); ++i) {
      daemons_.push_back(std::make_unique<DaemonProcess>(
          KRTCMD_PATH, root_,
          std::vector<std::string>{"-N", GetParam() == 0 ? "0" : "1"}));
    }
  }
  static std::string Book(const std::string& type, const std::string& verb,
                          const std::string& lines) {
    return Argument("obj-pbcom", "pbcmd=pbc-" + verb + "\npbtype=" + type +
                                     "\npbmode=pbm-write\n" + lines);
  }
  void Drop(int session, int reference, const std::string& argument) const {
    root_.Drop(support::ExchangeName(session, reference),
               Command("cmd-pbcmd", session, reference, argument));
  }
  std::string Ask(const std::string& argument) {
    Drop(1, ++reference_, argument);
    return root_.Response(support::ExchangeName(1, reference_));
  }

  const SampleRoot root_;
  std::vector<std::unique_ptr<DaemonProcess>> daemons_;
  int reference_ = 0;
};
INSTANTIATE_TEST_SUITE_P(Modes, ServedPhoneBook, ::testing::Values(0, 3));

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST_P(ServedPhoneBook, EverySubCommandOnBothBooks) {
  const std::string ada = "palias=Ada\nlname=Lovelace\n";
  const std::string person = Argument("obj-person", ada);
  const std::string group = Argument("obj-group", "galias=navy\n");
  const std::string member =
      Argument("obj-member", "galias=navy\npalias=Ada\n");
  const std::string by_name = "pbsort=pbs-lname\n";
  const struct {
    std::string verb, lines;
    int result;
    std::string part;  // of the response
  } kSteps[] = {
      {"open", "", 38, "errmsg=Phone-book does not exist\n"},
      {"create", "", 0, ""},
      {"open", "", 0, "curper=0\n"},
      {"close", "", 0, ""},
      {"peradd", person, 0, "curper=1\n"},
      {"peradd", person, 33, "errmsg=Duplicate alias\n"},
      {"perupd", Argument("obj-person", "palias=ada\nfname=Ada\n"), 0, ""},
      {"perget", "rcmd=pbc-alias\npbkey=ADA\n", 0, ada + "fname=Ada\n"},
      {"perget", by_name + "rcmd=pbc-next\ncurper=1\n", 36, ""},
      {"perpos", by_name + "rcmd=pbc-first\npbmax=1\n", 0, "curper=1\n"},
      {"cntper", "", 0, "pbmax=1\n"},
      {"grpadd", group, 0, "curgrp=1\n"},
      {"grpupd", Argument("obj-group", "galias=navy\ngdesc=Ships\n"), 0, ""},
      {"grpget", "rcmd=pbc-alias\npbkey=Navy\n", 0, "gdesc=Ships\n"},
      {"cntgrp", "", 0, "pbmax=1\n"},
      {"memadd", Argument("obj-member", "galias=army\npalias=Ada\n"), 31, ""},
      {"memadd", member, 0, "curmem=1\n"},
      {"memget", "rcmd=pbc-first\n", 0, "galias=navy\npalias=Ada\n"},
      {"memgbg", "rcmd=pbc-first\npbkey=navy\n", 0, ada},
      {"memgbp", "rcmd=pbc-first\npbkey=ada\n", 0, "gdesc=Ships\n"},
      {"lstper", by_name + "rcmd=pbc-first\n", 0, ada},
      {"lstgrp", "rcmd=pbc-first\n", 0, "gdesc=Ships\n"},
      {"lstmbg", "rcmd=pbc-first\npbkey=navy\n", 0, ada},
      {"lstmbp", "rcmd=pbc-first\npbkey=ada\n", 0, "gdesc=Ships\n"},
      {"lstprl", by_name + "pbbeg=k\npbend=m\n", 0, ada},
      {"memdel", member, 0, ""},
      {"grpdel", "pbkey=navy\n", 0, ""},
      {"perdel", "pbkey=Ada\n", 0, ""},
      {"cntper", "", 0, "pbmax=0\n"},
      {"gteq", "", 37, "errmsg=Invalid data\n"},
      {"delete", "", 0, ""},
      {"open", "", 38, ""},
  };
  for (const std::string type : {"pbt-usr", "pbt-sys"}) {
    for (const auto& step : kSteps) {
      SCOPED_TRACE(type + " " + step.verb + " " + step.lines);
      const std::string answer = Ask(Book(type, step.verb, step.lines));
      EXPECT_TRUE(Has(answer, "\nresult=" + std::to_string(step.result) + "\n"))
          << answer;
      EXPECT_TRUE(Has(answer, step.part)) << answer;
    }
  }
  EXPECT_TRUE(Has(Ask(Book("pbt-lcl", "open", "")), "\nresult=37\n"));
  EXPECT_TRUE(Has(Ask(Argument("obj-person", ada)),
                  "result=19\nerrmsg=Invalid phone-book cmd\n"));
}

TEST_P(ServedPhoneBook, EachOfManyAddsAtOnceIsThereAfterwards) {
  constexpr int kPersons = 120;
  EXPECT_TRUE(Has(Ask(Book("pbt-sys", "create", "")), "\nresult=0\n"));
  for (int i = 1; i <= kPersons; ++i) {
    const std::string alias = "palias=p" + std::to_string(i) + "\n";
    Drop(2, i, Book("pbt-sys", "peradd", Argument("obj-person", alias)));
  }
  for (int i = 1; i <= kPersons; ++i) {
    EXPECT_TRUE(
        Has(root_.Response(support::ExchangeName(2, i)), "\nresult=0\n"))
        << i;
  }
  EXPECT_TRUE(Has(Ask(Book("pbt-sys", "cntper", "")),
                  "\npbmax=" + std::to_string(kPersons) + "\n"));
  for (int i = 1; i <= kPersons; ++i) {
    const std::string key =
        "rcmd=pbc-alias\npbkey=p" + std::to_string(i) + "\n";
    EXPECT_TRUE(Has(Ask(Book("pbt-sys", "perget", key)), "\nresult=0\n")) << i;
  }
}

}  // namespace
