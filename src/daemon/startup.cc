#include "daemon/startup.h"

#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cm/cmlimits.h"
#include "cm/cmpaths.h"
#include "commands/docmd.h"
#include "daemon/background.h"
#include "daemon/monitor.h"
#include "daemon/signals.h"
#include "daemon/spool/logfile.h"
#include "daemon/spool/rsp.h"
#include "daemon/spool/settings.h"
#include "daemon/spool/sxfile.h"
#include "daemon/subtask.h"
#include "faxserver/fsdmnlst.h"
#include "faxserver/fsfile.h"
#include "faxserver/fslog.h"
#include "util/kutenv.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kutopt.h"
#include "util/kutuser.h"

namespace {

constexpr char kOptions[] = "VM:d:P:N:L:r:xsw:DZ:";

constexpr const char* kHelp[] = {
    "",
    "Options are:",
    "",
    "   -P port   port/socket number to use (network version)",
    "   -d dir    directory to watch (file version)",
    "   -L fd     file descriptor of log file",
    "   -w secs   number of seconds to wait between checks",
    "   -r num    number of rsp tries",
    "   -s        silent mode",
    "   -D        debug mode",
    "   -V        print version number",
};

[[noreturn]] void PrintVersion() {
  printf("%s: KRT*FAX network cmd daemon version %d.%d.%d\n", ProgName,
         krtcmd_major_version, krtcmd_minor_version, krtcmd_release);
  exit(0);
}

// "-Z": whether the daemon still goes to the background.
bool ApplyFlags(const char* flags, bool background) {
  for (; *flags != '\0'; ++flags) {
    if (*flags == 'D') Debug = 1;
    if (*flags == 'D' || *flags == 'F') background = false;
    if (*flags == 'S') save_cmds = save_rsps = 1;
  }
  return background;
}

// Parses the options; whether the daemon goes to the background.
bool ParseOptions(int argc, char** argv) {
  bool background = true;
  for (int option; (option = Kut_optget(argc, argv, kOptions)) != -1;) {
    const char* arg = Kut_optarg;
    switch (option) {
      case 'V':
        PrintVersion();
      case 'M':
        maxtasks = atoi(arg);
        break;
      case 'd':
        file_dir = arg;
        break;
      case 'P':
        sock_number = atoi(arg);
        break;
      case 'N':
        num_daemons = atoi(arg);
        break;
      case 'L':
        log_fd = atoi(arg);
        break;
      case 'r':
        maxtrys = atoi(arg);
        break;
      case 's':  // silent mode: accepted, changes nothing
        break;
      case 'w':
        sleeptime = atoi(arg);
        break;
      case 'D':
        Debug = 1;
        break;
      case 'Z':
        background = ApplyFlags(arg, background);
        break;
      default:  // "-x" too: known to the parser, and refused
        Usage(0);
    }
  }
  return background;
}

void ChooseSpool() {
  switch (sx_protocol()) {
    case kFileProtocol:
      netspool = cm_get_filspool_dir(kfaxdir);
      break;
    case kNetworkProtocol:
      netspool = cm_get_netspool_dir(kfaxdir);
      break;
    default:
      break;
  }
  file_dir = netspool;
}

// Programs run in other directories than the daemon, from where a relative path
// leads elsewhere. One that is not there stays what it is.
void MakeAbsolute(const char* variable) {
  const char* dir = getenv(variable);
  if (dir == nullptr || *dir == '\0' || *dir == '/') return;
  char path[PATH_MAX];
  if (realpath(dir, path) != nullptr) setenv(variable, path, 1);
}

// The budgets, as the environment has them. A wrong one leaves the default.
void SetLimits() {
  // Who waits for one user's locks holds up everybody's commands.
  if (num_daemons != 0) cm_set_limits("book-wait=300");
  const char* wrong = cm_set_limits(getenv("KFAXLIMITS"));
  if (wrong != nullptr) dmn_logf("Invalid limit in KFAXLIMITS: %s", wrong);
}

// A daemon that is root reads the fax system's files as the one who owns the
// tree. Where that cannot be told, nothing below it can be opened either.
void TakeReader() {
  const UniqueFd root(Kut_open(kfaxdir, O_PATH | O_DIRECTORY));
  kut_fsid owner;
  if (root.valid() && Kut_owner_of(root.get(), &owner)) fx_read_as(owner);
}

// Forks the daemons; only they come back. The starting process exits.
void Detach() {
  const int count = num_daemons == 0 ? 1 : num_daemons;
  int result = 0;
  for (int i = 0; i < count && result == 0; ++i) result = dmn_put_in_bg();
  if (result <= 0) exit(result == 0 ? 0 : 1);
}

void LogStart() {
  if (Debug != 0) {
    dmn_logf("%s daemon version %d.%d.%d started: pid %d", ProgName,
             krtcmd_major_version, krtcmd_minor_version, krtcmd_release,
             getpid());
  }
  if (num_daemons == 0 && maxtasks < 2) {
    dmn_logf("No workers with %d tasks: commands are left waiting", maxtasks);
  }
}

bool Initialize() {
  if (subtask_init(maxtasks) != 0) {
    dmn_logf("Cannot initialize subtask table: %s", Kut_sys_errstr());
    return false;
  }
  if (monitor_open(sock_number, sleeptime) != 0) {
    dmn_logf("Cannot initialize socket connection: %s", Kut_sys_errstr());
    return false;
  }
  cmd_reserve();
  // Somebody unknown makes the C library load all services of the user
  // database. It ends a process that has no memory for that: once, here, and
  // not while a command is carried out.
  Kut_uname_to_uid("krtfax-nobody");
  Kut_gname_to_gid("krtfax-nobody");
  return true;
}

void MainLoop() {
  while (daemon_running != 0) {
    if (monitor_read(sleeptime) == -1) break;
    rsp_check(maxtrys);
  }
}

void Serve() {
  if (!Initialize()) return;
  if (monitor_start(file_dir, sleeptime) == 0) MainLoop();
  monitor_stop();
  subtask_sweep(1);
}

}  // namespace

void Usage(int full) {
  if (full == 0) {
    fprintf(stderr, "Type \"%s -help\" for help\n", ProgName);
    exit(1);
  }
  printf("usage: %s [options]\n", ProgName);
  for (const char* line : kHelp) printf("%s\n", line);
  exit(0);
}

void krtcmd_run(int argc, char** argv) {
  ProgName = Kut_basename(argv[0]);
  MakeAbsolute("KFAXDIR");
  MakeAbsolute("KFAXBIN");
  kfaxdir = Kut_get_kfaxdir();
  ChooseSpool();
  if (argc > 1 &&
      (strcmp(argv[1], "-help") == 0 || strcmp(argv[1], "-?") == 0)) {
    Usage(1);
  }
  const bool background = ParseOptions(argc, argv);
  if (!background) log_fd = -1;
  dmn_log_reopen(log_fd, Debug);
  fx_log_to(dmn_log_write);
  SetLimits();
  TakeReader();
  if (background) Detach();
  LogStart();
  fx_add_daemon_list(kfaxdir, ProgName, getpid());
  if (signals_install(num_daemons == 0) != 0) {
    dmn_logf("Cannot install signal handlers: %s", Kut_sys_errstr());
  } else {
    Serve();
  }
  dmn_log_write("Terminating");
  dmn_log_close();
  exit(0);
}
