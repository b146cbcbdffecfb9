// "cmd-sendfax"
//
// The record on the spool fifo, 80 bytes:
//
//     offset  size  content
//          0    16  file name in the queued directory, padded with NULs
//         16    64  host of the client, padded with NULs
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cm/cmpaths.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/kfifo.h"
#include "daemon/settings.h"
#include "faxserver/fsfile.h"
#include "kx/kxobj.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kutstr.h"

namespace {

constexpr std::size_t kNameSize = 16;
constexpr std::size_t kHostSize = KFIFO_RECORD_SIZE - kNameSize;
constexpr mode_t kQueuedMode = 0660;

// Gives the file `temp` its name, the exchange name, or with -1, -2, ... while
// an earlier command of that name is still queued: exchange names come again. A
// link, unlike a rename, never takes the name from another file.
bool TakeName(const char* dir, const char* temp, const char* exchange,
              char (&name)[kNameSize]) {
  int length = std::snprintf(name, sizeof name, "%s", exchange);
  for (int n = 1; length < static_cast<int>(sizeof name); ++n) {
    if (Kut_link_file(temp, cm_join_plain(dir, name).text) == 0) return true;
    if (errno != EEXIST) return false;
    length = std::snprintf(name, sizeof name, "%s-%d", exchange, n);
  }
  errno = ENAMETOOLONG;
  return false;
}

// Gives the saved command to the fax system and onto the disk: nobody asks the
// client for it again.
bool Settle(const char* path) {
  const UniqueFd fd = fx_open_file(AT_FDCWD, path, fx_links::kRefuse, nullptr);
  if (!fd.valid()) return false;
  fx_give_to_krt(fd.get(), kQueuedMode);
  return fsync(fd.get()) == 0;
}

bool SyncDirectory(const char* dir) {
  const UniqueFd fd(Kut_open(dir, O_RDONLY | O_DIRECTORY));
  return fd.valid() && fsync(fd.get()) == 0;
}

// Saves the command under a name of its own in the queued directory. False with
// kx_errno.
bool SaveQueued(kx_object* cmd, const char* dir, char (&name)[kNameSize]) {
  const char* exchange = kx_tmp_name(cmd);
  if (exchange == nullptr) return false;
  char temp_name[32];
  std::snprintf(temp_name, sizeof temp_name, ".%d.new",
                static_cast<int>(getpid()));
  const cm_path temp = cm_join_path(dir, temp_name);
  if (Kfx_Save_Obj(cmd, temp.text) != 0) return false;
  bool queued = Settle(temp.text) && TakeName(dir, temp.text, exchange, name);
  int saved = errno;
  Kut_delete_file(temp.text);
  if (queued && !SyncDirectory(dir)) {
    saved = errno;
    Kut_delete_file(cm_join_plain(dir, name).text);
    queued = false;
  }
  errno = saved;
  kx_errno = queued ? kx_err_none : kx_err_system;
  return queued;
}

// The directory of the spool fifo: the watched one or, without a fifo there,
// the protocol's own.
const char* FifoDirectory() {
  struct stat st;
  const cm_path path = cm_join_path(file_dir, "kfifo");
  const bool there = lstat(path.text, &st) == 0 && S_ISFIFO(st.st_mode);
  return there ? file_dir : netspool;
}

// Writes the record; on failure the step that failed, with errno, else null.
const char* Announce(const char* name, const char* hostname) {
  char record[KFIFO_RECORD_SIZE];
  Kut_strcpyz(record, name, kNameSize);
  Kut_strcpyz(record + kNameSize, hostname, kHostSize);
  if (kfifo_open(FifoDirectory(), 1) != 0) return "Cannot open cmd fifo";
  const bool written = kfifo_write(record) == 0;
  const int saved = errno;
  kfifo_close();
  errno = saved;
  return written ? nullptr : "Error writing to fifo";
}

}  // namespace

int process_submit(kx_object* cmd, kx_object* rsp) {
  const char* dir = cm_get_queued_dir(kfaxdir);
  char name[kNameSize];
  if (!SaveQueued(cmd, dir, name)) {
    return cmd_fail(rsp, kx_err_failed, "Cannot queue cmd: %s",
                    Kfx_Errmsg(Kfx_Errno()));
  }
  const char* failed = Announce(name, kx::TextOrEmpty(rsp, "hostname"));
  if (failed != nullptr) {
    const int error = errno;
    Kut_delete_file(cm_join_plain(dir, name).text);
    return cmd_fail(rsp, kx_err_failed, "%s: %s", failed, Kut_strerror(error));
  }
  kx::SetBool(cmd, "respond", kx::Bool(cmd, "respond") == 0);
  return cmd_succeed(rsp);
}
