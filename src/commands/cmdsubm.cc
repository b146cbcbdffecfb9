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

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/kfifo.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsfolder.h"
#include "kx/kxtext.h"
#include "util/kuterr.h"
#include "util/kutstr.h"

namespace {

constexpr std::size_t kNameSize = 16;
constexpr std::size_t kHostSize = KFIFO_RECORD_SIZE - kNameSize;
constexpr mode_t kQueuedMode = 0660;

// Writes the whole command to a new file, and onto the disk: nobody asks the
// client for it again. False with kx_errno.
bool Write(kx_object* cmd, int dirfd, const char* name) {
  unlinkat(dirfd, name, 0);  // left by a process of this pid that died
  UniqueFd fd(Kut_open_at(dirfd, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW,
                          kQueuedMode));
  kx_errno = kx_err_system;
  if (!fd.valid()) return false;
  fx_give_to_krt(fd.get(), kQueuedMode);
  const fx_stream stream(fdopen(fd.get(), "w"));
  if (stream == nullptr) return false;
  const int file = fd.release();
  if (Kfx_Decomp_Obj(cmd, kx_write_pair_fp, stream.get(), 0) != 0) return false;
  kx_errno = kx_err_system;
  return fflush(stream.get()) == 0 && ferror(stream.get()) == 0 &&
         fsync(file) == 0;
}

// Gives the file `temp` its name, the exchange name, or with -1, -2, ... while
// an earlier command of that name is still queued: exchange names come again. A
// link, unlike a rename, never takes the name from another file.
bool TakeName(int dirfd, const char* temp, const char* exchange,
              char (&name)[kNameSize]) {
  int length = snprintf(name, sizeof name, "%s", exchange);
  for (int n = 1; length < static_cast<int>(sizeof name); ++n) {
    if (linkat(dirfd, temp, dirfd, name, 0) == 0) return true;
    if (errno != EEXIST) return false;
    length = snprintf(name, sizeof name, "%s-%d", exchange, n);
  }
  errno = ENAMETOOLONG;
  return false;
}

// Saves the command under a name of its own in the queued directory. False with
// kx_errno.
bool SaveQueued(kx_object* cmd, const cm_folder& queued,
                char (&name)[kNameSize]) {
  const char* exchange = kx_tmp_name(cmd);
  if (exchange == nullptr) return false;
  kx_errno = kx_err_system;
  const FileIdentity owner = queued.Enter();
  if (!queued.valid() || !owner.held()) return false;
  const UniqueFd dir(Kut_open_at(queued.fd(), ".", O_RDONLY | O_DIRECTORY));
  if (!dir.valid()) return false;
  const int dirfd = dir.get();
  char temp[32];
  snprintf(temp, sizeof temp, ".%d.new", static_cast<int>(getpid()));
  bool named = false;
  if (Write(cmd, dirfd, temp)) {
    kx_errno = kx_err_system;
    named = TakeName(dirfd, temp, exchange, name);
  }
  int saved = errno;
  unlinkat(dirfd, temp, 0);
  const bool durable = named && fsync(dirfd) == 0;
  if (named && !durable) {
    saved = errno;
    unlinkat(dirfd, name, 0);
  }
  errno = saved;
  if (durable) kx_errno = kx_err_none;
  return durable;
}

void Remove(const cm_folder& queued, const char* name) {
  const FileIdentity owner = queued.Enter();
  if (owner.held()) unlinkat(queued.fd(), name, 0);
}

// The directory of the spool fifo: the watched one or, without a fifo there,
// the protocol's own.
const char* FifoDirectory() {
  struct stat st;
  const cm_path path = cm_join_path(file_dir, "kfifo");
  // Where others can write the directory, one of theirs announces to nobody.
  const bool there =
      lstat(path.text, &st) == 0 && S_ISFIFO(st.st_mode) &&
      (st.st_uid == geteuid() || cm_is_krt_admin(static_cast<int>(st.st_uid)));
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
  const cm_folder queued = cm_open_folder(kfaxdir, cm_get_queued_dir(kfaxdir));
  char name[kNameSize];
  if (!SaveQueued(cmd, queued, name)) {
    return cmd_fail_why(rsp, kx_err_failed, "Cannot queue cmd");
  }
  const char* failed = Announce(name, kx::TextOrEmpty(rsp, "hostname"));
  if (failed != nullptr) {
    const int error = errno;
    Remove(queued, name);
    return cmd_fail(rsp, kx_err_failed, "%s: %s", failed, Kut_strerror(error));
  }
  kx::SetBool(cmd, "respond", kx::Bool(cmd, "respond") == 0);
  return cmd_succeed(rsp);
}
