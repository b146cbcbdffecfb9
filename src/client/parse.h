// The command line, read against the table of verbs.
#ifndef CLIENT_PARSE_H_
#define CLIENT_PARSE_H_

#include <string>
#include <utility>
#include <vector>

#include "client/status.h"
#include "client/verbs.h"

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
Status ParseCommandLine(int argc, const char* const* argv, CommandLine* line);

// The next words of verbs' names after these first ones ("": none yet), in
// table order: "list", "get" and so on after "fax".
std::vector<std::string> NextWords(const std::string& words);
// Whether a verb's name is, or begins with, these words.
bool NameBegins(const char* name, const std::string& words);

// "; did you mean \"...\"?" with the nearest name, "" when none is near.
std::string DidYouMean(const std::string& word,
                       const std::vector<const char*>& names);
// The name nearest to a misspelled one, or null when none is near.
const char* Nearest(const std::string& word,
                    const std::vector<const char*>& names);

}  // namespace client

#endif  // CLIENT_PARSE_H_
