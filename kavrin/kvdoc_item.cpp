// Reading items: where a value lies, and its conversion into the caller's buffer or into one that the
// document owns.
//
// (1) "$FILE" and "$REF" are not items for this family.
// (2) A value begins with its type word; public lengths leave it out.
// (3) A place with `free_value` set is a computed result whose block belongs to whoever asked.
#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoSuchItem = 0x222;
constexpr uint32_t kTypeWordBytes = 2;
constexpr uint16_t kTypeUser = 0x700;
constexpr uint32_t kUserTypeExtraBytes = 8;  // the engine counts more than applications see
constexpr uint32_t kCompositeHandleBytes = 4;

bool Fits(int32_t type, int32_t form_type) {
  return form_type == 0 || implicit_convert[type][form_type] != 0;
}

bool IsComputed(const FIELDSPEC* fieldspec) {
  if (fieldspec == nullptr || fieldspec->dvformula == nullptr) return false;
  const uint32_t kind = fieldspec->flags & KVFIELD_KIND_MASK;
  return kind == KVFIELD_KIND_DISPLAY || kind == KVFIELD_KIND_COMPUTED;
}

uint16_t TypeWordAt(const BLOCKID& value) {
  const KVLocked locked(value.pool, value.block);
  return locked.bytes == nullptr ? uint16_t{0} : KVI_BRDataTypeRead(locked.bytes, 0);
}

// A computed field that the note does not hold: its formula gives the value.
uint32_t ComputeValue(_DOCUMENT* doc, int32_t form_type, const FIELDSPEC* fieldspec, ItemPlace* place) {
  EngCompute compute = 0;
  if (uint16_t brstatus = EngComputeBegin(0, fieldspec->dvformula, &compute)) return brstatus;
  EngMem result = 0;
  uint16_t result_bytes = 0;
  const uint16_t brstatus =
      EngComputeEvaluate(compute, doc->notehand, &result, &result_bytes, nullptr, nullptr, nullptr);
  EngComputeEnd(compute);
  if (brstatus) return brstatus;
  const BLOCKID value{.pool = result, .block = 0};
  const auto type = static_cast<int32_t>(GetKVType(TypeWordAt(value)));
  if (!Fits(type, form_type)) {
    EngMemFree(result);
    return KVFAIL_NO_ITEM;
  }
  *place = {.type = type, .length = result_bytes, .value = value, .free_value = 1};
  return KVSUCCESS;
}

// The first item of the name that fits; 0 or the engine's status.
uint16_t FindStoredItem(_DOCUMENT* doc, const char* itemname, uint16_t namelen, int32_t form_type,
                        ItemPlace* place) {
  BLOCKID item;
  BLOCKID value;
  uint16_t type_word = 0;
  uint32_t length = 0;
  uint16_t brstatus = EngItemInfo(doc->notehand, itemname, namelen, &item, &type_word, &value, &length);
  while (!brstatus && !Fits(static_cast<int32_t>(GetKVType(type_word)), form_type))
    brstatus = EngItemInfoNext(doc->notehand, item, itemname, namelen, &item, &type_word, &value, &length);
  if (brstatus) return brstatus;
  if (type_word == kTypeUser && length >= kUserTypeExtraBytes + kTypeWordBytes) length -= kUserTypeExtraBytes;
  *place = {
      .type = static_cast<int32_t>(GetKVType(type_word)), .length = length, .value = value, .free_value = 0};
  return 0;
}

bool ExecuteResult(const _DOCUMENT* doc, const char* itemname, uint16_t namelen, int32_t form_type,
                   ItemPlace* place) {
  if (doc->exechand == 0 || namelen != kExecuteItemNameBytes || strcmp(itemname, kExecuteItemName) != 0)
    return false;
  const BLOCKID value{.pool = doc->exechand, .block = 0};
  const auto type = static_cast<int32_t>(GetKVType(TypeWordAt(value)));
  if (!Fits(type, form_type)) return false;
  *place = {.type = type, .length = doc->execlen, .value = value, .free_value = 0};
  return true;
}

void FreePlace(const ItemPlace& place) {
  if (place.free_value) EngMemFree(place.value.pool);
}

uint32_t ValueBytes(const ItemPlace& place) {
  return place.length < kTypeWordBytes ? 0 : place.length - kTypeWordBytes;
}

