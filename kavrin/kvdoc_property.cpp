// Numbered properties of a document: one row each, with the function that reads it and the one that writes
// it.
//
// (1) What the document's record knows is read from it; the rest is asked of the open note at each call. (2)
// The title is computed once for an open document.
#include <cstring>
#include <iterator>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoSuchItem = 0x222;
constexpr uint16_t kMemberOriginator = 2;
constexpr uint16_t kMemberClass = 3;
constexpr uint16_t kMemberModified = 4;
constexpr uint16_t kMemberFlags = 7;
constexpr uint16_t kMemberAccessed = 8;
constexpr uint16_t kMemberAdded = 13;
constexpr uint16_t kClassMask = 0x7fff;
constexpr uint32_t kClassMax = 0x800;
constexpr uint16_t kTypeNoteReferences = 4;
constexpr uint16_t kObjectFile = 0;
constexpr uint32_t kTypeWordBytes = 2;
constexpr char kReferenceItem[] = "$REF";
constexpr uint16_t kReferenceItemBytes = 4;
constexpr char kFileItem[] = "$FILE";
constexpr uint16_t kFileItemBytes = 5;
constexpr char kSequenceStart = 0x7f;
constexpr int32_t kFirstPropertiesMax = KVPROP_DOC_PARENT_UNID;  // of programs before kVersionNewest

#pragma pack(push, 1)
// The value of "$REF": how many parents there are, and the first.
struct REFID {
  uint16_t Count;
  UNIVERSALNOTEID Parent;
};
#pragma pack(pop)
static_assert(sizeof(REFID) == 2 + 16);
static_assert(sizeof(ORIGINATORID) == 28);

// The document a property belongs to. The functions give a status that the frame reports.
struct PROPERTYCALL {
  _api_session* session;
  _DOCUMENT* doc;
};
using ReadProperty = uint32_t (*)(const PROPERTYCALL& call, void* value);
using WriteProperty = uint32_t (*)(const PROPERTYCALL& call, const void* value);

// ---- The document's own record

template <int32_t _DOCUMENT::*Field>
uint32_t ReadField(const PROPERTYCALL& call, void* value) {
  KVIStore<int32_t>(value, call.doc->*Field);
  return KVSUCCESS;
}

uint32_t ReadFormId(const PROPERTYCALL& call, void* value) {
  KVIStore<uint32_t>(value, call.doc->form != nullptr ? call.doc->form->formid : 0);
  return KVSUCCESS;
}

uint32_t ReadId(const PROPERTYCALL& call, void* value) {
  KVIStore<uint32_t>(value, call.doc->docid);
  return call.doc->docid != 0 ? KVSUCCESS : KVFAIL_DATA_UNAVAILABLE;
}

uint32_t ReadDatabase(const PROPERTYCALL& call, void* value) {
  KVIStore<uint32_t>(value, call.doc->dbase->database);
  return KVSUCCESS;
}

uint32_t ReadStrictBind(const PROPERTYCALL& call, void* value) {
  KVIStore<int32_t>(value, call.doc->form != nullptr);
  return KVSUCCESS;
}

uint32_t WriteStrictBind(const PROPERTYCALL& call, const void* value) {
  _DOCUMENT* doc = call.doc;
  if (KVILoad<int32_t>(value) == 0) {
    if (doc->form == nullptr) return KVSUCCESS;
    doc->form_save = doc->form;
    doc->form = nullptr;
    return KVSUCCESS;
  }
  if (doc->class_ != BRCLASS_DATA) return KVFAIL_STRICT_NO_FORM;
  if (doc->form_save != nullptr) {
    doc->form = doc->form_save;
    doc->form_save = nullptr;
    return KVSUCCESS;
  }
  _LoadDocumentForm(call.session, doc->dbase, doc);
  return doc->form != nullptr ? KVSUCCESS : KVFAIL_STRICT_NO_FORM;
}

uint32_t WriteStrictBindCompute(const PROPERTYCALL& call, const void* value) {
  call.doc->sb_compute = KVILoad<int32_t>(value) != 0;
  return KVSUCCESS;
}

// ---- The head of the note

// A member of the note's head, at most MemberBytes of it that start at Offset; the failed read of one leaves
// the value alone.
template <uint16_t Member, typename Stored, size_t Offset, size_t MemberBytes>
uint32_t ReadMember(const PROPERTYCALL& call, void* value) {
  static_assert(Offset + MemberBytes <= sizeof(Stored));
  Stored stored{};
  if (uint16_t brstatus = EngNoteInfoGet(call.doc->notehand, Member, &stored)) return brstatus;
  memcpy(value, reinterpret_cast<const char*>(&stored) + Offset, MemberBytes);
  return KVSUCCESS;
}

