// user list, user add: the users of the fax server are the directories below
// faxq, and are kept on the server's own disk.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "cm/cmfolder.h"
#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "cm/cmtree.h"
#include "ctl/app/app.h"
#include "ctl/format/format.h"
#include "ctl/verbs/actions.h"
#include "faxserver/fsnames.h"
#include "faxserver/fsuser.h"
#include "util/kutfile.h"
#include "util/kutident.h"
#include "util/kutuser.h"

namespace client {
namespace {

// A file mode creation mask for the object's life: what is made has its mode
// from the first moment, and is not changed where others could exchange it.
class NoUmask {
 public:
  NoUmask() : before_(umask(0)) {}
  NoUmask(const NoUmask&) = delete;
  NoUmask& operator=(const NoUmask&) = delete;
  ~NoUmask() { umask(before_); }

 private:
  const mode_t before_;
};

// Gives a directory that `maker` has just made to the user and to the fax
// system's group. Only the super-user can give it away; the fax system's user
// keeps it.
bool GiveQueue(int fd, uid_t maker, int owner, mode_t mode) {
  struct stat st;
  if (fstat(fd, &st) != 0) return false;
  if (st.st_uid != maker) {
    errno = EPERM;  // another one by now
    return false;
  }
  const int given = geteuid() == 0 ? owner : -1;
  return fchown(fd, static_cast<uid_t>(given),
                static_cast<gid_t>(cm_get_krt_gid())) == 0 &&
         fchmod(fd, mode) == 0;
}

// The queue directory; one that exists stays as it is. Invalid with errno on
// failure.
UniqueFd MakeQueue(const std::string& root, const char* user, int owner,
                   mode_t mode, bool* made) {
  const cm_folder faxq =
      cm_open_folder(root.c_str(), cm_get_faxq_dir(root.c_str()));
  UniqueFd queue;
  {
    const FileIdentity maker = faxq.Enter();
    if (!faxq.valid() || !maker.held()) return UniqueFd();
    *made = mkdirat(faxq.fd(), user, 0700) == 0;
    if (!*made && errno != EEXIST) return UniqueFd();
    queue.reset(Kut_open_at(
        faxq.fd(), user,
        *made ? O_RDONLY | O_DIRECTORY | O_NOFOLLOW : O_PATH | O_DIRECTORY));
  }
  // Made with the identity of the folder's owner where this is root: that one
  // is its owner until it is given away.
  const uid_t maker = geteuid() == 0 ? faxq.owner().uid : geteuid();
  if (!*made || !queue.valid() || GiveQueue(queue.get(), maker, owner, mode)) {
    return queue;
  }
  // Its existence makes a fax user: none is left whom it does not belong to.
  const int saved = errno;
  unlinkat(faxq.fd(), user, AT_REMOVEDIR);
  errno = saved;
  return UniqueFd();
}

// Makes a directory in the queue as the one whose that is: it is the user's
// from the beginning, and of the queue's group by its set-group-ID bit.
Status MakeIn(int queue, const kut_fsid& owner, const std::string& path,
              mode_t mode, bool* made) {
  const FileIdentity identity(owner);
  const NoUmask no_umask;
  if (!identity.held()) return SystemFailure(krt_system, path);
  if (mkdirat(queue, Kut_basename(path.c_str()),
              mode & (S_IRWXU | S_IRWXG | S_IRWXO)) == 0) {
    *made = true;
  } else if (errno != EEXIST) {
    return SystemFailure(krt_cannot_create, path);
  }
  return {};
}

// Makes what is missing of a user's directories.
Status AddUser(const std::string& root, const std::string& user) {
  if (user.size() > kMaxUser || !cm_is_plain_name(user.c_str())) {
    return {krt_bad_data, "not a plain name of at most " +
                              std::to_string(kMaxUser) + " characters"};
  }
  const int uid = Kut_uname_to_uid(user.c_str());
  if (uid < 0) return {krt_no_user, "no such user on this system"};
  bool made = false;
  const std::string path = cm_get_user_dir(root.c_str(), user.c_str());
  const auto rows = cm_user_tree();  // the queue, then what lies in it
  const UniqueFd queue =
      MakeQueue(root, user.c_str(), uid, rows.front().mode, &made);
  kut_fsid owner;
  if (!queue.valid() || !Kut_owner_of(queue.get(), &owner)) {
    return SystemFailure(krt_cannot_create, path);
  }
  for (const cm_tree_entry& entry : rows.subspan(1)) {
    Status s = MakeIn(queue.get(), owner, path + entry.path, entry.mode, &made);
    if (!s.ok()) return s;
  }
  // Nothing was missing: queue, settings, messages and events are all there.
  if (!made) return {krt_refused, "is a fax user already"};
  return {};
}

kx::Object UserObject(const std::string& name) {
  kx::Object user = kx::Build("obj-user");
  kx::SetText(user.get(), "clientid", name.c_str());
  return user;
}

}  // namespace

void RunUserList(App& app) {
  if (!app.Connect()) return;
  const std::string dir = cm_get_faxq_dir(app.root().c_str());
  DirReader users;
  std::vector<std::string> names;
  if (users.Open(dir.c_str()) != 0 || !fx_visible_names(&users, &names)) {
    return app.Fail("", SystemFailure(krt_io, dir));
  }
  for (const std::string& name : names) {
    if (!fx_is_valid_user(app.root().c_str(), name.c_str())) continue;
    app.out().Result(UserObject(name).get(), name);
  }
}

void RunUserAdd(App& app) {
  if (!app.Connect()) return;
  for (const std::string& name : app.line().args) {
    if (app.dry_run()) {
      app.Note("would make " +
               std::string(cm_get_user_dir(app.root().c_str(), name.c_str())));
      continue;
    }
    if (Status s = AddUser(app.root(), name); !s.ok()) {
      app.Fail(name, s);
      continue;
    }
    app.out().Done(UserObject(name).get(), name + " is a fax user now");
  }
}

}  // namespace client
