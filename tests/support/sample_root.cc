#include "support/sample_root.h"

#include <sstream>
#include <thread>

namespace support {

bool Eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds deadline) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

SampleRoot::SampleRoot() {
  // Other users' processes come by in tests of permissions.
  std::filesystem::permissions(path(), std::filesystem::perms(0755));
  for (const char* folder :
       {"Classes", "Covers", "Formatters", "groups", "tnp", "expired",
        "Grequests", "in", "logs", "requests", "temp", "faxq",
        "krtnet/netspool", "krtnet/filspool", "krtnet/sessions",
        "krtnet/requests", "krtnet/queued"}) {
    MakeDir(folder);
  }
}

bool SampleRoot::Has(const std::string& name) const {
  return std::filesystem::symlink_status(*this / name).type() !=
         std::filesystem::file_type::not_found;
}

void SampleRoot::PutProgram(const std::string& name,
                            const std::string& script) const {
  Put(name, "#!/bin/sh\n" + script + "\n");
  std::filesystem::permissions(*this / name, std::filesystem::perms(0755));
}

void SampleRoot::AddUser(const std::string& user) const {
  for (const char* folder : {"options", "msgs", "events"}) {
    MakeDir("faxq/" + user + "/" + folder);
  }
}

void SampleRoot::Drop(const std::string& name,
                      const std::string& content) const {
  const auto temporary = spool() / (name + ".new");
  WriteFile(temporary, content);
  std::filesystem::rename(temporary, spool() / (name + ".cmd"));
}

std::string SampleRoot::Response(const std::string& name) const {
  const auto path = spool() / (name + ".rsp");
  if (!Eventually([&] { return std::filesystem::exists(path); })) return "";
  std::string content = ReadFile(path);
  std::filesystem::remove(path);
  return content;
}

std::string SampleRoot::Ask(const std::string& type, const std::string& more) {
  const std::string name = ExchangeName(1, ++reference_);
  Drop(name, Command(type, 1, reference_, more));
  return Response(name);
}

std::string Outcome(const std::string& response) {
  const size_t at = response.find("result=");
  if (at == response.npos) return "no result: " + response;
  return response.substr(at, response.rfind("objend=") - at);
}

std::string ExchangeName(int session, int reference) {
  char name[32];
  snprintf(name, sizeof name, "%04d-%03d", session, reference);
  return name;
}

std::string Command(const std::string& type, int session, int reference,
                    const std::string& more) {
  std::ostringstream text;
  text << "objbeg=obj-cmdrsp\nclientid=jsmith\nhostname=hostA\nsessionid="
       << session << "\nreference=" << reference << "\ncmdtype=" << type
       << "\niscmd=true\n"
       << more << "objend=obj-cmdrsp\n";
  return text.str();
}

}  // namespace support
