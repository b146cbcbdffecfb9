// Object files: one "name=value" line a pair.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "kx/kxtext.h"
#include "util/kutfile.h"
#include "util/kutstr.h"

namespace {

constinit kx_pair_slot g_slot = {};

bool IsStandardStream(const char* path) { return strcmp(path, "-") == 0; }

int Fail(int error) {
  kx_errno = error;
  return -1;
}

// Opens an object file for reading. A link is not followed: many of these files
// lie where users can write.
FILE* OpenObjectFile(const char* path) {
  UniqueFd fd(Kut_open_regular(AT_FDCWD, path, O_NOFOLLOW));
  if (!fd.valid()) return nullptr;
  FILE* file = fdopen(fd.get(), "r");
  if (file != nullptr) static_cast<void>(fd.release());
  return file;
}

// The type that an object file names in its first pair, into `type`, with the
// pair pushed back for the composer.
bool PeekType(FILE* file, char (&type)[KX_PAIR_SIZE]) {
  char name[KX_PAIR_SIZE];
  if (kx_read_pair_fp(file, name, type, kx_read_next) != 0) {
    kx_errno = kx_err_system;
    return false;
  }
  if (strcmp(name, kx_obj_kwrds[0]) != 0) {
    kx_errno = kx_err_object;
    return false;
  }
  kx_read_pair_fp(file, name, type, kx_read_push);
  return true;
}

kx_object* LoadFrom(FILE* file, const char* type) {
  char named[KX_PAIR_SIZE];
  g_slot.full = false;  // whatever an earlier load that failed left behind
  if (type == nullptr || *type == '\0') {
    if (!PeekType(file, named)) return nullptr;
    type = named;
  }
  return Kfx_Comp_Obj(type, kx_read_pair_fp, file, ".");
}

}  // namespace

int kx_read_line(FILE* file, kx_pair_slot* slot, char* name, char* value,
                 int mode) {
  if (mode == kx_read_push) {
    Kut_strcpyz(slot->name, name, sizeof slot->name);
    Kut_strcpyz(slot->value, value, sizeof slot->value);
    slot->full = true;
    return 0;
  }
  if (slot->full) {
    strcpy(name, slot->name);
    strcpy(value, slot->value);
    slot->full = false;
    return 0;
  }
  // Read to where the name stays; only the value has to move.
  if (fgets_unlocked(name, KX_PAIR_SIZE, file) == nullptr) return -1;
  char* equals = strchr(name, '=');
  if (equals == nullptr) return -1;
  *equals = '\0';
  char* end = stpcpy(value, equals + 1);
  if (end > value && end[-1] == '\n') end[-1] = '\0';
  return 0;
}

int kx_read_source(void* source, char* name, char* value, int mode) {
  auto* self = static_cast<kx_source*>(source);
  return kx_read_line(self->file, &self->slot, name, value, mode);
}

int kx_write_line(FILE* file, const char* name, const char* value) {
  fputs_unlocked(name, file);
  putc_unlocked('=', file);
  fputs_unlocked(value, file);
  putc_unlocked('\n', file);
  return 0;
}

int kx_read_pair_fp(void* file, char* name, char* value, int mode) {
  return kx_read_line(static_cast<FILE*>(file), &g_slot, name, value, mode);
}

int kx_write_pair_fp(void* file, const char* name, const char* value,
                     int code) {
  if (code == kx_write_start || code == kx_write_stop) return 0;
  return kx_write_line(static_cast<FILE*>(file), name, value);
}

int Kfx_Save_Obj(kx_object* obj, const char* path) {
  if (IsStandardStream(path)) {
    const int result = Kfx_Decomp_Obj(obj, kx_write_pair_fp, stdout, 0);
    if (result == 0 && fflush(stdout) != 0) return Fail(kx_err_system);
    return result;
  }
  struct stat st;
  if (lstat(path, &st) == 0 && !S_ISREG(st.st_mode) && !S_ISLNK(st.st_mode)) {
    errno = EINVAL;  // a device, say, would be replaced by a file
    return Fail(kx_err_system);
  }
  FileReplacer file;
  if (file.Open(path, 0666) != 0 || file.KeepAttributes() != 0 ||
      file.stream() == nullptr) {
    return Fail(kx_err_system);
  }
  const int result = Kfx_Decomp_Obj(obj, kx_write_pair_fp, file.stream(), 0);
  if (result != 0) return result;
  if (file.Commit() != 0) return Fail(kx_err_system);
  return 0;
}

kx_object* Kfx_Load_Obj(const char* type, const char* path) {
  if (IsStandardStream(path)) return LoadFrom(stdin, type);
  FILE* file = OpenObjectFile(path);
  if (file == nullptr) {
    kx_errno = kx_err_system;
    return nullptr;
  }
  kx_object* obj = LoadFrom(file, type);
  const int saved = errno;
  fclose(file);
  errno = saved;
  return obj;
}
