// The source of commands: in this build, the watched directory. The calls that
// open and close a connection are a network version's and do nothing here.
//
// - This is the one place where a claimed command is handed up to the
//   dispatcher.
// - With num_daemons 0 each command has a worker process of its own, in a
//   process group of its own; otherwise commands are run here, one at a time.
// - Signals arrive at any moment but between the fork of a worker and its entry
//   in the subtask table.
//
// Limits: a command that is claimed while no worker can be forked is left under
// its claimed name, unanswered, with a log line.
#ifndef DAEMON_MONITOR_H_
#define DAEMON_MONITOR_H_

// "file".
const char* monitor_type();
int monitor_open(int port, int secs);  // 0
// Takes `dir`, which is not copied, as the directory to watch. 0, or -1 with a
// log line when it is not there.
int monitor_start(const char* dir, int secs);
// One pass: has every ready command processed. When there was none, waits
// `secs` seconds (for ever, when negative), less if a command arrives or a stop
// signal comes. The number of commands taken.
int monitor_read(int secs);
// Processes the claimed file `name`. The result of do_cmd, or -1 with a log
// line when the file holds no command.
int monitor_cmd(const char* name);
int monitor_stop();   // 0
int monitor_close();  // 0

#endif  // DAEMON_MONITOR_H_
