// Lists of note ids as searches make them, and id tables of what an index shows.
//
// A list starts as a block of 512 ids, becomes one of 8192, and then a list of chunks of 8192: no block is
// ever larger, and id i of a chunked list is in chunk i >> 13.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint32_t kPlaceMask = kIdListChunk - 1;
constexpr uint16_t kResultHeadBytes = 8;
static_assert(kIdListChunk == 1u << kIdListChunkBits);

// With more than one chunk the list holds their addresses.
uint32_t** Chunks(const _INDEX* idx) { return static_cast<uint32_t**>(static_cast<void*>(idx->doc_idlist)); }

uint32_t* Place(const _INDEX* idx, uint32_t place) {
  return idx->doc_idlist_count > 1 ? &Chunks(idx)[place >> kIdListChunkBits][place & kPlaceMask]
                                   : &idx->doc_idlist[place];
}

// Adds an empty chunk behind the full ones.
bool AddChunk(_INDEX* idx) {
  const int16_t count = idx->doc_idlist_count;
  if (count == kIdListChunksMax) return false;
  auto* chunk = KVIAllocate<uint32_t>(kIdListChunk);
  if (chunk == nullptr) return false;
  KVGuard free_chunk([&] { KVIFree(chunk); });
  if (count == 1) {
    auto** chunks = KVIAllocate<uint32_t*>(kIdListSlots);
    if (chunks == nullptr) return false;
    chunks[0] = idx->doc_idlist;
    idx->doc_idlist = static_cast<uint32_t*>(static_cast<void*>(chunks));
  } else if (static_cast<uint32_t>(count) % kIdListSlots == 0) {
    uint32_t** chunks = Chunks(idx);
    if (!KVIReallocate(&chunks, static_cast<uint32_t>(count) + kIdListSlots)) return false;
    idx->doc_idlist = static_cast<uint32_t*>(static_cast<void*>(chunks));
  }
  Chunks(idx)[count] = chunk;
  free_chunk.Dismiss();
  ++idx->doc_idlist_count;
  return true;
}

bool MakeRoom(_INDEX* idx) {
  if (idx->doc_idlist == nullptr) {
    idx->doc_idlist = KVIAllocate<uint32_t>(kIdListFirst);
    return idx->doc_idlist != nullptr;
  }
  if (idx->doc_count == 0) return true;
  if (idx->doc_idlist_count == 0) {
    if (idx->doc_count % kIdListFirst != 0) return true;
    if (!KVIReallocate(&idx->doc_idlist, kIdListChunk)) return false;
    idx->doc_idlist_count = 1;
    return true;
  }
  return idx->doc_count % kIdListChunk != 0 || AddChunk(idx);
}

}  // namespace

bool KVIIdListAppend(_INDEX* idx, uint32_t noteid) {
  if (!MakeRoom(idx)) return false;
  *Place(idx, idx->doc_count++) = noteid;
  return true;
}

uint32_t KVIIdListAt(const _INDEX* idx, uint32_t place) { return *Place(idx, place); }

bool KVIIdListTrim(_INDEX* idx) {
  if (idx->doc_idlist == nullptr) {
    idx->doc_idlist = KVIAllocate<uint32_t>();
    return idx->doc_idlist != nullptr;
  }
  // A block that does not shrink is as good.
  if (idx->doc_idlist_count <= 1) {
    if (idx->doc_count != 0) (void)KVIReallocate(&idx->doc_idlist, idx->doc_count);
    return true;
  }
  const uint32_t last_count = idx->doc_count & kPlaceMask;
  if (last_count != 0) (void)KVIReallocate(&Chunks(idx)[idx->doc_idlist_count - 1], last_count);
  return true;
}

void KVIIdListFree(_INDEX* idx) {
  if (idx->doc_idlist_count > 1)
    for (int16_t i = 0; i < idx->doc_idlist_count; ++i) KVIFree(Chunks(idx)[i]);
  KVIFreeAndClear(&idx->doc_idlist);
  idx->doc_idlist_count = 0;
}

// ---- Callbacks of searches

namespace {

constexpr uint8_t kMatches = 1;
constexpr EngStatus kEngineNoMemory = 0x107;

}  // namespace

