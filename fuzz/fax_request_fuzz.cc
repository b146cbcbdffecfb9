// Any bytes as a request file, as the file that counts requests, and as the
// envelope that a request is made of. A request that was read and written is
// read as itself from then on; a count goes on by one.
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "cm/cmpaths.h"
#include "faxserver/fsfiles.h"
#include "faxserver/fsfreq.h"
#include "faxserver/fsmkfreq.h"
#include "fuzz/check.h"
#include "fuzz/fax_root.h"
#include "fuzz/objects.h"

namespace {

constexpr long kSeqno = 7;
const char* g_root;

std::string Saved(kx_object* freq) {
  kx::SetNumber(freq, "seqno", kSeqno);
  CHECK(fx_save_freq(g_root, freq) == 0);
  const kx::Object back(fx_load_freq(g_root, kSeqno, 0));
  CHECK(back != nullptr);
  return fuzz::TextOf(back.get());
}

void Request(const std::string& content) {
  fuzz::Root().Put(fx_freq_file(g_root, kSeqno, 0), content);
  const kx::Object freq(fx_load_freq(g_root, kSeqno, 0));
  if (freq == nullptr) {
    CHECK(kx_errno == 3);
    return;
  }
  // What the file cannot hold is lost with the first writing, and no more with
  // the second.
  const std::string text = Saved(freq.get());
  const kx::Object again(fx_load_freq(g_root, kSeqno, 0));
  CHECK(Saved(again.get()) == text);
}

void Count(const std::string& content) {
  const char* file = cm_get_oseqno_file(g_root);
  fuzz::Root().Put(file, content);
  const long first = fx_next_seqno(file);
  CHECK(first >= 1 && first <= INT_MAX);
  CHECK(fx_next_seqno(file) == (first < INT_MAX ? first + 1 : 1));
}

void Envelope(const std::string& content) {
  const kx::Object env = fuzz::ObjectOf(content, "obj-senv");
  if (env == nullptr) return;
  const kx::Object freq(fx_make_freq(g_root, "ann", env.get()));
  if (freq == nullptr) {
    CHECK(kx_errno == 19 && kx::Text(env.get(), "tofnum") == nullptr);
    return;
  }
  CHECK(kx::Number(freq.get(), "seqno") > 0);
  CHECK(kx::Number(freq.get(), "prilevel") >= 0);
  CHECK(kx::Text(freq.get(), "sendres") != nullptr);
  Saved(freq.get());
}

constexpr void (*kFormats[])(const std::string&) = {Request, Count, Envelope};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  g_root = fuzz::Root().path();
  kFormats[data[0] % std::size(kFormats)](
      std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
  return 0;
}
