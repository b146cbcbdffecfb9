#include "util/kutenv.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr int kUnknown = -1;

constinit char* g_kfaxdir = nullptr;
constinit char* g_kfaxbin = nullptr;
constinit int g_kfaxdbg = kUnknown;

// A copy, since a later setenv() may free what getenv() gave.
char* CopyFromEnv(const char* name, const char* fallback) {
  const char* value = getenv(name);
  return strdup(value != nullptr && *value != '\0' ? value : fallback);
}

bool IsOn(const char* text) {
  if (*text >= '0' && *text <= '9') return strtol(text, nullptr, 10) != 0;
  return strcmp(text, "on") == 0 || strcmp(text, "yes") == 0 ||
         strcmp(text, "true") == 0;
}

}  // namespace

const char* Kut_get_kfaxdir() {
  if (g_kfaxdir == nullptr) {
    g_kfaxdir = CopyFromEnv("KFAXDIR", "/usr/krtfax/spool");
  }
  return g_kfaxdir;
}

const char* Kut_get_kfaxbin() {
  if (g_kfaxbin != nullptr) return g_kfaxbin;
  g_kfaxbin = CopyFromEnv("KFAXBIN", "/usr/krtfax/bin");
  return g_kfaxdir;  // not a slip of today: the first call has always done so
}

int Kut_get_kfaxdbg() {
  if (g_kfaxdbg == kUnknown) {
    const char* value = getenv("FXDEBUG");
    g_kfaxdbg = value != nullptr && IsOn(value) ? 1 : 0;
  }
  return g_kfaxdbg;
}

void Kut_env_reset() {
  free(g_kfaxdir);
  free(g_kfaxbin);
  g_kfaxdir = nullptr;
  g_kfaxbin = nullptr;
  g_kfaxdbg = kUnknown;
}
