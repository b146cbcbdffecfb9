#include "commands/cmdargs.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cm/cmpaths.h"
#include "commands/cmdresult.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsnames.h"

namespace {

constexpr std::size_t kFaxNameMax = 127;  // what "filename" holds

int Missing() {
  errno = ENOENT;
  return -1;
}

// Whether the name is that of a directory in the queue directory.
bool IsFolderName(const char* name) {
  constexpr const char* (*kFolders[])(const char*, const char*) = {
      cm_get_opts_dir, cm_get_msgs_dir, cm_get_evnt_dir};
  return std::ranges::any_of(kFolders, [name](auto path) {
    return strcmp(Kut_basename(path("/", "u")), name) == 0;
  });
}

}  // namespace

kx_object* cmd_argument(kx_object* cmd) { return kx::Child(cmd, "objptr"); }

const char* cmd_client(kx_object* cmd) {
  return kx::TextOrEmpty(cmd, "clientid");
}

cm_folder cmd_open_queue(const char* user) {
  return fx_open_folder(kfaxdir, user, cm_get_user_dir(kfaxdir, user));
}

cm_folder cmd_open_messages(const char* user) {
  return fx_open_folder(kfaxdir, user, cm_get_msgs_dir(kfaxdir, user));
}

const char* cmd_file_name(kx_object* argument, const char* field,
                          kx_object* rsp) {
  const char* name = kx::Text(argument, field);
  if (name == nullptr) cmd_fail(rsp, kx_err_data, "No filename specified");
  return name;
}

bool cmd_is_fax_name(const char* name) {
  return cm_is_plain_name(name) && fx_is_visible_name(name) &&
         strlen(name) <= kFaxNameMax && !IsFolderName(name);
}

UniqueFd cmd_open_file(const cm_folder& folder, const char* name,
                       struct stat* st) {
  if (folder.valid() && !cm_is_plain_name(name)) return UniqueFd(Missing());
  return fx_open_in(folder, name, st);
}

UniqueFd cmd_open_fax(const cm_folder& queue, const char* name,
                      struct stat* st) {
  if (queue.valid() && !cmd_is_fax_name(name)) return UniqueFd(Missing());
  return fx_open_in(queue, name, st);
}

int cmd_delete_file(const cm_folder& folder, const char* name) {
  if (!folder.valid()) return -1;
  if (!cm_is_plain_name(name)) return Missing();
  const FileIdentity owner = folder.Enter();
  struct stat st;
  if (!owner.held() ||
      fstatat(folder.fd(), name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return -1;
  }
  return S_ISREG(st.st_mode) ? unlinkat(folder.fd(), name, 0) : Missing();
}

int cmd_delete_fax(const cm_folder& queue, const char* name) {
  if (queue.valid() && !cmd_is_fax_name(name)) return Missing();
  return cmd_delete_file(queue, name);
}
