// The names in a directory, in an order that does not depend on the disk. False
// with errno when the directory cannot be read to its end, or holds more than
// `most` of them (EFBIG, logged).
#ifndef FAXSERVER_FSNAMES_H_
#define FAXSERVER_FSNAMES_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "util/kutdir.h"

struct fx_numbered {
  long number;
  std::string name;
};

// The entries named `prefix` and a decimal number, by number. A number is
// digits alone and fits 32 bits.
bool fx_numbered_names(DirReader* dir, const char* prefix,
                       std::vector<fx_numbered>* names, size_t most = SIZE_MAX);

// Whether lists show an entry: not a hidden one, nor one with the extension
// "tmp", which is being written.
bool fx_is_visible_name(const char* name);

// All entries that lists show, sorted by name.
bool fx_visible_names(DirReader* dir, std::vector<std::string>* names,
                      size_t most = SIZE_MAX);

// How many names may be taken from a directory that a user fills, each of which
// becomes an object: as many as object-bytes has kilobytes.
size_t fx_users_names();

// A text that is digits alone and fits 31 bits, as a number; else -1.
long fx_plain_number(const char* text);

#endif  // FAXSERVER_FSNAMES_H_
