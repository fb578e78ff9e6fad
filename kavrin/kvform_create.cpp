// New forms and subforms: the public record is checked and made into a _FORMSPEC, which with the page becomes
// a stored record.
//
// (1) Nothing is stored before everything has been written into the note: a failure leaves no record.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint32_t kFormFlagsStored = 0x3f73;  // of the record's first flag word
constexpr uint32_t kFormFlagsOwn = 0x1f0000;
constexpr uint32_t kSubformFlags = KVSUBFORM_FLAG_A | KVSUBFORM_FLAG_N | KVSUBFORM_FLAG_X;
constexpr uint16_t kSubformColor = 1;
constexpr char kAlwaysOfSubform[] = "CU3";
constexpr uint16_t kFormClass = BRCLASS_FORM;
constexpr uint16_t kNoteClassMember = 3;
constexpr uint16_t kNoteIdMember = 1;
constexpr uint32_t kFormulaTextMax = 0xffff;
constexpr uint32_t kNoDocument = 0xffffffff;  // the id of no document

// The caller's names, with a NUL behind the last byte of each member.
struct FORMNAMES {
  char name[sizeof(KVFORM::name) + 1];
  char menu_name[sizeof(KVFORM::menu_name) + 1];
  char cascade_name[sizeof(KVFORM::cascade_name) + 1];
};

FORMNAMES NamesOf(const KVFORM& form) {
  FORMNAMES names;
  KVIstrnncpy(names.name, form.name, sizeof form.name);
  KVIstrnncpy(names.menu_name, form.menu_name, sizeof form.menu_name);
  KVIstrnncpy(names.cascade_name, form.cascade_name, sizeof form.cascade_name);
  return names;
}

FORMNAMES NamesOf(const KVSUBFORM& subform) {
  FORMNAMES names{};
  KVIstrnncpy(names.name, subform.name, sizeof subform.name);
  KVIstrnncpy(names.menu_name, subform.menu_name, sizeof subform.menu_name);
  return names;
}

uint32_t ValidateNames(_api_session* session, _DATABASE* pdbase, uint32_t kind, const FORMNAMES& names) {
  if (uint32_t status =
          KVIDesignNoteMakeName(names.name, names.menu_name, names.cascade_name, session->buffer))
    return status;
  if (!_KVIDesignNoteIsQIXNameUnique(session, pdbase, kind, names.name, names.menu_name, names.cascade_name))
    return KVFAIL_NAME_IN_USE;
  return KVSUCCESS;
}

bool IsAbove(int32_t value, uint32_t highest) { return static_cast<uint32_t>(value) > highest; }

uint32_t ValidateForm(_api_session* session, _DATABASE* pdbase, const KVFORM& form, const FORMNAMES& names) {
  if (uint32_t status = ValidateNames(session, pdbase, KVDESIGN_FORM, names)) return status;
  if (IsAbove(form.type, 2)) return KVFAIL_BAD_ENUM;
  if (IsAbove(form.update, 3)) return KVFAIL_BAD_ENUM;
  if (IsAbove(form.update_trigger, 2)) return KVFAIL_BAD_ENUM;
  if (IsAbove(form.on_conflict, 1)) return KVFAIL_BAD_ENUM;
  return KVSUCCESS;
}

// An empty text is none.
bool CopyString(char** target, const char* text) {
  if (KVIEmpty(text)) return true;
  *target = KVICopyText(text, strlen(text));
  return *target != nullptr;
}

bool CopyNames(const FORMNAMES& names, _FORMSPEC* spec) {
  if (!CopyString(&spec->name, names.name)) return false;
  spec->namelen = static_cast<uint16_t>(strlen(names.name));
  return CopyString(&spec->menu_name, names.menu_name) && CopyString(&spec->cascade_name, names.cascade_name);
}

// The values were checked, so all of them translate.
void TakeFlags(const KVFORM& form, _FORMSPEC* spec) {
  int32_t type = form.type;
  int32_t update = form.update;
  int32_t update_trigger = form.update_trigger;
  uint32_t formopen_flags = form.formopen_flags;
  spec->flags = form.form_flags & kFormFlagsStored;
  spec->kv_flags = form.form_flags & kFormFlagsOwn;
  (void)KVIFormTranslateType(kTranslateWrite, &type, &spec->flags);
  (void)KVIFormTranslateUpdate(kTranslateWrite, &update, &spec->flags);
  if (update >= 1 && update_trigger != 0)
    (void)KVIFormTranslateUpdateTrigger(kTranslateWrite, &update_trigger, &spec->flags);
  (void)KVIFormTranslateOpen(kTranslateWrite, &formopen_flags, &spec->flags);
}

_FORMSPEC* NewSpec(_DATABASE* pdbase, uint32_t kind, const FORMNAMES& names) {
  auto* spec = KVIAllocate<_FORMSPEC>();
  if (spec == nullptr) return nullptr;
  spec->pdbase = pdbase;
  spec->design_flags = kind;
  if (CopyNames(names, spec)) return spec;
  ClearForm(spec);
  return nullptr;
}

