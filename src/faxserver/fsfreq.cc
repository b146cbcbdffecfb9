#include "faxserver/fsfreq.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "cm/cmreso.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsfiles.h"
#include "faxserver/fsnames.h"
#include "util/kutdir.h"
#include "util/kutfile.h"
#include "util/kutuser.h"

namespace {

constexpr size_t kLineSize = 4096;
constexpr size_t kFileLimit = 256 * 1024;

// User names of uids; the users of one directory's requests are few, and each
// lookup would read the system's user file.
class UserNames {
 public:
  // "" for a uid that nobody has; null with errno when that cannot be told.
  const char* Get(int uid) {
    for (const auto& [known, name] : names_) {
      if (known == uid) return name.c_str();
    }
    const char* name = Kut_uid_to_uname(uid);
    if (name == nullptr && Kut_is_shortage(errno)) return nullptr;
    names_.emplace_back(uid, name != nullptr ? name : "");
    return names_.back().second.c_str();
  }

 private:
  std::vector<std::pair<int, std::string>> names_;
};

struct Target {
  kx_object* freq;
  UserNames* names;
  bool* failed;  // set, with errno, by a line that could not be understood
};

struct Source {
  kx_object* freq;
  const char* root;
  int owner;
};

// ---- From a line to a field ----

void ReadNothing(const Target&, const char*, const char*) {}

void ReadText(const Target& to, const char* field, const char* line) {
  if (*line != '\0') kx::SetText(to.freq, field, line);
}

void ReadNumber(const Target& to, const char* field, const char* line) {
  // The library converts it; what is no number is 0, also nothing at all.
  kx::SetText(to.freq, field, *line != '\0' ? line : "0");
}

void ReadTime(const Target& to, const char* field, const char* line) {
  kx::SetTime(to.freq, field, Kfx_Str_To_Long(line));
}

void ReadOwner(const Target& to, const char* field, const char* line) {
  const char* name = to.names->Get(Kfx_Str_To_Long(line));
  if (name == nullptr) *to.failed = true;
  kx::SetText(to.freq, field, name);
}

void ReadActive(const Target& to, const char* field, const char* line) {
  kx::SetEnum(to.freq, field, *line == 'N' ? kx_act_expired : kx_act_ready);
}

void ReadNotify(const Target& to, const char* field, const char* line) {
  kx::SetEnum(to.freq, field,
              Kfx_Str_To_Long(line) == 0 ? kx_not_fail : kx_not_okfail);
}

void ReadProgram(const Target& to, const char* field, const char* line) {
  kx::SetText(to.freq, field, Kut_basename(line));
}

void ReadResolution(const Target& to, const char* field, const char* line) {
  kx::SetText(to.freq, field, cm_reso_to_str(Kfx_Str_To_Long(line)));
}

// ---- From a field to a line ----

std::string WriteNothing(const Source&, const char*) { return ""; }

std::string WriteZero(const Source&, const char*) { return "0"; }

std::string WriteText(const Source& from, const char* field) {
  std::string text = kx::TextOrEmpty(from.freq, field);
  // A text can bring no line of its own.
  for (char& c : text) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return text;
}

std::string WriteTime(const Source& from, const char* field) {
  const char* text = kx::Text(from.freq, field);
  return text != nullptr ? std::to_string(Kfx_Str_To_Time(text)) : "";
}

std::string WriteOwner(const Source& from, const char*) {
  return std::to_string(from.owner);
}

std::string WriteGroup(const Source&, const char*) {
  return std::to_string(cm_get_krt_gid());
}

std::string WriteActive(const Source& from, const char* field) {
  return kx::Enum(from.freq, field) == kx_act_ready ? "Y" : "N";
}

std::string WriteProgram(const Source& from, const char* field) {
  const std::string name = WriteText(from, field);
  return name.empty() ? "" : cm_get_tnp_dir(from.root) + ("/" + name);
}

std::string WriteResolution(const Source& from, const char* field) {
  return std::to_string(cm_reso_fr_str(kx::Text(from.freq, field)));
}

struct LineRule {
  std::string (*write)(const Source& from, const char* field);
  void (*read)(const Target& to, const char* field, const char* line);
  const char* field;
};

constexpr LineRule kUnused = {WriteNothing, ReadNothing, nullptr};

constexpr LineRule kLines[] = {
    {WriteText, ReadNumber, "seqno"},              // 1
    {WriteOwner, ReadOwner, "clientid"},           //
    {WriteGroup, ReadNothing, nullptr},            //
    {WriteActive, ReadActive, "active"},           //
    kUnused,                                       //
    {WriteText, ReadText, "faxpath"},              //
    {WriteZero, ReadNothing, nullptr},             //
    kUnused,                                       //
    {WriteTime, ReadNothing, "submittime"},        //
    {WriteTime, ReadTime, "submittime"},           // 10
    {WriteTime, ReadTime, "sendtime"},             //
    {WriteTime, ReadTime, "exptime"},              //
    {WriteTime, ReadTime, "atttime"},              //
    {WriteText, ReadNumber, "attempt"},            //
    {WriteText, ReadNumber, "maxtrys"},            //
    {WriteText, ReadNumber, "retrymins"},          //
    {WriteOwner, ReadNotify, "notify"},            //
    {WriteProgram, ReadProgram, "tnp"},            //
    {WriteText, ReadText, "mailaddr"},             //
    kUnused,                                       // 20
    kUnused,                                       //
    kUnused,                                       //
    {WriteResolution, ReadResolution, "sendres"},  //
    {WriteText, ReadText, "tofnum"},               //
    kUnused,                                       //
    kUnused,                                       //
    {WriteText, ReadText, "tsi"},                  //
    kUnused,                                       //
    {WriteText, ReadText, "queue"},                //
    {WriteText, ReadNumber, "gseqno"},             // 30
    {WriteText, ReadNumber, "memno"},              //
    {WriteText, ReadNumber, "prilevel"},           //
    {WriteText, ReadNumber, "rresult"},            //
    kUnused,                                       // 34
};
static_assert(std::size(kLines) == 34);

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Takes the next line out of `rest`, as fgets would with a buffer of kLineSize,
// and strips it. False at the end.
bool NextLine(std::string_view* rest, char* line) {
  if (rest->empty()) return false;
  std::string_view text = rest->substr(0, kLineSize - 1);
  const size_t newline = text.find('\n');
  if (newline != text.npos) text = text.substr(0, newline + 1);
  rest->remove_prefix(text.size());
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  memcpy(line, text.data(), text.size());
  line[text.size()] = '\0';
  return true;
}

// Makes the object out of a file's content; nothing of a short file remains.
kx::Object ParseFreq(std::string_view content, UserNames* names) {
  kx::Object freq = fx_build("obj-freq");
  char line[kLineSize];
  bool failed = false;
  for (const LineRule& rule : kLines) {
    if (!NextLine(&content, line)) {
      errno = EBADMSG;
      failed = true;
    } else {
      rule.read({freq.get(), names, &failed}, rule.field, line);
    }
    if (failed) return kx::Object(fx_null(kx_err_system));
  }
  kx_errno = kx_err_none;
  return freq;
}

kx::Object ReadFreqAt(int dirfd, const char* name, UserNames* names) {
  std::string content;
  if (!fx_read_file(dirfd, name, fx_links::kFollow, kFileLimit, &content)) {
    return kx::Object(fx_null(kx_err_system));
  }
  return ParseFreq(content, names);
}

// False with errno when nobody can tell who the owner is.
bool FormatFreq(const char* root, kx_object* freq, std::string* content) {
  int owner = Kut_uname_to_uid(kx::TextOrEmpty(freq, "clientid"));
  if (owner == -1 && Kut_is_shortage(errno)) return false;
  if (owner == -1) owner = cm_get_krt_uid();
  for (const LineRule& rule : kLines) {
    *content += rule.write({freq, root, owner}, rule.field);
    *content += '\n';
  }
  return true;
}

int Replace(const char* path, const std::string& content) {
  FileReplacer file;
  if (file.Open(path, 0666) != 0 || file.KeepAttributes() != 0 ||
      Kut_write_full(file.fd(), content.data(), content.size()) != 0) {
    return -1;
  }
  return file.Commit();
}

}  // namespace

