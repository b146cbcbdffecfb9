// The phone book: its verbs, and import and export with awkward data.
#include "client/ctl.h"

namespace {

using ctl::Expect;
using ctl::Server;
using support::Exit;
using support::ReadFile;
using support::WriteFile;

class Book : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.Start();
    ASSERT_EQ(server_.Run({"pb", "init"}).status, 0);
  }
  Exit Import(const std::string& name, const std::string& text,
              const std::string& options = "") {
    WriteFile(server_.Path(name), text);
    return server_.Shell("krtctl pb import '" + server_.Path(name) + "' " +
                         options);
  }
  Server server_;
};

TEST(NoBook, IsSaidSo) {
  Server server;
  server.Start();
  Expect(
      server,
      {{{"pb", "list"},
        1,
        "",
        "krtctl: pb list: Phone-book does not exist (38)\n"},
       {{"pb", "add", "lname=Lee"},
        1,
        "",
        "krtctl: pb add Lee: Phone-book does not exist (38)\n"},
       {{"pb", "drop"}, 64, "", "krtctl: nothing deleted; --yes deletes\n"}});
}

TEST_F(Book, PersonsComeAndGo) {
  Expect(
      server_,
      {{{"pb", "add", "fname=Ann", "lname=Lee", "fax=49 89 12 x5"},
        0,
        "AnnLee added\n",
        ""},
       {{"pb", "add", "fname=Ann", "lname=Lee", "-q"}, 0, "AnnLee2\n", ""},
       {{"pb", "add", "palias=annlee"},
        1,
        "",
        "krtctl: pb add annlee: Duplicate alias (33)\n"},
       {{"pb", "add", "lnam=x"},
        64,
        "",
        "krtctl: unknown field \"lnam\"; did you mean \"lname\"?\n"},
       {{"pb", "add", "zip=1234567890123"},
        65,
        "",
        "krtctl: pb add: zip: at most 11 bytes, not 13\n"},
       {{"pb", "edit", "ANNLEE", "company=Acme", "fax="},
        0,
        "AnnLee changed\n",
        ""},
       {{"pb", "edit", "annlee", "palias=other"},
        65,
        "",
        "krtctl: pb edit annlee: palias: an alias cannot be changed\n"},
       {{"pb", "show", "annlee", "-j"},
        0,
        "[{\"type\":\"obj-person\",\"palias\":\"AnnLee\",\"lname\":\"Lee\","
        "\"fname\":\"Ann\",\"company\":\"Acme\",\"fcntry\":\" \",\"farea\":"
        "\" \",\"flocal\":\" \",\"fext\":\" \"}]\n",
        "*"},
       {{"pb", "show", "zed"},
        1,
        "",
        "krtctl: pb show zed: Invalid person (30)\n"},
       {{"pb", "find", "ACM", "-q"}, 0, "*", ""},
       {{"pb", "find", "nothing", "-j"}, 1, "[]\n", ""},
       {{"pb", "count"}, 0, "2\n", ""},
       {{"pb", "count", "--from", "annlee2"}, 0, "1\n", ""},
       {{"pb", "group", "add", "Staff", "All of us"}, 0, "Staff added\n", ""},
       {{"pb", "count", "--group", "staff"}, 0, "0\n", ""},
       {{"pb", "group", "join", "STAFF", "annlee", "zed"},
        1,
        "AnnLee is a member of Staff\n",
        "krtctl: pb group join zed: Invalid person (30)\n"},
       {{"pb", "group", "list", "AnnLee", "-q"}, 0, "Staff\tAll of us\n", ""},
       {{"pb", "count", "--group", "staff"}, 0, "1\n", ""},
       // Whatever the spelling given, the memberships go too.
       {{"pb", "rm", "annlee"}, 0, "AnnLee deleted\n", ""},
       {{"pb", "group", "show", "staff"}, 0, "", ""},
       {{"pb", "group", "join", "staff", "annlee2", "-q"}, 0, "", ""},
       {{"pb", "group", "leave", "staff", "annlee2"},
        0,
        "AnnLee2 is no member any more of Staff\n",
        ""},
       {{"pb", "group", "rm", "staff", "staff"},
        1,
        "Staff deleted\n",
        "krtctl: pb group rm staff: Invalid group (31)\n"},
       {{"pb", "drop", "-yq"}, 0, "", ""},
       {{"pb", "count"},
        1,
        "",
        "krtctl: pb count: Phone-book does not exist (38)\n"}});
}

