#include "client/krtclient.h"

#include <new>

#include "link/diagnosis.h"
#include "link/link.h"
#include "util/kutguard.h"
#include "util/kutstr.h"

using client::Status;

struct krt_client {
  client::Link link;
  Status last;
  int result = 0;
};

namespace {

constexpr size_t kNameSize = 16;
constexpr char kNoMemory[] = "No memory";

char g_open_error[512] = "";

int Fail(krt_client* client, Status status) {
  client->last = std::move(status);
  return client->last.code;
}

// Keeps exceptions, which only the lack of memory raises, from a C caller.
template <typename Function>
int Guarded(krt_client* client, Function function) {
  return Kut_guarded([&] { return Fail(client, function()); },
                     [&] {
                       client->last.text = kNoMemory;  // short: needs none
                       return client->last.code = krt_system;
                     });
}

Status Finish(krt_client* client, Status status, kx::Object object,
              kx_object** answer) {
  if (object != nullptr) {
    client->result = kx::Number(object.get(), "result");
    if (status.ok()) status = client::Refusal(object.get());
  }
  *answer = object.release();
  return status;
}

}  // namespace

int krt_open(const krt_options* options, krt_client** client) {
  const krt_options defaults = {nullptr, nullptr, nullptr, -1, 0};
  *client = new (std::nothrow) krt_client;
  // Until more is known: what fails before there is a client has no other text.
  Kut_strcpyz(g_open_error, kNoMemory, sizeof g_open_error);
  if (*client == nullptr) return krt_system;
  const int code = Guarded(*client, [&] {
    return (*client)->link.Open(options != nullptr ? *options : defaults,
                                client::kDefaultsFile);
  });
  Kut_strcpyz(g_open_error, krt_error(*client), sizeof g_open_error);
  if (code != krt_ok) {
    delete *client;
    *client = nullptr;
  }
  return code;
}

const char* krt_open_error() { return g_open_error; }

void krt_close(krt_client* client) { delete client; }

kx_object* krt_command(const char* cmdtype, kx_object* argument) {
  // Owned from here on, so that it is freed whatever fails.
  kx::Object owned(argument);
  kx::Object cmd = kx::Build("obj-cmdrsp");
  if (cmd == nullptr || cmdtype == nullptr || *cmdtype == '\0' ||
      kx::SetText(cmd.get(), "cmdtype", cmdtype) != 0) {
    return nullptr;
  }
  kx::SetBool(cmd.get(), "iscmd", true);
  kx::SetChild(cmd.get(), "objptr", std::move(owned));
  return cmd.release();
}

int krt_call(krt_client* client, kx_object* command, kx_object** answer) {
  return krt_call_unpack(client, command, nullptr, answer);
}

int krt_call_unpack(krt_client* client, kx_object* command,
                    const char* directory, kx_object** answer) {
  *answer = nullptr;
  kx::Object cmd(command);
  if (cmd == nullptr) return Fail(client, {krt_usage, "no command"});
  return Guarded(client, [&] {
    client->link.Identify(cmd.get());
    kx::Object object;
    Status s = client->link.Call(cmd.get(), directory, &object);
    return Finish(client, std::move(s), std::move(object), answer);
  });
}

int krt_send(krt_client* client, kx_object* command, char* name) {
  *name = '\0';
  kx::Object cmd(command);
  if (cmd == nullptr) return Fail(client, {krt_usage, "no command"});
  return Guarded(client, [&] {
    client->link.Identify(cmd.get());
    std::string given;
    Status s = client->link.Name(cmd.get(), &given);
    if (s.ok()) s = client->link.Send(cmd.get(), given);
    if (s.ok()) Kut_strcpyz(name, given.c_str(), kNameSize);
    return s;
  });
}

int krt_wait(krt_client* client, const char* name, kx_object** answer) {
  *answer = nullptr;
  return Guarded(client, [&]() -> Status {
    if (name == nullptr || !client::IsExchangeName(name)) {
      return {krt_usage, "no name of an exchange"};
    }
    kx::Object object;
    size_t which;
    Status s = client->link.WaitAny({name}, nullptr, &which, &object, nullptr);
    return Finish(client, std::move(s), std::move(object), answer);
  });
}

const char* krt_error(krt_client* client) { return client->last.text.c_str(); }
int krt_result(krt_client* client) { return client->result; }
const char* krt_root(krt_client* client) {
  return client->link.place().root.c_str();
}
const char* krt_root_source(krt_client* client) {
  return client->link.place().source.c_str();
}
