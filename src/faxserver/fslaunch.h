// Running the program of the tag "tnp" on a new request.
#ifndef FAXSERVER_FSLAUNCH_H_
#define FAXSERVER_FSLAUNCH_H_

// Runs the program with the sequence number as its one argument, through
// /bin/sh when it cannot be executed itself, and waits for it. Its exit status:
// 1 when it cannot be run either way, 128 and above for an end by a signal. 0
// without a program, -1 with 3 without a child.
int fx_launch(long seqno, const char* root);

#endif  // FAXSERVER_FSLAUNCH_H_
