// Objects in text form, as users write them.
#ifndef CTL_APP_TEXTFORM_H_
#define CTL_APP_TEXTFORM_H_

#include <string>

#include "kx/object.h"
#include "link/status.h"

namespace client {

// Reads one object in text form. Other than the object library, which skips
// what it does not know, this refuses unknown fields and says in which line
// (krt_bad_data). `type` is that of the object, also where the text does not
// begin with "objbeg".
Status ParseObject(const std::string& text, const char* type, kx::Object* obj);

}  // namespace client

#endif  // CTL_APP_TEXTFORM_H_
