/* Sending commands to the fax server and waiting for the answers, from C or
 * from C++.
 *
 *     krt_client *client;
 *     kx_object *answer;
 *     if (krt_open(NULL, &client) != krt_ok) ... krt_open_error()
 *     if (krt_call(client, krt_command("cmd-noop", NULL), &answer) != krt_ok)
 *       ... krt_error(client)
 *     Kfx_Free_Obj(answer);
 *     krt_close(client);
 *
 * - A client is a place of its own in the server's spool directory, so that
 *   its answers are nobody else's. A process may have several; one thread at a
 *   time uses the library, as with kx/kfx.h.
 * - An answer is taken from a file that belongs to the caller's user, root, the
 *   fax system's user, the owner of the spool directory or the daemon's user.
 *   Another's file in its place is left alone and not waited for; if the wait
 *   ends without an answer, krt_error() names it.
 * - Every function that can fail returns a krt_status. The text for it belongs
 *   to the client and lasts until the next call.
 * - After a fork only one of the two processes goes on using a client.
 * - No function ends the process or installs a signal handler. */
#ifndef CLIENT_KRTCLIENT_H_
#define CLIENT_KRTCLIENT_H_

#include "kx/kfx.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct krt_client krt_client;

/* The numbers are those that krtctl exits with, after sysexits.h. */
enum krt_status {
  krt_ok = 0,
  krt_refused = 1,        /* the server answered with a "result" other than 0 */
  krt_usage = 64,         /* a call or command line that makes no sense */
  krt_bad_data = 65,      /* a value that does not fit its field */
  krt_no_input = 66,      /* a file that is missing or empty */
  krt_no_user = 67,       /* no such user */
  krt_unavailable = 69,   /* daemon, scheduler or queueing side not running */
  krt_internal = 70,      /* an answer that is none: an error in this system */
  krt_system = 71,        /* the operating system refused */
  krt_cannot_create = 73, /* a file could not be made */
  krt_io = 74,            /* reading or writing failed */
  krt_timed_out = 75,     /* no answer in time; the command was not executed */
  krt_unknown = 76,       /* given up, but the daemon had taken the command */
  krt_no_permission = 77,
  krt_no_root = 78,     /* no usable root directory */
  krt_interrupted = 130 /* given up at the caller's wish; not executed */
};

/* Where and how. Zero bytes are a good start, but for `timeout`. */
typedef struct krt_options {
  const char *root; /* null: KFAXDIR, then /etc/default/krtcmd, then built in */
  const char *spool; /* null: krtnet/filspool below the root */
  const char *user;  /* null: the login name of the process's real uid */
  int timeout;       /* seconds; 0: for ever; -1: KRTCTL_TIMEOUT, or 30 */
  int cancel_fd;     /* above 0: a wait ends when this becomes readable */
} krt_options;

/* Makes a client; null options are all defaults. On success `*client` is to be
 * given to krt_close; on failure it is null and krt_open_error() has the
 * text. */
int krt_open(const krt_options *options, krt_client **client);
const char *krt_open_error(void);
/* Gives the client's place back. Null is allowed. */
void krt_close(krt_client *client);

/* A new command, an "obj-cmdrsp", with the argument (null for none), which it
 * owns from then on. Null, and the argument freed, for an unknown command type
 * or without memory. */
kx_object *krt_command(const char *cmdtype, kx_object *argument);

/* Sends the command and waits for the answer. The command is freed in every
 * case; who sends it, session and reference are filled in. `*answer` is the
 * response, to be freed by the caller: also with krt_refused, with every other
 * failure null. A null `command` is krt_usage. */
int krt_call(krt_client *client, kx_object *command, kx_object **answer);
/* The same; files that the answer carries are unpacked into `directory`, which
 * should be private and empty: the names are the server's choice. */
int krt_call_unpack(krt_client *client, kx_object *command,
                    const char *directory, kx_object **answer);

/* Sends without waiting; the name of the exchange, "NNNN-RRR", goes to `name`
 * (at least 16 bytes). */
int krt_send(krt_client *client, kx_object *command, char *name);
/* Waits for the answer to a command that krt_send sent, or that was given up
 * with krt_unknown; the results are krt_call's. krt_usage for what is no
 * name. */
int krt_wait(krt_client *client, const char *name, kx_object **answer);

/* The text for the last failure, "" after success. It may repeat what the
 * server says, control characters and all. */
const char *krt_error(krt_client *client);
/* The "result" of the last answer, 0 before the first. */
int krt_result(krt_client *client);
/* The root directory, and what chose it. */
const char *krt_root(krt_client *client);
const char *krt_root_source(krt_client *client);

#ifdef __cplusplus
}
#endif

#endif /* CLIENT_KRTCLIENT_H_ */
