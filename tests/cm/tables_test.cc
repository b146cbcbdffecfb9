#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "cm/cmfiltp.h"
#include "cm/cmprior.h"
#include "cm/cmreso.h"
#include "cm/cmresult.h"
#include "cm/cmstatus.h"
#include "support/objects.h"

namespace {

// The text of each value, and the error beside it.
void CheckToText(const char* (*function)(int),
                 const std::vector<std::tuple<int, const char*, int>>& all) {
  for (const auto& [value, text, error] : all) {
    kx_errno = -7;
    EXPECT_STREQ(function(value), text) << value;
    EXPECT_EQ(kx_errno, error) << value;
  }
}

void CheckFromText(int (*function)(const char*),
                   const std::vector<std::tuple<const char*, int, int>>& all) {
  for (const auto& [text, value, error] : all) {
    kx_errno = -7;
    EXPECT_EQ(function(text), value) << (text != nullptr ? text : "(null)");
    EXPECT_EQ(kx_errno, error) << value;
  }
}

TEST(Priorities, RoundUpAndReadNameOrDescriptionInAnyCase) {
  CheckToText(
      cm_prior_to_str,
      {{-5, "x", 0}, {30, "m", 0}, {41, "h", 0}, {80, "u", 0}, {81, "?", 19}});
  CheckToText(cm_prior_desc, {{40, "medium", 0}, {41, "?", 19}});
  CheckFromText(
      cm_prior_fr_str,
      {{"MEDIUM", 40, 0}, {"Urg", 80, 0}, {nullptr, 40, 0}, {"fast", -1, 19}});
  EXPECT_STREQ(cm_prior_get_default(), "m");
}

TEST(Resolutions, ReadNamesExactlyAndNoDescriptions) {
  CheckToText(cm_reso_to_str, {{2, "std", 0}, {3, "fine", 0}, {1, "?", 19}});
  CheckToText(cm_reso_desc, {{2, "standard", 0}, {-1, "?", 19}});
  CheckFromText(cm_reso_fr_str, {{"fine", 3, 0},
                                 {"Fine", -1, 19},
                                 {"standard", -1, 19},
                                 {nullptr, 2, 0}});
}

TEST(Results, FirstRowOfANameWins) {
  CheckToText(
      cm_result_to_str,
      {{0, "      ", 0}, {2, "CANCEL", 0}, {13, "?", 19}, {1009, "?", 19}});
  CheckToText(cm_result_to_desc,
              {{2, "Cancelled - idle", 0}, {1008, "Submitted", 0}});
  CheckFromText(
      cm_result_fr_str,
      {{"CANCEL", 3, 0}, {"BUSY", -1, 19}, {"BUSY  ", 4, 0}, {nullptr, 0, 0}});
  CheckFromText(cm_result_fr_desc,
                {{"Cancelled", 1004, 0}, {"queued", -1, 19}, {nullptr, 0, 0}});
}

TEST(Tables, AreListedInTheirOrder) {
  const auto shown = [](kx_object* list) {
    return Shown(kx::Object(list), {"rname", "rdesc"});
  };
  EXPECT_EQ(shown(cm_prior_list()), "x=none;l=low;m=medium;h=high;u=urgent;");
  EXPECT_EQ(shown(cm_reso_list()), "std=standard;fine=fine;");
  const std::string results = shown(cm_result_list());
  EXPECT_NE(results.find(";CANCEL=Cancelled - work;CANCEL=Cancelled - idle;"),
            results.npos)
      << results;
  EXPECT_EQ(kx_errno, 0);
}

TEST(DeviceStates, AreKnownFromNoneToTen) {
  CheckToText(cm_state_str, {{-1, "?", 19},
                             {0, "not running", 0},
                             {10, "answering", 0},
                             {11, "?", 19}});
}

TEST(FileTypes, AreToldByTheExactExtension) {
  const std::pair<const char*, const char*> cases[] = {
      {"a.tif", "tif"}, {"/x/b.ps", "ps"},    {"c.pcl", "pcl"},
      {"d.fax", "fax"}, {"d.txt", "txt"},     {"d.TIF", "txt"},
      {"plain", "txt"}, {"dir.fax/f", "txt"}, {"f.fax.gz", "txt"},
      {"", "txt"},      {".fax", "fax"},
  };
  for (const auto& [path, type] : cases) {
    EXPECT_STREQ(cm_filetype(path), type) << path;
  }
}

}  // namespace
