// Running the program of the tag "tnp" on a new request.
#ifndef FAXSERVER_FSLAUNCH_H_
#define FAXSERVER_FSLAUNCH_H_

// Runs the program with the sequence number as its one argument, or /bin/sh on
// it when it cannot be executed itself, and waits for it. The exit status, that
// of the shell for a program that does not exist, 1 when there is no shell
// either, 128 and above for an end by a signal. 0 without the tag, -1 with
// kx_err_system without a child.
int fx_launch(long seqno, const char* root);

#endif  // FAXSERVER_FSLAUNCH_H_
