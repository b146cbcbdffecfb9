// Numbers and texts that travel between machines: they never change.
#include <cerrno>
#include <climits>
#include <set>

#include "pairs.h"

namespace {

TEST(Enum, ValuesAreAContract) {
  // Around the gap and at both ends: a name that is left out moves the others.
  const std::pair<int, const char*> rows[] = {
      {1, "lst-covers"}, {51, "cmd-noop"},   {110, "usr-admin"},
      {128, "pbc-last"}, {130, "pbc-alias"}, {157, "pbc-lstprl"},
  };
  for (const auto& [value, name] : rows) {
    EXPECT_STREQ(Kfx_Enum_To_Str(value), name);
  }
  std::set<std::string> names;
  for (int value = 1; value <= 157; ++value) {
    if (value == 129) continue;
    const char* name = Kfx_Enum_To_Str(value);
    EXPECT_EQ(Kfx_Str_To_Enum(name), value) << name;
    EXPECT_TRUE(names.insert(name).second) << name;
  }
  for (const int value : {INT_MIN, -1, 0, 129, INT_MAX}) {
    EXPECT_STREQ(Kfx_Enum_To_Str(value), "-1") << value;
  }
  for (const char* name : {"", "-1", "cmd-", "cmd-noop ", "CMD-NOOP", "zzz"}) {
    EXPECT_EQ(Kfx_Str_To_Enum(name), -1) << name;
  }
  EXPECT_EQ(Kfx_Str_To_Enum(nullptr), -1);
}

TEST(ErrorText, IsAContract) {
  const std::pair<int, const char*> rows[] = {
      {0, "No error"},        {1, "No memory"},
      {6, "User rtn failed"}, {19, "Invalid data"},
      {29, "C-Tree error"},   {36, "Logical EOF encountered"},
      {37, "Invalid data"},   {39, "No memory"},
      {40, "System error"},   {41, "Error # 41"},
      {-1, "Error # -1"},     {INT_MIN, "Error # -2147483648"},
  };
  for (const auto& [code, text] : rows) {
    EXPECT_STREQ(Kfx_Errmsg(code), text) << code;
  }
  std::strcpy(kx_servmsg, "isam: no room");
  EXPECT_STREQ(Kfx_Errmsg(2), "isam: no room");
  kx_servmsg[0] = '\0';
  errno = ENOENT;
  EXPECT_STREQ(Kfx_Errmsg(3), "No such file or directory");
}

TEST(Convert, WordsForBooleans) {
  for (const char* word : {"true", "yes", "on"}) {
    EXPECT_EQ(Kfx_Str_To_Bool(word), 1) << word;
  }
  for (const char* word : {"false", "no", "off"}) {
    EXPECT_EQ(Kfx_Str_To_Bool(word), 0) << word;
  }
  for (const char* word : {"TRUE", "", "1", "true ", "y"}) {
    EXPECT_EQ(Kfx_Str_To_Bool(word), -1) << word;
  }
  EXPECT_EQ(Kfx_Str_To_Bool(nullptr), -1);
  EXPECT_STREQ(Kfx_Bool_To_Str(2), "-1");
}

TEST(Convert, NumbersAndTimes) {
  const char* word = Kfx_Word_To_Str(INT_MIN);
  EXPECT_STREQ(Kfx_Long_To_Str(7), "7");
  EXPECT_STREQ(word, "-2147483648") << "each text has its own buffer";
  EXPECT_STREQ(Kfx_Time_To_Str(0), "now");
  EXPECT_EQ(Kfx_Time_To_Str(-1), nullptr);
  EXPECT_STREQ(Kfx_Time_To_Str(1), "19700101000001");
  EXPECT_STREQ(Kfx_Time_To_Str(INT_MAX), "20380119031407");
  EXPECT_EQ(Kfx_Str_To_Time("20380119031407"), INT_MAX);
  EXPECT_EQ(Kfx_Str_To_Time("20380119031408"), -1) << "no field holds it";
}

}  // namespace
