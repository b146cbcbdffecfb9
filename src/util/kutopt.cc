#include "util/kutopt.h"

#include <cstdio>
#include <cstring>

constinit int Kut_optind = 1;
constinit const char* Kut_optarg = nullptr;
constinit int Kut_optopt = 0;
constinit int Kut_optsw = 0;

namespace {

constexpr int kEnd = -1;
constexpr char kSwitches[] = "-";

constinit int g_pos = 0;  // of the next letter in the argument; 0: not begun

int NextArgument(int result) {
  Kut_optind++;
  g_pos = 0;
  return result;
}

int Byte(char c) { return static_cast<unsigned char>(c); }

bool IsDigit(int c) { return c >= '0' && c <= '9'; }

// The option's argument: the rest of this argument or all of the next one.
int TakeArgument(int argc, const char* const* argv, int letter) {
  const char* rest = argv[Kut_optind] + g_pos;
  NextArgument(letter);
  if (*rest != '\0') {
    Kut_optarg = rest;
    return letter;
  }
  if (Kut_optind >= argc) {
    fprintf(stderr, "%s: option requires an argument -- %c\n", argv[0], letter);
    return '?';
  }
  Kut_optarg = argv[Kut_optind];
  return NextArgument(letter);
}

}  // namespace

int Kut_optget(int argc, const char* const* argv, const char* optstring) {
  Kut_optarg = nullptr;
  if (Kut_optind >= argc) return kEnd;
  const char* arg = argv[Kut_optind];
  if (g_pos == 0) {
    if (arg[0] == '\0' || strchr(kSwitches, arg[0]) == nullptr ||
        arg[1] == '\0') {
      return kEnd;
    }
    Kut_optsw = Byte(arg[0]);
    g_pos = 1;
  }

  const int letter = Byte(arg[g_pos]);
  Kut_optopt = letter;
  if (letter == Kut_optsw) return NextArgument(kEnd);
  if (IsDigit(letter) && strchr(optstring, '#') != nullptr) {
    Kut_optopt = '#';
    Kut_optarg = arg + g_pos;
    return NextArgument('#');
  }

  g_pos++;
  const char* found = letter == ':' ? nullptr : strchr(optstring, letter);
  if (found != nullptr && found[1] == ':') {
    return TakeArgument(argc, argv, letter);
  }
  const int result = found != nullptr ? letter : '?';
  return arg[g_pos] == '\0' ? NextArgument(result) : result;
}

void Kut_optreset() {
  Kut_optind = 1;
  Kut_optarg = nullptr;
  Kut_optopt = 0;
  Kut_optsw = 0;
  g_pos = 0;
}
