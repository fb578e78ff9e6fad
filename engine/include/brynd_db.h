/** @file brynd_db.h
 *  Databases: opening, creating, copying, their properties, searches, design lookups, objects.
 *
 *  Paths: relative ones lie below the data directory; a name without extension gets `.QDB`; an exact name
 *  wins, otherwise one that differs in case alone. A path may name a server, see EngNetPathBuild. Note ids
 *  are below 0x40000000 and never used twice; BRNOTE_SPECIAL | class stands for the special record of a
 *  class.
 */
#ifndef BRYND_DB_H
#define BRYND_DB_H

#include "brynd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Opens a database, or a directory for searching.
 *  @param path see above; empty is the data directory
 *  @param database [out] close it with EngDbClose
 *  @return 0, 0x103 no such file, 0x108 bad path, 0x109 no access, 0x10a not a database, 0x10b of a newer
 *    release, 0x110 too many are open, 0x800 unknown server. */
BRYND_API EngStatus EngDbOpen(const char* path, EngDb* database);

/** As EngDbOpen, with choices.
 *  @param flags bits within 0x3ba: accepted
 *  @param names 0
 *  @param modified null
 *  @param data_modified [out] time of the last change to data, may be null
 *  @param other_modified [out] time of the last change to anything else, may be null
 *  @return as EngDbOpen. */
BRYND_API EngStatus EngDbOpenEx(const char* path, uint32_t flags, EngMem names, const TIMEDATE* modified,
                                EngDb* database, TIMEDATE* data_modified, TIMEDATE* other_modified);

/** Opens the database of a handle once more, for the calling thread; the only call that takes another
 *  thread's handle.
 *  @param source stays open during the call
 *  @param database [out] close it with EngDbClose
 *  @return as EngDbOpen, 0x1f0. */
BRYND_API EngStatus EngDbReopen(EngDb source, EngDb* database);

/** Closes a handle; 0 is none and no failure. Earlier lazy updates are on disk when it returns. Notes and
 *  computes of the handle that are still open become bad handles.
 *  @return 0, 0x1f0, 0x1f5 the disk did not confirm (the handle is gone all the same). */
BRYND_API EngStatus EngDbClose(EngDb database);

/** As EngDbClose, and ends what is kept for the connection to its server.
 *  @return as EngDbClose. */
BRYND_API EngStatus EngDbSessionClose(EngDb database);

/** Makes a database with its icon record.
 *  @param db_class class word, 0 the default 0xff01
 *  @param overwrite non-zero: a file of that name is replaced
 *  @param flags 0
 *  @param encryption 0
 *  @param size_limit 1 to 4 gigabytes that the file may grow to, 0 for no limit
 *  @return 0, 0x104 the file exists, 0x108, 0x109. */
BRYND_API EngStatus EngDbCreate(const char* path, uint16_t db_class, int32_t overwrite, uint32_t flags,
                                uint16_t encryption, uint32_t size_limit);

/** Deletes a database that nobody has open.
 *  @return 0, 0x103, 0x108, 0x109, 0x10a, 0x10e in use. */
BRYND_API EngStatus EngDbDelete(const char* path);

/** Copies notes and the objects that belong to them into another database; their universal ids stay, and a
 *  note already there is replaced. The items of the icon record go into the one there.
 *  @param since only notes changed at or after it; null for all
 *  @param class_mask classes of notes, 0x7fff all
 *  @return 0, 0x10c a directory, 0x1f0, 0x1f2 some notes were damaged and all others are copied, 0x1f8, and
 *    what reading and writing give. */
BRYND_API EngStatus EngDbCopy(EngDb source, EngDb destination, const TIMEDATE* since, uint16_t class_mask);

/** Gives free space back. A crash at any point loses nothing.
 *  @param path not a server's
 *  @param options 0
 *  @param sizes [out] file sizes before and after; may be null
 *  @return 0, 0x103, 0x108, 0x10a, 0x10c a directory, 0x1f1, 0x1f4 others are writing. */
BRYND_API EngStatus EngDbCompact(const char* path, uint32_t options, DBCOMPACTSIZES* sizes);

/** What a handle is open on.
 *  @param mode [out] 1 a database, 2 a directory
 *  @return 0, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngDbModeGet(EngDb database, uint16_t* mode);

/** @param db_class [out] the class word that the database was created with
 *  @return 0, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngDbClassGet(EngDb database, uint16_t* db_class);

/** @param build [out] build number of the engine behind the handle, at least 136
 *  @return 0, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngDbBuildVersionGet(EngDb database, uint16_t* build);

/** The identity of the database file; a copy of the file has another.
 *  @param id [out]
 *  @return 0, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngDbIdGet(EngDb database, TIMEDATE* id);

/** When the database changed last.
 *  @param data [out] data documents, deleted ones too; the wildcard when there was none; may be null
 *  @param other [out] everything else; may be null
 *  @return 0, 0x10c a directory, 0x1f0. */
