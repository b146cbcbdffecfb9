#include "commands/cmdaccess.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "cm/cmkrt.h"
#include "commands/cmdargs.h"
#include "daemon/logfile.h"
#include "daemon/settings.h"
#include "daemon/sxfile.h"
#include "daemon/sxspool.h"
#include "kx/kxobj.h"
#include "util/kuterr.h"
#include "util/kutuser.h"

namespace {

// Who could have written a file: its owner alone, or also members of the fax
// system's group, or also others.
enum class Writers { kOwner, kFaxSystem, kOutsiders };

// From nobody to root each may do what the one before it may.
enum class Trust { kNobody, kSelf, kAnyClient, kRoot };

constexpr const char* kUserFields[] = {"clientid", "fromid"};

bool IsFaxGroup(gid_t gid) {
  return gid == 0 || static_cast<int>(gid) == cm_get_krt_gid();
}

// Whether users outside the fax system can reach the files in the directory.
bool IsOpen(int dirfd) {
  struct stat st;
  if (dirfd < 0 || fstat(dirfd, &st) != 0 || (st.st_mode & S_IXOTH) != 0) {
    return true;
  }
  return (st.st_mode & S_IXGRP) != 0 && !IsFaxGroup(st.st_gid);
}

bool IsInFaxGroup(const passwd& user) {
  const int fax_gid = cm_get_krt_gid();
  if (fax_gid == -1) return false;
  int count = 64;
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  while (getgrouplist(user.pw_name, user.pw_gid, groups.data(), &count) == -1) {
    groups.resize(groups.size() * 2);
    count = static_cast<int>(groups.size());
  }
  groups.resize(static_cast<std::size_t>(count));
  return std::ranges::find(groups, static_cast<gid_t>(fax_gid)) != groups.end();
}

// What the system's user database says of a file's owner.
struct Owner {
  uid_t uid;
  bool known;  // has an entry; all below is set only then
  bool in_fax_group;
  gid_t gid;
  std::string login;
};

// A daemon that serves commands by itself asks the database once a second, not
// for every command of a busy client: asking takes longer than answering.
constinit Owner g_owner = {};
constinit time_t g_owner_asked = -1;

const Owner& OwnerOf(const struct stat& st) {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  if (g_owner_asked == now.tv_sec && g_owner.uid == st.st_uid) return g_owner;
  g_owner_asked = -1;  // until all is known: there may be no memory for it
  g_owner = {};
  g_owner.uid = st.st_uid;
  // Of root no more than the uid matters.
  const passwd* entry = st.st_uid != 0 ? getpwuid(st.st_uid) : nullptr;
  if (entry != nullptr) {
    g_owner.known = true;
    g_owner.gid = entry->pw_gid;
    g_owner.login = entry->pw_name;
    g_owner.in_fax_group = IsInFaxGroup(*entry);
  }
  g_owner_asked = now.tv_sec;
  return g_owner;
}

Writers WhoCouldWrite(const struct stat& st, const Owner& owner) {
  if ((st.st_mode & S_IWOTH) != 0) {
    return IsOpen(spool_fd(file_dir)) ? Writers::kOutsiders
                                      : Writers::kFaxSystem;
  }
  if ((st.st_mode & S_IWGRP) == 0 || st.st_gid == 0) return Writers::kOwner;
  const bool own = owner.known && owner.gid == st.st_gid;
  return own || IsFaxGroup(st.st_gid) ? Writers::kFaxSystem
                                      : Writers::kOutsiders;
}

Trust TrustIn(const struct stat& st, const Owner& owner) {
  const Writers writers = WhoCouldWrite(st, owner);
  if (writers == Writers::kOutsiders) return Trust::kNobody;
  if (st.st_uid == 0 && writers == Writers::kOwner) return Trust::kRoot;
  if (st.st_uid == geteuid() || cm_is_krt_admin(static_cast<int>(st.st_uid)) ||
      owner.in_fax_group) {
    return Trust::kAnyClient;
  }
  return owner.known ? Trust::kSelf : Trust::kNobody;
}

bool NamesAUser(const kx_fielddef& field) {
  return std::ranges::any_of(kUserFields, [&](const char* name) {
    return std::strcmp(name, field.name) == 0;
  });
}

// Whether no user but this one is named as the one to act for, in the object or
// in what is in it.
bool NamesOnly(const char* login, kx_object* obj) {
  if (obj == nullptr) return true;
  if (Kfx_Is_Obj_Type(obj, "obj-list") != 0) {
    for (kx_object* element : kx::Elements(obj)) {
      if (!NamesOnly(login, element)) return false;
    }
    return true;
  }
  for (const kx_fielddef* row = kx_obj_info(obj)->fields; row->name != nullptr;
       ++row) {
    if (row->type == kx_typ_obj || row->type == kx_typ_list) {
      if (!NamesOnly(login, kx::Child(obj, row->name))) return false;
    } else if (NamesAUser(*row)) {
      const char* user = kx::Text(obj, row->name);
      if (user != nullptr && std::strcmp(user, login) != 0) return false;
    }
  }
  return true;
}

void LogRefusal(kx_object* cmd, const struct stat* st) {
  if (st == nullptr) {
    dmn_logf("Refused %s: it came from no file", sx_cmdtype(cmd));
    return;
  }
  const Owner& owner = OwnerOf(*st);
  dmn_logf("Refused %s for %s (%ld-%d): its file belongs to %s (uid %u), %04o",
           sx_cmdtype(cmd), cmd_client(cmd),
           static_cast<long>(kx::Number(cmd, "sessionid")),
           kx::Number(cmd, "reference"),
           owner.uid == 0 ? "root"
           : owner.known  ? owner.login.c_str()
                          : "nobody known",
           static_cast<unsigned>(st->st_uid),
           static_cast<unsigned>(st->st_mode & 07777));
}

bool IsPermitted(const cmd_row& row, kx_object* cmd, const struct stat& st) {
  const Owner& owner = OwnerOf(st);
  const Trust trust = TrustIn(st, owner);
  const char* client = cmd_client(cmd);
  if (row.runs_program != 0) {
    // Whom the database cannot tell at present may be root as well.
    const int uid = Kut_uname_to_uid(client);
    if (uid == 0 || (uid == -1 && Kut_is_shortage(errno))) {
      return trust == Trust::kRoot;
    }
  }
  if (trust != Trust::kSelf) return trust != Trust::kNobody;
  const char* login = owner.login.c_str();
  return std::strcmp(client, login) == 0 && NamesOnly(login, cmd);
}

}  // namespace

bool cmd_is_permitted(const cmd_row& row, kx_object* cmd) {
  const struct stat* st = sx_cmd_stat(cmd);
  if (st != nullptr && IsPermitted(row, cmd, *st)) return true;
  LogRefusal(cmd, st);
  return false;
}

bool cmd_is_trusted(kx_object* cmd) {
  const struct stat* st = sx_cmd_stat(cmd);
  return st != nullptr && TrustIn(*st, OwnerOf(*st)) >= Trust::kAnyClient;
}
