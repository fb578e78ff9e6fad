// Flags of forms between their stored words and the values that programs see, and specs as public records.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

// A public value and the bit that stands for it, 0 for the value without a bit.
struct VALUEROW {
  int32_t value;
  uint32_t bit;
};
// The first row whose bit is set tells the value; the row without a bit is the last one.
constexpr VALUEROW kTypes[] = {{2, 0x4}, {1, 0x8}, {0, 0}};
constexpr VALUEROW kUpdates[] = {{1, 0x4000}, {2, 0x8000}, {3, 0x800000}, {0, 0}};
constexpr VALUEROW kUpdateTriggers[] = {{2, 0x400000}, {1, 0}};

constexpr uint32_t kOpen1 = 8u << 16;
constexpr uint32_t kOpen2 = 16u << 16;
constexpr uint32_t kOpen4 = 32u << 16;

template <size_t RowCount>
uint32_t TranslateValue(const VALUEROW (&rows)[RowCount], int Translate, int32_t* value, uint32_t* flags) {
  for (const VALUEROW& row : rows) {
    if (Translate == kTranslateRead && row.bit != 0 && (*flags & row.bit) == 0) continue;
    if (Translate != kTranslateRead && row.value != *value) continue;
    if (Translate == kTranslateRead)
      *value = row.value;
    else
      *flags |= row.bit;
    return KVSUCCESS;
  }
  return KVFAIL_BAD_ENUM;
}

// Absent names stay empty: the record was cleared.
void TakeName(char* target, const char* name, uint32_t name_bytes_max) {
  if (name != nullptr) KVIstrnncpy(target, name, name_bytes_max);
}

}  // namespace

uint32_t KVIFormTranslateType(int Translate, int32_t* type, uint32_t* flags) {
  return TranslateValue(kTypes, Translate, type, flags);
}

uint32_t KVIFormTranslateUpdate(int Translate, int32_t* update, uint32_t* flags) {
  return TranslateValue(kUpdates, Translate, update, flags);
}

uint32_t KVIFormTranslateUpdateTrigger(int Translate, int32_t* update_trigger, uint32_t* flags) {
  if (Translate != kTranslateRead && *update_trigger == 0) return KVSUCCESS;
  return TranslateValue(kUpdateTriggers, Translate, update_trigger, flags);
}

uint32_t KVIFormTranslateOpen(int Translate, uint32_t* formopen_flags, uint32_t* flags) {
  if (Translate == kTranslateRead) {
    *formopen_flags = (*flags & kOpen1) ? KVFORMOPEN_1 : 0;
    if (*flags & kOpen2) *formopen_flags |= (*flags & kOpen4) ? KVFORMOPEN_2_AND_4 : KVFORMOPEN_2;
    return KVSUCCESS;
  }
  if (*formopen_flags & KVFORMOPEN_1) *flags |= kOpen1;
  if (*formopen_flags & KVFORMOPEN_2) *flags |= kOpen2;
  if ((*formopen_flags & KVFORMOPEN_2_AND_4) == KVFORMOPEN_2_AND_4) *flags |= kOpen4;
  return KVSUCCESS;
}

void KVIFormGetFORMFromSpec(const _DATABASE* dbase, _FORMSPEC* spec, KVFORM* form) {
  form->form_flags = ((spec->flags & 0xffff) | spec->kv_flags) & KVFORM_FLAGS_MASK;
  int32_t type = 0;
  int32_t update = 0;
  int32_t update_trigger = 0;
  uint32_t formopen_flags = 0;
  (void)KVIFormTranslateType(kTranslateRead, &type, &spec->flags);  // reading knows every word
  (void)KVIFormTranslateUpdate(kTranslateRead, &update, &spec->flags);
  if (update >= 1) (void)KVIFormTranslateUpdateTrigger(kTranslateRead, &update_trigger, &spec->flags);
  (void)KVIFormTranslateOpen(kTranslateRead, &formopen_flags, &spec->flags);
  form->type = type;
  form->update = update;
  form->update_trigger = update_trigger;
  form->formopen_flags = formopen_flags;
  form->on_conflict = spec->conflict;
  form->background_color = spec->color;
  TakeName(form->name, spec->name, kFormNameBytesMax);
  TakeName(form->menu_name, spec->menu_name, kMenuNameBytesMax);
  TakeName(form->cascade_name, spec->cascade_name, kMenuNameBytesMax);
  if (!dbase->fetch_design_code) return;
  if (spec->title_formula_string == nullptr && spec->title_formula != nullptr)
    FetchDesignFormula(spec->title_formula, &spec->title_formula_string, 0);
  form->window_title_formula = spec->title_formula_string;
}

void KVISubformGetSUBFORMFromSpec(const _FORMSPEC* spec, KVSUBFORM* subform) {
  subform->subform_flags = spec->kv_flags & (KVSUBFORM_FLAG_A | KVSUBFORM_FLAG_N | KVSUBFORM_FLAG_X);
  TakeName(subform->name, spec->name, kFormNameBytesMax);
  TakeName(subform->menu_name, spec->menu_name, kMenuNameBytesMax);
}
