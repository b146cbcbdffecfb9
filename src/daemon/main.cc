#include "daemon/startup.h"

int main(int argc, char** argv) { krtcmd_run(argc, argv); }
