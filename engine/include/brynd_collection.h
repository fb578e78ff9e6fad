/** @file brynd_collection.h
 *  Views and folders as collections of rows, full-text indexes and searches, folders.
 *
 *  A collection is the stored index of a view or folder, shared by all handles and processes. The calls of
 * full-text indexes and searches answer 0x1ff (not available in this build), except that closing search 0
 * succeeds.
 *
 *  Every call can also give the statuses of damaged files (0x1f2), of memory (0x107) and of the file system.
 * A handle belongs to the thread that made it.
 */
#ifndef BRYND_COLLECTION_H
#define BRYND_COLLECTION_H

#include "brynd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Opens a view or folder as a collection of rows.
 *  @param view_database holds the design, @param data_database the documents
 *  @param view note id of the design, or 0xffff0020 for the design collection
 *  @param flags 1 build anew, 2 do not update, 4 leave out deleted ones (they always are)
 *  @param unread id table of unread documents or 0; stays the caller's, looked at by each read while it lives
 *  @param collection [out] @param view_note [out] the design opened, closed by the caller, or null
 *  @param view_unid [out] or null
 *  @param collapsed [out] rows shown closed: an id table owned by the collection, or null
 *  @param selected [out] 0, or null
 *  @return 0, 0x1f0, 0x1f1, 0x1f8 in a file that is read only and has no index yet, 0x1f4, 0x227 no such
 * view, 0x406 no usable design, 0x3xx its formula is damaged */
BRYND_API EngStatus EngCollectionOpen(EngDb view_database, EngDb data_database, uint32_t view, uint16_t flags,
                                      EngIdTable unread, EngCollection* collection, EngNote* view_note,
                                      UNIVERSALNOTEID* view_unid, EngIdTable* collapsed,
                                      EngIdTable* selected);

/** Closes a collection; 0 is none and no failure.
 *  @return 0, 0x1f0 */
BRYND_API EngStatus EngCollectionClose(EngCollection collection);

/** Takes in what changed in the database, for all collections open in its handle.
 *  @return 0, 0x1f0, 0x1f4, 0x1f8, 0x227, 0x406 */
BRYND_API EngStatus EngCollectionUpdate(EngCollection collection);

/** Moves a position, then reads rows from there on.
 *  @param position [in, out] the place; rests on the last row returned
 *  @param skip_navigator how to step: 0 not at all, 1 next, 4 first child, 5 and 6 next and previous peer, 9
 * previous, 12 and 13 next and previous main document, 19 next row of a higher level, 43 and 44 next and
 * previous row that is no category; with 0x8000 the row reached is returned though the skip ended early
 *  @param skip_count how often, 0xffff with 0x8000 in the navigator: to
 *    the end
 *  @param return_navigator from row to row @param return_count at most so many @param return_mask what
 *    each row holds, in this order: 1 note id 4 bytes, 2 universal id 16, 4 class 2, 8 siblings 4, 0x10
 *    children 4, 0x20 descendants 4, 0x40 anything unread 2, 0x80 indent 2, 0x200 score 2, 0x400 unread 2,
 *    0x4000 position, 0x2000 values, 0x8000 values with names; 0x100: two words before the first row, the
 *    rows at the top without the total, and 0
 *  @param memory [out] block with the rows, owned by the caller; 0 without rows. This and all below may
 *    be null.
 *  @param memory_bytes [out] @param skipped [out] steps done @param returned [out] rows
 *  @param signal [out] 0x20: there are more rows
 *  @return 0 also when there is no such row, 0x1f0, 0x1f1 no such navigator, 0x1ff a navigator of hits, 0x406
 */
BRYND_API EngStatus EngCollectionRead(EngCollection collection, COLLECTIONPOSITION* position,
                                      uint16_t skip_navigator, uint32_t skip_count, uint16_t return_navigator,
                                      uint32_t return_count, uint32_t return_mask, EngMem* memory,
                                      uint16_t* memory_bytes, uint32_t* skipped, uint32_t* returned,
                                      uint16_t* signal);

/** Finds the first row with a key.
 *  @param key ITEM_TABLE of the sorted columns' values
 *  @param flags 1 the leading part of a text key, 2 without regard to case, 8 without regard to accents
 *  @param position [out] or null @param match_count [out] exact, or null
 *  @return 0, 0x1f0, 0x1f1 no keys or more than sorted columns, 0x404 no such row */
BRYND_API EngStatus EngCollectionFindKey(EngCollection collection, const void* key, uint16_t flags,
                                         COLLECTIONPOSITION* position, uint32_t* match_count);

/** As EngCollectionFindKey, for one text key.
 *  @return as EngCollectionFindKey */
BRYND_API EngStatus EngCollectionFindName(EngCollection collection, const char* name, uint16_t flags,
                                          COLLECTIONPOSITION* position, uint32_t* match_count);

