#include "cm/cmresult.h"

#include <cstring>

#include "cm/cmtable.h"
#include "kx/object.h"

namespace {

constexpr cm_row kResults[] = {
#define CM_RESULT(id, code, name, desc) {name, desc, id},
#include "cm/cmresult.def"
#undef CM_RESULT
};

int FindText(const char* cm_row::*column, const char* text) {
  if (text == nullptr) {
    kx_errno = kx_err_none;
    return 0;
  }
  for (const cm_row& row : kResults) {
    if (strcmp(row.*column, text) == 0) return cm_value_or_none(&row);
  }
  return cm_value_or_none(nullptr);
}

}  // namespace

kx_object* cm_result_list() { return cm_row_list(kResults); }

const char* cm_result_to_str(int code) {
  return cm_name_or(cm_find_value(kResults, code), "?");
}

const char* cm_result_to_desc(int code) {
  return cm_desc_or(cm_find_value(kResults, code), "?");
}

int cm_result_fr_str(const char* name) { return FindText(&cm_row::name, name); }

int cm_result_fr_desc(const char* desc) {
  return FindText(&cm_row::desc, desc);
}
