#include "simulator/output.h"

#include <cstdarg>
#include <cstdio>

namespace sim {
namespace {

constinit bool g_quiet = false;

}  // namespace

void BeQuiet() { g_quiet = true; }

void Say(const char* format, ...) {
  if (g_quiet) return;
  va_list args;
  va_start(args, format);
  vprintf(format, args);
  va_end(args);
  putchar('\n');
  fflush(stdout);
}

void Complain(const char* format, ...) {
  va_list args;
  va_start(args, format);
  fputs("krtsim: ", stderr);
  vfprintf(stderr, format, args);
  va_end(args);
  fputc('\n', stderr);
}

bool OutputLost() { return ferror(stdout) != 0; }

std::string Printable(std::string_view text) {
  std::string safe(text);
  for (char& c : safe) {
    if (c < ' ' || c > '~') c = '?';
  }
  return safe;
}

}  // namespace sim
