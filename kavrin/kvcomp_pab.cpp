// Numbers of paragraph styles, and the pairs of hotspot records: what holds over a whole composite.
//
// (1) Walks use a cursor of their own, or leave the composite's as they found it. (2) Numbers are changed in
// place; the bytes of a node that an item owns are changed with it, in the open note.
#include "brynd.h"
#include "kavrin.h"
#include "kvcomp.h"

namespace {

// Where a record holds the number of a paragraph style; 0 for records without one.
uint32_t PabIdOffset(const COMPRECORD& place) {
  uint32_t offset = 0;
  if (place.signature == kCdPabReference) offset = 2;
  if (place.signature == kCdStyleName) offset = 6;
  if (place.signature == kCdPabDefinition) offset = 4;
  return offset + sizeof(uint16_t) <= place.length ? offset : 0;
}

uint16_t ReadPabId(const char* at) {
  const void* source = at;
  uint16_t pabid = 0;
  EngOdsRead(&source, kOdsWord, &pabid, 1);
  return pabid;
}

void WritePabId(char* at, uint16_t pabid) {
  void* target = at;
  EngOdsWrite(&target, kOdsWord, &pabid, 1);
}

// A cursor on a record that is not the composite's own; what CompGetRecord gives.
uint32_t PlaceApart(_COMPOSITE* comp, uint32_t index, COMPRECORD* place) {
  const COMPRECORD kept = comp->comprec;
  comp->comprec = COMPRECORD{};
  const uint32_t status = CompGetRecord(comp, index, 0);
  *place = comp->comprec;
  comp->comprec = kept;
  return status;
}

void LeavePlace(const COMPRECORD& place) {
  if (place.node != nullptr) _KVICompNodeUnlock(place.node);
}

}  // namespace

uint32_t KVIPABTranlateList(uint32_t Translate, int32_t* pKVList, uint16_t* pBRFlags) {
  constexpr uint16_t kBulletFlag = 0x400;
  constexpr uint16_t kNumberFlag = 0x1000;
  switch (Translate) {
    case kPabListRead:
      *pKVList = (*pBRFlags & kBulletFlag) != 0 ? 1 : (*pBRFlags & kNumberFlag) != 0 ? 2 : 0;
      return KVSUCCESS;
    case kPabListWrite:
      if (static_cast<uint32_t>(*pKVList) > 2) return KVFAIL_BAD_ENUM;
      if (*pKVList == 1) *pBRFlags |= kBulletFlag;
      if (*pKVList == 2) *pBRFlags |= kNumberFlag;
      return KVSUCCESS;
    default:
      return KVFAIL_NO_ACTION;
  }
}

uint32_t KVICompGetMaxPABID(_COMPOSITE* compos, uint32_t index, uint32_t* max_pabid) {
  if (compos == nullptr) return KVFAIL_NULL_PARAM;
  if (index == 0) return KVFAIL_NULL_PARAM;
  if (max_pabid == nullptr) return KVFAIL_NULL_PARAM;
  *max_pabid = 0;
  COMPRECORD place{};
  if (const uint32_t status = PlaceApart(compos, index, &place)) return status;
  // The record at the index itself is not looked at.
  uint32_t status;
  while ((status = CompRecords(compos, &place)) == KVSUCCESS) {
    const uint32_t offset = PabIdOffset(place);
    if (offset == 0) continue;
    const uint32_t pabid = ReadPabId(place.buffer + offset);
    if (pabid > *max_pabid) *max_pabid = pabid;
  }
  LeavePlace(place);
  return status == KVFAIL_END_OF_DATA ? uint32_t{KVSUCCESS} : status;
}

uint32_t KVICompMovePABIDs(_COMPOSITE* compos, uint32_t index, uint32_t count, uint32_t offset,
                           uint32_t* max_pabid) {
  if (compos == nullptr) return KVFAIL_NULL_PARAM;
  if (index == 0) return KVFAIL_NULL_PARAM;
  if (offset == 0) return KVFAIL_NO_ACTION;
  COMPRECORD place{};
  if (const uint32_t status = PlaceApart(compos, index, &place)) return status;
  uint32_t max_old_pabid = 0;
  uint32_t status = KVSUCCESS;
  for (uint32_t left_count = count; left_count != 0 && status == KVSUCCESS; --left_count) {
    if (const uint32_t at = PabIdOffset(place)) {
      const uint16_t pabid = ReadPabId(place.buffer + at);
      if (pabid > max_old_pabid) max_old_pabid = pabid;
      WritePabId(place.buffer + at, static_cast<uint16_t>(pabid + offset));
    }
    if (left_count != 1) status = CompRecords(compos, &place);
  }
  LeavePlace(place);
  KVIStoreIf<uint32_t>(max_pabid, max_old_pabid);
  return status == KVFAIL_END_OF_DATA ? uint32_t{KVSUCCESS} : status;
}

uint32_t KVICompSynchHotspots(_COMPOSITE* pcomp) {
  COMPRECORD place{};
  bool in_hotspot = false;
  uint32_t status;
  while ((status = CompRecords(pcomp, &place)) == KVSUCCESS) {
    if (in_hotspot && place.signature == kCdHotspotEnd) {
      *place.buffer = static_cast<char>(kCdHotspotEndLater);
      in_hotspot = false;
    }
    if (place.signature == kCdHotspotBeginLater) in_hotspot = true;
  }
  LeavePlace(place);
  return status == KVFAIL_END_OF_DATA ? uint32_t{KVSUCCESS} : status;
}
