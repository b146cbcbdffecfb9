#include "cm/cmkrt.h"

#include "util/kutuser.h"

namespace {

constexpr char kName[] = "krtfax";

}  // namespace

const char* cm_get_krt_name() { return kName; }
const char* cm_get_krt_uname() { return kName; }
const char* cm_get_krt_gname() { return kName; }

int cm_get_krt_uid() {
  static constinit int uid = -1;
  if (uid == -1) uid = Kut_uname_to_uid(cm_get_krt_uname());
  return uid;
}

int cm_get_krt_gid() {
  static constinit int gid = -1;
  if (gid == -1) gid = Kut_gname_to_gid(cm_get_krt_gname());
  return gid;
}

bool cm_is_krt_admin(int uid) {
  return uid == 0 || (uid > 0 && uid == cm_get_krt_uid());
}
