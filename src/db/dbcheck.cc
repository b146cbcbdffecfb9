#include "db/dbpriv.h"

namespace {

int Run(int (*what)(const char*, isam_report, void*), const char* path,
        db_report report, void* context) {
  static constexpr db_code_pair kCodes[] = {{kIsamNoPermission, kDbForbidden}};
  if (db_init() != 0) return -1;
  const int code = what(path, report, context);
  static_cast<void>(db_end());
  return code == kIsamOk ? 0 : db_fail_store(code, kCodes);
}

}  // namespace

int db_check(const char* path, db_report report, void* context) {
  return Run(isam_check, path, report, context);
}

int db_repair(const char* path, db_report report, void* context) {
  return Run(isam_rebuild, path, report, context);
}
