// Any bytes as a command line, for the option parser with any table of options,
// and for the client; as the environment; and as the service's settings file.
#include <stdio.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ctl/app/parse.h"
#include "ctl/verbs.h"
#include "fuzz/check.h"
#include "fuzz/fax_root.h"
#include "fuzz/input.h"
#include "link/place.h"
#include "util/kutenv.h"
#include "util/kutopt.h"

namespace {

struct Arguments {
  std::vector<std::string> texts = {"program"};
  std::vector<const char*> argv;

  explicit Arguments(fuzz::Input* in) {
    while (!in->empty() && texts.size() < 40) texts.push_back(in->Until('\0'));
    for (const std::string& text : texts) argv.push_back(text.c_str());
    argv.push_back(nullptr);
  }
  int count() const { return static_cast<int>(texts.size()); }
  // Whether a text is one of the arguments, or the end of one.
  bool Holds(const char* text) const {
    for (const std::string& t : texts) {
      if (text >= t.c_str() && text <= t.c_str() + t.size()) return true;
    }
    return false;
  }
};

void Options(fuzz::Input* in) {
  const std::string table = in->Until('\0');
  const Arguments args(in);
  Kut_optreset();
  std::size_t most = 1;
  for (const std::string& text : args.texts) most += text.size() + 1;
  int last = Kut_optind;
  for (int letter; (letter = Kut_optget(args.count(), args.argv.data(),
                                        table.c_str())) != -1;) {
    CHECK(most-- > 0);
    CHECK(Kut_optind >= last && Kut_optind <= args.count());
    CHECK(letter == '?' || table.find(static_cast<char>(letter)) != table.npos);
    CHECK(Kut_optarg == nullptr || args.Holds(Kut_optarg));
    last = Kut_optind;
  }
  CHECK(Kut_optind >= 1 && Kut_optind <= args.count());
}

void Client(fuzz::Input* in) {
  const Arguments args(in);
  client::CommandLine line;
  const client::Status status = client::ParseCommandLine(
      client::Verbs(), args.count(), args.argv.data(), &line);
  CHECK(status.ok() == status.text.empty());
  CHECK(line.args.size() + line.options.size() <= 10 + 256 * args.texts.size());
  for (const auto& [name, value] : line.options) {
    CHECK(line.Has(name.c_str()) && line.Value(name.c_str()) != nullptr);
  }
  const bool asks = line.Has("help") || line.Has("version");
  if (line.verb != nullptr && status.ok() && !asks) {
    CHECK(static_cast<int>(line.args.size()) >= line.verb->count.least);
  }
}

void Environment(fuzz::Input* in) {
  for (const char* name : {"KFAXDIR", "KFAXBIN", "FXDEBUG"}) {
    setenv(name, in->Until('\0').c_str(), 1);
  }
  Kut_env_reset();
  CHECK(*Kut_get_kfaxdir() != '\0');
  CHECK(Kut_get_kfaxbin() == Kut_get_kfaxdir());
  CHECK(*Kut_get_kfaxbin() != '\0');
  const int debug = Kut_get_kfaxdbg();
  CHECK(debug == 0 || debug == 1);
  for (const char* name : {"KFAXDIR", "KFAXBIN", "FXDEBUG"}) unsetenv(name);
}

void Settings(fuzz::Input* in) {
  static const std::string file = fuzz::Root().path() + std::string("/default");
  fuzz::Root().Put(file.c_str(), in->Rest());
  client::Place place;
  client::ChooseRoot(nullptr, file.c_str(), &place);
  CHECK(!place.root.empty() && !place.source.empty());
  CHECK(place.root.find('\n') == place.root.npos);
}

constexpr void (*kFormats[])(fuzz::Input*) = {Options, Client, Environment,
                                              Settings};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  // The option parser's words for a missing argument are not for the log.
  static const bool silent = (stderr = fopen("/dev/null", "w")) != nullptr;
  CHECK(silent);
  constexpr std::size_t kMost = 512;  // long words only take time
  fuzz::Input in(data, std::min(size, kMost));
  kFormats[in.Byte() % std::size(kFormats)](&in);
  return 0;
}