// ---- Parts of the record

uint16_t PutInfo(EngNote nh, const _FORMSPEC& spec) {
  uint32_t flags = spec.flags | KVFORMSPEC_WRITTEN;
  if (spec.kv_flags & KVFORM_FLAG_0800) flags |= KVFORMSPEC_FLAG_0800;
  if (spec.kv_flags & KVFORM_ANONYMOUS) flags |= KVFORMSPEC_ANONYMOUS;
  CDDOCUMENT info{};
  info.Signature = kCdDocument;
  info.Length = sizeof info;
  info.PaperColor = spec.color;
  info.FormFlags = static_cast<uint16_t>(flags & 0xffff);
  info.FormFlags2 = static_cast<uint16_t>(flags >> 16);
  return EngItemAppend(nh, 0, "$Info", 5, BRTYPE_COMPOSITE, &info, sizeof info);
}

uint32_t PutWindowTitle(_api_session* session, EngNote nh, const char* text) {
  if (KVIEmpty(text)) return KVSUCCESS;
  const size_t text_bytes = strlen(text);
  if (text_bytes > kFormulaTextMax) return KVFAIL_DATA_TOO_LONG;
  EngMem formula = 0;
  EngStatus error = 0;
  uint16_t formula_bytes = 0, line = 0, column = 0, offset = 0, error_bytes = 0;
  const uint16_t compiled = EngFormulaCompile(nullptr, 0, text, static_cast<uint16_t>(text_bytes), &formula,
                                              &formula_bytes, &error, &line, &column, &offset, &error_bytes);
  if (compiled) {
    // The fragment is looked at no further than the text goes.
    const size_t start = offset < text_bytes ? offset : text_bytes;
    const size_t left = text_bytes - start;
    _BryndFormulaError(session, error, text + start,
                       static_cast<uint32_t>(error_bytes < left ? error_bytes : left));
    return KVFAIL_FORMULA;
  }
  KVGuard free_formula([&] { EngMemFree(formula); });
  const KVLocked code(formula);  // the note copies out of it
  if (code.bytes == nullptr) return KVFAIL_INTERNAL;
  return EngItemAppend(nh, 0, "$WindowTitle", 12, BRTYPE_FORMULA, code.bytes, formula_bytes);
}

// Writes the page as items of the note. The composite is still to be written where it belongs: that it was
// written here takes none of its changes.
uint32_t PutBody(_api_session* session, _DATABASE* pdbase, EngNote nh, uint32_t hBody) {
  _COMPOSITE* comp = _KVIFindComposite(session, hBody);
  if (comp == nullptr) return KVFAIL_BAD_COMPOSITE;
  _DOCUMENT doc{};
  doc.dbase = pdbase;
  doc.notehand = nh;
  doc.docid = kNoDocument;  // 0 would be taken for another new document
  const int32_t dirty = comp->dirty;
  const uint32_t status = _CompConvert(session, &doc, KVTYPE_COMPOSITE, 0, &hBody, KVTYPE_COMPOSITE, 0,
                                       nullptr, nullptr, kFormBodyItem, KVCONV_WRITE, nullptr);
  comp->dirty = dirty;
  return status;
}

// The letters of a table whose bits are set, behind those that every record of the kind has.
template <size_t RowCount>
uint16_t PutLetters(EngNote nh, const char* always, const KVFORMLETTER (&rows)[RowCount], uint32_t kv_flags) {
  char letters[kDesignFlagsMax + 1] = {};
  uint32_t count = static_cast<uint32_t>(strlen(always));
  KVICopyBytes(letters, always, count);
  for (const KVFORMLETTER& row : rows)
    if (kv_flags & row.kv_flag) letters[count++] = row.letter;
  return EngItemTextSet(nh, "$Flags", letters, count != 0 ? count : 1);  // no letter: one NUL
}

uint16_t PutConflictAction(EngNote nh, int32_t conflict) {
  return conflict ? EngItemTextSet(nh, "$ConflictAction", "1", 1) : uint16_t{0};
}

uint32_t RefuseSubforms(EngNote nh) {
  CDITEMWALK walk = KVICDWalkItems(nh, kFormBodyItem, kFormBodyItemBytes);
  KVGuard end_walk([&] { KVICDEndWalk(&walk); });
  while (KVICDNextItemRecord(&walk))
    if (KVIReadSubformRef(walk.run.record, walk.run.header).is_subform) return KVFAIL_SUBFORM_NESTED;
  return KVIBodyStatus(walk);
}

