// The command line, read against a table of verbs.
#ifndef CTL_APP_PARSE_H_
#define CTL_APP_PARSE_H_

#include <string>
#include <utility>
#include <vector>

#include "ctl/app/verb.h"
#include "link/status.h"

namespace client {

struct CommandLine {
  const VerbRow* verb = nullptr;  // null: none was given
  std::vector<std::string> args;
  std::vector<std::pair<std::string, std::string>> options;  // as given

  bool Has(const char* option) const;
  // The value given last, or null.
  const char* Value(const char* option) const;
  std::vector<std::string> Values(const char* option) const;
};

// Options stand before or after the verb, as --name=value, --name value, -x
// value, -xvalue, and letters without values together; "--" ends them.
// krt_usage with the words to print; `line` holds then what was understood.
Status ParseCommandLine(const VerbTable& table, int argc,
                        const char* const* argv, CommandLine* line);

// "; did you mean \"...\"?" with the nearest name, "" when none is near.
std::string DidYouMean(const std::string& word,
                       const std::vector<const char*>& names);
// The name nearest to a misspelled one, or null when none is near.
const char* Nearest(const std::string& word,
                    const std::vector<const char*>& names);

}  // namespace client

#endif  // CTL_APP_PARSE_H_
