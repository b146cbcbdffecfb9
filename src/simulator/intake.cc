#include "simulator/intake.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "cm/cmpaths.h"
#include "daemon/spool/rsp.h"
#include "daemon/spool/sxfile.h"
#include "faxserver/fsfifo.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsfiles.h"
#include "faxserver/fshdr.h"
#include "faxserver/fslaunch.h"
#include "faxserver/fsmkfreq.h"
#include "faxserver/fsnames.h"
#include "simulator/envelope.h"
#include "simulator/notify.h"
#include "simulator/output.h"
#include "util/kuterr.h"
#include "util/kutfile.h"

namespace sim {
namespace {

// The daemon waits so long for a reader, and again for room, before it takes a
// saved command back; until then the record may still come.
constexpr time_t kForgottenAfter = 2 * kFxFifoSeconds + 5;

constexpr char kBadExtension[] = "bad";

// What an answer takes over from its command.
constexpr const char* kEchoed[] = {"sessionid", "reference", "clientid",
                                   "hostname",  "clntport",  "cmdtype"};

// What a status takes over, from the request, the envelope and the command.
constexpr const char* kOfRequest[] = {
    "clientid", "seqno",   "gseqno", "memno",   "active",
    "attempt",  "numpgs",  "queue",  "sendres", "submittime",
    "sendtime", "rresult", "tsi",    "tofnum"};
constexpr const char* kOfEnvelope[] = {"toname", "tocomp", "toinfo", "subject"};
constexpr const char* kOfCommand[] = {"hostname", "sessionid", "reference"};

template <size_t n>
void CopyFields(kx_object* from, kx_object* to, const char* const (&names)[n]) {
  for (const char* name : names) kx::SetText(to, name, kx::Text(from, name));
}

kx_object* FirstDestination(kx_object* env) {
  return static_cast<kx_object*>(Kfx_Bdata(kx::Child(env, "destptr")));
}

kx::Object MakeStatus(kx_object* cmd, kx_object* env, kx_object* freq) {
  kx::Object status = kx::Build("obj-status");
  if (status == nullptr) return status;
  CopyFields(freq, status.get(), kOfRequest);
  CopyFields(env, status.get(), kOfEnvelope);
  CopyFields(cmd, status.get(), kOfCommand);
  kx::SetEnum(status.get(), "reqtype", kx_req_regular);
  kx::SetBool(status.get(), "done", false);
  kx_object* tags = kx::Child(FirstDestination(env), "ltags");
  if (tags != nullptr) {
    kx::SetChild(status.get(), "ltags", kx::Object(Kfx_Copy_Obj(tags)));
  }
  return status;
}

// The fax itself: a header, as nobody looks at the image of a simulated one.
bool WriteFax(const char* path, int pages) {
  const fx_faxhdr header = fx_make_faxhdr(static_cast<int16_t>(pages));
  FileReplacer file;
  return file.Open(path, 0660) == 0 && file.stream() != nullptr &&
         fx_wr_faxhdr(file.stream(), &header) == 0 && file.Commit() == 0;
}

kx::Object MakeRequestId(kx_object* cmd, const Request& request, int members) {
  kx::Object id = kx::Build("obj-reqid");
  if (id == nullptr) return id;
  constexpr const char* kFields[] = {"seqno", "gseqno", "memno", "queue"};
  constexpr const char* kExchange[] = {"sessionid", "reference"};
  CopyFields(request.freq.get(), id.get(), kFields);
  CopyFields(cmd, id.get(), kExchange);
  kx::SetEnum(id.get(), "reqtype", kx_req_regular);
  if (members > 1) kx::SetNumber(id.get(), "nummems", members);
  return id;
}

// One request by itself, several as a list.
kx::Object MakeRequestIds(kx_object* cmd,
                          const std::vector<Request>& requests) {
  const int count = static_cast<int>(requests.size());
  if (count == 1) return MakeRequestId(cmd, requests[0], count);
  kx::ListBuilder list;
  for (const Request& request : requests) {
    kx::Object id = MakeRequestId(cmd, request, count);
    if (id != nullptr) list.Append(std::move(id));
  }
  return list.Take();
}

void PutAside(const char* dir, const std::string& name) {
  const cm_path from = cm_join_plain(dir, name.c_str());
  const cm_path to = cm_join_plain(dir, (name + "." + kBadExtension).c_str());
  Complain("queued command %s cannot be read: %s", Printable(name).c_str(),
           Kfx_Errmsg(Kfx_Errno()));
  Kut_rename_file(from.text, to.text);
}

bool IsForgotten(const DirReader& dir, const std::string& name) {
  struct stat st;
  const char* extension = Kut_get_file_ext(name.c_str());
  return fstatat(dir.fd(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISREG(st.st_mode) && time(nullptr) - st.st_mtime > kForgottenAfter &&
         (extension == nullptr || std::string(extension) != kBadExtension);
}

}  // namespace

Intake::Intake(const std::string& root, const std::string& spool, int pages,
               Scheduler* scheduler)
    : root_(root), spool_(spool), pages_(pages), scheduler_(scheduler) {}

void Intake::Take(const std::string& name) {
  // The name came through a fifo that many can write: it leads nowhere else, by
  // neither a path nor a link.
  const std::string dir = cm_get_queued_dir(root_.c_str());
  const cm_path path = cm_join_plain(dir.c_str(), name.c_str());
  const fx_stream stream = fx_open_stream(path.text, fx_links::kRefuse);
  // Taken as a forgotten one, or taken back by the daemon, which gave up
  // waiting for a reader.
  if (stream == nullptr && errno == ENOENT) {
    Say("command %s: not there any more", Printable(name).c_str());
    return;
  }
  const kx::Object cmd(
      stream != nullptr ? fx_read_object(stream.get(), "obj-cmdrsp") : nullptr);
  if (cmd == nullptr) {
    PutAside(dir.c_str(), name);
    return;
  }
  std::vector<Request> requests;
  const Refusal refusal = Queue(cmd.get(), &requests);
  if (refusal.error != 0) {
    Say("command %s: refused: %s", Printable(name).c_str(),
        Printable(refusal.text).c_str());
  }
  if (kx::Bool(cmd.get(), "respond") != 0) {
    Answer(cmd.get(), refusal, requests);
    Say("command %s: answered, result %d", Printable(name).c_str(),
        refusal.error);
  } else if (refusal.error != 0) {
    // The daemon has told the client that all is well.
    LeaveMessage(root_, kx::TextOrEmpty(cmd.get(), "clientid"), name + ".msg",
                 "Your fax was not queued: " + refusal.text + "\n");
  }
  // Only now: until the requests are on the disk and the client knows, the
  // saved command is all that there is of the fax.
  Kut_delete_file(path.text);
  for (Request& request : requests) {
    // The scheduler first: the request's program may ask for it at once.
    const long seqno = request.seqno();
    scheduler_->Add(std::move(request));
    const int status = fx_launch(seqno, root_.c_str());
    if (status != 0) {
      Say("request %ld: its program ended with status %d", seqno, status);
    }
  }
}

void Intake::TakeForgotten() {
  DirReader dir;
  if (dir.Open(cm_get_queued_dir(root_.c_str())) != 0) return;
  std::vector<std::string> names;
  fx_visible_names(&dir, &names);  // what is missed now is found the next time
  for (const std::string& name : names) {
    if (!IsForgotten(dir, name)) continue;
    Say("command %s: found without a record", Printable(name).c_str());
    Take(name);
  }
}

Intake::Refusal Intake::Queue(kx_object* cmd,
                              std::vector<Request>* requests) const {
  Refusal refusal = MakeRequests(cmd, requests);
  for (const Request& request : *requests) {
    if (refusal.error != 0) break;
    if (!Save(root_, request)) {
      refusal = {Kfx_Errno(), "Cannot write request file"};
    }
  }
  if (refusal.error == 0) return refusal;
  // All of them or none: a client that sends again after a refusal would have
  // some faxes arrive twice.
  for (const Request& request : *requests) Discard(root_, request);
  requests->clear();
  return refusal;
}

Intake::Refusal Intake::MakeRequests(kx_object* cmd,
                                     std::vector<Request>* requests) const {
  kx_object* env = kx::Child(cmd, "objptr");
  if (kx::Enum(cmd, "cmdtype") != kx_cmd_sendfax || !IsEnvelope(env)) {
    return {kx_err_command, "Invalid submit command"};
  }
  const std::vector<kx::Object> envelopes = SplitByDestination(env);
  if (envelopes.empty()) return {kx_err_data, "No destination"};
  for (const kx::Object& envelope : envelopes) {
    Request request;
    Refusal refusal = MakeRequest(cmd, envelope.get(), &request);
    // Also a half-made one has files.
    if (request.freq != nullptr) requests->push_back(std::move(request));
    if (refusal.error != 0) return refusal;
  }
  if (requests->size() == 1) return {};
  // Last: a command that is no good uses no group number up.
  const long group = fx_next_seqno(cm_get_gseqno_file(root_.c_str()));
  if (group < 0) return {kx_err_system, "Cannot take a group number"};
  int member = 0;
  for (const Request& request : *requests) {
    ++member;
    for (kx_object* object : {request.freq.get(), request.status.get()}) {
      kx::SetNumber(object, "gseqno", static_cast<int>(group));
      kx::SetNumber(object, "memno", member);
    }
  }
  return {};
}

Intake::Refusal Intake::MakeRequest(kx_object* cmd, kx_object* env,
                                    Request* request) const {
  if (kx::Text(env, "tofnum") == nullptr) {
    return {kx_err_data, "No fax number"};
  }
  std::string bad;
  const int counted = CountPages(env, &bad);
  if (counted < 0) {
    return {kx_err_failed, "Cannot read " + bad + ": " + Kut_sys_errstr()};
  }
  request->freq.reset(
      fx_make_freq(root_.c_str(), kx::TextOrEmpty(cmd, "clientid"), env));
  if (request->freq == nullptr) {
    const int error = Kfx_Errno();
    return {error, std::string("Cannot make request: ") + Kfx_Errmsg(error)};
  }
  const int pages = pages_ > 0 ? pages_ : counted;
  kx::SetNumber(request->freq.get(), "numpgs", pages);
  request->status = MakeStatus(cmd, env, request->freq.get());
  if (request->status == nullptr) return {kx_err_memory, "Out of memory"};
  if (!WriteFax(fx_fax_file(root_.c_str(), request->seqno()), pages)) {
    return {kx_err_system,
            std::string("Cannot write fax: ") + Kut_sys_errstr()};
  }
  return {};
}

void Intake::Answer(kx_object* cmd, const Refusal& refusal,
                    const std::vector<Request>& requests) const {
  kx::Object answer = kx::Build("obj-cmdrsp");
  if (answer == nullptr) return;
  CopyFields(cmd, answer.get(), kEchoed);
  kx::SetBool(answer.get(), "iscmd", false);
  // As the daemon's: the inverse of what the command said.
  kx::SetBool(answer.get(), "respond", false);
  kx::SetNumber(answer.get(), "result", refusal.error);
  if (refusal.error == 0) {
    kx::SetChild(answer.get(), "objptr", MakeRequestIds(cmd, requests));
  } else {
    kx::SetText(answer.get(), "errmsg", refusal.text.substr(0, 255).c_str());
  }
  rsp_write(spool_.c_str(), answer.release(), 0);
}

}  // namespace sim
