#include "daemon/spool/sxsave.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "daemon/spool/logfile.h"
#include "daemon/spool/sxfile.h"
#include "daemon/spool/sxspool.h"
#include "kx/kxtext.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kutio.h"
#include "util/kutstr.h"

namespace {

constexpr char kFolder[] = "save";
constexpr size_t kNameSize = 64;  // an exchange name and its extension

constinit bool g_told = false;

void Tell(const char* why) {
  if (!g_told) dmn_logf("No copies are kept in %s: %s", kFolder, why);
  g_told = true;
}

bool IsOwn(const struct stat& st) {
  return st.st_uid == spool_self() && (st.st_mode & 0022) == 0;
}

// The folder, if it is there and counts.
UniqueFd OpenFolder(int dirfd) {
  UniqueFd fd(Kut_open_at(dirfd, kFolder, O_PATH | O_DIRECTORY | O_NOFOLLOW));
  struct stat st;
  if (!fd.valid() || fstat(fd.get(), &st) != 0) {
    if (errno != ENOENT) Tell(Kut_sys_errstr());
    return UniqueFd();
  }
  if (IsOwn(st)) return fd;
  Tell("it is another's, or others can write it");
  return UniqueFd();
}

UniqueFd MakeFolder(int dirfd) {
  if (mkdirat(dirfd, kFolder, 0700) != 0 && errno != EEXIST) {
    Tell(Kut_sys_errstr());
    return UniqueFd();
  }
  return OpenFolder(dirfd);
}

void Save(int folder, const char* name, kx_object* obj, uid_t owner) {
  FileReplacer file;
  if (file.Open(name, 0600, folder) != 0 || spool_give(file.fd(), owner) != 0 ||
      file.stream() == nullptr ||
      Kfx_Decomp_Obj(obj, kx_write_pair_fp, file.stream(), 0) != 0 ||
      file.Commit() != 0) {
    Tell(Kut_sys_errstr());
  }
}

bool Look(int folder, const char* name, struct stat* st) {
  return fstatat(folder, name, st, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISREG(st->st_mode);
}

// Whether the name is that of another user's copy: exchange names are anybody's
// to choose.
bool IsAnothers(int folder, const char* name, uid_t owner) {
  struct stat st;
  return spool_self() == 0 && Look(folder, name, &st) && st.st_uid != owner &&
         st.st_uid != spool_self();
}

// Changes the name to the first free one of <name>.001, .002, ...
void TakeNumber(int folder, char (&name)[kNameSize]) {
  char numbered[kNameSize + 16];
  struct stat st;
  int n = 1;
  do {
    snprintf(numbered, sizeof numbered, "%s.%03d", name, n++);
  } while (Look(folder, numbered, &st));
  Kut_strcpyz(name, numbered, sizeof name);
}

}  // namespace

void sx_save_check(const char* dir) {
  const int dirfd = spool_fd(dir);
  if (dirfd >= 0) static_cast<void>(OpenFolder(dirfd));
}

void sx_save_cmd(int dirfd, kx_object* cmd, uid_t owner) {
  const char* exchange = kx_tmp_name(cmd);
  if (exchange == nullptr) return;
  const UniqueFd folder = MakeFolder(dirfd);
  if (!folder.valid()) return;
  char name[kNameSize];
  snprintf(name, sizeof name, "%s.%s", exchange, sx_get_ext(cmd));
  if (IsAnothers(folder.get(), name, owner)) TakeNumber(folder.get(), name);
  Save(folder.get(), name, cmd, owner);
}

void sx_save_rsp(int dirfd, kx_object* rsp, uid_t owner) {
  const char* exchange = kx_tmp_name(rsp);
  if (exchange == nullptr) return;
  const UniqueFd folder = MakeFolder(dirfd);
  if (!folder.valid()) return;
  char name[kNameSize];
  snprintf(name, sizeof name, "%s.rsp", exchange);
  // Reference 0 is shared by answers that nobody asked for: each has a copy of
  // its own.
  if (kx::Number(rsp, "reference") == 0 ||
      IsAnothers(folder.get(), name, owner)) {
    TakeNumber(folder.get(), name);
  }
  Save(folder.get(), name, rsp, owner);
}
