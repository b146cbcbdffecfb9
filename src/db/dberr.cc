#include <cstdio>
#include <iterator>

#include "db/dbpriv.h"

int db_errnum = kDbOk;
int db_ct_errno = kIsamOk;
char db_errbuf[256] = "";

namespace {

constexpr const char* kTexts[] = {
    "No error",        "Database error",   "No memory",
    "Invalid data",    "Invalid field",    "Database not found",
    "Database exists", "Record not found", "Database opened read-only",
    "Duplicate key",   "Logical EOF",      "Cannot get lock for record",
};

}  // namespace

int db_fail(int error) {
  db_errnum = error;
  return -1;
}

int db_fail_store(int code, const db_code_pair* pairs, int count) {
  db_ct_errno = code;
  for (int i = 0; i < count; ++i) {
    if (pairs[i].code == code) return db_fail(pairs[i].error);
  }
  return db_fail(kDbStore);
}

int db_errno() { return db_errnum; }

const char* db_errmsg() {
  static char text[32];
  if (db_errnum == kDbStore) return db_ct_errmsg(-1);
  if (db_errnum == kDbField) return db_errbuf;
  if (db_errnum >= 0 && db_errnum < static_cast<int>(std::size(kTexts))) {
    return kTexts[db_errnum];
  }
  snprintf(text, sizeof text, "Database error %d", db_errnum);
  return text;
}

const char* db_ct_errmsg(int code) {
  static char text[40];
  if (code == -1) code = db_ct_errno;
  const char* known = isam_errmsg(code);
  if (known != nullptr) return known;
  snprintf(text, sizeof text, "C-Tree error code # %d", code);
  return text;
}
