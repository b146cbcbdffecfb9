// What the spool directory makes of those who put commands there.
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <vector>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "ctl/check/check.h"
#include "link/daemons.h"
#include "util/kutfile.h"
#include "util/kutident.h"
#include "util/kutuser.h"

namespace client {
namespace {

// Who can put files into a directory: its owner alone, or a group that is the
// fax system's, or strangers as well, who are told for people.
struct Writers {
  enum { kOwner, kFaxSystem, kStrangers } who = kOwner;
  std::string strangers;

  void Add(bool fax_system, const std::string& name) {
    if (fax_system && who == kOwner) who = kFaxSystem;
    if (fax_system) return;
    who = kStrangers;
    strangers += (strangers.empty() ? "" : ", ") + name;
  }
};

// Entries of the attribute in which the kernel shows an access control list:
// tag and permissions of 16 bits and an id of 32, after a version of 32 bits.
constexpr char kAclName[] = "system.posix_acl_access";
constexpr size_t kAclHead = 4;
constexpr size_t kAclEntry = 8;
constexpr unsigned kAclUser = 0x02;
constexpr unsigned kAclGroupObject = 0x04;
constexpr unsigned kAclGroup = 0x08;
constexpr unsigned kAclMask = 0x10;
constexpr unsigned kAclWrite = 2;

struct AclEntry {
  unsigned tag, rights;
  unsigned id;
};

// The access control list of a file, none without one.
std::vector<AclEntry> ReadAcl(const std::string& path) {
  unsigned char bytes[4096];
  const ssize_t size = getxattr(path.c_str(), kAclName, bytes, sizeof bytes);
  const auto number = [&](size_t at, size_t count) {
    unsigned value = 0;
    while (count-- > 0) value = value << 8 | bytes[at + count];
    return value;
  };
  std::vector<AclEntry> entries;
  for (size_t at = kAclHead; static_cast<ssize_t>(at + kAclEntry) <= size;
       at += kAclEntry) {
    entries.push_back({number(at, 2), number(at + 2, 2), number(at + 4, 4)});
  }
  return entries;
}

std::string GroupName(gid_t gid) {
  const char* name = Kut_gid_to_gname(static_cast<int>(gid));
  return "the group " + (name != nullptr ? name : std::to_string(gid));
}

bool IsFaxGroup(const std::string& root, gid_t gid) {
  return gid == 0 || static_cast<int>(gid) == cm_get_krt_gid() ||
         IsDaemonsGroup(root, gid);
}

// The mode's group bits are the list's mask where there is a list.
void AddAcl(const std::string& root, const struct stat& st,
            const std::vector<AclEntry>& acl, Writers* writers) {
  for (const AclEntry& entry : acl) {
    if ((entry.rights & kAclWrite) == 0) continue;
    if (entry.tag == kAclGroupObject) {
      writers->Add(IsFaxGroup(root, st.st_gid), GroupName(st.st_gid));
    } else if (entry.tag == kAclGroup) {
      writers->Add(IsFaxGroup(root, entry.id), GroupName(entry.id));
    } else if (entry.tag == kAclUser && entry.id != st.st_uid) {
      writers->Add(cm_is_krt_admin(static_cast<int>(entry.id)),
                   UserName(entry.id));
    }
  }
}

Writers WritersOf(const std::string& root, const std::string& path,
                  const struct stat& st) {
  Writers writers;
  if ((st.st_mode & S_IWGRP) != 0) {
    const std::vector<AclEntry> acl = ReadAcl(path);
    if (acl.empty()) {
      writers.Add(IsFaxGroup(root, st.st_gid), GroupName(st.st_gid));
    } else {
      AddAcl(root, st, acl, &writers);
    }
  }
  if ((st.st_mode & S_IWOTH) != 0) writers.Add(false, "everybody");
  return writers;
}

// A directory above the spool directory: who can write there can put another in
// its place.
void CheckAbove(Findings* findings, const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return;
  const Writers writers = WritersOf(findings->root(), path, st);
  const bool sticky = (st.st_mode & S_ISVTX) != 0;
  // A user's own group is that user.
  const bool own = static_cast<int>(st.st_gid) == Kut_login_gid(st.st_uid);
  if (writers.who == Writers::kStrangers && !sticky &&
      !(own && writers.strangers == GroupName(st.st_gid))) {
    findings->Warn(path + ", above the spool directory, can be written by " +
                       writers.strangers,
                   "chmod go-w " + path);
  }
}

// The tree's own directories are looked at elsewhere.
void CheckAllAbove(Findings* findings) {
  // Without links: who can write where the path really goes can exchange it.
  char resolved[PATH_MAX];
  if (realpath(findings->place().spool.c_str(), resolved) == nullptr) return;
  const std::string krtnet = cm_get_krtnet_dir(findings->root());
  for (std::string path = resolved; path != "/";) {
    path = Kut_dirname(std::string(path).c_str());
    if (path != findings->root() && path != krtnet) CheckAbove(findings, path);
  }
}

}  // namespace

void CheckTrust(Findings* findings) {
  struct stat st;
  const std::string& spool = findings->place().spool;
  if (stat(spool.c_str(), &st) != 0) return;
  const Writers writers = WritersOf(findings->root(), spool, st);
  switch (writers.who) {
    case Writers::kOwner:
      findings->Ok("commands are trusted as " + UserName(st.st_uid) +
                   ", who alone writes " + spool);
      break;
    case Writers::kFaxSystem:
      findings->Ok(
          "commands are trusted at most as the fax system's, for any "
          "client but never as root: its group writes " +
          spool);
      break;
    case Writers::kStrangers:
      findings->Ok(
          "commands are trusted for their owners alone, and those of "
          "root, " +
          std::string(cm_get_krt_uname()) + " and its group refused: " +
          writers.strangers + " can write " + spool);
      break;
  }
  CheckAllAbove(findings);
}

}  // namespace client
