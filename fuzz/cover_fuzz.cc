// Any bytes as the line of tags that a cover page prints. Each tag that comes
// out has a name that is not the fax server's own, and comes back when it is
// written as such a line.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "faxserver/fscover.h"
#include "fuzz/check.h"
#include "kx/object.h"

namespace {

char Letter(kx_object* tag, const char* field) {
  switch (kx::Enum(tag, field)) {
    case kx_tag_req:
      return 'R';
    case kx_tag_opt:
      return 'O';
    case kx_tag_sys:
      return 'S';
    case kx_fnt_fixed:
      return 'F';
    case kx_fnt_prop:
      return 'P';
    default:
      return '-';
  }
}

std::string LineOf(kx_object* tags) {
  std::string line;
  for (kx_object* tag : kx::Elements(tags)) {
    line += '"' + std::string(kx::TextOrEmpty(tag, "tagname")) + "\":";
    line += Letter(tag, "tagtype");
    line += ':';
    line += Letter(tag, "fonttype");
    for (const char* field : {"fontname", "maxlen", "tagdesc"}) {
      line += ":\"" + std::string(kx::TextOrEmpty(tag, field)) + '"';
    }
    line += '\n';
  }
  return line;
}

void CheckSame(kx_object* a, kx_object* b) {
  for (const char* field :
       {"tagname", "tagtype", "fonttype", "fontname", "maxlen", "tagdesc"}) {
    const std::string text = kx::TextOrEmpty(a, field);
    CHECK(text == kx::TextOrEmpty(b, field));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  // Tags do not depend on each other: a few show as much as many, and sooner.
  constexpr std::size_t kLineMost = 255;
  std::string line(reinterpret_cast<const char*>(data),
                   std::min(size, kLineMost));
  const kx::Object tags(fx_parse_cover_tags(line.data()));
  CHECK(kx_errno == 0);
  for (kx_object* tag : kx::Elements(tags.get())) {
    const char* name = kx::TextOrEmpty(tag, "tagname");
    CHECK(std::strcmp(name, "FXPAGES") != 0);
    CHECK(std::strcmp(name, "FXSENTON") != 0);
  }
  std::string written = LineOf(tags.get());
  const kx::Object back(fx_parse_cover_tags(written.data()));
  kx_object* there = back.get();
  for (kx_object* tag : kx::Elements(tags.get())) {
    CHECK(there != nullptr);
    CheckSame(tag, static_cast<kx_object*>(Kfx_Bdata(there)));
    there = Kfx_Bnext(there);
  }
  CHECK(there == nullptr);
  return 0;
}
