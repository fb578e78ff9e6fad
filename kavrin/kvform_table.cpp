// The fields of a form record as a whole: how many slots they take, and the items that name them.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoSuchItem = 0x222;
constexpr char kFieldsItem[] = "$Fields";
constexpr uint16_t kPlaceholder = 0x100;
constexpr uint16_t kHotspotSubform = 14;
constexpr uint32_t kHotspotIsFormula = 0x10;  // the subform's name is computed

bool IsField(uint16_t signature) { return signature == kCdField || signature == kCdFieldPre36; }

// The name of a field, where it is in a record of the newer layout. In an older one that is two bytes too far
// and may reach into what follows the record, but not past the item. False when it would.
bool FindName(const CDRUN& run, const char** name, uint16_t* name_bytes) {
  const bool is_old = run.header.signature == kCdFieldPre36;
  const size_t bound = is_old ? run.header.step + run.left_bytes : run.header.length;
  if (bound < sizeof(CDFIELD)) return false;
  const auto head = KVILoad<CDFIELD>(run.record);
  const size_t place = sizeof head + head.DVLength + head.ITLength + head.IVLength;
  if (place > bound || head.NameLength > bound - place) return false;
  *name = run.record + place;
  *name_bytes = head.NameLength;
  return true;
}

uint32_t ListNames(EngNote nh) {
  // The page stays locked while the list of names grows: those are two items.
  CDITEMWALK walk = KVICDWalkItems(nh, kFormBodyItem, kFormBodyItemBytes);
  KVGuard end_walk([&] { KVICDEndWalk(&walk); });
  while (KVICDNextItemRecord(&walk)) {
    if (!IsField(walk.run.header.signature)) continue;
    const char* name = nullptr;
    uint16_t name_bytes = 0;
    if (!FindName(walk.run, &name, &name_bytes)) return KVFAIL_BAD_FORMAT;
    if (uint16_t brstatus = EngItemTextListAppend(nh, kFieldsItem, name, name_bytes, 1)) return brstatus;
  }
  if (walk.item_count == 0 && !walk.is_damaged) return KVFAIL_NOT_FOUND;
  return KVIBodyStatus(walk);
}

}  // namespace

uint32_t KVIBodyStatus(const CDITEMWALK& walk) {
  if (walk.is_damaged) return KVFAIL_BAD_FORMAT;
  if (walk.brstatus && (walk.brstatus & 0x3fff) != kNoSuchItem) return walk.brstatus;
  return KVSUCCESS;
}

KVISUBFORMREF KVIReadSubformRef(const char* record, const CDHEADER& header) {
  KVISUBFORMREF reference{};
  if (header.signature != kCdHotspotBeginLater || header.length < sizeof(CDHOTSPOTBEGIN)) return reference;
  const auto hotspot = KVILoad<CDHOTSPOTBEGIN>(record);
  if (hotspot.Type != kHotspotSubform) return reference;
  reference.is_subform = true;
  reference.is_computed = (hotspot.Flags & kHotspotIsFormula) != 0;
  const uint32_t room = header.length - static_cast<uint32_t>(sizeof hotspot);
  reference.name = record + sizeof hotspot;
  reference.name_bytes = hotspot.DataLength <= room ? hotspot.DataLength : 0;
  return reference;
}

uint32_t KVIFormNoteSizeofFieldTable(EngNote nh, uint32_t* pcount) {
  *pcount = 0;
  if (EngItemInfo(nh, kFormBodyItem, kFormBodyItemBytes, nullptr, nullptr, nullptr, nullptr))
    return KVFAIL_NOT_FOUND;
  char letters[kDesignFlagsMax + 1] = {};
  const uint16_t letter_count = EngItemTextGet(nh, "$Flags", letters, kDesignFlagsMax);
  const bool may_nest = memchr(letters, 'U', letter_count) == nullptr;
  uint32_t count = 0;
  bool in_subform = false;
  CDITEMWALK walk = KVICDWalkItems(nh, kFormBodyItem, kFormBodyItemBytes);
  KVGuard end_walk([&] { KVICDEndWalk(&walk); });
  while (KVICDNextItemRecord(&walk)) {
    const uint16_t signature = walk.run.header.signature;
    if (in_subform) {
      in_subform = signature != kCdHotspotEndLater;
      continue;
    }
    const KVISUBFORMREF reference = KVIReadSubformRef(walk.run.record, walk.run.header);
    if (may_nest && reference.is_subform && !reference.is_computed) {
      ++count;
      in_subform = true;
    }
    if (IsField(signature)) ++count;
  }
  if (uint32_t status = KVIBodyStatus(walk)) return status;
  *pcount = count;
  return KVSUCCESS;
}

uint32_t _KVIFormNoteAppendFieldNameTables(_api_session* session, EngNote nh) {
  if (uint32_t status = ListNames(nh)) return status;
  const uint16_t count = EngItemTextListCount(nh, kFieldsItem);
  for (uint16_t entry = 0; entry < count; ++entry) {
    char name[kFieldNameBytesMax];
    const uint16_t name_bytes = EngItemTextListEntry(nh, kFieldsItem, entry, name, kFieldNameBytesMax);
    // The name of an earlier field has its placeholder by now.
    if (EngItemInfo(nh, name, name_bytes, nullptr, nullptr, nullptr, nullptr) == 0)
      return session->kvprog_version < kVersionSecond ? KVFAIL_NO_FIELD : KVFAIL_DUPLICATE_FIELD;
    if (uint16_t brstatus = EngItemAppend(nh, kPlaceholder, name, name_bytes, 0, nullptr, 0)) return brstatus;
  }
  return KVSUCCESS;
}
