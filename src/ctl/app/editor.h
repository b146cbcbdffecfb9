// Objects changed by the user in an editor.
#ifndef CTL_APP_EDITOR_H_
#define CTL_APP_EDITOR_H_

#include "ctl/app/app.h"

namespace client {

// Lets the user change an object's text form in VISUAL, EDITOR or vi; what
// makes no object is offered again. False when there is nothing to store:
// unchanged, given up, or failed (reported).
bool EditObject(App& app, const char* type, kx::Object* obj);

}  // namespace client

#endif  // CTL_APP_EDITOR_H_
