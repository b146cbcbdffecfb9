// A fax server root in a temporary folder, for tests.
#ifndef SUPPORT_SAMPLE_ROOT_H_
#define SUPPORT_SAMPLE_ROOT_H_

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace support {

// How long a test waits for what must happen.
constexpr std::chrono::seconds kDeadline{20};

// Asks `condition` every few milliseconds until it is true or the deadline has
// passed; whether it became true.
bool Eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds deadline = kDeadline);

using ::ReadFile;
using ::WriteFile;

// Makes the folders of the tree; removes everything at its end.
class SampleRoot {
 public:
  SampleRoot();

  const std::filesystem::path& path() const { return path_; }
  const char* root() const { return path_.c_str(); }
  // The path of `name` in it.
  std::string operator/(const std::string& name) const { return path_ / name; }
  bool Has(const std::string& name) const;
  void Put(const std::string& name, const std::string& content) const {
    WriteFile(*this / name, content);
  }
  void MakeDir(const std::string& name) const {
    std::filesystem::create_directories(*this / name);
  }
  // A shell script that everybody may run.
  void PutProgram(const std::string& name, const std::string& script) const;
  // The protocol's spool folder.
  std::filesystem::path spool() const { return path() / "krtnet/filspool"; }
  // Makes a user with its queue, options, messages and events folders.
  void AddUser(const std::string& user) const;

  // Drops a command file as a client does: written under another name, then
  // renamed to <name>.cmd.
  void Drop(const std::string& name, const std::string& content) const;
  // The content of <name>.rsp once it is there, which is then removed; "" when
  // it did not come.
  std::string Response(const std::string& name) const;
  // Both, for a command of session 1 and the next reference.
  std::string Ask(const std::string& type, const std::string& more);
  // The last reference that Ask used.
  int reference() const { return reference_; }
  // The names in the spool folder, sorted.
  std::vector<std::string> SpoolNames() const { return NamesIn(spool()); }

 private:
  TempDir dir_;
  std::filesystem::path path_ = dir_.path();
  int reference_ = 0;
};

// What a response says from its result on.
std::string Outcome(const std::string& response);

// The name of an exchange: session and reference number.
std::string ExchangeName(int session, int reference);

// A command in text form: the envelope's usual fields and then `more`, lines of
// fields or of a nested object.
std::string Command(const std::string& type, int session, int reference,
                    const std::string& more = "");

}  // namespace support

#endif  // SUPPORT_SAMPLE_ROOT_H_
