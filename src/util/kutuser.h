// Users and groups by name and id, and what belongs to the running user.
//
// - Ids are `int` as everywhere in this system; -1 is no id.
// - Failure is -1, null or false, with errno ENOENT when there is no such user
//   or group and otherwise what the lookup said. A null or empty name is
//   unknown.
// - Returned texts are in the function's own static buffer.
// - Not for signal handlers.
#ifndef UTIL_KUTUSER_H_
#define UTIL_KUTUSER_H_

#include <sys/types.h>

#include <climits>

// What the user database says of a user.
struct kut_account {
  uid_t uid;
  gid_t gid;  // of the login
  char name[256];
  char home[PATH_MAX];
  char shell[PATH_MAX];
};

bool Kut_find_user(const char* name, kut_account* account);
bool Kut_find_uid(uid_t uid, kut_account* account);

int Kut_uname_to_uid(const char* name);
// The group of the user's login.
int Kut_uid_to_gid(int uid);
const char* Kut_uid_to_uname(int uid);
int Kut_gname_to_gid(const char* name);
const char* Kut_gid_to_gname(int gid);

// The name of the user whose real uid the process has.
const char* Kut_get_usrname();
// That user's home directory, as the user database tells it; the environment is
// not asked.
const char* Kut_get_homedir();
// The current directory.
const char* Kut_get_workdir();

#endif  // UTIL_KUTUSER_H_
