// The phone books.
#include <cerrno>
#include <cstring>

#include "cm/cmpaths.h"
#include "ctl/check/check.h"
#include "phonebook/pb.h"

namespace client {
namespace {

void NoteFirst(void* first, const char* line) {
  auto* text = static_cast<std::string*>(first);
  if (text->empty()) *text = line;
}

// Of what a repair tells, only the records that it had to leave out. The report
// is lines for people, that an index was damaged among them, and says no other
// way which of them is a loss.
void NoteLoss(void* first, const char* line) {
  if (strstr(line, "left out") != nullptr) NoteFirst(first, line);
}

// Makes a table's indexes again from its records, if that is wanted. Whether it
// is in order now; a record that could not be kept is told.
bool RepairTable(Findings* findings, int kind, const char* table,
                 const std::string& path, const std::string& what) {
  if (!findings->Repairs("Make the indexes of " + path +
                         " again from its records?")) {
    return false;
  }
  std::string lost;
  if (pb_repair(kind, table, NoteLoss, &lost) != 0) return false;
  if (lost.empty()) {
    findings->Ok(what + ": indexes made again");
  } else {
    findings->Warn(path + ": indexes made again without all records: " + lost,
                   "a backup has them");
  }
  return true;
}

// Compares a book's indexes with its records. Whether there is a book.
bool CheckBook(Findings* findings, int kind, const std::string& dir,
               const std::string& whose) {
  for (const char* table : {pb_per_name, pb_grp_name, pb_mem_name}) {
    const std::string path = dir + "/" + table + ".dat";
    std::string damage;
    if (pb_check(kind, table, NoteFirst, &damage) == 0) continue;
    // Most users have none, which is no fault.
    if (pb_errno == kx_err_no_book) return false;
    if (pb_errno == kx_err_pb_system) {
      findings->Warn(path + ": " + strerror(errno), "look as its owner");
      return true;
    }
    // Whatever else it says, the table cannot be trusted; the first damage
    // found stands for all.
    const std::string what =
        path + ": " + (damage.empty() ? pb_errmsg(pb_errno) : damage);
    if (RepairTable(findings, kind, table, path, what)) continue;
    findings->Fail(what, "krtctl check --fix, or a backup");
    return true;
  }
  findings->Ok(whose);
  return true;
}

}  // namespace

void CheckBooks(Findings* findings) {
  const char* root = findings->root();
  pb_setup(nullptr, root, nullptr);
  CheckBook(findings, kx_pbt_sys, root, "phone book of the system");
  bool any = false;
  for (const std::string& user : NamesIn(cm_get_faxq_dir(root))) {
    pb_setup(user.c_str(), root, nullptr);
    const std::string dir = cm_get_opts_dir(root, user.c_str());
    any |= CheckBook(findings, kx_pbt_usr, dir, "phone book of " + user);
  }
  if (!any) findings->Ok("no phone books of users");
}

}  // namespace client
