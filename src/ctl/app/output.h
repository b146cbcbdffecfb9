// Results on standard output, in the form that was asked for.
//
// - JSON: one value in all; an array where the verb's results are a list. Text:
//   the objects in the protocol's form, one after the other. For people:
//   tables, or a line a field.
// - On a terminal, tables are aligned, cut to its width, and times are short
//   and local. Elsewhere values are whole and separated by tabs.
// - Control characters are shown in hexadecimal in every form, but in Raw().
#ifndef CTL_APP_OUTPUT_H_
#define CTL_APP_OUTPUT_H_

#include <string>
#include <vector>

#include "ctl/format/format.h"
#include "ctl/format/json.h"
#include "kx/kfx.h"

namespace client {

enum class Form { kHuman, kJson, kText };

struct OutputOptions {
  Form form = Form::kHuman;
  bool many = false;  // JSON: the results are an array
  bool quiet = false;
  bool color = false;
  bool terminal = false;
  size_t width = 80;
};

enum class Paint { kNone, kBold, kGood, kWarning, kBad };

using Cells = std::vector<std::string>;

class Output {
 public:
  void Configure(const OutputOptions& options) { options_ = options; }
  const OutputOptions& options() const { return options_; }
  bool human() const { return options_.form == Form::kHuman; }

  // A result whose form for people is `line` ("": nothing). `more` are members
  // beside the object's own.
  void Result(kx_object* obj, const std::string& line,
              const std::vector<JsonMember>& more = {});
  // A result that is no protocol object; `head` as for Line.
  void Result(const std::vector<JsonMember>& members, const std::string& line,
              const std::string& head = "");
  // The same for what went well and has nothing to show: no line with --quiet.
  void Done(kx_object* obj, const std::string& line,
            const std::vector<JsonMember>& more = {}) {
    Result(obj, options_.quiet ? "" : line, more);
  }
  void Done(const std::vector<JsonMember>& members, const std::string& line) {
    Result(members, options_.quiet ? "" : line);
  }
  // A result as a line a field.
  void Details(kx_object* obj);
  // The elements of a list (null: none) as results, in a table of their type's
  // usual columns.
  void Table(kx_object* list);
  // A table of any cells, for people only.
  void Table(const Cells& heading, std::vector<Cells> rows);
  // A line for people; not with JSON and text. Before it goes `head` as it is,
  // which may be painted.
  void Line(const std::string& line, const std::string& head = "");
  // An object in the protocol's form, whatever was asked for.
  void Text(kx_object* obj);
  // Bytes as they are, whatever the form.
  void Raw(const std::string& text);
  // Brings out what is buffered. 0, or the error number of the first write that
  // failed.
  int Flush();
  // Ends the results; the result is Flush's.
  [[nodiscard]] int Finish();

  std::string Painted(const std::string& text, Paint paint) const;

 private:
  void Json(const std::string& value);

  OutputOptions options_;
  int count_ = 0;         // JSON values so far
  bool written_ = false;  // anything at all
  int error_ = 0;         // of the first write that failed
};

}  // namespace client

#endif  // CTL_APP_OUTPUT_H_
