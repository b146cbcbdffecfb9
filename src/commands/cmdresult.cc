#include "commands/cmdresult.h"

#include <cstdarg>
#include <cstdio>

#include "daemon/spool/logfile.h"

int cmd_succeed(kx_object* rsp, kx::Object data) {
  Kfx_Set(rsp, "result", Kfx_Word_To_Str(kx_err_none));
  if (data != nullptr) kx::SetChild(rsp, "objptr", std::move(data));
  return 0;
}

int cmd_fail(kx_object* rsp, int error, const char* format, ...) {
  char message[kCmdMessageSize];
  va_list args;
  va_start(args, format);
  vsnprintf(message, sizeof message, format, args);
  va_end(args);
  dmn_log_write(message);
  Kfx_Set(rsp, "result", Kfx_Word_To_Str(error));
  Kfx_Set(rsp, "errmsg", message);
  return -1;
}

int cmd_fail_why(kx_object* rsp, int error, const char* what) {
  return cmd_fail(rsp, error, "%s: %s", what, Kfx_Errmsg(Kfx_Errno()));
}

kx::Object cmd_make_list(const char* listtype, kx::Object list) {
  kx::Object answer = kx::Build("obj-reqlst");
  if (answer == nullptr) return answer;
  kx::SetText(answer.get(), "listtype", listtype);
  kx::SetChild(answer.get(), "listptr", std::move(list));
  return answer;
}
