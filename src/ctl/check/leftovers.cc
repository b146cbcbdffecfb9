// What lies about in the spool: commands that nobody finished, files that
// nobody fetched, session numbers that nobody gave back.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "cm/cmfolder.h"
#include "cm/cmkrt.h"
#include "ctl/check/check.h"
#include "ctl/format/format.h"
#include "faxserver/fspopen.h"
#include "util/kutfile.h"
#include "util/kutident.h"
#include "util/kutio.h"
#include "util/kutproc.h"

namespace client {
namespace {

// A command waits for a busy daemon, and an answer for its client; after an
// hour neither is coming.
constexpr time_t kOldAfter = 3600;      // seconds, for what is in the spool
constexpr time_t kAbandonedAfter = 60;  // seconds; a claim is read at once

time_t AgeOf(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? time(nullptr) - st.st_mtime : 0;
}

// How long ago a command was claimed: the rename set the time of its status.
// The time of its content is the client's.
time_t SinceClaim(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? time(nullptr) - st.st_ctime : 0;
}

bool IsNumber(const std::string& text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(),
                     [](unsigned char c) { return isdigit(c) != 0; });
}

// A folder of the fax system's, in which root repairs as its owner: links that
// others could have put there lead nowhere that those could not go.
cm_folder FolderAt(const Findings& findings, const std::string& path) {
  if (cm_is_in_tree(findings.root(), path.c_str())) {
    return cm_open_folder(findings.root(), path.c_str());
  }
  UniqueFd fd(Kut_open(path.c_str(), O_PATH | O_DIRECTORY));
  kut_fsid owner;
  if (!fd.valid() || !Kut_owner_of(fd.get(), &owner)) return cm_folder();
  return cm_folder(std::move(fd), owner);
}

void CheckClaim(Findings* findings, const std::string& name, long pid) {
  const std::string& spool = findings->place().spool;
  const std::string path = spool + "/" + name;
  if (!IsAbandonedClaim(pid, SinceClaim(path))) return;
  const std::string base = name.substr(0, name.rfind('.'));
  const std::string what = "abandoned command " + name;
  // Whoever removes a claim may carry it out: this one was not. A worker that
  // has just read it finds it gone and leaves it alone.
  if (findings->Repairs("Put " + name + " back to be carried out?")) {
    const cm_folder folder = FolderAt(*findings, spool);
    const FileIdentity owner = folder.Enter();
    if (folder.valid() && owner.held() &&
        Kut_rename_fresh(folder.fd(), name.c_str(), (base + ".cmd").c_str()) ==
            0) {
      return findings->Ok(what + ": put back");
    }
    return findings->Fail(what + ": " + strerror(errno), "look as root");
  }
  findings->Warn(what, "krtctl check --fix, or remove it");
}

// Nobody believes an answer that is somebody else's.
std::string AsOwner(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0 || st.st_uid == geteuid() ||
      cm_is_krt_admin(static_cast<int>(st.st_uid))) {
    return "";
  }
  return ", as " + UserName(st.st_uid);
}

void CheckOld(Findings* findings, const std::string& name,
              const std::string& ext) {
  const std::string path = findings->place().spool + "/" + name;
  const time_t age = AgeOf(path);
  if (age < kOldAfter) return;
  const std::string base = name.substr(0, name.rfind('.'));
  const std::string what = name + " is " + Span(age) + " old";
  if (ext == "rsp") {
    return findings->Warn(
        what, "krtctl collect " + fx_shell_word(base.c_str()) + AsOwner(path));
  }
  if (ext == "cmd") {
    return findings->Warn(what, "see whether the daemon runs: krtctl ping");
  }
  findings->Warn(what, "rm " + fx_shell_word(path.c_str()));
}

}  // namespace

bool IsAbandonedClaim(long pid, time_t since) {
  return !Kut_process_exists(static_cast<pid_t>(pid)) ||
         since >= kAbandonedAfter;
}

void CheckSpoolFiles(Findings* findings) {
  for (const std::string& name : NamesIn(findings->place().spool)) {
    const size_t dot = name.rfind('.');
    const std::string ext = dot == name.npos ? "" : name.substr(dot + 1);
    // NAME.<pid> is a claim: the daemon's rename put the process there.
    if (IsNumber(ext)) {
      CheckClaim(findings, name, strtol(ext.c_str(), nullptr, 10));
    } else if (!ext.empty()) {
      CheckOld(findings, name, ext);
    }
  }
}

void CheckSlots(Findings* findings) {
  const Place& place = findings->place();
  int stale = 0;
  const cm_folder folder = FolderAt(*findings, place.sessions);
  const FileIdentity owner = folder.Enter();
  for (const std::string& name : NamesIn(place.sessions)) {
    if (SlotOfFile(name) < 0) continue;
    // Looking at one takes its lock for a moment, and gives it back.
    if (findings->Repairs()) {
      RetireSlot(place, name);
    } else {
      Slot slot;
      stale += slot.TryReserve(place, name) ? 1 : 0;
    }
  }
  if (stale == 0) return findings->Ok("session numbers");
  findings->Warn(std::to_string(stale) + " session numbers are left over",
                 "krtctl check --fix");
}

}  // namespace client
