// The formulas of a form: computing the fields of a document, and asking them whether its values are good.
//
// (1) A field that cannot be computed gets an empty value, silently; only what the form itself demands can
// fail a computation. (2) A field that is computed for display is in the open note at most, never in a stored
// one. (3) Whatever a formula failed by is not the failure of the operation that ran it.
#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint32_t kTypeWordBytes = 2;
constexpr uint32_t kNulEnded = 0xffff;  // length word of a text that ends with its NUL
constexpr uint32_t kFieldMode = KVCONV_WRITE | KVCONV_REPLACE;
static_assert(kFieldMode == 0x11000000);

// The fields of a form in the order of their numbers, as KVIFormSpecGetFieldSpec gives them, without walking
// anew for each.
struct FIELDWALK {
  explicit FIELDWALK(const _FORMSPEC* formspec)
      : form(formspec),
        reads_subforms(formspec->pdbase != nullptr && formspec->pdbase->read_subf_fields != 0) {}

  const _FORMSPEC* form;
  bool reads_subforms;
  uint32_t slot = 0;
  uint32_t inner = 0;  // in the subform of the slot
};

// The next field, null behind the last.
const FIELDSPEC* NextField(FIELDWALK* walk) {
  for (; walk->slot < walk->form->fieldcount; ++walk->slot) {
    const FIELDSPEC* fieldspec = &walk->form->fieldlist[walk->slot];
    const _FORMSPEC* subform = fieldspec->psubform;
    if (subform == nullptr) {
      ++walk->slot;
      return fieldspec;
    }
    if (walk->reads_subforms && walk->inner < subform->fieldcount) return &subform->fieldlist[walk->inner++];
    walk->inner = 0;
  }
  return nullptr;
}

// A formula's value, type word first; freed at the end.
struct Computed {
  Computed() = default;
  ~Computed() {
    if (hand) EngMemFree(hand);
  }
  Computed(const Computed&) = delete;
  Computed& operator=(const Computed&) = delete;

  EngMem hand = 0;
  uint16_t value_bytes = 0;
};

uint16_t Evaluate(const _DOCUMENT* doc, const char* formula, Computed* result, int32_t* select) {
  EngCompute compute = 0;
  if (uint16_t brstatus = EngComputeBegin(0, formula, &compute)) return brstatus;
  const uint16_t brstatus = EngComputeEvaluate(compute, doc->notehand, &result->hand, &result->value_bytes,
                                               select, nullptr, nullptr);
  EngComputeEnd(compute);
  return brstatus;
}

bool HasItem(const _DOCUMENT* doc, const char* name, uint16_t namelen) {
  return EngItemInfo(doc->notehand, name, namelen, nullptr, nullptr, nullptr, nullptr) == 0;
}

// Marks that a form wants in its documents.
uint16_t PutMark(const _DOCUMENT* doc, const char* name) {
  if (HasItem(doc, name, static_cast<uint16_t>(strlen(name)))) return 0;
  return EngItemTextSet(doc->notehand, name, "1", kNulEnded);
}

uint16_t PutMarks(const _DOCUMENT* doc) {
  if (doc->form->flags & KVFORMSPEC_ANONYMOUS)
    if (uint16_t brstatus = PutMark(doc, "$Anonymous")) return brstatus;
  return doc->form->conflict == 1 ? PutMark(doc, "$ConflictAction") : uint16_t{0};
}

// What is done about one field: the first rule that applies.
enum class Rule : uint8_t { kNothing, kDefault, kTranslate, kMustExist };

Rule RuleOf(const FIELDSPEC* fieldspec, bool is_new, int32_t event) {
  const uint32_t kind = fieldspec->flags & KVFIELD_KIND_MASK;
  if (is_new) return fieldspec->dvformula != nullptr ? Rule::kDefault : Rule::kNothing;
  if (kind == KVFIELD_KIND_COMPUTED && event >= KVCOMPUTE_STORE) return Rule::kDefault;
  const bool is_read = event == KVCOMPUTE_OPEN || event == KVCOMPUTE_AFTER_SAVE;
  if ((fieldspec->flags & KVFIELD_EDITABLE) != 0 && fieldspec->itformula != nullptr && !is_read)
    return Rule::kTranslate;
  return kind == KVFIELD_KIND_DISPLAY ? Rule::kDefault : Rule::kMustExist;
}

bool IsDisplay(const FIELDSPEC* fieldspec) {
  return (fieldspec->flags & KVFIELD_KIND_MASK) == KVFIELD_KIND_DISPLAY;
}

bool Apply(_api_session* session, _DOCUMENT* doc, const FIELDSPEC* fieldspec, Rule rule) {
  switch (rule) {
    case Rule::kNothing:
      return true;
    case Rule::kDefault:
      return _ItemCompute(session, doc, fieldspec, fieldspec->dvformula) == KVSUCCESS;
    case Rule::kTranslate:
      return _ItemCompute(session, doc, fieldspec, fieldspec->itformula) == KVSUCCESS;
    case Rule::kMustExist:
      return HasItem(doc, fieldspec->name, fieldspec->namelen);
  }
  return false;
}

void PutEmpty(_api_session* session, _DOCUMENT* doc, const FIELDSPEC* fieldspec) {
  const uint32_t type = fieldspec->type == KVTYPE_COMPOSITE ? KVTYPE_COMPOSITE : KVTYPE_TEXT;
  (void)_DataConvert(session, doc->dbase, doc, KVTYPE_TEXT, 0, "", kFieldMode, fieldspec->name, nullptr, type,
                     0, nullptr, nullptr);
}

