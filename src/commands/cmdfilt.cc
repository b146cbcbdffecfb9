// "cmd-filetype"
#include "cm/cmfiltp.h"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"

int process_filetype(kx_object* cmd, kx_object* rsp) {
  const char* path = cmd_file_name(cmd_argument(cmd), "pathname", rsp);
  if (path == nullptr) return -1;
  kx::Object answer = kx::Build("obj-resource");
  if (answer == nullptr) {
    return cmd_fail_why(rsp, Kfx_Errno(), "Cannot create resource object");
  }
  kx::SetText(answer.get(), "rname", cm_filetype(path));
  return cmd_succeed(rsp, std::move(answer));
}
