#include "cm/cmreso.h"

#include <cstring>

#include "cm/cmtable.h"

namespace {

constexpr cm_row kResolutions[] = {
    {"std", "standard", 2, true},
    {"fine", "fine", 3},
};

}  // namespace

kx_object* cm_reso_list() { return cm_row_list(kResolutions); }

const char* cm_reso_to_str(int value) {
  return cm_name_or(cm_find_value(kResolutions, value), "?");
}

const char* cm_reso_desc(int value) {
  return cm_desc_or(cm_find_value(kResolutions, value), "?");
}

int cm_reso_fr_str(const char* text) {
  if (text == nullptr) text = cm_reso_get_default();
  for (const cm_row& row : kResolutions) {
    if (strcmp(row.name, text) == 0) return cm_value_or_none(&row);
  }
  return cm_value_or_none(nullptr);
}

const char* cm_reso_get_default() {
  return cm_name_or(cm_find_default(kResolutions), "");
}
