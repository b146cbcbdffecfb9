// Objects changed by the user: as NAME=VALUE words, or in an editor.
#ifndef CLIENT_EDITOR_H_
#define CLIENT_EDITOR_H_

#include <string>
#include <vector>

#include "client/app.h"

namespace client {

// Sets the fields that NAME=VALUE words name, in any case; an empty value
// resets. False after reporting the first that cannot be.
bool SetPairs(App& app, kx_object* obj, const std::vector<std::string>& pairs);

// Lets the user change an object's text form in VISUAL, EDITOR or vi; what
// makes no object is offered again. False when there is nothing to store:
// unchanged, given up, or failed (reported).
bool EditObject(App& app, const char* type, kx::Object* obj);

}  // namespace client

#endif  // CLIENT_EDITOR_H_
