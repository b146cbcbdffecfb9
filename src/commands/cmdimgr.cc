// "cmd-imgret"
#include "cm/cmfiltp.h"
#include "cm/cmlimits.h"
#include "cm/cmpaths.h"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"

namespace {

// The size of an image, of which the client gets all; -1 for what is none.
long ImageSize(const char* user, const char* name) {
  struct stat st;
  return cmd_open_fax(cmd_open_queue(user), name, &st).valid() ? st.st_size
                                                               : -1;
}

}  // namespace

int process_imgret(kx_object* cmd, kx_object* rsp) {
  kx_object* info = cmd_argument(cmd);
  kx::Object file = kx::Build("obj-file");
  if (file == nullptr) {
    return cmd_fail_why(rsp, kx_err_failed, "Cannot create file object");
  }
  const char* user = kx::TextOrEmpty(info, "clientid");
  const char* name = kx::TextOrEmpty(info, "filename");
  const cm_path path = cm_join_plain(cm_get_user_dir(kfaxdir, user), name);
  const long size = ImageSize(user, name);
  if (size < 0) {
    return cmd_fail(rsp, kx_err_failed, "File %s does not exist", name);
  }
  const long limit = cm_limit(cm_limit_id::kFileBytes);
  if (size > limit) {
    return cmd_fail(rsp, kx_err_failed, "File %s is larger than %s", name,
                    cm_limit_text(limit));
  }
  kx::SetText(file.get(), "filetype", cm_filetype(name));
  kx::SetText(file.get(), "pathname", path.text);
  return cmd_succeed(rsp, std::move(file));
}
