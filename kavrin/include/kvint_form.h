// Records of forms and their fields, as documents that are bound to a form read them.
#ifndef KVINT_FORM_H
#define KVINT_FORM_H

#include "kavrin_form.h"
#include "kvint_database.h"
#include "kvint_session.h"

constexpr uint32_t KVFIELD_KIND_MASK = 0x10a;
constexpr uint32_t KVFIELD_KIND_DISPLAY = 0x100;   // computed for display, never stored
constexpr uint32_t KVFIELD_KIND_COMPUTED = 0x108;  // computed, stored at a save
constexpr uint32_t kFieldNameBytesMax = 64;
constexpr uint32_t kFormNameBytesMax = 129;
constexpr uint32_t kMenuNameBytesMax = 64;

// Bits of _FORMSPEC.flags besides those that are only kept: the record's two flag words, the second in the
// high half.
constexpr uint32_t KVFORMSPEC_IN_DOCUMENT = 0x20;
constexpr uint32_t KVFORMSPEC_WRITTEN = 0x80;  // set in every record that this library makes
constexpr uint32_t KVFORMSPEC_ANONYMOUS = 0x01000000;
constexpr uint32_t KVFORMSPEC_FLAG_0800 = 0x08000000;

constexpr char kFormBodyItem[] = "$Body";  // the page, one or more items
constexpr uint16_t kFormBodyItemBytes = sizeof kFormBodyItem - 1;

// Letters of "$Flags" and the bits of _FORMSPEC.kv_flags that they stand for.
struct KVFORMLETTER {
  char letter;
  uint32_t kv_flag;
};
constexpr KVFORMLETTER kFormLetters[] = {{'C', KVFORM_HIDDEN}, {'D', KVFORM_FLAG_D}};
constexpr KVFORMLETTER kSubformLetters[] = {
    {'A', KVSUBFORM_FLAG_A}, {'N', KVSUBFORM_FLAG_N}, {'x', KVSUBFORM_FLAG_X}};

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

// A shared field, read once for a database; slots of forms hold plain copies of its FIELDSPEC.
struct _SHAREDFIELDSPEC {
  uint32_t noteid;
  FIELDSPEC fieldspec;
  _SHAREDFIELDSPEC* next;
};

// ---- Specs

// The spec of a form by its id, from the cache of the database or read anew; null and a status when there is
// none. With a document that holds its own form, that form: it stays out of the cache and is the document's.
// Failures are not recorded.
uint32_t _KVIFormGetSpec(_api_session* session, _DATABASE* dbase, uint32_t formid, _DOCUMENT* doc,
                         _FORMSPEC** formspec);
// The same for subforms, which no document holds.
uint32_t KVISubformGetSpec(_DATABASE* pdbase, uint32_t subfid, _FORMSPEC** ppformspec);
// By name, or by a title with a name behind its last `|`. NameLen 0: the name ends with NUL.
uint32_t _KVISubformGetSpecByName(_api_session* session, _DATABASE* pdbase, const char* pName,
                                  uint32_t NameLen, _FORMSPEC** ppformspec);
// Frees a spec that is in no cache; null is none.
void ClearForm(_FORMSPEC* formspec);
// Frees what a field owns, not the slot itself.
void ClearField(FIELDSPEC* fieldspec);
// Marks the first cached spec of that id, so that it is found no more; any kind of spec with kind 0.
void KVIFormMarkDeleted(_KVDBINFO* dbinfo, uint32_t formid, uint32_t kind);

// A spec made of the caller's record, to be stored and cleared.
uint32_t _KVIFormCreateSpec(_api_session* session, _DATABASE* pdbase, const KVFORM* form,
                            _FORMSPEC** ppformspec);
uint32_t _KVISubformCreateSpec(_api_session* session, _DATABASE* pdbase, const KVSUBFORM* subform,
                               _FORMSPEC** ppformspec);
