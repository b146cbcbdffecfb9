// Any text as a name: of a person, a phone number, a file, a code. What a
// record takes in it gives back in a form that it takes in alike.
#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "cm/cmpaths.h"
#include "cm/cmprior.h"
#include "cm/cmreso.h"
#include "cm/cmresult.h"
#include "faxserver/fsnames.h"
#include "fuzz/check.h"
#include "kx/kfx.h"
#include "phonebook/pb.h"
#include "util/kutdir.h"
#include "util/kutfile.h"
#include "util/kutstr.h"

namespace {

using Record = std::array<char, 704>;

// What follows every text of a record is zeros: it ends within its field.
void CheckFields(const Record& record) {
  for (const db_field* f = pb_per_fields; f->name[0] != '\0'; ++f) {
    const char* text = record.data() + f->offset;
    const auto size = static_cast<std::size_t>(f->length);
    for (std::size_t i = strnlen(text, size); i < size; ++i) {
      CHECK(text[i] == '\0');
    }
    CHECK(text[size - 1] == '\0');
  }
}

// A combined name, the phone numbers among them.
void Combined(const char* text, const db_field& field) {
  Record record = {};
  if (field.from_text(text, record.data()) != 0) {
    CHECK(record == Record{});
    return;
  }
  CheckFields(record);
  char out[128];
  CHECK(field.to_text(record.data(), out, sizeof out) == 0);
  CHECK(strlen(out) < sizeof out);
  // Too small a buffer is refused, and nothing is written behind it.
  char small[8] = "xxxxxxx";
  if (field.to_text(record.data(), small, 4) == 0) CHECK(strlen(small) < 4);
  CHECK(std::memcmp(small + 4, "xxx", 4) == 0);
  Record again = {};
  CHECK(field.from_text(out, again.data()) == 0);
  char once_more[sizeof out];
  CHECK(field.to_text(again.data(), once_more, sizeof once_more) == 0);
}

// A record as it lies in a book, whatever its bytes.
void AnyRecord(const std::string& bytes) {
  Record record = {};
  std::memcpy(record.data(), bytes.data(),
              std::min(bytes.size(), record.size()));
  for (const db_field* f = pb_per_fields_pseudo; f->to_text != nullptr; ++f) {
    char out[256];
    if (f->to_text(record.data(), out, sizeof out) != 0) continue;
    CHECK(strnlen(out, sizeof out) < sizeof out);
  }
}

void PlainNames(const std::string& text) {
  const char* name = text.c_str();
  const bool plain = cm_is_plain_name(name);
  CHECK(!plain || strchr(name, '/') == nullptr);
  const cm_path path = cm_join_plain("/root/of/it", name);
  CHECK(plain || path.text[0] == '\0');
  CHECK(strlen(cm_get_user_dir("/root", name)) < kCmPathSize);
  if (plain && path.text[0] != '\0') CHECK(Kut_basename(path.text) != nullptr);
  const long number = fx_plain_number(name);
  if (number >= 0) {
    const std::string digits = std::to_string(number);
    CHECK(text.c_str() + strlen(name) - digits.size() >= text.c_str());
    CHECK(digits == name + strlen(name) - digits.size());
  }
}

void FileNames(const std::string& text) {
  std::string name = text.c_str();
  const char* base = Kut_basename(name.c_str());
  CHECK(base >= name.c_str() && strpbrk(base, "/\\") == nullptr);
  const char* folder = Kut_dirname(name.c_str());
  CHECK(folder == nullptr || *folder != '\0');
  name.resize(name.size() + 8);
  CHECK(Kut_set_file_ext(name.data(), "dat") == 0);
  CHECK(strcmp(Kut_get_file_ext(name.c_str()), "dat") == 0);
  Kut_rmv_file_ext(name.data());
  Kut_fix_dir_name(name.data());
}

void Texts(const std::string& text) {
  std::string stripped = text.c_str();
  Kut_strip(stripped.data());
  const std::string once = stripped.c_str();
  CHECK(once == Kut_strip(stripped.data()));
  char* words[8];
  std::string split = text.c_str();
  const int count = Kut_awk(split.data(), words, 8);
  CHECK(count >= 0 && count <= 8);
  for (int i = 0; i < count; ++i) CHECK(*words[i] != '\0');
  char copy[16];
  Kut_strcpyz(copy, text.c_str(), sizeof copy);
  CHECK(strlen(copy) == std::min<std::size_t>(strlen(text.c_str()), 15));
  CHECK(Kut_strccmp(text.c_str(), text.c_str()) == 0);
}

void Codes(const char* text) {
  const int number = Kfx_Str_To_Long(text);
  CHECK(number == -1 || Kfx_Str_To_Long(Kfx_Long_To_Str(number)) == number);
  const int word = Kfx_Str_To_Word(text);
  CHECK(word == -1 || Kfx_Str_To_Word(Kfx_Word_To_Str(word)) == word);
  const int value = Kfx_Str_To_Enum(text);
  CHECK(value == -1 || Kfx_Str_To_Enum(Kfx_Enum_To_Str(value)) == value);
  const int truth = Kfx_Str_To_Bool(text);
  CHECK(truth == -1 || Kfx_Str_To_Bool(Kfx_Bool_To_Str(truth)) == truth);
  const int seconds = Kfx_Str_To_Time(text);
  const char* when = Kfx_Time_To_Str(seconds);
  CHECK(when == nullptr ||
        Kfx_Str_To_Time(std::string(when).c_str()) == seconds);
  const int level = cm_prior_fr_str(text);
  CHECK(level == -1 || cm_prior_fr_str(cm_prior_to_str(level)) == level);
  const int resolution = cm_reso_fr_str(text);
  CHECK(resolution == -1 ||
        cm_reso_fr_str(cm_reso_to_str(resolution)) == resolution);
  cm_result_to_desc(cm_result_fr_str(text));
  cm_result_to_str(cm_result_fr_desc(text));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 4) {
    case 0:
      for (const db_field* f = pb_per_fields_pseudo; f->to_text != nullptr; ++f)
        Combined(text.c_str(), *f);
      break;
    case 1:
      AnyRecord(text);
      break;
    case 2:
      PlainNames(text);
      FileNames(text);
      break;
    default:
      Texts(text);
      Codes(text.c_str());
  }
  return 0;
}
