#include "faxserver/fsefifo.h"

#include <cerrno>
#include <utility>

#include "cm/cmdaemon.h"
#include "cm/cmpaths.h"
#include "faxserver/fsbytes.h"
#include "faxserver/fsdmnlst.h"
#include "faxserver/fsfifo.h"
#include "util/kutfifo.h"

namespace {

constexpr char kFifoName[] = "efifo";
constexpr mode_t kFifoMode = 0660;
constexpr size_t kUserAt = 0;
constexpr size_t kUserSize = 16;
constexpr size_t kCodeAt = 16;

constinit kut_fifo g_fifo = {};

void SendTo(const char* kfaxdir, const char* daemon, const char* spool,
            const fx_event_record& record) {
  if (fx_chk_daemon_list(kfaxdir, daemon) <= 0) return;
  const cm_path fifo = cm_join_path(spool, kFifoName);
  Kut_send_record(fifo.text, record.data(), record.size(), 0);
}

}  // namespace

fx_event_record fx_encode_event(const char* user, int32_t code) {
  fx_event_record record = {};
  fx_put_text(record, kUserAt, kUserSize, user != nullptr ? user : "");
  fx_put(record, kCodeAt, code);
  return record;
}

std::string fx_event_user(const fx_event_record& record) {
  return std::string(fx_get_text(record, kUserAt, kUserSize));
}

int32_t fx_event_record_code(const fx_event_record& record) {
  return fx_get<int32_t>(record, kCodeAt);
}

int fx_efifo_send(const char* kfaxdir, const fx_event_record& record) {
  const int saved = errno;
  SendTo(kfaxdir, kCmFileDaemon, cm_get_filspool_dir(kfaxdir), record);
  SendTo(kfaxdir, kCmNetDaemon, cm_get_netspool_dir(kfaxdir), record);
  errno = saved;
  return 0;
}

int fx_efifo_make(const char* dir) {
  return fx_fifo_make(cm_join_path(dir, kFifoName).text, kFifoMode);
}

int fx_efifo_open(const char* dir, int mode) {
  if (mode != 0 && mode != 1) {
    errno = EINVAL;
    return -1;
  }
  const cm_path path = cm_join_path(dir, kFifoName);
  kut_fifo opened;
  int* fd = mode == 0 ? &opened.reader : &opened.writer;
  *fd = mode == 0 ? Kut_open_fifo_reader(path.text)
                  : Kut_open_fifo_writer(path.text, 0);
  if (*fd < 0) return -1;
  // What was open goes with `opened`.
  std::swap(mode == 0 ? g_fifo.reader : g_fifo.writer, *fd);
  Kut_close_fifo(&opened);
  return 0;
}

int fx_efifo_read(int seconds, fx_event_record* record) {
  if (g_fifo.reader < 0) return -1;
  return Kut_read_record(g_fifo.reader, record->data(), record->size(),
                         seconds);
}

int fx_efifo_write(const fx_event_record& record) {
  if (g_fifo.writer < 0) return -1;
  return Kut_write_record(g_fifo.writer, record.data(), record.size(), 0);
}

int fx_efifo_close() { return Kut_close_fifo(&g_fifo); }
