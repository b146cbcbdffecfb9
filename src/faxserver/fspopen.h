// Command lines through the shell.
#ifndef FAXSERVER_FSPOPEN_H_
#define FAXSERVER_FSPOPEN_H_

#include <signal.h>
#include <sys/types.h>

#include <cstdio>
#include <string>

// Keeps a SIGCHLD handler from taking a child away that somebody waits for.
class fx_child_guard {
 public:
  fx_child_guard();
  fx_child_guard(const fx_child_guard&) = delete;
  fx_child_guard& operator=(const fx_child_guard&) = delete;
  ~fx_child_guard();

 private:
  sigset_t old_;
};

// A text as one word of a shell's command line, whatever it holds.
std::string fx_shell_word(const char* text);

// Runs a command line for a client, as the fax system's user where the process
// is root's and the system knows that user, else as its own, within its budget
// (fsprog.h), its output readable by the caller, its input and error output
// /dev/null. Null with errno. One at a time; SIGCHLD is blocked until
// fx_pclose. The stream comes to its end when the command is ended as well.
FILE* fx_popen(const char* command);
// Closes the stream and waits for the command. Its status as of waitpid(2),
// where an end by a signal is an exit with 128 and its number; or -1 with
// errno: ECANCELED, and a log line, for a command that was ended for its
// budget.
int fx_pclose(FILE* stream);

#endif  // FAXSERVER_FSPOPEN_H_
