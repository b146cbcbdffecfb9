#include "cm/cmstatus.h"

#include <iterator>

#include "kx/object.h"

namespace {

constexpr const char* kStates[] = {
    "not running",   "initializing",  "idle",      "sending",
    "receiving",     "problems",      "cleanup",   "opening tty",
    "incoming data", "outgoing data", "answering",
};

}  // namespace

const char* cm_state_str(int state) {
  const bool known = state >= 0 && state < static_cast<int>(std::size(kStates));
  kx_errno = known ? kx_err_none : kx_err_data;
  return known ? kStates[state] : "?";
}
