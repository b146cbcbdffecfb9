// Names and phone numbers as one text, and the texts of the errors.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <tuple>

#include "kx/object.h"
#include "phonebook/pb.h"

namespace {

constexpr int kRecordSize = 704;
constexpr int kLname = 16, kFname = 48, kFax = 208;

struct Record {
  char bytes[kRecordSize] = {};
  std::string At(int offset) const { return bytes + offset; }
};

TEST(FullName, IsDividedIntoItsParts) {
  const std::tuple<const char*, const char*, const char*> kCases[] = {
      {nullptr, "", ""},
      {" \t ", "", ""},
      {"Lovelace", "", "Lovelace"},
      {"  Ada \t Lovelace ", "Ada", "Lovelace"},
      {"Ada B. Lovelace", "Ada B.", "Lovelace"},
      {"Ada B.", "Ada", "B."},
      {"Ada  von  der Heide", "Ada", "von der Heide"},
      {"Ada St. John Smith", "Ada St.", "John Smith"},
      {"Ada B. C. Lovelace", "Ada B.", "C. Lovelace"},
  };
  for (const auto& [text, first, last] : kCases) {
    Record record;
    memset(record.bytes, 'x', 100);
    EXPECT_EQ(pb_name_to_perrec(text, record.bytes), 0);
    EXPECT_EQ(record.At(kFname), first) << text;
    EXPECT_EQ(record.At(kLname), last) << text;
  }
}

TEST(FullName, PartThatIsTooLongIsRefused) {
  const std::string fits(31, 'n'), over(32, 'n');
  for (const std::string& text :
       {over, "Ada " + over, over + " Ada", fits + " B. Lovelace"}) {
    Record record;
    pb_name_to_perrec("Old Name", record.bytes);
    EXPECT_EQ(pb_name_to_perrec(text.c_str(), record.bytes), -1) << text;
    EXPECT_EQ(pb_errno, 37);
    EXPECT_EQ(record.At(kLname), "Name");
  }
  Record record;
  EXPECT_EQ(pb_name_to_perrec((fits + " " + fits).c_str(), record.bytes), 0);
  char text[64], small[63];
  EXPECT_EQ(pb_perrec_to_name(record.bytes, text, sizeof text), 0);
  EXPECT_EQ(text, fits + " " + fits);
  EXPECT_EQ(pb_perrec_to_name(record.bytes, small, sizeof small), -1);
}

TEST(PhoneNumber, IsDividedIntoItsParts) {
  const struct {
    const char* text;
    const char* parts[4];
    const char* back;
  } kCases[] = {
      {nullptr, {"", "", "", ""}, ""},
      {" 555", {"", "", "555", ""}, "555"},
      {"617-555", {"", "617", "555", ""}, "617-555"},
      {"1 (617) 555", {"1", "617", "555", ""}, "1-617-555"},
      {"1/617.555-1234", {"1", "617", "555-1234", ""}, "1-617-555-1234"},
      {"555 x12", {"", "", "555", "12"}, "555 x12"},
      {"555#12x3", {"", "", "555", "12x3"}, "555 x12x3"},
      {"617-555 * 9", {"", "617", "555", "9"}, "617-555 x9"},
      {"x7", {"", "", "", "7"}, " x7"},
  };
  const int kOffsets[] = {kFax, kFax + 6, kFax + 12, kFax + 44};
  for (const auto& c : kCases) {
    Record record;
    EXPECT_EQ(pb_fax_to_perrec(c.text, record.bytes), 0);
    for (int part = 0; part < 4; ++part) {
      EXPECT_EQ(record.At(kOffsets[part]), c.parts[part]) << c.text;
    }
    char back[64];
    EXPECT_EQ(pb_perrec_to_fax(record.bytes, back, sizeof back), 0);
    EXPECT_STREQ(back, c.back);
  }
  for (const char* text :
       {"123456-1-5", "1-123456-5", "1-2-3-456789012345678901234567890123",
        "5x123456"}) {
    Record record;
    pb_fax_to_perrec("1-2-3", record.bytes);
    EXPECT_EQ(pb_fax_to_perrec(text, record.bytes), -1) << text;
    EXPECT_EQ(pb_errno, 37);
    EXPECT_EQ(record.At(kFax + 12), "3");
  }
}

TEST(PhoneNumber, HasFourPlacesInAPerson) {
  Record record;
  pb_fax_to_perrec("1", record.bytes);
  pb_voice_to_perrec("2", record.bytes);
  pb_pager_to_perrec("3", record.bytes);
  pb_cell_to_perrec("4", record.bytes);
  EXPECT_EQ(record.At(220) + record.At(270) + record.At(320) + record.At(370),
            "1234");
  char text[8];
  EXPECT_EQ(pb_perrec_to_cell(record.bytes, text, sizeof text), 0);
  EXPECT_STREQ(text, "4");
  EXPECT_STREQ(pb_per_fields[16 - 4].abbr, "cex");
}

TEST(ErrorTexts, CountFromThePhoneBooksFirst) {
  const std::pair<int, const char*> kCases[] = {
      {28, "Error # -1"},
      {30, "Invalid person"},
      {38, "Phone-book does not exist"},
      {39, "No memory"},
      {41, "Error # 12"},
  };
  for (const auto& [code, text] : kCases) EXPECT_STREQ(pb_errmsg(code), text);
  errno = ENOENT;
  EXPECT_STREQ(pb_errmsg(40), strerror(ENOENT));
  db_errnum = 10;
  EXPECT_STREQ(pb_errmsg(29), "Logical EOF");
  EXPECT_EQ(px_check_errno(30), 30);
  EXPECT_EQ(px_check_errno(29), 2);
  EXPECT_STREQ(Kfx_Servmsg(), "Logical EOF");
}

}  // namespace
