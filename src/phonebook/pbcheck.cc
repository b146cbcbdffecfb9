#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "phonebook/pbpriv.h"

namespace {

constexpr int kLockWaitMs = 500;

// Has `what` done to a table of a book, in the book's folder.
int InFolder(int kind, const char* table,
             int (*what)(const char*, db_report, void*), db_report report,
             void* context) {
  const pb_book* book = pb_get_pb(kind);
  if (book == nullptr) return -1;
  pb_folder folder;
  if (pb_folder_open(*book, &folder) != 0) return pb_fail(kx_err_no_book);
  folder.budget = {kLockWaitMs, -1};
  char name[16];
  snprintf(name, sizeof name, "%s.dat", pb_per_name);
  struct stat st;
  const pb_visit visit(&folder);
  if (fstatat(folder.at.fd(), name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return pb_fail(kx_err_no_book);
  }
  if (!visit.held()) return pb_fail(kx_err_pb_system);
  snprintf(name, sizeof name, "%s.dat", table);
  if (what(name, report, context) == 0) return pb_succeed();
  if (db_errno() != kDbForbidden) return pb_fail(kx_err_database);
  errno = EACCES;
  return pb_fail(kx_err_pb_system);
}

}  // namespace

int pb_check(int kind, const char* table, db_report report, void* context) {
  return InFolder(kind, table, db_check, report, context);
}

int pb_repair(int kind, const char* table, db_report report, void* context) {
  return InFolder(kind, table, db_repair, report, context);
}
