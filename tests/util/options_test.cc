#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "util/kutopt.h"

namespace {

// Parses `args` to the end and tells each step as "letter(argument)", or as "?"
// and the letter that is refused, then the index at which it stopped and what
// was printed.
std::string Parse(const std::vector<const char*>& args, const char* optstring) {
  std::vector<const char*> argv = {"prog"};
  argv.insert(argv.end(), args.begin(), args.end());
  const int argc = static_cast<int>(argv.size());
  Kut_optreset();
  std::string steps;
  testing::internal::CaptureStderr();
  for (int c; (c = Kut_optget(argc, argv.data(), optstring)) != -1;) {
    steps += static_cast<char>(c);
    if (c == '?') steps += static_cast<char>(Kut_optopt);
    if (Kut_optarg != nullptr) steps += "(" + std::string(Kut_optarg) + ")";
    steps += " ";
    EXPECT_EQ(Kut_optsw, '-');
  }
  return steps + std::to_string(Kut_optind) +
         testing::internal::GetCapturedStderr();
}

TEST(Options, AreParsedByTheRules) {
  const struct {
    std::vector<const char*> args;
    const char* optstring;
    const char* steps;
  } cases[] = {
      {{}, "x", "1"},
      {{"-"}, "x", "1"},
      {{""}, "x", "1"},
      {{"-x", "file"}, "x", "x 2"},
      {{"-Lfile", "-x"}, "xL:", "L(file) x 3"},
      {{"-xL", "file"}, "xL:", "x L(file) 3"},
      {{"-L", "-x"}, "xL:", "L(-x) 3"},
      {{"-L", "", "rest"}, "L:", "L() 3"},
      {{"-x", "--", "-x"}, "x", "x 3"},
      {{"-x-y", "z"}, "xy", "x 2"},
      {{"-zx"}, "x", "?z x 2"},
      {{"-:"}, "x:", "?: 2"},
      {{"-xL"}, "xL:", "x ?L 2prog: option requires an argument -- L\n"},
      {{"-5", "-x12", "a"}, "x#", "#(5) x #(12) 3"},
      {{"-5"}, "x", "?5 2"},
      {{"-5"}, "5", "5 2"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args) + " with " + c.optstring);
    EXPECT_EQ(Parse(c.args, c.optstring), c.steps);
  }
}

}  // namespace
