// Fields: read from the records of a page into slots of a form, shared ones through the database's own list,
// and told to programs.
//
// (1) A record is hostile: its lengths are compared with its bytes before anything is copied, a formula's own
// length with its room, and a keyword list with its bytes, so that all later readers may trust a slot.
// (2) The texts of a slot with KVFIELD_SHARED belong to the shared field of the database's list, which holds
// the formula texts too; any other slot owns its own.  (3) A slot that could not be filled is empty.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kOpenWord = 2;

constexpr uint32_t kFlagHasKeywords = 0x200;
constexpr uint32_t kFlagKeywords3 = 0x4000;
constexpr uint32_t kFlagKeywords4 = 0x8000;
constexpr uint32_t kFlagComputedWhenMade = 8;
constexpr uint16_t kItemNames = 0x20;

// Field flags and the item flags that values of the field get.
struct ITEMFLAGROW {
  uint32_t field_flag;
  uint16_t item_flag;
};
constexpr ITEMFLAGROW kItemFlags[] = {{KVFIELD_EDITORS, kItemNames}, {KVFIELD_NAMES, 0x0040},
                                      {KVFIELD_READERS, 0x0400},     {KVFIELD_PROTECTED, 0x0200},
                                      {KVFIELD_SIGN, 0x0001},        {KVFIELD_SEAL, 0x0002}};

// The parts of a field record, which lie in it.
struct FIELDPARTS {
  CDFIELD head;
  const char* default_code;
  const char* translation_code;
  const char* validation_code;
  const char* name;
  const char* description;
  const char* keywords;
  uint16_t keyword_bytes;
};

// An empty formula is none.
bool IsWholeFormula(const char* code, uint16_t code_bytes) {
  if (code_bytes == 0) return true;
  if (code_bytes < sizeof(BRYND_FORMULA)) return false;
  const auto told_bytes = KVILoad<uint16_t>(code);
  return told_bytes >= sizeof(BRYND_FORMULA) && told_bytes <= code_bytes;
}

bool IsWholeTextList(const char* list, uint32_t list_bytes) {
  constexpr uint32_t kWordBytes = 2;
  if (list_bytes == 0) return true;
  if (list_bytes < kWordBytes) return false;
  const uint32_t count = KVILoad<uint16_t>(list);
  uint64_t needed = kWordBytes + uint64_t{count} * kWordBytes;
  if (needed > list_bytes) return false;
  for (uint32_t entry = 0; entry < count; ++entry)
    needed += KVILoad<uint16_t>(list + kWordBytes + entry * kWordBytes);
  return needed <= list_bytes;
}

// A record without room for keywords has none. False when a part passes the record's end.
bool ReadParts(uint16_t signature, uint32_t structsize, const char* buffer, uint32_t buffer_bytes,
               FIELDPARTS* parts) {
  *parts = {};
  if (buffer_bytes < structsize) return false;
  KVICopyBytes(&parts->head, buffer, structsize);
  const CDFIELD& head = parts->head;
  const bool has_keywords = signature == kCdField && (head.Flags & kFlagHasKeywords) != 0;
  parts->keyword_bytes = has_keywords ? head.TextValueLength : uint16_t{0};
  const uint32_t needed = structsize + head.DVLength + head.ITLength + head.IVLength + head.NameLength +
                          head.DescLength + parts->keyword_bytes;
  if (needed > buffer_bytes) return false;
  parts->default_code = buffer + structsize;
  parts->translation_code = parts->default_code + head.DVLength;
  parts->validation_code = parts->translation_code + head.ITLength;
  parts->name = parts->validation_code + head.IVLength;
  parts->description = parts->name + head.NameLength;
  parts->keywords = parts->description + head.DescLength;
  return IsWholeFormula(parts->default_code, head.DVLength) &&
         IsWholeFormula(parts->translation_code, head.ITLength) &&
         IsWholeFormula(parts->validation_code, head.IVLength) &&
         IsWholeTextList(parts->keywords, parts->keyword_bytes);
}

// A copy of nothing is null and no failure.
bool CopyPart(char** target, const char* part, uint16_t part_bytes) {
  if (part_bytes == 0) return true;
  *target = KVICopyText(part, part_bytes);
  return *target != nullptr;
}