// While one lives, nothing is recorded in the session and the application's error procedure is not called:
// the first failure of a call wins, and a failure is taken to be there already.
struct Unrecorded {
  explicit Unrecorded(_api_session* owner) : session(owner), errcode(owner->errcode) {
    session->errcode = KVFAIL_INTERNAL;
  }
  ~Unrecorded() { session->errcode = errcode; }
  Unrecorded(const Unrecorded&) = delete;
  Unrecorded& operator=(const Unrecorded&) = delete;

  _api_session* session;
  uint32_t errcode;
};

// Computes a field; one that fails holds an empty value.
void ComputeField(_api_session* session, _DOCUMENT* doc, const FIELDSPEC* fieldspec, Rule rule) {
  const Unrecorded unrecorded(session);
  if (!Apply(session, doc, fieldspec, rule)) PutEmpty(session, doc, fieldspec);
}

void RemoveDisplayFields(const _DOCUMENT* doc) {
  FIELDWALK walk(doc->form);
  while (const FIELDSPEC* fieldspec = NextField(&walk))
    if (IsDisplay(fieldspec)) (void)EngItemDelete(doc->notehand, fieldspec->name, fieldspec->namelen);
}

}  // namespace

uint32_t _ItemCompute(_api_session* session, _DOCUMENT* doc, const FIELDSPEC* fieldspec,
                      const char* formula) {
  Computed result;
  if (uint16_t brstatus = Evaluate(doc, formula, &result, nullptr)) return brstatus;
  // The value stays locked while it is converted: it is read where it lies.
  const KVLocked value(result.hand);
  if (value.bytes == nullptr || result.value_bytes < kTypeWordBytes) return KVFAIL_DATA_UNAVAILABLE;
  return _DataConvert(session, doc->dbase, doc, GetKVType(KVI_BRDataTypeRead(value.bytes, 0)),
                      result.value_bytes - kTypeWordBytes, value.bytes + kTypeWordBytes, kFieldMode,
                      fieldspec->name, &fieldspec->format, static_cast<uint32_t>(fieldspec->type), 0, nullptr,
                      nullptr);
}

uint32_t _DocCompute(_api_session* session, _DOCUMENT* doc, int32_t ComputeEvent) {
  const bool is_new = doc->new_ != 0 || ComputeEvent == KVCOMPUTE_CREATE;
  if (!doc->sb_compute) return KVSUCCESS;
  if (doc->form == nullptr) return KVSUCCESS;
  if (!(is_new ? doc->form->compute_new : doc->form->compute)) return KVSUCCESS;
  if (uint16_t brstatus = PutMarks(doc)) return brstatus;
  bool has_display = false;
  FIELDWALK walk(doc->form);
  while (const FIELDSPEC* fieldspec = NextField(&walk)) {
    if (!is_new && IsDisplay(fieldspec)) has_display = true;
    ComputeField(session, doc, fieldspec, RuleOf(fieldspec, is_new, ComputeEvent));
  }
  // Values for display are computed all the same before a store: fields behind them may read them.
  if (ComputeEvent >= KVCOMPUTE_STORE && has_display) RemoveDisplayFields(doc);
  return KVSUCCESS;
}

// ---- Validation

namespace {

bool HasValidation(const FIELDSPEC* fieldspec) {
  return (fieldspec->flags & KVFIELD_EDITABLE) != 0 && fieldspec->ivformula != nullptr;
}

// Tells the caller which field failed, and what its formula says about it.
void TellFailure(_api_session* session, const FIELDSPEC* fieldspec, const Computed& result, uint32_t length,
                 char* failure, char* fieldname) {
  if (fieldname != nullptr) {
    const uint32_t bytes = fieldspec->namelen < kFieldNameBytesMax ? fieldspec->namelen : kFieldNameBytesMax;
    KVICopyBytes(fieldname, fieldspec->name, bytes);
    fieldname[bytes] = 0;
  }
  if (failure == nullptr) return;
  const KVLocked value(result.hand);
  if (value.bytes == nullptr || result.value_bytes < kTypeWordBytes) return;
  const Unrecorded unrecorded(session);  // a text that cannot be told is no failure of the validation
  (void)_DataConvert(session, nullptr, nullptr, GetKVType(KVI_BRDataTypeRead(value.bytes, 0)),
                     result.value_bytes - kTypeWordBytes, value.bytes + kTypeWordBytes, KVCONV_LINES, nullptr,
                     nullptr, KVTYPE_TEXT, length, failure, nullptr);
}

}  // namespace

uint32_t KVDocumentValidate(uint32_t document, uint32_t length, int32_t* is_valid, char* failure,
                            char* fieldname) {
  _api_session* session;
  if (uint32_t status = KVIEnter(document, &session)) return status;
  if (is_valid == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStore<int32_t>(is_valid, 0);
  if (fieldname != nullptr) *fieldname = 0;
  if (failure != nullptr) *failure = 0;
  const _DOCUMENT* doc = _KVIFindDocument(session, document);
  if (doc == nullptr) return KVError(KVFAIL_BAD_DOCUMENT);
  if (doc->form != nullptr && doc->form->compute_valid) {
    FIELDWALK walk(doc->form);
    while (const FIELDSPEC* fieldspec = NextField(&walk)) {
      if (!HasValidation(fieldspec)) continue;
      Computed result;
      int32_t select = 0;
      if (uint16_t brstatus = Evaluate(doc, fieldspec->ivformula, &result, &select)) return KVError(brstatus);
      if (select != 0) continue;
      TellFailure(session, fieldspec, result, length, failure, fieldname);
      return KVSUCCESS;
    }
  }
  KVIStore<int32_t>(is_valid, 1);
  return KVSUCCESS;
}
