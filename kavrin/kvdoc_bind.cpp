// Binding of a document to its form: where the form comes from, which field a name stands for, and which type
// an item has.
//
// (1) While a form is in force its fields are the document's only items, but for the value of the last
// executed formula. (2) A form that was read out of a document's own items names that document in `pdoc` and
// goes with it; all others belong to the database's cache. (3) A form that its document leaves while others
// use it passes on to one of those.
#include <strings.h>

#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoSuchItem = 0x222;
constexpr uint16_t kOpenForm = 2;
constexpr uint16_t kDefaultForm = BRCLASS_DEFAULT | BRCLASS_FORM;
constexpr char kFormItem[] = "Form";
constexpr uint16_t kFormItemBytes = 4;

bool IsExecuteItemName(const char* itemname) { return strcasecmp(itemname, kExecuteItemName) == 0; }

bool SameName(const char* name, size_t namelen, const char* wanted, size_t wanted_bytes) {
  return namelen == wanted_bytes && name != nullptr && strncasecmp(name, wanted, namelen) == 0;
}

FIELDSPEC* FindFieldspec(_FORMSPEC* formspec, const char* fieldname, size_t name_bytes, bool reads_subforms) {
  for (uint32_t slot = 0; slot < formspec->fieldcount; ++slot) {
    FIELDSPEC* fieldspec = &formspec->fieldlist[slot];
    if (fieldspec->psubform == nullptr) {
      if (SameName(fieldspec->name, fieldspec->namelen, fieldname, name_bytes)) return fieldspec;
      continue;
    }
    if (!reads_subforms) continue;
    // The setting of the whole form holds for what is in it; subforms do not nest.
    if (FIELDSPEC* inner = FindFieldspec(fieldspec->psubform, fieldname, name_bytes, false)) return inner;
  }
  return nullptr;
}

// What a name stands for while a form is in force.
struct FieldOfName {
  int32_t form_type;
  FORMAT* format;
  FIELDSPEC* fieldspec;
  bool needs_no_field;
};

FieldOfName FindField(_FORMSPEC* formspec, const char* itemname, const int32_t* itemtype,
                      const _DATAFIELD* datafield) {
  if (datafield != nullptr && datafield->in_form)
    return {.form_type = datafield->form_type,
            .format = nullptr,
            .fieldspec = datafield->fieldspec,
            .needs_no_field = false};
  if (FIELDSPEC* fieldspec = GetFieldspec(formspec, itemname))
    return {.form_type = fieldspec->type,
            .format = &fieldspec->format,
            .fieldspec = fieldspec,
            .needs_no_field = false};
  const bool is_execute_item = IsExecuteItemName(itemname);
  const int32_t wanted = itemtype != nullptr && is_execute_item ? *itemtype : 0;
  return {.form_type = wanted, .format = nullptr, .fieldspec = nullptr, .needs_no_field = is_execute_item};
}

bool HasItem(EngNote note, const char* name) {
  return EngItemInfo(note, name, static_cast<uint16_t>(strlen(name)), nullptr, nullptr, nullptr, nullptr) ==
         0;
}

// The id of the form of that name, 0 without one. The lookup is the library's own: what it fails by is not
// what the caller's operation fails by.
uint32_t FormIdOfName(_DATABASE* dbase, const char* name) {
  uint32_t formid = 0;
  uint32_t design_flags = 0;
  if (EngDesignFind(dbase->dbhand, name, BRCLASS_FORM, &formid)) return 0;
  if (KVIDesignNoteGetFlagsExt(dbase, formid, &design_flags, nullptr)) return 0;
  return (design_flags & KVDESIGN_FORM) != 0 ? formid : 0;
}

}  // namespace

FIELDSPEC* GetFieldspec(_FORMSPEC* formspec, const char* fieldname) {
  if (formspec == nullptr) return nullptr;
  const bool reads_subforms = formspec->pdbase != nullptr && formspec->pdbase->read_subf_fields != 0;
  return FindFieldspec(formspec, fieldname, strlen(fieldname), reads_subforms);
}

uint32_t GetItemTypeInfo(_FORMSPEC* formspec, const char* itemname, const int32_t* itemtype,
                         int32_t* form_type, const _DATAFIELD* datafield, FORMAT** format,
                         FIELDSPEC** fieldspec) {
  const int32_t wanted = itemtype != nullptr ? *itemtype : 0;
  *form_type = 0;
  *format = nullptr;
  *fieldspec = nullptr;
  if (formspec == nullptr) {
    if (static_cast<uint32_t>(wanted) >= kKVTypeCount) return KVFAIL_BAD_ENUM;
    *form_type = wanted;
    return KVSUCCESS;
  }
  const FieldOfName field = FindField(formspec, itemname, itemtype, datafield);
  *form_type = field.form_type;
  *format = field.format;
  *fieldspec = field.fieldspec;
  if (field.needs_no_field) {
    if (static_cast<uint32_t>(wanted) < kKVTypeCount) return KVSUCCESS;
    *form_type = 0;
    return KVFAIL_BAD_ENUM;  // a type that is none must not reach the tables of types
  }
  if (*form_type == 0) return KVFAIL_NO_FIELD;
  if (static_cast<uint32_t>(wanted) < kKVTypeCount && (wanted == 0 || implicit_convert[wanted][*form_type]))
    return KVSUCCESS;
  *form_type = 0;
  return KVFAIL_NO_FIELD;
}

// ---- The form of a stored document

