// Positions of an index: as a number, and in a view with levels as numbers with dots between.
#include <charconv>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint32_t kLevels = kCollectionLevelMax + 1;
constexpr size_t kNumberCharactersMax = 10;

// ---- As a number

uint32_t SetInLevels(_api_session* session, _INDEX* idx, uint32_t position) {
  idx->collpos.Level = 0;
  if (position == 0) {
    KVIStandAtStart(&idx->collpos);
    idx->coll_first = 1;
  } else if (position == idx->doc_count + 1) {
    const IndexMove to_end{.direction = KVNAV_END, .nav_flags = 0, .docid = nullptr, .indent = nullptr};
    if (uint32_t status = _KVIIndexNavigate(session, idx, to_end)) return status;
  } else {
    idx->coll_first = 0;
    idx->collpos.Tumbler[0] = position;
  }
  idx->doc_index = position;
  return KVSUCCESS;
}

uint32_t Skip(_INDEX* idx, uint16_t step, uint32_t skip_count) {
  EngMem page = 0;
  if (uint16_t brstatus = EngCollectionRead(idx->collhand, &idx->collpos, step, skip_count, step, 0, 0, &page,
                                            nullptr, nullptr, nullptr, nullptr))
    return brstatus;
  if (page != 0) EngMemFree(page);
  return KVSUCCESS;
}

// Walks from where the index stands, or from the front when that is nearer.
uint32_t SetInRows(_INDEX* idx, uint32_t position) {
  uint16_t step = kStepPrevious;
  uint32_t skip_count = idx->doc_index - position;
  if (position < idx->doc_index && (position == 0 || position < idx->doc_index / 2)) {
    KVIStandAtStart(&idx->collpos);
    idx->coll_first = 1;
    idx->doc_index = 0;
  }
  if (idx->doc_index == position) return KVSUCCESS;
  if (position > idx->doc_index) {
    step = kStepNext;
    skip_count = position - idx->doc_index;
    if (idx->doc_index == 0) {
      --skip_count;  // the front is the first row
      idx->coll_first = 0;
    }
  }
  if (uint32_t status = Skip(idx, step, skip_count)) return status;
  idx->doc_index = position;
  return KVSUCCESS;
}

// ---- As numbers with dots

// A number too large for a position is the largest.
uint32_t ParseNumber(const char** text) {
  uint64_t number = 0;
  for (; **text >= '0' && **text <= '9'; ++*text) {
    number = number * 10 + static_cast<uint64_t>(**text - '0');
    if (number > 0xffffffff) number = 0xffffffff;
  }
  return static_cast<uint32_t>(number);
}

// Sets the position from its text. record receives 0 for a failure that is not recorded.
uint32_t ParsePosition(_INDEX* idx, const char* text, bool* record) {
  uint32_t level = 0;
  while (level < kLevels && *text != 0) {
    const uint32_t number = ParseNumber(&text);
    if (level == 0 && (number == 0 || number > idx->doc_count)) {
      *record = false;
      return KVFAIL_END_OF_DATA;
    }
    idx->collpos.Tumbler[level++] = number;
    if (*text != '.') continue;
    if (idx->ftsearch != nullptr) return KVFAIL_NOT_HIERARCHICAL;
    ++text;
  }
  idx->collpos.Level = static_cast<uint16_t>(level - 1);
  return KVSUCCESS;
}

// Whether there is a row at the position.
uint32_t ProbePosition(_INDEX* idx, bool* record) {
  const uint16_t step = idx->ftsearch != nullptr ? kStepCurrentHit : kStepCurrent;
  EngMem page = 0;
  uint32_t returned = 0;
  if (uint16_t brstatus = EngCollectionRead(idx->collhand, &idx->collpos, step, 0, step, 1, 0, &page, nullptr,
                                            nullptr, &returned, nullptr))
    return brstatus;
  if (page != 0) EngMemFree(page);
  if (returned != 0) return KVSUCCESS;
  *record = false;
  return KVFAIL_END_OF_DATA;
}

}  // namespace