template <uint16_t Bit>
uint32_t ReadFlag(const PROPERTYCALL& call, void* value) {
  uint16_t flags = 0;
  if (uint16_t brstatus = EngNoteInfoGet(call.doc->notehand, kMemberFlags, &flags)) return brstatus;
  KVIStore<int32_t>(value, (flags & Bit) != 0);
  return KVSUCCESS;
}

uint32_t ReadClass(const PROPERTYCALL& call, void* value) {
  KVIStore<int32_t>(value, call.doc->class_ & kClassMask);
  return KVSUCCESS;
}

// The class that the document was opened with stays the one it is known by here.
uint32_t WriteClass(const PROPERTYCALL& call, const void* value) {
  const auto note_class = KVILoad<uint32_t>(value);
  if (note_class > kClassMax) return KVFAIL_BAD_ENUM;
  if (note_class == 0 || (note_class & (note_class - 1)) != 0) return KVFAIL_BAD_ENUM;
  const auto word = static_cast<uint16_t>(note_class);
  if (uint16_t brstatus = EngNoteInfoSet(call.doc->notehand, kMemberClass, &word)) return brstatus;
  call.doc->dirty = 1;
  return KVSUCCESS;
}

// ---- Attachments

bool IsFile(const BLOCKID& value, uint32_t value_bytes) {
  const KVLocked locked(value.pool, value.block);
  if (locked.bytes == nullptr || value_bytes < kTypeWordBytes + sizeof(OBJECT_DESCRIPTOR)) return false;
  return KVILoad<OBJECT_DESCRIPTOR>(locked.bytes + kTypeWordBytes).ObjectType == kObjectFile;
}

uint32_t ReadAttachmentCount(const PROPERTYCALL& call, void* value) {
  uint32_t file_count = 0;
  BLOCKID item;
  BLOCKID item_value;
  uint16_t type_word = 0;
  uint32_t value_bytes = 0;
  const EngNote note = call.doc->notehand;
  uint16_t brstatus =
      EngItemInfo(note, kFileItem, kFileItemBytes, &item, &type_word, &item_value, &value_bytes);
  while (!brstatus) {
    if (type_word == BRTYPE_OBJECT && IsFile(item_value, value_bytes)) ++file_count;
    brstatus =
        EngItemInfoNext(note, item, kFileItem, kFileItemBytes, &item, &type_word, &item_value, &value_bytes);
  }
  if ((brstatus & 0x3fff) != kNoSuchItem) return brstatus;
  KVIStore<uint32_t>(value, file_count);
  return KVSUCCESS;
}

// ---- The parent

uint32_t ReadHasParent(const PROPERTYCALL& call, void* value) {
  const uint16_t brstatus = EngItemInfo(call.doc->notehand, kReferenceItem, kReferenceItemBytes, nullptr,
                                        nullptr, nullptr, nullptr);
  if (brstatus && (brstatus & 0x3fff) != kNoSuchItem) return brstatus;
  KVIStore<int32_t>(value, brstatus == 0);
  return KVSUCCESS;
}

uint32_t ReadParent(const PROPERTYCALL& call, void* value) {
  KVIStore<UNIVERSALNOTEID>(value, UNIVERSALNOTEID{});
  uint16_t type_word = 0;
  BLOCKID item_value;
  uint32_t value_bytes = 0;
  const uint16_t brstatus = EngItemInfo(call.doc->notehand, kReferenceItem, kReferenceItemBytes, nullptr,
                                        &type_word, &item_value, &value_bytes);
  if (brstatus) return (brstatus & 0x3fff) == kNoSuchItem ? KVFAIL_DATA_UNAVAILABLE : brstatus;
  if (type_word != kTypeNoteReferences) return KVFAIL_DATA_UNAVAILABLE;
  if (value_bytes < kTypeWordBytes + sizeof(REFID)) return KVFAIL_DATA_UNAVAILABLE;
  const KVLocked locked(item_value.pool, item_value.block);
  if (locked.bytes == nullptr) return KVFAIL_INTERNAL;
  const auto reference = KVILoad<REFID>(locked.bytes + kTypeWordBytes);
  if (reference.Count == 0) return KVFAIL_DATA_UNAVAILABLE;
  KVIStore<UNIVERSALNOTEID>(value, reference.Parent);
  return KVSUCCESS;
}

