// Where the fax server lives, as the environment tells it.
//
// - Each value is taken from the environment when it is first asked for and
//   kept: a later setenv() changes nothing, and the returned texts stay valid
//   until Kut_env_reset().
// - A variable that is set to the empty text counts as not set.
#ifndef UTIL_KUTENV_H_
#define UTIL_KUTENV_H_

// The fax server's root directory: "KFAXDIR", or "/usr/krtfax/spool".
const char* Kut_get_kfaxdir();

// The directory of the fax server's programs: "KFAXBIN", or "/usr/krtfax/bin".
// The first call of a process returns the root directory instead if that was
// asked for before, else null. Callers count on it: make one call and drop the
// result where the directory itself is wanted.
const char* Kut_get_kfaxbin();

// 1 when "FXDEBUG" starts with a digit and is a number other than 0, or is
// exactly "on", "yes" or "true"; else 0.
int Kut_get_kfaxdbg();

// Forgets the three values (and that Kut_get_kfaxbin was called). For tests.
void Kut_env_reset();

#endif  // UTIL_KUTENV_H_