TEST_F(Book, BooksAndOrdersAreChosen) {
  for (const char* line :
       {"pb init --book system", "pb add palias=x lname=Zoe company=B",
        "pb add palias=y lname=Amy company=C",
        "pb add palias=z lname=Max company=A",
        "pb add --book system palias=s lname=Sys"}) {
    ASSERT_EQ(server_.Shell(std::string("krtctl -q ") + line).status, 0);
  }
  const struct {
    const char* options;
    const char* aliases;
  } kCases[] = {{"", "x y z "},
                {"--sort lname", "y z x "},
                {"--sort company", "z x y "},
                {"--sort unsorted", "x y z "},
                {"--sort lname --from b", "z x "},
                {"--sort lname --to n", "y z "},
                {"--max 2", "x y "},
                {"--book system", "s "},
                {"--group none", ""}};
  for (const auto& c : kCases) {
    EXPECT_EQ(server_
                  .Shell("krtctl -q pb list " + std::string(c.options) +
                         " | cut -f1 | tr '\\n' ' '")
                  .out,
              c.aliases)
        << c.options;
  }
}

TEST_F(Book, ListsComeInPages) {
  std::string text = "palias,lname\n";
  for (int i = 0; i < 450; ++i) {
    text += "p" + std::to_string(1000 + i) + ",L\n";
  }
  const Exit import = Import("many.csv", text);
  EXPECT_EQ(import.out,
            "450 rows: 450 added, 0 updated, 0 skipped, 0 rejected\n")
      << import.err;
  std::string expected;
  for (int i = 0; i < 450; ++i) {
    expected += "p" + std::to_string(1000 + i) + "\n";
  }
  EXPECT_EQ(server_.Shell("krtctl pb list -q | cut -f1").out, expected);
  EXPECT_EQ(
      server_.Shell("krtctl pb list -q --from p1100 --to p1350 | wc -l").out,
      "250\n");
  EXPECT_EQ(server_.Shell("krtctl pb list -q --max 201 | wc -l").out, "201\n");
  EXPECT_EQ(server_.root().SpoolNames(), std::vector<std::string>{});
}

constexpr char kAwkward[] =
    "\xEF\xBB\xBFPAlias,NAME,Company,Fax,Notes,Mail\r\n"
    "a1,Ann B. Lee,\"Acme, \"\"Inc.\"\"\",+49 89 12-34 x5,\xC3\xA9t\xC3\xA9,"
    "a@b\r\n"
    "a2,Bob,\"two\nlines\",1,,\r\n"
    "a3,Cy,,1234567-1-1,,\r\n"
    "A1,Again,,,,\r\n"
    "a4,Dee,,,12345678901234567890123456789012345678901234567890123456789012345"
    ",\r\n"
    ",No Alias,,7,,,extra\r\n"
    ",No Alias,,7,,\r\n";

