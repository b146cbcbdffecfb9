// "cmd-filetype"
#include "cm/cmfiltp.h"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"

int process_filetype(kx_object* cmd, kx_object* rsp) {
  kx_object* file = cmd_argument(cmd, "obj-file");
  if (file == nullptr) {
    return cmd_fail(rsp, kx_err_command, "Invalid file-type command");
  }
  const char* path = kx::Text(file, "pathname");
  if (path == nullptr) {
    return cmd_fail(rsp, kx_err_data, "No filename specified");
  }
  kx::Object answer = kx::Build("obj-resource");
  if (answer == nullptr) {
    const int error = Kfx_Errno();
    return cmd_fail(rsp, error, "Cannot create resource object: %s",
                    Kfx_Errmsg(error));
  }
  kx::SetText(answer.get(), "rname", cm_filetype(path));
  return cmd_succeed(rsp, std::move(answer));
}
