// Priorities: "x" none, "l" low, "m" medium (the default), "h" high, "u"
// urgent, with the values 0 to 80.
//
// - Each function sets kx_errno: 0, or kx_err_data on a miss.
#ifndef CM_CMPRIOR_H_
#define CM_CMPRIOR_H_

#include "kx/kfx.h"

// One "obj-resource" a priority, in ascending order; the caller frees the list.
kx_object* cm_prior_list();
// The name of the lowest priority that is at least `value`; "?" above urgent.
const char* cm_prior_to_str(int value);
// The description of exactly this value, or "?".
const char* cm_prior_desc(int value);
// The value of a name or description, in any case and by any of its beginnings
// (the comparison is Kut_strccmp's); of the default for null; -1 on a miss.
int cm_prior_fr_str(const char* text);
// The default's name.
const char* cm_prior_get_default();

#endif  // CM_CMPRIOR_H_
