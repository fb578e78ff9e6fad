/* Forms, subforms and fields of Kavrin: the design records that tell which items a document has, of which
 * type each is, and which formulas run for it.
 *
 * A form has no handle: it is named by its database and its id. It is read once for each database of a
 * session and kept until the session's last handle on that database closes; all handles of the session share
 * what was read. All functions run on the thread that owns the handles.
 *
 * Texts inside the structures lie at odd addresses: the structures are byte-packed. */
#ifndef KAVRIN_FORM_H
#define KAVRIN_FORM_H

#include "kavrin_convert.h"
#include "kavrin_status.h"
#include "kavrin_types.h"

/** Bits of KVFORM.form_flags with a meaning to this library; the other bits of the mask are kept as they
 * are. */
enum {
  KVFORM_STORE_IN_DOCUMENT = 0x20, /**< each new document carries a copy of the form */
  KVFORM_VALIDATES = 0x10000,      /**< a field has a validation formula; told, not set */
  KVFORM_HIDDEN = 0x20000,         /**< not shown on menus */
  KVFORM_FLAG_D = 0x40000,         /**< the letter `D` of the record's flags */
  KVFORM_FLAG_0800 = 0x80000,      /**< bit 0x0800 of the record's second flag word */
  KVFORM_ANONYMOUS = 0x100000,     /**< documents do not name their editors */
  KVFORM_FLAGS_MASK = 0x1f3f73     /**< bits that are looked at */
};

/** Bits of KVSUBFORM.subform_flags: the letters `A`, `N` and `x` of the record's flags. */
enum { KVSUBFORM_FLAG_A = 1, KVSUBFORM_FLAG_N = 2, KVSUBFORM_FLAG_X = 4 };

/** Bits of KVFORM.formopen_flags, kept in the record for programs that show it. The second includes 4 only
 * together with it: 4 alone is not stored. */
enum { KVFORMOPEN_1 = 1, KVFORMOPEN_2 = 2, KVFORMOPEN_2_AND_4 = 6 };

/** Bits of KVFIELD.field_flags with a meaning to this library. */
enum {
  KVFIELD_EDITORS = 0x1,         /**< names that may edit the document */
  KVFIELD_EDITABLE = 0x2,        /**< users type the value */
  KVFIELD_NAMES = 0x4,           /**< names */
  KVFIELD_READERS = 0x10,        /**< names that may read the document */
  KVFIELD_FLAG_COMPUTED = 0x100, /**< the default formula gives the value: for display, with 8 stored */
  KVFIELD_PROTECTED = 0x400,     /**< changed by editors alone */
  KVFIELD_SHARED = 0x800,        /**< defined by a shared record of the database */
  KVFIELD_SIGN = 0x1000,         /**< part of what a signature covers */
  KVFIELD_SEAL = 0x2000,         /**< encrypted when the document is */
  KVFIELD_FLAGS_MASK = 0x3d3f    /**< bits that are told */
};

#pragma pack(push, 1)

/** A form. Programs that declare a version below 0x40000 have a shorter record, which is not available in
 * this version: they get KVFAIL_UNSUPPORTED. */
typedef struct KVFORM {
  uint32_t form_flags;        /**< KVFORM_ bits */
  int32_t type;               /**< 0, 1 or 2 */
  int32_t update;             /**< 0 to 3: what becomes of the old version of a changed document */
  int32_t update_trigger;     /**< 1 or 2; 0 is 1, and what is told when `update` is 0 */
  int32_t on_conflict;        /**< 1: conflicting changes are merged when they touch different items */
  uint32_t formopen_flags;    /**< KVFORMOPEN_ bits */
  uint32_t background_color;  /**< number of a colour; the low 16 bits are stored */
  char* window_title_formula; /**< formula text or null. As output it is the library's and lives as long as
                                 the form is kept; null unless KVPROP_DB_FETCH_DESIGN_CODE is on */
  char name[130];             /**< at most 129 characters */
  char menu_name[65];         /**< name on menus; empty: `name` */
  char cascade_name[65];      /**< second part of the name on menus */
} KVFORM;

/** A subform. */
typedef struct KVSUBFORM {
  uint32_t subform_flags; /**< KVSUBFORM_FLAG_ bits */
  char name[130];
  char menu_name[65];
} KVSUBFORM;

/** One entry of the list of forms. */
typedef struct KVFORMSUMM {
  uint32_t formid;
  int32_t hidden; /**< 1: not shown on menus */
  char name[130];
  char menu_name[65];
  char cascade_name[65];
} KVFORMSUMM;

