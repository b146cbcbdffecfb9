// A user's configuration, an object file in the user's options directory.
#ifndef FAXSERVER_FSCONFIG_H_
#define FAXSERVER_FSCONFIG_H_

#include "kx/kfx.h"

// The user's "obj-config", an empty one when there is none; the caller frees
// it. Null: kx_err_user for an invalid user; for a file that is there but
// damaged, as Kfx_Comp_Obj.
kx_object* fx_get_config(const char* root, const char* user);

// Replaces the user's configuration; the options directory is made when
// missing. The object stays the caller's. 0 and kx_errno 0, or -1: kx_err_data
// for an invalid user, kx_err_system, and the old configuration stays.
int fx_set_config(const char* root, const char* user, kx_object* config);

#endif  // FAXSERVER_FSCONFIG_H_
