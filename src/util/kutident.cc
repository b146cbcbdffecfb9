#include "util/kutident.h"

#include <grp.h>
#include <pwd.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <vector>

#include "util/kuterr.h"
#include "util/kutguard.h"
#include "util/kuttime.h"
#include "util/kutuser.h"

namespace {

constexpr kut_fsid kOwn = {};  // root's: the process's own rights

// In force at present.
constinit kut_fsid g_id = kOwn;
// What the process itself has, kept from the first change on.
constinit gid_t g_own_gid = 0;
constinit std::vector<gid_t>* g_own_groups = nullptr;

// A question to the user database takes longer than an access: the last answers
// hold for a second.
struct Login {
  uid_t uid = 0;
  int gid = -1;
  long asked = -1;
};
constinit Login g_logins[4] = {};
constinit unsigned g_oldest = 0;

bool Same(const kut_fsid& a, const kut_fsid& b) {
  return a.uid == b.uid && (a.uid == 0 || a.gid == b.gid);
}

// Once: what there is to go back to.
bool NoteOwn() {
  if (g_own_groups != nullptr) return true;
  const int count = getgroups(0, nullptr);
  if (count < 0) return false;
  // Lives as long as the process, as the identity does.
  auto* groups = Kut_guarded(
      [=] { return new std::vector<gid_t>(static_cast<size_t>(count)); });
  if (groups == nullptr) return false;
  if (getgroups(count, groups->data()) != count) {
    delete groups;
    return false;
  }
  g_own_gid = getegid();
  g_own_groups = groups;
  return true;
}

// The calls answer with what was before: only a second one tells whether the
// first took effect.
bool SetIds(uid_t uid, gid_t gid) {
  setfsgid(gid);
  setfsuid(uid);
  return setfsgid(gid) == static_cast<int>(gid) &&
         setfsuid(uid) == static_cast<int>(uid);
}

bool SetGroups(bool own) {
  if (g_own_groups->empty()) return true;
  return setgroups(own ? g_own_groups->size() : 0,
                   own ? g_own_groups->data() : nullptr) == 0;
}

// The change to `id`, from whatever is in force.
bool Become(const kut_fsid& id) {
  const bool own = id.uid == 0;
  if (own != (g_id.uid == 0) && !SetGroups(own)) return false;
  if (!SetIds(id.uid, own ? g_own_gid : id.gid)) {
    errno = EPERM;
    return false;
  }
  g_id = id;
  return true;
}

}  // namespace

int Kut_login_gid(uid_t uid) {
  const long now = Kut_now_ms() / 1000;
  for (const Login& login : g_logins) {
    if (login.asked != now || login.uid != uid) continue;
    if (login.gid == -1) errno = ENOENT;
    return login.gid;
  }
  // The database is this process's to ask.
  const FileIdentity self({});
  if (!self.held()) return -1;
  const int gid = Kut_uid_to_gid(static_cast<int>(uid));
  if (gid != -1 || errno == ENOENT) {
    g_logins[g_oldest++ % std::size(g_logins)] = {uid, gid, now};
  }
  return gid;
}

bool Kut_owner_of(int fd, kut_fsid* owner) {
  struct stat st;
  if (fstat(fd, &st) != 0) return false;
  *owner = {st.st_uid, st.st_gid};
  // Who cannot change the identity need not ask for it.
  if (st.st_uid == 0 || geteuid() != 0) return true;
  const int gid = Kut_login_gid(st.st_uid);
  if (gid == -1) return errno == ENOENT;
  owner->gid = static_cast<gid_t>(gid);
  return true;
}

FileIdentity::FileIdentity(const kut_fsid& id) : before_(g_id) {
  if (Same(id, g_id) || geteuid() != 0) return;
  held_ = NoteOwn() && Become(id);
  changed_ = held_;
  if (held_ || g_own_groups == nullptr) return;
  const int saved = errno;
  if (!Become(before_)) abort();
  errno = saved;
}

FileIdentity::~FileIdentity() {
  if (!changed_) return;
  const int saved = errno;
  if (!Become(before_)) abort();
  errno = saved;
}
