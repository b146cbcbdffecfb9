// Result codes: below 1000 of one attempt, from 1000 on of a whole request.
//
// - The table is cm/cmresult.def.
// - Names and descriptions occur twice; a search by one finds the first row, so
//   an attempt's code before a request's.
// - Each function sets kx_errno: 0, or kx_err_data on a miss.
#ifndef CM_CMRESULT_H_
#define CM_CMRESULT_H_

#include "kx/kfx.h"

enum cm_result : int {
#define CM_RESULT(id, code, name, desc) id = code,
#include "cm/cmresult.def"
#undef CM_RESULT
};

// One "obj-resource" a result, in table order; the caller frees the list.
kx_object* cm_result_list();
// The name and the description of a code, or "?".
const char* cm_result_to_str(int code);
const char* cm_result_to_desc(int code);
// The code of a name or of a description, exactly as written; 0 for null, -1 on
// a miss.
int cm_result_fr_str(const char* name);
int cm_result_fr_desc(const char* desc);

#endif  // CM_CMRESULT_H_
