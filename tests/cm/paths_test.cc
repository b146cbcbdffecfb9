#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"

namespace {

struct PathCase {
  const char* name;
  const char* (*function)(const char* root);
  const char* expected;
};

#define CASE(name, path) \
  { #name, cm_get_##name, "/r/" path }
// The spellings that one would not guess.
const PathCase kRootPaths[] = {
    CASE(class_dir, "Classes"),
    CASE(covers_dir, "Covers"),
    CASE(format_dir, "Formatters"),
    CASE(grequests_dir, "Grequests"),
    CASE(default_file, "Default"),
    CASE(fifo_file, "FIFO"),
    CASE(gfifo_file, "GFIFO"),
    CASE(gseqno_file, "GSEQF"),
    CASE(iseqno_file, "ISEQF"),
    CASE(priority_file, "Priorities"),
    CASE(retry_file, "retrys"),
    CASE(ilog_file, "logs/LOG"),
    CASE(olog_file, "logs/OLOG"),
    CASE(netspool_dir, "krtnet/netspool"),
    CASE(cvrlist_file, "krtnet/covers.lst"),
};
#undef CASE

struct UserPathCase {
  const char* name;
  const char* (*function)(const char* root, const char* user);
  const char* expected;
};

#define CASE(name, path) \
  { #name, cm_get_##name, "/r/faxq/bob" path }
const UserPathCase kUserPaths[] = {
    CASE(user_dir, ""),
    CASE(evnt_dir, "/events"),
    CASE(servmsg_file, "/msgs/msg.srv"),
};
#undef CASE

TEST(Paths, AreSpelledAsTheServerSpellsThem) {
  for (const PathCase& test : kRootPaths) {
    EXPECT_STREQ(test.function("/r"), test.expected) << test.name;
  }
  for (const UserPathCase& test : kUserPaths) {
    EXPECT_STREQ(test.function("/r", "bob"), test.expected) << test.name;
  }
}

TEST(Paths, OneThatDoesNotFitIsEmptyAndNeverCut) {
  for (const PathCase& test : kRootPaths) {
    const size_t tail = strlen(test.expected) - strlen("/r");
    const std::string longest(255 - tail, 'x');
    EXPECT_EQ(strlen(test.function(longest.c_str())), 255u) << test.name;
    EXPECT_STREQ(test.function((longest + "x").c_str()), "") << test.name;
  }
  for (const UserPathCase& test : kUserPaths) {
    const size_t tail = strlen(test.expected) - strlen("/r");
    const std::string longest(255 - tail, 'x');
    EXPECT_EQ(strlen(test.function(longest.c_str(), "bob")), 255u) << test.name;
    EXPECT_STREQ(test.function(longest.c_str(), "bobo"), "") << test.name;
  }
}

TEST(Paths, EachFunctionHasOneBufferOfItsOwn) {
  const char* bob = cm_get_user_dir("/r", "bob");
  const char* events = cm_get_evnt_dir("/r", "bob");
  EXPECT_EQ(cm_get_user_dir("/r", "carol"), bob);
  EXPECT_STREQ(bob, "/r/faxq/carol");
  EXPECT_STREQ(events, "/r/faxq/bob/events");
}

struct NameCase {
  const char* name;
  bool plain;
};

TEST(Paths, OnlyAPlainNameBecomesAComponent) {
  const NameCase cases[] = {
      {"bob", true},   {"a b", true},    {"..a", true},    {"-rf", true},
      {"\xe9", true},  {"$(x)", true},   {nullptr, false}, {"", false},
      {".", false},    {"..", false},    {"/", false},     {"a/b", false},
      {"../b", false}, {"a\nb", false},  {"\x7f", false},  {"a\x1b", false},
      {"a/", false},   {"bob\t", false},
  };
  for (const NameCase& test : cases) {
    const char* shown = test.name != nullptr ? test.name : "(null)";
    EXPECT_EQ(cm_is_plain_name(test.name), test.plain) << shown;
    EXPECT_EQ(*cm_get_config_file("/r", test.name) != '\0', test.plain)
        << shown;
    EXPECT_EQ(*cm_join_plain("/d", test.name).text != '\0', test.plain)
        << shown;
  }
  EXPECT_STREQ(cm_join_path("", "f").text, "");
  EXPECT_STREQ(cm_join_path("/d", "a/b").text, "/d/a/b");
  EXPECT_STREQ(cm_get_fifo_file(""), "");
}

TEST(Identity, AnUnknownUserIsNoAdministrator) {
  EXPECT_STREQ(cm_get_krt_uname(), "krtfax");
  EXPECT_STREQ(cm_get_krt_gname(), "krtfax");
  EXPECT_TRUE(cm_is_krt_admin(0));
  // Also where the machine has no such user, so that its id is -1 as well.
  EXPECT_FALSE(cm_is_krt_admin(-1));
  const int uid = cm_get_krt_uid();
  if (uid > 0) {
    EXPECT_TRUE(cm_is_krt_admin(uid));
  }
  EXPECT_FALSE(cm_is_krt_admin(uid + 2));
}

}  // namespace