bool CopyParts(const FIELDPARTS& parts, FIELDSPEC* fieldspec) {
  const CDFIELD& head = parts.head;
  char* keywords = nullptr;
  if (!CopyPart(&keywords, parts.keywords, parts.keyword_bytes)) return false;
  fieldspec->keywords = static_cast<uint16_t*>(static_cast<void*>(keywords));
  if (!CopyPart(&fieldspec->dvformula, parts.default_code, head.DVLength)) return false;
  if (!CopyPart(&fieldspec->itformula, parts.translation_code, head.ITLength)) return false;
  if (!CopyPart(&fieldspec->ivformula, parts.validation_code, head.IVLength)) return false;
  fieldspec->name = KVICopyText(parts.name, head.NameLength);
  if (fieldspec->name == nullptr) return false;
  return CopyPart(&fieldspec->description, parts.description, head.DescLength);
}

uint16_t ItemFlagsOf(uint32_t field_flags) {
  uint16_t item_flags = 0;
  for (const ITEMFLAGROW& row : kItemFlags)
    if (field_flags & row.field_flag) item_flags |= row.item_flag;
  return item_flags;
}

// KVFAIL_NO_MEMORY; the slot is empty then.
uint32_t FillSlot(const FIELDPARTS& parts, FIELDSPEC* fieldspec) {
  const CDFIELD& head = parts.head;
  *fieldspec = {};
  fieldspec->flags = head.Flags;
  KVICopyBytes(&fieldspec->font, &head.FontID, sizeof fieldspec->font);
  fieldspec->format = {.nfmt = head.NumberFormat,
                       .tfmt = head.TimeFormat,
                       .listsep = head.ListDelim,
                       .item_flags = ItemFlagsOf(head.Flags)};
  if (head.DataType == BRTYPE_USER) {
    fieldspec->flags |= KVFIELD_EDITORS;
    fieldspec->format.item_flags |= kItemNames;
  }
  fieldspec->type = static_cast<int32_t>(GetKVType(head.DataType));
  if (!CopyParts(parts, fieldspec)) {
    ClearField(fieldspec);
    return KVFAIL_NO_MEMORY;
  }
  fieldspec->namelen = head.NameLength;
  fieldspec->desclen = head.DescLength;
  fieldspec->keylen = parts.keyword_bytes;
  return KVSUCCESS;
}

// Which passes a form needs is told by its fields as they are read.
void TellForm(_FORMSPEC* formspec, const FIELDSPEC& fieldspec) {
  const bool editable = (fieldspec.flags & KVFIELD_EDITABLE) != 0;
  const uint32_t kind = fieldspec.flags & KVFIELD_KIND_MASK;
  if ((editable && fieldspec.itformula != nullptr) || kind == KVFIELD_KIND_COMPUTED) formspec->compute = 1;
  if ((editable && fieldspec.dvformula != nullptr) || kind == kFlagComputedWhenMade)
    formspec->compute_new = 1;
  if (editable && fieldspec.ivformula != nullptr) {
    formspec->kv_flags |= KVFORM_VALIDATES;
    formspec->compute_valid = 1;
  }
}

// ---- Shared fields

_SHAREDFIELDSPEC* FindShared(const _KVDBINFO* dbinfo, uint32_t noteid) {
  _SHAREDFIELDSPEC* shared = dbinfo->sfields;
  while (shared != nullptr && shared->noteid != noteid) shared = shared->next;
  return shared;
}

uint32_t FindSharedRecord(const _DATABASE* dbase, const FIELDPARTS& parts, uint32_t* noteid) {
  char* name = KVICopyText(parts.name, parts.head.NameLength);
  if (name == nullptr) return KVFAIL_NO_MEMORY;
  const uint16_t brstatus = EngDesignFind(dbase->dbhand, name, BRCLASS_FIELD, noteid);
  KVIFree(name);
  return brstatus ? KVFAIL_NO_SHARED_FIELD : KVSUCCESS;
}

