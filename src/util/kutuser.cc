#include "util/kutuser.h"

#include <grp.h>
#include <limits.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr size_t kNameSize = 256;
constexpr size_t kFirstBuffer = 1024;
constexpr size_t kLargestBuffer = size_t{1} << 24;  // a group of many members

struct Freer {
  void operator()(char* p) const { free(p); }
};

// Not every directory service says "not found" as it should, by no result and
// no error.
bool MeansUnknown(int error) {
  return error == 0 || error == ENOENT || error == ESRCH || error == EBADF ||
         error == EPERM;
}

// Runs the reentrant `lookup(entry, buffer, size, &found)` with a buffer that
// grows until the entry fits, then `take(entry)`. False with errno when there
// is no entry.
template <typename Entry, typename Lookup, typename Take>
bool FindEntry(Lookup lookup, Take take) {
  for (size_t size = kFirstBuffer; size <= kLargestBuffer; size *= 2) {
    const std::unique_ptr<char, Freer> buffer(static_cast<char*>(malloc(size)));
    if (buffer == nullptr) return false;
    Entry entry;
    Entry* found = nullptr;
    int error;
    do {
      error = lookup(&entry, buffer.get(), size, &found);
    } while (error == EINTR);
    if (error == ERANGE) continue;
    if (error == 0 && found != nullptr) return take(entry);
    errno = MeansUnknown(error) ? ENOENT : error;
    return false;
  }
  errno = ERANGE;
  return false;
}

template <typename Take>
bool FindUser(uid_t uid, Take take) {
  return FindEntry<passwd>(
      [=](passwd* entry, char* buffer, size_t size, passwd** found) {
        return getpwuid_r(uid, entry, buffer, size, found);
      },
      take);
}

bool IsNamed(const char* name) {
  if (name != nullptr && *name != '\0') return true;
  errno = ENOENT;
  return false;
}

template <typename Take>
bool FindUser(const char* name, Take take) {
  return IsNamed(name) &&
         FindEntry<passwd>(
             [=](passwd* entry, char* buffer, size_t size, passwd** found) {
               return getpwnam_r(name, entry, buffer, size, found);
             },
             take);
}

template <size_t size>
bool CopyName(const char* name, char (&buffer)[size]) {
  const int length = snprintf(buffer, size, "%s", name);
  if (length >= 0 && static_cast<size_t>(length) < size) return true;
  errno = ERANGE;
  return false;
}

bool CopyAccount(const passwd& entry, kut_account* account) {
  account->uid = entry.pw_uid;
  account->gid = entry.pw_gid;
  return CopyName(entry.pw_name, account->name) &&
         CopyName(entry.pw_dir, account->home) &&
         CopyName(entry.pw_shell, account->shell);
}

}  // namespace

bool Kut_find_user(const char* name, kut_account* account) {
  return FindUser(
      name, [=](const passwd& entry) { return CopyAccount(entry, account); });
}

bool Kut_find_uid(uid_t uid, kut_account* account) {
  return FindUser(
      uid, [=](const passwd& entry) { return CopyAccount(entry, account); });
}

int Kut_uname_to_uid(const char* name) {
  int uid = -1;
  FindUser(name, [&](const passwd& entry) {
    uid = static_cast<int>(entry.pw_uid);
    return true;
  });
  return uid;
}

int Kut_uid_to_gid(int uid) {
  int gid = -1;
  FindUser(static_cast<uid_t>(uid), [&](const passwd& entry) {
    gid = static_cast<int>(entry.pw_gid);
    return true;
  });
  return gid;
}

const char* Kut_uid_to_uname(int uid) {
  static char buffer[kNameSize];
  const bool known = FindUser(
      static_cast<uid_t>(uid),
      [&](const passwd& entry) { return CopyName(entry.pw_name, buffer); });
  return known ? buffer : nullptr;
}

int Kut_gname_to_gid(const char* name) {
  int gid = -1;
  if (!IsNamed(name)) return gid;
  FindEntry<group>(
      [=](group* entry, char* buffer, size_t size, group** found) {
        return getgrnam_r(name, entry, buffer, size, found);
      },
      [&](const group& entry) {
        gid = static_cast<int>(entry.gr_gid);
        return true;
      });
  return gid;
}

const char* Kut_gid_to_gname(int gid) {
  static char buffer[kNameSize];
  const bool known = FindEntry<group>(
      [=](group* entry, char* scratch, size_t size, group** found) {
        return getgrgid_r(static_cast<gid_t>(gid), entry, scratch, size, found);
      },
      [&](const group& entry) { return CopyName(entry.gr_name, buffer); });
  return known ? buffer : nullptr;
}

const char* Kut_get_usrname() {
  static char buffer[kNameSize];
  const bool known = FindUser(getuid(), [&](const passwd& entry) {
    return CopyName(entry.pw_name, buffer);
  });
  return known ? buffer : nullptr;
}

const char* Kut_get_homedir() {
  static char buffer[PATH_MAX];
  const bool known = FindUser(getuid(), [&](const passwd& entry) {
    return CopyName(entry.pw_dir, buffer);
  });
  return known ? buffer : nullptr;
}

const char* Kut_get_workdir() {
  static char buffer[PATH_MAX];
  return getcwd(buffer, sizeof buffer);
}