/** One entry of the list of subforms. */
typedef struct KVSUBFORMSUMM {
  uint32_t subformid;
  char name[130];
  char menu_name[65];
} KVSUBFORMSUMM;

/** A field of a form. All addresses are the library's and live as long as the form is kept. Programs that
 * declare a version below 0x20306 have 34 characters of name. */
typedef struct KVFIELD {
  int32_t type;         /**< KVTYPE_ */
  uint32_t field_flags; /**< KVFIELD_ bits */
  int32_t keywords;     /**< 0: no keywords, else 1 to 4: how they are offered */
  KVFONTSTYLE font;
  KVFORMAT format;
  char* description;           /**< null if there is none */
  void* keyword_list;          /**< a text list as of KVTYPE_TEXTLIST, null without keywords */
  char* default_value_formula; /**< formula texts, null if there is none and, all three, unless
                                    KVPROP_DB_FETCH_DESIGN_CODE is on */
  char* input_translate_formula;
  char* input_validate_formula;
  char name[65]; /**< at most 64 characters */
} KVFIELD;

#pragma pack(pop)

/** A form to start from: all zero except `update` 1. */
#define KVFORM_DEFAULT {0, 0, 1, 0, 0, 0, 0, NULL, "", "", ""}

#ifdef __cplusplus
extern "C" {
#endif

/** Finds a form by its name, without regard to case.
 *  @param database  an open database of this thread
 *  @param formname  the form's name, or one of its synonyms
 *  @return the form's id; 0 for a failure, which KVErrorFetch tells: KVFAIL_NULL_PARAM, KVFAIL_NO_DATABASE,
 *          KVFAIL_NO_FORM (also when a subform bears the name), KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVFormLocateByName(uint32_t database, const char* formname);

/** Tells about a form.
 *  @param database  an open database of this thread
 *  @param formid    id of the form
 *  @param form      [out] the form, all zero on failure once `database` is known to be this thread's
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_NULL_PARAM, KVFAIL_NO_FORM (no record that opens and is a
 *          form, one without its properties, or one that was deleted through this session),
 *          KVFAIL_NO_SHARED_FIELD (the shared definition of a field is gone), KVFAIL_NO_FIELD (it has no
 *          field), KVFAIL_NOT_FOUND (no page), KVFAIL_BAD_FORMAT (a damaged page or window title),
 *          KVFAIL_NO_MEMORY, KVFAIL_UNSUPPORTED (the program's version is below 0x40000), KVFAIL_BAD_HANDLE,
 *          or an engine status */
KVAPI uint32_t KVFormFetch(uint32_t database, uint32_t formid, KVFORM* form);

/** Copies a form into a database. The copy of a default form is no default form.
 *  @param src_database, src_formid  the form to copy
 *  @param dest_database             where the copy goes; both databases belong to the calling thread
 *  @param dest_formname             [optional] name of the copy, at most 129 characters; empty or null: its
 *                                   own name, which in the same database is in use
 *  @param dest_formid               [out, optional] id of the copy, 0 on failure
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_DATA_TOO_LONG, KVFAIL_NAME_IN_USE, KVFAIL_NO_FORM (any other
 *          failure of the copy) */
KVAPI uint32_t KVFormCopy(uint32_t src_database, uint32_t src_formid, uint32_t dest_database,
                          const char* dest_formname, uint32_t* dest_formid);

/** Deletes a form.
 *  @param database  an open database of this thread
 *  @param formid    id of the form
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_NO_FORM, KVFAIL_ACTIVE_RESULT (an open document of this
 *          session is bound to the form; nothing is deleted), KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVFormDelete(uint32_t database, uint32_t formid);

/** Stores a new form.
 *  @param database  an open database of this thread
 *  @param form      the form
 *  @param body      a composite of this thread: the page with its fields
 *  @param formid    [out, optional] id of the form, 0 on failure
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`form`), KVFAIL_NO_DATABASE, KVFAIL_BAD_FORMAT and
 *          KVFAIL_DATA_TOO_LONG (the names), KVFAIL_NAME_IN_USE, KVFAIL_BAD_ENUM (`type`, `update`,
 *          `update_trigger`, `on_conflict`), KVFAIL_FORMULA, KVFAIL_BAD_COMPOSITE, KVFAIL_DUPLICATE_FIELD
 *          (for programs that declare a version below 0x20325: KVFAIL_NO_FIELD), KVFAIL_NOT_FOUND (an empty
 *          body), KVFAIL_NO_MEMORY, KVFAIL_UNSUPPORTED (the program's version is below 0x40000),
 *          KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVFormCreate(uint32_t database, const KVFORM* form, uint32_t body, uint32_t* formid);

/** Lists the forms of a database. The list is made at the first call, and anew with KVLIST_REFRESH.
 *  @param database  an open database of this thread
 *  @param list      KVLIST_ direction
 *  @param summ      [out] the entry, all zero on failure; for programs that declare a version below 0x20306
 *                   140 bytes, of which the names take 66, 33 and 33
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM, KVFAIL_NO_DATABASE, KVFAIL_END_OF_DATA, KVFAIL_DATA_UNAVAILABLE (no
 *          list yet, or no current entry), KVFAIL_BAD_ENUM, KVFAIL_NO_MEMORY, KVFAIL_BAD_HANDLE, or an engine
 *          status */
KVAPI uint32_t KVFormList(uint32_t database, int32_t list, KVFORMSUMM* summ);

/** As KVFormLocateByName, for subforms; KVFAIL_NO_SUBFORM in place of KVFAIL_NO_FORM. */
KVAPI uint32_t KVSubformLocateByName(uint32_t database, const char* subformname);

/** Tells about a subform.
 *  @param database  an open database of this thread
 *  @param subfid    id of the subform
 *  @param subform   [out] the subform, all zero on failure
 *  @return as KVFormFetch, with KVFAIL_NO_SUBFORM in place of KVFAIL_NO_FORM; a subform without a page has no
 *          fields, and versions play no part */
KVAPI uint32_t KVSubformFetch(uint32_t database, uint32_t subfid, KVSUBFORM* subform);

/** As KVFormCopy, for subforms: any failure of the copy but KVFAIL_NAME_IN_USE is KVFAIL_NO_SUBFORM. */
KVAPI uint32_t KVSubformCopy(uint32_t src_database, uint32_t src_subfid, uint32_t dest_database,
                             const char* dest_subformname, uint32_t* dest_subfid);

/** Deletes a subform. Documents that are bound to a form with this subform keep what was read of it.
 *  @param database  an open database of this thread
 *  @param subfid    id of the subform
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_NO_SUBFORM, KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVSubformDelete(uint32_t database, uint32_t subfid);

/** Stores a new subform.
 *  @param database   an open database of this thread
 *  @param subform    the subform
 *  @param body       a composite of this thread: the page with its fields, without subforms
 *  @param subformid  [out, optional] id of the subform, 0 on failure
 *  @return as KVFormCreate, and KVFAIL_SUBFORM_NESTED (the body refers to a subform; nothing is stored);
 *          versions play no part but in KVFAIL_DUPLICATE_FIELD */
KVAPI uint32_t KVSubformCreate(uint32_t database, const KVSUBFORM* subform, uint32_t body,
                               uint32_t* subformid);

/** As KVFormList, for subforms. */
KVAPI uint32_t KVSubformList(uint32_t database, int32_t list, KVSUBFORMSUMM* summ);

/** Counts the fields of a form or subform. Fields of its subforms count when the database reads them
 * (KVPROP_DB_READ_SUBF_FIELDS).
 *  @param database  an open database of this thread
 *  @param formid    id of a form or subform
 *  @return the count; 0 without a status when there is no such form; 0 also for a failure, which KVErrorFetch
 *          tells: KVFAIL_NO_DATABASE, KVFAIL_BAD_HANDLE */
KVAPI uint32_t KVFieldGetCount(uint32_t database, uint32_t formid);

/** Lists the fields of a form or subform in the order of its page, those of its subforms in their place when
 * the database reads them. All handles of a session on one database share the place in the list.
 *  @param database  an open database of this thread
 *  @param formid    id of a form or subform
 *  @param list      KVLIST_ direction
 *  @param field     [out] the field, all zero on failure
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM, KVFAIL_NO_DATABASE, KVFAIL_NO_FORM (also when the form cannot be
 *          read), KVFAIL_END_OF_DATA, KVFAIL_DATA_UNAVAILABLE (no current field), KVFAIL_BAD_ENUM,
 *          KVFAIL_BAD_HANDLE */
KVAPI uint32_t KVFieldList(uint32_t database, uint32_t formid, int32_t list, KVFIELD* field);

/** Tells about a field by its name, without regard to case.
 *  @param database   an open database of this thread
 *  @param formid     id of a form or subform
 *  @param fieldname  the name; may be `field->name` itself
 *  @param field      [out] the field, all zero on failure
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM, KVFAIL_NO_DATABASE, KVFAIL_NO_FORM (also when the form cannot be
 *          read), KVFAIL_NO_FIELD, KVFAIL_BAD_HANDLE */
KVAPI uint32_t KVFieldFetch(uint32_t database, uint32_t formid, const char* fieldname, KVFIELD* field);

#ifdef __cplusplus
}
#endif

#endif
