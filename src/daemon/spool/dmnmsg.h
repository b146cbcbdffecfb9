// Events to users' connected clients.
#ifndef DAEMON_SPOOL_DMNMSG_H_
#define DAEMON_SPOOL_DMNMSG_H_

// Tells every registered session daemon that something of `user`'s changed;
// `code` is one of fx_event_code. A name of 16 bytes or more is cut. Always 0:
// an event is a hint, and nobody waits for it.
int dmn_send_msg(const char* root, const char* user, int code);

#endif  // DAEMON_SPOOL_DMNMSG_H_