// Fill a cleared record.
void KVIFormGetFORMFromSpec(const _DATABASE* dbase, _FORMSPEC* spec, KVFORM* form);
void KVISubformGetSUBFORMFromSpec(const _FORMSPEC* spec, KVSUBFORM* subform);
// Stores a new record. pformid may be null.
uint32_t _KVIFormCreateFromSpec(_api_session* session, _DATABASE* pdbase, const _FORMSPEC* pspec,
                                uint32_t hBody, uint32_t* pformid);
uint32_t _KVISubformCreateFromSpec(_api_session* session, _DATABASE* pdbase, const _FORMSPEC* pspec,
                                   uint32_t hBody, uint32_t* psubformid);

// ---- Stored flags and public values; Translate is kTranslateRead or kTranslateWrite, and writing ors bits
// into *flags

uint32_t KVIFormTranslateType(int Translate, int32_t* type, uint32_t* flags);
uint32_t KVIFormTranslateUpdate(int Translate, int32_t* update, uint32_t* flags);
uint32_t KVIFormTranslateUpdateTrigger(int Translate, int32_t* update_trigger, uint32_t* flags);
uint32_t KVIFormTranslateOpen(int Translate, uint32_t* formopen_flags, uint32_t* flags);

// ---- Fields

// Fills a slot from a field record of that many bytes, header included, which may lie anywhere; what it needs
// of the form goes into formspec, unless it is a shared field that was read before. KVFAIL_NO_SHARED_FIELD,
// KVFAIL_NO_FIELD, KVFAIL_BAD_FORMAT (lengths that pass the record's end), KVFAIL_NO_MEMORY, or an engine
// status; the slot is empty then.
uint32_t KVIFieldGetSpec(_DATABASE* dbase, uint16_t signature, const char* buffer, uint32_t buffer_bytes,
                         _FORMSPEC* formspec, FIELDSPEC* fieldspec);
// Fills a cleared record; name_bytes_max is the longest name that it takes.
void KVIFieldGetFIELDFromSpec(_DATABASE* dbase, KVFIELD* field, FIELDSPEC* fieldspec,
                              uint32_t name_bytes_max);
// 1 for a name that a field may have, else 0.
int KVIFieldValidateName(const char* FieldName, uint32_t NameLen);
// The field of that number, from 1, those of subforms in their place when the database reads them; null
// behind the last.
FIELDSPEC* KVIFormSpecGetFieldSpec(_FORMSPEC* pformspec, uint32_t index);
// Slots that the fields and subforms of an open form record take. KVFAIL_NOT_FOUND without a body.
uint32_t KVIFormNoteSizeofFieldTable(EngNote nh, uint32_t* pcount);
// Names all fields of an open form record in "$Fields" and adds a placeholder for each. KVFAIL_NOT_FOUND
// without a body; KVFAIL_DUPLICATE_FIELD.
uint32_t _KVIFormNoteAppendFieldNameTables(_api_session* session, EngNote nh);

// ---- Pages

struct CDHEADER;
struct CDITEMWALK;

// What a record says of a subform in its place. The name lies in the record, without a NUL; its length is 0
// when it passes the record's end.
struct KVISUBFORMREF {
  bool is_subform;
  bool is_computed;  // the name is the result of a formula
  const char* name;
  uint32_t name_bytes;
};
KVISUBFORMREF KVIReadSubformRef(const char* record, const CDHEADER& header);
// How a walk over a page ended: KVSUCCESS behind the last record, KVFAIL_BAD_FORMAT at what is no record, or
// an engine status.
uint32_t KVIBodyStatus(const CDITEMWALK& walk);

// The field of that name, subforms included; null without one.
FIELDSPEC* GetFieldspec(_FORMSPEC* formspec, const char* fieldname);
// Copies the form's design into a new document that carries its form.
uint32_t EmbedForm(_DATABASE* dbase, uint32_t notehand, const char* formname);

#endif
