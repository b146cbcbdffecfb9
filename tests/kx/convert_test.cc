// Numbers and texts that travel between machines: they never change.
#include <cerrno>
#include <climits>

#include "pairs.h"

namespace {

TEST(Enum, ValuesAreAContract) {
  // Around the gap and at both ends: a name that is left out moves the others.
  const std::pair<int, const char*> rows[] = {
      {1, "lst-covers"}, {51, "cmd-noop"},   {110, "usr-admin"},
      {128, "pbc-last"}, {130, "pbc-alias"}, {157, "pbc-lstprl"}};
  for (const auto& [value, name] : rows) {
    EXPECT_STREQ(Kfx_Enum_To_Str(value), name);
  }
  for (int value = 1; value <= 157; ++value) {
    const char* name = Kfx_Enum_To_Str(value);
    EXPECT_EQ(Kfx_Str_To_Enum(name), value != 129 ? value : -1) << name;
  }
  for (const int value : {INT_MIN, -1, 0, 129, INT_MAX}) {
    EXPECT_STREQ(Kfx_Enum_To_Str(value), "-1") << value;
  }
  for (const char* name : {"", "-1", "cmd-", "cmd-noop ", "CMD-NOOP", "zzz",
                           static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(Kfx_Str_To_Enum(name), -1);
  }
}

TEST(ErrorText, IsAContract) {
  const std::pair<int, const char*> rows[] = {
      {0, "No error"},      {6, "User rtn failed"},
      {19, "Invalid data"}, {36, "Logical EOF encountered"},
      {40, "System error"}, {41, "Error # 41"},
      {-1, "Error # -1"},   {INT_MIN, "Error # -2147483648"}};
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
  const std::pair<const char*, int> rows[] = {
      {"true", 1}, {"yes", 1},    {"on", 1},    {"false", 0},
      {"no", 0},   {"off", 0},    {"TRUE", -1}, {"", -1},
      {"1", -1},   {"true ", -1}, {nullptr, -1}};
  for (const auto& [word, value] : rows) {
    EXPECT_EQ(Kfx_Str_To_Bool(word), value) << value;
  }
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
