// Resolutions: "std" (the default), value 2, and "fine", value 3.
//
// - Each function sets kx_errno: 0, or kx_err_data on a miss.
#ifndef CM_CMRESO_H_
#define CM_CMRESO_H_

#include "kx/kfx.h"

// One "obj-resource" a resolution; the caller frees the list.
kx_object* cm_reso_list();
// The name and the description of a value, or "?".
const char* cm_reso_to_str(int value);
const char* cm_reso_desc(int value);
// The value of a name, exactly as written; descriptions are no names here. Of
// the default for null; -1 on a miss.
int cm_reso_fr_str(const char* text);
// The default's name.
const char* cm_reso_get_default();

#endif  // CM_CMRESO_H_
