// The daemon's signal handlers, all of them.
//
// - catch_sig is installed for one shot: a second signal of a kind acts as the
//   system's default. It interrupts a blocking call, and wakes daemon_idle even
//   when it comes just before the call. A program that the daemon runs itself
//   is ended.
// - What they do is safe in a handler; errno is kept.
#ifndef DAEMON_SIGNALS_H_
#define DAEMON_SIGNALS_H_

// Installs catch_sig for SIGINT, SIGQUIT and SIGTERM and, with `workers`,
// catch_cld for SIGCHLD. 0, or -1 with errno when no wake-up channel could be
// made.
int signals_install(bool workers);
// In a forked worker: the child handler is dropped, SIGTERM and SIGINT end the
// process through monitor_sigint, and with it the program that it runs.
void signals_for_worker();
// Readable from the moment a stop signal came; -1 before signals_install.
int signals_wake_fd();

// SIGINT, SIGQUIT, SIGTERM: logs the signal and ends the main loop.
void catch_sig(int sig);
// SIGCHLD: collects every worker that has ended.
void catch_cld(int sig);
// SIGTERM and SIGINT in a worker: logs the signal and exits with status 1.
void monitor_sigint(int sig);

#endif  // DAEMON_SIGNALS_H_
