// Moving an index on a collection, row by row.
//
// (1) A row is checked before it becomes the current one: its head and its table of values lie in the block
// that the engine gave. (2) A peek leaves the position as it was, whatever comes of it. (3) In a flat view
// the position is counted, by walking from where the index stood; else it is the number of the row at the
// top.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint32_t kCategoryTopByte = 0xff000000u;
constexpr uint32_t kCategoryLevelShift = 24;
constexpr uint32_t kCategoryLevelMask = 0x3f;
constexpr uint32_t kRowHeadBytes = 4 + 2 + 2;  // id, class, indent

// A move as it is under way.
struct WALK {
  bool peek;
  bool backward;
  bool categories;  // are shown
  bool totals;
  uint16_t step;   // to the row
  bool to_parent;  // the position was shortened to that of the parent
  bool counts;     // doc_index is to be set
  bool first;      // started before the first row
  COLLECTIONPOSITION start;
};

// A row as it was read: its block, locked.
struct ROW {
  EngMem hand;
  uint32_t id;
  uint16_t level;
  char* summary;
};

void FreeRow(ROW* row) {
  if (row->hand == 0) return;
  EngMemUnlock(row->hand);
  EngMemFree(row->hand);
  row->hand = 0;
}

bool IsCategory(uint32_t id) { return (id & kRowKindMask) == kRowCategory; }
bool IsTotal(uint32_t id) { return (id & kRowKindMask) == kRowTotal; }

// ---- Where to

// Runs to the last row, however many pages the engine makes of it.
uint32_t RunToEnd(_INDEX* idx) {
  const uint16_t step = idx->ftsearch != nullptr ? kStepNextHit : kStepNext;
  uint16_t signal = kMoreRows;
  uint32_t returned = 1;
  while ((signal & kMoreRows) != 0 && returned != 0) {
    if ((!idx->flat_view || idx->ftsearch != nullptr) && idx->collpos.Tumbler[0] < idx->doc_count) {
      idx->collpos.Level = 0;
      idx->collpos.Tumbler[0] = idx->doc_count;
    }
    EngMem page = 0;
    if (uint16_t brstatus = EngCollectionRead(idx->collhand, &idx->collpos, step, 1, step, 0xffffffff, 0,
                                              &page, nullptr, nullptr, &returned, &signal))
      return brstatus;
    if (page != 0) EngMemFree(page);
  }
  idx->coll_first = 0;
  return KVSUCCESS;
}

uint32_t ToEnd(_INDEX* idx, WALK* walk) {
  if (walk->backward) {
    KVIStandAtStart(&idx->collpos);
    idx->coll_first = 1;
    walk->step = kStepNext;
    walk->backward = false;
  } else {
    if (uint32_t status = RunToEnd(idx)) return status;
    const bool ends_in_total =
        idx->active_view != nullptr && (idx->active_view->flags & KVVIEWSPEC_TOTALED) != 0;
    walk->step = !walk->totals && ends_in_total ? kStepPrevious : kStepCurrent;
    walk->backward = true;
  }
  if (walk->peek || !idx->flat_view) return KVSUCCESS;
  KVICopyPosition(&walk->start, idx->collpos);
  idx->doc_index = walk->backward ? idx->doc_count : 0;
  walk->counts = false;
  return KVSUCCESS;
}

uint32_t ToParent(_INDEX* idx, WALK* walk) {
  if (!walk->backward) {
    walk->step = kStepNextParent;
    return KVSUCCESS;
  }
  if (idx->coll_first || idx->collpos.Level == 0) return KVFAIL_END_OF_DATA;
  --idx->collpos.Level;
  walk->step = kStepCurrent;
  walk->to_parent = true;
  return KVSUCCESS;
}

uint32_t ChooseStep(_INDEX* idx, int32_t direction, WALK* walk) {
  switch (direction) {
    case KVNAV_NEXT:
      walk->step = walk->backward ? kStepPrevious : kStepNext;
      return KVSUCCESS;
    case KVNAV_END:
      return ToEnd(idx, walk);
    case KVNAV_PEER:
      walk->step = walk->backward ? kStepPreviousPeer : kStepNextPeer;
      return KVSUCCESS;
    case KVNAV_CHILD:
      walk->step = kStepChild;
      return walk->backward ? KVFAIL_NO_ACTION : KVSUCCESS;
    case KVNAV_PARENT:
      return ToParent(idx, walk);
    case KVNAV_MAIN:
      walk->step = walk->backward ? kStepPreviousMain : kStepNextMain;
      walk->categories = false;
      return KVSUCCESS;
    case KVNAV_CURRENT:
      walk->step = kStepCurrent;
      return idx->coll_first ? KVFAIL_DATA_UNAVAILABLE : KVSUCCESS;
    default:
      return KVFAIL_BAD_ENUM;
  }
}