// The type that the caller wants: the word at buffer_type, or the item's own.
int32_t WantedType(const int32_t* buffer_type, int32_t item_type) {
  const int32_t wanted = buffer_type != nullptr ? KVILoad<int32_t>(buffer_type) : 0;
  return wanted != 0 ? wanted : item_type;
}

// The caller's in-out words, taken out of addresses that may be odd.
struct TypeWords {
  int32_t item_type;
  int32_t buffer_type;
};
TypeWords LoadTypes(const int32_t* item_type, const int32_t* buffer_type) {
  return {.item_type = item_type != nullptr ? KVILoad<int32_t>(item_type) : 0,
          .buffer_type = buffer_type != nullptr ? KVILoad<int32_t>(buffer_type) : 0};
}

void StoreItemType(int32_t* item_type, int32_t type) {
  if (item_type != nullptr && KVILoad<int32_t>(item_type) == 0) KVIStore<int32_t>(item_type, type);
}

// Flags of the stored item whose value lies at that place; a computed value has none.
uint32_t FlagsOfPlace(_DOCUMENT* doc, const char* itemname, uint16_t namelen, const ItemPlace& place,
                      uint16_t* flags) {
  BLOCKID item;
  BLOCKID value;
  uint16_t brstatus = EngItemInfo(doc->notehand, itemname, namelen, &item, nullptr, &value, nullptr);
  while (!brstatus && memcmp(&value, &place.value, sizeof value) != 0)
    brstatus = EngItemInfoNext(doc->notehand, item, itemname, namelen, &item, nullptr, &value, nullptr);
  *flags = 0;
  if ((brstatus & 0x3fff) == kNoSuchItem) return KVSUCCESS;
  if (brstatus) return brstatus;
  EngItemQuery(doc->notehand, item, nullptr, 0, nullptr, flags, nullptr, nullptr, nullptr);
  return KVSUCCESS;
}

// The value stays locked while it is converted: it is read where it lies.
uint32_t ConvertPlace(_api_session* session, const ItemPlace& place, uint32_t flags, const FORMAT* format,
                      uint32_t dest_type, uint32_t dest_len, void* dest_buf, uint32_t* actual_len) {
  const KVLocked value(place.value.pool, place.value.block);
  if (value.bytes == nullptr) return KVFAIL_INTERNAL;
  return _DataConvert(session, nullptr, nullptr, static_cast<uint32_t>(place.type), ValueBytes(place),
                      value.bytes + kTypeWordBytes, flags, nullptr, format, dest_type, dest_len, dest_buf,
                      actual_len);
}

// What a failed read leaves in the caller's buffer: zeros for the smallest value of the type, within the
// buffer.
void ClearBuffer(void* buffer, uint32_t buffer_length, int32_t type) {
  const uint32_t smallest = static_cast<uint32_t>(type) < kKVTypeCount ? min_length[type] : 0;
  memset(buffer, 0, buffer_length != 0 && buffer_length < smallest ? buffer_length : smallest);
}

}  // namespace

uint32_t GetItemInfo(_DOCUMENT* doc, const char* itemname, uint16_t namelen, int32_t form_type,
                     const FIELDSPEC* fieldspec, ItemPlace* place) {
  *place = ItemPlace{};
  if (KVIIsHiddenItem(itemname, namelen)) return KVFAIL_NO_ITEM;
  if (IsComputed(fieldspec) &&
      EngItemInfo(doc->notehand, itemname, namelen, nullptr, nullptr, nullptr, nullptr) != 0)
    return ComputeValue(doc, form_type, fieldspec, place);
  const uint16_t brstatus = FindStoredItem(doc, itemname, namelen, form_type, place);
  if (!brstatus || ExecuteResult(doc, itemname, namelen, form_type, place)) return KVSUCCESS;
  if ((brstatus & 0x3fff) == kNoSuchItem) return KVFAIL_NO_ITEM;
  return KVError(brstatus);
}

