// How handlers tell their outcome.
#ifndef COMMANDS_CMDRESULT_H_
#define COMMANDS_CMDRESULT_H_

#include "kx/object.h"

constexpr int kCmdMessageSize = 256;  // "errmsg" with its terminator

// Success: "result" 0, and `data`, if any, in "objptr". 0.
int cmd_succeed(kx_object* rsp, kx::Object data = nullptr);

// Failure: logs the message, formatted as printf does and cut to what "errmsg"
// holds, and puts it and the error number into the response. -1.
int cmd_fail(kx_object* rsp, int error, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// The same, with the object library's present error for a reason: "<what>:
// <its message>".
int cmd_fail_why(kx_object* rsp, int error, const char* what);

// An "obj-reqlst" of the type, an enum name, with the list in it. Null, and the
// list freed, with an error number.
kx::Object cmd_make_list(const char* listtype, kx::Object list);

#endif  // COMMANDS_CMDRESULT_H_
