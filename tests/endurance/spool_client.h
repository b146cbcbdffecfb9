// A client of the spool directory with many commands under way at once, which
// takes every answer and judges it.
//
// - What is wrong with an answer fails the test: one that is not whole when it
//   appears under its final name, that belongs to no command of this client, or
//   that is not the first to its command.
// - Exchange names do not come again within the life of a client.
#ifndef ENDURANCE_SPOOL_CLIENT_H_
#define ENDURANCE_SPOOL_CLIENT_H_

#include <chrono>
#include <set>
#include <string>
#include <vector>

#include "support/objects.h"
#include "support/temp_dir.h"
#include "util/kutio.h"

namespace endurance {

struct Answer {
  std::string name;    // of the exchange
  int result = -1;     // -1: there is no answer
  std::string errmsg;  // "" when unset
  std::string text;    // the whole of it
};

// The argument of a phone-book command on the user's own book.
std::string Book(const std::string& verb, const std::string& lines = "");
std::string Person(const std::string& alias);

// Whether a text is one whole object of the type, and nothing else.
bool IsWhole(const std::string& text, const char* type = "obj-cmdrsp");

class SpoolClient {
 public:
  // `user` is the client id of all commands.
  SpoolClient(std::string spool, std::string user);

  // Sends a command, `more` being lines of its text after the usual fields.
  // The name of the exchange.
  std::string Send(const std::string& type, const std::string& more = "");
  // Writes a command without handing it over yet: Release does. Its descriptor
  // stays open, so that its deletion does not make room on the disk.
  std::string Prepare(const std::string& type, const std::string& more = "");
  void Release();
  // Sends a command and never looks after its answer.
  void Forsake(const std::string& type, const std::string& more = "");
  // Gives away a file that is no command of this client's, as is.
  void Throw(const std::string& name, const std::string& content) const;

  // The answers that have come, having waited for the first at most this long.
  std::vector<Answer> Take(std::chrono::milliseconds longest);
  // Sends a command and waits for its answer; others that come in the meantime
  // are Take's.
  Answer Ask(const std::string& type, const std::string& more = "");

  // The answer to this command is not awaited any longer.
  void Waive(const std::string& name) { open_.erase(name); }

  const std::string& spool() const { return spool_; }
  // The names of the commands that were not answered so far.
  const std::set<std::string>& open() const { return open_; }
  const std::set<std::string>& forsaken() const { return forsaken_; }
  int sent() const { return sent_; }

 private:
  std::string NextName();
  std::string Text(const std::string& type, const std::string& more) const;
  std::string Path(const std::string& name, const char* ext) const;
  Answer Read(const std::string& name);

  std::string spool_;
  std::string user_;
  UniqueFd inotify_;
  int sent_ = 0;
  std::set<std::string> open_, forsaken_;
  std::vector<std::pair<std::string, UniqueFd>> prepared_;
  std::vector<Answer> early_;  // came while Ask waited for another
};

}  // namespace endurance

#endif  // ENDURANCE_SPOOL_CLIENT_H_
