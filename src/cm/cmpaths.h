// Where everything lies below the fax server's root directory.
//
// - Each cm_get_* function returns its own static buffer of kCmPathSize bytes,
//   which its next call overwrites; two different functions may be used side by
//   side.
// - A path is whole or empty: one that does not fit, and one below a root or
//   user that is null or empty, is the empty text, which no system call takes
//   for a file. So is the path of a user whose name is no plain name, whoever
//   forgot to check it.
// - None of this looks at the disk.
#ifndef CM_CMPATHS_H_
#define CM_CMPATHS_H_

#include <cstddef>

// Bytes of a path, the terminator included.
constexpr size_t kCmPathSize = 256;

#define CM_ROOT_PATH(name, path) const char* cm_get_##name(const char* root);
#define CM_USER_PATH(name, path) \
  const char* cm_get_##name(const char* root, const char* user);
#include "cm/cmpaths.def"

// A path in a buffer of the caller's.
struct cm_path {
  char text[kCmPathSize];
};

// `<dir>/<name>`, under the rule above. `name` may have several components, it
// is not checked.
cm_path cm_join_path(const char* dir, const char* name);
// `<dir>/<name>` where the name is somebody else's: empty when it is no plain
// name.
cm_path cm_join_plain(const char* dir, const char* name);

// Whether a text is one plain component of a path, fit to be appended to a
// directory: not null, "", "." or "..", and without "/" and control characters.
bool cm_is_plain_name(const char* name);

#endif  // CM_CMPATHS_H_
