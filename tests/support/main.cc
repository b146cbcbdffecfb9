// Runs the tests of a folder where the machine's accounts, and the settings of
// who starts them, change no result.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "support/accounts.h"

namespace {

// What stays of the environment: where programs are, and what the tests, the
// sanitizers and the tools around them are told by.
bool Stays(const std::string& variable) {
  for (const char* prefix : {"PATH=", "HOME=", "KRT_", "GTEST_", "LD_", "ASAN_",
                             "UBSAN_", "LSAN_", "GCOV_"}) {
    if (variable.starts_with(prefix)) return true;
  }
  return false;
}

void ForgetSettings() {
  std::vector<std::string> all;
  for (char** at = environ; *at != nullptr; ++at) all.emplace_back(*at);
  for (const std::string& variable : all) {
    if (!Stays(variable)) {
      unsetenv(variable.substr(0, variable.find('=')).c_str());
    }
  }
  setenv("TZ", "UTC", 1);
  umask(022);
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  ForgetSettings();
  std::optional<OwnAccounts> accounts;
  if (geteuid() == 0 && !testing::GTEST_FLAG(list_tests)) {
    accounts.emplace("", "");
  }
  return RUN_ALL_TESTS();
}
