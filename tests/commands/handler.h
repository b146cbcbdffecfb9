// Handlers called directly, on a root of the test's own.
#ifndef COMMANDS_HANDLER_H_
#define COMMANDS_HANDLER_H_

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "commands/docmd.h"
#include "daemon/spool/settings.h"
#include "daemon/spool/sxfile.h"
#include "faxserver/fsefifo.h"
#include "kx/object.h"
#include "support/objects.h"
#include "support/peers.h"
#include "util/kutenv.h"

class HandlerTest : public testing::Test {
 protected:
  HandlerTest() {
    root_.AddUser("jsmith");
    root_.AddUser("bob");
    kfaxdir = root_.root();
    setenv("KFAXDIR", root_.root(), 1);  // where the phone books are
    Kut_env_reset();
    netspool = spool_.c_str();
    file_dir = netspool;
    // Both session daemons run, and are this process.
    const std::string pid = std::to_string(getpid());
    root_.Put("krtnet/krtnet.lck",
              pid + ":krtnet.fil\n" + pid + ":krtnet.net\n");
  }

  // Runs the handler of a command of jsmith's: what it puts into the response,
  // in text form. The command stays in `cmd_`, the handler's result in
  // `returned_`.
  std::string Run(const std::string& type, const std::string& argument = "",
                  const std::string& more = "clientid=jsmith\n") {
    WriteFile(spool_ + "/x.1",
              Object("obj-cmdrsp", more + "sessionid=1\nreference=2\ncmdtype=" +
                                       type + "\n" + argument));
    cmd_.reset(sx_cmd(spool_.c_str(), "x.1", 0));
    if (cmd_ == nullptr) return "no command";
    const cmd_row* row = find_ptbl(Kfx_Str_To_Enum(type.c_str()), cmd_table);
    if (row == nullptr) return "no handler";
    const kx::Object rsp = kx::Build("obj-cmdrsp");
    kx::SetText(rsp.get(), "hostname", "hostA");
    returned_ = cmd_run(*row, cmd_.get(), rsp.get());
    kx::SetText(rsp.get(), "hostname", nullptr);
    const std::string text = ToText(rsp.get());
    const std::size_t begin = text.find('\n') + 1;
    return text.substr(begin, text.rfind("objend=") - begin);
  }

  // Expects an exchange to fail with a number and a text, the handler with -1.
  void ExpectFailure(int number, const std::string& message,
                     const std::string& type, const std::string& argument) {
    SCOPED_TRACE(type + "\n" + argument);
    EXPECT_EQ(Run(type, argument), "result=" + std::to_string(number) +
                                       "\nerrmsg=" + message + "\n");
    EXPECT_EQ(returned_, -1);
  }

  struct Failure {
    int number;
    std::string message, type, argument;
  };
  void ExpectFailures(const std::vector<Failure>& failures) {
    for (const Failure& f : failures) {
      ExpectFailure(f.number, f.message, f.type, f.argument);
    }
  }

  FaxRoot root_;
  const std::string spool_ = root_ / "krtnet/filspool";
  kx::Object cmd_;
  int returned_ = 0;
};

// The events that reach both session daemons: "code user" for each, in order.
class EventReaders {
 public:
  explicit EventReaders(const FaxRoot& root)
      : file_(root / "krtnet/filspool/efifo"),
        network_(root / "krtnet/netspool/efifo") {}
  std::string Take() {
    const std::string records = file_.Take();
    EXPECT_EQ(records, network_.Take());
    EXPECT_EQ(records.size() % kFxEventSize, 0u);
    std::string events;
    for (std::size_t at = 0; at < records.size(); at += kFxEventSize) {
      int code;
      std::memcpy(&code, records.data() + at + 16, sizeof code);
      EXPECT_EQ(records.substr(at + 20, 16), std::string(16, '\0'));
      const std::string user(records.data() + at);
      EXPECT_EQ(records.substr(at, 16),
                user + std::string(16 - user.size(), '\0'));
      events += std::to_string(code) + " " + user + "\n";
    }
    return events;
  }

 private:
  FifoReader file_;
  FifoReader network_;
};

constexpr char kDone[] = "result=0\n";

#endif  // COMMANDS_HANDLER_H_
