#include "daemon/spool/settings.h"

const int krtcmd_major_version = 2;
const int krtcmd_minor_version = 1;
const int krtcmd_release = 0;

int Debug = 0;
int save_cmds = 0;
int save_rsps = 0;
int num_daemons = 0;
int sock_number = -1;
int log_fd = -1;
int sleeptime = 5;
int maxtrys = 3;
int maxtasks = 20;
const int max_daemons = 20;

volatile sig_atomic_t subtask_cnt = 0;
volatile sig_atomic_t daemon_running = 1;

const char* ProgName = "krtcmd";
const char* kfaxdir = nullptr;
const char* netspool = nullptr;
const char* file_dir = nullptr;
