#include "simulator/layout.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "cm/cmtree.h"
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

// Who an entry is given to; -1: it stays as it is.
struct Owner {
  int uid, gid;
};

// Makes a fifo of that very mode, whatever the umask. Invalid with errno on
// failure.
UniqueFd MakeFifo(const std::string& path, mode_t mode) {
  const mode_t mask = umask(0);
  const int made = mkfifo(path.c_str(), mode);
  umask(mask);
  if (made != 0) return UniqueFd();
  // As a place alone: opened in any other way, it would wait for a writer.
  return UniqueFd(Kut_open(path.c_str(), O_PATH | O_NOFOLLOW));
}

// Makes what is missing below a directory. After the first failure it makes
// nothing more, and failed() names it.
class Placer {
 public:
  // `user` owns what is the user's, and the files.
  Placer(const std::string& root, Owner user) : root_(root), user_(user) {}

  void Place(const cm_tree_entry& entry) {
    const Owner owner = {
        entry.owner == cm_owner::kUser ? user_.uid : cm_owner_uid(entry.owner),
        cm_owner_gid(entry.group)};
    switch (entry.kind) {
      case cm_kind::kDir:
        return Folder(entry.path, ModeOf(entry), owner);
      case cm_kind::kFile:
        return Put(entry.path, entry.mode, "", owner);
      case cm_kind::kFifo:
        return Fifo(entry.path, entry.mode, owner);
    }
  }
  void File(const std::string& name, mode_t mode, const std::string& content) {
    Put(name, mode, content, user_);
  }
  const std::string& failed() const { return failed_; }

 private:
  // Without a fax system's group nobody but the owner has business in the
  // folders that it writes: the daemon trusts a command no further than all who
  // could have put it there.
  static mode_t ModeOf(const cm_tree_entry& entry) {
    const bool shared = cm_owner_gid(entry.group) != -1;
    return shared ? entry.mode : entry.mode & ~mode_t{S_ISGID | S_IWGRP};
  }
  void Folder(const std::string& name, mode_t mode, Owner owner) {
    const std::string path = Path(name);
    if (!Begin(path)) return;
    // By its descriptor: a user may have put a link in its place by now.
    const UniqueFd dir(
        Kut_make_dir(path.c_str()) == 0
            ? Kut_open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW)
            : -1);
    // The owner first: a change of it takes the set-group-id bit away. And the
    // mode once more, since the umask took bits from it.
    if (!dir.valid() || !Give(dir.get(), owner) ||
        fchmod(dir.get(), mode) != 0) {
      failed_ = path;
    }
  }
  void Put(const std::string& name, mode_t mode, const std::string& content,
           Owner owner) {
    const std::string path = Path(name);
    if (!Begin(path)) return;
    // With its owner and mode before it has its name.
    FileReplacer file;
    const bool made =
        file.Open(path.c_str(), mode) == 0 &&
        Kut_write_full(file.fd(), content.data(), content.size()) == 0 &&
        Give(file.fd(), owner) && fchmod(file.fd(), mode) == 0 &&
        file.Commit() == 0;
    if (!made) failed_ = path;
  }
  void Fifo(const std::string& name, mode_t mode, Owner owner) {
    const std::string path = Path(name);
    if (!Begin(path)) return;
    const UniqueFd fifo = MakeFifo(path, mode);
    // A simulator that runs may have made it meanwhile.
    if (!fifo.valid() && errno == EEXIST) return;
    if (!fifo.valid() || !Give(fifo.get(), owner)) failed_ = path;
  }

  // A user's paths bring their "/" along; the empty one is the root itself.
  std::string Path(const std::string& name) const {
    const bool joined = name.empty() || name[0] == '/';
    return root_ + (joined ? "" : "/") + name;
  }
  bool Begin(const std::string& path) const {
    return failed_.empty() && !Exists(path);
  }
  // Only the super-user gives files away; everybody else's are their own.
  static bool Give(int fd, Owner owner) {
    return geteuid() != 0 ||
           fchownat(fd, "", static_cast<uid_t>(owner.uid),
                    static_cast<gid_t>(owner.gid), AT_EMPTY_PATH) == 0;
  }

  std::string root_;
  Owner user_;
  std::string failed_;
};

void LayCommon(Placer* place) {
  for (const cm_tree_entry& entry : cm_tree()) {
    // The root itself is there, and stays as whoever made it wanted it.
    if (*entry.path != '\0') place->Place(entry);
  }
  for (const SampleFile& file : SampleFiles()) {
    place->File(file.path, file.mode, file.content);
  }
  place->File("qstat", 0644, SampleQstat());
  place->File("dstat", 0644, SampleDstat());
}

// A user's queue, which is the user's own where the system knows the name. The
// first path that could not be made; empty without one.
std::string LayUser(const std::string& root, const std::string& user) {
  std::string queue = cm_get_user_dir(root.c_str(), user.c_str());
  const bool is_new = !Exists(queue);
  const int uid = Kut_uname_to_uid(user.c_str());
  Placer place(queue, {uid >= 0 ? uid : cm_get_krt_uid(), cm_get_krt_gid()});
  for (const cm_tree_entry& entry : cm_user_tree()) place.Place(entry);
  for (const SampleFile& file : SampleUserFiles()) {
    place.File(file.path, file.mode, ForUser(file.content, user));
  }
  if (!place.failed().empty()) return place.failed();
  // A user who deleted the fax does not get another.
  if (is_new && PutReceivedFax(root, user, kSamplePages).empty()) return queue;
  return "";
}

// Whether a root may be laid out there; what is wrong is told.
int CheckPlace(const std::string& root) {
  // The longest path below the root, or a user could be laid out in part.
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
  Placer place(root, {cm_get_krt_uid(), cm_get_krt_gid()});
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
