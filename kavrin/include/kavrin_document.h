/* Documents of Kavrin: create, open, save, close, delete, copy, properties, validation, formulas.
 *
 * A document is an open note with a handle, in a database of the same session. Edits stay in the open note
 * until a save, or a close that saves. All functions run on the thread that owns the handle.
 *
 * A document may be strictly bound to a form (KVPROP_DB_STRICT_BIND for those that are opened or created from
 * now on, KVPROP_DOC_STRICT_BIND for one). Then the fields of the form are its only items: an item function
 * refuses other names with KVFAIL_NO_FIELD, stores values with the type and the format of the field, and
 * gives the value of a computed field. While KVPROP_DOC_STRICT_BIND_COMPUTE is on the form's formulas run:
 *
 *   creating   default values
 *   opening    fields computed for display
 *   saving     computed fields, input translations; after it fields computed for display
 *
 * A formula that fails leaves its field empty; the operation succeeds. Fields that are computed for display
 * are never stored. Which form: the one of the item "Form", else the one that the document carries in its own
 * items, else the default form of the database. */
#ifndef KAVRIN_DOCUMENT_H
#define KAVRIN_DOCUMENT_H

#include "kavrin_status.h"
#include "kavrin_types.h"

/** Flags of KVDocumentOpen. Other bits are dropped without complaint. */
enum {
  KVDOCOPEN_ENGINE_MASK = 0x20d, /**< bits that reach the engine: 1 summary items only, 8 without objects */
  KVDOCOPEN_BASE = 0x2           /**< always set on the way to the engine */
};

/** Flags of KVDocumentSave and KVDocumentClose. */
enum {
  KVDOCWRITE_ENGINE_MASK = 0x101, /**< bits that reach the engine: 1 stores also over a conflict */
  KVDOCWRITE_FORCE = 0x1,      /**< store although the document was changed elsewhere since it was opened */
  KVDOCWRITE_NOCOMMIT = 0x4,   /**< need not be on disk when the call returns */
  KVDOCWRITE_COMMIT = 0x10000, /**< on disk when the call returns, also when the database delays commits */
  KVDOCWRITE_DISCARD = 0x20000 /**< drop changes */
};

/** Flags of KVDocumentDelete. Their values differ from those of a save. */
enum {
  KVDOCDELETE_ENGINE_BIT = 0x1,   /**< leave no trace for replication */
  KVDOCDELETE_NOCOMMIT = 0x10000, /**< need not be on disk when the call returns */
  KVDOCDELETE_COMMIT = 0x20000    /**< on disk when the call returns, also when the database delays commits */
};

/** Results of KVDocumentExecute. */
enum {
  KVEXEC_NONE = 0,     /**< the formula does not select the document */
  KVEXEC_SELECT = 1,   /**< it selects the document */
  KVEXEC_MODIFIED = 2, /**< it changed the open document */
  KVEXEC_DELETE = 3    /**< it asks for the document to be deleted */
};

/** Properties of a document. Those without "set" are read only. */
enum {
  KVPROP_DOC_STRICT_BIND = 1,      /**< int32_t, set: bound strictly to a form */
  KVPROP_DOC_FORM_ID = 2,          /**< uint32_t: id of that form, 0 without one */
  KVPROP_DOC_DIRTY = 3,            /**< int32_t: has changes that were not saved */
  KVPROP_DOC_ID = 4,               /**< uint32_t: id, 0 before the first save */
  KVPROP_DOC_UNID = 5,             /**< KVUNID: identity in all replicas */
  KVPROP_DOC_OID = 6,              /**< 28 bytes: KVUNID, 4 bytes number of changes, KVDATETIME of the last */
  KVPROP_DOC_DATABASE = 7,         /**< uint32_t: handle of its database */
  KVPROP_DOC_ATTACHMENT_COUNT = 8, /**< uint32_t: number of attached files */
  KVPROP_DOC_NOTE_STAMP = 9,     /**< KVDATETIME: the part of the identity that holds the time of creation */
  KVPROP_DOC_INFO_4 = 10,        /**< KVDATETIME: last change in this file */
  KVPROP_DOC_INFO_8 = 11,        /**< KVDATETIME: last access */
  KVPROP_DOC_CLASS = 12,         /**< int32_t, set: class; reading gives the one it was opened with */
  KVPROP_DOC_TITLE_LENGTH = 13,  /**< uint32_t: bytes of the title, without NUL */
  KVPROP_DOC_TITLE = 14,         /**< text and NUL: the title that its form gives it, computed once; empty
                                      while it is not bound */
  KVPROP_DOC_EMBEDDED_FORM = 15, /**< int32_t: its form came out of its own items */
  KVPROP_DOC_ENCRYPTED = 16,     /**< int32_t: it was sealed, and could be unsealed when it was opened */
  KVPROP_DOC_FLAG_1 = 17,        /**< int32_t: bit 1 of the note's flags, as 1 or 0 */
  KVPROP_DOC_FLAG_2 = 18,        /**< int32_t: bit 2 of the note's flags, as 1 or 0 */
  KVPROP_DOC_HAS_PARENT = 19,    /**< int32_t: it is a response */
  KVPROP_DOC_PARENT_UNID = 20,   /**< KVUNID, set: its parent; all zero sets none */
  KVPROP_DOC_INFO_13 = 21,       /**< KVDATETIME: when it came into this file */
  KVPROP_DOC_STRICT_BIND_COMPUTE = 22 /**< int32_t, set: the form's formulas run */
};

