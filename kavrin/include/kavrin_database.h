/* Databases of Kavrin: open handles, their settings and facts, and the administration of whole databases.
 *
 * A path is relative to the data directory of the machine that holds the database, or absolute; `/` parts
 * its pieces. A null or empty server is this machine, and so is the name set as KVPROP_SESS_LOCAL_SERVER,
 * compared without regard to case. A server that contains `!` is taken as the head of a network path, and
 * the path is put behind it as it is.
 *
 * A handle works in the thread that made it; KVDatabaseReopen takes a database to another thread.
 * Functions with a handle also give the statuses of a foreign or missing session: KVFAIL_BAD_HANDLE,
 * KVFAIL_NOT_INITIALIZED, KVFAIL_THREAD_NOT_INITIALIZED; functions without one the last two. */
#ifndef KAVRIN_DATABASE_H
#define KAVRIN_DATABASE_H

#include "kavrin_types.h"

/** Bits of KVDatabaseOpen that reach the engine; all others are dropped. */
enum { KVDBOPEN_ENGINE_MASK = 0x3ba };

/** Flags of KVDatabaseClose. */
enum {
  KVDBCLOSE_SAVE_DOCS = 0x1, /**< open documents are saved; without it their changes are lost */
  KVDBCLOSE_SESSION = 0x2    /**< ends the connection to the database's server too */
};

/* What the functions that tell an engine handle do with the public one. C++ gets typed constants; C gets
 * an enumeration whose values need the range of unsigned int. */
#ifdef __cplusplus
inline constexpr uint32_t KVTOBRYND_GET_HANDLE = 0x40000000u;
inline constexpr uint32_t KVTOBRYND_RELEASE = 0x80000000u;
#else
__extension__ enum {
  KVTOBRYND_GET_HANDLE = 0x40000000u, /**< tells the engine handle and keeps the public one */
  KVTOBRYND_RELEASE = 0x80000000u     /**< tells the engine handle and ends the public one */
};
#endif

/** Properties of a database handle. A bool is an int32_t that reads as 1 or 0; any non-zero word sets it. */
enum {
  KVPROP_DB_SUMMARY_LIMIT = 1,       /**< uint32_t, bytes, at most 0x3c00: longest item of summaries */
  KVPROP_DB_DELAY_COMMIT = 2,        /**< bool: updates need not be on disk when they return */
  KVPROP_DB_STRICT_BIND = 3,         /**< bool: items must match the form */
  KVPROP_DB_FETCH_DESIGN_CODE = 4,   /**< bool: formulas of design elements are fetched */
  KVPROP_DB_DOCOPEN_DESIGN = 5,      /**< bool: documents that hold no data may be opened */
  KVPROP_DB_SERVER = 6,              /**< text, 255 characters, read only: server, empty if local */
  KVPROP_DB_FILEPATH = 7,            /**< text, 255 characters, read only: the path */
  KVPROP_DB_TITLE = 8,               /**< text, 129 characters, 65 for callers of versions below 0x20306: the
                                          title. It reads as it was when the database was opened */
  KVPROP_DB_INFO_1 = 9,              /**< text, 127 characters: the categories */
  KVPROP_DB_INFO_2 = 10,             /**< text, 127 characters: name of the template that this database is */
  KVPROP_DB_INFO_3 = 11,             /**< text, 127 characters: name of the template that its design comes
                                          from */
  KVPROP_DB_DEFAULT_FORM = 12,       /**< uint32_t: id of the default form, 0 if there is none */
  KVPROP_DB_DEFAULT_VIEW = 13,       /**< uint32_t: id of the default view, 0 if there is none */
  KVPROP_DB_REPLICA_DB_FLAGS = 14,   /**< uint32_t: replication flags within 0xc60 */
  KVPROP_DB_REPLICA_ID = 15,         /**< KVDATETIME: replica id */
  KVPROP_DB_CUTOFF_INTERVAL = 16,    /**< uint32_t, days, 16 bits are kept: cutoff interval of replication */
  KVPROP_DB_REPLICA_PRIORITY = 17,   /**< int32_t, 0 to 3: replication priority */
  KVPROP_DB_REPLICA_FLAGS = 18,      /**< uint32_t: replication flags within 0x294 */
  KVPROP_DB_CLASS = 19,              /**< int32_t, read only: class, as in KVDatabaseCreate */
  KVPROP_DB_ID = 20,                 /**< KVDATETIME, read only: identity of this file */
  KVPROP_DB_DATA_MODIFIED = 21,      /**< KVDATETIME, read only: last change of data */
  KVPROP_DB_DESIGN_MODIFIED = 22,    /**< KVDATETIME, read only: last change of anything else */
  KVPROP_DB_INSTANCE_ID = 23,        /**< KVDATETIME, read only: the same as KVPROP_DB_ID */
  KVPROP_DB_SPACE_1 = 24,            /**< uint32_t, bytes, at most 0xffffffff, read only: space in use */
  KVPROP_DB_SPACE_2 = 25,            /**< uint32_t, bytes, at most 0xffffffff, read only: space that is free
                                          in the file */
  KVPROP_DB_HAS_FULLTEXT = 26,       /**< bool, read only: the database has a full-text index */
  KVPROP_DB_FULLTEXT_TIME = 27,      /**< KVDATETIME, read only: when the full-text index was brought up to
                                          date */
  KVPROP_DB_VCACHE_ROWS = 28,        /**< uint32_t: rows of the view cache; 0 is stored as 1 */
  KVPROP_DB_READ_SUBF_FIELDS = 29,   /**< bool: reading a form descends into its subforms */
  KVPROP_DB_STORED_FORM = 30,        /**< bool: documents may carry their form */
  KVPROP_DB_BUILD = 31,              /**< uint32_t, read only: build number of the engine that holds the
                                          database */
  KVPROP_DB_STRICT_BIND_COMPUTE = 32 /**< bool: strict binding also while computing */
};

