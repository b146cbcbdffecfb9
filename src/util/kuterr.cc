#include "util/kuterr.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t kTextSize = 256;

const char* CopyText(int errnum, char (&buffer)[kTextSize]) {
  const int saved = errno;
  char scratch[kTextSize];
  snprintf(buffer, sizeof buffer, "%s",
           strerror_r(errnum, scratch, sizeof scratch));
  errno = saved;
  return buffer;
}

}  // namespace

const char* Kut_sys_errstr() {
  static char buffer[kTextSize];
  return CopyText(errno, buffer);
}

const char* Kut_strerror(int errnum) {
  static char buffer[kTextSize];
  return CopyText(errnum, buffer);
}

bool Kut_is_shortage(int errnum) {
  switch (errnum) {
    case EAGAIN:
    case EDQUOT:
    case EINTR:
    case EIO:
    case EMFILE:
    case ENFILE:
    case ENOMEM:
    case ENOSPC:
      return true;
    default:
      return false;
  }
}
