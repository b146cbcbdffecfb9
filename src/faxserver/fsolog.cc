#include "faxserver/fsolog.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>

#include "cm/cmpaths.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsbytes.h"
#include "faxserver/fsfile.h"
#include "util/kutio.h"

namespace {

constexpr size_t kSeqnoAt = 0;
constexpr size_t kClientAt = 24;
constexpr size_t kClientSize = 16;

// Records read at once, on the way from the end to the beginning.
constexpr size_t kBlockRecords = 390;  // just below 64 KiB

template <typename Int>
struct NumberField {
  size_t offset;
  Int fx_olog_record::*member;
  const char* field;  // of "obj-status", null when it keeps its own
};

constexpr NumberField<int32_t> kWide[] = {
    {kSeqnoAt, &fx_olog_record::seqno, nullptr},
    {4, &fx_olog_record::attempt, "attempt"},
    {8, &fx_olog_record::stime, "stime"},
    {12, &fx_olog_record::etime, "etime"},
};
constexpr NumberField<int16_t> kNarrow[] = {
    {16, &fx_olog_record::npages, "npages"},
    {18, &fx_olog_record::naks, "naks"},
    {20, &fx_olog_record::aresult, "aresult"},
    {22, &fx_olog_record::rresult, "rresult"},
};

struct TextField {
  size_t offset;
  size_t size;
  std::string fx_olog_record::*member;
  const char* field;
};

constexpr TextField kTexts[] = {
    {kClientAt, kClientSize, &fx_olog_record::clientid, nullptr},
    {40, 24, &fx_olog_record::csi, "csi"},
    {64, 24, &fx_olog_record::tsi, "tsi"},
    {88, 64, &fx_olog_record::dialed, "dialed"},
    {152, 16, &fx_olog_record::queue, nullptr},
};

fx_olog_record Decode(fx_bytes bytes) {
  fx_olog_record record;
  for (const auto& number : kWide) {
    record.*number.member = fx_get<int32_t>(bytes, number.offset);
  }
  for (const auto& number : kNarrow) {
    record.*number.member = fx_get<int16_t>(bytes, number.offset);
  }
  for (const TextField& text : kTexts) {
    record.*text.member = fx_get_text(bytes, text.offset, text.size);
  }
  return record;
}

// Whose attempts at which request are looked for.
struct Wanted {
  int32_t seqno;
  std::string_view clientid;  // cut as the record's field cuts it
};

bool Matches(fx_bytes bytes, const Wanted& wanted) {
  return fx_get<int32_t>(bytes, kSeqnoAt) == wanted.seqno &&
         fx_get_text(bytes, kClientAt, kClientSize) == wanted.clientid;
}

// Collects the records from the end of the log on, latest first. False when the
// log cannot be read.
bool CollectBackwards(int fd, size_t records, const Wanted& wanted, size_t max,
                      std::vector<fx_olog_record>* found) {
  const auto block = std::make_unique_for_overwrite<unsigned char[]>(
      kBlockRecords * kFxOlogRecordSize);
  while (records > 0 && found->size() < max) {
    const size_t count = std::min(records, kBlockRecords);
    records -= count;
    const size_t size = count * kFxOlogRecordSize;
    const off_t at = static_cast<off_t>(records * kFxOlogRecordSize);
    const ssize_t got = Kut_pread_full(fd, block.get(), size, at);
    if (got < 0) return false;
    if (static_cast<size_t>(got) != size)
      continue;  // the log was cut meanwhile
    for (size_t i = count; i-- > 0 && found->size() < max;) {
      const fx_bytes bytes(block.get() + i * kFxOlogRecordSize,
                           kFxOlogRecordSize);
      if (Matches(bytes, wanted)) found->push_back(Decode(bytes));
    }
  }
  return true;
}

}  // namespace

fx_olog_bytes fx_encode_olog(const fx_olog_record& record) {
  fx_olog_bytes bytes = {};
  for (const auto& number : kWide) {
    fx_put(bytes, number.offset, record.*number.member);
  }
  for (const auto& number : kNarrow) {
    fx_put(bytes, number.offset, record.*number.member);
  }
  for (const TextField& text : kTexts) {
    fx_put_text(bytes, text.offset, text.size, record.*text.member);
  }
  return bytes;
}

fx_olog_record fx_decode_olog(const fx_olog_bytes& bytes) {
  return Decode(bytes);
}

int fx_append_olog(const char* root, const fx_olog_record& record) {
  const fx_olog_bytes bytes = fx_encode_olog(record);
  const UniqueFd log(
      Kut_open(cm_get_olog_file(root), O_WRONLY | O_APPEND | O_CREAT, 0664));
  const bool done =
      log.valid() && Kut_write_full(log.get(), bytes.data(), bytes.size()) == 0;
  return done ? fx_ok() : fx_fail(kx_err_system);
}

std::vector<fx_olog_record> fx_read_olog_list(const char* root, long seqno,
                                              const char* clientid, int max) {
  return fx_guarded([&]() -> std::vector<fx_olog_record> {
    std::vector<fx_olog_record> found;
    struct stat st;
    const UniqueFd log =
        fx_open_file(AT_FDCWD, cm_get_olog_file(root), fx_links::kFollow, &st);
    const size_t records =
        log.valid() ? static_cast<size_t>(st.st_size) / kFxOlogRecordSize : 0;
    if (!log.valid() ||
        !CollectBackwards(log.get(), records,
                          {static_cast<int32_t>(seqno),
                           std::string_view(clientid).substr(0, kClientSize)},
                          max > 0 ? static_cast<size_t>(max) : 0, &found)) {
      kx_errno = kx_err_system;
      return {};
    }
    std::reverse(found.begin(), found.end());
    std::stable_sort(found.begin(), found.end(),
                     [](const fx_olog_record& a, const fx_olog_record& b) {
                       return a.attempt < b.attempt;
                     });
    kx_errno = found.empty() ? kx_err_data : kx_err_none;
    return found;
  });
}

int fx_merge_stat_olog(kx_object* status, const fx_olog_record& record) {
  if (Kfx_Is_Obj_Type(status, "obj-status") == 0) return -1;
  kx::SetNumber(status, "attempt", record.attempt);
  kx::SetTime(status, "stime", record.stime);
  kx::SetTime(status, "etime", record.etime);
  for (const auto& number : kNarrow) {
    kx::SetNumber(status, number.field, record.*number.member);
  }
  for (const TextField& text : kTexts) {
    if (text.field == nullptr) continue;
    // What an earlier attempt left must not stand for this one.
    kx::SetText(status, text.field, nullptr);
    kx::SetText(status, text.field, (record.*text.member).c_str());
  }
  return fx_ok();
}