// The first field of the record's first page item. The layout is taken to be that of the record which refers
// to it.
uint32_t FillFromRecord(EngNote note, uint16_t signature, uint32_t structsize, FIELDSPEC* fieldspec) {
  CDITEMWALK walk = KVICDWalkItems(note, kFormBodyItem, kFormBodyItemBytes);
  KVGuard end_walk([&] { KVICDEndWalk(&walk); });
  while (KVICDNextItemRecord(&walk) && walk.item_count == 1) {
    if (walk.run.header.signature != kCdField) continue;
    FIELDPARTS parts;
    if (!ReadParts(signature, structsize, walk.run.record, walk.run.header.length, &parts))
      return KVFAIL_BAD_FORMAT;
    return FillSlot(parts, fieldspec);
  }
  return KVFAIL_NO_FIELD;  // a page that cannot be read has none either
}

// Puts a field into the database's list, which owns its texts from then on.
uint32_t KeepShared(_KVDBINFO* dbinfo, uint32_t noteid, FIELDSPEC* fieldspec) {
  auto* shared = KVIAllocate<_SHAREDFIELDSPEC>();
  if (shared == nullptr) {
    ClearField(fieldspec);
    return KVFAIL_NO_MEMORY;
  }
  fieldspec->flags |= KVFIELD_SHARED;
  shared->noteid = noteid;
  shared->fieldspec = *fieldspec;
  shared->next = dbinfo->sfields;
  dbinfo->sfields = shared;
  return KVSUCCESS;
}

// A definition that the database's list has already is copied and no more: only the form that reads it first
// is told of the passes it needs.
uint32_t FillShared(_DATABASE* dbase, uint16_t signature, uint32_t structsize, const FIELDPARTS& parts,
                    _FORMSPEC* formspec, FIELDSPEC* fieldspec) {
  uint32_t noteid = 0;
  if (uint32_t status = FindSharedRecord(dbase, parts, &noteid)) return status;
  if (const _SHAREDFIELDSPEC* shared = FindShared(dbase->dbinfo, noteid)) {
    *fieldspec = shared->fieldspec;
    return KVSUCCESS;
  }
  EngNote note = 0;
  if (uint16_t brstatus = EngNoteOpen(dbase->dbhand, noteid, kOpenWord, &note)) return brstatus;
  const uint32_t status = FillFromRecord(note, signature, structsize, fieldspec);
  EngNoteClose(note);
  if (status) return status;
  TellForm(formspec, *fieldspec);
  return KeepShared(dbase->dbinfo, noteid, fieldspec);
}

// Where formula texts are kept: the slot itself, or the shared field that it is a copy of.
FIELDSPEC* TextKeeper(const _DATABASE* dbase, FIELDSPEC* fieldspec) {
  if ((fieldspec->flags & KVFIELD_SHARED) == 0) return fieldspec;
  for (_SHAREDFIELDSPEC* shared = dbase->dbinfo->sfields; shared != nullptr; shared = shared->next)
    if (shared->fieldspec.name == fieldspec->name) return &shared->fieldspec;
  return fieldspec;
}

char* FormulaText(const char* formula, char** formula_string) {
  if (*formula_string != nullptr) return *formula_string;
  return formula != nullptr ? FetchDesignFormula(formula, formula_string, 0) : nullptr;
}

}  // namespace

uint32_t KVIFieldGetSpec(_DATABASE* dbase, uint16_t signature, const char* buffer, uint32_t buffer_bytes,
                         _FORMSPEC* formspec, FIELDSPEC* fieldspec) {
  *fieldspec = {};
  const uint32_t structsize = signature == kCdFieldPre36 ? sizeof(CDFIELD_PRE_36) : sizeof(CDFIELD);
  FIELDPARTS parts;
  if (!ReadParts(signature, structsize, buffer, buffer_bytes, &parts)) return KVFAIL_BAD_FORMAT;
  if (parts.head.Flags & KVFIELD_SHARED)
    return FillShared(dbase, signature, structsize, parts, formspec, fieldspec);
  if (uint32_t status = FillSlot(parts, fieldspec)) return status;
  TellForm(formspec, *fieldspec);
  return KVSUCCESS;
}

