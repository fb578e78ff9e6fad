/* Documents of Kavrin: create, open, save, close, delete, copy.
 *
 * A document is an open note with a handle, in a database of the same session. Edits stay in the open note
 * until a save, or a close that saves. All functions run on the thread that owns the handle. */
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

#ifdef __cplusplus
extern "C" {
#endif

/** Makes a new, empty document. Nothing is stored before its first save.
 *  @param database  an open database of this thread
 *  @param formid    id of the form to bind it to, or 0. This version reads no forms: any id but 0 gives
 * KVFAIL_NO_FORM
 *  @param document  [out] the handle, 0 on failure; closed with KVDocumentClose
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`document`), KVFAIL_NO_DATABASE, KVFAIL_NO_FORM, KVFAIL_NO_MEMORY,
 *          KVFAIL_BAD_HANDLE (the database belongs to another thread), or an engine status */
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
 *  @return KVSUCCESS; KVFAIL_BAD_DOCUMENT, KVFAIL_BAD_HANDLE, or an engine status, a conflict for instance */
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

#ifdef __cplusplus
}
#endif

#endif
