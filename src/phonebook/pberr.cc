#include <cstdio>
#include <iterator>

#include "phonebook/pbpriv.h"
#include "util/kuterr.h"

int pb_errno = 0;

namespace {

constexpr int kFirstCode = kx_err_database;

constexpr const char* kTexts[] = {
    "Database error",
    "Invalid person",
    "Invalid group",
    "Invalid member",
    "Duplicate alias",
    "Phone-book not open",
    "Phone-book open read only",
    "Logical EOF encountered",
    "Invalid data",
    "Phone-book does not exist",
    "No memory",
    "System error",
};
static_assert(kFirstCode + std::size(kTexts) - 1 == kx_err_pb_system);

}  // namespace

int pb_fail(int code) {
  pb_errno = code;
  return -1;
}

int pb_fail_db(int absent) {
  switch (db_errno()) {
    case kDbNotFound:
      return pb_fail(absent);
    case kDbDuplicate:
      return pb_fail(kx_err_duplicate);
    case kDbEof:
      return pb_fail(kx_err_eof);
    default:
      return pb_fail(kx_err_database);
  }
}

const char* pb_errmsg(int code) {
  static char text[32];
  if (code == kx_err_database) return db_errmsg();
  if (code == kx_err_none) return Kfx_Errmsg(code);
  if (code == kx_err_pb_system) return Kut_sys_errstr();
  if (code > kx_err_database && code < kx_err_pb_system) {
    return kTexts[code - kFirstCode];
  }
  // Clients know the number counted from the phone book's first.
  snprintf(text, sizeof text, "Error # %d", code - kFirstCode);
  return text;
}
