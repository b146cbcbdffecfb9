// Texts in and out: times, CSV, vCards, completions.
#include <cstdlib>

#include "ctl/app/output.h"
#include "ctl/app/parse.h"
#include "ctl/format/csv.h"
#include "ctl/format/format.h"
#include "ctl/format/person.h"
#include "ctl/format/vcard.h"
#include "kx/object.h"
#include "support/ctl.h"

namespace {

using client::Card;
using client::CsvRow;
using client::Status;
using support::Exit;

TEST(Format, TimesThatPeopleType) {
  setenv("TZ", "UTC-1", 1);
  tzset();
  const time_t now = 1'700'000'000;  // 2023-11-14T22:13:20Z, 23:13:20 here
  const struct {
    const char* text;
    const char* utc;  // "": refused
  } kCases[] = {
      {"now", "2023-11-14T22:13:20Z"},
      {"+90s", "2023-11-14T22:14:50Z"},
      {"+2h", "2023-11-15T00:13:20Z"},
      {"+1d", "2023-11-15T22:13:20Z"},
      {"23:14", "2023-11-14T22:14:00Z"},
      {"23:13", "2023-11-15T22:13:00Z"},
      {"8:30", "2023-11-15T07:30:00Z"},
      {"2024-02-29", "2024-02-28T23:00:00Z"},
      {"2024-02-29 12:00", "2024-02-29T11:00:00Z"},
      {"2024-02-29T12:00:30Z", "2024-02-29T12:00:30Z"},
      {"2023-02-29", ""},
      {"2024-13-01", ""},
      {"24:00", ""},
      {"+h", ""},
      {"+2w", ""},
      {"tomorrow", ""},
      {"", ""},
      {"1960-01-01", ""},
      {"2040-01-01", ""},
  };
  for (const auto& c : kCases) {
    time_t t = 0;
    const Status s = client::ParseTime(c.text, now, &t);
    EXPECT_EQ(s.ok() ? client::UtcTime(t) : "", c.utc) << c.text;
  }
  EXPECT_EQ(client::FullTime(now), "2023-11-14T23:13:20+01:00");
  setenv("TZ", "UTC", 1);
  tzset();
}

TEST(Csv, AwkwardCellsComeBack) {
  const std::vector<std::string> cells = {
      "plain",   "a,b",   "say \"hi\"", "two\r\nlines", "",
      " blank ", "'=cmd", "\xC3\xA9",   "\"",           "\n"};
  const std::string line = client::CsvLine(cells);
  std::vector<CsvRow> rows;
  ASSERT_TRUE(
      client::ParseCsv("\xEF\xBB\xBF" + line + "\r\n\n" + line, &rows).ok());
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].cells, cells);
  EXPECT_EQ(rows[1].cells, cells);
  EXPECT_EQ(rows[1].line, 6);
  const std::pair<const char*, const char*> kBad[] = {
      {"a\nb,\"c\nd", "line 2: a quote that is not closed"},
      {"a\nb\"c", "line 2: a quote inside a field without quotes"},
      {"\"a\"b", "line 1: something after a closing quote"},
  };
  for (const auto& [text, error] : kBad) {
    rows.clear();
    EXPECT_EQ(client::ParseCsv(text, &rows).text, error) << text;
  }
  // What looks like the mark of a file is not taken for it.
  rows.clear();
  const std::vector<std::string> marked = {
      "\xEF\xBB\xBF"
      "Ann",
      "Lee"};
  ASSERT_TRUE(client::ParseCsv(client::CsvLine(marked), &rows).ok());
  EXPECT_EQ(rows[0].cells, marked);
  rows.clear();
  EXPECT_TRUE(client::ParseCsv("a,\nb", &rows).ok());
  EXPECT_EQ(rows[0].cells, (std::vector<std::string>{"a", ""}));
}

std::string Values(const Card& card) {
  std::string text;
  for (const auto& [name, value] : card.values)
    text += name + "=" + value + ";";
  return text;
}

TEST(Vcards, ForeignCardsAreUnderstood) {
  const std::string text =
      "BEGIN:VCARD\nVERSION:3.0\nN:Lee;Ann;B.;Dr.;\nFN:Dr. Ann Lee\n"
      "ORG:Acme\\, Inc.;Sales\nitem1.TEL;TYPE=FAX,WORK:+1 555 0142\n"
      "TEL;TYPE=cell:0171\nTEL;TYPE=home:1\nTEL:2\n"
      "ADR;TYPE=\"a:b\":;Floor 2;Main St\n"
      " . 1;Town;ST;12345;Land\nPHOTO:xx\nNOTE:x\\;y\\nz\\\\\nEND:VCARD\n"
      "begin:vcard\r\nversion:4.0\r\nFN:Only Name\r\n"
      "TEL;VALUE=uri;TYPE=\"voice,work\":tel:+49-89-1;ext=7\r\n"
      "X-KRT-ALIAS:no field\r\nX-KRT-PALIAS:on\r\nend:vcard\r\n";
  std::vector<Card> cards;
  const Status s = client::ParseVcards(text, &cards);
  ASSERT_TRUE(s.ok()) << s.text;
  ASSERT_EQ(cards.size(), 2U);
  EXPECT_EQ(Values(cards[0]),
            "lname=Lee;fname=Ann;company=Acme, Inc.;fax=+1 555 0142;cell=0171;"
            "voice=1;addr2=Floor 2;addr1=Main St. 1;city=Town;state=ST;"
            "zip=12345;country=Land;notes=x;y\nz\\;");
  EXPECT_EQ(cards[1].line, 15);
  EXPECT_EQ(Values(cards[1]), "voice=+49-89-1 x7;palias=on;name=Only Name;");
  for (const char* bad :
       {"FN:x\n", "BEGIN:VCARD\nFN\nEND:VCARD\n", "BEGIN:VCARD\nBEGIN:VCARD\n",
        "BEGIN:VCARD\nFN:x\n"}) {
    EXPECT_EQ(client::ParseVcards(bad, &cards).code, krt_bad_data) << bad;
  }
}

