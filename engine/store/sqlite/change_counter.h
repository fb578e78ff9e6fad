// The change counter of a file: words of shared memory that move with every transaction of any connection or
// process.
//
// SQLite keeps the head of its write-ahead log in the shared index beside it (first region, first 48 bytes, a
// second copy follows). Of that head the words used here are, all in the byte order of the machine:
//   offset 0   format of the index, 3007000 since it exists
//   offset 8   count of transactions u32, then u8 "in use", u8 checksum byte order, u16 page size
//   offset 16  frames in the log u32, pages in the database u32
//   offset 24  running checksum over all frames of the log, two u32
// A writer stores the whole head last when it commits; so equal words before a read view began mean that
// nothing has been committed since. Words seen half-written differ from the final ones, which costs one
// needless renewal and no more. An index that looks unfamiliar is never trusted: the counter then says
// "moved" each time.
#ifndef BRYND_STORE_SQLITE_CHANGE_COUNTER_H
#define BRYND_STORE_SQLITE_CHANGE_COUNTER_H

#include <cstdint>

#include "store/sqlite/connection.h"

namespace brynd::store {

class ChangeCounter {
 public:
  struct Value {
    uint64_t transactions = 0, frames = 0, checksum = 0;
    friend bool operator==(const Value&, const Value&) = default;
  };

  // Finds the shared index of a connection that has read before. Without it every question is answered
  // "moved".
  void Attach(Connection& connection) noexcept;
  bool Attached() const noexcept { return words_ != nullptr; }

  Value Read() const noexcept;
  bool Moved(const Value& since) const noexcept;
  uint32_t Frames() const noexcept;  // frames in the log now; 0 when unknown

 private:
  const volatile uint64_t* words_ = nullptr;
};

}  // namespace brynd::store

#endif  // BRYND_STORE_SQLITE_CHANGE_COUNTER_H
