// What a sample root holds beside the tree that every fax server has
// (cm/cmtree.h).
#ifndef SIMULATOR_SAMPLES_H_
#define SIMULATOR_SAMPLES_H_

#include <sys/types.h>

#include <span>
#include <string>

namespace sim {

struct SampleFile {
  const char* path;  // below the root, or below a user's queue
  mode_t mode;
  const char* content;  // "@USER@" stands for the user's name
};

std::span<const SampleFile> SampleFiles();
std::span<const SampleFile> SampleUserFiles();

// The status files of two devices, fax0 and fax1, and the class "any" of both.
std::string SampleQstat();
std::string SampleDstat();

}  // namespace sim

#endif  // SIMULATOR_SAMPLES_H_