TEST_F(Book, ImportNamesWhatItRejects) {
  const std::string rejects = server_.Path("rejects.csv");
  Exit end = Import("in.csv", kAwkward);
  EXPECT_EQ(end.status, 65);
  EXPECT_EQ(end.err,
            "krtctl: pb import: unknown column \"Mail\", perhaps email; --map "
            "\"Mail=FIELD\" "
            "takes it, --ignore-unknown skips it\n");
  const std::string kReasons =
      "krtctl: pb import row 2: company: one line without control characters "
      "only (line 3)\n"
      "krtctl: pb import row 3: fax: \"1234567-1-1\" does not fit (line 5)\n"
      "krtctl: pb import row 4: the alias A1 is in the file already (line 6)\n"
      "krtctl: pb import row 5: notes: at most 63 bytes, not 65 (line 7)\n"
      "krtctl: pb import row 6: more cells than the heading has (line 8)\n";
  // Without the server: what can be seen in the file.
  end = Import("in.csv", kAwkward, "-n --map mail=email");
  EXPECT_EQ(end.out, "7 rows: 2 fit, 0 updated, 0 skipped, 5 rejected\n");
  EXPECT_EQ(end.err, kReasons);
  end = Import("in.csv", kAwkward,
               "--map Mail=email --alias-from NAME --rejects " + rejects);
  EXPECT_EQ(end.status, 1);
  EXPECT_EQ(end.out, "7 rows: 2 added, 0 updated, 0 skipped, 5 rejected\n");
  EXPECT_EQ(end.err, kReasons);
  EXPECT_NE(ReadFile(rejects).find(
                "a2,Bob,\"two\nlines\",1,,,2,company: one line without control "
                "characters only\r\n"),
            std::string::npos)
      << ReadFile(rejects);
  EXPECT_EQ(server_.Run({"pb", "show", "a1"}).out,
            "palias       a1\nlname        Lee\nfname        Ann B.\n"
            "company      Acme, \"Inc.\"\nnotes        \xC3\xA9t\xC3\xA9\n"
            "fcntry       +49\nfarea        89\nflocal       12-34\n"
            "fext         5\nemail        a@b\n");
  EXPECT_EQ(server_.Run({"pb", "show", "NOALIAS"}).status, 0);
}

TEST_F(Book, DuplicatesAreDealtWithAsAsked) {
  const std::string text = "palias,lname\na,One\nb,Two\nA,Three\n";
  ASSERT_EQ(Import("one.csv", "palias,lname,city\na,Old,Town\n").status, 0);
  Exit end = Import("in.csv", text);
  EXPECT_EQ(end.out, "3 rows: 1 added, 0 updated, 0 skipped, 2 rejected\n");
  EXPECT_EQ(end.err,
            "krtctl: pb import row 1: Duplicate alias (33) (line 2)\n"
            "krtctl: pb import row 3: the alias A is in the file already (line "
            "4)\n");
  end = Import("in.csv", text, "--on-duplicate skip");
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_EQ(end.out, "3 rows: 0 added, 0 updated, 3 skipped, 0 rejected\n");
  end = Import("in.csv", text, "--on-duplicate update -j");
  EXPECT_EQ(end.out,
            "{\"type\":\"import\",\"rows\":3,\"added\":0,\"updated\":3,"
            "\"skipped\":0,\"rejected\":0}\n");
  EXPECT_EQ(server_.Run({"pb", "show", "a"}).out,
            "palias       a\nlname        Three\ncity         Town\n");
}

// Nobody answers, or the daemon is gone after the first answer: what was under
// way is taken back, the rest was never sent.
TEST_F(Book, ImportGivesUpInOrder) {
  server_.Stop();
  std::string text = "palias\n";
  for (int i = 0; i < 50; ++i) text += "p" + std::to_string(i) + "\n";
  WriteFile(server_.Path("in.csv"), text);
  const struct {
    const char* then;
    int status;
    const char* out;
  } kCases[] = {
      {"", 75, "32\n50 rows: 0 added, 0 updated, 0 skipped, 50 rejected\n"},
      {"f=$(ls | grep 001.cmd); sed '/^respond/a result=0' $f >x; rm $f\n"
       ": >../krtnet.lck; mv x ${f%.cmd}.rsp;",
       69, "32\n50 rows: 1 added, 0 updated, 0 skipped, 49 rejected\n"}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.then);
    server_.Pretend();
    const Exit end = server_.Shell(
        "cd " + server_.root().spool().string() +
        "; krtctl --timeout 2 pb import " + server_.Path("in.csv") +
        " & pid=$!\n"
        "while [ $(ls | grep -c cmd) -lt 32 ]; do :; done\n"
        "ls | wc -l;" +
        c.then + " wait $pid");
    EXPECT_EQ(end.status, c.status) << end.err;
    EXPECT_EQ(end.out, c.out);
    EXPECT_NE(end.err.find("krtctl: pb import row 32: not executed (line 33)\n"
                           "krtctl: pb import row 33: not sent (line 34)\n"),
              std::string::npos)
        << end.err;
    EXPECT_EQ(server_.root().SpoolNames(), std::vector<std::string>{});
  }
}

