#include "kx/object.h"
#include "util/kuterr.h"

extern "C" {
int kx_errno = 0;
int kx_serverr = 0;
char kx_servmsg[256] = "";
}

namespace {

constexpr const char* kMessages[] = {
#define KX_ERROR(code, name, text) text,
#include "kx/kxerror.def"
#undef KX_ERROR
};
constexpr int kMessageCount = static_cast<int>(std::size(kMessages));

// A number is its row's place in the table.
constexpr bool NumbersAreInOrder() {
  int next = 0;
#define KX_ERROR(code, name, text) \
  if (code != next++) return false;
#include "kx/kxerror.def"
#undef KX_ERROR
  return true;
}
static_assert(NumbersAreInOrder());

}  // namespace

int Kfx_Errno() { return kx_errno; }

int Kfx_Serverr() { return kx_serverr; }

const char* Kfx_Servmsg() { return kx_servmsg; }

const char* Kfx_Errmsg(int code) {
  static char buffer[32];
  if (code == kx_err_system) return Kut_sys_errstr();
  if (code == kx_err_server) return kx_servmsg;
  if (code >= 0 && code < kMessageCount) return kMessages[code];
  snprintf(buffer, sizeof buffer, "Error # %d", code);
  return buffer;
}
