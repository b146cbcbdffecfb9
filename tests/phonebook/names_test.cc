// Names and phone numbers as one text, and the texts of the errors.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "kx/object.h"
#include "phonebook/pb.h"

namespace {

struct Record {
  char bytes[704] = {};
  // A stored text.
  std::string Get(const std::string& name) const {
    const db_field* field = pb_per_fields;
    while (field->name != name) ++field;
    return bytes + field->offset;
  }
};

TEST(FullName, IsDividedIntoItsParts) {
  const std::string fits(31, 'n'), over(32, 'n'), both = fits + " " + fits;
  const struct {
    std::string text, first, last;
    int result = 0;
  } kCases[] = {
      {" \t ", "", ""},
      {"Lovelace", "", "Lovelace"},
      {"  Ada \t Lovelace ", "Ada", "Lovelace"},
      {"Ada B. Lovelace", "Ada B.", "Lovelace"},
      {"Ada B.", "Ada", "B."},
      {"Ada  von  der Heide", "Ada", "von der Heide"},
      {"Ada B. C. Lovelace", "Ada B.", "C. Lovelace"},
      {both, fits, fits},
      // A part that is too long.
      {over, "Old", "Name", -1},
      {"Ada " + over, "Old", "Name", -1},
      {over + " Ada", "Old", "Name", -1},
      {fits + " B. Lovelace", "Old", "Name", -1},
  };
  Record record;
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    pb_name_to_perrec("Old Name", record.bytes);
    pb_errno = 0;
    EXPECT_EQ(pb_name_to_perrec(c.text.c_str(), record.bytes), c.result);
    EXPECT_EQ(pb_errno, c.result == 0 ? 0 : kx_err_pb_data);
    EXPECT_EQ(record.Get("fname"), c.first);
    EXPECT_EQ(record.Get("lname"), c.last);
  }
  EXPECT_EQ(pb_name_to_perrec(nullptr, record.bytes), 0);
  EXPECT_EQ(record.Get("fname") + record.Get("lname"), "");
  pb_name_to_perrec(both.c_str(), record.bytes);
  char text[64], small[63];
  EXPECT_EQ(pb_perrec_to_name(record.bytes, text, sizeof text), 0);
  EXPECT_EQ(text, both);
  EXPECT_EQ(pb_perrec_to_name(record.bytes, small, sizeof small), -1);
}

TEST(PhoneNumber, IsDividedIntoItsParts) {
  const struct {
    const char* text;
    const char* parts;  // country|area|local|extension
    const char* back;
  } kCases[] = {
      {nullptr, "|||", ""},
      {" 555", "||555|", "555"},
      {"617-555", "|617|555|", "617-555"},
      {"1 (617) 555", "1|617|555|", "1-617-555"},
      {"1/617.555-1234", "1|617|555-1234|", "1-617-555-1234"},
      {"555 x12", "||555|12", "555 x12"},
      {"555#12x3", "||555|12x3", "555 x12x3"},
      {"617-555 * 9", "|617|555|9", "617-555 x9"},
      {"x7", "|||7", " x7"},
  };
  Record record;
  pb_fax_to_perrec("1-2-3", record.bytes);
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text != nullptr ? c.text : "null");
    char back[64];
    EXPECT_EQ(pb_fax_to_perrec(c.text, record.bytes), 0);
    EXPECT_EQ(record.Get("fcntry") + "|" + record.Get("farea") + "|" +
                  record.Get("flocal") + "|" + record.Get("fext"),
              c.parts);
    EXPECT_EQ(pb_perrec_to_fax(record.bytes, back, sizeof back), 0);
    EXPECT_STREQ(back, c.back);
  }
  const std::string before(record.bytes, sizeof record.bytes);
  for (const char* text : {"123456-1-5", "1-123456-5", "5x123456",
                           "1-2-3-456789012345678901234567890123"}) {
    EXPECT_EQ(pb_fax_to_perrec(text, record.bytes), -1);
    EXPECT_EQ(std::string(record.bytes, sizeof record.bytes), before);
  }
  // A person has four of them.
  pb_fax_to_perrec("1", record.bytes);
  pb_voice_to_perrec("2", record.bytes);
  pb_pager_to_perrec("3", record.bytes);
  pb_cell_to_perrec("4", record.bytes);
  EXPECT_EQ(record.Get("flocal") + record.Get("vlocal") + record.Get("plocal") +
                record.Get("clocal"),
            "1234");
  char text[8];
  EXPECT_EQ(pb_perrec_to_cell(record.bytes, text, sizeof text), 0);
  EXPECT_STREQ(text, "4");
}

TEST(ErrorTexts, CountFromThePhoneBooksFirst) {
  EXPECT_STREQ(pb_errmsg(28), "Error # -1");
  EXPECT_STREQ(pb_errmsg(30), "Invalid person");
  EXPECT_STREQ(pb_errmsg(39), "No memory");
  EXPECT_STREQ(pb_errmsg(41), "Error # 12");
  errno = ENOENT;
  EXPECT_STREQ(pb_errmsg(kx_err_pb_system), std::strerror(ENOENT));
  db_errnum = kDbEof;
  EXPECT_STREQ(pb_errmsg(kx_err_database), "Logical EOF");
  EXPECT_EQ(px_check_errno(kx_err_person), kx_err_person);
  EXPECT_EQ(px_check_errno(kx_err_database), kx_err_server);
  EXPECT_STREQ(Kfx_Servmsg(), "Logical EOF");
}

}  // namespace
