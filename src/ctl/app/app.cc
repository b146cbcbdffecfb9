#include "ctl/app/app.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "cm/cmpaths.h"
#include "ctl/format/fields.h"
#include "ctl/format/format.h"
#include "faxserver/fsshm.h"
#include "faxserver/fsuser.h"
#include "kx/kxobj.h"
#include "link/diagnosis.h"
#include "util/kuttime.h"

namespace client {
namespace {

constexpr char kProgram[] = "krtctl";
constexpr char kVersion[] = KRT_VERSION;

// A signal is a byte in this pipe: every wait polls its end.
int g_pipe[2] = {-1, -1};
volatile sig_atomic_t g_signal = 0;

void OnSignal(int sig) {
  const int saved = errno;
  g_signal = sig;
  // A full pipe has woken everybody already.
  static_cast<void>(!write(g_pipe[1], "!", 1));
  errno = saved;
}

// What the user says of colours counts most, then what he asks of all programs
// (NO_COLOR), then what the terminal can.
bool UseColor(const char* when, int fd) {
  if (when != nullptr && strcmp(when, "always") == 0) return true;
  if (when != nullptr && strcmp(when, "never") == 0) return false;
  const char* no_color = getenv("NO_COLOR");
  const char* term = getenv("TERM");
  if (no_color != nullptr && *no_color != '\0') return false;
  return isatty(fd) != 0 && term != nullptr && strcmp(term, "dumb") != 0;
}

size_t TerminalWidth() {
  winsize size = {};
  const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
  return known && size.ws_col >= 20 ? size.ws_col : 80;
}

// Results with which the server may mean that it does not know the user.
bool IsOfUser(int result) {
  return result == kx_err_user || result == kx_err_command ||
         result == kx_err_failed || result == kx_err_data;
}

// Has SIGINT and SIGTERM end waits.
void CatchSignals() {
  if (pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0) return;
  struct sigaction action = {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

std::string App::ValueOr(const char* option, const char* otherwise) const {
  const char* value = line_.Value(option);
  return value != nullptr ? value : otherwise;
}

int App::Run(int argc, const char* const* argv) {
  // A reader that went away is a failed write, not an end without words.
  signal(SIGPIPE, SIG_IGN);
  Start(argc, argv);
  const int error = out_.Finish();
  if (error == EPIPE) {
    // A pager that was closed early is no failure worth words.
    Worsen(krt_io);
  } else if (error != 0) {
    Fail(krt_io, "", std::string("standard output: ") + strerror(error));
  }
  return ExitStatus();
}

void App::Start(int argc, const char* const* argv) {
  Status s = ParseCommandLine(verbs_, argc, argv, &line_);
  // Also for a command line that is wrong: its fault is told as JSON where
  // --json could be read.
  if (!ConfigureOutput()) return;
  if (!s.ok()) return Fail("", s);
  if (Has("version")) {
    out_.Raw(std::string(kProgram) + " " + kVersion + "\n");
  } else if (Has("help")) {
    verbs_.Find("help")->run(*this);
  } else {
    line_.verb->run(*this);
  }
}

bool App::ConfigureOutput() {
  OutputOptions options;
  options.form = Has("json")   ? Form::kJson
                 : Has("text") ? Form::kText
                               : Form::kHuman;
  options.many = Has("help") || (line_.verb != nullptr && line_.verb->many);
  options.quiet = Has("quiet");
  options.terminal = isatty(STDOUT_FILENO) != 0;
  options.color = UseColor(line_.Value("color"), STDOUT_FILENO);
  options.width = TerminalWidth();
  out_.Configure(options);
  if (Has("json") && Has("text")) {
    Fail(krt_usage, "", "--json and --text exclude each other");
    return false;
  }
  return true;
}

int App::ExitStatus() {
  // A signal that came when all was done has ended nothing.
  if (g_signal != 0 && worst_ != 0) return 128 + g_signal;
  // The number is the library's alone. For a script an unknown outcome is no
  // answer in time; the words and --json tell the difference.
  if (worst_ == krt_unknown) return krt_timed_out;
  return worst_;
}

void App::Fail(int code, const std::string& subject, const std::string& text) {
  Worsen(code);
  const std::string verb = line_.verb != nullptr ? line_.verb->name : "";
  if (out_.options().form == Form::kJson) {
    std::vector<JsonMember> members = {{"type", JsonString("error")}};
    if (!verb.empty()) members.emplace_back("verb", JsonString(verb));
    if (!subject.empty()) members.emplace_back("subject", JsonString(subject));
    members.emplace_back("message", JsonString(text));
    // What the exit status does not tell: it may have been executed.
    if (code == krt_unknown) {
      members.emplace_back("outcome", JsonString("unknown"));
      code = krt_timed_out;
    }
    members.emplace_back("status", std::to_string(code));
    std::cerr << JsonObject(members) << "\n";
    return;
  }
  std::string head = kProgram + std::string(": ");
  if (!verb.empty() && code != krt_usage) {
    head += verb + (subject.empty() ? "" : " " + subject) + ": ";
  } else if (!subject.empty()) {
    head += subject + ": ";
  }
  std::cerr << Printable(head + text) << "\n";
}

void App::Fail(const std::string& subject, const Status& status) {
  Fail(status.code, subject, status.text);
}

void App::Worsen(int code) { worst_ = std::max(worst_, code); }

void App::Verbose(const std::string& text) {
  if (Has("verbose")) std::cerr << kProgram << ": " << Printable(text) << "\n";
}

void App::Note(const std::string& text) {
  if (!Has("quiet")) out_.Line(text);
}

bool App::Connect() {
  // Once, also when it fails: verbs ask at each of their arguments, and one
  // fault is told once.
  if (tried_) return connected_;
  tried_ = true;
  // Not before: who reads the input that a verb begins with is simply ended.
  CatchSignals();
  krt_options options = {line_.Value("root"), line_.Value("spool"),
                         line_.Value("user"), -1, g_pipe[0]};
  long seconds;
  if (const char* text = line_.Value("timeout"); text != nullptr) {
    if (!ParseNumber(text, 0, 1'000'000'000, &seconds)) {
      Fail(krt_usage, "", "--timeout: not a number of seconds");
      return false;
    }
    options.timeout = static_cast<int>(seconds);
  }
  if (Status s = link_.Open(options, kDefaultsFile); !s.ok()) {
    Fail("", s);
    return false;
  }
  const Place& place = link_.place();
  Verbose("root " + place.root + " (" + place.source + "), spool " +
          place.spool + ", user " + identity().user);
  return connected_ = true;
}

bool App::Set(const std::string& subject, kx_object* obj, const char* field,
              const std::string& given) {
  const kx_fielddef* row = kx_field(field, obj);
  std::string text = given;
  // Only a name that there is: else the message names what the user typed.
  if (row->type == kx_typ_enum) {
    const std::string name = EnumName(field, given);
    if (Kfx_Str_To_Enum(name.c_str()) != -1) text = name;
  }
  const std::string why = WhyNoValue(*row, text);
  if (why.empty() && Kfx_Set(obj, field, text.c_str()) == 0) return true;
  Fail(krt_bad_data, subject, why);
  return false;
}

bool App::SetFromOption(kx_object* obj, const char* field, const char* option) {
  const char* value = line_.Value(option);
  return value == nullptr || Set("", obj, field, value);
}

kx::Object App::Call(const std::string& subject, const char* cmdtype,
                     kx::Object argument, const char* unpack_dir) {
  if (!Connect()) return nullptr;
  return Deliver(subject, link_.Command(cmdtype, std::move(argument)), nullptr,
                 unpack_dir);
}

kx::Object App::Query(const std::string& subject, const char* cmdtype,
                      kx::Object argument, const char* unpack_dir) {
  if (!Connect()) return nullptr;
  kx::Object cmd = link_.Command(cmdtype, std::move(argument));
  kx::Object answer;
  Status s = link_.Call(cmd.get(), unpack_dir, &answer);
  if (s.ok()) return answer;
  if (s.code == krt_refused) {
    ReportRefusal(subject, answer.get());
  } else {
    Fail(subject, s);
  }
  return nullptr;
}

void App::Perform(const std::string& subject, const char* cmdtype,
                  kx::Object argument, const std::string& done) {
  // The command takes the argument along and frees it.
  const kx::Object shown(Kfx_Copy_Obj(argument.get()));
  if (Call(subject, cmdtype, std::move(argument)) == nullptr) return;
  out_.Done(shown.get(), done);
}

kx::Object App::Deliver(const std::string& subject, kx::Object cmd,
                        const std::string* name, const char* unpack_dir) {
  kx::Object answer = Transact(subject, std::move(cmd), name, unpack_dir);
  if (answer == nullptr || Accepted(subject, answer.get())) return answer;
  last_code_ = krt_refused;
  return nullptr;
}

kx::Object App::Transact(const std::string& subject, kx::Object cmd,
                         const std::string* given_name,
                         const char* unpack_dir) {
  std::string name = given_name != nullptr ? *given_name : "";
  Status s;
  // A verb of many arguments ends here after Ctrl-C: the pipe ends waits alone,
  // and what is sent would have to be taken back.
  if (interrupted()) s = {krt_interrupted, "interrupted, not sent"};
  if (s.ok() && name.empty()) s = link_.Name(cmd.get(), &name);
  const std::string file = link_.place().spool + "/" + name + ".cmd";
  if (s.ok() && dry_run()) {
    Verbose("would send " + file);
    out_.Text(cmd.get());
    return nullptr;
  }
  if (s.ok()) s = link_.Send(cmd.get(), name);
  kx::Object answer;
  if (s.ok()) {
    Verbose("sent " + file);
    if (Has("no-wait")) {
      out_.Result(
          {{"type", JsonString("exchange")}, {"name", JsonString(name)}},
          Has("quiet") ? name : "sent, answer: krtctl collect " + name);
    } else {
      s = Await(name, unpack_dir, &answer);
    }
  }
  last_code_ = s.code;
  if (!s.ok()) Fail(subject, s);
  return answer;
}

Status App::Await(const std::string& name, const char* unpack_dir,
                  kx::Object* answer) {
  const long start = Kut_now_ms();
  size_t which;
  Status s = link_.WaitAny({name}, unpack_dir, &which, answer, nullptr);
  Verbose((s.ok() ? "answered after " : "given up after ") +
          std::to_string(Kut_now_ms() - start) + " ms");
  return s;
}

bool App::Accepted(const std::string& subject, kx_object* answer) {
  if (kx::Number(answer, "result") == 0) return true;
  ReportRefusal(subject, answer);
  return false;
}

void App::ReportRefusal(const std::string& subject, kx_object* answer) {
  // The server says what failed. What the user can do about it shows on the
  // machine only, so the likely reasons are looked at one by one.
  const int result = kx::Number(answer, "result");
  int code = StatusOfResult(answer);
  std::string text = Refusal(answer).text;
  const std::string user = kx::TextOrEmpty(answer, "clientid");
  // Where the queues cannot be seen, nobody is a user, and that says nothing.
  if (IsOfUser(result) &&
      access(cm_get_faxq_dir(root().c_str()), R_OK | X_OK) == 0 &&
      !fx_is_valid_user(root().c_str(), user.c_str())) {
    code = krt_no_user;
    text += "; " + user + " is no fax user: krtctl user add " + user;
  } else if (result == kx_err_no_scheduler) {
    text += "; start the fax scheduler, then: krtctl state";
  } else if (result == kx_err_failed &&
             strcmp(kx::TextOrEmpty(answer, "cmdtype"), "cmd-cancel") == 0 &&
             !fx_is_sched_running(root().c_str())) {
    code = krt_unavailable;
    text += "; the scheduler is not running: krtctl state";
  } else if (IsOfTheQueueingSide(answer)) {
    code = krt_unavailable;
    text += "; the queueing side is not running: krtctl check";
  }
  Fail(code, subject, text);
}

bool App::Confirm(const std::string& question) {
  if (Has("yes")) return true;
  // Nobody is there to answer, and what stands in a script's input is no "yes".
  if (isatty(STDIN_FILENO) == 0) return false;
  std::cerr << Printable(question) << " [y/N] " << std::flush;
  std::string answer;
  if (!std::getline(std::cin, answer)) return false;
  answer = Lower(answer);
  return answer == "y" || answer == "yes";
}

bool App::Sleep(double seconds) {
  pollfd fd = {g_pipe[0], POLLIN, 0};
  const double ms = std::min(seconds * 1000, 1e9);
  return poll(&fd, 1, static_cast<int>(ms)) == 0;
}

bool App::interrupted() const { return g_signal != 0; }

}  // namespace client
