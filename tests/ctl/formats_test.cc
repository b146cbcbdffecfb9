// Texts in and out: times, CSV, vCards, completions.
#include <cstdlib>
#include <tuple>

#include "ctl/app/output.h"
#include "ctl/app/parse.h"
#include "ctl/format/csv.h"
#include "ctl/format/format.h"
#include "ctl/format/person.h"
#include "ctl/format/vcard.h"
#include "ctl/verbs.h"
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

TEST(Vcards, PersonComesBackInFull) {
  kx::Object person = kx::Build("obj-person");
  for (const char* field : client::PersonFields()) {
    const int room = Kfx_Field_Length(person.get(), field) - 1;
    std::string text = std::string(field) + ",;\\ \xC3\xA9";
    text.resize(static_cast<size_t>(room), 'x');
    ASSERT_EQ(Kfx_Set(person.get(), field, text.c_str()), 0);
  }
  // What a number in one piece could not tell: no area, blanks in the number.
  Kfx_Set(person.get(), "farea", nullptr);
  Kfx_Set(person.get(), "flocal", "555 01-42");
  for (const char* version : {"3.0", "4.0"}) {
    const std::string card = client::VcardOf(person.get(), version);
    for (size_t at = 0, end; at < card.size(); at = end + 2) {
      end = card.find("\r\n", at);
      EXPECT_LE(end - at, 75U) << card.substr(at, end - at);
    }
    std::vector<Card> cards;
    ASSERT_TRUE(client::ParseVcards(card, &cards).ok());
    for (const char* field : client::PersonFields()) {
      std::string found;
      for (const auto& [name, value] : cards[0].values) {
        if (name == field) found = value;
      }
      EXPECT_EQ(found, kx::TextOrEmpty(person.get(), field)) << field;
    }
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
  const std::tuple<const char*, const char*, bool> kCases[] = {
      {"TERM=xterm", "", false},  // not a terminal
      {"TERM=xterm", "--color always", true},
      {"NO_COLOR=1", "--color always", true},
      {"TERM=dumb", "--color never", false}};
  for (const auto& [setting, option, colored] : kCases) {
    const Exit end = server.Shell(std::string("export ") + setting +
                                  "; krtctl " + option + " check --offline");
    EXPECT_EQ(end.out.find("\033[") != std::string::npos, colored)
        << setting << " " << option;
  }
  for (const char* setting : {"TERM=xterm", "TERM=dumb", "NO_COLOR=1"}) {
    const Exit end = support::RunShell(
        std::string("TERM=xterm; export TERM; export ") + setting +
        "; script -qec '" KRTCTL_PATH " check --offline --root " +
        server.root().path().string() + "' /dev/null </dev/null");
    EXPECT_EQ(end.out.find("\033[") != std::string::npos,
              std::string(setting) == "TERM=xterm")
        << setting << end.out;
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

// Help, parser and completions come from one table: every verb is in it once.
TEST(Help, EveryVerbHasItsOwn) {
  const ctl::Server server;
  const std::string all = server.Run({"help"}).out;
  for (const client::VerbRow& row : client::Verbs().verbs) {
    EXPECT_NE(all.find(std::string("\n  ") + row.name), all.npos) << row.name;
    const Exit end = server.Shell(std::string("krtctl help ") + row.name);
    EXPECT_EQ(end.status, 0) << row.name;
    EXPECT_EQ(end.out.find(std::string("usage: krtctl ") + row.name), 0U)
        << row.name;
    for (const client::OptionRow& option : row.options) {
      EXPECT_NE(end.out.find(std::string("--") + option.name), end.out.npos)
          << row.name << " " << option.name;
    }
  }
}

}  // namespace
