#include "commands/cmdaccess.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "cm/cmkrt.h"
#include "commands/cmdargs.h"
#include "daemon/spool/logfile.h"
#include "daemon/spool/settings.h"
#include "daemon/spool/sxfile.h"
#include "daemon/spool/sxspool.h"
#include "kx/kxobj.h"
#include "util/kuterr.h"
#include "util/kutio.h"
#include "util/kuttime.h"
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
bool IsOpen(const struct stat& spool) {
  if ((spool.st_mode & S_IXOTH) != 0) return true;
  return (spool.st_mode & S_IXGRP) != 0 && !IsFaxGroup(spool.st_gid);
}

// Whether an access control list names further users or groups: then the mode's
// group bits are what those have at most.
bool HasAccessList(int dirfd) {
  char path[32];
  snprintf(path, sizeof path, "/proc/self/fd/%d", dirfd);
  return getxattr(path, "system.posix_acl_access", nullptr, 0) > 0;
}

bool IsInFaxGroup(const kut_account& user) {
  const int fax_gid = cm_get_krt_gid();
  if (fax_gid == -1) return false;
  int count = 64;
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  while (getgrouplist(user.name, user.gid, groups.data(), &count) == -1) {
    groups.resize(groups.size() * 2);
    count = static_cast<int>(groups.size());
  }
  groups.resize(static_cast<std::size_t>(count));
  return std::ranges::find(groups, static_cast<gid_t>(fax_gid)) != groups.end();
}

// What the system's user database says of an owner.
struct Owner {
  uid_t uid;
  bool known;  // has an entry; all below is set only then
  bool in_fax_group;
  gid_t gid;
  char login[sizeof kut_account::name];
};

long NowSeconds() { return Kut_now_ms() / 1000; }

// A daemon that serves commands by itself asks the database once a second, not
// for every command of a busy client: asking takes longer than answering.
struct LastOwner {
  Owner owner;
  long asked;  // by NowSeconds
};
constinit LastOwner g_of_file = {{}, -1};
constinit LastOwner g_of_spool = {{}, -1};

const Owner& Ask(uid_t uid, LastOwner& last) {
  const long now = NowSeconds();
  Owner& owner = last.owner;
  if (last.asked == now && owner.uid == uid) return owner;
  last.asked = -1;  // until all is known: there may be no memory for it
  owner = {};
  owner.uid = uid;
  // Of root no more than the uid matters.
  kut_account account;
  const bool found = uid != 0 && Kut_find_uid(uid, &account);
  const bool answered = uid == 0 || found || !Kut_is_shortage(errno);
  if (found) {
    owner.in_fax_group = IsInFaxGroup(account);
    owner.gid = account.gid;
    strcpy(owner.login, account.name);
    owner.known = true;
  }
  if (answered) last.asked = now;
  return owner;
}

const Owner& OwnerOf(const struct stat& st) {
  return Ask(st.st_uid, g_of_file);
}

// Who could have written to the file.
Writers WhoCouldWrite(const struct stat& st, const struct stat& spool,
                      const Owner& owner) {
  if ((st.st_mode & S_IWOTH) != 0) {
    return IsOpen(spool) ? Writers::kOutsiders : Writers::kFaxSystem;
  }
  if ((st.st_mode & S_IWGRP) == 0 || st.st_gid == 0) return Writers::kOwner;
  const bool own = owner.known && owner.gid == st.st_gid;
  return own || IsFaxGroup(st.st_gid) ? Writers::kFaxSystem
                                      : Writers::kOutsiders;
}

// Who could have put a file into the spool directory.
Writers WhoCouldPut(int dirfd, const struct stat& spool) {
  if ((spool.st_mode & S_IWOTH) != 0) return Writers::kOutsiders;
  if ((spool.st_mode & S_IWGRP) == 0) return Writers::kOwner;
  if (HasAccessList(dirfd)) return Writers::kOutsiders;
  return IsFaxGroup(spool.st_gid) || spool.st_gid == getegid()
             ? Writers::kFaxSystem
             : Writers::kOutsiders;
}

// What an owner may do at most, wherever his file came from.
Trust TrustInOwner(const Owner& owner) {
  if (owner.uid == 0) return Trust::kRoot;
  if (owner.uid == geteuid() || cm_is_krt_admin(static_cast<int>(owner.uid)) ||
      owner.in_fax_group) {
    return Trust::kAnyClient;
  }
  return owner.known ? Trust::kSelf : Trust::kNobody;
}

// Whether nobody but root can exchange what root has in the directory. With the
// sticky bit others leave it where it is. A link has all mode bits, and no use
// for them.
bool IsRootsAlone(const struct stat& st) {
  const mode_t others = st.st_gid == 0 ? S_IWOTH : S_IWOTH | S_IWGRP;
  return st.st_uid == 0 && (S_ISLNK(st.st_mode) || (st.st_mode & others) == 0 ||
                            (st.st_mode & S_ISVTX) != 0);
}

// Whether nobody but root can put another directory in the place of this one:
// all above it are root's, wherever a link has led to it.
bool IsRootsPlace(int dirfd) {
  UniqueFd at(Kut_open_at(dirfd, "..", O_PATH | O_DIRECTORY));
  struct stat below;
  if (fstat(dirfd, &below) != 0) return false;
  for (;;) {
    struct stat st;
    if (!at.valid() || fstat(at.get(), &st) != 0 || !IsRootsAlone(st)) {
      return false;
    }
    if (st.st_dev == below.st_dev && st.st_ino == below.st_ino) return true;
    below = st;
    at.reset(Kut_open_at(at.get(), "..", O_PATH | O_DIRECTORY));
  }
}

