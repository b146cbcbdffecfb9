#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "util/kutopt.h"

namespace {

// Parses `args` to the end and tells each step as "letter(argument)", then the
// index at which it stopped.
std::string Parse(const std::vector<const char*>& args, const char* optstring) {
  std::vector<const char*> argv = {"prog"};
  argv.insert(argv.end(), args.begin(), args.end());
  const int argc = static_cast<int>(argv.size());
  Kut_optreset();
  std::string steps;
  for (int c; (c = Kut_optget(argc, argv.data(), optstring)) != -1;) {
    steps += static_cast<char>(c);
    if (Kut_optarg != nullptr) steps += "(" + std::string(Kut_optarg) + ")";
    steps += " ";
  }
  return steps + std::to_string(Kut_optind);
}

TEST(Options, AreParsedByTheRules) {
  const struct {
    std::vector<const char*> args;
    const char* optstring;
    const char* steps;
  } cases[] = {
      {{}, "x", "1"},
      {{"file"}, "x", "1"},
      {{"-"}, "x", "1"},
      {{""}, "x", "1"},
      {{"-x", "file"}, "x", "x 2"},
      {{"-xyx"}, "xy", "x y x 2"},
      {{"-Lfile", "-x"}, "xL:", "L(file) x 3"},
      {{"-xL", "file"}, "xL:", "x L(file) 3"},
      {{"-L", "-x"}, "xL:", "L(-x) 3"},
      {{"-L", "", "rest"}, "L:", "L() 3"},
      {{"-x", "--", "-x"}, "x", "x 3"},
      {{"-x-y", "z"}, "xy", "x 2"},
      {{"-zx"}, "x", "? x 2"},
      {{"-:"}, "x:", "? 2"},
      {{"-5", "-x12", "a"}, "x#", "#(5) x #(12) 3"},
      {{"-5"}, "x", "? 2"},
      {{"-5"}, "5", "5 2"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args) + " with " + c.optstring);
    EXPECT_EQ(Parse(c.args, c.optstring), c.steps);
  }
}

TEST(Options, MissingArgumentIsReportedOnStandardError) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(Parse({"-xL"}, "xL:"), "x ? 2");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "prog: option requires an argument -- L\n");
}

TEST(Options, UnknownLetterIsSilentAndKept) {
  testing::internal::CaptureStderr();
  const char* const argv[] = {"prog", "-q"};
  Kut_optreset();
  EXPECT_EQ(Kut_optget(2, argv, "x"), '?');
  EXPECT_EQ(Kut_optopt, 'q');
  EXPECT_EQ(Kut_optsw, '-');
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
