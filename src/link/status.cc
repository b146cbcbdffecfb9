#include "link/status.h"

#include <cerrno>

#include "util/kuterr.h"

namespace client {

Status SystemFailure(int code, const std::string& what) {
  const int error = errno;
  if (error == EACCES || error == EPERM) code = krt_no_permission;
  return {code, what + ": " + Kut_strerror(error)};
}

}  // namespace client
