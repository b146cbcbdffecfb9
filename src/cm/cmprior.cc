#include "cm/cmprior.h"

#include "cm/cmtable.h"
#include "util/kutstr.h"

namespace {

constexpr cm_row kPriorities[] = {
    {"x", "none", 0},           //
    {"l", "low", 20},           //
    {"m", "medium", 40, true},  //
    {"h", "high", 60},          //
    {"u", "urgent", 80},        //
};

}  // namespace

kx_object* cm_prior_list() { return cm_row_list(kPriorities); }

const char* cm_prior_to_str(int value) {
  for (const cm_row& row : kPriorities) {
    if (row.value >= value) return cm_name_or(&row, "?");
  }
  return cm_name_or(nullptr, "?");
}

const char* cm_prior_desc(int value) {
  return cm_desc_or(cm_find_value(kPriorities, value), "?");
}

int cm_prior_fr_str(const char* text) {
  if (text == nullptr) text = cm_prior_get_default();
  for (const cm_row& row : kPriorities) {
    if (Kut_strccmp(row.name, text) == 0 || Kut_strccmp(row.desc, text) == 0) {
      return cm_value_or_none(&row);
    }
  }
  return cm_value_or_none(nullptr);
}

const char* cm_prior_get_default() {
  return cm_name_or(cm_find_default(kPriorities), "");
}