EngStatus SearchNoteID(void* index_ptr, const SEARCH_MATCH* search_match, const ITEM_TABLE*) {
  const auto match = KVILoad<SEARCH_MATCH>(search_match);
  if ((match.SERetFlags & kMatches) == 0) return 0;
  return KVIIdListAppend(static_cast<_INDEX*>(index_ptr), match.ID.NoteID) ? EngStatus{0} : kEngineNoMemory;
}

EngStatus SearchNoteIDTable(void* idtab_ptr, const SEARCH_MATCH* search_match, const ITEM_TABLE*) {
  const auto match = KVILoad<SEARCH_MATCH>(search_match);
  if ((match.SERetFlags & kMatches) == 0) return 0;
  return EngIdTableInsertId(KVILoad<EngIdTable>(idtab_ptr), match.ID.NoteID, nullptr);
}

// ---- Id tables

namespace {

uint16_t Insert(EngIdTable table, uint32_t noteid) {
  int32_t inserted = 0;
  return EngIdTableInsertId(table, noteid, &inserted);
}

uint16_t InsertHits(const _INDEX* idx, EngIdTable table) {
  uint32_t bytes = 0;
  if (uint16_t brstatus = EngMemSizeGet(idx->ftsearch->results, &bytes)) return brstatus;
  const KVLocked results(idx->ftsearch->results);
  for (uint32_t i = 0; i < idx->doc_count; ++i) {
    const size_t offset = kResultHeadBytes + size_t{i} * sizeof(uint32_t);
    if (results.bytes == nullptr || offset + sizeof(uint32_t) > bytes) break;
    if (uint16_t brstatus = Insert(table, KVILoad<uint32_t>(results.bytes + offset))) return brstatus;
  }
  return 0;
}

uint16_t InsertList(const _INDEX* idx, EngIdTable table) {
  for (uint32_t i = 0; i < idx->doc_count; ++i)
    if (uint16_t brstatus = Insert(table, KVIIdListAt(idx, i))) return brstatus;
  return 0;
}

// The documents of one page of ids; other rows are passed over.
uint16_t InsertPage(EngIdTable table, EngMem page, uint16_t page_bytes) {
  if (page == 0) return 0;
  KVGuard free_page([&] { EngMemFree(page); });
  const KVLocked ids(page);
  for (uint32_t offset = 0; offset + sizeof(uint32_t) <= page_bytes; offset += sizeof(uint32_t)) {
    const auto noteid = KVILoad<uint32_t>(ids.bytes + offset);
    if ((noteid & kRowNotDocument) != 0) continue;
    if (uint16_t brstatus = Insert(table, noteid)) return brstatus;
  }
  return 0;
}

uint16_t InsertRows(const _INDEX* idx, EngIdTable table) {
  COLLECTIONPOSITION position{};
  KVIStandAtStart(&position);
  const uint16_t step = idx->ftsearch != nullptr ? kStepNextHit : kStepNext;
  uint32_t skip_count = 0;
  uint32_t returned = 0;
  uint16_t signal = 0;
  do {
    EngMem page = 0;
    uint16_t page_bytes = 0;
    if (uint16_t brstatus = EngCollectionRead(idx->collhand, &position, step, skip_count, step, 0xffffffff,
                                              kReadNoteId, &page, &page_bytes, nullptr, &returned, &signal))
      return brstatus;
    if (uint16_t brstatus = InsertPage(table, page, page_bytes)) return brstatus;
    skip_count = 1;  // a page ends on the last row that it holds
  } while ((signal & kMoreRows) != 0 && returned != 0);
  return 0;
}

}  // namespace

uint32_t KVIIndexGetIDTable(_INDEX* pidx, EngIdTable* phIDT) {
  EngIdTable table = 0;
  if (uint16_t brstatus = EngIdTableCreate(sizeof(uint32_t), &table)) return brstatus;
  KVGuard destroy_table([&] { EngIdTableDestroy(table); });
  uint32_t status;
  if (pidx->doc_idlist != nullptr)
    status = pidx->ftsearch != nullptr ? InsertHits(pidx, table) : InsertList(pidx, table);
  else
    status = pidx->collhand == 0 ? KVFAIL_NOT_VIEW_INDEX : InsertRows(pidx, table);
  if (status) return status;
  destroy_table.Dismiss();
  *phIDT = table;
  return KVSUCCESS;
}
