// Handing over a fax: to another user's queue (copy and forward), or an
// uploaded file into the client's own (store).
//
// - It is always a copy; after it the original is removed, where it is a move.
//   The file itself never changes hands: whoever had it open before, if only as
//   a place, or has another name for it, would go on reading and writing what
//   is another's by now.
// - The copy is made from what is open, and is the receiver's from its first
//   byte. It has a name that no other transfer has, or none, until it is whole
//   and on the disk; only then the original goes. Whatever dies in between, the
//   fax is with one of the two.
// - Failure is told in errno: EFBIG for more bytes than an answer can carry,
//   EWOULDBLOCK for a fax that another command moves at the same moment.
#ifndef COMMANDS_CMDHAND_H_
#define COMMANDS_CMDHAND_H_

#include <sys/stat.h>

#include "faxserver/fsfolder.h"

// Where a fax comes from: its file, open for reading, and its name, which
// `reader` can see.
struct cmd_original {
  int dirfd;
  const char* name;
  kut_fsid reader;
  int fd;
  struct stat st;
};

// Copies it into the queue under the name, with the mode and its times; owner
// and group are the queue's. What has the name already is replaced, or kept,
// which fails with EEXIST. 0 or -1.
int cmd_copy_fax(const cmd_original& from, const cm_folder& to,
                 const char* name, mode_t mode, FileReplacer::Over over);
// The same, and removes the original as its reader. 0 or -1; a copy that is
// there is a success even if the original cannot be removed (it is logged).
int cmd_move_fax(const cmd_original& from, const cm_folder& to,
                 const char* name, mode_t mode, FileReplacer::Over over);

#endif  // COMMANDS_CMDHAND_H_
