// user list, user add: the users of the fax server are the directories below
// faxq, and are kept on the server's own disk.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "client/actions.h"
#include "client/app.h"
#include "client/format.h"
#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "faxserver/fsnames.h"
#include "faxserver/fsuser.h"
#include "util/kutuser.h"

namespace client {
namespace {

constexpr mode_t kUserDirMode = 0770;

// Makes a directory of a user's; one that exists stays as it is. The new one is
// reached through a descriptor: above it the user may have put a link in its
// place by now.
Status MakeFor(const std::string& user, const char* path, bool* made) {
  if (mkdir(path, kUserDirMode) != 0) {
    if (errno == EEXIST) return {};
    return SystemFailure(krt_cannot_create, path);
  }
  const UniqueFd dir(Kut_open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  // Only the super-user can give it away; the fax system's user keeps it.
  const int owner = getuid() == 0 ? Kut_uname_to_uid(user.c_str()) : -1;
  const int group = cm_get_krt_gid();
  *made = dir.valid() && fchmod(dir.get(), kUserDirMode) == 0 &&
          fchown(dir.get(), static_cast<uid_t>(owner),
                 static_cast<gid_t>(group)) == 0;
  if (*made) return {};
  Status failed = SystemFailure(krt_system, path);
  rmdir(path);
  return failed;
}

// Makes what is missing of a user's directories.
Status AddUser(const std::string& root, const std::string& user) {
  if (user.size() > 15 || !cm_is_plain_name(user.c_str())) {
    return {krt_bad_data, "not a plain name of at most 15 characters"};
  }
  if (Kut_uname_to_uid(user.c_str()) < 0) {
    return {krt_no_user, "no such user on this system"};
  }
  bool made = false;
  for (const char* path : {cm_get_user_dir(root.c_str(), user.c_str()),
                           cm_get_opts_dir(root.c_str(), user.c_str()),
                           cm_get_msgs_dir(root.c_str(), user.c_str()),
                           cm_get_evnt_dir(root.c_str(), user.c_str())}) {
    if (Status s = MakeFor(user, path, &made); !s.ok()) return s;
  }
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
