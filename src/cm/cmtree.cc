#include "cm/cmtree.h"

#include "cm/cmkrt.h"

namespace {

#define CM_ROW(path, kind, mode, owner, group, maker)                     \
  {path,           cm_kind::kind, mode, cm_owner::owner, cm_owner::group, \
   cm_maker::maker},

constexpr cm_tree_entry kTree[] = {
#define CM_TREE CM_ROW
#include "cm/cmpaths.def"
};

constexpr cm_tree_entry kUserTree[] = {
#define CM_USER_TREE CM_ROW
#include "cm/cmpaths.def"
};

#undef CM_ROW

}  // namespace

std::span<const cm_tree_entry> cm_tree() { return kTree; }
std::span<const cm_tree_entry> cm_user_tree() { return kUserTree; }

int cm_owner_uid(cm_owner owner) {
  switch (owner) {
    case cm_owner::kRoot:
      return 0;
    case cm_owner::kKrtfax:
      return cm_get_krt_uid();
    case cm_owner::kUser:
      return -1;
  }
  return -1;
}

int cm_owner_gid(cm_owner owner) {
  switch (owner) {
    case cm_owner::kRoot:
      return 0;
    case cm_owner::kKrtfax:
      return cm_get_krt_gid();
    case cm_owner::kUser:
      return -1;
  }
  return -1;
}
