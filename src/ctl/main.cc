// krtctl: the command line client.
#include <cstdio>
#include <new>

#include "ctl/app/app.h"
#include "ctl/verbs.h"

int main(int argc, char** argv) {
  try {
    return client::App(client::Verbs()).Run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fputs("krtctl: No memory\n", stderr);
    return krt_system;
  }
}
