#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "util/kutfile.h"
#include "util/kutstr.h"

namespace {

int Sign(int value) { return (value > 0) - (value < 0); }

TEST(Texts, ComparisonEndsWithTheShorterText) {
  const std::tuple<const char*, const char*, size_t, int> cases[] = {
      {"Normal", "nORMAL", 9, 0}, {"norm", "normal", 9, 0},
      {"", "any", 9, 0},          {"Z", "a", 9, 1},
      {"abX", "abY", 2, 0},       {"abX", "abY", 3, -1},
      {"a", "b", 0, 0},           {"_", "A", 9, -1},
      {"\xe4", "z", 9, 1},        {"\xc4", "\xe4", 9, -1}};
  for (const auto& [a, b, n, sign] : cases) {
    SCOPED_TRACE(std::string(a) + " and " + b);
    EXPECT_EQ(Sign(Kut_strccmpn(a, b, n)), sign);
    EXPECT_EQ(Sign(Kut_strccmp(a, b)), n < 3 ? -1 : sign);
  }
  EXPECT_EQ(Kut_strccmp("B", "d"), 'b' - 'd');
}

TEST(Texts, CopyFillsTheWholeField) {
  char field[6];
  for (const char* text : {"", "ab", "abcde", "abcdefgh"}) {
    memset(field, 'x', sizeof field);
    EXPECT_EQ(Kut_strcpyz(field, text, 5), 0);
    const std::string kept = std::string(text).substr(0, 4);
    std::string expected = kept + std::string(5 - kept.size(), '\0') + "x";
    EXPECT_EQ(std::string(field, sizeof field), expected) << text;
  }
  Kut_strcpyz(field, "zz", 0);
  EXPECT_EQ(field[0], 'a');
}

TEST(Texts, CaseChangesTouchAsciiLettersOnly) {
  char text[] = "aZ09[`{\xe4\xc4";
  EXPECT_EQ(Kut_strupper(text), 0);
  EXPECT_STREQ(text, "AZ09[`{\xe4\xc4");
  EXPECT_EQ(Kut_strlower(text), 0);
  EXPECT_STREQ(text, "az09[`{\xe4\xc4");
}

TEST(Texts, StripAndSplit) {
  char all[] = " \t\r\n", some[] = "\n a b\v ";
  EXPECT_STREQ(Kut_strip(all), "");
  EXPECT_STREQ(Kut_strip(some), "a b");
  char lines[] = "a\n\n";
  EXPECT_STREQ(Kut_strip_nl(lines), "a\n");
  char words[] = "  one two\tthree ";
  char* fields[3] = {};
  EXPECT_EQ(Kut_awk(words, fields, 2), 2);
  EXPECT_STREQ(fields[0], "one");
  EXPECT_STREQ(fields[1], "two");
  EXPECT_EQ(fields[2], nullptr);
  char blank[] = "  ";
  EXPECT_EQ(Kut_awk(blank, fields, 3), 0);
}

TEST(Texts, WhatATerminalWouldObeyIsEscaped) {
  const std::pair<const char*, const char*> cases[] = {
      {"plain \\x1b ~", "plain \\x1b ~"},
      {"a\tb\r\n\x1b[2J\x7f", "a\\x09b\\x0d\\x0a\\x1b[2J\\x7f"},
      {"\xc2\x80 \xc2\x9b \xc2\x9f", "\\xc2\\x80 \\xc2\\x9b \\xc2\\x9f"},
      {"\x9b \xff \xc3", "\\x9b \\xff \\xc3"},
      {"\xc2\xa0\xc3\xa9\xe2\x82\xac\xf0\x9f\x93\xa0",
       "\xc2\xa0\xc3\xa9\xe2\x82\xac\xf0\x9f\x93\xa0"},
      // Overlong, a surrogate, beyond the last character, cut short.
      {"\xc0\x9b", "\\xc0\\x9b"},
      {"\xe0\x82\x9b", "\\xe0\\x82\\x9b"},
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
      {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
      {"\xe2\x82", "\\xe2\\x82"},
  };
  for (const auto& [text, shown] : cases) {
    std::string all;
    char piece[kKutEscapeSize];
    for (const char* at = text; *at != '\0'; all += piece) {
      at += Kut_escape_char(at, piece);
    }
    EXPECT_EQ(all, shown);
  }
}

TEST(Names, BaseDirectoryAndExtension) {
  const struct {
    const char* path;
    const char* base;
    const char* dir;
    const char* ext;  // null: none
  } cases[] = {
      {"name.cmd", "name.cmd", ".", "cmd"},
      {"/a.b/name", "name", "/a.b", nullptr},
      {"/name.tar.gz", "name.tar.gz", "/", "gz"},
      {"a/b/", "", "a/b", nullptr},
      {"c:\\fax\\x.tif", "x.tif", "c:\\fax", "tif"},
      {"name.", "name.", ".", ""},
      {".hidden", ".hidden", ".", "hidden"},
      {"", "", ".", nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_STREQ(Kut_basename(c.path), c.base);
    EXPECT_STREQ(Kut_dirname(c.path), c.dir);
    EXPECT_STREQ(Kut_get_file_ext(c.path), c.ext);
  }
  EXPECT_EQ(Kut_dirname((std::string(5000, 'd') + "/f").c_str()), nullptr);
}

TEST(Names, ExtensionIsSetInPlace) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"a.cmd", "tmp", "a.tmp"},
      {"a.b.cmd", ".12345", "a.b.12345"},
      {"d.x/a", "tmp", "d.x/a.tmp"},
      {"a.cmd", nullptr, "a"},
      {"a.cmd", "", "a"},
      {"d.x/a", nullptr, "d.x/a"},
      {"a.", "tmp", "a.tmp"}};
  for (const auto& [before, ext, after] : cases) {
    char name[32];
    Kut_strcpyz(name, before, sizeof name);
    EXPECT_EQ(Kut_set_file_ext(name, ext), 0);
    EXPECT_STREQ(name, after) << before;
  }
}

}  // namespace
