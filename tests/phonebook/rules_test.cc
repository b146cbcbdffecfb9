// The book's rules: spelling, updates, cascades, cursors, steps and lists.
#include <ctime>

#include "book.h"

namespace {

using Rules = BookTest;

TEST_F(Rules, AliasesAreFoundInAnyCaseAndKeepTheirSpelling) {
  EXPECT_EQ(client_.Send("peradd", {},
                         Person({{"palias", "Bob"}, {"lname", "Smith"}})),
            0);
  for (const char* step : {"pbc-alias", "pbc-equal"}) {
    EXPECT_EQ(client_.Send("perget", {{"rcmd", step}, {"pbkey", "bOB"}}), 0);
    EXPECT_EQ(client_.Result("palias"), "Bob");
  }
  EXPECT_EQ(client_.Send("perget", {{"pbsort", "pbs-lname"},
                                    {"rcmd", "pbc-equal"},
                                    {"pbkey", "SMITH"}}),
            0);
  EXPECT_EQ(client_.Send("perget", {{"pbkey", "Smit"}}), 30);
  // An alias to be deleted is cut to what an alias can be.
  AddPersons({"123456789012345"});
  EXPECT_EQ(client_.Send("perdel", {{"pbkey", "123456789012345678"}}), 0);
  EXPECT_EQ(client_.Send("perdel", {{"pbkey", "123456789012345"}}), 30);
}

TEST_F(Rules, PersonWithoutAliasGetsTheTime) {
  const time_t before = time(nullptr);
  EXPECT_EQ(client_.Send("peradd", {}, Person({{"lname", "x"}})), 0);
  EXPECT_EQ(client_.Send("perget", {{"rcmd", "pbc-first"}}), 0);
  const long alias = atol(client_.Result("palias").c_str());
  EXPECT_GE(alias, before);
  EXPECT_LE(alias, time(nullptr));
  // Another one in the same second collides; the clock may have moved on.
  int error = 0;
  for (int tries = 0; tries < 3 && error == 0; ++tries) {
    error = client_.Send("peradd", {}, Person({}));
  }
  EXPECT_EQ(error, 33);
}

TEST_F(Rules, UpdateKeepsWhatItIsNotGiven) {
  EXPECT_EQ(client_.Send("peradd", {},
                         Person({{"palias", "Bob"},
                                 {"lname", "Smith"},
                                 {"zip", "1"},
                                 {"info", "old"}})),
            0);
  EXPECT_EQ(client_.Send("perupd", {},
                         Person({{"palias", "BOB"},
                                 {"fname", "Bobby"},
                                 {"zip", ""},
                                 {"info", "new"}})),
            0);
  EXPECT_EQ(client_.Send("perget", {{"rcmd", "pbc-first"}}), 0);
  EXPECT_EQ(client_.Result("palias") + client_.Result("lname") +
                client_.Result("fname") + client_.Result("zip") +
                client_.Result("info"),
            "BobSmithBobby1new");
  AddGroup("Staff", {});
  EXPECT_EQ(client_.Send("grpupd", {},
                         Group({{"galias", "staff"}, {"gdesc", "all"}})),
            0);
  EXPECT_EQ(client_.Send("grpget", {{"rcmd", "pbc-first"}}), 0);
  EXPECT_EQ(client_.Result("galias") + client_.Result("gdesc"), "Staffall");
}

TEST_F(Rules, DeleteTakesMembershipsOfTheSameSpellingOnly) {
  AddPersons({"Bob", "Zoe"});
  AddGroup("G", {"Bob"});
  AddGroup("h", {"Bob", "Zoe"});
  AddGroup("i", {"bob"});
  AddGroup("j", {"Bob"});
  // Sorted by group; the deletion stops at the other spelling.
  EXPECT_EQ(client_.Send("perdel", {{"pbkey", "Bob"}}), 0);
  EXPECT_EQ(Memberships(), "h:Zoe i:bob j:Bob ");
  EXPECT_EQ(client_.Send("grpdel", {{"pbkey", "H"}}), 0);
  EXPECT_EQ(Memberships(), "h:Zoe i:bob j:Bob ");
  AddGroup("h", {});
  EXPECT_EQ(client_.Send("grpdel", {{"pbkey", "h"}}), 0);
  EXPECT_EQ(Memberships(), "i:bob j:Bob ");
  // What was left behind belongs to nobody: it is counted, and not listed.
  EXPECT_EQ(client_.Send("cntper", {{"pbkey", "j"}}), 0);
  EXPECT_EQ(client_.Get("pbmax"), "1");
  EXPECT_EQ(client_.Send("lstmbg", {{"rcmd", "pbc-first"}, {"pbkey", "j"}}), 0);
  EXPECT_EQ(client_.Listed(), "");
}

TEST_F(Rules, CountsOfMembershipsCompareTheSpelling) {
  AddPersons({"a", "b", "c"});
  AddGroup("Staff", {"a", "B"});
  EXPECT_EQ(client_.Send("memadd", {}, Member("STAFF", "c")), 0);
  const struct {
    const char* command;
    const char* key;
    int error;
    const char* count;
  } kCases[] = {
      {"cntper", "", 0, "3"},      {"cntper", "Staff", 0, "2"},
      {"cntper", "staff", 0, "0"}, {"cntper", "A", 0, "0"},
      {"cntper", "zebra", 37, ""}, {"cntgrp", "", 0, "1"},
      {"cntgrp", "B", 0, "1"},     {"cntgrp", "b", 0, "0"},
      {"cntgrp", "z", 37, ""},
  };
  for (const auto& c : kCases) {
    client_.Set({{"pbmax", ""}});
    EXPECT_EQ(client_.Send(c.command, {{"pbkey", c.key}}), c.error) << c.key;
    EXPECT_EQ(client_.Get("pbmax"), c.count) << c.command << " " << c.key;
  }
}

TEST_F(Rules, StepsGoOnFromCommandToCommand) {
  AddPersons({"b", "a", "c"});
  client_.Reset();  // the last person added was the current one
  const struct {
    const char* step;
    const char* key;
    int error;
    const char* alias;  // what came back, or stays the current one
  } kCases[] = {
      {"pbc-prev", "", 0, "c"},   {"pbc-next", "", 36, ""},
      {"pbc-prev", "", 0, "b"},   {"pbc-prev", "", 0, "a"},
      {"pbc-prev", "", 36, ""},   {"pbc-next", "", 0, "b"},
      {"pbc-first", "", 0, "a"},  {"pbc-last", "", 0, "c"},
      {"pbc-gteq", "AA", 0, "b"}, {"pbc-alias", "x", 30, ""},
      {"pbc-next", "", 0, "c"},   {"pbc-alias", "A", 0, "a"},
      {"pbc-next", "", 0, "b"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(client_.Send("perget", {{"rcmd", c.step}, {"pbkey", c.key}}),
              c.error);
    if (c.error == 0) {
      EXPECT_EQ(client_.Result("palias"), c.alias) << c.step;
    }
  }
  // The order can change under way.
  EXPECT_EQ(client_.Send("perget",
                         {{"pbsort", "pbs-unsorted"}, {"rcmd", "pbc-next"}}),
            0);
  EXPECT_EQ(client_.Result("palias"), "a");
  // The person that was current is gone.
  Client other;
  EXPECT_EQ(other.Send("perdel", {{"pbkey", "a"}}), 0);
  EXPECT_EQ(client_.Send("perget"), 30);
}

TEST_F(Rules, UnnamedStepReadsTheCurrentPersonAgain) {
  AddPersons({"a", "b"});
  pb_setup("alice", root_.path().c_str(), nullptr);
  ASSERT_EQ(pb_open(kx_pbt_usr, kx_pbm_read), 0);
  const kx::Object person = Person({});
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
    EXPECT_EQ(client_.Send(
                  "perpos",
                  {{"rcmd", c.step}, {"pbmax", c.count}, {"galias", c.group}}),
              c.error);
    Client copy;
    copy.Set({{"curper", client_.Get("curper")}, {"rcmd", "pbc-next"}});
    EXPECT_EQ(copy.Send("perget"), 0);
    EXPECT_EQ(copy.Result("palias"), c.next);
  }
}

TEST_F(Rules, MembershipStepsStayInTheirGroup) {
  AddPersons({"a", "b", "c"});
  AddGroup("ga", {"c"});
  AddGroup("gb", {"a", "b", "c"});
  AddGroup("gc", {"a"});
  const struct {
    const char* command;
    const char* key;
    const char* step;
    int error;
    const char* alias;
  } kCases[] = {
      {"memgbg", "GB", "pbc-first", 0, "a"},
      {"memgbg", "gb", "pbc-prev", 36, ""},
      {"memgbg", "gb", "pbc-next", 0, "b"},
      {"memgbg", "gb", "pbc-next", 0, "c"},
      {"memgbg", "gb", "pbc-next", 36, ""},
      {"memgbg", "gb", "pbc-next", 36, ""},
      {"memgbg", "gb", "pbc-prev", 0, "b"},
      {"memgbg", "gc", "pbc-next", 0, "a"},  // another group: its first
      {"memgbg", "ga", "pbc-prev", 0, "c"},  // and its last
      {"memgbg", "gb", "pbc-last", 0, "c"},
      {"memgbg", "gc", "pbc-last", 0, "a"},
      {"memgbg", "gb", "pbc-equal", 0, "a"},
      {"memgbg", "gx", "pbc-last", 36, ""},
      {"memgbp", "A", "pbc-first", 0, "gb"},
      {"memgbp", "a", "pbc-next", 0, "gc"},
      {"memgbp", "a", "pbc-next", 36, ""},
      {"memgbp", "c", "pbc-last", 0, "gb"},
      {"memgbp", "c", "pbc-prev", 0, "ga"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.command << " " << c.key << c.step);
    EXPECT_EQ(client_.Send(c.command, {{"pbkey", c.key}, {"rcmd", c.step}}),
              c.error);
    if (c.error == 0) {
      EXPECT_EQ(client_.Result(c.command == std::string("memgbg") ? "palias"
                                                                  : "galias"),
                c.alias);
    }
  }
}

TEST_F(Rules, ListsArePagedWithTheCursor) {
  AddPersons({"a", "b", "c", "d", "e", "f"});
  AddGroup("g", {"a", "c", "e", "f"});
  AddGroup("h", {"a"});
  AddGroup("i", {});
  const struct {
    const char* command;
    const char* step;
    Fields fields;
    const char* pages[4];
  } kCases[] = {
      {"lstper", "pbc-next", {}, {"a b", "c d", "e f", ""}},
      {"lstper", "pbc-prev", {}, {"f e", "d c", "b a", ""}},
      {"lstper", "pbc-next", {{"galias", "G"}}, {"a c", "e f", "", ""}},
      {"lstmbg", "pbc-next", {{"pbkey", "g"}}, {"a c", "e f", "", ""}},
      {"lstmbg", "pbc-prev", {{"pbkey", "G"}}, {"f e", "c a", "", ""}},
      {"lstmbg", "pbc-next", {{"pbkey", "h"}}, {"a", "", "", ""}},
      {"lstmbp", "pbc-next", {{"pbkey", "a"}}, {"g h", "", "", ""}},
      {"lstgrp", "pbc-next", {}, {"g h", "i", "", ""}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::PrintToString(c.fields) + c.command + c.step);
    client_.Reset();
    client_.Set(c.fields);
    client_.Set({{"pbmax", "2"}});
    const std::string type = c.command;
    for (const char* page : c.pages) {
      EXPECT_EQ(client_.Send(c.command, {{"rcmd", c.step}}), 0);
      EXPECT_EQ(client_.Listed(type == "lstgrp" || type == "lstmbp" ? "galias"
                                                                    : "palias"),
                page);
    }
  }
}

TEST_F(Rules, ListsBeginWhereTheStepSays) {
  AddPersons({"a", "b", "c"});
  const struct {
    const char* step;
    const char* key;
    const char* listed;
  } kCases[] = {
      {"pbc-first", "", "a b c"}, {"pbc-last", "", "c b a"},
      {"pbc-equal", "B", "b c"},  {"pbc-gteq", "aa", "b c"},
      {"pbc-gteq", "d", ""},      {"pbc-alias", "b", "b c"},
      {"pbc-prev", "", "c b a"},
  };
  for (const auto& c : kCases) {
    client_.Reset();
    EXPECT_EQ(client_.Send("lstper", {{"rcmd", c.step}, {"pbkey", c.key}}), 0)
        << c.step;
    EXPECT_EQ(client_.Listed(), c.listed) << c.step << " " << c.key;
  }
  client_.Reset();
  client_.Set({{"pbtype", "pbt-sys"}, {"rcmd", "pbc-last"}, {"pbmax", "7"}});
  EXPECT_EQ(client_.Send("create"), 0);
  for (const char* empty : {"lstper", "lstgrp", "lstmbg", "lstprl", "cntper"}) {
    EXPECT_EQ(client_.Send(empty), 0) << empty;
    EXPECT_EQ(client_.Listed(), "");
  }
  EXPECT_EQ(client_.Get("pbmax"), "0");
}

// Without an order there is no text to compare: all count as empty.
TEST_F(Rules, UnsortedRangeComparesEmptyTexts) {
  AddPersons({"a", "b"});
  client_.Set({{"pbsort", "pbs-unsorted"}, {"pbbeg", "a"}});
  EXPECT_EQ(client_.Send("cntper"), 0);
  EXPECT_EQ(client_.Get("pbmax"), "0");
  EXPECT_EQ(client_.Send("cntper", {{"pbbeg", ""}, {"pbend", "A"}}), 0);
  EXPECT_EQ(client_.Get("pbmax"), "2");
}

// A company's key ends with the last name, so its equal finds the nameless.
TEST_F(Rules, CompanyKeyHasTheLastNameToo) {
  for (const auto& [alias, lname] :
       {std::pair("1", "Zoe"), std::pair("2", "ann"), std::pair("3", "")}) {
    EXPECT_EQ(
        client_.Send(
            "peradd", {},
            Person({{"palias", alias}, {"company", "Acme"}, {"lname", lname}})),
        0);
  }
  client_.Set({{"pbsort", "pbs-company"}, {"pbkey", "acme"}});
  EXPECT_EQ(client_.Send("perget", {{"rcmd", "pbc-equal"}}), 0);
  EXPECT_EQ(client_.Result("palias"), "3");
  EXPECT_EQ(client_.Send("lstper", {{"rcmd", "pbc-gteq"}}), 0);
  EXPECT_EQ(client_.Listed(), "3 2 1");
}

}  // namespace
