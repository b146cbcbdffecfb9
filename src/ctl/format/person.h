// A person's fields as people name them.
//
// - Beside the stored fields a person has "name", "fax", "voice", "pager" and
//   "cell", each one text for several of them, converted by the phone book's
//   own rules.
#ifndef CTL_FORMAT_PERSON_H_
#define CTL_FORMAT_PERSON_H_

#include <set>
#include <string>
#include <vector>

#include "kx/object.h"
#include "link/status.h"

namespace client {

// The names of the stored fields, in table order.
const std::vector<const char*>& PersonFields();
// Those and the combined ones.
const std::vector<const char*>& PersonNames();
// The name in its right spelling, or null.
const char* FindPersonName(const std::string& name);

// Stores a text under any of the names. krt_bad_data with the reason; the
// person is then as it was.
Status SetPersonText(kx_object* person, const std::string& name,
                     const std::string& text);
// The text under any of the names, "" when unset.
std::string PersonText(kx_object* person, const std::string& name);

// Gives a person without an alias one that is in no use: made from a text (a
// name, say) by leaving letters and digits, with a number if need be. `used`
// holds aliases in capitals and receives the new one.
void MakeAlias(kx_object* person, const std::string& text,
               std::set<std::string>* used);
// A person's alias as it is compared: in capitals.
std::string AliasKey(const std::string& alias);

}  // namespace client

#endif  // CTL_FORMAT_PERSON_H_
