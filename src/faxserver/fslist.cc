#include "faxserver/fslist.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "cm/cmpaths.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsfolder.h"
#include "faxserver/fshdr.h"
#include "faxserver/fslog.h"
#include "faxserver/fsnames.h"
#include "faxserver/fsstat.h"
#include "faxserver/fsuser.h"
#include "util/kutdir.h"

namespace {

constexpr char kServerMessages[] = "msg.srv";

bool IsNewer(const struct stat& st, int since) {
  return since <= 0 || st.st_mtime > since;
}

int FileTime(const struct stat& st) {
  return st.st_mtime < INT_MAX ? static_cast<int>(st.st_mtime) : INT_MAX;
}

// A user's directory under reading, as its owner while this lives.
struct Reading {
  Reading(const char* root, const char* user, const char* path)
      : folder(fx_open_folder(root, user, path)), owner(folder.Enter()) {
    opened = folder.valid() && owner.held() && dir.Open(".", folder.fd()) == 0;
    error = opened || errno == ENOENT ? kx_err_none : kx_err_system;
  }

  const cm_folder folder;
  const FileIdentity owner;
  DirReader dir;
  bool opened;
  int error;  // 0 also for one that is missing, which is an empty list
};

bool StatRegular(const Reading& at, const char* name, struct stat* st) {
  return fstatat(at.folder.fd(), name, st, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISREG(st->st_mode);
}

// Whether the name went into its field.
bool SetName(kx_object* entry, const char* field, const char* name) {
  if (kx::SetText(entry, field, name) == 0) return true;
  fx_logf("File name %s is too long", name);
  return false;
}

// Sets the number of pages where the file is a fax file.
void SetPages(int fd, kx_object* info) {
  fx_faxhdr header;
  const ssize_t got = Kut_read_full(fd, header.bytes, sizeof header.bytes);
  if (got == sizeof header.bytes && fx_fix_faxhdr(&header)) {
    kx::SetNumber(info, "npages", fx_faxhdr_pages(&header));
  }
}

// The entry of a received fax; null for what is none, and with 3 for what could
// not be looked at.
kx::Object MakeFaxInfo(const Reading& at, const char* name, const char* user,
                       int since) {
  struct stat st;
  const UniqueFd fd = fx_open_in(at.folder, name, &st);
  kx_errno = kx_err_system;
  if (!fd.valid() && fx_is_shortage()) return nullptr;
  kx_errno = kx_err_none;
  // One that may not be read is listed all the same.
  if (!fd.valid() && !StatRegular(at, name, &st)) return nullptr;
  if (!IsNewer(st, since)) return nullptr;
  kx::Object info = fx_build("obj-faxinfo");
  if (!SetName(info.get(), "filename", name)) return nullptr;
  kx::SetText(info.get(), "clientid", user);
  kx::SetEnum(info.get(), "fstatus", kx_fst_new);
  if (fd.valid()) SetPages(fd.get(), info.get());
  kx::SetTime(info.get(), "rcvtime", FileTime(st));
  return info;
}

kx::Object MakeMessageInfo(const Reading& at, const char* name, int since) {
  struct stat st;
  if (strcmp(name, kServerMessages) == 0 || !StatRegular(at, name, &st) ||
      !IsNewer(st, since)) {
    return nullptr;
  }
  kx::Object info = fx_build("obj-tinfo");
  if (!SetName(info.get(), "filename", name)) return nullptr;
  kx::SetTime(info.get(), "msgtime", FileTime(st));
  return info;
}

kx::Object MakeRoute(const char* root, const char* user, const char* other) {
  if (strcmp(user, other) == 0 || !fx_is_valid_user(root, other)) {
    return nullptr;
  }
  kx::Object route = fx_build("obj-route");
  if (!SetName(route.get(), "toid", other)) return nullptr;
  kx::SetText(route.get(), "fromid", user);
  return route;
}

}  // namespace

kx_object* fx_get_srv_list(const char* root, const char* user, int since) {
  return fx_guarded([&]() -> kx_object* {
    if (!fx_is_valid_user(root, user)) return fx_null(kx_err_user);
    const fx_stream stream =
        fx_open_user_stream(root, user, cm_get_servmsg_file(root, user));
    struct stat st;
    if (stream == nullptr || fstat(fileno(stream.get()), &st) != 0) {
      return fx_null(errno == ENOENT ? kx_err_none : kx_err_system);
    }
    kx::ListBuilder list;
    if (!IsNewer(st, since)) return fx_give(list.Take());
    kx_budget budget = fx_object_budget();
    while (kx::Object message =
               fx_read_object(stream.get(), "obj-servmsg", &budget)) {
      fx_append(&list, std::move(message));
    }
    // Neither was at the end of the file.
    if (fx_is_shortage() || kx_errno == kx_err_too_long) return nullptr;
    return fx_give(list.Take());
  });
}

kx_object* fx_get_fax_list(const char* root, const char* user, int since) {
  return fx_guarded([&]() -> kx_object* {
    if (!fx_is_valid_user(root, user)) return fx_null(kx_err_user);
    Reading at(root, user, cm_get_user_dir(root, user));
    if (!at.opened) return fx_null(at.error);
    std::vector<std::string> names;
    if (!fx_visible_names(&at.dir, &names, fx_users_names()))
      return fx_null(kx_err_system);
    kx::ListBuilder list;
    for (const std::string& name : names) {
      kx::Object info = MakeFaxInfo(at, name.c_str(), user, since);
      if (info == nullptr && fx_is_shortage()) return nullptr;
      if (info != nullptr) fx_append(&list, std::move(info));
    }
    return fx_give(list.Take());
  });
}

kx_object* fx_get_msg_list(const char* root, const char* user, int since) {
  return fx_guarded([&]() -> kx_object* {
    if (!fx_is_valid_user(root, user)) return fx_null(kx_err_user);
    Reading at(root, user, cm_get_msgs_dir(root, user));
    if (!at.opened) return fx_null(at.error);
    std::vector<std::string> names;
    if (!fx_visible_names(&at.dir, &names, fx_users_names()))
      return fx_null(kx_err_system);
    kx::ListBuilder list;
    for (const std::string& name : names) {
      kx::Object info = MakeMessageInfo(at, name.c_str(), since);
      if (info != nullptr) fx_append(&list, std::move(info));
    }
    return fx_give(list.Take());
  });
}

kx_object* fx_get_rte_list(const char* root, const char* user, int) {
  return fx_guarded([&]() -> kx_object* {
    if (!fx_is_valid_user(root, user)) return fx_null(kx_err_user);
    DirReader dir;
    if (dir.Open(cm_get_faxq_dir(root), AT_FDCWD, O_NOFOLLOW) != 0) {
      return fx_null(kx_err_system);
    }
    std::vector<std::string> names;
    if (!fx_visible_names(&dir, &names)) return fx_null(kx_err_system);
    kx::ListBuilder list;
    for (const std::string& other : names) {
      kx::Object route = MakeRoute(root, user, other.c_str());
      if (route != nullptr) fx_append(&list, std::move(route));
    }
    return fx_give(list.Take());
  });
}

kx_object* fx_get_evt_list(const char* root, const char* user, int since) {
  return fx_guarded([&]() -> kx_object* {
    if (!fx_is_valid_user(root, user)) return fx_null(kx_err_user);
    Reading at(root, user, cm_get_evnt_dir(root, user));
    if (!at.opened) return fx_null(at.error);
    std::vector<fx_numbered> entries;
    if (!fx_numbered_names(&at.dir, "", &entries, fx_users_names()))
      return fx_null(kx_err_system);
    kx_budget budget = fx_object_budget();
    kx::ListBuilder list;
    for (const fx_numbered& entry : entries) {
      struct stat st;
      if (!StatRegular(at, entry.name.c_str(), &st) || !IsNewer(st, since)) {
        continue;
      }
      kx::Object status =
          fx_read_status_in(at.folder, entry.name.c_str(), &budget);
      if (status == nullptr &&
          (fx_is_shortage() || kx_errno == kx_err_too_long)) {
        return nullptr;
      }
      if (status != nullptr) fx_append(&list, std::move(status));
    }
    return fx_give(list.Take());
  });
}
