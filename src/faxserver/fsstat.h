// What became of a user's requests: the status objects in the user's events
// directory, each in the file named by its sequence number.
//
// - The caller frees a returned object. Null comes with an error number.
#ifndef FAXSERVER_FSSTAT_H_
#define FAXSERVER_FSSTAT_H_

#include "faxserver/fsfolder.h"
#include "kx/object.h"

// The request's "obj-status". Null: kx_err_system without one (or without such
// a user); otherwise as Kfx_Comp_Obj.
kx_object* fx_read_status(const char* root, const char* clientid, long seqno);

// The same from the events directory, by the file's name. A null budget is one
// of its own; kx_err_too_long over it.
kx::Object fx_read_status_in(const cm_folder& events, const char* name,
                             kx_budget* budget = nullptr);

// A list of the request's "obj-status", one an attempt, earliest first, each
// with what the outgoing log tells of it and of this client, ended by a summary
// without an attempt. A request without an attempt has its one status. Null: as
// fx_read_status and fx_read_olog_list, kx_err_memory without memory,
// kx_err_too_long when all of them take more than object-bytes.
kx_object* fx_status_list(const char* root, const char* clientid, long seqno);

// Deletes the user's statuses of requests whose request file is gone. What has
// no sequence number for its name stays. Always 0, kx_errno 0.
int fx_clean_events(const char* root, const char* user);

#endif  // FAXSERVER_FSSTAT_H_