uint32_t WriteParent(const PROPERTYCALL& call, const void* value) {
  const REFID reference{.Count = 1, .Parent = KVILoad<UNIVERSALNOTEID>(value)};
  constexpr UNIVERSALNOTEID kNoParent{};
  // A parent that stays must not be joined by a second one.
  const uint16_t deleted = EngItemDelete(call.doc->notehand, kReferenceItem, kReferenceItemBytes);
  if (deleted && (deleted & 0x3fff) != kNoSuchItem) return deleted;
  call.doc->dirty = 1;
  if (memcmp(&reference.Parent, &kNoParent, sizeof kNoParent) == 0) return KVSUCCESS;
  return EngItemAppend(call.doc->notehand, kItemSummary, kReferenceItem, kReferenceItemBytes,
                       kTypeNoteReferences, &reference, sizeof reference);
}

// ---- The title

bool HasSequences(const char* value, uint16_t value_bytes) {
  const uint16_t type_word = KVI_BRDataTypeRead(value, 0);
  if (type_word == BRTYPE_TEXT_LIST) return true;
  return type_word == BRTYPE_TEXT &&
         memchr(value + kTypeWordBytes, kSequenceStart, value_bytes - kTypeWordBytes) != nullptr;
}

// Makes the document's title of the value of its form's title formula.
uint32_t TitleFromValue(const PROPERTYCALL& call, EngMem result, uint16_t result_bytes) {
  const KVLocked value(result);  // converted where it lies
  if (value.bytes == nullptr || result_bytes < kTypeWordBytes) return KVFAIL_DATA_UNAVAILABLE;
  const char* source = value.bytes;
  uint32_t source_bytes = result_bytes;
  if (HasSequences(source, result_bytes)) {
    if (uint32_t status = _TranslateItem(call.session, nullptr, call.doc, value.bytes, &source_bytes))
      return status;
    source = call.session->buffer;
  }
  void* title = nullptr;
  if (uint32_t status =
          _DataConvert(call.session, nullptr, nullptr, GetKVType(KVI_BRDataTypeRead(source, 0)),
                       source_bytes - kTypeWordBytes, source + kTypeWordBytes, KVCONV_ALLOC | KVCONV_LINES,
                       nullptr, nullptr, KVTYPE_TEXT, 0, &title, nullptr))
    return status;
  call.doc->title = static_cast<char*>(title);
  return KVSUCCESS;
}

uint32_t EvaluateTitle(const PROPERTYCALL& call, EngCompute compute) {
  EngMem result = 0;
  uint16_t result_bytes = 0;
  if (uint16_t brstatus = EngComputeEvaluate(compute, call.doc->notehand, &result, &result_bytes, nullptr,
                                             nullptr, nullptr))
    return brstatus;
  KVGuard free_result([&] {
    if (result) EngMemFree(result);
  });
  return TitleFromValue(call, result, result_bytes);
}

// A failing end is reported once: the title it leaves is good.
uint32_t ComputeTitle(const PROPERTYCALL& call) {
  const _DOCUMENT* doc = call.doc;
  if (doc->title != nullptr || doc->form == nullptr || doc->form->title_formula == nullptr) return KVSUCCESS;
  EngCompute compute = 0;
  if (uint16_t brstatus = EngComputeBegin(0, doc->form->title_formula, &compute)) return brstatus;
  const uint32_t status = EvaluateTitle(call, compute);
  const uint16_t ended = EngComputeEnd(compute);
  return status ? status : ended;
}

const char* TitleOf(const _DOCUMENT* doc) { return doc->title != nullptr ? doc->title : ""; }

uint32_t ReadTitleLength(const PROPERTYCALL& call, void* value) {
  if (uint32_t status = ComputeTitle(call)) return status;
  KVIStore<uint32_t>(value, static_cast<uint32_t>(strlen(TitleOf(call.doc))));
  return KVSUCCESS;
}

uint32_t ReadTitle(const PROPERTYCALL& call, void* value) {
  if (uint32_t status = ComputeTitle(call)) return status;
  const char* title = TitleOf(call.doc);
  memcpy(value, title, strlen(title) + 1);
  return KVSUCCESS;
}

// ---- The table

struct DOCPROPERTY {
  int32_t property;
  ReadProperty read;
  WriteProperty write;  // null: read only
};

