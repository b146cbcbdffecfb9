// Telling a client what became of a request.
#ifndef SIMULATOR_NOTIFY_H_
#define SIMULATOR_NOTIFY_H_

#include <string>

#include "simulator/request.h"

namespace sim {

// Puts a message of that name into a user's messages directory and sends the
// event for it. A fault is told on standard error.
void LeaveMessage(const std::string& root, const std::string& user,
                  const std::string& name, const std::string& text);

// Leaves a message for the client when the request asks to be notified of such
// an end. `result` is that of the request.
void Notify(const std::string& root, const Request& request, int result);

}  // namespace sim

#endif  // SIMULATOR_NOTIFY_H_