BRYND_API EngStatus EngDbModifiedTimeGet(EngDb database, TIMEDATE* data, TIMEDATE* other);

/** How the file's space is used.
 *  @param used [out] bytes, at most 0xffffffff; may be null
 *  @param unused [out] bytes that compaction would give back; may be null
 *  @return 0, 0x10c a directory, 0x1f0. */
BRYND_API EngStatus EngDbSpaceUsageGet(EngDb database, uint32_t* used, uint32_t* unused);

/** The information buffer of a database.
 *  @param info [out] 128 bytes: title, LF, categories, LF `#1` template name, LF `#2` inherited template
 *    name, NUL
 *  @return 0, 0x10c a directory, 0x1f0, 0x1f1, 0x1f2 damaged. */
BRYND_API EngStatus EngDbInfoGet(EngDb database, char* info);

/** Writes the information buffer.
 *  @param info 128 bytes, read up to their NUL
 *  @return 0, 0x10c a directory, 0x1f0, 0x1f1, 0x1f8 read-only. */
BRYND_API EngStatus EngDbInfoSet(EngDb database, const char* info);

/** Reads a field of an information buffer.
 *  @param info 128 bytes
 *  @param field 0 title, 1 categories, 2 template name, 3 inherited template name
 *  @param text [out]
 *  @param text_limit most bytes written, without the NUL
 *  @return 0, 0x1f1. Any thread. */
BRYND_API EngStatus EngDbInfoFieldGet(const char* info, uint16_t field, char* text, uint16_t text_limit);

/** Writes a field of an information buffer; what does not fit into the buffer is cut, the last fields first.
 *  @param info [in, out] 128 bytes
 *  @param text null counts as empty; a blank stands for a LF
 *  @return 0, 0x1f1. Any thread. */
BRYND_API EngStatus EngDbInfoFieldSet(char* info, uint16_t field, const char* text);

/** @param info [out] replication settings
 *  @return 0, 0x10c a directory, 0x1f0, 0x1f1, 0x1f2 damaged. */
BRYND_API EngStatus EngDbReplicaInfoGet(EngDb database, DBREPLICAINFO* info);

/** Writes the replication settings.
 *  @return 0, 0x10c a directory, 0x1f0, 0x1f1, 0x1f8. */
BRYND_API EngStatus EngDbReplicaInfoSet(EngDb database, const DBREPLICAINFO* info);

/** Finds a database in or below a directory by its replica id.
 *  @param directory a directory's handle
 *  @param file_class 0, or a file selector as in EngDbSearch, of which the kind counts
 *  @param path [out] as EngDbOpen takes it on the same server, as `$Path` in EngDbSearch; NUL included
 *  @param path_bytes room at path, the NUL included
 *  @return 0, 0x103 the directory is gone, 0x109 no access to it, 0x1f0, 0x1f1 no directory, 0x1f9 too little
 *    room, 0x404 none. */
BRYND_API EngStatus EngDbLocateByReplica(EngDb directory, uint16_t file_class, const TIMEDATE* replica,
                                         char* path, uint16_t path_bytes);

/** A fresh originator id for a note of a database.
 *  @param originator [out] sequence 1, now
 *  @return 0, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngDbOidGenerate(EngDb database, ORIGINATORID* originator);

/** What the head of a note says, by its note id. Each output may be null.
 *  @param originator [out] @param modified [out] when it was last changed in this file @param note_class
 *    [out]
 *  @return 0, 0x1f0, 0x227 no such note, 0x228 deleted. */
BRYND_API EngStatus EngDbIdInfoGet(EngDb database, uint32_t id, ORIGINATORID* originator, TIMEDATE* modified,
                                   uint16_t* note_class);

/** As EngDbIdInfoGet, by universal id.
 *  @param id [out] note id; may be null
 *  @return 0, 0x1f0, 0x1f1, 0x227, 0x228. */
BRYND_API EngStatus EngDbUnidInfoGet(EngDb database, const UNIVERSALNOTEID* unid, uint32_t* id,
                                     ORIGINATORID* originator, TIMEDATE* modified, uint16_t* note_class);

/** The note id of a special record.
 *  @param note_class BRCLASS_DEFAULT | class: the default record of the class
 *  @param id [out]
 *  @return 0, 0x1f0, 0x1f1, 0x404 none. */
BRYND_API EngStatus EngDbSpecialIdGet(EngDb database, uint16_t note_class, uint32_t* id);

/** Deletes the notes of an id table, all or none; ids that name no note are passed over.
 *  @param update_word as EngNoteDelete
 *  @return 0, 0x10c a directory, 0x1f0, 0x1f2 a note is damaged, 0x1f8. */
