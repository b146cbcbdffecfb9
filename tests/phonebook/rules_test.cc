// The book's rules: spelling, updates, cascades, cursors, steps and lists.
#include <ctime>

#include "book.h"

namespace {

using Rules = BookTest;

TEST_F(Rules, AliasesAreFoundInAnyCaseAndKeepTheirSpelling) {
  // An alias to be deleted is cut to what an alias can be.
  client_.Talk(R"(
peradd | palias=Bob lname=Smith
perget rcmd=pbc-alias pbkey=bOB => palias=Bob
perget rcmd=pbc-equal => palias=Bob
perget pbsort=pbs-lname pbkey=SMITH => palias=Bob
perget pbkey=Smit => 30
peradd | palias=123456789012345
perdel pbkey=123456789012345678
perdel pbkey=123456789012345 => 30
)");
}

TEST_F(Rules, PersonWithoutAliasGetsTheTime) {
  const time_t before = time(nullptr);
  EXPECT_EQ(client_.Send("peradd", Person("lname=x")), 0);
  EXPECT_EQ(client_.Send("perget rcmd=pbc-first"), 0);
  const long alias = atol(client_.Result("palias").c_str());
  EXPECT_GE(alias, before);
  EXPECT_LE(alias, time(nullptr));
  // Another one in the same second collides; the clock may have moved on.
  int error = 0;
  for (int tries = 0; tries < 3 && error == 0; ++tries) {
    error = client_.Send("peradd", Person(""));
  }
  EXPECT_EQ(error, 33);
}

TEST_F(Rules, UpdateKeepsWhatItIsNotGiven) {
  client_.Talk(R"(
peradd | palias=Bob lname=Smith zip=1 info=old
perupd | palias=BOB fname=Bobby zip= info=new
perget rcmd=pbc-first => palias=Bob lname=Smith fname=Bobby zip=1 info=new
grpadd | galias=Staff
grpupd | galias=staff gdesc=all
grpget rcmd=pbc-first => galias=Staff gdesc=all
)");
}

TEST_F(Rules, DeleteTakesMembershipsOfTheSameSpellingOnly) {
  AddPersons({"Bob", "Zoe"});
  AddGroup("G", {"Bob"});
  AddGroup("h", {"Bob", "Zoe"});
  AddGroup("i", {"bob"});
  AddGroup("j", {"Bob"});
  // Sorted by group; the deletion stops at the other spelling.
  client_.Talk("perdel pbkey=Bob");
  EXPECT_EQ(Memberships(), "h:Zoe i:bob j:Bob ");
  client_.Talk("grpdel pbkey=H");
  EXPECT_EQ(Memberships(), "h:Zoe i:bob j:Bob ");
  client_.Talk("grpadd | galias=h\ngrpdel pbkey=h");
  EXPECT_EQ(Memberships(), "i:bob j:Bob ");
  // What was left behind belongs to nobody: it is counted, and not listed.
  client_.Talk("cntper pbkey=j => .pbmax=1\nlstmbg rcmd=pbc-first => []");
}

TEST_F(Rules, CountsOfMembershipsCompareTheSpelling) {
  AddPersons({"a", "b", "c"});
  AddGroup("Staff", {"a", "B"});
  client_.Talk(R"(
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
)");
}

TEST_F(Rules, StepsGoOnFromCommandToCommand) {
  AddPersons({"b", "a", "c"});
  // The last person added was the current one, but for a new command. In the
  // end the order changes under way.
  client_.Talk(R"(
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
)");
  // The person that was current is gone.
  Client other;
  other.Talk("perdel pbkey=a");
  client_.Talk("perget => 30");
}

TEST_F(Rules, UnnamedStepReadsTheCurrentPersonAgain) {
  AddPersons({"a", "b"});
  pb_setup("alice", root_.path().c_str(), nullptr);
  ASSERT_EQ(pb_open(kx_pbt_usr, kx_pbm_read), 0);
  const kx::Object person = Person("");
  for (const char* alias : {"a", "a"}) {
    EXPECT_EQ(pb_per_get(kx_pbt_usr, kx_pbs_alias, person.get(), 129, ""), 0);
    EXPECT_STREQ(kx::Text(person.get(), "palias"), alias);
  }
  EXPECT_EQ(pb_per_pos(kx_pbt_usr, kx_pbs_alias, 129, 2, nullptr), 0);
  EXPECT_EQ(pb_per_get(kx_pbt_usr, kx_pbs_alias, person.get(), 129, ""), 0);
  EXPECT_STREQ(kx::Text(person.get(), "palias"), "b");
  EXPECT_EQ(pb_per_get(kx_pbt_usr, kx_pbs_alias, nullptr, 129, ""), -1);
  EXPECT_EQ(pb_errno, 37);
  pb_close(kx_pbt_usr);
}

TEST_F(Rules, PositionPassesPersons) {
  AddPersons({"a", "b", "c", "d", "e"});
  AddGroup("g", {"b", "D"});
  const struct {
    const char* step;
    const char* count;
    const char* group;
    int error;
    const char* next;
  } kCases[] = {
      {"pbc-first", "1", "", 0, "b"}, {"pbc-next", "2", "", 0, "d"},
      {"pbc-prev", "1", "", 0, "c"},  {"pbc-last", "2", "", 0, "e"},
      {"pbc-next", "0", "", 0, "e"},  {"pbc-first", "2", "G", 0, "e"},
      {"pbc-last", "2", "g", 0, "c"}, {"pbc-first", "3", "g", 36, "c"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.step << " " << c.count << c.group);
    client_.Set({{"rcmd", c.step}, {"pbmax", c.count}, {"galias", c.group}});
    EXPECT_EQ(client_.Send("perpos"), c.error);
    Client copy;
    copy.Talk("perget rcmd=pbc-next curper=" + client_.Get("curper") +
              " => palias=" + c.next);
  }
}

TEST_F(Rules, MembershipStepsStayInTheirGroup) {
  AddPersons({"a", "b", "c"});
  AddGroup("ga", {"c"});
  AddGroup("gb", {"a", "b", "c"});
  AddGroup("gc", {"a"});
  // In another group "next" is its first, "prev" its last.
  client_.Talk(R"(
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
)");
}

TEST_F(Rules, ListsArePagedWithTheCursor) {
  AddPersons({"a", "b", "c", "d", "e", "f"});
  AddGroup("g", {"a", "c", "e", "f"});
  AddGroup("h", {"a"});
  AddGroup("i", {});
  const struct {
    const char* command;
    const char* pages[4];
  } kCases[] = {
      {"lstper rcmd=pbc-next", {"a b", "c d", "e f", ""}},
      {"lstper rcmd=pbc-prev", {"f e", "d c", "b a", ""}},
      {"lstper rcmd=pbc-next galias=G", {"a c", "e f", "", ""}},
      {"lstmbg rcmd=pbc-next pbkey=g", {"a c", "e f", "", ""}},
      {"lstmbg rcmd=pbc-prev pbkey=G", {"f e", "c a", "", ""}},
      {"lstmbg rcmd=pbc-next pbkey=h", {"a", "", "", ""}},
      {"lstmbp rcmd=pbc-next pbkey=a", {"g h", "", "", ""}},
      {"lstgrp rcmd=pbc-next", {"g h", "i", "", ""}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.command);
    client_.Reset();
    client_.Set("pbmax=2");
    for (const char* page : c.pages) {
      EXPECT_EQ(client_.Send(c.command), 0);
      EXPECT_EQ(client_.Listed(), page);
    }
  }
}

TEST_F(Rules, ListsBeginWhereTheStepSays) {
  AddPersons({"a", "b", "c"});
  client_.Talk(R"(
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
lstper rcmd=pbc-prev => [c b a]
new
create pbtype=pbt-sys rcmd=pbc-last pbmax=7
lstper => []
lstgrp => []
lstmbg => []
lstprl => []
cntper => .pbmax=0
)");
}

// Without an order there is no text to compare: all count as empty.
TEST_F(Rules, UnsortedRangeComparesEmptyTexts) {
  AddPersons({"a", "b"});
  client_.Talk(R"(
cntper pbsort=pbs-unsorted pbbeg=a => .pbmax=0
cntper pbbeg= pbend=A => .pbmax=2
)");
}

// A company's key ends with the last name, so its equal finds the nameless.
TEST_F(Rules, CompanyKeyHasTheLastNameToo) {
  client_.Talk(R"(
peradd | palias=1 company=Acme lname=Zoe
peradd | palias=2 company=Acme lname=ann
peradd | palias=3 company=Acme
perget pbsort=pbs-company pbkey=acme rcmd=pbc-equal => palias=3
lstper rcmd=pbc-gteq => [3 2 1]
)");
}

}  // namespace
