// krtctl: the command line client.
#include <cstdio>

#include "ctl/app/app.h"
#include "ctl/verbs.h"
#include "util/kutguard.h"

int main(int argc, char** argv) {
  return Kut_guarded(
      [=] { return client::App(client::Verbs()).Run(argc, argv); },
      [] {
        fputs("krtctl: No memory\n", stderr);
        return int{krt_system};
      });
}
