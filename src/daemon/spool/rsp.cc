#include "daemon/spool/rsp.h"

#include "daemon/spool/logfile.h"
#include "daemon/spool/sxfile.h"
#include "util/kutmem.h"

namespace {

// A response that could not be written, owned by the queue.
struct Pending {
  const char* dir;  // not owned
  kx_object* rsp;
  int save;
  uid_t receiver;  // once the next command is read, nobody else knows
  int failed;      // tries that failed since it was queued
};

kx_object* g_queue = nullptr;  // a list of Pending

// What names a response in the log.
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

// Makes the queue's entry for a response; null without memory.
kx_object* NewEntry(const char* dir, kx_object* rsp, int save, uid_t receiver) {
  auto* pending = static_cast<Pending*>(Kut_malloc(sizeof(Pending)));
  if (pending == nullptr) return nullptr;
  *pending = {dir, rsp, save, receiver, 0};
  kx_object* node = Kfx_Bnew(pending);
  if (node == nullptr) Kut_free(pending);
  return node;
}

void Drop(kx_object* node) {
  auto* pending = static_cast<Pending*>(Kfx_Bdata(node));
  Kfx_Free_Obj(pending->rsp);
  Kut_free(pending);
  g_queue = Kfx_Bdelete(g_queue, node);
}

// Tries a queued response once more; whether it was written.
bool Retry(Pending& pending) {
  if (sx_rsp_to(pending.dir, pending.rsp, pending.save, pending.receiver) ==
      0) {
    return true;
  }
  const char* why = Kfx_Errmsg(Kfx_Errno());
  const Label label(pending.rsp);
  // The first write was attempt 1.
  dmn_logf("Error writing %s response attempt %d for %s (%ld-%d): %s",
           label.cmdtype, pending.failed + 2, label.clientid, label.session,
           label.reference, why);
  ++pending.failed;
  return false;
}

}  // namespace

int rsp_write(const char* dir, kx_object* rsp, int save) {
  const uid_t receiver = sx_receiver(rsp);
  if (sx_rsp_to(dir, rsp, save, receiver) == 0) {
    Kfx_Free_Obj(rsp);
    return 0;
  }
  const char* why = Kfx_Errmsg(Kfx_Errno());
  const Label label(rsp);
  kx_object* node = NewEntry(dir, rsp, save, receiver);
  if (node == nullptr) {
    dmn_logf("Cannot queue %s response for %s (%ld-%d): %s", label.cmdtype,
             label.clientid, label.session, label.reference,
             Kfx_Errmsg(kx_err_memory));
    Kfx_Free_Obj(rsp);
    return -1;
  }
  g_queue = Kfx_Bappend(g_queue, node);
  dmn_logf("Queueing %s response for %s (%ld-%d): %s", label.cmdtype,
           label.clientid, label.session, label.reference, why);
  return 1;
}

long rsp_check(int maxtrys) {
  if (g_queue == nullptr) return -1;
  long result = 0;
  for (kx_object *node = g_queue, *next; node != nullptr; node = next) {
    next = Kfx_Bnext(node);
    auto& pending = *static_cast<Pending*>(Kfx_Bdata(node));
    if (pending.failed >= maxtrys) {
      const Label label(pending.rsp);
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
