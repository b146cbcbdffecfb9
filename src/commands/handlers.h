// The handlers of all commands, each in the unit named beside it. They share
// one contract, that of cmd_handler.
//
// - A failure is logged and told to the client: "result" is an error number and
//   "errmsg" the logged text. A success has "result" 0.
// - The argument is the command's "objptr". One of the wrong type is "Invalid
//   ..." with 11 where nothing else is said.
// - Every name that a client sends becomes part of a path as one plain
//   component only; any other fails like one that does not exist.
#ifndef COMMANDS_HANDLERS_H_
#define COMMANDS_HANDLERS_H_

#include "kx/kfx.h"

// Requests.

// cmdsubm: keeps the command in the queued directory and announces it on the
// spool fifo. What reads the fifo answers in this daemon's place, so that
// "respond" in `cmd` (not in the copy that is kept) changes to its opposite.
int process_submit(kx_object* cmd, kx_object* rsp);
// cmdcanc: cancels the request of an "obj-reqid".
int process_cancel(kx_object* cmd, kx_object* rsp);
// cmdtry: has the request of an "obj-reqid" tried now.
int process_try(kx_object* cmd, kx_object* rsp);
// cmdstat: the "obj-status" of an "obj-reqid". A wrong argument is 13.
int process_status(kx_object* cmd, kx_object* rsp);
// cmdstl: the same for each attempt, as a list. A wrong argument is 13.
int process_statlist(kx_object* cmd, kx_object* rsp);
// cmdste: the "obj-state" of the fax server. No argument.
int process_state(kx_object* cmd, kx_object* rsp);
// cmdrout: copies or moves the fax that an "obj-route" names to another user.
int process_route(kx_object* cmd, kx_object* rsp);
// cmdresl: the resource list that an "obj-reqlst" asks for, in another one.
int process_reslist(kx_object* cmd, kx_object* rsp);

// Cover pages and file types.

// cmdcvrt: the tags of the cover page that the argument's `rname` names, as an
// "obj-reqlst". A missing argument is 19.
int process_cvrtags(kx_object* cmd, kx_object* rsp);
// cmdcvrm: the cover pages that have all of the tags in the argument, a list.
// 0 also on failure, which is 2 and "errmsg" alone. A missing argument is 19.
int process_cvrmatch(kx_object* cmd, kx_object* rsp);
// cmdfilt: the type of the file that an "obj-file" names, as an "obj-resource".
int process_filetype(kx_object* cmd, kx_object* rsp);

// Images and messages.

// cmdimg: a failure for the client, and yet 0.
int process_image(kx_object* cmd, kx_object* rsp);
// cmdimgr: the "obj-file" of an "obj-faxinfo"; the response embeds the image.
int process_imgret(kx_object* cmd, kx_object* rsp);
// cmdimgs: moves the uploaded file of an "obj-reqsto" into the client's queue.
int process_imgstore(kx_object* cmd, kx_object* rsp);
// cmdimgd: deletes the image of an "obj-faxinfo". A failure is 5.
int process_imgdel(kx_object* cmd, kx_object* rsp);
// cmdimgp: prints the image of an "obj-reqprt" as the client's user.
int process_imgprint(kx_object* cmd, kx_object* rsp);
// cmdmsgl: the list that an "obj-reqlst" asks for, in another one.
int process_msglist(kx_object* cmd, kx_object* rsp);
// cmdmsgr: the "obj-msg" of the message that an "obj-resource" names.
int process_msgret(kx_object* cmd, kx_object* rsp);
// cmdmsgd: deletes that message.
int process_msgdel(kx_object* cmd, kx_object* rsp);

// A user's settings, and commands on a user's behalf.

// cmdcfgg, cmdcfgs: the client's "obj-config", and a new one in its place.
int process_getcfg(kx_object* cmd, kx_object* rsp);
int process_setcfg(kx_object* cmd, kx_object* rsp);
// cmdmong, cmdmons: the client's "obj-monitor", and a new one in place of that
// of the user whom it names.
int process_getmon(kx_object* cmd, kx_object* rsp);
int process_setmon(kx_object* cmd, kx_object* rsp);
// cmdextc: what the command of an "obj-extcmd" printed, or, on failure, its
// error output; the result is the error number.
int process_extcmd(kx_object* cmd, kx_object* rsp);
// cmdclnf: deletes the client's events of requests that are gone.
int process_clnfax(kx_object* cmd, kx_object* rsp);

// The phone book.

// cmdpcmd: carries out the "obj-pbcom" on the client's books; the same object,
// with the results, goes into the response. Without one: 19. A failure has the
// phone book's error number and text.
int process_pbcmd(kx_object* cmd, kx_object* rsp);

#endif  // COMMANDS_HANDLERS_H_
