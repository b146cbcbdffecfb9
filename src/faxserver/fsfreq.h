// Request files: every request that the fax server holds is one text file.
//
// 34 lines, each ended by a newline. Line, what is written, the field of
// "obj-freq" that it is read into:
//
//      1  seqno                                   seqno
//      2  uid of clientid, or the fax system's    clientid
//      3  gid of the fax system
//      4  "Y" for act-ready, else "N"             active (N: act-expired)
//      5
//      6  faxpath                                 faxpath
//      7  "0"
//      8
//      9  submittime
//     10  submittime                              submittime
//     11  sendtime                                sendtime
//     12  exptime                                 exptime
//     13  atttime                                 atttime
//     14  attempt                                 attempt
//     15  maxtrys                                 maxtrys
//     16  retrymins                               retrymins
//     17  the uid again                           notify (0: not-fail, else
//                                                 not-okfail)
//     18  <root>/tnp/<tnp>, or empty              tnp (base name)
//     19  mailaddr                                mailaddr
//  20-22
//     23  value of sendres, -1 for unknown        sendres
//     24  tofnum                                  tofnum
//  25-26
//     27  tsi                                     tsi
//     28
//     29  queue                                   queue
//     30  gseqno                                  gseqno
//     31  memno                                   memno
//     32  prilevel                                prilevel
//     33  rresult                                 rresult
//     34
//
// - Times are in seconds since 1970. What the object does not hold is an empty
//   line, and an empty line is read as an empty text or as 0. A text that is
//   too long for its field leaves it unset.
// - A request is read whole or not at all: any file of fewer lines is none.
// - The caller frees a returned object. Failure is kx_err_system unless it says
//   otherwise.
#ifndef FAXSERVER_FSFREQ_H_
#define FAXSERVER_FSFREQ_H_

#include "kx/kfx.h"

// Reads a request file into an "obj-freq". Null: kx_err_system (errno EBADMSG
// for a file of fewer than 34 lines).
kx_object* fx_read_freq(const char* path);
// The same for the file of a request.
kx_object* fx_load_freq(const char* root, long seqno, int expired);
// Writes the file of a request, in one step; an earlier file's owner and
// permissions are kept. The file is that in the requests directory also for an
// expired request, which the scheduler moves. 0 and kx_errno 0, or -1.
int fx_save_freq(const char* root, kx_object* freq);
// Deletes the file of a request. 0 and kx_errno 0, or -1.
int fx_del_freq(const char* root, long seqno, int expired);
// All requests of the requests directory, by sequence number; one that is
// damaged, or may not be read, is left out. Null: kx_err_none when there is
// none; kx_err_system, also when one cannot be read for want of descriptors or
// a sound disk; kx_err_memory.
kx_object* fx_rd_freqs(const char* root);

#endif  // FAXSERVER_FSFREQ_H_
