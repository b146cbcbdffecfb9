#include "cm/cmdaemon.h"

#include <cerrno>

#include "kx/kfx.h"
#include "util/kutstr.h"

namespace {

constexpr int kLineSize = 4096;  // a longer line counts as several

}  // namespace

bool cm_read_daemons(FILE* list, std::vector<cm_daemon>* daemons) {
  char line[kLineSize];
  while (fgets(line, sizeof line, list) != nullptr) {
    const std::string text = Kut_strip(line);
    const size_t colon = text.find(':');
    if (colon == std::string::npos) break;
    daemons->push_back({Kfx_Str_To_Long(text.c_str()), text.substr(colon + 1)});
  }
  if (ferror(list) == 0) return true;
  errno = EIO;
  return false;
}
