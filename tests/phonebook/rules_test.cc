// The book's rules: spelling, updates, cascades, cursors, steps and lists.
#include <ctime>

#include "book.h"

namespace {

struct Rule {
  const char* name;
  const char* conversation;
};

constexpr Rule kRules[] = {
    // An alias to be deleted is cut to what an alias can be.
    {"AliasesAreFoundInAnyCaseAndKeepTheirSpelling", R"(
peradd | palias=Bob lname=Smith
perget rcmd=pbc-alias pbkey=bOB => palias=Bob
perget rcmd=pbc-equal => palias=Bob
perget pbsort=pbs-lname pbkey=SMITH => palias=Bob
perget pbkey=Smit => 30
peradd | palias=123456789012345
perdel pbkey=123456789012345678
perdel pbkey=123456789012345 => 30
)"},
    {"UpdateKeepsWhatItIsNotGiven", R"(
peradd | palias=Bob lname=Smith zip=1 info=old
perupd | palias=BOB fname=Bobby zip= info=new
perget rcmd=pbc-first => palias=Bob lname=Smith fname=Bobby zip=1 info=new
grpadd | galias=Staff
grpupd | galias=staff gdesc=all
grpget rcmd=pbc-first => galias=Staff gdesc=all
)"},
    // Sorted by group; a deletion stops at the other spelling. What is left
    // behind belongs to nobody: it is counted, and not listed.
    {"DeleteTakesMembershipsOfTheSameSpellingOnly", R"(
persons Bob Zoe
group G Bob
group h Bob Zoe
group i bob
group j Bob
perdel pbkey=Bob
members h:Zoe i:bob j:Bob
grpdel pbkey=H
members h:Zoe i:bob j:Bob
grpadd | galias=h
grpdel pbkey=h
members i:bob j:Bob
cntper pbkey=j => .pbmax=1
lstmbg rcmd=pbc-first => []
)"},
    {"CountsOfMembershipsCompareTheSpelling", R"(
persons a b c
group Staff a B
memadd | galias=STAFF palias=c
cntper => .pbmax=3
cntper pbkey=Staff => .pbmax=2
cntper pbkey=staff => .pbmax=0
cntper pbkey=A => .pbmax=0
cntper pbkey=zebra pbmax= => 37 .pbmax=
cntgrp pbkey= => .pbmax=1
cntgrp pbkey=B => .pbmax=1
cntgrp pbkey=b => .pbmax=0
cntgrp pbkey=z pbmax= => 37 .pbmax=
)"},
    // The last person added is the current one, but for a new command. In the
    // end the order changes under way, and the current person goes.
    {"StepsGoOnFromCommandToCommand", R"(
persons b a c
new
perget rcmd=pbc-prev => palias=c
perget rcmd=pbc-next => 36
perget rcmd=pbc-prev => palias=b
perget rcmd=pbc-prev => palias=a
perget rcmd=pbc-prev => 36
perget rcmd=pbc-next => palias=b
perget rcmd=pbc-first => palias=a
perget rcmd=pbc-last => palias=c
perget rcmd=pbc-gteq pbkey=AA => palias=b
perget rcmd=pbc-alias pbkey=x => 30
perget rcmd=pbc-next pbkey= => palias=c
perget rcmd=pbc-alias pbkey=A => palias=a
perget rcmd=pbc-next pbkey= => palias=b
perget rcmd=pbc-next pbsort=pbs-unsorted => palias=a
other perdel pbkey=a
perget => 30
)"},
    {"PositionPassesPersons", R"(
persons a b c d e
group g b D
perpos rcmd=pbc-first pbmax=1 => .curper=1
perpos rcmd=pbc-next pbmax=2 => .curper=3
perpos rcmd=pbc-prev pbmax=1 => .curper=2
perpos rcmd=pbc-last pbmax=2 => .curper=4
perpos rcmd=pbc-next pbmax=0 => .curper=4
perpos rcmd=pbc-first pbmax=2 galias=G => .curper=4
perpos rcmd=pbc-last pbmax=2 galias=g => .curper=2
perpos rcmd=pbc-first pbmax=3 => 36 .curper=2
)"},
    // In another group "next" is its first, "prev" its last.
    {"MembershipStepsStayInTheirGroup", R"(
persons a b c
group ga c
group gb a b c
group gc a
memgbg pbkey=GB rcmd=pbc-first => palias=a
memgbg pbkey=gb rcmd=pbc-prev => 36
memgbg pbkey=gb rcmd=pbc-next => palias=b
memgbg pbkey=gb rcmd=pbc-next => palias=c
memgbg pbkey=gb rcmd=pbc-next => 36
memgbg pbkey=gb rcmd=pbc-next => 36
memgbg pbkey=gb rcmd=pbc-prev => palias=b
memgbg pbkey=gc rcmd=pbc-next => palias=a
memgbg pbkey=ga rcmd=pbc-prev => palias=c
memgbg pbkey=gb rcmd=pbc-last => palias=c
memgbg pbkey=gc rcmd=pbc-last => palias=a
memgbg pbkey=gb rcmd=pbc-equal => palias=a
memgbg pbkey=gx rcmd=pbc-last => 36
memgbp pbkey=A rcmd=pbc-first => galias=gb
memgbp pbkey=a rcmd=pbc-next => galias=gc
memgbp pbkey=a rcmd=pbc-next => 36
memgbp pbkey=c rcmd=pbc-last => galias=gb
memgbp pbkey=c rcmd=pbc-prev => galias=ga
)"},
    {"ListsArePagedWithTheCursor", R"(
persons a b c d e f
group g a c e f
group h a
group i
new
lstmbg rcmd=pbc-next pbkey=g pbmax=2 => [a c]
lstmbg => [e f]
lstmbg => []
new
lstmbg rcmd=pbc-prev pbkey=G pbmax=2 => [f e]
lstmbg => [c a]
lstmbg => []
new
lstmbp rcmd=pbc-next pbkey=a pbmax=2 => [g h]
lstmbp => []
new
lstgrp rcmd=pbc-next pbmax=2 => [g h]
lstgrp => [i]
lstgrp => []
)"},
    {"ListsBeginWhereTheStepSays", R"(
persons a b c
new
lstper rcmd=pbc-first => [a b c]
new
lstper rcmd=pbc-last => [c b a]
new
lstper rcmd=pbc-equal pbkey=B => [b c]
new
lstper rcmd=pbc-gteq pbkey=aa => [b c]
new
lstper rcmd=pbc-gteq pbkey=d => []
new
lstper rcmd=pbc-alias pbkey=b => [b c]
new
create pbtype=pbt-sys rcmd=pbc-last pbmax=7
lstper => []
lstgrp => []
lstmbg => []
lstprl => []
cntper => .pbmax=0
)"},
    // Without an order there is no text to compare: all count as empty.
    {"UnsortedRangeComparesEmptyTexts", R"(
persons a b
cntper pbsort=pbs-unsorted pbbeg=a => .pbmax=0
cntper pbbeg= pbend=A => .pbmax=2
)"},
    // A company's key ends with the last name, so its equal finds the nameless.
    {"CompanyKeyHasTheLastNameToo", R"(
peradd | palias=1 company=Acme lname=Zoe
peradd | palias=2 company=Acme lname=ann
peradd | palias=3 company=Acme
perget pbsort=pbs-company pbkey=acme rcmd=pbc-equal => palias=3
lstper rcmd=pbc-gteq => [3 2 1]
)"},
    // Close needs no book, and knows nothing of the commands before.
    {"OpenAndCloseTellTheState", R"(
open => .curper=0 .curgrp=0 .curmem=0 .pbsort=pbs-alias
open curper=7 pbsort=pbs-company => .curper=7
new
close pbmode= pbsort= | palias=a => palias=none .pbmode= .pbsort= .curper=
)"},
    {"ReadingBookRefusesEveryChange", R"(
persons a
group g
peradd pbmode=pbm-read | palias=b => 35
perupd | palias=a => 35
perdel pbkey=a => 35
grpadd | galias=h => 35
grpupd | galias=g => 35
grpdel pbkey=g => 35
memadd | galias=g palias=a => 35
memdel | galias=g palias=a => 35
perget rcmd=pbc-first
)"},
};

class Rules : public BookTest, public testing::WithParamInterface<Rule> {};

TEST_P(Rules, Hold) { client_.Talk(GetParam().conversation); }

INSTANTIATE_TEST_SUITE_P(, Rules, testing::ValuesIn(kRules),
                         [](const auto& rule) { return rule.param.name; });

using OneBook = BookTest;

TEST_F(OneBook, PersonWithoutAliasGetsTheTime) {
  const time_t before = std::time(nullptr);
  client_.Talk("peradd | lname=x\nperget rcmd=pbc-first");
  const long alias = atol(client_.Result("palias").c_str());
  EXPECT_GE(alias, before);
  EXPECT_LE(alias, std::time(nullptr));
  // Another one in the same second collides; the clock may have moved on.
  int error = 0;
  for (int tries = 0; tries < 3 && error == 0; ++tries) {
    error = client_.Send("peradd", {}, {{"lname", "x"}});
  }
  EXPECT_EQ(error, kx_err_duplicate);
}

TEST_F(OneBook, UnnamedStepReadsTheCurrentPersonAgain) {
  client_.Talk("persons a b");
  pb_setup("alice", root_.path().c_str(), nullptr);
  ASSERT_EQ(pb_open(kx_pbt_usr, kx_pbm_read), 0);
  const kx::Object person = kx::Build("obj-person");
  const auto again = [&] {
    EXPECT_EQ(
        pb_per_get(kx_pbt_usr, kx_pbs_alias, person.get(), pb_step_current, ""),
        0);
    return std::string(kx::TextOrEmpty(person.get(), "palias"));
  };
  EXPECT_EQ(again() + again(), "aa");
  EXPECT_EQ(pb_per_pos(kx_pbt_usr, kx_pbs_alias, pb_step_current, 2, nullptr),
            0);
  EXPECT_EQ(again(), "b");
  EXPECT_EQ(pb_per_get(kx_pbt_usr, kx_pbs_alias, nullptr, pb_step_current, ""),
            -1);
  EXPECT_EQ(pb_errno, kx_err_pb_data);
  pb_close(kx_pbt_usr);
}

}  // namespace
