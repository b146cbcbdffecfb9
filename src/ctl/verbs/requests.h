// What verbs that deal with requests share.
#ifndef CTL_VERBS_REQUESTS_H_
#define CTL_VERBS_REQUESTS_H_

#include <string>
#include <vector>

#include "ctl/app/app.h"

namespace client {

// Waits until all requests have come to their end; each is a result, and a
// failure where the fax was not sent.
void AwaitRequests(App& app, const std::vector<std::string>& seqnos);

}  // namespace client

#endif  // CTL_VERBS_REQUESTS_H_
