#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"

namespace {

// The spellings that one would not guess.
const std::pair<const char* (*)(const char* root), const char*> kRootPaths[] = {
    {cm_get_class_dir, "/r/Classes"},
    {cm_get_format_dir, "/r/Formatters"},
    {cm_get_grequests_dir, "/r/Grequests"},
    {cm_get_gfifo_file, "/r/GFIFO"},
    {cm_get_gseqno_file, "/r/GSEQF"},
    {cm_get_iseqno_file, "/r/ISEQF"},
    {cm_get_priority_file, "/r/Priorities"},
    {cm_get_retry_file, "/r/retrys"},
    {cm_get_ilog_file, "/r/logs/LOG"},
    {cm_get_cvrlist_file, "/r/krtnet/covers.lst"},
    {[](const char* root) { return cm_get_evnt_dir(root, "bob"); },
     "/r/faxq/bob/events"},
    {[](const char* root) { return cm_get_servmsg_file(root, "bob"); },
     "/r/faxq/bob/msgs/msg.srv"},
};

TEST(Paths, AreSpelledAsTheServerSpellsThemAndNeverCut) {
  for (const auto& [function, expected] : kRootPaths) {
    EXPECT_STREQ(function("/r"), expected);
    const std::string longest(257 - strlen(expected), 'x');
    EXPECT_EQ(strlen(function(longest.c_str())), 255u) << expected;
    EXPECT_STREQ(function((longest + "x").c_str()), "") << expected;
  }
}

TEST(Paths, EachFunctionHasOneBufferOfItsOwn) {
  const char* bob = cm_get_user_dir("/r", "bob");
  const char* events = cm_get_evnt_dir("/r", "bob");
  EXPECT_EQ(cm_get_user_dir("/r", "carol"), bob);
  EXPECT_STREQ(bob, "/r/faxq/carol");
  EXPECT_STREQ(events, "/r/faxq/bob/events");
}

TEST(Paths, OnlyAPlainNameBecomesAComponent) {
  const std::pair<const char*, bool> cases[] = {
      {"bob", true},   {"a b", true},    {"..a", true},    {"-rf", true},
      {"\xe9", true},  {"$(x)", true},   {nullptr, false}, {"", false},
      {".", false},    {"..", false},    {"/", false},     {"a/b", false},
      {"../b", false}, {"a\nb", false},  {"\x7f", false},  {"a\x1b", false},
      {"a/", false},   {"bob\t", false},
  };
  for (const auto& [name, plain] : cases) {
    SCOPED_TRACE(name != nullptr ? name : "(null)");
    EXPECT_EQ(cm_is_plain_name(name), plain);
    EXPECT_EQ(*cm_get_config_file("/r", name) != '\0', plain);
    EXPECT_EQ(*cm_join_plain("/d", name).text != '\0', plain);
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
  EXPECT_TRUE(uid < 0 || cm_is_krt_admin(uid));
  EXPECT_FALSE(cm_is_krt_admin(uid + 2));
}

}  // namespace
