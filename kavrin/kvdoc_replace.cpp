// Replacing items: the old ones stay in the note until their successor stands.
//
// (1) The session's list names the old items: the inline array first, then a heap array when there are more
// than it holds. (2) An entry of zeros ends the list; a full inline array has no room for it and ends by its
// size. (3) Between a preparation and its deletion no other one may come.
#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoSuchItem = 0x222;
constexpr uint32_t kGrowth = kDeleteBidCount;

bool IsEmptyBlock(const BLOCKID& bid) { return bid.pool == 0 && bid.block == 0; }

bool IsInline(const _api_session* session) { return session->delete_bid_ptr == session->delete_bid; }

// Writes one entry at `count`, growing the heap array by whole steps. The first entries stay in the inline
// array; the heap array holds those behind them.
bool PutEntry(_api_session* session, uint32_t count, const BLOCKID& bid) {
  if (count < kDeleteBidCount) {
    session->delete_bid[count] = bid;
    return true;
  }
  const uint32_t heap_count = count - kDeleteBidCount;
  if (heap_count % kGrowth == 0) {
    BLOCKID* heap = IsInline(session) ? nullptr : session->delete_bid_ptr;
    if (!KVIReallocate(&heap, heap_count + kGrowth)) return false;
    session->delete_bid_ptr = heap;
  }
  session->delete_bid_ptr[heap_count] = bid;
  return true;
}

// The first entries stay, in the inline array.
void DropHeapList(_api_session* session) {
  if (!IsInline(session)) KVIFree(session->delete_bid_ptr);
  session->delete_bid_ptr = session->delete_bid;
}

bool IsListed(const _api_session* session, const BLOCKID& item) {
  const uint32_t bound = IsInline(session) ? kDeleteBidCount : UINT32_MAX;
  for (uint32_t i = 0; i < bound && !IsEmptyBlock(session->delete_bid_ptr[i]); ++i)
    if (memcmp(&session->delete_bid_ptr[i], &item, sizeof item) == 0) return true;
  return false;
}

void DeleteAllListed(_api_session* session, _DOCUMENT* doc) {
  const uint32_t bound = IsInline(session) ? kDeleteBidCount : UINT32_MAX;
  for (uint32_t i = 0; i < bound && !IsEmptyBlock(session->delete_bid_ptr[i]); ++i)
    (void)EngItemDeleteByBlock(doc->notehand, session->delete_bid_ptr[i]);
}

void DeleteListedOfName(_api_session* session, _DOCUMENT* doc, const char* itemname, uint16_t namelen) {
  BLOCKID item;
  uint16_t brstatus = EngItemInfo(doc->notehand, itemname, namelen, &item, nullptr, nullptr, nullptr);
  while (!brstatus) {
    BLOCKID next{};
    brstatus = EngItemInfoNext(doc->notehand, item, itemname, namelen, &next, nullptr, nullptr, nullptr);
    if (IsListed(session, item)) (void)EngItemDeleteByBlock(doc->notehand, item);
    item = next;
  }
}

}  // namespace

uint32_t _DeleteItemPrep(_api_session* session, _DOCUMENT* doc, const char* itemname, uint16_t namelen) {
  DropHeapList(session);
  uint32_t count = 0;
  BLOCKID item;
  uint16_t brstatus = EngItemInfo(doc->notehand, itemname, namelen, &item, nullptr, nullptr, nullptr);
  while (!brstatus) {
    if (!PutEntry(session, count++, item)) {
      _DropDeleteList(session);
      return KVFAIL_NO_MEMORY;
    }
    brstatus = EngItemInfoNext(doc->notehand, item, itemname, namelen, &item, nullptr, nullptr, nullptr);
  }
  // A list that misses items would leave them beside their successor.
  if ((brstatus & 0x3fff) != kNoSuchItem) {
    _DropDeleteList(session);
    return brstatus;
  }
  if (count == kDeleteBidCount) return KVSUCCESS;  // the full inline array ends by its size
  if (PutEntry(session, count, BLOCKID{})) return KVSUCCESS;
  _DropDeleteList(session);
  return KVFAIL_NO_MEMORY;
}

void _DropDeleteList(_api_session* session) {
  DropHeapList(session);
  session->delete_bid[0] = BLOCKID{};
}

void _DeleteItem(_api_session* session, _DOCUMENT* doc, const char* itemname, uint16_t namelen) {
  const auto delete_listed = [&] {
    if (itemname == nullptr)
      DeleteAllListed(session, doc);
    else
      DeleteListedOfName(session, doc, itemname, namelen);
  };
  delete_listed();
  if (IsInline(session)) return;
  DropHeapList(session);
  delete_listed();  // the same for the entries in front, which stayed in the inline array
}
