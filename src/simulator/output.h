// What krtsim says: facts on standard output, faults on standard error.
//
// - A line is written at once, so that a script may wait for it. Texts that
//   came from others go through Printable.
#ifndef SIMULATOR_OUTPUT_H_
#define SIMULATOR_OUTPUT_H_

#include <string>
#include <string_view>

namespace sim {

// Drops the facts from now on.
void BeQuiet();
// A fact; the newline is added.
void Say(const char* format, ...) __attribute__((format(printf, 1, 2)));
// A fault, after "krtsim: ".
void Complain(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Whether standard output no longer takes lines.
bool OutputLost();

// The text with "?" for what is no printable ASCII character: a record must not
// forge a line.
std::string Printable(std::string_view text);

}  // namespace sim

#endif  // SIMULATOR_OUTPUT_H_