void ClearField(FIELDSPEC* fieldspec) {
  KVIFree(fieldspec->name);
  KVIFree(fieldspec->description);
  KVIFree(fieldspec->keywords);
  KVIFree(fieldspec->dvformula);
  KVIFree(fieldspec->itformula);
  KVIFree(fieldspec->ivformula);
  KVIFree(fieldspec->dvformula_string);
  KVIFree(fieldspec->itformula_string);
  KVIFree(fieldspec->ivformula_string);
  *fieldspec = {};
}

// How keywords are offered: each of four words has its own pair of bits.
static int32_t KeywordsOf(uint32_t flags) {
  if ((flags & kFlagHasKeywords) == 0) return 0;
  switch (flags & (kFlagKeywords3 | kFlagKeywords4)) {
    case kFlagKeywords3 | kFlagKeywords4:
      return 1;
    case kFlagKeywords4:
      return 4;
    case kFlagKeywords3:
      return 3;
    default:
      return 2;
  }
}

void KVIFieldGetFIELDFromSpec(_DATABASE* dbase, KVFIELD* field, FIELDSPEC* fieldspec,
                              uint32_t name_bytes_max) {
  field->type = fieldspec->type;
  field->field_flags = fieldspec->flags & KVFIELD_FLAGS_MASK;
  field->keywords = KeywordsOf(fieldspec->flags);
  field->keyword_list = field->keywords != 0 ? fieldspec->keywords : nullptr;
  field->font = fieldspec->font;
  GetFormat(&field->format, &fieldspec->format.nfmt, &fieldspec->format.tfmt, &fieldspec->format.listsep);
  field->description = fieldspec->description;
  const uint32_t name_bytes = fieldspec->namelen < name_bytes_max ? fieldspec->namelen : name_bytes_max;
  KVIstrnncpy(field->name, fieldspec->name, name_bytes);
  if (!dbase->fetch_design_code) return;
  FIELDSPEC* texts = TextKeeper(dbase, fieldspec);
  field->default_value_formula = FormulaText(texts->dvformula, &texts->dvformula_string);
  field->input_translate_formula = FormulaText(texts->itformula, &texts->itformula_string);
  field->input_validate_formula = FormulaText(texts->ivformula, &texts->ivformula_string);
}

// ---- Names

