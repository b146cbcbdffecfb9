#include "simulator/layout.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "simulator/fifo.h"
#include "simulator/output.h"
#include "simulator/receive.h"
#include "simulator/samples.h"
#include "util/kutdir.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kutuser.h"

namespace sim {
namespace {

// Tells that a root was laid out here.
constexpr char kMarker[] = ".krtsim";
constexpr char kLongestName[] = "123456789012345";
constexpr char kUserMark[] = "@USER@";
constexpr int kSamplePages = 2;

bool Exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

bool IsEmpty(const std::string& path) {
  DirReader dir;
  return dir.Open(path.c_str()) == 0 && dir.Next() == nullptr;
}

std::string ForUser(std::string text, const std::string& user) {
  for (size_t at; (at = text.find(kUserMark)) != std::string::npos;) {
    text.replace(at, sizeof kUserMark - 1, user);
  }
  return text;
}

// Makes what is missing below a directory, for one owner. After the first
// failure it makes nothing more, and failed() names it.
class Placer {
 public:
  Placer(const std::string& root, int uid, int gid)
      : root_(root), uid_(uid), gid_(gid) {}

  void Folder(const std::string& name, mode_t mode) {
    const std::string path = Path(name);
    if (!Begin(path)) return;
    // By its descriptor: a user may have put a link in its place by now.
    const UniqueFd dir(
        Kut_make_dir(path.c_str()) == 0
            ? Kut_open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW)
            : -1);
    // The umask took bits from the mode.
    if (!dir.valid() || !Own(dir.get()) || fchmod(dir.get(), mode) != 0) {
      failed_ = path;
    }
  }
  void File(const std::string& name, mode_t mode, const std::string& content) {
    const std::string path = Path(name);
    if (!Begin(path)) return;
    FileReplacer file;
    const bool made =
        file.Open(path.c_str(), mode) == 0 &&
        Kut_write_full(file.fd(), content.data(), content.size()) == 0 &&
        Own(file.fd()) && fchmod(file.fd(), mode) == 0 && file.Commit() == 0;
    if (!made) failed_ = path;
  }
  void Fifo(const std::string& name, bool (*make)(const std::string& path)) {
    const std::string path = Path(name);
    if (Begin(path) && !make(path) && !Exists(path)) failed_ = path;
  }
  const std::string& failed() const { return failed_; }

 private:
  std::string Path(const std::string& name) const { return root_ + "/" + name; }
  bool Begin(const std::string& path) const {
    return failed_.empty() && !Exists(path);
  }
  // Only the super-user gives files away; everybody else's are their own.
  bool Own(int fd) const {
    return geteuid() != 0 ||
           fchown(fd, static_cast<uid_t>(uid_), static_cast<gid_t>(gid_)) == 0;
  }

  std::string root_;
  int uid_, gid_;  // -1: as they are
  std::string failed_;
};

void LayCommon(Placer* place) {
  // Without a fax system's group nobody but the owner has business in the
  // folders that it writes: the daemon trusts a command no further than all who
  // could have put it there.
  const mode_t taken = cm_get_krt_gid() == -1 ? 02020 : 0;
  for (const SampleFolder& folder : SampleFolders()) {
    place->Folder(folder.path, folder.mode & ~taken);
  }
  for (const SampleFile& file : SampleFiles()) {
    place->File(file.path, file.mode, file.content);
  }
  place->File("qstat", 0644, SampleQstat());
  place->File("dstat", 0644, SampleDstat());
  place->Fifo("FIFO", MakeSchedulerFifo);
  place->Fifo("krtnet/filspool/kfifo", MakeSpoolFifo);
  place->Fifo("krtnet/filspool/efifo", MakeEventFifo);
  place->Fifo("krtnet/netspool/efifo", MakeEventFifo);
}

// A user's folders, which are the user's own where the system knows the name.
// The first path that could not be made; empty without one.
std::string LayUser(const std::string& root, const std::string& user) {
  std::string dir = cm_get_user_dir(root.c_str(), user.c_str());
  const bool is_new = !Exists(dir);
  const int uid = Kut_uname_to_uid(user.c_str());
  Placer place(cm_get_faxq_dir(root.c_str()), uid >= 0 ? uid : cm_get_krt_uid(),
               cm_get_krt_gid());
  place.Folder(user, 0770);
  for (const SampleFolder& folder : SampleUserFolders()) {
    place.Folder(user + "/" + folder.path, folder.mode);
  }
  for (const SampleFile& file : SampleUserFiles()) {
    place.File(user + "/" + file.path, file.mode, ForUser(file.content, user));
  }
  if (!place.failed().empty()) return place.failed();
  // A user who deleted the fax does not get another.
  if (is_new && PutReceivedFax(root, user, kSamplePages).empty()) return dir;
  return "";
}

// Whether a root may be laid out there; what is wrong is told.
int CheckPlace(const std::string& root) {
  if (cm_get_servmsg_file(root.c_str(), kLongestName)[0] == '\0') {
    Complain("the path %s is too long", root.c_str());
    return EX_DATAERR;
  }
  if (!Exists(root) || Exists(root + "/" + kMarker)) return EX_OK;
  if (Kut_is_directory(root.c_str()) == 0) {
    Complain("%s is no directory", root.c_str());
    return EX_CANTCREAT;
  }
  if (IsEmpty(root)) return EX_OK;
  Complain("%s is not empty and was not laid out by krtsim", root.c_str());
  return EX_CANTCREAT;
}

int CannotMake(const std::string& path) {
  Complain("cannot make %s: %s", path.c_str(), Kut_sys_errstr());
  return EX_CANTCREAT;
}

}  // namespace

int InitRoot(const Options& options) {
  if (options.quiet) BeQuiet();
  const std::string& root = options.root;
  if (const int status = CheckPlace(root); status != EX_OK) return status;
  if (Kut_make_dir_path(root.c_str()) != 0) return CannotMake(root);
  Placer place(root, cm_get_krt_uid(), cm_get_krt_gid());
  // First: an init that was cut short can be repeated.
  place.File(kMarker, 0664, "krtsim made this folder.\n");
  LayCommon(&place);
  if (!place.failed().empty()) return CannotMake(place.failed());

  std::vector<std::string> users = options.users;
  if (users.empty()) {
    const char* caller = Kut_get_usrname();
    if (caller != nullptr) users.emplace_back(caller);
  }
  for (const std::string& user : users) {
    const std::string failed = LayUser(root, user);
    if (!failed.empty()) return CannotMake(failed);
    Say("user %s", user.c_str());
  }
  Say("laid out %s; next: krtsim run %s", root.c_str(), root.c_str());
  return EX_OK;
}

}  // namespace sim
