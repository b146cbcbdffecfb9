// The command line of krtsim.
//
// - It is read here and not by krtctl's parser (ctl/app), which stands above
// the
//   client library: krtsim is no client, it plays what clients talk to. Nor is
//   there much to share: three verbs of one word, whose options go straight
//   into the struct that the verbs read.
#ifndef SIMULATOR_OPTIONS_H_
#define SIMULATOR_OPTIONS_H_

#include <string>
#include <vector>

#include "simulator/scheduler.h"

namespace sim {

enum class Verb { kNone, kInit, kRun, kReceive, kHelp, kVersion };

struct Options {
  Verb verb = Verb::kNone;
  std::string root;
  std::vector<std::string> users;  // of init; the one of receive
  std::string spool;  // that the daemon watches; empty: the root's filspool
  Course course;
  int pages = 0;  // of every fax; 0: as its files have
  bool exit_when_idle = false;
  bool quiet = false;
};

// Reads the command line. False, with what is wrong in `fault`.
bool ParseOptions(int argc, const char* const* argv, Options* options,
                  std::string* fault);

// The help text, made from the same tables.
std::string HelpText();

}  // namespace sim

#endif  // SIMULATOR_OPTIONS_H_
