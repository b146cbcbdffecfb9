// The phone book: its verbs, and import and export with awkward data.
#include "support/ctl.h"

namespace {

using ctl::Server;
using ctl::Session;

class Book : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.Start();
    ASSERT_EQ(server_.Run({"pb", "init"}).status, 0);
  }
  Server server_;
};

TEST_F(Book, PersonsComeAndGo) {
  Session(server_, R"(
$ krtctl pb add fname=Ann lname=Lee 'fax=49 89 12 x5'
AnnLee added
$ krtctl pb add fname=Ann lname=Lee -q
AnnLee2
1$ krtctl pb add palias=annlee
! pb add annlee: Duplicate alias (33)
64$ krtctl pb add lnam=x
! unknown field "lnam"; did you mean "lname"?
65$ krtctl pb add zip=1234567890123
! pb add: zip: at most 11 bytes, not 13
$ krtctl pb edit ANNLEE company=Acme fax=
AnnLee changed
65$ krtctl pb edit annlee palias=other
! pb edit annlee: palias: an alias cannot be changed
$ krtctl pb show annlee -j
[{"type":"obj-person","palias":"AnnLee","lname":"Lee","fname":"Ann","company":"Acme","fcntry":" ","farea":" ","flocal":" ","fext":" "}]
!*
1$ krtctl pb show zed
! pb show zed: Invalid person (30)
$ krtctl pb find ACM -q
*
1$ krtctl pb find nothing -j
[]
$ krtctl pb count
2
$ krtctl pb count --from annlee2
1
$ krtctl pb group add Staff 'All of us'
Staff added
$ krtctl pb count --group staff
0
1$ krtctl pb group join STAFF annlee zed
AnnLee is a member of Staff
! pb group join zed: Invalid person (30)
$ krtctl pb group list AnnLee -q
Staff	All of us
$ krtctl pb count --group staff
1
$ krtctl pb rm annlee
AnnLee deleted
$ krtctl pb group show staff
$ krtctl pb group join staff annlee2 -q
$ krtctl pb group leave staff annlee2
AnnLee2 is no member any more of Staff
1$ krtctl pb group rm staff staff
Staff deleted
! pb group rm staff: Invalid group (31)
64$ krtctl pb drop
! nothing deleted; --yes deletes
$ krtctl pb drop -yq
1$ krtctl pb count
! pb count: Phone-book does not exist (38)
1$ krtctl pb add lname=Lee
! pb add Lee: Phone-book does not exist (38)
)");
}

TEST_F(Book, BooksAndOrdersAreChosen) {
  Session(server_, R"(
$ krtctl -q pb init --book system
$ for p in 'x Zoe B' 'y Amy C' 'z Max A'; do set -- $p; krtctl -q pb add palias=$1 lname=$2 company=$3; done
x
y
z
$ krtctl -q pb add --book system palias=s lname=Sys
s
)");
  const std::pair<std::string, const char*> kCases[] = {
      {"", "x y z"},
      {"--sort lname", "y z x"},
      {"--sort company", "z x y"},
      {"--sort unsorted", "x y z"},
      {"--sort lname --from b", "z x"},
      {"--sort lname --to n", "y z"},
      {"--max 2", "x y"},
      {"--book system", "s"},
      {"--group none", ""}};
  for (const auto& [options, aliases] : kCases) {
    Session(server_, "$ echo $(krtctl -q pb list " + options + " | cut -f1)\n" +
                         aliases + "\n");
  }
}

TEST_F(Book, ListsComeInPages) {
  Session(server_, R"(
$ (echo palias,lname; seq -f 'p%g,L' 1000 1449) > ROOT/many.csv
$ krtctl pb import ROOT/many.csv
450 rows: 450 added, 0 updated, 0 skipped, 0 rejected
$ seq -f p%g 1000 1449 > ROOT/all && krtctl pb list -q | cut -f1 | cmp - ROOT/all
$ krtctl pb list -q --from p1100 --to p1350 | wc -l
250
$ krtctl pb list -q --max 201 | wc -l
201
)");
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
  WriteFile(server_.Path("in.csv"), kAwkward);
  const std::string kReasons =
      R"(! pb import row 2: company: one line without control characters only (line 3)
! pb import row 3: fax: "1234567-1-1" does not fit (line 5)
! pb import row 4: the alias A1 is in the file already (line 6)
! pb import row 5: notes: at most 63 bytes, not 65 (line 7)
! pb import row 6: more cells than the heading has (line 8)
)";
  // First without the server: what can be seen in the file.
  Session(
      server_,
      R"(
65$ krtctl pb import ROOT/in.csv
! pb import: unknown column "Mail", perhaps email; --map "Mail=FIELD" takes it, --ignore-unknown skips it
1$ krtctl pb import ROOT/in.csv -n --map mail=email
7 rows: 2 fit, 0 updated, 0 skipped, 5 rejected
)" + kReasons +
          R"(1$ krtctl pb import ROOT/in.csv --map Mail=email --alias-from NAME --rejects ROOT/rejects.csv
7 rows: 2 added, 0 updated, 0 skipped, 5 rejected
)" + kReasons +
          R"($ krtctl pb show a1
palias       a1
lname        Lee
fname        Ann B.
company      Acme, "Inc."
notes        été
fcntry       +49
farea        89
flocal       12-34
fext         5
email        a@b
$ krtctl pb show NOALIAS | head -n 1
palias       NoAlias
)");
  EXPECT_NE(ReadFile(server_.Path("rejects.csv"))
                .find("a2,Bob,\"two\nlines\",1,,,2,company: one line without "
                      "control characters only\r\n"),
            std::string::npos);
}

