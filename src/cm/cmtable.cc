#include "cm/cmtable.h"

#include "kx/object.h"

namespace {

const cm_row* Found(const cm_row* row) {
  kx_errno = row != nullptr ? kx_err_none : kx_err_data;
  return row;
}

}  // namespace

const char* cm_name_or(const cm_row* row, const char* miss) {
  return Found(row) != nullptr ? row->name : miss;
}

const char* cm_desc_or(const cm_row* row, const char* miss) {
  return Found(row) != nullptr ? row->desc : miss;
}

int cm_value_or_none(const cm_row* row) {
  return Found(row) != nullptr ? row->value : -1;
}

const cm_row* cm_find_value(cm_table table, int value) {
  for (const cm_row& row : table) {
    if (row.value == value) return &row;
  }
  return nullptr;
}

const cm_row* cm_find_default(cm_table table) {
  for (const cm_row& row : table) {
    if (row.is_default) return &row;
  }
  return nullptr;
}

kx_object* cm_row_list(cm_table table) {
  kx::ListBuilder list;
  for (const cm_row& row : table) {
    kx::Object resource = kx::Build("obj-resource");
    if (resource == nullptr) continue;
    kx::SetText(resource.get(), "rname", row.name);
    kx::SetText(resource.get(), "rdesc", row.desc);
    list.Append(std::move(resource));
  }
  kx_errno = kx_err_none;
  return list.Take().release();
}
