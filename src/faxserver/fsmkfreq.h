// Making a request out of what a client submitted.
#ifndef FAXSERVER_FSMKFREQ_H_
#define FAXSERVER_FSMKFREQ_H_

#include "kx/kfx.h"

// The next number of a sequence-number file (one decimal number, the last one
// given out), taken under a lock: no two processes get the same. A file that is
// missing or holds no number counts from 0. -1 with kx_err_system.
long fx_next_seqno(const char* path);

// A new "obj-freq" for the client, which the caller frees: its number from
// OSEQF (skipping numbers whose request file exists), its fields from the
// submitted envelope ("obj-env", or any object with fields of those names),
// from the tag table where the envelope is silent, and from the system's
// defaults after that. Active, queued, without attempts. Null: kx_err_user for
// an invalid user, kx_err_data without a fax number, kx_err_system (also when
// the tag table or the default queue cannot be read at present), kx_err_memory.
// Nothing is saved.
kx_object* fx_make_freq(const char* root, const char* clientid, kx_object* env);

#endif  // FAXSERVER_FSMKFREQ_H_