// Steps on a collection and the same steps from hit to hit; levels are not walkable there.
constexpr struct {
  uint16_t step, hit_step;
} kHitSteps[] = {{kStepNext, kStepNextHit},
                 {kStepNextMain, kStepNextHit},
                 {kStepPrevious, kStepPreviousHit},
                 {kStepPreviousMain, kStepPreviousHit},
                 {kStepCurrent, kStepCurrentHit}};

uint32_t ToHits(WALK* walk) {
  for (const auto& row : kHitSteps)
    if (row.step == walk->step) {
      walk->step = row.hit_step;
      return KVSUCCESS;
    }
  return KVFAIL_NOT_HIERARCHICAL;
}

bool StaysThere(uint16_t step) { return step == kStepCurrent || step == kStepCurrentHit; }

// ---- Rows

// The mark of a response in rows of a full-text result: one value more than the view's columns have.
bool HasExtraValue(const _VIEWSPEC* view, const char* summary) {
  if (view == nullptr) return false;
  const auto head = KVILoad<ITEM_TABLE>(summary);
  const size_t place = size_t{view->col_summary} + 1;
  if (head.Items <= place) return false;
  return KVILoad<uint16_t>(summary + sizeof head + place * sizeof(uint16_t)) != 0;
}

// True when the table with its lengths lies in the bytes.
bool IsTable(const char* summary, size_t bytes) {
  if (bytes < sizeof(ITEM_TABLE)) return false;
  const auto head = KVILoad<ITEM_TABLE>(summary);
  if (head.Length > bytes) return false;
  size_t table_bytes = sizeof head + size_t{head.Items} * sizeof(uint16_t);
  if (table_bytes > head.Length) return false;
  for (size_t i = 0; i < head.Items; ++i)
    table_bytes += KVILoad<uint16_t>(summary + sizeof head + i * sizeof(uint16_t));
  return table_bytes <= head.Length;
}

struct ENTRY {
  EngMem hand;
  uint16_t bytes;
};

enum class Shown : uint8_t { kYes, kNo, kDamaged };

// Takes an entry apart. The block is locked and the row's when it is shown, else it is freed.
Shown ReadRow(_INDEX* idx, const WALK& walk, ENTRY entry, ROW* row) {
  auto* bytes = static_cast<char*>(EngMemLock(entry.hand));
  row->hand = entry.hand;
  KVGuard free_row([&] { FreeRow(row); });
  if (bytes == nullptr || entry.bytes < kRowHeadBytes) return Shown::kDamaged;
  row->id = KVILoad<uint32_t>(bytes);
  if (IsCategory(row->id) && !walk.categories) return Shown::kNo;
  if (IsTotal(row->id) && !walk.totals) return Shown::kNo;
  const auto note_class = KVILoad<uint16_t>(bytes + 4);
  if ((row->id & kRowNotDocument) == 0 && note_class != BRCLASS_DATA) return Shown::kNo;
  row->level = KVILoad<uint16_t>(bytes + 6);
  uint32_t offset = kRowHeadBytes;
  if (idx->ftsearch != nullptr && idx->ftsearch->use_scores) {
    if (entry.bytes < offset + sizeof(uint16_t)) return Shown::kDamaged;
    idx->ftsearch->score = KVILoad<uint16_t>(bytes + offset);
    offset += sizeof(uint16_t);
  }
  row->summary = bytes + offset;
  if (!IsTable(row->summary, entry.bytes - offset)) return Shown::kDamaged;
  if (idx->ftsearch != nullptr && HasExtraValue(idx->active_view, row->summary)) row->level = 1;
  free_row.Dismiss();
  return Shown::kYes;
}

// Goes on until a row is to be shown.
uint32_t FindRow(_INDEX* idx, const WALK& walk, ROW* row) {
  const uint32_t mask = kReadRow | (idx->ftsearch != nullptr && idx->ftsearch->use_scores ? kReadScore : 0);
  const uint16_t skip_step = walk.first ? uint16_t{kStepNext} : walk.step;
  uint32_t skip_count = walk.first || StaysThere(walk.step) ? 0 : 1;
  for (bool again = false;; again = true) {
    // The row that the index stands on is passed over, and from there is no going on.
    if (again && StaysThere(walk.step)) return KVFAIL_DATA_UNAVAILABLE;
    ENTRY entry{};
    uint32_t returned = 0;
    if (uint16_t brstatus =
            EngCollectionRead(idx->collhand, &idx->collpos, skip_step, skip_count, walk.step, 1, mask,
                              &entry.hand, &entry.bytes, nullptr, &returned, nullptr))
      return brstatus;
    skip_count = 1;
    if (entry.hand == 0) return KVFAIL_END_OF_DATA;
    if (returned != 1) {
      EngMemFree(entry.hand);
      return KVFAIL_END_OF_DATA;
    }
    const Shown shown = ReadRow(idx, walk, entry, row);
    if (shown == Shown::kYes) return KVSUCCESS;
    if (shown == Shown::kDamaged) return KVFAIL_INTERNAL;
  }
}

