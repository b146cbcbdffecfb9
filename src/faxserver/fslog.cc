#include "faxserver/fslog.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace {

constexpr size_t kLineSize = 256;

using Sink = void (*)(const char* text);
constinit Sink g_sink = nullptr;

}  // namespace

void fx_log_to(Sink sink) { g_sink = sink; }

void fx_logf(const char* format, ...) {
  if (g_sink == nullptr) return;
  const int saved = errno;
  char line[kLineSize];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  g_sink(line);
  errno = saved;
}
