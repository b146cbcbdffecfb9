// What the machine has to give: the fax system's account, room on the disk, and
// protections that the kernel has to be told of.
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>

#include "cm/cmkrt.h"
#include "ctl/app/files.h"
#include "ctl/check/check.h"
#include "ctl/format/format.h"

namespace client {
namespace {

constexpr unsigned long long kLittleSpace = 100'000'000;  // bytes

// One of the system's protections of directories that several can write.
void CheckProtection(Findings* findings, const char* name, bool needed) {
  std::string value;
  const std::string path = std::string("/proc/sys/fs/") + name;
  if (access(path.c_str(), R_OK) != 0 || !ReadWhole(path, &value).ok()) return;
  const std::string setting = std::string("fs.") + name;
  const std::string fix = "sysctl -w " + setting + "=1";
  if (atoi(value.c_str()) > 0) return findings->Ok(setting + " is on");
  if (needed) {
    return findings->Warn(
        setting + " is off: users can give others' files a name of their own",
        fix);
  }
  findings->Ok(setting + " is off; safer: " + fix);
}

}  // namespace

void CheckSystemUser(Findings* findings) {
  const std::string user = cm_get_krt_uname();
  const std::string group = cm_get_krt_gname();
  cm_get_krt_gid() >= 0
      ? findings->Ok("group " + group)
      : findings->Fail("no group " + group, "groupadd --system " + group);
  cm_get_krt_uid() >= 0
      ? findings->Ok("user " + user)
      : findings->Fail("no user " + user,
                       "useradd --system --gid " + group + " " + user);
}

void CheckSpace(Findings* findings) {
  struct statvfs fs;
  const std::string& spool = findings->place().spool;
  if (statvfs(spool.c_str(), &fs) != 0) return;
  const unsigned long long left =
      static_cast<unsigned long long>(fs.f_bavail) * fs.f_frsize;
  const std::string what = Bytes(left) + " free at " + spool;
  if (left == 0 || (fs.f_files > 0 && fs.f_favail == 0)) {
    return findings->Fail(what, "make room");
  }
  left < kLittleSpace ? findings->Warn(what, "make room") : findings->Ok(what);
}

void CheckProtections(Findings* findings) {
  CheckProtection(findings, "protected_hardlinks", true);
  for (const char* name :
       {"protected_symlinks", "protected_fifos", "protected_regular"}) {
    CheckProtection(findings, name, false);
  }
}

}  // namespace client
