#include "link/place.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "util/kutuser.h"

namespace client {
namespace {

constexpr char kBuiltInRoot[] = "/usr/krtfax/spool";
constexpr size_t kMaxHost = 63;
// A staged file is "<spool>/NNNN-RRR.N.ext", in a field of 255 characters.
constexpr size_t kMaxSpool = 230;

bool Given(const char* text) { return text != nullptr && *text != '\0'; }

bool IsDirectory(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The value of KFAXDIR in a file of shell assignments; the last one counts.
std::string RootOfDefaults(const char* path) {
  std::ifstream file(path);
  std::string found;
  // The service reads it as assignments, and a shell may source it as well.
  for (std::string line; std::getline(file, line);) {
    size_t at = line.find_first_not_of(" \t");
    if (at == line.npos) continue;
    if (line.compare(at, 7, "export ") == 0) at += 7;
    if (line.compare(at, 8, "KFAXDIR=") != 0) continue;
    std::string value = line.substr(at + 8);
    if (!value.empty() && (value[0] == '"' || value[0] == '\'')) {
      const size_t end = value.find(value[0], 1);
      value = value.substr(1, end == value.npos ? end : end - 1);
    } else {
      value = value.substr(0, value.find_first_of(" \t\r#"));
    }
    found = value;
  }
  return found;
}

// The path without links, as another process will need it.
Status Resolve(const std::string& what, std::string* path) {
  char resolved[PATH_MAX];
  if (realpath(path->c_str(), resolved) == nullptr) {
    return SystemFailure(krt_no_root, what + " " + *path);
  }
  *path = resolved;
  if (!IsDirectory(*path)) {
    return {krt_no_root, what + " " + *path + ": Not a directory"};
  }
  return {};
}

bool InGroup(gid_t wanted) {
  if (getegid() == wanted) return true;
  const int count = getgroups(0, nullptr);
  std::vector<gid_t> groups(count > 0 ? static_cast<size_t>(count) : 0);
  if (getgroups(count, groups.data()) < 0) return false;
  for (const gid_t gid : groups) {
    if (gid == wanted) return true;
  }
  return false;
}

std::string HostName() {
  char name[HOST_NAME_MAX + 1] = "";
  gethostname(name, sizeof name - 1);
  return std::string(name).substr(0, kMaxHost);
}

}  // namespace

void ChooseRoot(const char* root, const char* defaults_file, Place* place) {
  const char* variable = getenv("KFAXDIR");
  if (Given(root)) {
    place->root = root;
    place->source = "--root";
  } else if (Given(variable)) {
    place->root = variable;
    place->source = "KFAXDIR";
  } else if (Given(defaults_file)) {
    place->root = RootOfDefaults(defaults_file);
    place->source = defaults_file;
  }
  if (place->root.empty()) {
    place->root = kBuiltInRoot;
    place->source = "built-in default";
  }
}

Status FindPlace(const char* root, const char* spool, const char* defaults_file,
                 Place* place) {
  *place = Place();
  ChooseRoot(root, defaults_file, place);
  const std::string what = "root (" + place->source + ")";
  if (Status s = Resolve(what, &place->root); !s.ok()) return s;
  place->sessions = cm_get_sessions_dir(place->root.c_str());
  place->spool =
      Given(spool) ? spool : cm_get_filspool_dir(place->root.c_str());
  if (place->sessions.empty() || place->spool.size() > kMaxSpool) {
    return {krt_no_root, what + " " + place->root + ": the path is too long"};
  }
  if (Status s = Resolve("spool directory", &place->spool); !s.ok()) return s;
  if (!IsDirectory(place->sessions)) {
    return {krt_no_root, "sessions directory " + place->sessions +
                             " is missing: krtctl check --fix"};
  }
  return {};
}

std::string UserName(uid_t uid) {
  const char* name = Kut_uid_to_uname(static_cast<int>(uid));
  return name != nullptr ? name : std::to_string(uid);
}

bool MayActForOthers() {
  if (cm_is_krt_admin(static_cast<int>(getuid()))) return true;
  const int gid = cm_get_krt_gid();
  return gid >= 0 && InGroup(static_cast<gid_t>(gid));
}

Status FindIdentity(const char* user, Identity* identity) {
  identity->host = HostName();
  // The real uid: a program with the set-user-id bit speaks for its caller.
  const char* login = Kut_get_usrname();
  identity->user = login != nullptr ? login : "";
  if (Given(user) && identity->user != user) {
    if (!MayActForOthers()) {
      return {krt_no_permission, "--user is for root and the group " +
                                     std::string(cm_get_krt_gname()) + " only"};
    }
    identity->user = user;
  }
  if (identity->user.empty()) {
    return {krt_no_user,
            "user id " + std::to_string(getuid()) + " has no login name"};
  }
  if (identity->user.size() > kMaxUser) {
    return {krt_bad_data, "user " + identity->user + ": at most " +
                              std::to_string(kMaxUser) + " characters"};
  }
  if (!cm_is_plain_name(identity->user.c_str())) {
    return {krt_bad_data, "user " + identity->user + ": not a plain name"};
  }
  return {};
}

}  // namespace client
