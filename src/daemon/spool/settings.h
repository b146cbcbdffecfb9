// The daemon's settings: set by its start-up from the command line, read by the
// transport, the dispatcher and the handlers.
//
// - Plain data of the process. Workers inherit what the daemon had.
// - Texts are borrowed: from the command line, the environment and the paths'
//   own buffers, all of which live as long as the process.
#ifndef DAEMON_SPOOL_SETTINGS_H_
#define DAEMON_SPOOL_SETTINGS_H_

#include <csignal>

extern const int krtcmd_major_version;
extern const int krtcmd_minor_version;
extern const int krtcmd_release;

extern int Debug;        // 1: start-up and per-command lines in the log
extern int save_cmds;    // 1: keep a copy of every command
extern int save_rsps;    // 1: keep a copy of every response
extern int num_daemons;  // daemons that share the directory; 0: one, with a
                         // worker process for each command
extern int sock_number;  // port of a network version; not used here
extern int log_fd;       // descriptor of an open log, or -1
extern int sleeptime;    // seconds between two looks and two response tries
extern int maxtrys;      // further tries for a response that was not written
extern int maxtasks;     // size of the subtask table
extern const int max_daemons;  // upper bound kept beside num_daemons

// Live command workers. Changed by the main flow with SIGCHLD blocked and by
// the child handler.
extern volatile sig_atomic_t subtask_cnt;
// The main loop runs while this is not 0; cleared by the stop signals.
extern volatile sig_atomic_t daemon_running;

extern const char* ProgName;  // base name of the program
extern const char* kfaxdir;   // the fax server's root directory
extern const char* netspool;  // the protocol's own spool directory
extern const char* file_dir;  // the directory that is watched

#endif  // DAEMON_SPOOL_SETTINGS_H_