TEST_F(Book, DuplicatesAreDealtWithAsAsked) {
  Session(server_, R"(
$ printf 'palias,lname,city\na,Old,Town\n' | krtctl -q pb import -
$ printf 'palias,lname\na,One\nb,Two\nA,Three\n' > ROOT/in.csv
1$ krtctl pb import ROOT/in.csv
3 rows: 1 added, 0 updated, 0 skipped, 2 rejected
! pb import row 1: Duplicate alias (33) (line 2)
! pb import row 3: the alias A is in the file already (line 4)
$ krtctl pb import ROOT/in.csv --on-duplicate skip
3 rows: 0 added, 0 updated, 3 skipped, 0 rejected
$ krtctl pb import ROOT/in.csv --on-duplicate update -j
{"type":"import","rows":3,"added":0,"updated":3,"skipped":0,"rejected":0}
$ krtctl pb show a
palias       a
lname        Three
city         Town
)");
}

// Nobody answers, or the daemon is gone after the first answer: what was under
// way is taken back, the rest was never sent.
TEST_F(Book, ImportGivesUpInOrder) {
  server_.Stop();
  server_.Pretend();
  Session(server_, R"(
$ (echo palias; seq -f p%g 0 49) > ROOT/in.csv
75$ krtctl --timeout 2 pb import ROOT/in.csv 2> ROOT/err & pid=$!; while [ $(ls SPOOL | grep -c cmd) -lt 32 ]; do :; done; ls SPOOL | wc -l; wait $pid
32
50 rows: 0 added, 0 updated, 0 skipped, 50 rejected
$ grep -A1 'row 32' ROOT/err
krtctl: pb import row 32: not executed (line 33)
krtctl: pb import row 33: not sent (line 34)
69$ cd SPOOL; krtctl --timeout 2 pb import ../../in.csv 2> ROOT/err & pid=$!; while [ $(ls | grep -c cmd) -lt 32 ]; do :; done; f=$(ls | grep 001.cmd); sed '/^respond/a result=0' $f > x; rm $f; : > ../krtnet.lck; mv x ${f%.cmd}.rsp; wait $pid
50 rows: 1 added, 0 updated, 0 skipped, 49 rejected
$ grep -A1 'row 32' ROOT/err
krtctl: pb import row 32: not executed (line 33)
krtctl: pb import row 33: not sent (line 34)
)");
  EXPECT_EQ(server_.root().SpoolNames(), std::vector<std::string>{});
}

// Every field, long and with everything that a format might stumble over.
TEST_F(Book, ExportThenImportReproducesTheBook) {
  std::string text =
      "palias,lname,fname,company,notes,fcntry,farea,flocal,fext,addr1,addr2,"
      "city,state,country,zip,email,info\n"
      "x1,\"O'Neil; Jr.\",\"J\xC3\xBCrgen\",\"A \"\"B\"\", \\C;\",\"n, m\","
      "+49,,555 01-42,,\"S;1\",\"\\n\",T,S,L,Z,e@x,\"" +
      std::string(63, ';') + "\"\nX2,,,,,,,,,,,,,,,,\n";
  for (int i = 0; i < 60; ++i) {
    text += "p" + std::to_string(i) + ",L" + std::to_string(i) + ",,,,,,1\n";
  }
  WriteFile(server_.Path("in.csv"), text);
  Session(server_, R"(
$ krtctl pb import ROOT/in.csv
62 rows: 62 added, 0 updated, 0 skipped, 0 rejected
$ krtctl pb group add g1 'One, "two"' && krtctl pb group add empty && krtctl -q pb group join g1 x1 X2 p3
g1 added
empty added
$ for f in book.csv book.vcf '--vcard-version 3.0 book3.vcf' '--groups groups.csv'; do cd ROOT; krtctl -q pb export $f; done
1$ LC_ALL=C grep -hE '.{77}' ROOT/book.vcf ROOT/book3.vcf
$ krtctl -j pb export | head -c 30; echo
[{"type":"obj-person","palias"
$ krtctl -j pb export --groups
[{"type":"obj-group","galias":"empty","members":[]},{"type":"obj-group","galias":"g1","gdesc":"One, \"two\"","members":["p3","x1","X2"]}]
)");
  for (const std::string file : {"book.csv", "book.vcf", "book3.vcf"}) {
    Session(server_, R"(
$ cd ROOT && krtctl -yq pb drop && krtctl -q pb init && krtctl -q pb import )" +
                         file + R"(
$ krtctl -q pb import --groups ROOT/groups.csv
$ krtctl -q pb export ROOT/again.csv && cmp ROOT/again.csv ROOT/book.csv
$ krtctl -q pb export --groups ROOT/again.csv && cmp ROOT/again.csv ROOT/groups.csv
)");
  }
  EXPECT_EQ(ReadFile(server_.Path("groups.csv")),
            "galias,gdesc,palias\r\nempty,,\r\ng1,\"One, \"\"two\"\"\",\r\n"
            "g1,\"One, \"\"two\"\"\",p3\r\ng1,\"One, \"\"two\"\"\",x1\r\n"
            "g1,\"One, \"\"two\"\"\",X2\r\n");
}

}  // namespace