uint32_t KVIndexGetPosition(uint32_t index) {
  _api_session* session;
  if (uint32_t status = KVIEnter(index, &session)) return status;
  const _INDEX* idx = _KVIFindIndex(session, index);
  return idx == nullptr ? KVError(KVFAIL_BAD_INDEX) : idx->doc_index;
}

uint32_t KVIndexSetPosition(uint32_t index, uint32_t position) {
  _api_session* session;
  if (uint32_t status = KVIEnter(index, &session)) return status;
  _INDEX* idx = _KVIFindIndex(session, index);
  if (idx == nullptr) return KVError(KVFAIL_BAD_INDEX);
  if (!KVIIndexHasResult(idx)) return KVError(KVFAIL_DATA_UNAVAILABLE);
  (void)ClearIndexState(idx, kStateIndexRow);
  if (position > uint64_t{idx->doc_count} + 1) return KVError(KVFAIL_END_OF_DATA);
  uint32_t status = KVSUCCESS;
  if (idx->doc_idlist != nullptr)
    idx->doc_index = position;
  else if (!idx->flat_view || idx->ftsearch != nullptr)
    status = SetInLevels(session, idx, position);
  else
    status = SetInRows(idx, position);
  return status ? KVError(status) : KVSUCCESS;
}

uint32_t KVIndexGetViewPosition(uint32_t index, uint32_t length, char* position) {
  _api_session* session;
  if (uint32_t status = KVIEnter(index, &session)) return status;
  if (position == nullptr) return KVError(KVFAIL_NULL_PARAM);
  const _INDEX* idx = _KVIFindIndex(session, index);
  if (idx == nullptr) return KVError(KVFAIL_BAD_INDEX);
  if (!KVIIndexHasResult(idx)) return KVError(KVFAIL_DATA_UNAVAILABLE);
  if (idx->collhand == 0 || idx->flat_view) return KVError(KVFAIL_NOT_HIERARCHICAL);
  uint32_t written = 0;
  for (uint32_t level = 0; level <= idx->collpos.Level && level < kLevels; ++level) {
    if (level != 0 && (length == 0 || written < length)) position[written++] = '.';
    char number[kNumberCharactersMax + 1];
    const char* end = std::to_chars(number, number + sizeof number, idx->collpos.Tumbler[level]).ptr;
    const auto number_characters = static_cast<uint32_t>(end - number);
    if (length != 0 && number_characters > length - written) {
      *position = 0;
      return KVFAIL_DATA_TOO_LONG;  // not recorded: a caller asks with short buffers in passing
    }
    KVICopyBytes(position + written, number, number_characters);
    written += number_characters;
  }
  position[written] = 0;
  return KVSUCCESS;
}

uint32_t KVIndexSetViewPosition(uint32_t index, const char* position) {
  _api_session* session;
  if (uint32_t status = KVIEnter(index, &session)) return status;
  if (KVIEmpty(position)) return KVError(KVFAIL_NULL_PARAM);
  _INDEX* idx = _KVIFindIndex(session, index);
  if (idx == nullptr) return KVError(KVFAIL_BAD_INDEX);
  // A flat view answers as an empty index here, unlike where the position is asked for: the difference stays.
  if (idx->doc_idlist != nullptr) return KVError(KVFAIL_NOT_HIERARCHICAL);
  if (idx->collhand == 0 || idx->flat_view) return KVError(KVFAIL_DATA_UNAVAILABLE);
  (void)ClearIndexState(idx, kStateIndexRow);
  const COLLECTIONPOSITION start = idx->collpos;
  bool record = true;
  uint32_t status = ParsePosition(idx, position, &record);
  if (!status) status = ProbePosition(idx, &record);
  if (status) {
    idx->collpos = start;
    return record ? KVError(status) : status;
  }
  idx->doc_index = idx->collpos.Tumbler[0];
  idx->coll_first = 0;
  return KVSUCCESS;
}
