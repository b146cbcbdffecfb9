#include "isam/isformat.h"

#include <algorithm>
#include <cstring>

#include "isam/isbytes.h"

namespace isam {
namespace {

constexpr uint32_t kVersion = 1;
constexpr int kLeastRecord = kSerialSize + 1;
constexpr uint32_t kMinRing = 256 * 1024;

static_assert(header_at::kIndexes + kIsamMaxIndexes * kIndexDefSize <=
              kHeaderSize);
static_assert(fields_at::kFields + kIsamMaxFields * kFieldSize <= kFieldsSize);
static_assert(root_at::kTrees + kTreeSize * kIsamMaxIndexes <= kRootSize);
static_assert(state_at::kHalfFirst + 8 <= kStateSize && kStateSize <= kSector);

const char* Magic(FileKind kind) {
  return kind == FileKind::kIndex ? "KRTISAMX" : "KRTISAMD";
}

// The checksum of a block of `size` bytes from its byte `from` on.
uint64_t SumFrom(const uint8_t* block, uint32_t from, uint32_t size,
                 uint64_t salt) {
  return Checksum(block + from, size - from, salt);
}
uint64_t HeaderSum(const uint8_t* block, uint64_t salt) {
  return SumFrom(block, header_at::kVersion, kHeaderSize, salt);
}
uint64_t StateSum(const uint8_t* block, uint64_t salt) {
  return SumFrom(block, state_at::kPhase, kStateSize, salt);
}
uint64_t RootSum(const uint8_t* block, uint64_t salt) {
  return SumFrom(block, root_at::kCommit, kRootSize, salt);
}
uint64_t FieldsSum(const uint8_t* block, uint64_t salt) {
  return SumFrom(block, fields_at::kCount, kFieldsSize, salt);
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
      return segment.offset == 0 && segment.length == kSerialSize;
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
  index->key_length =
      index->value_length + (index->duplicates ? kSerialSize : 0);
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
        !InRange(seg.length, 1, kIsamMaxKey) ||
        !InRange(seg.mode, kIsamPlain, kIsamSerial))
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
  if (!InRange(from.record_length, kLeastRecord, kIsamMaxRecord) ||
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
  memcpy(out + header_at::kMagic, Magic(kind), kMagicSize);
  Put32(out + header_at::kVersion, kVersion);
  Put32(out + header_at::kPageSize, kPageSize);
  Put64(out + header_at::kSalt, layout.salt);
  Put32(out + header_at::kRecordLength, layout.record_length);
  Put32(out + header_at::kRingSize, layout.ring_size);
  Put32(out + header_at::kDataExtension, layout.data_extension);
  Put32(out + header_at::kDataMode, layout.data_mode);
  Put32(out + header_at::kIndexExtension, layout.index_extension);
  Put32(out + header_at::kIndexMode, layout.index_mode);
  Put32(out + header_at::kIndexCount, layout.index_count);
  for (uint32_t i = 0; i < layout.index_count; ++i) {
    const Index& index = layout.index[i];
    uint8_t* p = out + header_at::kIndexes + i * kIndexDefSize;
    Put16(p + index_at::kValueLength, index.value_length);
    p[index_at::kDuplicates] = index.duplicates ? 1 : 0;
    p[index_at::kSegmentCount] = static_cast<uint8_t>(index.segment_count);
    p += index_at::kSegments;
    for (uint32_t s = 0; s < index.segment_count; ++s, p += kSegmentDefSize) {
      Put16(p + segment_at::kOffset, index.segments[s].offset);
      Put16(p + segment_at::kLength, index.segments[s].length);
      p[segment_at::kMode] = index.segments[s].mode;
    }
  }
  Put64(out + header_at::kChecksum, HeaderSum(out, layout.salt));
}

isam_code DecodeHeader(const uint8_t* in, FileKind kind, Layout* layout) {
  if (Get64(in + header_at::kMagic) == 0) return kIsamNoFile;
  if (memcmp(in + header_at::kMagic, Magic(kind), kMagicSize) != 0)
    return kIsamBadVersion;
  layout->salt = Get64(in + header_at::kSalt);
  if (Get64(in + header_at::kChecksum) != HeaderSum(in, layout->salt))
    return kIsamDamaged;
  if (Get32(in + header_at::kVersion) != kVersion ||
      Get32(in + header_at::kPageSize) != kPageSize)
    return kIsamBadVersion;
  layout->record_length = Get32(in + header_at::kRecordLength);
  layout->ring_size = Get32(in + header_at::kRingSize);
  layout->data_extension = Get32(in + header_at::kDataExtension);
  layout->data_mode = Get32(in + header_at::kDataMode);
  layout->index_extension = Get32(in + header_at::kIndexExtension);
  layout->index_mode = Get32(in + header_at::kIndexMode);
  layout->index_count = Get32(in + header_at::kIndexCount);
  if (layout->record_length < kLeastRecord ||
      layout->record_length > kIsamMaxRecord || layout->index_count < 1 ||
      layout->index_count > kIsamMaxIndexes)
    return kIsamDamaged;
  for (uint32_t i = 0; i < layout->index_count; ++i) {
    Index& index = layout->index[i];
    const uint8_t* p = in + header_at::kIndexes + i * kIndexDefSize;
    index.duplicates = p[index_at::kDuplicates] != 0;
    index.segment_count = p[index_at::kSegmentCount];
    if (index.segment_count > kIsamMaxSegments) return kIsamDamaged;
    for (uint32_t s = 0; s < index.segment_count; ++s) {
      const uint8_t* q = p + index_at::kSegments + s * kSegmentDefSize;
      index.segments[s] = {Get16(q + segment_at::kOffset),
                           Get16(q + segment_at::kLength),
                           q[segment_at::kMode]};
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
  Put32(out + state_at::kPhase, static_cast<uint32_t>(state.phase));
  Put64(out + state_at::kCommit, state.commit);
  Put64(out + state_at::kChanges, state.changes);
  memcpy(out + state_at::kBootId, state.boot_id, sizeof state.boot_id);
  Put32(out + state_at::kEntryOffset, state.entry_offset);
  Put32(out + state_at::kEntryLength, state.entry_length);
  Put64(out + state_at::kHalfFirst, state.half_first);
  Put64(out + state_at::kChecksum, StateSum(out, salt));
}

bool DecodeState(const uint8_t* in, const Layout& layout, State* state) {
  if (Get64(in + state_at::kChecksum) != StateSum(in, layout.salt))
    return false;
  state->phase = static_cast<Phase>(Get32(in + state_at::kPhase));
  state->commit = Get64(in + state_at::kCommit);
  state->changes = Get64(in + state_at::kChanges);
  memcpy(state->boot_id, in + state_at::kBootId, sizeof state->boot_id);
  state->entry_offset = Get32(in + state_at::kEntryOffset);
  state->entry_length = Get32(in + state_at::kEntryLength);
  state->half_first = Get64(in + state_at::kHalfFirst);
  return state->phase >= Phase::kApplied &&
         state->phase <= Phase::kRebuilding &&
         state->entry_length <= layout.ring_size &&
         state->entry_offset <= layout.ring_size - state->entry_length;
}

void EncodeRoot(const Root& root, uint64_t salt, uint8_t* out) {
  memset(out, 0, kRootSize);
  Put64(out + root_at::kCommit, root.commit);
  Put64(out + root_at::kRecords, root.records);
  Put32(out + root_at::kNextSerial, root.next_serial);
  Put32(out + root_at::kPagesUsed, root.pages_used);
  Put32(out + root_at::kPagesCapacity, root.pages_capacity);
  Put32(out + root_at::kFreePage, root.free_page);
  Put32(out + root_at::kSlotsUsed, root.slots_used);
  Put32(out + root_at::kSlotsCapacity, root.slots_capacity);
  Put32(out + root_at::kFreeSlot, root.free_slot);
  for (uint32_t i = 0; i < kIsamMaxIndexes; ++i) {
    uint8_t* tree = out + root_at::kTrees + kTreeSize * i;
    Put32(tree, root.tree[i].page);
    Put32(tree + 4, root.tree[i].depth);
  }
  Put64(out + root_at::kChecksum, RootSum(out, salt));
}

bool DecodeRoot(const uint8_t* in, const Layout& layout, Root* root) {
  if (Get64(in + root_at::kChecksum) != RootSum(in, layout.salt)) return false;
  root->commit = Get64(in + root_at::kCommit);
  root->records = Get64(in + root_at::kRecords);
  root->next_serial = Get32(in + root_at::kNextSerial);
  root->pages_used = Get32(in + root_at::kPagesUsed);
  root->pages_capacity = Get32(in + root_at::kPagesCapacity);
  root->free_page = Get32(in + root_at::kFreePage);
  root->slots_used = Get32(in + root_at::kSlotsUsed);
  root->slots_capacity = Get32(in + root_at::kSlotsCapacity);
  root->free_slot = Get32(in + root_at::kFreeSlot);
  for (uint32_t i = 0; i < kIsamMaxIndexes; ++i) {
    Tree& tree = root->tree[i];
    const uint8_t* p = in + root_at::kTrees + kTreeSize * i;
    tree = {Get32(p), Get32(p + 4)};
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
  Put32(out + fields_at::kCount, static_cast<uint32_t>(count));
  uint8_t* p = out + fields_at::kFields;
  for (int i = 0; i < count; ++i, p += kFieldSize) {
    memcpy(p + field_at::kName, fields[i].name,
           strnlen(fields[i].name, sizeof DODA::name - 1));
    Put32(p + field_at::kOffset, static_cast<uint32_t>(fields[i].offset));
    Put32(p + field_at::kType, static_cast<uint32_t>(fields[i].type));
    Put32(p + field_at::kLength, static_cast<uint32_t>(fields[i].length));
  }
  Put64(out + fields_at::kChecksum, FieldsSum(out, salt));
}

int DecodeFields(const uint8_t* in, uint64_t salt, DODA* fields) {
  if (Get64(in + fields_at::kChecksum) != FieldsSum(in, salt)) return -1;
  const uint32_t count = Get32(in + fields_at::kCount);
  if (count > kIsamMaxFields) return -1;
  const uint8_t* p = in + fields_at::kFields;
  for (uint32_t i = 0; i < count; ++i, p += kFieldSize) {
    memcpy(fields[i].name, p + field_at::kName, sizeof DODA::name);
    fields[i].name[sizeof DODA::name - 1] = '\0';
    fields[i].offset = static_cast<int>(Get32(p + field_at::kOffset));
    fields[i].type = static_cast<int>(Get32(p + field_at::kType));
    fields[i].length = static_cast<int>(Get32(p + field_at::kLength));
  }
  return static_cast<int>(count);
}

}  // namespace isam
