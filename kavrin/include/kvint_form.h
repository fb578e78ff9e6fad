// Records of forms and their fields, as documents that are bound to a form read them.
#ifndef KVINT_FORM_H
#define KVINT_FORM_H

#include "kvint_database.h"
#include "kvint_session.h"

constexpr uint32_t KVFIELD_KIND_MASK = 0x10a;
constexpr uint32_t KVFIELD_KIND_DISPLAY = 0x100;   // computed for display, never stored
constexpr uint32_t KVFIELD_KIND_COMPUTED = 0x108;  // computed, stored at a save

// One field of a form, or a slot that stands for a subform.
struct FIELDSPEC {
  _FORMSPEC* psubform;  // set in a subform's slot; all the rest is empty then
  char* name;
  uint16_t namelen;
  int32_t type;
  uint32_t flags;
  KVFONTSTYLE font;
  FORMAT format;
  char* description;
  uint16_t desclen;
  uint16_t* keywords;  // an engine text list
  uint16_t keylen;
  char* dvformula;  // compiled: default value, input translation, input validation
  char* itformula;
  char* ivformula;
  char* dvformula_string;  // their texts, made on first need
  char* itformula_string;
  char* ivformula_string;
};

// One form or subform as it was read.
struct _FORMSPEC {
  _DATABASE* pdbase;  // through which it was read
  _DOCUMENT* pdoc;    // the document that holds an embedded form
  uint32_t formid;
  uint32_t design_flags;
  char* name;
  char* menu_name;
  char* cascade_name;
  uint16_t namelen;
  uint32_t index;  // cursor of the field list
  uint32_t flags;
  uint32_t kv_flags;
  int32_t conflict;
  uint16_t color;
  int32_t hidden;
  int32_t compute;
  int32_t compute_new;
  int32_t compute_valid;
  uint32_t subformcount;
  uint32_t total_fieldcount;
  uint32_t fieldcount;
  FIELDSPEC* fieldlist;
  char* title_formula;
  char* title_formula_string;
  int32_t deleted;  // kept only because documents may point at it
  _FORMSPEC* next;
};

// When a form's formulas run.
enum {
  KVCOMPUTE_CREATE = 1,
  KVCOMPUTE_OPEN = 2,
  KVCOMPUTE_AFTER_SAVE = 3,
  KVCOMPUTE_STORE = 4,
  KVCOMPUTE_SAVE = 5,
  KVCOMPUTE_CLOSE = 6
};

// The spec of a form by its id, from the cache of the database or read anew; null when there is none.
uint32_t _KVIFormGetSpec(_api_session* session, _DATABASE* dbase, uint32_t formid, _DOCUMENT* doc,
                         _FORMSPEC** formspec);
// Releases a spec that is in no cache.
void _ClearForm(_api_session* session, _FORMSPEC* formspec);
// The field of that name, subforms included; null without one.
FIELDSPEC* GetFieldspec(_FORMSPEC* formspec, const char* fieldname);
// Copies the form's design into a new document that carries its form.
uint32_t EmbedForm(_DATABASE* dbase, uint32_t notehand, const char* formname);

#endif