BRYND_API EngStatus EngDbDeleteIds(EngDb database, EngIdTable table, uint16_t update_word);

/** The notes changed at or after a time, deleted ones included: their ids carry the bit 0x80000000. Damaged
 *  notes are passed over.
 *  @param class_mask classes
 *  @param since null for all
 *  @param until [out] time to pass as since the next time, also the time of the table; may be null
 *  @param table [out] owned by the caller
 *  @return 0, 0x10c a directory, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngDbModifiedTableGet(EngDb database, uint16_t class_mask, const TIMEDATE* since,
                                          TIMEDATE* until, EngIdTable* table);

/** Looks at all notes of some classes in order of their ids, or at the files of a directory in order of
 *  their names. Deleted and damaged notes are passed over, so are files that are no databases.
 *
 *  Summaries of a directory have `$Path` (text, as EngDbOpen takes it on the same server), `$Type` ("$DIR",
 *  "$NOTEFILE"), `$Modified` (time), and for a database `$Info` (text, see EngDbInfoGet) and `$Length`
 *  (number, bytes). A file selector has the kind of the entries in its low byte (2 templates, 6 and above no
 *  databases, other kinds all databases) and bits: 0x2000 the folders below too, 0x4000 no entries for
 *  folders.
 *  @param formula block with a compiled selection formula, 0 for all; not for a directory
 *  @param view_title not used
 *  @param flags 2 with a summary of names and values, 4 the handle is a directory
 *  @param class_mask classes, a private record only with BRCLASS_PRIVATE in it too, 0x7fff all; for a
 *    directory a file selector
 *  @param since only notes changed at or after it; null for all; not for a directory
 *  @param callback called for each match, with a summary or null; its non-zero result ends the search. It may
 *    read and write the database and close its handle. Notes that it adds are not looked at.
 *  @param until [out] the time of the search, to pass as since the next time; may be null. Written when the
 *    search went to its end.
 *  @return 0, the callback's result, 0x103 the directory is gone, 0x109 no access to it, 0x10c a directory
 *    without the flag for it, 0x1f0 (also when the callback closed the handle), 0x1f1, a formula's status. */
BRYND_API EngStatus EngDbSearch(EngDb database, EngMem formula, const char* view_title, uint16_t flags,
                                uint16_t class_mask, const TIMEDATE* since, EngSearchCallback callback,
                                void* parameter, TIMEDATE* until);

/** Finds a shared design record whose whole title (a list joined with `|`) or any one synonym is the
 *  name, without regard to case.
 *  @param note_class BRCLASS_FORM, BRCLASS_VIEW, ...
 *  @param id [out]
 *  @return 0, 0x1f0, 0x1f1, 0x404 none. */
BRYND_API EngStatus EngDesignFind(EngDb database, const char* name, uint16_t note_class, uint32_t* id);

/** As EngDesignFind, for the current user's private records.
 *  @return 0, 0x1f0, 0x1f1, 0x404 none. */
BRYND_API EngStatus EngDesignFindPrivate(EngDb database, const char* name, uint16_t note_class, uint32_t* id);

/** Makes an object: bytes stored beside the notes, filled with 0.
 *  @param object_class class of the notes that it belongs to
 *  @param privileges 0
 *  @param object [out] its id
 *  @return 0, 0x1f0, 0x1f1 also over 2 gigabytes, 0x1f8. */
BRYND_API EngStatus EngDbObjectAlloc(EngDb database, uint32_t object_bytes, uint16_t object_class,
                                     uint16_t privileges, uint32_t* object);

/** Changes the size of an object; further bytes are 0.
 *  @return 0, 0x1f0, 0x1f1 over 2 gigabytes, 0x1f2 damaged, 0x1f8, 0x22c no such object. */
BRYND_API EngStatus EngDbObjectRealloc(EngDb database, uint32_t object, uint32_t object_bytes);

/** Deletes an object.
 *  @return 0, 0x1f0, 0x22c, 0x1f8. */
BRYND_API EngStatus EngDbObjectFree(EngDb database, uint32_t object);

/** Reads a part of an object into a fresh block.
 *  @param length bytes; 0xffffffff for all from the offset on
 *  @param memory [out] owned by the caller
 *  @return 0, 0x107, 0x1f0, 0x1f1 not within the object, 0x1f2 damaged, 0x22c. */
BRYND_API EngStatus EngDbObjectRead(EngDb database, uint32_t object, uint32_t offset, uint32_t length,
                                    EngMem* memory);

/** Writes the start of a block into an object.
 *  @param length bytes; offset and length lie within the object
 *  @return 0, 0x1f0, 0x1f1 not within object or block, 0x1f2 damaged, 0x1f8, 0x22c. */
BRYND_API EngStatus EngDbObjectWrite(EngDb database, uint32_t object, EngMem memory, uint32_t offset,
                                     uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
