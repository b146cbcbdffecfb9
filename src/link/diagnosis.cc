#include "link/diagnosis.h"

#include <cerrno>
#include <cstring>

#include "kx/kxobj.h"
#include "kx/object.h"
#include "util/kuterr.h"

namespace client {
namespace {

// Both of what the daemon says of the spool fifo: "Cannot open cmd fifo: " and
// "Error writing to fifo: ", before the system's words.
constexpr char kFifoFailed[] = " fifo: ";

// The daemon's system error is no number here, but its words are the end of the
// text, and they are the same in all processes of a machine.
bool SaysSystemError(kx_object* answer, int error) {
  return strstr(kx::TextOrEmpty(answer, "errmsg"), Kut_strerror(error)) !=
         nullptr;
}

// The number's own text. Kfx_Errmsg would put this process's own errors into
// those of the far side.
std::string TextOf(int result) {
  switch (result) {
    case kx_err_server:
      return "Server error";
    case kx_err_system:
      return "System error";
    default:
      return Kfx_Errmsg(result);
  }
}

}  // namespace

Status Refusal(kx_object* answer) {
  const int result = kx::Number(answer, "result");
  if (result == kx_err_none) return {};
  const std::string said = kx::TextOrEmpty(answer, "errmsg");
  std::string text = TextOf(result);
  const std::string tail = ": " + text;
  const bool repeats = said.size() > tail.size() && said.ends_with(tail);
  if (!said.empty() && !repeats) text = said;
  return {krt_refused, text + " (" + std::to_string(result) + ")"};
}

int StatusOfResult(kx_object* answer) {
  const int result = kx::Number(answer, "result");
  switch (result) {
    case kx_err_none:
      return krt_ok;
    case kx_err_system:
      // What does not exist is no trouble of the system's.
      return SaysSystemError(answer, ENOENT) ? krt_refused : krt_system;
    case kx_err_memory:
    case kx_err_pb_memory:
      return krt_system;
    case kx_err_user:
      return krt_no_user;
    case kx_err_permission:
      return krt_no_permission;
    case kx_err_no_scheduler:
      return krt_unavailable;
    default:
      return krt_refused;
  }
}

bool IsOfTheQueueingSide(kx_object* answer) {
  return strstr(kx::TextOrEmpty(answer, "errmsg"), kFifoFailed) != nullptr;
}

}  // namespace client
