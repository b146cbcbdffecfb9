// What lies in a user's queue, messages and events directories.
//
// - `since` is a time in seconds; above 0, a list holds only what changed after
//   it.
// - The caller frees a returned list. Null is the empty list with kx_errno 0,
//   also where the directory is missing; kx_err_user for a user that is not
//   valid, kx_err_system for a directory that cannot be read. A list is whole:
//   where an entry cannot be made or read for want of memory (kx_err_memory),
//   descriptors or a sound disk (kx_err_system), or all take more than
//   object-bytes (kx_err_too_long, with too many names kx_err_system), there is
//   none.
// - Only regular files are entries, links are not followed. Hidden files and
//   those with the extension "tmp", which are being written, are none. A name
//   that does not fit its field is left out and logged.
// - Every list but that of server messages is in order of its names (events:
//   their numbers).
#ifndef FAXSERVER_FSLIST_H_
#define FAXSERVER_FSLIST_H_

#include "kx/kfx.h"

// "obj-servmsg": the objects that stand one after the other in the file of
// server messages, in their order. All of them when the file changed after
// `since`. The reading ends before the first that is damaged.
kx_object* fx_get_srv_list(const char* root, const char* user, int since);
// "obj-faxinfo": the files of the queue directory. `fstatus` is new, `rcvtime`
// the file's time; `npages` is set where it is a fax file.
kx_object* fx_get_fax_list(const char* root, const char* user, int since);
// "obj-tinfo": the files of the messages directory but that of the server.
kx_object* fx_get_msg_list(const char* root, const char* user, int since);
// "obj-route": every other valid user, `fromid` the user and `toid` the other.
// Not narrowed by time.
kx_object* fx_get_rte_list(const char* root, const char* user, int since);
// "obj-status": the statuses of the events directory. One that is damaged, or
// may not be read, is left out.
kx_object* fx_get_evt_list(const char* root, const char* user, int since);

#endif  // FAXSERVER_FSLIST_H_
