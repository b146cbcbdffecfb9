// The queueing side: submitted commands become requests, and their clients get
// their answers.
//
// - The daemon answers a client that asked for no response as soon as it has
//   saved the command; every other client is answered here, once the requests
//   are on the disk. So each submit is answered once.
// - A command with several destinations becomes one request for each, all of
//   one group number, or none at all.
// - A saved command is removed when all of that is done. One that is no command
//   gets the extension "bad" and is left.
// - Limits: killed between the two, the next run queues the command again.
#ifndef SIMULATOR_INTAKE_H_
#define SIMULATOR_INTAKE_H_

#include <string>
#include <vector>

#include "simulator/scheduler.h"

namespace sim {

class Intake {
 public:
  // `spool` is the directory that the daemon watches, where answers go; `pages`
  // is the number of pages of every fax, 0 for those of its files.
  Intake(const std::string& root, const std::string& spool, int pages,
         Scheduler* scheduler);

  // Queues the saved command of that name.
  void Take(const std::string& name);
  // Queues the commands that no record tells of, since their reader ended: what
  // has lain there for longer than the daemon waits for one.
  void TakeForgotten();

 private:
  struct Refusal {
    int error = 0;  // of the object library; 0: none
    std::string text;
  };

  Refusal Queue(kx_object* cmd, std::vector<Request>* requests) const;
  Refusal MakeRequests(kx_object* cmd, std::vector<Request>* requests) const;
  Refusal MakeRequest(kx_object* cmd, kx_object* env, Request* request) const;
  void Answer(kx_object* cmd, const Refusal& refusal,
              const std::vector<Request>& requests) const;

  std::string root_;
  std::string spool_;
  int pages_;
  Scheduler* scheduler_;
};

}  // namespace sim

#endif  // SIMULATOR_INTAKE_H_
