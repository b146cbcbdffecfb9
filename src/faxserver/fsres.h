// Resource lists: what a client may choose from.
//
// - Each list holds "obj-resource" objects, `rname` and `rdesc` (unset where
//   nothing is known); the caller frees it. Null is the empty list.
// - kx_errno is 0, and kx_err_system where the list's source cannot be read. A
//   list's own optional file (covers.lst, prtdests.lst, retrys) may be missing:
//   then the list is empty unless it says otherwise.
// - A name that does not fit its field is left out and logged.
#ifndef FAXSERVER_FSRES_H_
#define FAXSERVER_FSRES_H_

#include "kx/kfx.h"

// The list of a type "lst-covers" (1) to "lst-tnps" (12). Null with kx_err_data
// for any other number.
kx_object* fx_get_res_list(const char* root, int listtype);

// The covers to choose from: the lines of krtnet/covers.lst, each a name, white
// space and a description ("#" begins a comment line), in that order; without
// that file all covers.
kx_object* fx_res_cvr_list(const char* root);
// All executable files of the covers directory, by name without extension, in
// order of the names, described as in covers.lst.
kx_object* fx_res_allcvr_list(const char* root);
// The five types of cm_filetype, and the files of the Formatters directory.
kx_object* fx_res_filtyp_list(const char* root);
// Page lengths.
kx_object* fx_res_pglen_list(const char* root);
// Groups: the files of the groups directory.
kx_object* fx_res_grp_list(const char* root);
// Print destinations: the lines of krtnet/prtdests.lst, written as covers.lst.
kx_object* fx_res_prt_list(const char* root);
// Retry strategies: the lines of the file retrys, written as covers.lst.
kx_object* fx_res_retry_list(const char* root);
// Programs to run on a new request: the files of the tnp directory.
kx_object* fx_res_tnp_list(const char* root);

// Puts an "obj-resource" into a list that is sorted by name, behind those of
// the same name. The list's head; the resource is the list's.
kx_object* fx_add_in_order(kx_object* list, kx_object* resource);

#endif  // FAXSERVER_FSRES_H_
