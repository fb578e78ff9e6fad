#include "collection/walk.h"

#include <algorithm>

#include "base/status.h"

namespace brynd::collection {

bool IsNavigator(uint16_t navigator) noexcept {
  constexpr uint16_t kKnown[] = {kCurrent,      kNext,           kFirstChild,        kNextPeer,
                                 kPreviousPeer, kPrevious,       kNextMain,          kPreviousMain,
                                 kNextParent,   kNextNoCategory, kPreviousNoCategory};
  return std::ranges::find(kKnown, navigator) != std::end(kKnown);
}

Walk::Walk(Index& index) : source_(index.Rows()), tree_(source_, index.Now().rows) {
  levels_.reserve(8);
  row_count_ = index.RowCount();
}

void Walk::ToStart() noexcept {
  depth_ = 0;
  row_ = 0;
}

Walk::LevelState& Walk::Push(Place parent) {
  if (depth_ > kLevelMax) Fail(status::kDamaged);
  if (levels_.size() == depth_) levels_.emplace_back();
  LevelState& level = levels_[depth_++];
  level.parent = parent;
  return level;
}

// Where the rows of the level's parent begin; those of the top are the first of all.
void Walk::SetStart(LevelState& level) const {
  level.first_rank = level.first_weight = 0;
  if (level.parent == kTopPlace) return;
  const Cursor first = tree_.Seek(BytesOf(ParentKey(level.parent)));
  level.first_rank = first.Rank();
  level.first_weight = first.WeightBefore();
}

// The row must be one of its level: what a damaged tree leads to is not shown.
void Walk::CheckTop() const {
  const LevelState& level = Top();
  if (level.cursor.AtEnd()) Fail(status::kDamaged);
  const Bytes key = level.cursor.Key();
  if (key.size() < kEntryHeadBytes || ParentOf(key) != level.parent) Fail(status::kDamaged);
  if (KindOf(key) == EntryKind::kDocument) {
    if (key.size() < kEntryHeadBytes + kTieBytes) Fail(status::kDamaged);
  } else if (level.cursor.Payload().size() < sizeof(uint32_t)) {
    Fail(status::kDamaged);
  }
}

void Walk::CountRow() noexcept {
  row_ = depth_ - 1;
  for (uint32_t i = 0; i < depth_; ++i) row_ += levels_[i].cursor.WeightBefore() - levels_[i].first_weight;
}

uint32_t Walk::NoteId() const noexcept {
  const Bytes key = Key();
  return __builtin_bswap32(LoadU32(key.data() + key.size() - sizeof(uint32_t)));
}

Place Walk::OwnPlace() const {
  if (IsDocument()) return PlaceOf(CategoryOf(Top().parent), NoteId());
  return PlaceOfCategory(LoadU32(Payload().data()));
}

// --- going to a place

bool Walk::Go(const COLLECTIONPOSITION& position) {
  ToStart();
  if (position.Level > kLevelMax) return false;
  if (position.Level == 0 && position.Tumbler[0] == 0) return true;
  Place parent = kTopPlace;
  for (uint32_t i = 0; i <= position.Level; ++i) {
    if (i != 0 && Weight() <= 1) return ToStart(), false;
    LevelState& level = Push(parent);
    SetStart(level);
    const uint32_t ordinal = position.Tumbler[i];
    level.cursor = tree_.AtRank(level.first_rank + ordinal - 1);
    if (ordinal == 0 || level.cursor.AtEnd() || ParentOf(level.cursor.Key()) != parent)
      return ToStart(), false;
    CheckTop();
    parent = OwnPlace();
  }
  CountRow();
  return true;
}

bool Walk::ToRow(uint64_t row) {
  if (row >= row_count_) return false;
  ToStart();
  row_ = row;
  Place parent = kTopPlace;
  for (;;) {
    LevelState& level = Push(parent);
    SetStart(level);
    level.cursor = tree_.AtWeight(level.first_weight + row);
    CheckTop();
    row -= level.cursor.WeightBefore() - level.first_weight;
    if (row == 0) return true;
    --row;
    parent = OwnPlace();
  }
}

void Walk::Enter(const Cursor& cursor) {
  const Place parent = depth_ == 0 ? kTopPlace : OwnPlace();
  LevelState& level = Push(parent);
  SetStart(level);
  level.cursor = cursor;
  CheckTop();
  CountRow();
}

void Walk::Tell(COLLECTIONPOSITION* position) const noexcept {
  if (depth_ == 0) {
    position->Level = 0;
    position->Tumbler[0] = 0;
    return;
  }
  position->Level = static_cast<uint16_t>(Level());
  for (uint32_t i = 0; i < depth_; ++i) position->Tumbler[i] = Ordinal(i);
}

// --- steps

// The first row below this one, or below the top.
bool Walk::PushFirst() {
  if (depth_ == 0 ? row_count_ == 0 : Weight() <= 1) return false;
  const Place parent = depth_ == 0 ? kTopPlace : OwnPlace();
  LevelState& level = Push(parent);
  level.cursor = tree_.Seek(BytesOf(ParentKey(parent)));
  level.first_rank = level.cursor.Rank();
  level.first_weight = level.cursor.WeightBefore();
  CheckTop();
  return true;
}

// The last row below this one, on whatever level.
void Walk::PushLast() {
  while (Weight() > 1) {
    const Place parent = OwnPlace();
    LevelState& level = Push(parent);
    SetStart(level);
    level.cursor = tree_.Seek(BytesOf(ParentEnd(parent)));
    if (!level.cursor.Previous()) Fail(status::kDamaged);
    CheckTop();
  }
}

bool Walk::StepNext() {
  const uint64_t next = depth_ == 0 ? 0 : row_ + 1;
  if (next >= row_count_) return false;
  if (!PushFirst() && !StepOver()) Fail(status::kDamaged);
  row_ = next;
  return true;
}

bool Walk::StepOver() {
  for (uint32_t above = depth_; above != 0; --above) {
    Cursor& cursor = levels_[above - 1].cursor;
    const Place parent = levels_[above - 1].parent;
    cursor.Next();
    if (!cursor.AtEnd() && ParentOf(cursor.Key()) == parent) {
      depth_ = above;
      CheckTop();
      return true;
    }
    cursor.Previous();
  }
  return false;
}

bool Walk::StepPrevious() {
  if (depth_ == 0 || row_ == 0) return false;
  LevelState& level = Top();
  if (level.cursor.Rank() == level.first_rank) {
    --depth_;
  } else {
    level.cursor.Previous();
    CheckTop();
    PushLast();
  }
  --row_;
  return true;
}

bool Walk::StepPeer(int64_t steps) {
  if (depth_ == 0) {
    if (steps < 0 || !PushFirst()) return false;
    row_ = 0;
    return steps == 1 || StepPeer(steps - 1) || (ToStart(), false);
  }
  LevelState& level = Top();
  const int64_t rank = static_cast<int64_t>(level.cursor.Rank()) + steps;
  if (rank < static_cast<int64_t>(level.first_rank)) return false;
  const Cursor target = tree_.AtRank(static_cast<uint64_t>(rank));
  if (target.AtEnd() || ParentOf(target.Key()) != level.parent) return false;
  level.cursor = target;
  CheckTop();
  CountRow();
  return true;
}

bool Walk::StepMain() {
  bool moved;
  if (depth_ != 0 && IsDocument()) {
    while (!IsMain()) --depth_;
    moved = StepOver();
  } else {
    moved = depth_ == 0 ? PushFirst() : PushFirst() || StepOver();
  }
  while (moved && !IsMain()) moved = PushFirst() || StepOver();
  if (moved) CountRow();
  return moved;
}

bool Walk::StepMainBack() {
  if (depth_ == 0) return false;
  const bool is_response = IsDocument() && !IsMain();
  if (!is_response && !StepPrevious()) return false;
  while (!IsMain()) {
    if (IsDocument())
      --depth_;  // from a response up to what it answers
    else if (!StepPrevious())
      return false;
    CountRow();
  }
  return true;
}

bool Walk::StepNoCategory(bool back) {
  do {
    if (back ? !StepPrevious() : !StepNext()) return false;
  } while (Kind() == EntryKind::kCategory || Kind() == EntryKind::kSubcategory);
  return true;
}

bool Walk::Step(uint16_t navigator) {
  switch (navigator) {
    case kFirstChild:
      if (!PushFirst()) return false;
      CountRow();
      return true;
    case kNextMain:
      return StepMain();
    case kPreviousMain:
      return StepMainBack();
    case kNextParent:
      if (depth_ < 2) return false;
      --depth_;
      if (!StepOver()) return false;
      CountRow();
      return true;
    case kNextNoCategory:
      return StepNoCategory(false);
    case kPreviousNoCategory:
      return StepNoCategory(true);
    default:
      return false;
  }
}

uint64_t Walk::Move(uint16_t navigator, uint64_t count) {
  if (count == 0) return 0;
  if (navigator == kCurrent) return OnRow() ? count : 0;
  if (navigator == kNext || navigator == kPrevious) {
    const bool forward = navigator == kNext;
    if (count == 1) return forward ? StepNext() : StepPrevious();
    const uint64_t before = depth_ == 0 ? 0 : row_ + 1;  // rows up to this one
    const uint64_t possible = forward ? row_count_ - before : before == 0 ? 0 : before - 1;
    const uint64_t steps = std::min(count, possible);
    if (steps != 0) ToRow(forward ? before + steps - 1 : before - 1 - steps);
    return steps;
  }
  if (navigator == kNextPeer || navigator == kPreviousPeer) {
    const uint64_t here = depth_ == 0 ? 0 : Ordinal(Level());
    const uint64_t possible = navigator == kNextPeer ? SiblingCount() - here : here == 0 ? 0 : here - 1;
    const auto steps = static_cast<int64_t>(std::min(count, possible));
    if (steps != 0) StepPeer(navigator == kNextPeer ? steps : -steps);
    return static_cast<uint64_t>(steps);
  }
  for (uint64_t done = 0; done < count; ++done) {
    const bool was_on_row = OnRow();
    const uint64_t row = row_;
    if (Step(navigator)) continue;
    if (was_on_row)
      ToRow(row);
    else
      ToStart();
    return done;
  }
  return count;
}

bool Walk::CanMove(uint16_t navigator) {
  if (navigator == kCurrent) return false;
  if (navigator == kNext) return depth_ == 0 ? row_count_ != 0 : row_ + 1 < row_count_;
  if (navigator == kPrevious) return depth_ != 0 && row_ != 0;
  const uint64_t row = row_;
  if (Move(navigator, 1) == 0) return false;
  ToRow(row);
  return true;
}

// --- counts

uint64_t Walk::SiblingCount() {
  const Place parent = depth_ == 0 ? kTopPlace : Top().parent;
  const uint64_t first = depth_ == 0 ? 0 : Top().first_rank;
  return tree_.Seek(BytesOf(ParentEnd(parent))).Rank() - first;
}

uint64_t Walk::ChildCount() {
  if (Weight() <= 1) return 0;
  const Place place = OwnPlace();
  return tree_.Seek(BytesOf(ParentEnd(place))).Rank() - tree_.Seek(BytesOf(ParentKey(place))).Rank();
}

uint32_t Walk::ResponseDepth() const noexcept {
  uint32_t documents = 0;
  for (uint32_t i = 1; i < depth_; ++i) documents += !IsTopOrCategory(levels_[i].parent);
  return documents;
}

Bytes Walk::ParentPayload() const noexcept {
  return depth_ < 2 ? Bytes() : levels_[depth_ - 2].cursor.Payload();
}

}  // namespace brynd::collection