// Class, title and properties, which both kinds have.
uint32_t PutHead(_api_session* session, EngNote nh, const _FORMSPEC& spec) {
  if (uint16_t brstatus = EngNoteInfoSet(nh, kNoteClassMember, &kFormClass)) return brstatus;
  const bool force_hidden = (spec.design_flags & KVDESIGN_FORM) != 0 && (spec.kv_flags & KVFORM_HIDDEN) != 0;
  if (uint32_t status =
          _KVIDesignNoteSetTitle(session, nh, spec.name, spec.menu_name, spec.cascade_name, 0, force_hidden))
    return status;
  return PutInfo(nh, spec);
}

uint32_t StoreNote(EngNote nh, uint32_t* pformid) {
  if (uint16_t brstatus = EngNoteUpdate(nh, 0)) return brstatus;
  if (pformid == nullptr) return KVSUCCESS;
  uint32_t formid = 0;
  if (uint16_t brstatus = EngNoteInfoGet(nh, kNoteIdMember, &formid)) return brstatus;
  KVIStore<uint32_t>(pformid, formid);
  return KVSUCCESS;
}

uint32_t FillForm(_api_session* session, _DATABASE* pdbase, EngNote nh, const _FORMSPEC& spec,
                  uint32_t hBody) {
  if (uint32_t status = PutHead(session, nh, spec)) return status;
  if (uint32_t status = PutWindowTitle(session, nh, spec.title_formula_string)) return status;
  if (uint32_t status = PutBody(session, pdbase, nh, hBody)) return status;
  if (uint32_t status = _KVIFormNoteAppendFieldNameTables(session, nh)) return status;
  if (uint16_t brstatus = PutLetters(nh, "", kFormLetters, spec.kv_flags)) return brstatus;
  return PutConflictAction(nh, spec.conflict);
}

uint32_t FillSubform(_api_session* session, _DATABASE* pdbase, EngNote nh, const _FORMSPEC& spec,
                     uint32_t hBody) {
  if (uint32_t status = PutHead(session, nh, spec)) return status;
  if (uint32_t status = PutBody(session, pdbase, nh, hBody)) return status;
  if (uint32_t status = RefuseSubforms(nh)) return status;
  if (uint16_t brstatus = PutLetters(nh, kAlwaysOfSubform, kSubformLetters, spec.kv_flags)) return brstatus;
  return _KVIFormNoteAppendFieldNameTables(session, nh);
}

}  // namespace

uint32_t _KVIFormCreateSpec(_api_session* session, _DATABASE* pdbase, const KVFORM* form,
                            _FORMSPEC** ppformspec) {
  *ppformspec = nullptr;
  const FORMNAMES names = NamesOf(*form);
  if (uint32_t status = ValidateForm(session, pdbase, *form, names)) return status;
  _FORMSPEC* spec = NewSpec(pdbase, KVDESIGN_FORM, names);
  if (spec == nullptr) return KVFAIL_NO_MEMORY;
  TakeFlags(*form, spec);
  spec->conflict = form->on_conflict;
  spec->color = static_cast<uint16_t>(form->background_color & 0xffff);
  if (!CopyString(&spec->title_formula_string, form->window_title_formula)) {
    ClearForm(spec);
    return KVFAIL_NO_MEMORY;
  }
  *ppformspec = spec;
  return KVSUCCESS;
}

uint32_t _KVISubformCreateSpec(_api_session* session, _DATABASE* pdbase, const KVSUBFORM* subform,
                               _FORMSPEC** ppformspec) {
  *ppformspec = nullptr;
  const FORMNAMES names = NamesOf(*subform);
  if (uint32_t status = ValidateNames(session, pdbase, KVDESIGN_SUBFORM, names)) return status;
  _FORMSPEC* spec = NewSpec(pdbase, KVDESIGN_SUBFORM, names);
  if (spec == nullptr) return KVFAIL_NO_MEMORY;
  spec->flags = KVFORMSPEC_WRITTEN;
  spec->color = kSubformColor;
  spec->kv_flags = subform->subform_flags & kSubformFlags;
  *ppformspec = spec;
  return KVSUCCESS;
}

uint32_t _KVIFormCreateFromSpec(_api_session* session, _DATABASE* pdbase, const _FORMSPEC* pspec,
                                uint32_t hBody, uint32_t* pformid) {
  EngNote nh = 0;
  if (uint16_t brstatus = EngNoteCreate(pdbase->dbhand, &nh)) return brstatus;
  KVGuard close_note([&] { EngNoteClose(nh); });
  if (uint32_t status = FillForm(session, pdbase, nh, *pspec, hBody)) return status;
  return StoreNote(nh, pformid);
}

uint32_t _KVISubformCreateFromSpec(_api_session* session, _DATABASE* pdbase, const _FORMSPEC* pspec,
                                   uint32_t hBody, uint32_t* psubformid) {
  EngNote nh = 0;
  if (uint16_t brstatus = EngNoteCreate(pdbase->dbhand, &nh)) return brstatus;
  KVGuard close_note([&] { EngNoteClose(nh); });
  if (uint32_t status = FillSubform(session, pdbase, nh, *pspec, hBody)) return status;
  return StoreNote(nh, psubformid);
}
