// One run of krtctl: its command line, connection, output and exit status.
//
// - A verb reports each failure once, with Fail; the worst of them is the exit
//   status.
// - Call sends what changes something, or is all that the verb does: with
//   --dry-run it prints the command instead. Query is for what a verb must know
//   first, and always asks.
#ifndef CTL_APP_APP_H_
#define CTL_APP_APP_H_

#include <ctime>
#include <string>
#include <vector>

#include "ctl/app/output.h"
#include "ctl/app/parse.h"
#include "link/link.h"

namespace client {

class App {
 public:
  // `verbs` lives as long as the App, and has a row "help".
  explicit App(const VerbTable& verbs) : verbs_(verbs) {}

  // Runs the command line, once in a process. The exit status.
  int Run(int argc, const char* const* argv);

  const CommandLine& line() const { return line_; }
  const std::string& arg(size_t i) const { return line_.args[i]; }
  size_t args() const { return line_.args.size(); }
  bool Has(const char* option) const { return line_.Has(option); }
  std::string ValueOr(const char* option, const char* otherwise) const;
  bool dry_run() const { return Has("dry-run"); }
  Output& out() { return out_; }

  // Reports a failure: "krtctl: <verb> <subject>: <text>".
  void Fail(int code, const std::string& subject, const std::string& text);
  void Fail(const std::string& subject, const Status& status);
  // Makes the exit status at least this, without words.
  void Worsen(int code);
  // The worst failure so far.
  int worst() const { return worst_; }
  // Says what is done, with --verbose.
  void Verbose(const std::string& text);
  // What went well without having a result to show; silent with --quiet.
  void Note(const std::string& text);

  // Opens the connection; reports why not. From then on SIGINT and SIGTERM end
  // waits, not the process.
  bool Connect();
  Link& link() { return link_; }
  const Identity& identity() { return link_.identity(); }
  const std::string& root() { return link_.place().root; }

  // Stores a text in a field. A text that does not fit, or a value that is none
  // for the field, is reported, and false returned.
  bool Set(const std::string& subject, kx_object* obj, const char* field,
           const std::string& given);
  // Sets all of them that are options on the command line.
  bool SetFromOption(kx_object* obj, const char* field, const char* option);

  // Sends a command of the type, and gives the answer's envelope: null when
  // there is none, which has been reported, or is not waited for.
  kx::Object Call(const std::string& subject, const char* cmdtype,
                  kx::Object argument, const char* unpack_dir = nullptr);
  kx::Object Query(const std::string& subject, const char* cmdtype,
                   kx::Object argument, const char* unpack_dir = nullptr);
  // The same for a command with nothing to show but that it went well: a result
  // is the argument, with `done` for people.
  void Perform(const std::string& subject, const char* cmdtype,
               kx::Object argument, const std::string& done);
  // Sends a command that is complete. `name` (may be null) has its name.
  kx::Object Deliver(const std::string& subject, kx::Object cmd,
                     const std::string* name, const char* unpack_dir = nullptr);
  // The same, and gives the answer also when it is a refusal.
  kx::Object Transact(const std::string& subject, kx::Object cmd,
                      const std::string* name, const char* unpack_dir);
  // How the last command ended: krt_ok when it was answered well or is not
  // waited for.
  int last_code() const { return last_code_; }
  // Reports the refusal that an answer is; whether it is none.
  bool Accepted(const std::string& subject, kx_object* answer);

  // Asks a question; true for yes, and with --yes. Without a terminal: no.
  bool Confirm(const std::string& question);
  // Sleeps; false when the user interrupts.
  bool Sleep(double seconds);
  // Whether the user has interrupted.
  bool interrupted() const;

 private:
  Status Await(const std::string& name, const char* unpack_dir,
               kx::Object* answer);
  void Start(int argc, const char* const* argv);
  bool ConfigureOutput();
  void ReportRefusal(const std::string& subject, kx_object* answer);
  int ExitStatus();

  const VerbTable& verbs_;
  CommandLine line_;
  Output out_;
  Link link_;
  bool tried_ = false;
  bool connected_ = false;
  int worst_ = 0;
  int last_code_ = 0;
};

}  // namespace client

#endif  // CTL_APP_APP_H_