uint32_t KVIDbGetFormspecByFormName(_DATABASE* dbase, const char* szFormName, _FORMSPEC** ppformspec) {
  *ppformspec = nullptr;
  const size_t name_bytes = strlen(szFormName);
  // A form may share its name with a subform, and with one that was deleted and lives on for its documents. A
  // document bound to either of those would be stored with the values of formulas that are not its form's.
  const auto is_form = [](const _FORMSPEC* spec) {
    return !spec->deleted && (spec->design_flags & KVDESIGN_SUBFORM) == 0;
  };
  for (_FORMSPEC* spec = dbase->dbinfo->forms; spec != nullptr; spec = spec->next)
    if (is_form(spec) && SameName(spec->name, spec->namelen, szFormName, name_bytes)) {
      *ppformspec = spec;
      return KVSUCCESS;
    }
  return KVFAIL_NOT_FOUND;
}

uint32_t _LoadDocumentForm(_api_session* session, _DATABASE* dbase, _DOCUMENT* doc) {
  // Composites and handed-out values may point at the form that came out of this document: it stays.
  if (doc->form != nullptr && doc->form->pdoc == doc) return KVSUCCESS;
  doc->embedded_form = 0;
  uint32_t formid = 0;
  _DOCUMENT* source = nullptr;
  char name[kFormNameBytesMax + 1] = {};
  if (EngItemTextGet(doc->notehand, kFormItem, name, uint16_t{kFormNameBytesMax}) != 0) {
    if (KVIDbGetFormspecByFormName(dbase, name, &doc->form) == KVSUCCESS) return KVSUCCESS;
    formid = FormIdOfName(dbase, name);
  } else if (HasItem(doc->notehand, "$TITLE")) {
    doc->embedded_form = 1;
    formid = doc->docid;
    source = doc;
  } else if (EngDbSpecialIdGet(dbase->dbhand, kDefaultForm, &formid)) {
    formid = 0;
  }
  if (formid != 0) (void)_KVIFormGetSpec(session, dbase, formid, source, &doc->form);
  if (formid == 0 || doc->form == nullptr) doc->embedded_form = 0;
  return KVSUCCESS;
}

// Another document that uses the form, null if there is none.
static _DOCUMENT* HeirOf(_api_session* session, const _DOCUMENT* doc, const _FORMSPEC* form) {
  const auto uses = [&](const _DOCUMENT& other) {
    return &other != doc && (other.form == form || other.form_save == form);
  };
  for (_DOCUMENT* other : session->doctab)
    for (; other != nullptr; other = other->next)
      if (uses(*other)) return other;
  for (_INDEX* idx : session->idxtab)
    for (; idx != nullptr; idx = idx->next)
      if (uses(idx->last_load)) return &idx->last_load;
  return nullptr;
}

void _KVIReleaseOwnForm(_api_session* session, _DOCUMENT* doc) {
  doc->embedded_form = 0;
  _FORMSPEC* form = doc->form != nullptr ? doc->form : doc->form_save;
  if (form == nullptr || form->pdoc != doc) return;
  doc->form = doc->form_save = nullptr;
  form->pdoc = HeirOf(session, doc, form);
  if (form->pdoc == nullptr) ClearForm(form);
}

// ---- A form in the document

namespace {

// The items that make up a form, in the order of their copies.
struct FormItemRow {
  const char* name;
  bool required;
  bool all;  // every item of the name, not the first alone
};
constexpr FormItemRow kFormItems[] = {
    {.name = "$Info", .required = true, .all = false},
    {.name = "$TITLE", .required = true, .all = false},
    {.name = "$WindowTitle", .required = false, .all = false},
    {.name = "$Body", .required = false, .all = true},
    {.name = "$Fonts", .required = false, .all = false},
    {.name = "$FormLinks", .required = false, .all = false},
    {.name = "$Readers", .required = false, .all = false},
};

uint16_t CopyFormItem(EngNote form, EngNote note, const FormItemRow& row) {
  const auto name_bytes = static_cast<uint16_t>(strlen(row.name));
  BLOCKID item;
  uint16_t brstatus = EngItemInfo(form, row.name, name_bytes, &item, nullptr, nullptr, nullptr);
  if (brstatus) return !row.required && (brstatus & 0x3fff) == kNoSuchItem ? uint16_t{0} : brstatus;
  while (!brstatus) {
    if (uint16_t copied = EngItemCopy(note, item)) return copied;
    if (!row.all) return 0;
    brstatus = EngItemInfoNext(form, item, row.name, name_bytes, &item, nullptr, nullptr, nullptr);
  }
  return (brstatus & 0x3fff) == kNoSuchItem ? uint16_t{0} : brstatus;
}

uint16_t CopyForm(EngNote form, EngNote note) {
  for (const FormItemRow& row : kFormItems)
    if (uint16_t brstatus = CopyFormItem(form, note, row)) return brstatus;
  // Files of a form cannot be copied in this version. A form that lost them silently would look whole.
  return HasItem(form, "$FILE") ? kEngNotAvailable : uint16_t{0};
}

}  // namespace

uint32_t EmbedForm(_DATABASE* dbase, uint32_t notehand, const char* formname) {
  uint32_t formid = 0;
  if (EngDesignFind(dbase->dbhand, formname, BRCLASS_FORM, &formid)) return KVFAIL_STRICT_NO_FORM;
  EngNote form = 0;
  if (uint16_t brstatus = EngNoteOpen(dbase->dbhand, formid, kOpenForm, &form)) return brstatus;
  const uint16_t copied = CopyForm(form, notehand);
  EngNoteClose(form);
  if (copied) return copied;
  // A form in the document and the name of one exclude each other.
  const uint16_t deleted = EngItemDelete(notehand, kFormItem, kFormItemBytes);
  return deleted && (deleted & 0x3fff) != kNoSuchItem ? deleted : KVSUCCESS;
}
