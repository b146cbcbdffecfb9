// user list, user add: the users of the fax server are the directories below
// faxq, and are kept on the server's own disk.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "client/actions.h"
#include "client/app.h"
#include "client/format.h"
#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "util/kutdir.h"
#include "util/kutuser.h"

namespace client {
namespace {

constexpr mode_t kUserDirMode = 0770;

// Makes a directory of a user's; one that exists stays as it is.
Status MakeFor(const std::string& user, const char* path) {
  if (mkdir(path, kUserDirMode) != 0) {
    if (errno == EEXIST) return {};
    return SystemFailure(krt_cannot_create, path);
  }
  const int uid = Kut_uname_to_uid(user.c_str());
  // Only the super-user can give it away; the fax system's user keeps it.
  const int owner = getuid() == 0 ? uid : -1;
  const int group = cm_get_krt_gid();
  if (chmod(path, kUserDirMode) != 0 ||
      chown(path, static_cast<uid_t>(owner), static_cast<gid_t>(group)) != 0) {
    return SystemFailure(krt_system, path);
  }
  return {};
}

Status AddUser(const std::string& root, const std::string& user) {
  if (user.size() > 15 || !cm_is_plain_name(user.c_str())) {
    return {krt_bad_data, "not a plain name of at most 15 characters"};
  }
  const char* dir = cm_get_user_dir(root.c_str(), user.c_str());
  if (access(dir, F_OK) == 0) return {krt_refused, "is a fax user already"};
  if (Kut_uname_to_uid(user.c_str()) < 0) {
    return {krt_no_user, "no such user on this system"};
  }
  for (const char* path : {dir, cm_get_opts_dir(root.c_str(), user.c_str()),
                           cm_get_msgs_dir(root.c_str(), user.c_str()),
                           cm_get_evnt_dir(root.c_str(), user.c_str())}) {
    if (Status s = MakeFor(user, path); !s.ok()) return s;
  }
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
  std::error_code error;
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir, error)) {
    if (entry.is_directory() && entry.path().filename().string()[0] != '.') {
      names.push_back(entry.path().filename());
    }
  }
  if (error) return app.Fail(krt_io, "", dir + ": " + error.message());
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    app.out().Result(UserObject(name).get(), Printable(name));
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
