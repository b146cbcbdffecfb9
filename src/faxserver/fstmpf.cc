#include <unistd.h>

#include <cstdio>

#include "cm/cmpaths.h"
#include "faxserver/fsfiles.h"

const char* fx_tmpname(const char* dir, const char* ext) {
  static char name[kCmPathSize];
  const int length =
      snprintf(name, sizeof name, "%s/fx%05d.%s", dir != nullptr ? dir : "/tmp",
               static_cast<int>(getpid()), ext != nullptr ? ext : "tmp");
  if (length < 0 || static_cast<size_t>(length) >= sizeof name) name[0] = '\0';
  return name;
}
