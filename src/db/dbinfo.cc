// The descriptions of a table, to and from the store's form.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "db/dbpriv.h"

namespace {

constexpr int kFileDescriptionSize = 2048;
constexpr int kFieldsSize = 10240;
constexpr int kExtension = 4096;  // bytes that a file grows by
constexpr int kFileMode = 2;

int CountRows(const db_field* fields) {
  int count = 0;
  while (fields != nullptr && !db_is_end(fields[count])) ++count;
  return count;
}

int RecordSize(const db_field* fields) {
  int size = 0;
  for (; !db_is_end(*fields); ++fields) {
    if (!db_is_pseudo(*fields)) size += fields->length;
  }
  return size;
}

// Where the serial number's index and all others keep their segments.
void BeginIndex(db_description* out, int number, bool unique) {
  out->indexes[number] = {};
  out->indexes[number].duplicates = unique ? 0 : 1;
  out->indexes[number].key_length = unique ? 0 : kSerialSize;
  out->indexes[number].segments = out->segments[number];
}

void AddSegment(IIDX* index, const ISEG& segment) {
  index->segments[index->segment_count++] = segment;
  index->key_length += segment.length;
}

// The row of the stored field at an offset, or -1.
int FieldAt(const db_field* fields, int offset, int length) {
  for (int row = 0; !db_is_end(fields[row]); ++row) {
    if (!db_is_pseudo(fields[row]) && fields[row].offset == offset &&
        fields[row].length == length) {
      return row;
    }
  }
  return -1;
}

// A name and an abbreviation share the store's name, divided by a blank.
void JoinNames(const db_field& field, char (&out)[sizeof DODA::name]) {
  snprintf(out, sizeof out, "%.15s %.15s", field.name, field.abbr);
}

bool SplitNames(const char (&joined)[sizeof DODA::name], db_field* field) {
  const char* end = joined + sizeof joined;
  const char* nul = std::find(joined, end, '\0');
  const char* blank = std::find(joined, nul, ' ');
  if (nul == end || blank == nul || blank == joined ||
      blank - joined >= static_cast<int>(sizeof field->name) ||
      nul - blank > static_cast<int>(sizeof field->abbr)) {
    return false;
  }
  std::copy(joined, blank, field->name);
  std::copy(blank + 1, nul, field->abbr);
  return true;
}

// Index 0 is read with a serial number for its key, whatever the file claims.
bool IsSerialIndex(const IIDX& index) {
  return index.segment_count == 1 && index.duplicates == 0 &&
         index.segments[0].length == kSerialSize &&
         index.segments[0].mode == kIsamSerial;
}

bool IsSane(const DODA& doda, int record_size) {
  return doda.offset >= 0 && doda.length > 0 && doda.offset <= record_size &&
         doda.length <= record_size - doda.offset;
}

}  // namespace

int db_ifil_wr(const char* name, const db_field* fields, const db_key* keys,
               db_description* out) {
  const int rows = CountRows(fields);
  out->file = {.name = name,
               .file_no = -1,
               .record_length = kSerialSize + RecordSize(fields),
               .data_extension = kExtension,
               .data_mode = kFileMode,
               .index_count = 1,
               .index_extension = kExtension,
               .index_mode = kFileMode,
               .indexes = out->indexes};
  BeginIndex(out, 0, true);
  AddSegment(&out->indexes[0], {0, kSerialSize, kIsamSerial});
  for (; keys->unique != -1; ++keys) {
    if (out->file.index_count == kIsamMaxIndexes || keys->count < 1 ||
        keys->count > std::min(kIsamMaxSegments, kDbKeyFields)) {
      return db_fail(kDbData);
    }
    const int number = out->file.index_count++;
    BeginIndex(out, number, keys->unique != 0);
    for (int i = 0; i < keys->count; ++i) {
      const int row = keys->fields[i];
      if (row < 0 || row >= rows || db_is_pseudo(fields[row]))
        return db_fail(kDbData);
      AddSegment(&out->indexes[number],
                 {fields[row].offset + kSerialSize, fields[row].length,
                  fields[row].type == kx_typ_str ? kIsamUpper : kIsamPlain});
    }
  }
  return 0;
}

