// A session number that no other client has.
//
// A response is filed under "NNNN-RRR", session number modulo 10000 and
// reference: two clients with one number would take each other's answers. So
// a client holds the lock on <sessions>/NNNN.ctl for its whole life.
//
//     <sessions>/NNNN.ctl     text: the last reference used, and a newline
//
// - The lock is the reservation, the file only carries it: an unlocked file was
//   left by a client that died or that did not wait for all its answers. Its
//   number is taken again, but counting goes on where it ended, so that a late
//   answer to the earlier client has no name in common with a new one.
// - A number is also left alone while anything named NNNN-* is in the spool.
// - Where everybody may write, one user could have all numbers in that way. So
//   when none is free, each other user's files count for no more than a share
//   of the numbers, and a number beyond is held by a file of a name that nobody
//   else knows beforehand: <sessions>/NNNN.XXXXXXXX.ctl. Where there is such a
//   file the number is taken. References that have files in the spool are not
//   used, whosever these are.
// - The session number's upper digits are drawn anew each time. The response
//   repeats the whole number, and shows itself as that of another client.
#ifndef LINK_SLOT_H_
#define LINK_SLOT_H_

#include <string>

#include "link/place.h"
#include "util/kutio.h"

namespace client {

constexpr int kSlots = 10000;
constexpr int kMaxReference = 999;
// How many numbers another user's files may keep from everybody.
constexpr int kSlotShare = kSlots / 10;

class Slot {
 public:
  Slot() = default;
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;
  ~Slot() { Release(false); }

  Status Reserve(const Place& place);
  // Takes what that file of the sessions directory stands for, or nothing:
  // false when somebody has it, or there is no such file.
  bool TryReserve(const Place& place, const std::string& file);
  int number() const { return number_; }
  // The session number that goes into commands, `number()` in its last digits.
  int session() const { return session_; }
  // The next reference, 1 to 999 and over again; on disk before it returns.
  Status NextReference(int* reference);
  // Gives the number back. `answered`: nothing of it can come any more, so that
  // the file may go.
  void Release(bool answered);

 private:
  Status ReserveUsual(const Place& place);
  Status ReserveBeside(const Place& place);
  bool TryLock(const std::string& path, int flags, int* error);
  void Hold(int number);

  std::string file_;
  UniqueFd lock_;
  int number_ = -1;  // none
  int session_ = 0;
  int last_ = 0;
};

// Removes a file of the sessions directory, or all of a number, if nobody holds
// it and the number has nothing in the spool.
void RetireSlot(const Place& place, const std::string& file);
void RetireSlots(const Place& place, int number);

// The number that a file name of the spool or a slot's file begins with
// ("NNNN-" or "NNNN."), or -1.
int SlotOfName(const std::string& name, char separator);
// The number of a file of the sessions directory, or -1 for any other name.
int SlotOfFile(const std::string& name);

}  // namespace client

#endif  // LINK_SLOT_H_