constexpr DOCPROPERTY kProperties[] = {
    {KVPROP_DOC_STRICT_BIND, ReadStrictBind, WriteStrictBind},
    {KVPROP_DOC_FORM_ID, ReadFormId, nullptr},
    {KVPROP_DOC_DIRTY, ReadField<&_DOCUMENT::dirty>, nullptr},
    {KVPROP_DOC_ID, ReadId, nullptr},
    {KVPROP_DOC_UNID, ReadMember<kMemberOriginator, ORIGINATORID, 0, 16>, nullptr},
    {KVPROP_DOC_OID, ReadMember<kMemberOriginator, ORIGINATORID, 0, sizeof(ORIGINATORID)>, nullptr},
    {KVPROP_DOC_DATABASE, ReadDatabase, nullptr},
    {KVPROP_DOC_ATTACHMENT_COUNT, ReadAttachmentCount, nullptr},
    {KVPROP_DOC_NOTE_STAMP, ReadMember<kMemberOriginator, ORIGINATORID, 8, 8>, nullptr},
    {KVPROP_DOC_INFO_4, ReadMember<kMemberModified, TIMEDATE, 0, sizeof(TIMEDATE)>, nullptr},
    {KVPROP_DOC_INFO_8, ReadMember<kMemberAccessed, TIMEDATE, 0, sizeof(TIMEDATE)>, nullptr},
    {KVPROP_DOC_CLASS, ReadClass, WriteClass},
    {KVPROP_DOC_TITLE_LENGTH, ReadTitleLength, nullptr},
    {KVPROP_DOC_TITLE, ReadTitle, nullptr},
    {KVPROP_DOC_EMBEDDED_FORM, ReadField<&_DOCUMENT::embedded_form>, nullptr},
    {KVPROP_DOC_ENCRYPTED, ReadField<&_DOCUMENT::encrypted>, nullptr},
    {KVPROP_DOC_FLAG_1, ReadFlag<1>, nullptr},
    {KVPROP_DOC_FLAG_2, ReadFlag<2>, nullptr},
    {KVPROP_DOC_HAS_PARENT, ReadHasParent, nullptr},
    {KVPROP_DOC_PARENT_UNID, ReadParent, WriteParent},
    {KVPROP_DOC_INFO_13, ReadMember<kMemberAdded, TIMEDATE, 0, sizeof(TIMEDATE)>, nullptr},
    {KVPROP_DOC_STRICT_BIND_COMPUTE, ReadField<&_DOCUMENT::sb_compute>, WriteStrictBindCompute},
};

consteval bool IsNumberedFromOne() {
  for (int32_t row = 0; row < static_cast<int32_t>(std::size(kProperties)); ++row)
    if (kProperties[row].property != row + 1) return false;
  return true;
}
static_assert(IsNumberedFromOne(), "row n is property n + 1");

const DOCPROPERTY* FindProperty(int32_t property) {
  if (property < 1 || property > static_cast<int32_t>(std::size(kProperties))) return nullptr;
  return &kProperties[property - 1];
}

}  // namespace

uint32_t KVDocumentGetProperty(uint32_t document, int32_t property, void* value) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (value == nullptr) return KVError(KVFAIL_NULL_PARAM);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  // Earlier programs do not know the newer properties; what they may set is not looked at.
  if (session->kvprog_version < kVersionNewest && property > kFirstPropertiesMax)
    return KVError(KVFAIL_BAD_PROPERTY);
  const DOCPROPERTY* row = FindProperty(property);
  if (row == nullptr) return KVError(KVFAIL_BAD_PROPERTY);
  if (uint32_t status = row->read({.session = session, .doc = doc}, value)) return KVError(status);
  return KVSUCCESS;
}

uint32_t KVDocumentSetProperty(uint32_t document, int32_t property, const void* value) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (value == nullptr) return KVError(KVFAIL_NULL_PARAM);
  _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  const DOCPROPERTY* row = FindProperty(property);
  if (row == nullptr) return KVError(KVFAIL_BAD_PROPERTY);
  if (row->write == nullptr) return KVError(KVFAIL_READ_ONLY_PROPERTY);
  if (uint32_t status = row->write({.session = session, .doc = doc}, value)) return KVError(status);
  return KVSUCCESS;
}

// ---- Special records

uint32_t KVDocumentLocateByClass(uint32_t database, int32_t doc_class) {
  constexpr uint32_t kFirstClass = 2;
  constexpr uint32_t kLastClass = 256;
  _api_session* session;
  if (KVIEnter(database, &session)) return 0;
  const _DATABASE* dbase = _GetDatabase(session, database);
  if (dbase == nullptr) {
    KVError(KVFAIL_NO_DATABASE);
    return 0;
  }
  const auto class_bit = static_cast<uint32_t>(doc_class);
  if (class_bit < kFirstClass || class_bit > kLastClass || (class_bit & (class_bit - 1)) != 0) return 0;
  uint32_t docid = 0;
  const auto special = static_cast<uint16_t>(BRCLASS_DEFAULT | class_bit);
  return EngDbSpecialIdGet(dbase->dbhand, special, &docid) ? 0 : docid;
}
