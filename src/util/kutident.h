// Working on files as somebody else: the file-system identity of this process.
//
// - A daemon that is root must not touch what lies in a user's folder with
//   root's rights: the user can put a link, a fifo or another's file there at
//   any moment. So it goes there as the folder's owner, with the group of his
//   login and no other group, and can do what he could have done himself.
// - Only what the kernel asks of files changes: the user cannot send the
//   process signals or trace it, and what is open already stays usable.
// - Without the privilege to change (any process but root's) a FileIdentity
//   changes nothing, and files are reached with the process's own rights.
// - For processes with one thread. A child keeps the identity of the moment of
//   its fork until it runs a program.
#ifndef UTIL_KUTIDENT_H_
#define UTIL_KUTIDENT_H_

#include <sys/types.h>

// Whose rights are used. Root's are those of the process itself.
struct kut_fsid {
  uid_t uid = 0;
  gid_t gid = 0;
};

// The owner of the open file or directory (O_PATH is enough) and the group of
// his login; of an owner without an account, the file's group. False with errno
// when that cannot be told at present.
[[nodiscard]] bool Kut_owner_of(int fd, kut_fsid* owner);

// The group of a user's login, asked for at most once a second; -1 with errno,
// ENOENT for a user without an account.
int Kut_login_gid(uid_t uid);

// Has that identity while it lives; nested ones end in the reverse order. A
// process that cannot go back ends at once.
class FileIdentity {
 public:
  explicit FileIdentity(const kut_fsid& id);
  FileIdentity(const FileIdentity&) = delete;
  FileIdentity& operator=(const FileIdentity&) = delete;
  ~FileIdentity();
  // Whether the identity could be taken on. If not, the process's own is in
  // force (errno tells why), and nothing of that user's may be touched.
  bool held() const { return held_; }

 private:
  kut_fsid before_;
  bool changed_ = false;
  bool held_ = true;
};

#endif  // UTIL_KUTIDENT_H_
