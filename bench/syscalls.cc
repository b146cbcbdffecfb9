#include "syscalls.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Lets the child run to its next stop; false when there is none.
bool NextStop(pid_t child, int* status) {
  return ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 &&
         waitpid(child, status, 0) == child && WIFSTOPPED(*status);
}

}  // namespace

int TraceCalls(const std::function<void()>& program,
               const std::function<bool(long)>& entered) {
  const pid_t child = fork();
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
    raise(SIGSTOP);
    program();
    _exit(127);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return -1;
  ptrace(PTRACE_SETOPTIONS, child, nullptr,
         PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  while (NextStop(child, &status)) {
    if (WSTOPSIG(status) != (SIGTRAP | 0x80)) continue;
    __ptrace_syscall_info info;
    ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY &&
        !entered(static_cast<long>(info.entry.nr))) {
      break;
    }
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  return 0;
}
