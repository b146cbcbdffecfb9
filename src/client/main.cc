// krtctl: the command line client.
#include <cstdio>
#include <new>

#include "client/app.h"

int main(int argc, char** argv) {
  try {
    return client::App().Run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fputs("krtctl: No memory\n", stderr);
    return krt_system;
  }
}
