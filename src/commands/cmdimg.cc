// "cmd-image"
#include "commands/cmdresult.h"
#include "commands/handlers.h"

int process_image(kx_object*, kx_object* rsp) {
  cmd_fail(rsp, kx_err_failed, "Image cmd not yet implemented");
  return 0;
}
