// What is laid out below the fax server's root, and whose it is: the rows of
// cm/cmpaths.def as a table.
#ifndef CM_CMTREE_H_
#define CM_CMTREE_H_

#include <sys/types.h>

#include <span>

enum class cm_kind { kDir, kFile, kFifo };

enum class cm_owner {
  kRoot,    // the super-user: what the daemon runs or believes
  kKrtfax,  // the fax system
  kUser,    // the fax user whose queue it is
};

// Who makes it again when it is gone. Before that the package lays it out, or
// for a user `krtctl user add`.
enum class cm_maker {
  kPackage,  // nobody but the package
  kCheck,    // `krtctl check --fix`
  kReader,   // the process that reads the fifo
  kDaemon,   // the next daemon that registers
  kUserAdd,  // `krtctl user add`
};

struct cm_tree_entry {
  const char* path;  // below the root or a user's queue; "": that itself
  cm_kind kind;
  mode_t mode;
  cm_owner owner;
  cm_owner group;
  cm_maker maker;
};

// All below the root, and all of one user's below his queue, with a "/" in
// front. Each directory comes before what lies in it.
std::span<const cm_tree_entry> cm_tree();
std::span<const cm_tree_entry> cm_user_tree();

// The ids of an owner that is no user; -1 for a user, and where the machine
// does not know the fax system's.
int cm_owner_uid(cm_owner owner);
int cm_owner_gid(cm_owner owner);

#endif  // CM_CMTREE_H_
