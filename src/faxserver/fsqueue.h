// Queues by name.
#ifndef FAXSERVER_FSQUEUE_H_
#define FAXSERVER_FSQUEUE_H_

#include "kx/kfx.h"

// The name of the default queue, the first line of the file Default, in a
// static buffer of 128 bytes; kx_errno 0. "" with kx_err_system without one.
const char* fx_queue_get_default(const char* root);
// Makes a queue the default, null for none. 0 and kx_errno 0, or -1 with
// kx_err_system.
int fx_queue_set_default(const char* root, const char* name);
// An "obj-resource" for each record of qstat, name and description the queue's
// name, sorted by it; the caller frees the list. Null: kx_err_system without
// that file.
kx_object* fx_queue_list(const char* root);

#endif  // FAXSERVER_FSQUEUE_H_
