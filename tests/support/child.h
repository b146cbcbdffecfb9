// What a test does in another process.
#ifndef SUPPORT_CHILD_H_
#define SUPPORT_CHILD_H_

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

// The exit status of a child of this process, -1 if a signal ended it.
inline int Reaped(pid_t pid) {
  int status;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Begins a child that ends with the status that `body` gives.
template <typename Body>
pid_t BeginChild(Body body) {
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  return pid;
}

// Runs `body` in a child: its exit status, -1 if a signal ended it.
template <typename Body>
int InChild(Body body) {
  return Reaped(BeginChild(body));
}

#endif  // SUPPORT_CHILD_H_
