// krtsim: the rest of the fax server, for demos and tests.
#include <sysexits.h>

#include <cstdio>

#include "daemon/spool/settings.h"
#include "simulator/layout.h"
#include "simulator/options.h"
#include "simulator/output.h"
#include "simulator/receive.h"
#include "simulator/server.h"

namespace {

int Run(const sim::Options& options) {
  switch (options.verb) {
    case sim::Verb::kInit:
      return sim::InitRoot(options);
    case sim::Verb::kRun:
      return sim::RunServer(options);
    case sim::Verb::kReceive:
      return sim::ReceiveFax(options);
    case sim::Verb::kVersion:
      printf("krtsim: KRT*FAX fax server simulator version %d.%d.%d\n",
             krtcmd_major_version, krtcmd_minor_version, krtcmd_release);
      return EX_OK;
    default:
      fputs(sim::HelpText().c_str(), stdout);
      return EX_OK;
  }
}

}  // namespace

int main(int argc, char** argv) {
  sim::Options options;
  std::string fault;
  if (!sim::ParseOptions(argc, argv, &options, &fault)) {
    sim::Complain("%s (krtsim --help tells more)", fault.c_str());
    return EX_USAGE;
  }
  const int status = Run(options);
  const bool written = fflush(stdout) == 0 && !sim::OutputLost();
  return status == EX_OK && !written ? EX_IOERR : status;
}
