#include "daemon/background.h"

#include <fcntl.h>
#include <unistd.h>

int dmn_put_in_bg() {
  for (int fd = 0; fd <= STDERR_FILENO; ++fd) close(fd);
  // Each takes the lowest free number; inherited by children on purpose.
  for (int fd = 0; fd <= STDERR_FILENO; ++fd) {
    static_cast<void>(open("/dev/null", O_RDWR));
  }
  const pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid > 0) return 0;
  if (setsid() < 0) return -1;
  return getpid();
}
