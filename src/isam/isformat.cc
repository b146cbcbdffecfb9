#include "isam/isformat.h"

#include <algorithm>
#include <cstring>

#include "isam/isbytes.h"

namespace isam {
namespace {

constexpr uint32_t kVersion = 1;
constexpr uint32_t kMinRing = 256 * 1024;
constexpr uint32_t kIndexDef = 64;      // offset of the first index definition
constexpr uint32_t kIndexDefSize = 52;  // 4 + kIsamMaxSegments * 6
constexpr uint32_t kFieldSize = 44;
constexpr uint32_t kFieldsHeader = 16;

static_assert(kIndexDef + kIsamMaxIndexes * kIndexDefSize <= kHeaderSize);
static_assert(kFieldsHeader + kIsamMaxFields * kFieldSize <= kFieldsSize);
static_assert(64 + 8 * kIsamMaxIndexes <= kRootSize);

const char* Magic(FileKind kind) {
  return kind == FileKind::kIndex ? "KRTISAMX" : "KRTISAMD";
}

// The longest entry that one change can make. A rewrite takes a key out of each
// tree and puts one in. At worst every level splits, so that the contents of
// one full page stand in two, a new root is made, and the leaf that lost the
// key, or the page above it, is a full one too.
uint32_t LongestEntry(const Layout& layout) {
  uint32_t size = kEntryHeader + kImageHeader + kRootSize + kImageHeader +
                  layout.slot_size();
  for (uint32_t i = 0; i < layout.index_count; ++i) {
    size += (kMaxDepth + 1) * (kImageHeader + kPageSize) +
            (2 * kMaxDepth + 2) * (kImageHeader + kPageHeader) +
            (kMaxDepth + 2) * 2 * layout.index[i].entry_size();
  }
  return size;
}

// Four of the longest entries: the next one then never overwrites the last one,
// nor the one before it where that is still needed (see Place in iscommit.cc).
uint32_t RingSize(const Layout& layout) {
  const uint32_t need = 4 * (LongestEntry(layout) + kSector);
  return std::max(kMinRing, (need + 4095) / 4096 * 4096);
}

bool PossibleSegment(const Segment& segment, uint32_t record_length) {
  if (segment.length == 0 || segment.offset + segment.length > record_length)
    return false;
  switch (segment.mode) {
    case kIsamPlain:
    case kIsamUpper:
      return true;
    case kIsamSerial:
      return segment.offset == 0 && segment.length == 4;
    default:
      return false;
  }
}

// Fills in what follows from the segments; false when the index is impossible.
bool CompleteIndex(uint32_t record_length, Index* index) {
  index->value_length = 0;
  for (uint32_t i = 0; i < index->segment_count; ++i) {
    if (!PossibleSegment(index->segments[i], record_length)) return false;
    index->value_length += index->segments[i].length;
  }
  index->key_length = index->value_length + (index->duplicates ? 4 : 0);
  return index->key_length > 0 && index->key_length <= kIsamMaxKey;
}

bool InRange(int value, int low, int high) {
  return value >= low && value <= high;
}

bool MakeIndex(const IIDX& from, uint32_t record_length, Index* index) {
  if (!InRange(from.segment_count, 1, kIsamMaxSegments) ||
      from.segments == nullptr || from.key_type != 0)
    return false;
  index->duplicates = from.duplicates != 0;
  index->segment_count = static_cast<uint32_t>(from.segment_count);
  for (int i = 0; i < from.segment_count; ++i) {
    const ISEG& seg = from.segments[i];
    if (!InRange(seg.offset, 0, kIsamMaxRecord) ||
        !InRange(seg.length, 1, kIsamMaxKey) || !InRange(seg.mode, 0, 3))
      return false;
    index->segments[i] = {static_cast<uint16_t>(seg.offset),
                          static_cast<uint16_t>(seg.length),
                          static_cast<uint8_t>(seg.mode)};
  }
  return CompleteIndex(record_length, index) &&
         from.key_length == static_cast<int>(index->key_length);
}

// Rewriting and deleting find the current record by its serial number.
bool IsSerialIndex(const Index& index) {
  return index.segment_count == 1 && index.segments[0].mode == kIsamSerial &&
         !index.duplicates;
}

}  // namespace

isam_code MakeLayout(const IFIL& from, Layout* layout) {
  if (!InRange(from.record_length, 5, kIsamMaxRecord) ||
      !InRange(from.index_count, 1, kIsamMaxIndexes) ||
      from.indexes == nullptr || from.data_extension < 0 ||
      from.index_extension < 0)
    return kIsamBadArgument;
  *layout = {};
  layout->record_length = static_cast<uint32_t>(from.record_length);
  layout->data_extension = static_cast<uint32_t>(from.data_extension);
  layout->data_mode = static_cast<uint32_t>(from.data_mode);
  layout->index_extension = static_cast<uint32_t>(from.index_extension);
  layout->index_mode = static_cast<uint32_t>(from.index_mode);
  layout->index_count = static_cast<uint32_t>(from.index_count);
  for (int i = 0; i < from.index_count; ++i) {
    if (!MakeIndex(from.indexes[i], layout->record_length, &layout->index[i]))
      return kIsamBadArgument;
  }
  if (!IsSerialIndex(layout->index[0])) return kIsamBadArgument;
  layout->ring_size = RingSize(*layout);
  return kIsamOk;
}

void EncodeHeader(const Layout& layout, FileKind kind, uint8_t* out) {
  memset(out, 0, kHeaderSize);
  memcpy(out, Magic(kind), 8);
  Put32(out + 16, kVersion);
  Put32(out + 20, kPageSize);
  Put64(out + 24, layout.salt);
  Put32(out + 32, layout.record_length);
  Put32(out + 36, layout.ring_size);
  Put32(out + 40, layout.data_extension);
  Put32(out + 44, layout.data_mode);
  Put32(out + 48, layout.index_extension);
  Put32(out + 52, layout.index_mode);
  Put32(out + 56, layout.index_count);
  for (uint32_t i = 0; i < layout.index_count; ++i) {
    const Index& index = layout.index[i];
    uint8_t* p = out + kIndexDef + i * kIndexDefSize;
    Put16(p, index.value_length);
    p[2] = index.duplicates ? 1 : 0;
    p[3] = static_cast<uint8_t>(index.segment_count);
    p += 4;
    for (uint32_t s = 0; s < index.segment_count; ++s, p += 6) {
      Put16(p, index.segments[s].offset);
      Put16(p + 2, index.segments[s].length);
      p[4] = index.segments[s].mode;
    }
  }
  Put64(out + 8, Checksum(out + 16, kHeaderSize - 16, layout.salt));
}

isam_code DecodeHeader(const uint8_t* in, FileKind kind, Layout* layout) {
  if (Get64(in) == 0) return kIsamNoFile;
  if (memcmp(in, Magic(kind), 8) != 0) return kIsamBadVersion;
  layout->salt = Get64(in + 24);
  if (Get64(in + 8) != Checksum(in + 16, kHeaderSize - 16, layout->salt))
    return kIsamDamaged;
  if (Get32(in + 16) != kVersion || Get32(in + 20) != kPageSize)
    return kIsamBadVersion;
  layout->record_length = Get32(in + 32);
  layout->ring_size = Get32(in + 36);
  layout->data_extension = Get32(in + 40);
  layout->data_mode = Get32(in + 44);
  layout->index_extension = Get32(in + 48);
  layout->index_mode = Get32(in + 52);
  layout->index_count = Get32(in + 56);
  if (layout->record_length < 5 || layout->record_length > kIsamMaxRecord ||
      layout->index_count < 1 || layout->index_count > kIsamMaxIndexes)
    return kIsamDamaged;
  for (uint32_t i = 0; i < layout->index_count; ++i) {
    Index& index = layout->index[i];
    const uint8_t* p = in + kIndexDef + i * kIndexDefSize;
    index.duplicates = p[2] != 0;
    index.segment_count = p[3];
    if (index.segment_count > kIsamMaxSegments) return kIsamDamaged;
    for (uint32_t s = 0; s < index.segment_count; ++s) {
      const uint8_t* q = p + 4 + s * 6;
      index.segments[s] = {Get16(q), Get16(q + 2), q[4]};
    }
    if (!CompleteIndex(layout->record_length, &index)) return kIsamDamaged;
  }
  return IsSerialIndex(layout->index[0]) &&
                 layout->ring_size == RingSize(*layout)
             ? kIsamOk
             : kIsamDamaged;
}

void EncodeState(const State& state, uint64_t salt, uint8_t* out) {
  memset(out, 0, kStateSize);
  Put32(out + 8, static_cast<uint32_t>(state.phase));
  Put64(out + 16, state.commit);
  Put64(out + 24, state.changes);
  memcpy(out + 32, state.boot_id, sizeof state.boot_id);
  Put32(out + 48, state.entry_offset);
  Put32(out + 52, state.entry_length);
  Put64(out + 56, state.half_first);
  Put64(out, Checksum(out + 8, kStateSize - 8, salt));
}

bool DecodeState(const uint8_t* in, const Layout& layout, State* state) {
  if (Get64(in) != Checksum(in + 8, kStateSize - 8, layout.salt)) return false;
  state->phase = static_cast<Phase>(Get32(in + 8));
  state->commit = Get64(in + 16);
  state->changes = Get64(in + 24);
  memcpy(state->boot_id, in + 32, sizeof state->boot_id);
  state->entry_offset = Get32(in + 48);
  state->entry_length = Get32(in + 52);
  state->half_first = Get64(in + 56);
  return state->phase >= Phase::kApplied &&
         state->phase <= Phase::kRebuilding &&
         state->entry_length <= layout.ring_size &&
         state->entry_offset <= layout.ring_size - state->entry_length;
}

void EncodeRoot(const Root& root, uint64_t salt, uint8_t* out) {
  memset(out, 0, kRootSize);
  Put64(out + 8, root.commit);
  Put64(out + 16, root.records);
  Put32(out + 24, root.next_serial);
  Put32(out + 28, root.pages_used);
  Put32(out + 32, root.pages_capacity);
  Put32(out + 36, root.free_page);
  Put32(out + 40, root.slots_used);
  Put32(out + 44, root.slots_capacity);
  Put32(out + 48, root.free_slot);
  for (uint32_t i = 0; i < kIsamMaxIndexes; ++i) {
    Put32(out + 64 + 8 * i, root.tree[i].page);
    Put32(out + 68 + 8 * i, root.tree[i].depth);
  }
  Put64(out, Checksum(out + 8, kRootSize - 8, salt));
}

bool DecodeRoot(const uint8_t* in, const Layout& layout, Root* root) {
  if (Get64(in) != Checksum(in + 8, kRootSize - 8, layout.salt)) return false;
  root->commit = Get64(in + 8);
  root->records = Get64(in + 16);
  root->next_serial = Get32(in + 24);
  root->pages_used = Get32(in + 28);
  root->pages_capacity = Get32(in + 32);
  root->free_page = Get32(in + 36);
  root->slots_used = Get32(in + 40);
  root->slots_capacity = Get32(in + 44);
  root->free_slot = Get32(in + 48);
  for (uint32_t i = 0; i < kIsamMaxIndexes; ++i) {
    Tree& tree = root->tree[i];
    tree = {Get32(in + 64 + 8 * i), Get32(in + 68 + 8 * i)};
    if (tree.page > root->pages_used || tree.depth > kMaxDepth ||
        (tree.page == 0) != (tree.depth == 0))
      return false;
  }
  return root->next_serial != 0 && root->pages_used <= root->pages_capacity &&
         root->free_page <= root->pages_used &&
         root->slots_used <= root->slots_capacity &&
         root->slots_used < kSlotUsed && root->free_slot <= root->slots_used &&
         root->records <= root->slots_used;
}

void EncodeFields(const DODA* fields, int count, uint64_t salt, uint8_t* out) {
  memset(out, 0, kFieldsSize);
  Put32(out + 8, static_cast<uint32_t>(count));
  uint8_t* p = out + kFieldsHeader;
  for (int i = 0; i < count; ++i, p += kFieldSize) {
    memcpy(p, fields[i].name, strnlen(fields[i].name, sizeof DODA::name - 1));
    Put32(p + 32, static_cast<uint32_t>(fields[i].offset));
    Put32(p + 36, static_cast<uint32_t>(fields[i].type));
    Put32(p + 40, static_cast<uint32_t>(fields[i].length));
  }
  Put64(out, Checksum(out + 8, kFieldsSize - 8, salt));
}

int DecodeFields(const uint8_t* in, uint64_t salt, DODA* fields) {
  if (Get64(in) != Checksum(in + 8, kFieldsSize - 8, salt)) return -1;
  const uint32_t count = Get32(in + 8);
  if (count > kIsamMaxFields) return -1;
  const uint8_t* p = in + kFieldsHeader;
  for (uint32_t i = 0; i < count; ++i, p += kFieldSize) {
    memcpy(fields[i].name, p, sizeof DODA::name);
    fields[i].name[sizeof DODA::name - 1] = '\0';
    fields[i].offset = static_cast<int>(Get32(p + 32));
    fields[i].type = static_cast<int>(Get32(p + 36));
    fields[i].length = static_cast<int>(Get32(p + 40));
  }
  return static_cast<int>(count);
}

}  // namespace isam
