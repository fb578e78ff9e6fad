// Binding of a document to its form: which type an item has, and which formulas run.
#include <strings.h>

#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

bool IsExecuteItemName(const char* itemname) { return strcasecmp(itemname, kExecuteItemName) == 0; }

// The name resolved against a form; *fits tells whether the name is a field, or the one item that needs none.
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

}  // namespace

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

// No form can be read in this version, so the document stays unbound.
void _LoadDocumentForm(_api_session*, _DATABASE*, _DOCUMENT*) {}

// Formulas run for a bound document that computes, when its form asks for it. This version has no field to
// run one for.
uint32_t _DocCompute(_api_session*, _DOCUMENT* doc, int32_t ComputeEvent) {
  const bool is_new = doc->new_ != 0 || ComputeEvent == KVCOMPUTE_CREATE;
  if (!doc->sb_compute) return KVSUCCESS;
  if (doc->form == nullptr) return KVSUCCESS;
  if (!(is_new ? doc->form->compute_new : doc->form->compute)) return KVSUCCESS;
  return KVFAIL_UNSUPPORTED;
}
