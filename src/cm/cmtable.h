// The shape that the code tables of this folder share, and their lookups. For
// the units of this folder only.
#ifndef CM_CMTABLE_H_
#define CM_CMTABLE_H_

#include <span>

#include "kx/kfx.h"

// One row: what the code is called, what it means, and the code.
struct cm_row {
  const char* name;
  const char* desc;
  int value;
  bool is_default = false;
};

using cm_table = std::span<const cm_row>;

// The result of a search, translated at the public edge: each of these sets
// kx_errno to 0 with a row and to kx_err_data without one.
const char* cm_name_or(const cm_row* row, const char* miss);
const char* cm_desc_or(const cm_row* row, const char* miss);
int cm_value_or_none(const cm_row* row);

// The first row of that value, or the first with the default mark; or null.
const cm_row* cm_find_value(cm_table table, int value);
const cm_row* cm_find_default(cm_table table);

// One "obj-resource" a row, in table order, which the caller frees. A row whose
// object cannot be made is left out. kx_errno is 0 afterwards.
kx_object* cm_row_list(cm_table table);

#endif  // CM_CMTABLE_H_
