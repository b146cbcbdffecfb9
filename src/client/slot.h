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
// - The session number's upper digits are drawn anew each time. The response
//   repeats the whole number, and shows itself as that of another client.
#ifndef CLIENT_SLOT_H_
#define CLIENT_SLOT_H_

#include <string>

#include "client/place.h"
#include "util/kutio.h"

namespace client {

constexpr int kSlots = 10000;
constexpr int kMaxReference = 999;

class Slot {
 public:
  Slot() = default;
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;
  ~Slot() { Release(false); }

  Status Reserve(const Place& place);
  // Takes this number or none; false when somebody else has it.
  bool TryReserve(const Place& place, int number);
  int number() const { return number_; }
  // The session number that goes into commands, `number()` in its last digits.
  int session() const { return session_; }
  // The next reference, 1 to 999 and over again; on disk before it returns.
  Status NextReference(int* reference);
  // Gives the number back. `answered`: nothing of it can come any more, so that
  // the file may go.
  void Release(bool answered);

 private:
  bool TryLock(int number, int* error);

  std::string sessions_;
  UniqueFd lock_;
  int number_ = -1;  // none
  int session_ = 0;
  int last_ = 0;
};

// Removes the file of a number that nobody holds and that has nothing in the
// spool.
void RetireSlot(const Place& place, int number);

// The number that a file name of the spool or a slot's file begins with
// ("NNNN-" or "NNNN."), or -1.
int SlotOfName(const std::string& name, char separator);

}  // namespace client

#endif  // CLIENT_SLOT_H_
