// A client's connection: a place, an identity and the exchange, with the rules
// for time-outs, withdrawal and daemons that do not run.
#ifndef LINK_LINK_H_
#define LINK_LINK_H_

#include <string>
#include <vector>

#include "link/exchange.h"

namespace client {

constexpr int kDefaultTimeout = 30;

class Link {
 public:
  Link() = default;
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;
  ~Link() { exchange_.Close(); }

  // `defaults_file` as for FindPlace.
  Status Open(const krt_options& options, const char* defaults_file);

  // A new command with this client's identity. Null, and the argument freed,
  // for an unknown command type.
  kx::Object Command(const char* cmdtype, kx::Object argument);
  // Sets what every command says of its sender, keeping what is set already.
  void Identify(kx_object* cmd);

  // Sends and waits. A refusal is krt_refused, with the answer; its text is
  // Refusal()'s (link/diagnosis.h).
  Status Call(kx_object* cmd, const char* unpack_dir, kx::Object* answer);
  // The two halves, for callers with several commands under way. Name comes
  // first and gives session and reference.
  Status Name(kx_object* cmd, std::string* name);
  Status Send(kx_object* cmd, const std::string& name);
  // Waits for one of them. When the wait ends without an answer all are given
  // up: withdrawn where possible. The status then is krt_timed_out,
  // krt_interrupted or krt_unavailable if none of them was or will be executed,
  // else krt_unknown; `left` (may be null) receives those with unknown outcome.
  // Any other status but krt_ok is about the answer of `which` alone, which
  // came and cannot be read.
  Status WaitAny(const std::vector<std::string>& names, const char* unpack_dir,
                 size_t* which, kx::Object* answer,
                 std::vector<std::string>* left);

  // Waits for the response to somebody's command, and leaves the command alone.
  Status Collect(const std::string& name, const char* unpack_dir,
                 kx::Object* answer);

  const Place& place() const { return place_; }
  const Identity& identity() const { return identity_; }

 private:
  Status EnsureOpen();
  bool NoneWaits(const std::vector<std::string>& names) const;
  // "; " and what lay in an answer's place without being one, or "".
  std::string Ignored() const;
  Status GiveUp(const std::vector<std::string>& names, const Status& why,
                std::vector<std::string>* left);

  Place place_;
  Identity identity_;
  Exchange exchange_;
  bool open_ = false;  // has its session number
  int timeout_ = kDefaultTimeout;
  int cancel_fd_ = -1;
};

}  // namespace client

#endif  // LINK_LINK_H_
