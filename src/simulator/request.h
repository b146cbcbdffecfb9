// One request and its files.
//
//     requests/r-<seqno>            the request, as the scheduler keeps it
//     faxq/<client>/events/<seqno>  its status, as the client sees it
//     temp/f-<seqno>.fax            what is sent
//     expired/x-<seqno>             the request when it is over
#ifndef SIMULATOR_REQUEST_H_
#define SIMULATOR_REQUEST_H_

#include <ctime>
#include <string>
#include <vector>

#include "kx/object.h"

namespace sim {

struct Request {
  kx::Object freq;    // "obj-freq"
  kx::Object status;  // "obj-status"
  // When the next attempt is due or, with a device, when this one ends, by
  // Kut_now_ms.
  long due = 0;
  int device = -1;   // that sends it; -1: it waits
  time_t begun = 0;  // the attempt under way

  long seqno() const { return kx::Number(freq.get(), "seqno"); }
  bool is_sending() const { return device >= 0; }
  std::string client() const {
    return kx::TextOrEmpty(status.get(), "clientid");
  }
};

// Write the request file, the status with the present time, or both. False with
// kx_errno.
bool SaveFreq(const std::string& root, const Request& request);
bool SaveStatus(const std::string& root, const Request& request);
bool Save(const std::string& root, const Request& request);

// Moves the request file to the expired ones and removes the fax. False with
// kx_errno.
bool Retire(const std::string& root, const Request& request);
// Removes every file of a request that was not queued after all.
void Discard(const std::string& root, const Request& request);

// The requests that wait in the requests directory, with their statuses. One
// whose status no user has is left out.
std::vector<Request> LoadRequests(const std::string& root);

}  // namespace sim

#endif  // SIMULATOR_REQUEST_H_