/** Flags of KVDatabaseCreate. */
enum {
  KVDBCREATE_INHERIT_TEMPLATE = 0x1,   /**< the design is kept in step with the template */
  KVDBCREATE_ENGINE_FLAG_4 = 0x4,      /**< flag 4 of the engine's creation, in class 0 */
  KVDBCREATE_OVERWRITE = 0x10,         /**< an existing file is overwritten */
  KVDBCREATE_ENCRYPT_MASK = 0x0F000000 /**< encryption strength; 0 is no encryption */
};

/** Flags of KVDatabaseCopy. */
enum {
  KVDBCOPY_KEEP_INFO = 1, /**< title, categories and template names come from the source */
  KVDBCOPY_ACL = 2,       /**< the access control list comes from the source */
  KVDBCOPY_REPLICA = 4    /**< the copy becomes a replica of the source */
};

#ifdef __cplusplus
extern "C" {
#endif

/** Opens a database in the calling thread's session. The handle takes its settings from the session's
 *  defaults; a later change of a default does not reach it. Handles of one session on one database share
 *  its design.
 *  @param server the server that holds the database; null or empty for this machine.
 *  @param filepath the path.
 *  @param dbopen_flags bits for the engine, within KVDBOPEN_ENGINE_MASK; usually 0.
 *  @param database [out] the new handle, 0 on failure; the caller closes it with KVDatabaseClose.
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (database, then filepath, also when it is empty);
 *          KVFAIL_NO_DATABASE when there is no such file or it is a directory; KVFAIL_NO_MEMORY; or a
 *          status of the engine. Any thread with a session. */
KVAPI uint32_t KVDatabaseOpen(const char* server, const char* filepath, uint32_t dbopen_flags,
                              uint32_t* database);

/** Closes a handle and all that hangs from it: indexes, documents, composites, a changed access control
 *  list.
 *  @param database the handle; it is gone afterwards, also on failure.
 *  @param dbclose_flags KVDBCLOSE_*.
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE; or the engine's status when the changed access control list
 *          could not be stored: the handle is gone, and the engine's database stays open. Owner's thread
 *          only. */
KVAPI uint32_t KVDatabaseClose(uint32_t database, uint32_t dbclose_flags);

/** Opens a further, independent handle on a database, in the calling thread's session. The source may
 *  belong to any thread; its owner must not close it, nor change its settings or the defaults of its
 *  session, during the call.
 *  @param database the source.
 *  @param bInheritProp non-zero: the settings come from the source; 0: from the defaults of the session
 *         that owns the source.
 *  @param phAlias [out] the new handle, 0 on failure; never null; the caller closes it with
 *         KVDatabaseClose.
 *  @return KVSUCCESS; KVFAIL_BAD_HANDLE when no thread's session knows the source; KVFAIL_NO_MEMORY; or a
 *          status of the engine. Any thread with a session. */
KVAPI uint32_t KVDatabaseReopen(uint32_t database, int32_t bInheritProp, uint32_t* phAlias);

/** Tells the engine's handle of a database.
 *  @param database the handle.
 *  @param tobrynd_flags one of KVTOBRYND_GET_HANDLE and KVTOBRYND_RELEASE; with the latter also
 *         KVDBCLOSE_SAVE_DOCS.
 *  @param brynd_dbhandle [out] the engine's handle, a uint32_t. It belongs to the library, or with
 *         KVTOBRYND_RELEASE to the caller, who closes it with the engine; the public handle is gone then.
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM; KVFAIL_NO_DATABASE; KVFAIL_NO_ACTION for both flags or neither;
 *          or the engine's status when a release could not store the changed access control list. Owner's
 *          thread only. */
KVAPI uint32_t KVDatabaseGetBryndHandle(uint32_t database, uint32_t tobrynd_flags, void* brynd_dbhandle);

/** Reads a property.
 *  @param database the handle.
 *  @param property KVPROP_DB_*. Callers of versions below 0x40000 see 1 to 28, below 0x40106 1 to 31.
 *  @param value [out] variable of the property's type; room for the property's characters and a NUL for
 *         text. It may be written on a failure of the engine too, and is then 0 or empty.
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM; KVFAIL_NO_DATABASE; KVFAIL_BAD_PROPERTY; KVFAIL_INTERNAL when a
 *          database has no icon record for KVPROP_DB_STORED_FORM; or a status of the engine. Owner's
 *          thread only. */
KVAPI uint32_t KVDatabaseGetProperty(uint32_t database, int32_t property, void* value);

/** Changes a property. Settings change for this handle alone; what is stored in the database is changed at
 *  once.
 *  @param database the handle.
 *  @param property KVPROP_DB_*, as in KVDatabaseGetProperty.
 *  @param value variable of the property's type, or the text itself. The title, the categories and the two
 *         template names have together at most 127 characters. An id 0 clears a default.
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM; KVFAIL_NO_DATABASE; KVFAIL_BAD_PROPERTY;
 *          KVFAIL_READ_ONLY_PROPERTY; KVFAIL_DATA_TOO_LONG; KVFAIL_NO_FORM, KVFAIL_NO_VIEW when a new
 *          default is none; KVFAIL_INTERNAL as in KVDatabaseGetProperty; or a status of the engine.
 *          Owner's thread only. */
KVAPI uint32_t KVDatabaseSetProperty(uint32_t database, int32_t property, const void* value);

/** Creates a database. A failure leaves no file behind.
 *  @param server the server to create it on; null or empty for this machine.
 *  @param filepath the path of the new database.
 *  @param title [optional] its title; a null or empty one comes from the template.
 *  @param categories [optional] its categories; null or empty ones come from the template.
 *  @param template_server [optional] the server of the template.
 *  @param template_filepath [optional] a database whose records are copied; without one there is an empty
 *         view.
 *  @param db_class 0 for the default class, or 1 to 13.
 *  @param dbcreate_flags KVDBCREATE_*.
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM for a null or empty filepath; KVFAIL_BAD_ENUM; KVFAIL_NOT_FOUND
 *          when there is no such template; KVFAIL_DATA_TOO_LONG when title, categories and template name
 *          have together more than 127 characters; KVFAIL_NAME_IN_USE when the file exists and is not to
 *          be overwritten; or a status of the engine. Any thread with a session. */
KVAPI uint32_t KVDatabaseCreate(const char* server, const char* filepath, const char* title,
                                const char* categories, const char* template_server,
                                const char* template_filepath, uint32_t db_class, uint32_t dbcreate_flags);

/** Deletes a database.
 *  @param server the server that holds it; null or empty for this machine.
 *  @param filepath the path.
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM for a null or empty filepath; KVFAIL_NO_DATABASE; or a status of
 *          the engine. Any thread with a session. */
KVAPI uint32_t KVDatabaseDelete(const char* server, const char* filepath);

/** Copies a database into another one, which is created if it does not exist. A failure deletes a created
 *  one again; an existing one stays.
 *  @param src_server, src_filepath the source.
 *  @param dest_server, dest_filepath the destination.
 *  @param dest_title [optional] with KVDBCOPY_KEEP_INFO the title of the copy instead of the source's, at
 *         most 127 characters; without that flag it is ignored.
 *  @param dbcopy_flags KVDBCOPY_*.
 *  @param doc_class mask of the classes to copy, 16 bits; 0 for all. A new database gets a view of all
 *         documents unless the mask has the bit of the views (8), which 0 has not.
 *  @param doc_begin [optional] only records changed since then are copied.
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM for a null or empty path (source, then destination);
 *          KVFAIL_NO_DATABASE when there is no source; KVFAIL_DATA_TOO_LONG for dest_title; or a status of
 *          the engine. Any thread with a session. */
KVAPI uint32_t KVDatabaseCopy(const char* src_server, const char* src_filepath, const char* dest_server,
                              const char* dest_filepath, const char* dest_title, uint32_t dbcopy_flags,
                              uint32_t doc_class, const KVDATETIME* doc_begin);

/** Gives the free space of a database on this machine back to the system.
 *  @param server null, empty, or the name of this machine's server.
 *  @param filepath the path.
 *  @param size_before [out, optional] bytes before, at most 0xffffffff; 0 on failure.
 *  @param size_after [out, optional] bytes after, at most 0xffffffff; 0 on failure.
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM for a null or empty filepath; KVFAIL_LOCAL_ONLY for any other
 *          server, and for any server while KVPROP_SESS_LOCAL_SERVER is not set; KVFAIL_NO_DATABASE; or a
 *          status of the engine. Any thread with a session. */
KVAPI uint32_t KVDatabaseCompact(const char* server, const char* filepath, uint32_t* size_before,
                                 uint32_t* size_after);

#ifdef __cplusplus
}
#endif

#endif
