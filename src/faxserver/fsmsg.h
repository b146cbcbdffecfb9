// Text messages: "obj-msg" objects whose `lines` are "obj-text"s.
//
// - A line has at most 255 characters; what is longer goes on in a further
//   line. White space is stripped from both ends. An empty line is a blank, so
//   that it is not lost.
// - The caller frees a returned object. Null comes with an error number:
//   kx_err_system when the file cannot be read, kx_err_memory without memory,
//   kx_err_too_long when the text has more lines or bytes than the limits
//   message-lines and message-bytes allow.
#ifndef FAXSERVER_FSMSG_H_
#define FAXSERVER_FSMSG_H_

#include <cstdio>

#include "kx/kfx.h"

// A message of the user's messages directory.
kx_object* fx_msg_retrieve(const char* root, const char* user,
                           const char* name);

// The text in a file ("-": standard input), and in an open stream.
kx_object* fx_tmsg_load(const char* path);
kx_object* fx_tmsg_read(FILE* stream);

#endif  // FAXSERVER_FSMSG_H_
