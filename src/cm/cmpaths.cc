#include "cm/cmpaths.h"

#include <cstdio>
#include <cstring>

namespace {

bool IsEmpty(const char* text) { return text == nullptr || *text == '\0'; }

// Puts `<a>/<b><c>` into a buffer, or the empty text when it does not fit.
const char* Put(char (&out)[kCmPathSize], const char* a, const char* b,
                const char* c) {
  const int length = snprintf(out, sizeof out, "%s/%s%s", a, b, c);
  if (length < 0 || static_cast<size_t>(length) >= sizeof out) out[0] = '\0';
  return out;
}

const char* PutBelowRoot(char (&out)[kCmPathSize], const char* root,
                         const char* path) {
  out[0] = '\0';
  return IsEmpty(root) ? out : Put(out, root, path, "");
}

const char* PutBelowUser(char (&out)[kCmPathSize], const char* root,
                         const char* user, const char* path) {
  out[0] = '\0';
  char home[kCmPathSize];
  if (!cm_is_plain_name(user) || *PutBelowRoot(home, root, "faxq") == '\0') {
    return out;
  }
  return Put(out, home, user, path);
}

}  // namespace

#define CM_ROOT_PATH(name, path)                \
  const char* cm_get_##name(const char* root) { \
    static char buffer[kCmPathSize];            \
    return PutBelowRoot(buffer, root, path);    \
  }
#define CM_USER_PATH(name, path)                                  \
  const char* cm_get_##name(const char* root, const char* user) { \
    static char buffer[kCmPathSize];                              \
    return PutBelowUser(buffer, root, user, path);                \
  }
#include "cm/cmpaths.def"

cm_path cm_join_path(const char* dir, const char* name) {
  cm_path path = {};
  if (!IsEmpty(dir) && !IsEmpty(name)) Put(path.text, dir, name, "");
  return path;
}

cm_path cm_join_plain(const char* dir, const char* name) {
  return cm_is_plain_name(name) ? cm_join_path(dir, name) : cm_path{};
}

bool cm_is_plain_name(const char* name) {
  if (IsEmpty(name) || strcmp(name, ".") == 0 || strcmp(name, "..") == 0) {
    return false;
  }
  for (const char* c = name; *c != '\0'; ++c) {
    const unsigned char byte = static_cast<unsigned char>(*c);
    if (byte < 0x20 || byte == 0x7f || byte == '/') return false;
  }
  return true;
}
