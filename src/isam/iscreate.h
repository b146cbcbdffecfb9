// Making a table. It comes into being with one write, the magic number of the
// index file, when all else is on disk.
#ifndef ISAM_ISCREATE_H_
#define ISAM_ISCREATE_H_

#include <memory>
#include <string>

#include "isam/isformat.h"
#include "isam/islock.h"
#include "util/kutio.h"

namespace isam {

struct NewTable {
  // The path without extension, and those of the two files: kept, since there
  // may be no memory to make them when they have to be taken away.
  explicit NewTable(const std::string& path)
      : name(path), dat_path(path + ".dat"), idx_path(path + ".idx") {}
  const std::string name, dat_path, idx_path;
  UniqueFd dat, idx;
  Layout layout;
  Lock lock;  // on the data file: nobody else creates this table meanwhile
  bool ours = false;           // what is under the two names may be removed
  isam_code failed = kIsamOk;  // of WriteFields: not to be finished

  ~NewTable();  // takes the files away if they are still ours
};

[[nodiscard]] isam_code BeginTable(const std::string& name,
                                   const Layout& layout,
                                   std::unique_ptr<NewTable>* out);
[[nodiscard]] isam_code WriteFields(NewTable& table, const DODA* fields,
                                    int count);
[[nodiscard]] isam_code FinishTable(NewTable& table);

// Fills an index file, whose magic number comes last, with all that an empty
// table needs.
[[nodiscard]] isam_code WriteEmptyIndex(int fd, const Layout& layout);

// Flushes the folder that `path` lies in.
[[nodiscard]] isam_code SyncFolder(const std::string& path);

}  // namespace isam

#endif  // ISAM_ISCREATE_H_