// Whether the path leads there through directories of root's alone: a link that
// somebody else can make may lead anywhere.
bool IsRootsPath(const char* path) {
  if (*path != '/') return false;
  std::string above = path;
  do {
    above.resize(above.find_last_of('/'));
    struct stat st;
    const char* name = above.empty() ? "/" : above.c_str();
    if (lstat(name, &st) != 0 || !IsRootsAlone(st)) return false;
  } while (!above.empty());
  return true;
}

// The same, asked once a second for one directory.
bool IsRootsPlaceNow(int dirfd, const struct stat& spool) {
  static constinit struct {
    dev_t dev;
    ino_t ino;
    long asked;
    bool roots;
  } last = {0, 0, -1, false};
  const long now = NowSeconds();
  if (last.asked != now || last.dev != spool.st_dev ||
      last.ino != spool.st_ino) {
    last = {spool.st_dev, spool.st_ino, now,
            IsRootsPlace(dirfd) && IsRootsPath(file_dir)};
  }
  return last.roots;
}

// The same of the owner of a directory that nobody else can write; what a user
// who speaks for himself alone has there is his if he owns it.
Trust TrustInFolder(int dirfd, const struct stat& spool, uid_t file_owner) {
  if (spool.st_uid == 0) {
    return IsRootsPlaceNow(dirfd, spool) ? Trust::kRoot : Trust::kAnyClient;
  }
  const Trust trust = TrustInOwner(Ask(spool.st_uid, g_of_spool));
  const bool his = file_owner == spool.st_uid;
  return trust >= Trust::kAnyClient || his ? trust : Trust::kNobody;
}

Trust TrustIn(const struct stat& st) {
  const int dirfd = spool_fd(file_dir);
  struct stat spool;
  if (spool_status(file_dir, &spool) != 0) return Trust::kNobody;
  const Owner& owner = OwnerOf(st);
  const Writers writers = WhoCouldWrite(st, spool, owner);
  if (writers == Writers::kOutsiders) return Trust::kNobody;
  Trust trust = TrustInOwner(owner);
  if (writers == Writers::kFaxSystem)
    trust = std::min(trust, Trust::kAnyClient);
  switch (WhoCouldPut(dirfd, spool)) {
    case Writers::kOutsiders:
      return trust > Trust::kSelf ? Trust::kNobody : trust;
    case Writers::kFaxSystem:
      return std::min(trust, Trust::kAnyClient);
    case Writers::kOwner:
      break;
  }
  return std::min(trust, TrustInFolder(dirfd, spool, st.st_uid));
}

bool NamesAUser(const kx_fielddef& field) {
  return std::ranges::any_of(kUserFields, [&](const char* name) {
    return strcmp(name, field.name) == 0;
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
      if (user != nullptr && strcmp(user, login) != 0) return false;
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
  struct stat spool = {};
  spool_status(file_dir, &spool);
  dmn_logf(
      "Refused %s for %s (%ld-%d): its file belongs to %s (uid %u), %04o, "
      "in a directory of uid %u, %04o",
      sx_cmdtype(cmd), cmd_client(cmd),
      static_cast<long>(kx::Number(cmd, "sessionid")),
      kx::Number(cmd, "reference"),
      owner.uid == 0 ? "root"
      : owner.known  ? owner.login
                     : "nobody known",
      static_cast<unsigned>(st->st_uid),
      static_cast<unsigned>(st->st_mode & 07777),
      static_cast<unsigned>(spool.st_uid),
      static_cast<unsigned>(spool.st_mode & 07777));
}

bool IsPermitted(kx_object* cmd, bool runs_program, const struct stat& st) {
  const Trust trust = TrustIn(st);
  const char* client = cmd_client(cmd);
  if (runs_program) {
    // Whom the database cannot tell at present may be root as well.
    const int uid = Kut_uname_to_uid(client);
    if (uid == 0 || (uid == -1 && Kut_is_shortage(errno))) {
      return trust == Trust::kRoot;
    }
  }
  if (trust != Trust::kSelf) return trust != Trust::kNobody;
  const char* login = OwnerOf(st).login;
  return strcmp(client, login) == 0 && NamesOnly(login, cmd);
}

}  // namespace

bool cmd_is_permitted(kx_object* cmd, bool runs_program) {
  const struct stat* st = sx_cmd_stat(cmd);
  if (st != nullptr && IsPermitted(cmd, runs_program, *st)) return true;
  LogRefusal(cmd, st);
  return false;
}

bool cmd_is_trusted(kx_object* cmd) {
  const struct stat* st = sx_cmd_stat(cmd);
  return st != nullptr && TrustIn(*st) >= Trust::kAnyClient;
}

bool cmd_owner(kx_object* cmd, kut_fsid* owner) {
  const struct stat* st = sx_cmd_stat(cmd);
  if (st == nullptr) {
    errno = ENOENT;
    return false;
  }
  *owner = {st->st_uid, st->st_gid};
  if (st->st_uid == 0) {
    // Others could have written it, or put it there: then it has not root's
    // rights, but at most the fax system's.
    if (TrustIn(*st) == Trust::kRoot || geteuid() != 0) return true;
    if (cm_get_krt_uid() == -1) {
      errno = EPERM;
      return false;
    }
    *owner = {static_cast<uid_t>(cm_get_krt_uid()),
              static_cast<gid_t>(cm_get_krt_gid())};
    return true;
  }
  const int gid = Kut_login_gid(st->st_uid);
  if (gid != -1) owner->gid = static_cast<gid_t>(gid);
  return gid != -1 || errno == ENOENT;
}
