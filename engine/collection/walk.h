// Moving among the rows of an index, in reading order and by its levels.
//
// A walk stands on a row or before the first one. It knows the row's way from the top: on each level the
// entry and where its siblings begin. (1) A step that is not possible leaves the walk where it is.  (2) All
// rows seen belong to one moment: the caller holds the store.  (3) A step, and a move over any number of rows
// in reading order, costs a few nodes a level.
#pragma once

#include <optional>
#include <vector>

#include "collection/index.h"

namespace brynd::collection {

// Numbers of the boundary.
enum Navigator : uint16_t {
  kCurrent = 0,
  kNext = 1,
  kFirstChild = 4,
  kNextPeer = 5,
  kPreviousPeer = 6,
  kPrevious = 9,
  kNextMain = 12,
  kPreviousMain = 13,
  kNextParent = 19,
  kNextHit = 29,
  kPreviousHit = 30,
  kCurrentHit = 31,
  kNextNoCategory = 43,
  kPreviousNoCategory = 44
};
constexpr uint16_t kContinue = 0x8000;
bool IsNavigator(uint16_t navigator) noexcept;  // without kContinue; hits of a full-text result are not here

class Walk {
 public:
  explicit Walk(Index& index);

  // Goes to a position; false when there is no such row. Tumbler[0] 0 at level 0 stands before the first row.
  bool Go(const COLLECTIONPOSITION& position);
  void ToStart() noexcept;
  bool ToRow(uint64_t row);  // counted from 0 in reading order
  // Enters a row below the one that the walk stands on; how a search by key comes down.
  void Enter(const Cursor& cursor);

  bool OnRow() const noexcept { return depth_ != 0; }
  uint64_t RowNumber() const noexcept { return row_; }
  uint64_t RowCount() const noexcept { return row_count_; }
  void Tell(COLLECTIONPOSITION* position) const noexcept;

  // How many of `count` steps could be made.
  uint64_t Move(uint16_t navigator, uint64_t count);
  bool CanMove(uint16_t navigator);

  // The row.
  uint32_t Level() const noexcept { return depth_ - 1; }
  uint32_t Ordinal(uint32_t level) const noexcept {
    return static_cast<uint32_t>(levels_[level].cursor.Rank() - levels_[level].first_rank + 1);
  }
  Bytes Key() const noexcept { return Top().cursor.Key(); }
  Bytes Payload() const noexcept { return Top().cursor.Payload(); }
  uint32_t Weight() const noexcept { return Top().cursor.Weight(); }
  EntryKind Kind() const noexcept { return KindOf(Key()); }
  bool IsDocument() const noexcept { return Kind() == EntryKind::kDocument; }
  bool IsMain() const noexcept { return IsDocument() && IsTopOrCategory(Top().parent); }
  uint32_t NoteId() const noexcept;  // of a document
  Place OwnPlace() const;            // as the parent of others
  uint64_t SiblingCount();
  uint64_t ChildCount();
  uint32_t ResponseDepth() const noexcept;  // documents above it
  // The payload of the category one level up; no bytes at the top.
  Bytes ParentPayload() const noexcept;

  const Tree& Rows() const noexcept { return tree_; }
  uint64_t NodesAsked() const noexcept { return source_.Asked(); }

 private:
  struct LevelState {
    Place parent = 0;
    Cursor cursor;
    uint64_t first_rank = 0, first_weight = 0;
  };

  static bool IsTopOrCategory(Place place) noexcept { return place == kTopPlace || IsCategory(place); }
  LevelState& Top() noexcept { return levels_[depth_ - 1]; }
  const LevelState& Top() const noexcept { return levels_[depth_ - 1]; }
  LevelState& Push(Place parent);
  void SetStart(LevelState& level) const;
  void CheckTop() const;
  void CountRow() noexcept;
  bool PushFirst();
  void PushLast();
  bool StepNext();
  bool StepPrevious();
  bool StepOver();  // behind all that is below the row
  bool StepPeer(int64_t steps);
  bool StepMain();
  bool StepMainBack();
  bool StepNoCategory(bool back);
  bool Step(uint16_t navigator);

  NodeSource source_;
  Tree tree_;
  std::vector<LevelState> levels_;  // never shrinks: what is behind depth_ is used again
  uint32_t depth_ = 0;
  uint64_t row_ = 0, row_count_ = 0;
};

}  // namespace brynd::collection