/** Builds the full-text index of a database, or brings it up to date; other flags or stop words build it
 *  anew.
 *  @param flags 2 attachments too (not available in this build), 4 words as written too, 8 sentences and
 *    paragraphs, 0x10 no stop words, 0x40 build anew, 0x80 as the index is, 0x100 sealed items too
 *  @param stop_words UTF-8 file with words to leave out, or null for the usual ones
 *  @param stats [out] what was done; may be null
 *  @return 0; 0x1f0, 0x1f1 other flags, 0x1ff, 0x103 no stop word file, 0x1f2 damaged (0x40 mends it), 0x1f4,
 *    or a status of writing. The owner's thread. */
BRYND_API EngStatus EngFullTextIndexBuild(EngDb database, uint16_t flags, const char* stop_words,
                                          FT_INDEX_STATS* stats);

/** Deletes the full-text index of a database; 0xf02 without one. */
BRYND_API EngStatus EngFullTextIndexDelete(EngDb database);

/** @param time [out] when the index was last brought up to date; 0xf02 without an index */
BRYND_API EngStatus EngFullTextIndexTimeGet(EngDb database, TIMEDATE* time);

/** Begins a full-text search.
 *  @param search [out] */
BRYND_API EngStatus EngFullTextSearchOpen(EngSearch* search);

/** Searches the documents of a database, in its full-text index when it has one; that is brought up to date
 *  first. docs/fulltext.md tells how queries are written.
 *  @param search [in, out] keeps the hits @param collection 0, or the view to search in
 *  @param query what to find
 *  @param options 1 within the collection (not available in this build), 4 within the id table, 8 scores and,
 *    without 0x20, by score, 0x10 answer as an id table, 0x20 by date, 0x40 ascending, 0x80 limited,
 *    0x200 stems
 *  @param limit most hits, 0 for all @param confine id table or 0
 *  @param hit_count [out] may be null @param reserved null
 *  @param results [out] owned by the caller: an id table, or a block of the count, a zero word, the ids, and
 *    a byte of score for each, 0 to 100
 *  @return 0; 0xf22 nothing found, 0xf03 no query, 0x1f0, 0x1f1, 0x1ff, 0x1f2 damaged. The owner's thread. */
BRYND_API EngStatus EngFullTextSearchRun(EngDb database, EngSearch* search, EngCollection collection,
                                         const char* query, uint32_t options, uint16_t limit,
                                         EngIdTable confine, uint32_t* hit_count, EngMem* reserved,
                                         EngMem* results);

/** Ends a full-text search. */
BRYND_API EngStatus EngFullTextSearchClose(EngSearch search);

/** Makes a folder with the design of a view or folder.
 *  @param folder_database 0 @param source its note id @param source_database where it lies, 0 for
 *    database
 *  @param is_private 0 or 1 @param flags 0 @param folder [out] note id
 *  @return 0, 0x1f0, 0x1f1, 0x227, 0x406 the source is no view or folder, 0x408 the name is taken */
BRYND_API EngStatus EngFolderNew(EngDb database, EngDb folder_database, uint32_t source,
                                 EngDb source_database, const char* name, uint16_t name_bytes,
                                 uint16_t is_private, uint32_t flags, uint32_t* folder);

/** Makes a folder with the design and the entries of another.
 *  @param folder_database 0 @param flags 0 @param folder [out] note id
 *  @return as EngFolderNew */
BRYND_API EngStatus EngFolderDuplicate(EngDb database, EngDb folder_database, uint32_t source,
                                       const char* name, uint16_t name_bytes, uint32_t flags,
                                       uint32_t* folder);

/** Deletes a folder; its documents stay.
 *  @param folder_database 0 @param flags 0
 *  @return 0, 0x1f0, 0x1f1, 0x227, 0x406 no folder */
BRYND_API EngStatus EngFolderRemove(EngDb database, EngDb folder_database, uint32_t folder, uint32_t flags);

/** Puts documents into a folder.
 *  @param folder_database 0 @param table their note ids @param flags 0
 *  @return 0, 0x1f0, 0x1f1, 0x227, 0x406 no folder */
BRYND_API EngStatus EngFolderEntriesAdd(EngDb database, EngDb folder_database, uint32_t folder,
                                        EngIdTable table, uint32_t flags);

/** Takes documents out of a folder.
 *  @param folder_database 0 @param table their note ids @param flags 0
 *  @return 0, 0x1f0, 0x1f1, 0x227, 0x406 no folder */
BRYND_API EngStatus EngFolderEntriesRemove(EngDb database, EngDb folder_database, uint32_t folder,
                                           EngIdTable table, uint32_t flags);

/** Takes all documents out of a folder.
 *  @param folder_database 0 @param flags 0
 *  @return 0, 0x1f0, 0x1f1, 0x227, 0x406 no folder */
BRYND_API EngStatus EngFolderEntriesRemoveAll(EngDb database, EngDb folder_database, uint32_t folder,
                                              uint32_t flags);

/** @param folder_database 0 @param flags 0 @param count [out] documents in a folder that are there
 *  @return 0, 0x1f0, 0x1f1, 0x227, 0x406 no folder */
BRYND_API EngStatus EngFolderEntriesCount(EngDb database, EngDb folder_database, uint32_t folder,
                                          uint32_t flags, uint32_t* count);

#ifdef __cplusplus
}
#endif

#endif
