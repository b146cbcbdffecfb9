// One table of faults, and the sweep that puts each of them at the first, the
// second, ... call of a piece of work until the work passes untouched.
#ifndef FAULTS_SWEEP_H_
#define FAULTS_SWEEP_H_

#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>

#include "support/fault.h"

struct FaultRow {
  int call;
  int error;
  bool lasts = false;
};

constexpr FaultRow kFaults[] = {
    {fault::kOpen, EMFILE},         {fault::kOpen, EINTR},
    {fault::kOpen, ENOSPC},         {fault::kRead, EIO},
    {fault::kRead, EINTR},          {fault::kRead, fault::kShort},
    {fault::kWrite, ENOSPC},        {fault::kWrite, EINTR},
    {fault::kWrite, fault::kShort}, {fault::kSync, EIO},
    {fault::kRename, EIO},          {fault::kUnlink, EIO},
    {fault::kLink, ENOSPC},         {fault::kMkdir, ENOSPC},
    {fault::kClose, EIO},           {fault::kFork, EAGAIN},
    {fault::kFork, ENOMEM},         {fault::kMemory, ENOMEM},
    {fault::kShared, ENOMEM},       {fault::kOpen, EMFILE, true},
    {fault::kWrite, ENOSPC, true},  {fault::kMemory, ENOMEM, true},
};

// Thousands of runs: in memory, where that is a file system like another. For
// a fixture to derive from, before its root.
struct InMemory {
  InMemory() {
    struct statvfs shm;
    if (statvfs("/dev/shm", &shm) == 0 && (shm.f_flag & ST_NOEXEC) == 0 &&
        access("/dev/shm", W_OK) == 0) {
      setenv("TMPDIR", "/dev/shm", 0);
    }
  }
};

inline std::string Describe(const FaultRow& row, int n) {
  std::ostringstream text;
  text << fault::kCallNames[row.call] << ' '
       << (row.error == fault::kShort ? "short" : strerrorname_np(row.error))
       << (row.lasts ? " from call " : " at call ") << n;
  return text.str();
}

inline std::string Unless(bool right, const std::string& complaint) {
  return right ? "" : complaint;
}

inline long CountFiles(const std::string& dir) {
  std::error_code gone;
  return std::distance(std::filesystem::directory_iterator(dir, gone), {});
}
inline long CountDescriptors(pid_t pid) {
  return CountFiles("/proc/" + std::to_string(pid) + "/fd");
}

// Removes the files that are somebody's on the way to their names; whether
// there were any.
inline bool RemoveTemporaries(const std::filesystem::path& root) {
  bool found = false;
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(root)) {
    const std::string name = entry.path().filename();
    if (name.find(".new") == name.npos && !name.ends_with(".tmp")) continue;
    found = true;
    std::filesystem::remove(entry.path());
  }
  return found;
}

#endif  // FAULTS_SWEEP_H_
