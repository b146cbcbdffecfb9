#include "daemon/spool/rsp.h"

#include <memory>
#include <new>
#include <utility>

#include "daemon/spool/logfile.h"

namespace {

// A response that could not be written, owned by the queue.
struct Pending {
  const char* dir;  // not owned
  kx::Object rsp;
  bool save;
  sx_files files;
  uid_t receiver;  // once the next command is read, nobody else knows
  int failed;      // tries that failed since it was queued
};

kx_object* g_queue = nullptr;  // a list whose elements are Pending

Pending* EntryOf(kx_object* node) {
  return static_cast<Pending*>(Kfx_Bdata(node));
}

// What names a response in the log; its texts are the response's.
struct Label {
  explicit Label(kx_object* rsp)
      : cmdtype(kx::TextOrEmpty(rsp, "cmdtype")),
        clientid(kx::TextOrEmpty(rsp, "clientid")),
        session(kx::Number(rsp, "sessionid")),
        reference(kx::Number(rsp, "reference")) {}
  const char* cmdtype;
  const char* clientid;
  long session;
  int reference;
};

// Appends a response to the queue, which takes it; false without memory, and
// the response stays the caller's.
bool Enqueue(const char* dir, kx::Object& rsp, bool save, sx_files files,
             uid_t receiver) {
  std::unique_ptr<Pending> entry(new (std::nothrow)
                                     Pending{.dir = dir,
                                             .rsp = nullptr,
                                             .save = save,
                                             .files = files,
                                             .receiver = receiver,
                                             .failed = 0});
  kx_object* node = entry != nullptr ? Kfx_Bnew(entry.get()) : nullptr;
  if (node == nullptr) return false;
  entry.release()->rsp = std::move(rsp);
  g_queue = Kfx_Bappend(g_queue, node);
  return true;
}

void Drop(kx_object* node) {
  const std::unique_ptr<Pending> entry(EntryOf(node));
  g_queue = Kfx_Bdelete(g_queue, node);
}

// Tries a queued response once more; whether it was written.
bool Retry(Pending* pending) {
  kx_object* rsp = pending->rsp.get();
  if (sx_rsp_to(pending->dir, rsp, pending->save, pending->receiver,
                pending->files) == 0) {
    return true;
  }
  const char* why = Kfx_Errmsg(Kfx_Errno());
  const Label label(rsp);
  // The first write was attempt 1.
  dmn_logf("Error writing %s response attempt %d for %s (%ld-%d): %s",
           label.cmdtype, pending->failed + 2, label.clientid, label.session,
           label.reference, why);
  ++pending->failed;
  return false;
}

}  // namespace

int rsp_write(const char* dir, kx_object* rsp, int save, sx_files files) {
  kx::Object owned(rsp);
  const uid_t receiver = sx_receiver(rsp);
  if (sx_rsp_to(dir, rsp, save != 0, receiver, files) == 0) return 0;
  const char* why = Kfx_Errmsg(Kfx_Errno());
  const Label label(rsp);
  if (!Enqueue(dir, owned, save != 0, files, receiver)) {
    dmn_logf("Cannot queue %s response for %s (%ld-%d): %s", label.cmdtype,
             label.clientid, label.session, label.reference,
             Kfx_Errmsg(kx_err_memory));
    return -1;
  }
  dmn_logf("Queueing %s response for %s (%ld-%d): %s", label.cmdtype,
           label.clientid, label.session, label.reference, why);
  return 1;
}

long rsp_check(int maxtrys) {
  if (g_queue == nullptr) return -1;
  long result = 0;
  for (kx_object *node = g_queue, *next; node != nullptr; node = next) {
    next = Kfx_Bnext(node);
    Pending* pending = EntryOf(node);
    if (pending->failed >= maxtrys) {
      const Label label(pending->rsp.get());
      dmn_logf("Cannot write %s response for %s (%ld-%d): %s", label.cmdtype,
               label.clientid, label.session, label.reference,
               "Max tries exceeded");
      const long session = label.session;
      Drop(node);
      return session;
    }
    if (Retry(pending)) {
      result = -1;
      Drop(node);
    }
  }
  return result;
}