int db_flds_to_doda(const db_field* fields, DODA* out) {
  int count = 0;
  for (; !db_is_end(*fields) && count < kIsamMaxFields; ++fields) {
    if (db_is_pseudo(*fields)) continue;
    DODA& doda = out[count++];
    doda = {};
    JoinNames(*fields, doda.name);
    doda.offset = fields->offset;
    doda.type = fields->type;
    doda.length = fields->length;
  }
  return count;
}

db_field* db_doda_to_flds(const DODA* doda, int count, int record_size,
                          const db_field* pseudo) {
  const int extra = CountRows(pseudo);
  const size_t rows = static_cast<size_t>(count) + static_cast<size_t>(extra);
  // One zeroed row more ends the table.
  db_block<db_field[]> fields(
      static_cast<db_field*>(Kut_calloc(rows + 1, sizeof(db_field))));
  if (fields == nullptr) {
    db_fail(kDbMemory);
    return nullptr;
  }
  db_field* field = fields.get();
  for (const DODA* row = doda; row != doda + count; ++row, ++field) {
    field->type = row->type;
    field->length = row->length;
    field->offset = row->offset;
    if (!IsSane(*row, record_size) || !SplitNames(row->name, field)) {
      db_fail(kDbData);
      return nullptr;
    }
  }
  std::copy_n(pseudo, extra, field);
  return fields.release();
}

db_key* db_ifil_to_idx(const IFIL* file, const db_field* fields) {
  if (file->index_count < 1 || !IsSerialIndex(file->indexes[0])) {
    db_fail(kDbData);
    return nullptr;
  }
  db_block<db_key[]> keys(static_cast<db_key*>(
      Kut_calloc(static_cast<size_t>(file->index_count), sizeof(db_key))));
  if (keys == nullptr) {
    db_fail(kDbMemory);
    return nullptr;
  }
  for (int number = 1; number < file->index_count; ++number) {
    const IIDX& index = file->indexes[number];
    db_key& key = keys.get()[number - 1];
    key.unique = index.duplicates == 0 ? 1 : 0;
    key.count = std::clamp(index.segment_count, 0, kDbKeyFields);
    for (int i = 0; i < key.count; ++i) {
      key.fields[i] = FieldAt(fields, index.segments[i].offset - kSerialSize,
                              index.segments[i].length);
      if (key.fields[i] >= 0) continue;
      db_fail(kDbData);
      return nullptr;
    }
  }
  keys.get()[file->index_count - 1].unique = -1;
  return keys.release();
}

int db_same_layout(const db_handle* db, const db_field* fields,
                   const db_key* keys) {
  if (db_record_size(db) != RecordSize(fields)) return db_fail(kDbData);
  const db_field* own = db->fields;
  for (; !db_is_pseudo(*fields); ++fields, ++own) {
    if (strcmp(own->name, fields->name) != 0 || own->type != fields->type ||
        own->length != fields->length || own->offset != fields->offset) {
      return db_fail(kDbData);
    }
  }
  const db_key* own_key = db->keys;
  for (; keys->unique != -1; ++keys, ++own_key) {
    if (own_key->unique != keys->unique || own_key->count != keys->count ||
        !std::equal(keys->fields, keys->fields + keys->count,
                    own_key->fields)) {
      return db_fail(kDbData);
    }
  }
  return db_is_pseudo(*own) && own_key->unique == -1 ? 0 : db_fail(kDbData);
}

int db_info(int datno, db_field** fields, db_key** keys,
            const db_field* pseudo) {
  alignas(IFIL) unsigned char file[kFileDescriptionSize];
  alignas(DODA) unsigned char doda[kFieldsSize];
  *fields = nullptr;
  *keys = nullptr;
  if (GETIFIL(datno, sizeof file, file) < 0) return db_fail_store(isam_err);
  const int bytes = GETDODA(datno, sizeof doda, doda, kIsamAllFields);
  if (bytes <= 0) return db_fail_store(isam_err);
  const auto* description = reinterpret_cast<const IFIL*>(file);
  db_block<db_field> read_fields(
      db_doda_to_flds(reinterpret_cast<const DODA*>(doda),
                      bytes / static_cast<int>(sizeof(DODA)),
                      description->record_length - kSerialSize, pseudo));
  if (read_fields == nullptr) return -1;
  *keys = db_ifil_to_idx(description, read_fields.get());
  if (*keys == nullptr) return -1;
  *fields = read_fields.release();
  return 0;
}