// Every field, long and with everything that a format might stumble over.
TEST_F(Book, ExportThenImportReproducesTheBook) {
  std::string text =
      "palias,lname,fname,company,notes,fcntry,farea,flocal,fext,addr1,addr2,"
      "city,state,country,zip,email,info\n"
      "x1,\"O'Neil; Jr.\",\"J\xC3\xBCrgen\",\"A \"\"B\"\", \\C;\",\"n, m\","
      "+49,,555 01-42,,\"S;1\",\"\\n\",T,S,L,Z,e@x,\"" +
      std::string(63, 'i') + "\"\nX2,,,,,,,,,,,,,,,,\n";
  for (int i = 0; i < 60; ++i) {
    text += "p" + std::to_string(i) + ",L" + std::to_string(i) + ",,,,,,1\n";
  }
  ASSERT_EQ(Import("in.csv", text).status, 0);
  for (const char* line : {"pb group add g1 'One, \"two\"'",
                           "pb group add empty", "pb group join g1 x1 X2 p3"}) {
    ASSERT_EQ(server_.Shell(std::string("krtctl -q ") + line).status, 0);
  }
  const std::string dir = server_.Path("");
  ASSERT_EQ(server_
                .Shell("cd " + dir +
                       " && krtctl -q pb export book.csv && krtctl -q pb "
                       "export book.vcf && krtctl -q pb export "
                       "--vcard-version 3.0 book3.vcf && krtctl -q pb "
                       "export --groups groups.csv")
                .err,
            "");
  const std::string book = ReadFile(server_.Path("book.csv"));
  for (const char* file : {"book.csv", "book.vcf", "book3.vcf"}) {
    SCOPED_TRACE(file);
    const Exit end = server_.Shell(
        "cd " + dir +
        " && krtctl -yq pb drop && krtctl -q pb init && krtctl "
        "-q pb import " +
        file +
        " && krtctl pb import --groups groups.csv && "
        "krtctl -q pb export again.csv && krtctl -q pb export --groups "
        "groups2.csv");
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(ReadFile(server_.Path("again.csv")), book);
    EXPECT_EQ(ReadFile(server_.Path("groups2.csv")),
              ReadFile(server_.Path("groups.csv")));
  }
  EXPECT_EQ(ReadFile(server_.Path("groups.csv")),
            "galias,gdesc,palias\r\nempty,,\r\ng1,\"One, \"\"two\"\"\",\r\n"
            "g1,\"One, \"\"two\"\"\",p3\r\ng1,\"One, \"\"two\"\"\",x1\r\n"
            "g1,\"One, \"\"two\"\"\",X2\r\n");
  EXPECT_EQ(server_.Shell("krtctl -j pb export | head -c 30").out,
            "[{\"type\":\"obj-person\",\"palias\"");
  EXPECT_EQ(server_.Shell("krtctl -j pb export --groups").out,
            "[{\"type\":\"obj-group\",\"galias\":\"empty\",\"members\":[]},"
            "{\"type\":\"obj-group\",\"galias\":\"g1\",\"gdesc\":\"One, "
            "\\\"two\\\"\",\"members\":[\"p3\",\"x1\",\"X2\"]}]\n");
}

}  // namespace