uint32_t KVItemGetInfo(uint32_t document, const char* itemname, int32_t* type, uint32_t* item_flags,
                       uint32_t* length) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (KVIEmpty(itemname)) return KVError(KVFAIL_NULL_PARAM);
  KVIStoreIf<int32_t>(type, 0);
  KVIStoreIf<uint32_t>(item_flags, 0);
  KVIStoreIf<uint32_t>(length, 0);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);

  int32_t form_type;
  FORMAT* format;
  FIELDSPEC* fieldspec;
  if (uint32_t status =
          GetItemTypeInfo(doc->form, itemname, nullptr, &form_type, nullptr, &format, &fieldspec))
    return KVError(status);
  const uint16_t namelen = KVIItemNameBytes(itemname);
  ItemPlace place;
  if (uint32_t status = GetItemInfo(doc, itemname, namelen, form_type, fieldspec, &place))
    return KVError(status);
  KVGuard free_place([&] { FreePlace(place); });
  uint16_t flags;
  if (uint32_t status = FlagsOfPlace(doc, itemname, namelen, place, &flags)) return KVError(status);
  KVIStoreIf<int32_t>(type, place.type);
  KVIStoreIf<uint32_t>(item_flags, flags);
  KVIStoreIf<uint32_t>(length, place.type == KVTYPE_COMPOSITE ? kCompositeHandleBytes : ValueBytes(place));
  return KVSUCCESS;
}

// The length of a stored value once converted to the wanted type.
static uint32_t ConvertedLength(_api_session* session, const ItemPlace& place, const FORMAT* format,
                                int32_t wanted, uint32_t* length) {
  const KVLocked value(place.value.pool, place.value.block);
  if (value.bytes == nullptr) return KVFAIL_INTERNAL;
  return _DataLength(session, static_cast<uint32_t>(place.type), ValueBytes(place),
                     value.bytes + kTypeWordBytes, static_cast<uint32_t>(wanted), KVCONV_LINES, format,
                     nullptr, length);
}

uint32_t KVItemGetLength(uint32_t document, const char* itemname, int32_t* item_type, int32_t* buffer_type,
                         uint32_t* length) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (length == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStore<uint32_t>(length, 0);
  if (KVIEmpty(itemname)) return KVError(KVFAIL_NULL_PARAM);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);

  const TypeWords types = LoadTypes(item_type, buffer_type);
  const _DATAFIELD* field =
      doc->fieldlist != nullptr ? GetDatafield(doc, itemname, &types.buffer_type, &types.item_type) : nullptr;
  int32_t form_type;
  FORMAT* format;
  FIELDSPEC* fieldspec;
  if (uint32_t status =
          GetItemTypeInfo(doc->form, itemname, &types.item_type, &form_type, field, &format, &fieldspec))
    return KVError(status);
  if (field != nullptr) {
    KVIStore<uint32_t>(length, field->length);
    StoreItemType(item_type, field->form_type);
    return KVSUCCESS;
  }
  ItemPlace place;
  if (uint32_t status = GetItemInfo(doc, itemname, KVIItemNameBytes(itemname), form_type, fieldspec, &place))
    return KVError(status);
  KVGuard free_place([&] { FreePlace(place); });
  const int32_t wanted = WantedType(buffer_type, place.type);
  uint32_t converted = 0;
  if (uint32_t status = ConvertedLength(session, place, format, wanted, &converted)) return KVError(status);
  KVIStore<uint32_t>(length, converted);
  KVIStoreIf<int32_t>(buffer_type, wanted);
  StoreItemType(item_type, place.type);
  return KVSUCCESS;
}

// Text that a length limit has cut inside a character loses the rest of that character.
static void ReviseText(const int32_t* buffer_type, int32_t item_type, uint32_t* buffer_length, char* buffer) {
  const int32_t type = buffer_type != nullptr ? KVILoad<int32_t>(buffer_type) : item_type;
  if (type != KVTYPE_TEXT || buffer_length == nullptr) return;
  auto bytes = KVILoad<uint32_t>(buffer_length);
  if (bytes == 0) return;
  ReviseSplitCharacter(&bytes, buffer, 1);
  KVIStore<uint32_t>(buffer_length, bytes);
}

