// Checking a table against itself, and making its indexes anew.
#ifndef ISAM_ISCHECK_H_
#define ISAM_ISCHECK_H_

#include <string>

#include "isam/iscode.h"
#include "isam/istypes.h"

namespace isam {

// As isam_check and isam_rebuild; `name` is the path without extension.
[[nodiscard]] isam_code CheckTable(const std::string& name, isam_report report,
                                   void* context);
[[nodiscard]] isam_code RebuildTable(const std::string& name,
                                     isam_report report, void* context);

// Passes findings on to the caller's function and remembers that there were
// any.
class Reporter {
 public:
  Reporter(isam_report report, void* context)
      : report_(report), context_(context) {}
  void Say(const char* format, ...) __attribute__((format(printf, 2, 3)));
  bool any() const { return any_; }

 private:
  isam_report report_;
  void* context_;
  bool any_ = false;
};

}  // namespace isam

#endif  // ISAM_ISCHECK_H_
