#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <ctime>
#include <string>

#include "util/kuttime.h"

namespace {

TEST(Times, AreWrittenInBothForms) {
  EXPECT_STREQ(Kut_time_2_str(951827696, 1), "2000/02/29 12:34:56");
  EXPECT_STREQ(Kut_time_2_str(951827696, 0), "20000229123456");
  EXPECT_STREQ(Kut_time_2_str(0, 1), "now");
  EXPECT_EQ(Kut_time_2_str(-1, 0), nullptr);
  EXPECT_EQ(Kut_time_2_str(LONG_MIN, 0), nullptr);
  EXPECT_EQ(Kut_time_2_str(LONG_MAX, 0), nullptr);
  EXPECT_STREQ(Kut_time_2_str(253402300800, 0), "100000101000000");
}

TEST(Times, BothFormsReadBack) {
  // A step that walks through all hours, minutes and month lengths.
  for (long t = 1; t <= INT32_MAX; t += 1'234'577) {
    for (const int form : {0, 1}) {
      const std::string text = Kut_time_2_str(t, form);
      ASSERT_EQ(Kut_str_2_time(text.c_str()), t) << text;
    }
  }
}

TEST(Times, AreReadLeniently) {
  const long noon = 820497600;  // 1996/01/01 12:00:00
  for (const char* text :
       {"1996-01-01 12:00:00", "960101120000", "96/01/01 12:00:00 pm",
        "96/01/01 12:00:00AM", "1996/01/01 00:00:00pm", "19960001120000"}) {
    EXPECT_EQ(Kut_str_2_time(text), noon) << text;
  }
  const std::pair<const char*, long> cases[] = {
      {"now", 0},
      {" now\n", 0},
      {"60101120000", -23375L * 86400 + 43200},  // 06 is 1906
      {"1996/01/01 13:00:00pm", noon + 3600},
      {"19960229000000", noon + 59 * 86400 - 43200},
      {"21000229000000", 4107542400},
      {"19960101120099", noon + 99},
      {"19960100120000", noon - 86400},
      {"00000000000000", -719543L * 86400}};
  for (const auto& [text, time] : cases) {
    EXPECT_EQ(Kut_str_2_time(text), time) << "'" << text << "'";
  }
  // 13 digits are made 14: month 60.
  for (const char* text :
       {"Now", "19950229000000", "19960431000000", "19961301000000",
        "19960101240000", "19960101126000", "", "   ", "am", "12:00",
        "1996010112000", "199601011200001", "19691231235959"}) {
    EXPECT_EQ(Kut_str_2_time(text), -1) << "'" << text << "'";
  }
  EXPECT_EQ(Kut_str_2_time(nullptr), -1);
  const std::string pad(78 - 14, ' ');
  EXPECT_EQ(Kut_str_2_time(("19960101120000" + pad).c_str()), noon);
  EXPECT_EQ(Kut_str_2_time(("19960101120000 " + pad).c_str()), -1);
  EXPECT_EQ(Kut_str_2_time(std::string(78, '1').c_str()), -1);
}

TEST(Times, MissingPartsAreTodays) {
  time_t before, after;
  long today, this_year;
  do {  // once more when a day ends in between
    before = time(nullptr) / 86400;
    today = Kut_str_2_time("1:02:03pm");
    this_year = Kut_str_2_time("03/04 05:06:07");
    after = time(nullptr) / 86400;
  } while (before != after);
  EXPECT_EQ(today, before * 86400 + 13 * 3600 + 2 * 60 + 3);
  const std::string year = std::string(Kut_time_2_str(before * 86400, 0), 4);
  EXPECT_EQ(this_year, Kut_str_2_time((year + "0304050607").c_str()));
}

}  // namespace