uint32_t KVItemFetch(uint32_t document, const char* itemname, int32_t* item_type, uint32_t* buffer_length,
                     int32_t* buffer_type, void* buffer) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (buffer == nullptr) return KVError(KVFAIL_NULL_PARAM);
  if (KVIEmpty(itemname)) return KVError(KVFAIL_NULL_PARAM);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  const uint32_t capacity = buffer_length != nullptr ? KVILoad<uint32_t>(buffer_length) : 0;
  KVIStoreIf<uint32_t>(buffer_length, 0);

  const TypeWords types = LoadTypes(item_type, buffer_type);
  int32_t form_type;
  FORMAT* format;
  FIELDSPEC* fieldspec;
  if (uint32_t status =
          GetItemTypeInfo(doc->form, itemname, &types.item_type, &form_type, nullptr, &format, &fieldspec))
    return KVError(status);
  ItemPlace place;
  if (uint32_t status =
          GetItemInfo(doc, itemname, KVIItemNameBytes(itemname), form_type, fieldspec, &place)) {
    ClearBuffer(buffer, capacity, types.buffer_type != 0 ? types.buffer_type : types.item_type);
    return KVError(status);
  }
  KVGuard free_place([&] { FreePlace(place); });
  const int32_t wanted = types.buffer_type != 0 ? types.buffer_type : place.type;
  uint32_t actual_bytes = 0;
  if (uint32_t status = ConvertPlace(session, place, KVCONV_LINES, format, static_cast<uint32_t>(wanted),
                                     capacity, buffer, &actual_bytes))
    return KVError(status);
  KVIStoreIf<uint32_t>(buffer_length, actual_bytes);
  KVIStoreIf<int32_t>(buffer_type, wanted);
  ReviseText(buffer_type, place.type, buffer_length, static_cast<char*>(buffer));
  StoreItemType(item_type, place.type);
  return KVSUCCESS;
}

uint32_t KVItemGetPointer(uint32_t document, const char* itemname, int32_t* item_type,
                          uint32_t* buffer_length, int32_t* buffer_type, void** buffer) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (buffer == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStore<void*>(buffer, nullptr);
  if (KVIEmpty(itemname)) return KVError(KVFAIL_NULL_PARAM);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  const uint32_t capacity = buffer_length != nullptr ? KVILoad<uint32_t>(buffer_length) : 0;
  KVIStoreIf<uint32_t>(buffer_length, 0);

  const TypeWords types = LoadTypes(item_type, buffer_type);
  const _DATAFIELD* cached =
      doc->fieldlist != nullptr ? GetDatafield(doc, itemname, &types.buffer_type, &types.item_type) : nullptr;
  int32_t form_type;
  FORMAT* format;
  FIELDSPEC* fieldspec;
  if (uint32_t status =
          GetItemTypeInfo(doc->form, itemname, &types.item_type, &form_type, cached, &format, &fieldspec))
    return KVError(status);
  if (cached != nullptr) {
    KVIStore<void*>(buffer, cached->buffer);
    KVIStoreIf<uint32_t>(buffer_length, cached->length);
    StoreItemType(item_type, cached->form_type);
    return KVSUCCESS;
  }
  const uint16_t namelen = KVIItemNameBytes(itemname);
  ItemPlace place;
  if (uint32_t status = GetItemInfo(doc, itemname, namelen, form_type, fieldspec, &place))
    return KVError(status);
  KVGuard free_place([&] { FreePlace(place); });
  const int32_t wanted = types.buffer_type != 0 ? types.buffer_type : place.type;
  void* converted = nullptr;
  uint32_t actual_bytes = 0;
  if (uint32_t status = ConvertPlace(session, place, KVCONV_LINES | KVCONV_ALLOC, format,
                                     static_cast<uint32_t>(wanted), capacity, &converted, &actual_bytes))
    return KVError(status);
  KVGuard free_converted([&] { KVIFree(converted); });
  _DATAFIELD* field = KVIDatafieldAdd(doc, itemname, namelen);
  if (field == nullptr) return KVError(KVFAIL_NO_MEMORY);
  field->type = wanted;
  field->form_type = form_type != 0 ? form_type : place.type;
  field->in_form = doc->form != nullptr;
  field->fieldspec = fieldspec;
  field->length = actual_bytes;
  field->buffer = converted;
  free_converted.Dismiss();  // owned by the document from here
  KVIStore<void*>(buffer, converted);
  KVIStoreIf<uint32_t>(buffer_length, actual_bytes);
  KVIStoreIf<int32_t>(buffer_type, wanted);
  StoreItemType(item_type, place.type);
  return KVSUCCESS;
}
