// What a submitted command wants sent, in either of the two forms that clients
// use: "obj-env" with its lists, or the flat "obj-senv".
#ifndef SIMULATOR_ENVELOPE_H_
#define SIMULATOR_ENVELOPE_H_

#include <string>
#include <vector>

#include "kx/object.h"

namespace sim {

// Whether the object is an envelope.
bool IsEnvelope(kx_object* object);

// The envelope once for each destination, in their order; the caller's copies.
// None for an envelope without a destination.
std::vector<kx::Object> SplitByDestination(kx_object* env);

// The paths of the files to send.
std::vector<std::string> FilesOf(kx_object* env);

// How many pages all of it has: those of each fax file, one for any other file,
// one for a cover page, and one at the least. -1 with errno, and the file's
// name in `bad`, when one cannot be read.
int CountPages(kx_object* env, std::string* bad);

}  // namespace sim

#endif  // SIMULATOR_ENVELOPE_H_
