// The simulator's place among the processes of a fax server.
#ifndef SIMULATOR_PRESENCE_H_
#define SIMULATOR_PRESENCE_H_

#include <string>

#include "util/kutio.h"

namespace sim {

// One simulator a root: holds a lock on the root directory itself, so that
// nothing is left behind whatever ends the process.
class RootLock {
 public:
  // False with errno: EWOULDBLOCK when another one has it, or what opening the
  // root said.
  bool Take(const std::string& root);

 private:
  UniqueFd dir_;
};

// This process as both session daemons in the register of daemons, for the
// object's life.
class Registration {
 public:
  Registration() = default;
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;
  ~Registration();

  // False with the reason: one of them runs already, or the register cannot be
  // written.
  bool Enter(const std::string& root, std::string* reason);

 private:
  std::string root_;  // empty until registered
};

}  // namespace sim

#endif  // SIMULATOR_PRESENCE_H_
