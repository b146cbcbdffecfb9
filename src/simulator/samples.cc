#include "simulator/samples.h"

#include <ctime>

#include "faxserver/fsdstat.h"
#include "faxserver/fsqstat.h"

namespace sim {
namespace {

constexpr SampleFile kFiles[] = {
    {"Default", 0644, "any\n"},
    {"Classes/any", 0644, "any\nfax0\nfax1\n"},
    {"Covers/standard.sh", 0755,
     "#!/bin/sh\n"
     "# With -dump a cover page tells its tags, in one line.\n"
     "[ \"$1\" = -dump ] || exit 64\n"
     "echo 'to:R:F:Courier:30:\"Recipient name\"' \\\n"
     "  'company:O:F:Courier:30:\"Recipient company\"' \\\n"
     "  'FXSENTON:S:P:Times:20:\"Date sent\"' \\\n"
     "  'FXPAGES:S:P:Times:4:\"Number of pages\"'\n"},
    {"Covers/memo.sh", 0755,
     "#!/bin/sh\n"
     "[ \"$1\" = -dump ] || exit 64\n"
     "echo 'to:R:P:Times:40:\"To\"' 'subject:O:P:Times:60:\"Subject\"'\n"},
    {"groups/board", 0644, "555-0101\n555-0102\n"},
    {"krtnet/covers.lst", 0644,
     "# name    description\n"
     "standard  Plain cover page\n"
     "memo      Internal memo\n"},
    {"krtnet/envtags", 0644,
     "# Settings of new requests that say nothing else.\n"
     "maxtrys=3\n"
     "retrymins=5\n"
     "tsi=KRT SAMPLE\n"},
    {"krtnet/prtdests.lst", 0644,
     "# name  description\n"
     "laser   The printer in the hall\n"},
    {"retrys", 0644,
     "# name  description\n"
     "short   Three times, five minutes apart\n"
     "long    All day, every half hour\n"},
};

constexpr SampleFile kUserFiles[] = {
    {"options/config", 0660,
     "objbeg=obj-config\n"
     "notify=not-okfail\n"
     "frname=@USER@\n"
     "sendres=fine\n"
     "priority=m\n"
     "coverpage=standard\n"
     "objend=obj-config\n"},
    {"options/userinfo", 0660,
     "objbeg=obj-user\n"
     "clientid=@USER@\n"
     "username=@USER@\n"
     "usertype=usr-reg\n"
     "objend=obj-user\n"},
    {"msgs/welcome.msg", 0660,
     "Welcome to the sample fax server.\n"
     "\n"
     "Nothing that you send from here reaches a telephone line.\n"},
    {"msgs/msg.srv", 0660,
     "objbeg=obj-servmsg\n"
     "servcode=srv-start\n"
     "text=The fax server was started\n"
     "objend=obj-servmsg\n"},
};

template <typename Bytes>
void Append(std::string* text, const Bytes& bytes) {
  text->append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

}  // namespace

std::span<const SampleFile> SampleFiles() { return kFiles; }
std::span<const SampleFile> SampleUserFiles() { return kUserFiles; }

// Records as the fax server has them, which its own reader could not tell from
// real ones.
std::string SampleQstat() {
  const int32_t since = static_cast<int32_t>(time(nullptr));
  constexpr int16_t kDevice = 0, kClass = 1;
  std::string text;
  Append(&text, fx_encode_qstat({"any", 1, since, "open", kClass}));
  Append(&text, fx_encode_qstat({"fax0", 1, since, "open", kDevice}));
  Append(&text, fx_encode_qstat({"fax1", 1, since, "open", kDevice}));
  return text;
}

std::string SampleDstat() {
  std::string text;
  for (const int16_t number : {int16_t{0}, int16_t{1}}) {
    fx_dstat_record record;
    record.destname = "fax" + std::to_string(number);
    record.esince = record.rsince = static_cast<int32_t>(time(nullptr));
    record.devno = number;
    record.enabled = 1;
    record.recving = number == 0;
    record.ereason = "in service";
    record.rreason = number == 0 ? "receives" : "sends only";
    record.device = "/dev/ttyS" + std::to_string(number);
    record.fim = "sim";
    Append(&text, fx_encode_dstat(record));
  }
  return text;
}

}  // namespace sim