kx_object* fx_read_freq(const char* path) {
  return fx_guarded([&]() -> kx_object* {
    UserNames names;
    return ReadFreqAt(AT_FDCWD, path, &names).release();
  });
}

kx_object* fx_load_freq(const char* root, long seqno, int expired) {
  return fx_read_freq(fx_freq_file(root, seqno, expired));
}

int fx_save_freq(const char* root, kx_object* freq) {
  return fx_guarded([&]() -> int {
    if (Kfx_Is_Obj_Type(freq, "obj-freq") == 0) return -1;
    const int seqno = kx::Number(freq, "seqno");
    std::string content;
    const bool saved = FormatFreq(root, freq, &content) &&
                       Replace(fx_freq_file(root, seqno, 0), content) == 0;
    return saved ? fx_ok() : fx_fail(kx_err_system);
  });
}

int fx_del_freq(const char* root, long seqno, int expired) {
  const int deleted = Kut_delete_file(fx_freq_file(root, seqno, expired));
  return deleted == 0 ? fx_ok() : fx_fail(kx_err_system);
}

kx_object* fx_rd_freqs(const char* root) {
  return fx_guarded([&]() -> kx_object* {
    DirReader dir;
    std::vector<fx_numbered> entries;
    {
      const FileIdentity reader(fx_reader());
      if (!reader.held() || dir.Open(cm_get_requests_dir(root)) != 0 ||
          !fx_numbered_names(&dir, "r-", &entries)) {
        return fx_null(kx_err_system);
      }
    }
    UserNames names;
    kx::ListBuilder list;
    for (const fx_numbered& entry : entries) {
      kx::Object freq = ReadFreqAt(dir.fd(), entry.name.c_str(), &names);
      if (freq == nullptr && fx_is_shortage()) return nullptr;
      if (freq != nullptr) fx_append(&list, std::move(freq));
    }
    return fx_give(list.Take());
  });
}
