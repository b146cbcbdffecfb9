// Writing response files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "cm/cmlimits.h"
#include "daemon/spool/logfile.h"
#include "daemon/spool/settings.h"
#include "daemon/spool/sxfile.h"
#include "daemon/spool/sxsave.h"
#include "daemon/spool/sxspool.h"
#include "faxserver/fsfolder.h"
#include "kx/kxtext.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kutio.h"

namespace {

constexpr size_t kNameSize = 64;  // bytes of any name made here
constexpr int kTries = 3;

// One response is written at a time, and its buffer must not be allocated for
// every exchange.
char g_buffer[16384];

int Fail(int error) {
  kx_errno = error;
  return -1;
}

int FailWith(int error) {
  errno = error;
  return -1;
}

// ---- What lies in a response's place ----

bool IsOurs(uid_t uid) { return uid == 0 || uid == spool_self(); }

bool Look(int dirfd, const char* name, struct stat* st) {
  return fstatat(dirfd, name, st, AT_SYMLINK_NOFOLLOW) == 0;
}

// A fresh name beside that of an exchange: <exchange>-<number>.<ext>.
int NameBeside(const char* name, const char* ext, char (&fresh)[kNameSize]) {
  const int base = static_cast<int>(Kut_get_file_ext(name) - name) - 1;
  return spool_fresh_name(name, base, ext, fresh, sizeof fresh);
}

// Frees the name: a directory, which cannot be removed if there is something in
// it, is moved aside, everything else removed. 0, or -1 with errno.
int Clear(int dirfd, const char* name) {
  if (unlinkat(dirfd, name, 0) == 0 || errno == ENOENT) return 0;
  struct stat st;
  if (errno != EISDIR || !Look(dirfd, name, &st)) return -1;
  char aside[kNameSize];
  if (NameBeside(name, "trap", aside) != 0 ||
      Kut_rename_fresh(dirfd, name, aside) != 0) {
    return -1;
  }
  dmn_logf("Moved directory %s of uid %u aside: %s", name, st.st_uid, aside);
  return 0;
}

// Whether a regular file that is neither the receiver's nor ours has the name:
// somebody else's answer.
bool IsAnothers(int dirfd, const char* name, uid_t receiver) {
  struct stat st;
  return Look(dirfd, name, &st) && S_ISREG(st.st_mode) &&
         st.st_uid != receiver && !IsOurs(st.st_uid);
}

// ---- The temporary file ----

int CreateAfresh(int dirfd, const char* name) {
  return Kut_open_at(dirfd, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW,
                     0600);
}

// Creates the file although something has its name, which was left by a process
// that died, or put there as a trap. What may be another user's answer, which
// is just being written, is left alone, as is a trap that this process may not
// remove (only root may, in a directory with the sticky bit): the file takes
// another name.
int CreateInPlace(int dirfd, char (&name)[kNameSize], uid_t receiver) {
  struct stat st;
  if (Look(dirfd, name, &st)) {
    if (S_ISDIR(st.st_mode) && IsOurs(st.st_uid)) return FailWith(EISDIR);
    if (!IsAnothers(dirfd, name, receiver)) {
      int fd = Clear(dirfd, name) == 0 ? CreateAfresh(dirfd, name) : -1;
      if (fd >= 0 || IsOurs(st.st_uid)) return fd;
      dmn_logf("Cannot remove %s of uid %u: %s", name, st.st_uid,
               Kut_sys_errstr());
    }
    char other[kNameSize];
    if (NameBeside(name, "tmp", other) != 0) return -1;
    strcpy(name, other);
  }
  return CreateAfresh(dirfd, name);
}

// Any client of the fax system's may take a response; but where outsiders can
// enter the directory, what was given to its receiver is for him alone.
mode_t ModeFor(int dirfd, uid_t receiver) {
  if (receiver == spool_self() || spool_self() != 0) return 0666;
  struct stat st;
  const bool closed = fstat(dirfd, &st) == 0 && (st.st_mode & S_IXOTH) == 0;
  return closed ? 0666 : 0600;
}

// Creates the receiver's temporary file, under `name` or, where that cannot be
// had, one that it writes there.
UniqueFd CreateTemporary(int dirfd, char (&name)[kNameSize], uid_t receiver) {
  UniqueFd fd(CreateAfresh(dirfd, name));
  if (!fd.valid() && errno == EEXIST) {
    fd.reset(CreateInPlace(dirfd, name, receiver));
  }
  // The client may be anybody, whatever the umask says, and in a directory with
  // the sticky bit it can only remove what is its own. Nobody can open the file
  // before it has changed hands.
  if (fd.valid() && (spool_give(fd.get(), receiver) != 0 ||
                     fchmod(fd.get(), ModeFor(dirfd, receiver)) != 0)) {
    const int saved = errno;
    unlinkat(dirfd, name, 0);
    errno = saved;
    fd.reset();
  }
  return fd;
}

// Whether `name` is still that of the open file: from the moment the file was
// the receiver's, he could rename it and put something else there.
bool HasName(int fd, int dirfd, const char* name) {
  struct stat open, named;
  return fstat(fd, &open) == 0 && Look(dirfd, name, &named) &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

// ---- Content ----

// What is embedded lies in a user's folder, where a daemon that is root has no
// business with root's rights.
int OpenEmbedded(const char* path) {
  return fx_open_path(kfaxdir, path).release();
}

// A response's stream, and what the files in it may still weigh.
struct Sink {
  FILE* stream;
  long left;
};

// write_pair, which ends a response at a file that is too large. Its size was
// looked at before, but its owner can make it grow for as long as it is read.
int WriteWithin(void* context, const char* name, const char* value, int code) {
  auto* sink = static_cast<Sink*>(context);
  if (code == kx_write_file_data) sink->left -= *value - ' ';
  return sink->left < 0 ? -1 : write_pair(sink->stream, name, value, code);
}

ssize_t WriteOut(void* fd, const char* data, size_t size) {
  const int result = Kut_write_full(*static_cast<int*>(fd), data, size);
  return result == 0 ? static_cast<ssize_t>(size) : 0;
}

// Writes the whole response to `fd` and closes it: 0, or the failing step's
// result.
int WriteResponse(UniqueFd fd, kx_object* rsp, sx_files files) {
  int number = fd.get();
  // Spares what fdopen asks the system about a descriptor.
  cookie_io_functions_t functions{};
  functions.write = WriteOut;
  FILE* stream = fopencookie(&number, "w", functions);
  if (stream == nullptr) return Fail(kx_err_system);
  setvbuf(stream, g_buffer, _IOFBF, sizeof g_buffer);
  Sink sink = {stream, cm_limit(cm_limit_id::kFileBytes)};
  kx_open_with(OpenEmbedded);
  const int result = Kfx_Decomp_Obj(rsp, WriteWithin, &sink,
                                    files == sx_files::kEmbedded ? 1 : 0);
  const int error = kx_errno;
  const bool failed = ferror(stream) != 0;
  const bool flushed = fclose(stream) == 0;
  const bool closed = close(fd.release()) == 0;
  if (sink.left < 0) {
    errno = EFBIG;
    return Fail(kx_err_system);
  }
  if (result == 0 && (failed || !flushed || !closed)) {
    return Fail(kx_err_system);
  }
  kx_errno = error;
  return result;
}

// ---- The final name ----

int Exchange(int dirfd, const char* a, const char* b) {
  return renameat2(dirfd, a, dirfd, b, RENAME_EXCHANGE);
}

// Puts the response in the place of what lies there. What was swapped out is
// looked at once more: it may be an answer that came in between.
int Replace(int dirfd, const char* temporary, const char* final,
            uid_t receiver) {
  if (IsAnothers(dirfd, final, receiver)) return FailWith(EEXIST);
  if (Exchange(dirfd, temporary, final) != 0) {
    // Not every file system can do that.
    return errno == EINVAL ? renameat(dirfd, temporary, dirfd, final) : -1;
  }
  if (IsAnothers(dirfd, temporary, receiver)) {
    return Exchange(dirfd, temporary, final) == 0 ? FailWith(EEXIST) : -1;
  }
  return Clear(dirfd, temporary);
}

// Gives the written response its name. Its client waits for that name alone, so
// a failure that passes is not taken at its word.
void TakeName(int dirfd, const char* temporary, const char* final,
              uid_t receiver) {
  int error = 0;
  for (int tries = 0; tries < kTries; ++tries) {
    if (Kut_rename_fresh(dirfd, temporary, final) == 0) return;
    if (errno == EEXIST && Replace(dirfd, temporary, final, receiver) == 0) {
      return;
    }
    error = errno;
  }
  struct stat st;
  if (error == EEXIST && Look(dirfd, final, &st)) {
    dmn_logf("Cannot rename response %s to %s: that belongs to uid %u",
             temporary, final, st.st_uid);
  } else {
    dmn_logf("Cannot rename response %s to %s: %s", temporary, final,
             Kut_strerror(error));
  }
}

}  // namespace

int sx_rsp(const char* dir, kx_object* rsp, int save) {
  return sx_rsp_to(dir, rsp, save != 0, sx_receiver(rsp), sx_files::kEmbedded);
}

int sx_rsp_to(const char* dir, kx_object* rsp, bool save, uid_t receiver,
              sx_files files) {
  if (!Kfx_Is_Obj_Type(rsp, "obj-cmdrsp")) return -1;
  const char* exchange = kx_tmp_name(rsp);
  if (exchange == nullptr) return -1;
  char temporary[kNameSize];
  char final[kNameSize];
  snprintf(temporary, sizeof temporary, "%s.tmp", exchange);
  snprintf(final, sizeof final, "%s.rsp", exchange);
  const int dirfd = spool_fd(dir);
  if (dirfd < 0) return Fail(kx_err_system);
  if (save) sx_save_rsp(dirfd, rsp, receiver);

  UniqueFd fd = CreateTemporary(dirfd, temporary, receiver);
  if (!fd.valid()) return Fail(kx_err_system);
  // Held, so that the file's number is no other's before the name is looked at.
  const bool given = receiver != spool_self();
  const UniqueFd held(given ? fcntl(fd.get(), F_DUPFD_CLOEXEC, 0) : -1);
  const int result = WriteResponse(std::move(fd), rsp, files);
  if (result != 0) {
    const int saved = errno;
    unlinkat(dirfd, temporary, 0);
    errno = saved;
    return result;
  }
  if (given && !HasName(held.get(), dirfd, temporary)) {
    dmn_logf("Response %s was moved while it was written", temporary);
    errno = ESTALE;
    return Fail(kx_err_system);
  }
  TakeName(dirfd, temporary, final, receiver);
  return result;
}

int write_pair(void* file, const char* name, const char* value, int code) {
  auto* stream = static_cast<FILE*>(file);
  switch (code) {
    case kx_write_start:
      return 0;
    case kx_write_stop:
      fflush(stream);
      return 0;
    case kx_write_file_begin:
      fflush(stream);
      return kx_write_line(stream, name, value);
    default:
      return kx_write_line(stream, name, value);
  }
}
