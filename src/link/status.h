// How the client's functions tell their outcome.
#ifndef LINK_STATUS_H_
#define LINK_STATUS_H_

#include <string>
#include <utility>

#include "client/krtclient.h"

namespace client {

// A krt_status and the text that goes with it, empty for success.
struct [[nodiscard]] Status {
  int code = krt_ok;
  std::string text;

  Status() = default;
  Status(int status, std::string message)
      : code(status), text(std::move(message)) {}
  bool ok() const { return code == krt_ok; }
};

// A failure with the system's text for errno: "<what>: <text>". EACCES and
// EPERM become krt_no_permission whatever the code.
Status SystemFailure(int code, const std::string& what);

}  // namespace client

#endif  // LINK_STATUS_H_
