#include "util/kutsig.h"

#include <cstddef>

namespace {

struct Signal {
  int number;
  const char* name;
  const char* text;
};

constexpr Signal kSignals[] = {
    {14, "SIGALRM", "Alarm call"},
    {10, "SIGBUS", "Bus error"},
    {7, "SIGEMT", "EMT trap"},
    {8, "SIGFPE", "Floating point exception"},
    {1, "SIGHUP", "Hangup"},
    {4, "SIGILL", "Illegal instruction"},
    {2, "SIGINT", "Interrupt"},
    {6, "SIGIOT", "IOT trap"},
    {9, "SIGKILL", "Kill -9"},
    {13, "SIGPIPE", "Write to one-ended pipe"},
    {3, "SIGQUIT", "Quit"},
    {11, "SIGSEGV", "Segmentation violation"},
    {12, "SIGSYS", "Bad system call"},
    {15, "SIGTERM", "Software termination"},
    {5, "SIGTRAP", "Trace trap"},
    {6, "SIGABRT", "Abort"},
    {18, "SIGCHLD", "Child death"},
    {18, "SIGCLD", "Child death"},
    {25, "SIGCONT", "Continue after stop"},
    {22, "SIGIO", "I/O available"},
    {22, "SIGPOLL", "???"},
    {29, "SIGPROF", "Profiling?"},
    {19, "SIGPWR", "Power fail"},
    {23, "SIGSTOP", "Software stop"},
    {24, "SIGTSTP", "Terminal stop"},
    {26, "SIGTTIN", "??"},
    {27, "SIGTTOU", "??"},
    {21, "SIGURG", "Urgent I/O"},
    {16, "SIGUSR1", "User signal 1"},
    {17, "SIGUSR2", "User signal 2"},
    {28, "SIGVTALRM", "??"},
    {20, "SIGWINCH", "Window change"},
    {30, "SIGXCPU", "CPU time exceeded"},
    {31, "SIGXFSZ", "File size too large"},
};

constexpr size_t kUnnamedSize = 24;  // "<signal -2147483648>"

const Signal* Find(int number) {
  for (const Signal& row : kSignals) {
    if (row.number == number) return &row;
  }
  return nullptr;
}

// "<signal N>", without snprintf, which no handler may call.
const char* Unnamed(int number, char (&buffer)[kUnnamedSize]) {
  char digits[12];
  size_t count = 0;
  unsigned left = number < 0 ? 0u - static_cast<unsigned>(number)
                             : static_cast<unsigned>(number);
  do {
    digits[count++] = static_cast<char>('0' + left % 10);
    left /= 10;
  } while (left > 0);
  if (number < 0) digits[count++] = '-';

  char* out = buffer;
  for (const char* p = "<signal "; *p != '\0'; p++) *out++ = *p;
  while (count > 0) *out++ = digits[--count];
  *out++ = '>';
  *out = '\0';
  return buffer;
}

}  // namespace

const char* Kut_signame(int sig) {
  static char buffer[kUnnamedSize];
  const Signal* row = Find(sig);
  return row != nullptr ? row->name : Unnamed(sig, buffer);
}

const char* Kut_sigdesc(int sig) {
  static char buffer[kUnnamedSize];
  const Signal* row = Find(sig);
  return row != nullptr ? row->text : Unnamed(sig, buffer);
}
