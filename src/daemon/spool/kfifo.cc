#include "daemon/spool/kfifo.h"

#include <limits.h>
#include <sys/stat.h>

#include <cstdio>

#include "cm/cmkrt.h"
#include "faxserver/fsfifo.h"
#include "util/kutfifo.h"
#include "util/kutfile.h"

namespace {

constexpr mode_t kMode = 0664;

constinit kut_fifo g_fifo = {};

struct Path {
  explicit Path(const char* dir) {
    snprintf(text, sizeof text, "%s/kfifo", dir);
  }
  char text[PATH_MAX];
};

}  // namespace

int kfifo_make(const char* dir) {
  const Path path(dir);
  struct stat st;
  if (stat(path.text, &st) == 0) return 0;
  if (Kut_make_fifo(path.text, kMode) != 0) return -1;
  return Kut_set_file_owner(path.text, cm_get_krt_uid(), cm_get_krt_gid());
}

int kfifo_open(const char* dir, int write_only) {
  const Path path(dir);
  kfifo_close();
  if (write_only == 0) {
    g_fifo.reader = Kut_open_fifo_reader(path.text);
    if (g_fifo.reader < 0) return -1;
  }
  g_fifo.writer = Kut_open_fifo_writer(path.text, kFxFifoSeconds);
  if (g_fifo.writer >= 0) return 0;
  kfifo_close();
  return -1;
}

int kfifo_close() { return Kut_close_fifo(&g_fifo); }

int kfifo_write(const void* record) {
  if (g_fifo.writer < 0) return -1;
  return Kut_write_record(g_fifo.writer, record, KFIFO_RECORD_SIZE,
                          kFxFifoSeconds);
}

int kfifo_read(void* record, int secs) {
  if (g_fifo.reader < 0) return -1;
  return Kut_read_record(g_fifo.reader, record, KFIFO_RECORD_SIZE, secs);
}
