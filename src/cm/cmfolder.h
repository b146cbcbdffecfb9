// Folders that belong to others than root: a user's queue directory and those
// in it, and the fax system's own.
//
// - Their owner may put anything there at any moment. So they are reached
//   through descriptors, one component of the path after the other; and a
//   daemon that is root works in each as its owner (util/kutident.h), who could
//   do all of it himself. Below a queue directory no link is followed.
// - On failure errno tells why.
#ifndef CM_CMFOLDER_H_
#define CM_CMFOLDER_H_

#include <utility>

#include "util/kutident.h"
#include "util/kutio.h"

// One folder, open, and whose it is.
class cm_folder {
 public:
  cm_folder() = default;
  cm_folder(UniqueFd fd, const kut_fsid& owner)
      : fd_(std::move(fd)), owner_(owner) {}

  bool valid() const { return fd_.valid(); }
  // For names in it, not for reading its entries; -1 when it is not valid.
  int fd() const { return fd_.get(); }
  const kut_fsid& owner() const { return owner_; }
  // Works as the owner while the result lives; to be asked whether it could.
  FileIdentity Enter() const { return FileIdentity(owner_); }

 private:
  UniqueFd fd_;
  kut_fsid owner_;
};

// Whether the path is the root directory's, or that of something below it.
bool cm_is_in_tree(const char* root, const char* path);

// Opens a folder at or below the fax server's root directory, which is named by
// whoever started this process and is what it is. Below it only the fax system
// or an administrator can put links, and they are followed, but as the owner of
// the folder that they lie in: whoever can be the fax system is not yet root,
// and so what is root's in a folder of the fax system's is entered as that.
// ENOENT for a path that is not in the tree.
cm_folder cm_open_folder(const char* root, const char* path);

// Opens the folder of that name in another, as that one's owner. What the fax
// system's user has made for itself in a user's folder, or a user's in the fax
// system's, is then entered as its own owner; what one of root's or of a third
// user's is doing there is not known, and it is entered with the rights of the
// folder's owner.
cm_folder cm_open_below(const cm_folder& folder, const char* name);
// The same, made when missing: as open as the folder that it is in, whatever
// the umask, but that others cannot write it, and the group only where it is
// inherited.
cm_folder cm_make_below(const cm_folder& folder, const char* name);

#endif  // CM_CMFOLDER_H_
