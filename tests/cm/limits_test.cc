#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "cm/cmlimits.h"
#include "support/temp_dir.h"

namespace {

TEST(Limits, TheManualNamesThemWithTheirDefaults) {
  const std::string page = ReadFile(KRTCMD_MANUAL);
  const std::pair<std::string, long> limits[] = {
#define CM_LIMIT(id, name, value, least, most, meaning) {name, value},
#include "cm/cmlimits.def"
#undef CM_LIMIT
  };
  for (const auto& [name, value] : limits) {
    const std::string shown = "*" + name + "* (" + cm_limit_text(value) + ")";
    EXPECT_NE(page.find(shown), page.npos) << shown;
  }
}

TEST(Limits, PairsChangeThemAndAWrongOneIsNamed) {
  const long before = cm_limit(cm_limit_id::kFileBytes);
  for (const char* wrong :
       {"bogus=1", "file-bytes", "file-bytes=", "file-bytes=-1",
        "file-bytes=1X", "file-bytes=1KK", "file-bytes=99999999999999999999",
        "file-bytes=9999999999G", "file-bytes=1", "program-seconds=0"}) {
    EXPECT_STREQ(cm_set_limits(wrong), wrong);
  }
  EXPECT_EQ(cm_limit(cm_limit_id::kFileBytes), before);
  EXPECT_EQ(cm_set_limits(nullptr), nullptr);
  EXPECT_EQ(cm_set_limits(" program-seconds=7,\tfile-bytes=3M "), nullptr);
  EXPECT_EQ(cm_limit(cm_limit_id::kFileBytes), 3 << 20);
  EXPECT_EQ(cm_limit(cm_limit_id::kProgramSeconds), 7);
  EXPECT_STREQ(cm_set_limits("program-seconds=8 x=1 program-seconds=9"), "x=1");
  EXPECT_EQ(cm_limit(cm_limit_id::kProgramSeconds), 8);
  EXPECT_STREQ(cm_limit_text(3 << 20), "3M");
  EXPECT_STREQ(cm_limit_text(20000), "20000");
}

}  // namespace