TEST(Aliases, MadeOnesAreFreeAndFit) {
  std::set<std::string> used = {"ANNLEE", "ANNLEE2"};
  const std::pair<const char*, const char*> kCases[] = {
      {"Ann Lee", "AnnLee3"},
      {"\xC3\x84", "person"},
      {"\xC3\x84", "person2"},
      {"A very, very long name", "Averyverylon"},
      {"A very, very long name", "Averyverylon2"}};
  for (const auto& [text, alias] : kCases) {
    kx::Object person = kx::Build("obj-person");
    client::MakeAlias(person.get(), text, &used);
    EXPECT_STREQ(kx::Text(person.get(), "palias"), alias) << text;
  }
}

// Tables on a terminal: aligned, bold heading, cut to its width but for what
// names the thing. Elsewhere all of it, between tabs.
TEST(Tables, FitTheTerminal) {
  client::Output out;
  client::OutputOptions options;
  options.terminal = true;
  options.color = true;
  options.width = 30;
  out.Configure(options);
  const client::Cells heading = {"ALIAS", "NAME", "TEXT"};
  const std::vector<client::Cells> rows = {
      {"a-very-long-alias", "B\xC3\xA9rard", "something that is too long"},
      {"b", "", "x"}};
  testing::internal::CaptureStdout();
  out.Table(heading, rows);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\033[1mALIAS              NAME    TEXT\033[0m\n"
            "a-very-long-alias  B\xC3\xA9rard  somethi\xE2\x80\xA6\n"
            "b                          x\n");
  options.terminal = false;
  out.Configure(options);
  testing::internal::CaptureStdout();
  out.Table(heading, rows);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ALIAS\tNAME\tTEXT\n"
            "a-very-long-alias\tB\xC3\xA9rard\tsomething that is too long\n"
            "b\t\tx\n");
}

TEST(Color, IsForTerminalsThatWantIt) {
  if (support::RunShell("script --version").status != 0) {
    GTEST_SKIP() << "no script(1)";
  }
  const ctl::Server server;
  const std::string terminal =
      " script -qec \"$KRTCTL check --offline --root " +
      server.root().path().string() + "\" /dev/null </dev/null";
  const std::pair<std::string, bool> kCases[] = {
      {"krtctl check --offline", false},
      {"krtctl --color always check --offline", true},
      {"NO_COLOR=1 krtctl --color always check --offline", true},
      {"TERM=xterm" + terminal, true},
      {"TERM=dumb" + terminal, false},
      {"TERM=xterm NO_COLOR=1" + terminal, false}};
  for (const auto& [line, colored] : kCases) {
    const Exit end = server.Shell("export TERM=xterm; " + line);
    EXPECT_EQ(end.out.find("\033[") != end.out.npos, colored)
        << line << end.out;
  }
}

// Each script, in its shell where that is installed: what it offers when the
// last word is to be completed.
TEST(Completions, LoadAndOfferWhatFits) {
  const ctl::Server server;
  const struct {
    const char* shell;
    const char* ask;  // after the script was read; $* are the words
  } kShells[] = {
      {"bash",
       "COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _krtctl\n"
       "echo \"${COMPREPLY[*]}\"\n"},
      // The real ones work in the line editor only; theirs is the selection.
      {"zsh",
       "compadd() { shift; reply=(\"$@\"); }; _files() { reply=(files); }\n"
       "words=(\"$@\"); CURRENT=$#; current=\"${words[CURRENT]}\"; _krtctl\n"
       "echo ${(M)reply:#$current*}\n"},
      {"fish", "complete -C \"$argv\" | cut -f1 | tr '\\n' ' '; echo\n"},
  };
  const std::pair<const char*, const char*> kCases[] = {
      {"krtctl pi", "ping"},
      {"krtctl fax r", "rm route"},
      {"krtctl -u bob pb group j", "join"},
      {"krtctl list pr", "priorities prtdests"},
      {"krtctl submit --notify ok", "ok okfail"},
      {"krtctl --color n", "never"},
      {"krtctl check --o", "--offline"},
  };
  int tried = 0;
  for (const auto& shell : kShells) {
    const std::string name = shell.shell;
    const Exit script = server.Run({"completion", name});
    ASSERT_EQ(script.status, 0) << name;
    if (support::RunShell("command -v " + name).status != 0) {
      continue;
    }
    ++tried;
    const std::string file = server.Path("script." + name);
    const std::string start = name == "zsh" ? "compdef() { :; }\n" : "";
    WriteFile(file, start + script.out + shell.ask);
    for (const auto& [words, due] : kCases) {
      const Exit end = support::RunShell(name + (name == "zsh" ? " -f " : " ") +
                                         file + " " + words);
      std::string offers = end.out.substr(0, end.out.find('\n'));
      while (!offers.empty() && offers.back() == ' ') offers.pop_back();
      EXPECT_EQ(offers, due) << name << ": " << words << end.err;
    }
  }
  EXPECT_GT(tried, 0);
}

}  // namespace
