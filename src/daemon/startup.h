// The daemon from its command line to its end.
#ifndef DAEMON_STARTUP_H_
#define DAEMON_STARTUP_H_

// Names the program, parses its options, detaches, registers, and runs the main
// loop until a stop signal. Does not return: exits with 0, after a bad option
// or a failed detachment with 1.
[[noreturn]] void krtcmd_run(int argc, char** argv);

// Prints the help to standard output and exits with 0, or, with `full` 0, a
// hint to standard error and exits with 1.
[[noreturn]] void Usage(int full);

#endif  // DAEMON_STARTUP_H_