#ifdef __cplusplus
extern "C" {
#endif

/** Makes a new, empty document. Nothing is stored before its first save.
 *  @param database  an open database of this thread
 *  @param formid    id of its form, or 0. The document is bound to the form while the database binds
 * strictly, else the form is kept for KVPROP_DOC_STRICT_BIND. A form that wants to be stored in its documents
 * is copied into it, all others are named by its item "Form". A form that carries files gives the engine's
 * status 0x1ff: this version does not copy those
 *  @param document  [out] the handle, 0 on failure; closed with KVDocumentClose
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`document`), KVFAIL_NO_DATABASE, KVFAIL_NO_FORM (no such form, or a
 *          subform), KVFAIL_STRICT_NO_FORM (a form to be stored in the document is not found by its name),
 *          KVFAIL_NO_MEMORY, KVFAIL_BAD_HANDLE (the database belongs to another thread), or an engine status
 */
KVAPI uint32_t KVDocumentCreate(uint32_t database, uint32_t formid, uint32_t* document);

/** Opens a document by its id.
 *  @param database       an open database of this thread
 *  @param docid          id of the document in that database
 *  @param docopen_flags  bits of KVDOCOPEN_ENGINE_MASK
 *  @param document       [out] the handle, 0 on failure; closed with KVDocumentClose
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`document`), KVFAIL_NO_DATABASE, KVFAIL_BAD_DOCUMENT (no such
 * document), KVFAIL_NON_DATA_DOCUMENT (a design record, and the database does not open those:
 * KVPROP_DB_DOCOPEN_DESIGN), KVFAIL_STRICT_NO_FORM (the database binds strictly, and the document has no
 * form: KVPROP_DB_STRICT_BIND), KVFAIL_NO_MEMORY, KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVDocumentOpen(uint32_t database, uint32_t docid, uint32_t docopen_flags, uint32_t* document);

/** Stores the changes of a document. Without changes nothing is written. A failing save leaves the document
 * unchanged in the database; the changes count as saved all the same unless a formula of the form refused
 * them.
 *  @param document        an open document
 *  @param docwrite_flags  KVDOCWRITE_ bits; with KVDOCWRITE_DISCARD the changes made so far count as none,
 * but stay in the open document: a later change saves them all
 *  @return KVSUCCESS; KVFAIL_BAD_DOCUMENT (also if an error procedure closed it), KVFAIL_BAD_HANDLE, or an
 * engine status, a conflict for instance */
KVAPI uint32_t KVDocumentSave(uint32_t document, uint32_t docwrite_flags);

/** Closes a document, storing its changes unless KVDOCWRITE_DISCARD is given. The handle is gone also when
 * the store fails.
 *  @param document        an open document
 *  @param docwrite_flags  KVDOCWRITE_ bits
 *  @return KVSUCCESS; KVFAIL_BAD_DOCUMENT, KVFAIL_BAD_HANDLE, or the first failure met */
KVAPI uint32_t KVDocumentClose(uint32_t document, uint32_t docwrite_flags);

/** Deletes a document by its id. Open handles on it are not looked at; their next save meets a conflict.
 *  @param database         an open database of this thread
 *  @param docid            id of the document
 *  @param docdelete_flags  KVDOCDELETE_ bits
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_BAD_DOCUMENT (id 0 or no such document),
 * KVFAIL_NON_DATA_DOCUMENT, KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVDocumentDelete(uint32_t database, uint32_t docid, uint32_t docdelete_flags);

/** Copies a document into a database, which may be the same. The copy has a new identity and no parent.
 *  @param src_database, src_docid  the document to copy
 *  @param dest_database            where the copy goes; both databases belong to the calling thread
 *  @param dest_docid               [out, optional] id of the copy, 0 on failure
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_BAD_DOCUMENT, or an engine status */
KVAPI uint32_t KVDocumentCopy(uint32_t src_database, uint32_t src_docid, uint32_t dest_database,
                              uint32_t* dest_docid);

/** Gives the engine's note handle.
 *  @param document         an open document
 *  @param tobrynd_flags    KVTOBRYND_GET_HANDLE (both handles stay usable) or KVTOBRYND_RELEASE (the document
 * is closed, its note stays open and belongs to the caller; 0x1, 0x4, 0x100, 0x10000 and 0x20000 act as in
 *                          KVDocumentClose)
 *  @param brynd_dochandle  [out] address of 4 bytes for the engine's handle
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM, KVFAIL_BAD_DOCUMENT, KVFAIL_NO_ACTION (neither or both flags; not
 * recorded for KVErrorFetch), KVFAIL_BAD_HANDLE, or the first failure of the close */
KVAPI uint32_t KVDocumentGetBryndHandle(uint32_t document, uint32_t tobrynd_flags, void* brynd_dochandle);

/** Finds a document by its identity.
 *  @param database  an open database of this thread
 *  @param unid      the identity
 *  @return the document's id; 0 when there is none, when it is a design record that the database does not
 * open, or for a bad database (then KVErrorFetch tells KVFAIL_NO_DATABASE) */
KVAPI uint32_t KVDocumentLocateByUnid(uint32_t database, const KVUNID* unid);

/** Finds the record of a class that a database treats as its own: its default form or view, its icon, its
 * access list and so on.
 *  @param database   an open database of this thread
 *  @param doc_class  one of 2, 4, 8, 16, 32, 64, 128, 256
 *  @return the record's id; 0 when there is none, for another class, or for a bad database (then KVErrorFetch
 *          tells KVFAIL_NO_DATABASE) */
KVAPI uint32_t KVDocumentLocateByClass(uint32_t database, int32_t doc_class);

/** Reads a property.
 *  @param document  an open document
 *  @param property  KVPROP_DOC_ number
 *  @param value     [out] room for the value, at any address; left alone on failure, but for KVPROP_DOC_ID
 * and KVPROP_DOC_PARENT_UNID, which are zero then
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`value`), KVFAIL_BAD_DOCUMENT, KVFAIL_BAD_PROPERTY (no such
 * property; above 20 for programs of a version before 0x40106), KVFAIL_DATA_UNAVAILABLE (KVPROP_DOC_ID before
 *          the first save, KVPROP_DOC_PARENT_UNID without a parent), KVFAIL_NO_MEMORY, KVFAIL_BAD_HANDLE, or
 *          an engine status, that of the title's formula for instance */
KVAPI uint32_t KVDocumentGetProperty(uint32_t document, int32_t property, void* value);

/** Sets a property.
 *  @param document  an open document
 *  @param property  KVPROP_DOC_ number
 *  @param value     the value, at any address. KVPROP_DOC_STRICT_BIND: 0 unbinds the document and keeps its
 *                   form aside, other numbers bind it to that form, or to the one it names. KVPROP_DOC_CLASS:
 * a single bit up to 0x800; it counts from the next save and opening on
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`value`), KVFAIL_BAD_DOCUMENT, KVFAIL_BAD_PROPERTY,
 *          KVFAIL_READ_ONLY_PROPERTY, KVFAIL_BAD_ENUM (KVPROP_DOC_CLASS), KVFAIL_STRICT_NO_FORM (a document
 *          without a form, or a design record, cannot be bound), KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVDocumentSetProperty(uint32_t document, int32_t property, const void* value);

/** Asks the validation formulas of the form whether the values of a document are good; the first that says no
 * ends it. A document that is not bound is valid.
 *  @param document   an open document
 *  @param length     most bytes of `failure`, without its NUL; 0 sets no limit
 *  @param is_valid   [out] 1 or 0
 *  @param failure    [out, optional] what the formula says about it, room for `length` + 1 bytes; empty when
 * it is longer (unless texts are truncated: KVPROP_SESS_TRUNCATE_TEXT) or cannot be told as text
 *  @param fieldname  [out, optional] the field that failed, room for 65 bytes
 *  @return KVSUCCESS, for an invalid document too; KVFAIL_NULL_PARAM (`is_valid`), KVFAIL_BAD_DOCUMENT,
 *          KVFAIL_BAD_HANDLE, or an engine status when a formula fails */
KVAPI uint32_t KVDocumentValidate(uint32_t document, uint32_t length, int32_t* is_valid, char* failure,
                                  char* fieldname);

/** Runs a formula against an open document. Its value can be read as the item "$$KVDocExecute!" until the
 * next run, a save or the close.
 *  @param document  an open document
 *  @param formula   text of the formula, at most 65,535 bytes; null or empty runs the last one of this
 * database handle again
 *  @param match     [out, optional] KVEXEC_ result. Without it a change that the formula makes does not count
 *                   as a change of the document
 *  @return KVSUCCESS; KVFAIL_BAD_DOCUMENT, KVFAIL_FORMULA (the error text tells the part at fault),
 *          KVFAIL_DATA_TOO_LONG, KVFAIL_DATA_UNAVAILABLE (no formula was run before), KVFAIL_BAD_HANDLE, or
 * an engine status when the formula fails */
KVAPI uint32_t KVDocumentExecute(uint32_t document, const char* formula, int32_t* match);

#ifdef __cplusplus
}
#endif

#endif
