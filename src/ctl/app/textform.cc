#include "ctl/app/textform.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "ctl/format/fields.h"
#include "kx/kxobj.h"
#include "kx/kxtext.h"
#include "util/kutstr.h"

namespace client {
namespace {

// The reader of ParseObject: lines of a text, with the types of the objects
// that are being read.
class LineReader {
 public:
  LineReader(const std::string& text, const char* type)
      : text_(text), types_{kx_obj_by_type(type)} {}

  int Next(char* name, char* value, int mode) {
    if (mode == kx_read_push || !error_.empty()) return -1;
    if (at_ >= text_.size()) return Fail("the text ends inside an object");
    const size_t end = std::min(text_.find('\n', at_), text_.size());
    std::string line = text_.substr(at_, end - at_);
    at_ = end + 1;
    ++number_;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const size_t equals = line.find('=');
    if (equals == line.npos) return Fail("not NAME=VALUE");
    if (line.size() >= KX_PAIR_SIZE) {
      return Fail("at most " + std::to_string(KX_PAIR_SIZE - 1) +
                  " bytes in a line");
    }
    Kut_strcpyz(name, line.substr(0, equals).c_str(), KX_PAIR_SIZE);
    Kut_strcpyz(value, line.c_str() + equals + 1, KX_PAIR_SIZE);
    return Follow(name, value);
  }

  std::string Error() const {
    return "line " + std::to_string(number_) + ": " +
           (error_.empty() ? Kfx_Errmsg(Kfx_Errno()) : error_);
  }
  // Whether only blank lines are left.
  bool AtEnd() const {
    return text_.find_first_not_of(" \t\r\n", std::min(at_, text_.size())) ==
           text_.npos;
  }

 private:
  int Fail(const std::string& error) {
    error_ = error;
    return -1;
  }

  // Keeps the stack of types, and checks a field against the type on top.
  int Follow(const char* name, const char* value) {
    if (strcmp(name, "objbeg") == 0) {
      // The outermost and each nested one push when they are announced.
      return 0;
    }
    if (strcmp(name, "objend") == 0) {
      if (!types_.empty()) types_.pop_back();
      return 0;
    }
    // Words of the form itself are fields of every type.
    for (const char* word : kx_obj_kwrds) {
      if (strcmp(name, word) == 0) return 0;
    }
    const kx_objdef* type = types_.empty() ? nullptr : types_.back();
    const kx_fielddef* field =
        type == nullptr ? nullptr : kx_field_list(name, type->fields);
    if (field == nullptr) {
      return Fail(std::string("unknown field \"") + name + "\"");
    }
    if (field->type != kx_typ_obj && field->type != kx_typ_list) {
      const std::string why = WhyNoValue(*field, value);
      return why.empty() ? 0 : Fail(why);
    }
    const kx_objdef* nested = kx_obj_by_type(value);
    if (nested == nullptr) {
      return Fail(std::string("unknown type \"") + value + "\"");
    }
    types_.push_back(nested);
    return 0;
  }

  const std::string& text_;
  size_t at_ = 0;
  int number_ = 0;
  std::string error_;
  std::vector<const kx_objdef*> types_;
};

int ReadLinePair(void* context, char* name, char* value, int mode) {
  return static_cast<LineReader*>(context)->Next(name, value, mode);
}

}  // namespace

Status ParseObject(const std::string& text, const char* type, kx::Object* obj) {
  LineReader reader(text, type);
  obj->reset(Kfx_Comp_Obj(type, ReadLinePair, &reader, nullptr));
  if (*obj == nullptr) return {krt_bad_data, reader.Error()};
  if (reader.AtEnd()) return {};
  obj->reset();
  return {krt_bad_data, "there is something after the object"};
}

}  // namespace client
