// Moving an index, on a list; and the choice between list and collection.
//
// A list has two resting places outside: 0 before the first document, and one behind the last.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kResultHeadBytes = 8;

// Where a move on a list leads, not yet checked against its ends.
uint32_t Target(const _INDEX* idx, int32_t direction, bool backward, uint32_t* place) {
  switch (direction) {
    case KVNAV_NEXT:
    case KVNAV_MAIN:
      if (backward && idx->doc_index == 0) return KVFAIL_END_OF_DATA;
      *place = backward ? idx->doc_index - 1 : idx->doc_index + 1;
      return KVSUCCESS;
    case KVNAV_END:
      *place = backward ? 1 : idx->doc_count;
      return KVSUCCESS;
    case KVNAV_CURRENT:
      *place = idx->doc_index;
      return idx->doc_index == 0 || idx->doc_index > idx->doc_count ? KVFAIL_DATA_UNAVAILABLE : KVSUCCESS;
    case KVNAV_PEER:
    case KVNAV_CHILD:
    case KVNAV_PARENT:
      return KVFAIL_NOT_HIERARCHICAL;
    default:
      return KVFAIL_BAD_ENUM;
  }
}

// Reads the hit that the index stands on. The block is checked: it is the engine's.
uint32_t ReadHit(_INDEX* idx, uint32_t* docid) {
  FTSEARCH* search = idx->ftsearch;
  if (docid == nullptr && !search->use_scores) return KVSUCCESS;
  uint32_t bytes = 0;
  if (uint16_t brstatus = EngMemSizeGet(search->results, &bytes)) return brstatus;
  const size_t id_offset = kResultHeadBytes + size_t{idx->doc_index - 1} * sizeof(uint32_t);
  const size_t score_offset =
      kResultHeadBytes + size_t{idx->doc_count} * sizeof(uint32_t) + (idx->doc_index - 1);
  const size_t end = search->use_scores ? score_offset + 1 : id_offset + sizeof(uint32_t);
  const KVLocked results(search->results);
  if (results.bytes == nullptr || end > bytes) return KVFAIL_INTERNAL;
  KVIStoreIf<uint32_t>(docid, KVILoad<uint32_t>(results.bytes + id_offset));
  if (search->use_scores) search->score = static_cast<uint8_t>(results.bytes[score_offset]);
  return KVSUCCESS;
}

uint32_t NavigateList(_INDEX* idx, const IndexMove& move) {
  const bool peek = (move.nav_flags & KVNAVF_PEEK) != 0;
  const uint32_t start = idx->doc_index;
  KVGuard put_back([&] { idx->doc_index = start; });
  if (!peek) put_back.Dismiss();
  uint32_t place = 0;
  const bool backward = (move.nav_flags & KVNAVF_BACKWARD) != 0;
  if (uint32_t status = Target(idx, move.direction, backward, &place)) return status;
  if (place > idx->doc_count) place = idx->doc_count + 1;
  idx->doc_index = place;
  if (place == 0 || place > idx->doc_count) return KVFAIL_END_OF_DATA;
  if (idx->ftsearch != nullptr) return ReadHit(idx, move.docid);
  KVIStoreIf<uint32_t>(move.docid, KVIIdListAt(idx, place - 1));
  return KVSUCCESS;
}

}  // namespace

uint32_t _KVIIndexNavigate(_api_session* session, _INDEX* idx, const IndexMove& move) {
  if ((move.nav_flags & KVNAVF_PEEK) == 0) (void)ClearIndexState(idx, kStateIndexRow);
  if (idx->collhand != 0) return _KVICollectionNavigate(session, idx, move);
  return KVIIndexHasResult(idx) ? NavigateList(idx, move) : KVFAIL_DATA_UNAVAILABLE;
}

uint32_t KVIndexNavigate(uint32_t index, int32_t direction, uint32_t nav_flags, uint32_t* docid,
                         uint32_t* indent) {
  KVIStoreIf<uint32_t>(docid, 0);
  KVIStoreIf<uint32_t>(indent, 0);
  _api_session* session;
  if (uint32_t status = KVIEnter(index, &session)) return status;
  _INDEX* idx = _KVIFindIndex(session, index);
  if (idx == nullptr) return KVError(KVFAIL_BAD_INDEX);
  const IndexMove move{.direction = direction, .nav_flags = nav_flags, .docid = docid, .indent = indent};
  if (uint32_t status = _KVIIndexNavigate(session, idx, move)) return KVError(status);
  return KVSUCCESS;
}
