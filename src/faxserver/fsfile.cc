#include "faxserver/fsfile.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cm/cmkrt.h"
#include "cm/cmlimits.h"
#include "faxserver/fsbase.h"
#include "kx/kxobj.h"
#include "util/kutstr.h"

namespace {

constinit kut_fsid g_reader = {};

}  // namespace

void fx_read_as(const kut_fsid& owner) { g_reader = owner; }

const kut_fsid& fx_reader() { return g_reader; }

UniqueFd fx_open_file(int dirfd, const char* name, fx_links links,
                      struct stat* st) {
  const int nofollow = links == fx_links::kRefuse ? O_NOFOLLOW : 0;
  const bool systems = dirfd == AT_FDCWD || links == fx_links::kFollow;
  if (!systems || g_reader.uid == 0) {
    return UniqueFd(Kut_open_regular(dirfd, name, nofollow, st));
  }
  const FileIdentity reader(g_reader);
  if (!reader.held()) return UniqueFd();
  return UniqueFd(Kut_open_regular(dirfd, name, nofollow, st));
}

fx_stream fx_open_stream(const char* path, fx_links links) {
  return fx_stream_on(fx_open_file(AT_FDCWD, path, links, nullptr));
}

fx_stream fx_stream_on(UniqueFd fd) {
  if (!fd.valid()) return nullptr;
  fx_stream stream(fdopen(fd.get(), "r"));
  if (stream != nullptr) static_cast<void>(fd.release());
  return stream;
}

bool fx_read_file(int dirfd, const char* name, fx_links links, size_t limit,
                  std::string* content, struct stat* st) {
  struct stat own;
  if (st == nullptr) st = &own;
  const UniqueFd fd = fx_open_file(dirfd, name, links, st);
  if (!fd.valid()) return false;
  const size_t size = static_cast<size_t>(st->st_size);
  if (size > limit) {
    errno = EFBIG;
    return false;
  }
  content->resize(size);
  const ssize_t got = Kut_read_full(fd.get(), content->data(), size);
  if (got < 0) return false;
  content->resize(static_cast<size_t>(got));
  return true;
}

bool fx_read_line(FILE* stream, char* line, size_t size) {
  if (fgets(line, static_cast<int>(size), stream) == nullptr) return false;
  Kut_strip(line);
  return true;
}

kx_budget fx_object_budget() {
  kx_budget budget;
  budget.memory = cm_limit(cm_limit_id::kObjectBytes);
  budget.input = cm_limit(cm_limit_id::kCommandBytes);
  return budget;
}

kx::Object fx_read_object(FILE* stream, const char* type, kx_budget* budget) {
  kx_budget own = fx_object_budget();
  if (budget == nullptr) budget = &own;
  if (stream == nullptr) return kx::Object(fx_null(kx_err_system));
  kx_source source = {stream};
  char name[KX_PAIR_SIZE];
  char found[KX_PAIR_SIZE];
  if (type == nullptr) {
    if (kx_read_source(&source, name, found, kx_read_next) != 0) {
      return kx::Object(fx_null(kx_err_callback));
    }
    if (strcmp(name, kx_obj_kwrds[0]) != 0) {
      return kx::Object(fx_null(kx_err_object));
    }
    type = found;
  }
  errno = 0;
  kx::Object object(
      kx_comp_object_within(budget, type, kx_read_source, &source, nullptr));
  if (object != nullptr) return object;
  // To the object library the one is an early end, the other a bad object.
  if (ferror(stream) != 0) kx_errno = kx_err_system;
  if (errno == ENOMEM) kx_errno = kx_err_memory;
  return object;
}

void fx_give_to_krt(int fd, mode_t mode) {
  const int saved = errno;
  static_cast<void>(fchmod(fd, mode));
  if (fchown(fd, static_cast<uid_t>(cm_get_krt_uid()),
             static_cast<gid_t>(cm_get_krt_gid())) != 0) {
    // Only the super-user may; a file of the process's own serves as well.
  }
  errno = saved;
}
