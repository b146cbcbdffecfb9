// Files of exchanges in a spool directory, within one process.
#ifndef DAEMON_SPOOL_FILES_H_
#define DAEMON_SPOOL_FILES_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "daemon/spool/sxfile.h"
#include "daemon/sxready.h"
#include "support/sample_root.h"

class SpoolFiles : public ::testing::Test {
 protected:
  // The process has one list of names: nothing of it is left to the next test.
  ~SpoolFiles() override {
    while (!Claim().empty()) {
    }
  }
  const char* dir() const { return dir_.c_str(); }
  std::string Path(const std::string& name) const { return dir_ + "/" + name; }
  // The claimed name, or "" when none is ready.
  std::string Claim() const {
    char name[kSxNameSize] = "cmd";
    return sx_ready(dir(), name) == 0 ? name : "";
  }
  // Sets the directory's time.
  void SetTime(const timespec& time) const {
    const timespec times[2] = {time, time};
    utimensat(AT_FDCWD, dir(), times, 0);
  }

  support::SampleRoot root_;
  std::string dir_ = root_.spool();
};

inline kx::Object Response(int session, int reference) {
  kx::Object rsp = kx::Build("obj-cmdrsp");
  kx::SetNumber(rsp.get(), "sessionid", session);
  kx::SetNumber(rsp.get(), "reference", reference);
  return rsp;
}

#endif  // DAEMON_SPOOL_FILES_H_
