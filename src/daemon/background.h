// Detaching a process from its terminal.
#ifndef DAEMON_BACKGROUND_H_
#define DAEMON_BACKGROUND_H_

// Points descriptors 0, 1 and 2 at /dev/null and forks. In the parent 0; in the
// child, which leads a session of its own, its pid; -1 with errno when the fork
// or, in the child, the new session failed.
int dmn_put_in_bg();

#endif  // DAEMON_BACKGROUND_H_
