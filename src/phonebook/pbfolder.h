// Where a book lies, and whose it is: every access to its files.
//
// - A user owns what lies in his queue directory. He can exchange it at any
//   moment, lock his book for ever, and make it as large as he likes. So a
//   book's files are reached through its folder's descriptor alone, as the
//   folder's owner, and within a budget: in a pb_visit, which has all three.
// - The user's book lies in "options" of a queue directory, and has that one's
//   owner; the system's lies in the root directory and has that one's. The
//   local book is the process's own affair.
// - What is made there is its owner's from its first byte.
#ifndef PHONEBOOK_PBFOLDER_H_
#define PHONEBOOK_PBFOLDER_H_

#include "cm/cmfolder.h"
#include "phonebook/pb.h"

struct pb_folder {
  cm_folder at;  // of the local book nobody's in particular
  unsigned file_mode = kDbFileMode;
  db_budget budget;  // what a command has left of it
};

// Opens the folder of a book, through no link that the user could have made. 0,
// or -1 with errno: then no file can be reached through it.
int pb_folder_open(const pb_book& book, pb_folder* folder);
// The same, and makes what is missing of it before.
int pb_folder_make(const pb_book& book, pb_folder* folder);
// Gives a file that was just made in root's own folder to the fax system. In
// every other one it belongs to whom it should.
void pb_folder_give(const pb_book& book, const pb_folder& folder,
                    const char* name);

// Being in a folder: tables are opened by their names alone, open ones read and
// changed. One inside the other ends first. What is left of the budget goes
// back to the folder.
class pb_visit {
 public:
  explicit pb_visit(pb_folder* folder);
  pb_visit(const pb_visit&) = delete;
  pb_visit& operator=(const pb_visit&) = delete;
  ~pb_visit();
  // If not, errno tells why, and nothing can be reached.
  bool held() const { return identity_.held(); }

 private:
  pb_folder* const folder_;
  const FileIdentity identity_;
  const db_budget before_;
};

#endif  // PHONEBOOK_PBFOLDER_H_