void TakeRow(_INDEX* idx, const ROW& row) {
  VIEWROW* viewrow = &idx->viewrow;
  // A peek comes upon the row of the move before it.
  if (viewrow->summ_hand != 0) {
    EngMemUnlock(viewrow->summ_hand);
    EngMemFree(viewrow->summ_hand);
  }
  viewrow->summ_hand = row.hand;
  viewrow->view_category = row.id & kCategoryTopByte;
  viewrow->view_level = row.level;
  viewrow->view_summary = row.summary;
}

// ---- The position in a flat view

// Steps from where the move started until it meets the row, counting.
uint32_t Count(_INDEX* idx, WALK* walk, uint32_t id) {
  const bool backward = walk->backward && !walk->first;  // from before the first row it leads forward alone
  const uint16_t step = backward ? kStepPrevious : kStepNext;
  uint32_t skip_count = walk->first ? 0 : 1;
  for (;;) {
    EngMem page = 0;
    uint16_t page_bytes = 0;
    uint32_t returned = 0;
    if (uint16_t brstatus = EngCollectionRead(idx->collhand, &walk->start, step, skip_count, step, 1,
                                              kReadNoteId, &page, &page_bytes, nullptr, &returned, nullptr))
      return brstatus;
    if (page == 0) return KVFAIL_INTERNAL;
    KVGuard free_page([&] { EngMemFree(page); });
    if (returned != 1 || page_bytes < sizeof(uint32_t)) return KVFAIL_INTERNAL;
    skip_count = 1;
    idx->doc_index += backward ? ~uint32_t{0} : 1;
    const KVLocked entry(page);
    if (KVILoad<uint32_t>(entry.bytes) == id) return KVSUCCESS;
  }
}

uint32_t SetDocIndex(_INDEX* idx, WALK* walk, uint32_t id) {
  const bool moved = !StaysThere(walk->step) || walk->to_parent;
  if (moved && idx->flat_view && idx->ftsearch == nullptr) {
    walk->counts = false;
    if (uint32_t status = Count(idx, walk, id)) return status;
  }
  if (walk->counts && !idx->flat_view) idx->doc_index = idx->collpos.Tumbler[0];
  return KVSUCCESS;
}

void TellRow(const IndexMove& move, const ROW& row) {
  uint32_t docid = row.id;
  uint32_t indent = row.level;
  if (IsCategory(row.id)) {
    docid = KVDOCID_CATEGORY;
    indent = (row.id >> kCategoryLevelShift) & kCategoryLevelMask;
  } else if (IsTotal(row.id)) {
    docid = KVDOCID_TOTAL;
    indent = 0;
  }
  KVIStoreIf<uint32_t>(move.docid, docid);
  KVIStoreIf<uint32_t>(move.indent, indent);
}

uint32_t Walk(_INDEX* idx, const IndexMove& move, WALK* walk) {
  if (uint32_t status = ChooseStep(idx, move.direction, walk)) return status;
  if (idx->ftsearch != nullptr)
    if (uint32_t status = ToHits(walk)) return status;
  walk->first = idx->coll_first != 0;
  idx->coll_first = 0;
  ROW row{};
  if (uint32_t status = FindRow(idx, *walk, &row)) return status;
  TakeRow(idx, row);
  if (!walk->peek)
    if (uint32_t status = SetDocIndex(idx, walk, row.id)) return status;
  TellRow(move, row);
  return KVSUCCESS;
}

}  // namespace

uint32_t _KVICollectionNavigate(_api_session*, _INDEX* idx, const IndexMove& move) {
  WALK walk{};
  walk.peek = (move.nav_flags & KVNAVF_PEEK) != 0;
  walk.backward = (move.nav_flags & KVNAVF_BACKWARD) != 0;
  walk.categories = (move.nav_flags & KVNAVF_NO_CATEGORY) == 0;
  walk.totals = (move.nav_flags & KVNAVF_NO_TOTAL) == 0;
  walk.counts = true;
  KVICopyPosition(&walk.start, idx->collpos);
  const COLLECTIONPOSITION position = idx->collpos;
  const int32_t coll_first = idx->coll_first;
  const uint32_t status = Walk(idx, move, &walk);
  if (walk.peek) {
    KVICopyPosition(&idx->collpos, position);
    idx->coll_first = coll_first;
  }
  return status;
}
