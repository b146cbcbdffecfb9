#include "faxserver/fsfifo.h"

#include <cerrno>

#include "cm/cmkrt.h"
#include "util/kutfifo.h"
#include "util/kutfile.h"

int fx_fifo_make(const char* path, mode_t mode) {
  if (Kut_make_fifo(path, mode) == 0) {
    // Only the super-user may; a fifo of the process's own serves as well.
    static_cast<void>(
        Kut_set_file_owner(path, cm_get_krt_uid(), cm_get_krt_gid()));
    return 0;
  }
  return errno == EEXIST && Kut_is_fifo(path) ? 0 : -1;
}
