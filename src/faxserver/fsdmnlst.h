// The register of daemons (cm/cmdaemon.h): its changes, and who of it runs.
//
// - An entry is appended with one write and the rewrite replaces the file by a
//   rename: a reader sees whole entries only. Entries of processes that ended
//   stay until a rewrite.
// - A process id below 1 (a damaged line) is no process: nobody is signalled.
// - Whom the caller may not signal runs, but only fx_upd_daemon_list goes by
//   that.
// - Failures are told in errno.
// - Limits: there is no lock. A daemon that registers while another rewrites
//   may lose its entry. A process id may have been taken over by a stranger.
#ifndef FAXSERVER_FSDMNLST_H_
#define FAXSERVER_FSDMNLST_H_

#include <sys/types.h>

// Appends an entry; the list is made when there is none. 0 or -1.
int fx_add_daemon_list(const char* kfaxdir, const char* name, pid_t pid);
// The process id of the first entry of that name whose process is alive and may
// be signalled by the caller; 0 without one, -1 without a list.
pid_t fx_chk_daemon_list(const char* kfaxdir, const char* name);
// Removes the entries of that name and those of processes that ended. The list,
// made when there was none, has mode 0664 and is the fax system's where the
// process may give it away. 0, or -1 and the list as it was.
int fx_upd_daemon_list(const char* kfaxdir, const char* name);
// Sends SIGTERM to every process of that name. 0, or -1 without a list.
int fx_kill_daemons(const char* kfaxdir, const char* name);

#endif  // FAXSERVER_FSDMNLST_H_
