// What a field can hold, checked before anything is sent: a value that does not
// fit is refused by name and limit, never cut.
#ifndef CTL_FORMAT_FIELDS_H_
#define CTL_FORMAT_FIELDS_H_

#include <string>

#include "kx/kxobj.h"

namespace client {

// Why the field cannot hold the text, naming the field; "" when it can. The
// empty text, which resets a field, always fits.
std::string WhyNoValue(const kx_fielddef& field, const std::string& text);

// The enum name that people mean by a text: they leave the group out where a
// field takes names of one group only ("ok" for "not-ok").
std::string EnumName(const char* field, const std::string& text);

}  // namespace client

#endif  // CTL_FORMAT_FIELDS_H_