static bool IsSpace(unsigned char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

static bool OpensFieldName(unsigned char character) {
  if ((character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z')) return true;
  if (character == '$' || character == '_' || character == '.') return true;
  return character >= 0x80 || kCharacterBytes[character] != 0;
}

int KVIFieldValidateName(const char* FieldName, uint32_t NameLen) {
  if (FieldName == nullptr || NameLen == 0 || NameLen > kFieldNameBytesMax) return 0;
  if (!OpensFieldName(static_cast<unsigned char>(FieldName[0]))) return 0;
  for (uint32_t place = 0; place < NameLen; ++place)
    if (IsSpace(static_cast<unsigned char>(FieldName[place]))) return 0;
  return 1;
}

// ---- Fields by number

static FIELDSPEC* FieldThroughSubforms(_FORMSPEC* pformspec, uint32_t wanted, bool reads_subforms) {
  uint32_t passed = 0;
  for (uint32_t slot = 0; slot < pformspec->fieldcount; ++slot) {
    FIELDSPEC* fieldspec = &pformspec->fieldlist[slot];
    if (fieldspec->psubform == nullptr) {
      if (passed == wanted) return fieldspec;
      ++passed;
    } else if (reads_subforms) {
      const uint32_t count = fieldspec->psubform->fieldcount;
      if (wanted - passed < count) return &fieldspec->psubform->fieldlist[wanted - passed];
      passed += count;
    }
  }
  return nullptr;
}

FIELDSPEC* KVIFormSpecGetFieldSpec(_FORMSPEC* pformspec, uint32_t index) {
  if (index == 0 || index > pformspec->total_fieldcount) return nullptr;
  if (pformspec->subformcount == 0)
    return index <= pformspec->fieldcount ? &pformspec->fieldlist[index - 1] : nullptr;
  const bool reads_subforms = pformspec->pdbase != nullptr && pformspec->pdbase->read_subf_fields;
  return FieldThroughSubforms(pformspec, index - 1, reads_subforms);
}

// ---- What programs ask

namespace {

constexpr uint32_t kOldNameBytes = 34;

// The record of a program's version: names were shorter once, and the name is the last member.
struct FIELDLAYOUT {
  size_t bytes;
  uint32_t name_bytes_max;
};
FIELDLAYOUT LayoutOf(const _api_session* session) {
  if (session->kvprog_version >= kVersionLongNames) return {sizeof(KVFIELD), kFieldNameBytesMax};
  return {offsetof(KVFIELD, name) + kOldNameBytes, kOldNameBytes - 1};
}

// A form or a subform; null when the id is that of neither.
_FORMSPEC* FindSpec(_api_session* session, _DATABASE* dbase, uint32_t formid) {
  _FORMSPEC* spec = nullptr;
  if (_KVIFormGetSpec(session, dbase, formid, nullptr, &spec) == KVSUCCESS) return spec;
  return KVISubformGetSpec(dbase, formid, &spec) == KVSUCCESS ? spec : nullptr;
}

// Bytes of a record from a place in it on; 0 for a place outside.
size_t BytesBehind(const void* place, const void* record, size_t record_bytes) {
  const auto address = reinterpret_cast<uintptr_t>(place);
  const auto start = reinterpret_cast<uintptr_t>(record);
  return address >= start && address - start < record_bytes ? record_bytes - (address - start) : 0;
}

}  // namespace

uint32_t KVFieldGetCount(uint32_t database, uint32_t formid) {
  _api_session* session;
  if (KVIEnter(database, &session)) return 0;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) {
    KVError(KVFAIL_NO_DATABASE);
    return 0;
  }
  const _FORMSPEC* spec = FindSpec(session, dbase, formid);
  if (spec == nullptr) return 0;
  return dbase->read_subf_fields ? spec->total_fieldcount : spec->fieldcount - spec->subformcount;
}

uint32_t KVFieldList(uint32_t database, uint32_t formid, int32_t list, KVFIELD* field) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  if (field == nullptr) return KVError(KVFAIL_NULL_PARAM);
  const FIELDLAYOUT layout = LayoutOf(session);
  memset(static_cast<void*>(field), 0, layout.bytes);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  _FORMSPEC* spec = FindSpec(session, dbase, formid);
  if (spec == nullptr) return KVError(KVFAIL_NO_FORM);
  if (uint32_t status = ListIterate(list, &spec->index, spec->total_fieldcount)) return KVError(status);
  FIELDSPEC* fieldspec = KVIFormSpecGetFieldSpec(spec, spec->index);
  if (fieldspec == nullptr) return KVError(KVFAIL_END_OF_DATA);
  KVIFieldGetFIELDFromSpec(dbase, field, fieldspec, layout.name_bytes_max);
  return KVSUCCESS;
}

uint32_t KVFieldFetch(uint32_t database, uint32_t formid, const char* fieldname, KVFIELD* field) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  if (KVIEmpty(fieldname)) return KVError(KVFAIL_NULL_PARAM);
  if (field == nullptr) return KVError(KVFAIL_NULL_PARAM);
  const FIELDLAYOUT layout = LayoutOf(session);
  // A name inside the record goes when the record is cleared; reading the form may use the session's buffer.
  char own_name[kFieldNameBytesMax + 1];
  if (const size_t room = BytesBehind(fieldname, field, layout.bytes)) {
    KVIstrnncpy(own_name, fieldname, room < kFieldNameBytesMax ? room : kFieldNameBytesMax);
    fieldname = own_name;
  }
  memset(static_cast<void*>(field), 0, layout.bytes);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  _FORMSPEC* spec = FindSpec(session, dbase, formid);
  if (spec == nullptr) return KVError(KVFAIL_NO_FORM);
  FIELDSPEC* fieldspec = GetFieldspec(spec, fieldname);
  if (fieldspec == nullptr) return KVError(KVFAIL_NO_FIELD);
  KVIFieldGetFIELDFromSpec(dbase, field, fieldspec, layout.name_bytes_max);
  return KVSUCCESS;
}
