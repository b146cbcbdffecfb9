// The state of an open book, to and from the command object that carries it.
#include <cstdio>

#include "phonebook/pbpriv.h"

namespace {

struct Cursor {
  const char* field;
  db_handle* pb_book::*handle;
};
constexpr Cursor kCursors[] = {
    {"curper", &pb_book::per},
    {"curgrp", &pb_book::grp},
    {"curmem", &pb_book::mem},
};

}  // namespace

int px_pb_fr_pbcom(kx_object* pbcom) {
  pb_book* book = pb_get_pb(kx::Enum(pbcom, "pbtype"));
  if (book == nullptr) {
    kx_errno = kx_err_data;
    return -1;
  }
  // The kind is the book's own, or it would not have been found.
  if (kx::Text(pbcom, "pbmode") != nullptr) {
    book->mode = kx::Enum(pbcom, "pbmode");
  }
  if (kx::Text(pbcom, "pbsort") != nullptr) {
    book->sort = pb_cvt_sort(kx::Enum(pbcom, "pbsort"));
  }
  for (const Cursor& cursor : kCursors) {
    if (book->open == 0 || kx::Text(pbcom, cursor.field) == nullptr) continue;
    (book->*cursor.handle)->current =
        static_cast<uint32_t>(kx::Number(pbcom, cursor.field));
  }
  pb_errno = kx_errno = kx_err_none;
  return 0;
}

int px_pb_to_pbcom(int kind, kx_object* pbcom) {
  const pb_book* book = pb_get_pb(kind);
  if (book == nullptr) {
    kx_errno = kx_err_data;
    return -1;
  }
  kx::SetEnum(pbcom, "pbtype", book->kind);
  // A mode or order that is none has no name; the field stays as it was.
  kx::SetEnum(pbcom, "pbmode", book->mode);
  kx::SetEnum(pbcom, "pbsort",
              book->sort >= 0 ? kx_pbs_unsorted + book->sort : -1);
  for (const Cursor& cursor : kCursors) {
    if (book->open == 0) continue;
    kx::SetNumber(pbcom, cursor.field,
                  static_cast<int>((book->*cursor.handle)->current));
  }
  kx_errno = kx_err_none;
  return 0;
}

int px_check_errno(int code) {
  if (code != kx_err_database) return code;
  snprintf(kx_servmsg, sizeof kx_servmsg, "%s", pb_errmsg(code));
  return kx_err_server;
}
