// What verbs that deal with requests share.
#ifndef CLIENT_REQUESTS_H_
#define CLIENT_REQUESTS_H_

#include <string>
#include <vector>

#include "client/app.h"

namespace client {

// Waits until all requests have come to their end; each is a result, and a
// failure where the fax was not sent.
void AwaitRequests(App& app, const std::vector<std::string>& seqnos);

}  // namespace client

#endif  // CLIENT_REQUESTS_H_
