/* Views, folders and navigators of Kavrin: the design records that show the documents of a database in rows
 * and columns.
 *
 * They have no handles: each is named by its database and its id. A view or folder is read once for each
 * database of a session and kept until the session's last handle on that database closes; all handles of the
 * session share what was read. All functions run on the thread that owns the handles. Indexes show the rows.
 *
 * Texts inside the structures lie at odd addresses: the structures are byte-packed. */
#ifndef KAVRIN_VIEW_H
#define KAVRIN_VIEW_H

#include "kavrin_convert.h"
#include "kavrin_status.h"
#include "kavrin_types.h"

/** Bits of KVVIEW.view_flags with a meaning to this library; the other bits of the mask are kept as they
 * are. */
enum {
  KVVIEW_RESPONSES = 0x2,    /**< rows tell their parents */
  KVVIEW_CONFLICTS = 0x8,    /**< rows tell whether they are conflicts */
  KVVIEW_TOTALS = 0x10000,   /**< some column has a total; told, not set */
  KVVIEW_FLAG_P = 0x8000000, /**< the letter `p` of the record's flags */
  KVVIEW_FLAG_D = 0x10000000 /**< the letter `d` */
};
#define KVVIEW_FLAG_NOT_Y 0x20000000u /**< the letter `Y` is absent */
#define KVVIEW_HIDDEN 0x40000000u     /**< its name is in parentheses: not shown on menus; told, not set */
#define KVVIEW_PRIVATE 0x80000000u    /**< belongs to one user */
#define KVVIEW_FLAGS_MASK 0xF8014A8Bu /**< bits that are looked at */

/** Bits of KVCOLUMN.column_flags that are kept. */
enum { KVCOLUMN_FLAGS_MASK = 0xC4F8 };

/** A private folder, for KVFolderCreateFromViewFolder. */
#define KVFOLDCREATE_PRIVATE 0x80000000u

#pragma pack(push, 1)

/** A view or folder. Programs that declare a version below 0x40000 have a shorter record, which is not
 * available in this version: they get KVFAIL_UNSUPPORTED. */
typedef struct KVVIEW {
  uint32_t view_flags;           /**< KVVIEW_ bits */
  int32_t on_open;               /**< 1 to 3: where the view stands when it opens */
  int32_t on_refresh;            /**< 1 to 4: what is shown after a refresh */
  int32_t heading;               /**< 1 to 3: how headings are drawn */
  uint8_t heading_lines;         /**< 1 to 5 */
  uint8_t row_lines;             /**< 1 to 9 */
  int32_t row_spacing;           /**< 1 to 5 */
  int32_t unread;                /**< 0 to 2: how unread documents are marked */
  uint32_t background_color;     /**< number of a colour; the low 16 bits are stored */
  uint32_t alt_background_color; /**< of every other row */
  KVFONTSTYLE title_border_font; /**< flag 0x40 of the fonts is cleared by a creation, here too */
  KVFONTSTYLE unread_font;
  KVFONTSTYLE totals_font;
  uint32_t auto_refresh_seconds; /**< the low 16 bits are stored */
  char* selection_formula; /**< formula texts, or null. As output they are the library's, live as long as
                                the view is kept, and are null unless KVPROP_DB_FETCH_DESIGN_CODE is on */
  char* form_formula;
  char name[130];        /**< at most 129 characters */
  char menu_name[65];    /**< name on menus; empty: `name` */
  char cascade_name[65]; /**< second part of the name on menus */
} KVVIEW;

/** A column of a view. Programs that declare a version below 0x40000 have a shorter record, which is not
 * available in this version: they get KVFAIL_UNSUPPORTED. */
typedef struct KVCOLUMN {
  uint32_t column_flags;
  int32_t sort;   /**< 0: not sorted, 1: rising, 3: falling, 4: categories, 7: categories falling */
  int32_t action; /**< what a click on the heading does: 0 nothing, 0x100, 0x200 and 0x300 sort, 0x800
                       goes to another view */
  uint32_t second_sort_col; /**< number from 1 of the column that sorts rows that a click left equal, or 0 */
  int32_t second_sort;      /**< 0: not, 1: rising, 3: falling */
  KVUNID view_unid;         /**< view to go to */
  int32_t total; /**< 0: none, 1 to 5: kind of the total, which the total row and categories show */
  uint32_t width_in_eighths; /**< eighths of a character; the low 16 bits are stored */
  int32_t heading_justify;   /**< 0 to 2: where the text stands */
  KVFONTSTYLE heading_font;
  int32_t justify; /**< the same of the values */
  KVFONTSTYLE font;
  KVFORMAT format;
  int32_t type;   /**< KVTYPE_ of the values */
  char* formula;  /**< text of the formula that computes the values. As output it is the library's, lives as
                       long as the view is kept, and is null unless KVPROP_DB_FETCH_DESIGN_CODE is on; the
                       name of an item for a column that shows that item */
  char title[81]; /**< at most 80 characters */
} KVCOLUMN;

/** One entry of the list of views. Programs that declare a version below 0x40000 have no `personal`, and
 * below 0x20306 names of 66, 33 and 33 bytes. */
typedef struct KVVIEWSUMM {
  uint32_t viewid;
  int32_t hidden;   /**< 1: not shown on menus */
  int32_t personal; /**< 1: belongs to one user */
  char name[130];
  char menu_name[65];
  char cascade_name[65];
} KVVIEWSUMM;

/** One entry of the list of folders. */
typedef struct KVFOLDERSUMM {
  uint32_t folderid;
  int32_t hidden;   /**< 1: not shown on menus */
  int32_t personal; /**< 1: belongs to one user */
  char name[130];
  char menu_name[65];
  char cascade_name[65];
} KVFOLDERSUMM;

/** One entry of the list of navigators. */
typedef struct KVNAVIGATORSUMM {
  uint32_t navid;
  char name[130];
  char menu_name[65];
} KVNAVIGATORSUMM;

#pragma pack(pop)

#ifdef __cplusplus
extern "C" {
#endif

/** Finds a view by its name, without regard to case: among those of all users, then among the user's own.
 *  @param database  an open database of this thread
 *  @param viewname  the view's whole title, or one of its synonyms
 *  @return the view's id; 0 for a failure, which KVErrorFetch tells: KVFAIL_NULL_PARAM, KVFAIL_NO_DATABASE,
 *          KVFAIL_NO_VIEW (also when a folder or navigator bears the name; for programs that declare a
 * version below 0x40000 folders are views), KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVViewLocateByName(uint32_t database, const char* viewname);

/** Tells about a view.
 *  @param database  an open database of this thread
 *  @param viewid    id of the view
 *  @param view      [out] the view, all zero on failure once `database` is known to be this thread's
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_NULL_PARAM, KVFAIL_NO_VIEW (no such record, none that is a
 *          view, or one without columns or title), KVFAIL_BAD_FORMAT (its columns or formulas are damaged),
 *          KVFAIL_NO_MEMORY, KVFAIL_UNSUPPORTED (the program's version is below 0x40000), KVFAIL_BAD_HANDLE
 */
KVAPI uint32_t KVViewFetch(uint32_t database, uint32_t viewid, KVVIEW* view);

/** Copies a view into a database. The copy of a default view is no default view.
 *  @param src_database, src_viewid  the view to copy
 *  @param dest_database             where the copy goes; both databases belong to the calling thread
 *  @param dest_viewname             [optional] title of the copy, at most 129 characters; empty or null: its
 *                                   own, which in the same database is in use
 *  @param dest_viewid               [out, optional] id of the copy, 0 on failure
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_DATA_TOO_LONG, KVFAIL_NAME_IN_USE, KVFAIL_NO_VIEW (any other
 *          failure of the copy) */
KVAPI uint32_t KVViewCopy(uint32_t src_database, uint32_t src_viewid, uint32_t dest_database,
                          const char* dest_viewname, uint32_t* dest_viewid);

/** Deletes a view.
 *  @param database  an open database of this thread
 *  @param viewid    id of the view
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_NO_VIEW (also for a folder or navigator),
 *          KVFAIL_ACTIVE_RESULT (an index of this session shows the view; nothing is deleted),
 *          KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVViewDelete(uint32_t database, uint32_t viewid);

/** Stores a new view. It selects the documents of its selection formula, all without one, and shows the
 * values of its columns' formulas. A private view belongs to the current user. Views are not signed in this
 * version.
 *  @param database      an open database of this thread
 *  @param view          [in, out] the view; only its fonts are written to
 *  @param column_count  number of columns, at most 5460; an index shows at most 289, with 32 that are sorted
 * and no categories and 8 categories
 *  @param columns       [in, out] the columns; only their fonts are written to
 *  @param viewid        [out, optional] id of the view, 0 on failure once neither address is null
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`view`, `columns`), KVFAIL_NO_DATABASE, KVFAIL_BAD_FORMAT (the
 * names, the counts of lines), KVFAIL_NAME_IN_USE (a view or folder bears the name), KVFAIL_BAD_ENUM,
 *          KVFAIL_FORMULA (a column without a formula, or one that does not compile), KVFAIL_NO_COLUMN
 *          (`second_sort_col` names no column, or the one before; `view_unid` names no view),
 * KVFAIL_NOT_FOUND
 *          (`view_unid` names nothing), KVFAIL_DATA_TOO_LONG (more columns, or a formula over 65535
 *          characters), KVFAIL_NO_MEMORY, KVFAIL_UNSUPPORTED (the program's version is below 0x40000),
 *          KVFAIL_BAD_HANDLE, the engine's 0x246 (the user may not make private views), or another engine
 *          status */
KVAPI uint32_t KVViewCreate(uint32_t database, KVVIEW* view, uint32_t column_count, KVCOLUMN* columns,
                            uint32_t* viewid);

/** Lists the views of a database. The list is made at the first call, and anew with KVLIST_REFRESH.
 *  @param database  an open database of this thread
 *  @param list      KVLIST_ direction
 *  @param viewsumm  [out] the entry, all zero on failure
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM, KVFAIL_NO_DATABASE, KVFAIL_END_OF_DATA, KVFAIL_DATA_UNAVAILABLE (no
 *          list yet, or no current entry), KVFAIL_BAD_ENUM, KVFAIL_NO_MEMORY, KVFAIL_BAD_HANDLE, or an engine
 *          status */
KVAPI uint32_t KVViewList(uint32_t database, int32_t list, KVVIEWSUMM* viewsumm);

/** Counts the columns of a view or folder.
 *  @param database  an open database of this thread
 *  @param viewid    id of a view or folder
 *  @return the count; 0 without a status when there is no such view; 0 also for a failure, which KVErrorFetch
 *          tells: KVFAIL_NO_DATABASE, KVFAIL_BAD_HANDLE */
KVAPI uint32_t KVColumnGetCount(uint32_t database, uint32_t viewid);

/** Lists the columns of a view or folder from left to right. All handles of a session on one database share
 * the place in the list.
 *  @param database       an open database of this thread
 *  @param viewid         id of a view or folder
 *  @param list           KVLIST_ direction
 *  @param column_number  [out, optional] number of the column, from 1; left alone on failure
 *  @param column         [out] the column; left alone on failure
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM, KVFAIL_NO_DATABASE, KVFAIL_NO_VIEW (also when it cannot be read),
 *          KVFAIL_END_OF_DATA, KVFAIL_DATA_UNAVAILABLE (no current column), KVFAIL_BAD_ENUM,
 *          KVFAIL_UNSUPPORTED (the program's version is below 0x40000), KVFAIL_BAD_HANDLE */
KVAPI uint32_t KVColumnList(uint32_t database, uint32_t viewid, int32_t list, uint32_t* column_number,
                            KVCOLUMN* column);

/** Tells about a column by its number.
 *  @param database       an open database of this thread
 *  @param viewid         id of a view or folder
 *  @param column_number  the number, from 1
 *  @param column         [out] the column; left alone on failure
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM, KVFAIL_NO_DATABASE, KVFAIL_NO_VIEW (also when it cannot be read),
 *          KVFAIL_NO_COLUMN, KVFAIL_UNSUPPORTED (the program's version is below 0x40000), KVFAIL_BAD_HANDLE
 */
KVAPI uint32_t KVColumnFetch(uint32_t database, uint32_t viewid, uint32_t column_number, KVCOLUMN* column);

/** As KVViewLocateByName, for folders: KVFAIL_NO_FOLDER for a name that no folder bears. */
KVAPI uint32_t KVFolderLocateByName(uint32_t database, const char* foldername);

/** Deletes a folder; its documents stay.
 *  @param database  an open database of this thread
 *  @param folderid  id of the folder
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_NO_FOLDER, KVFAIL_ACTIVE_RESULT (an index of this session
 *          shows the folder; nothing is deleted), KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVFolderDelete(uint32_t database, uint32_t folderid);

/** Counts the documents in a folder.
 *  @param database  an open database of this thread
 *  @param folderid  id of the folder
 *  @return the count; 0 for a failure, which KVErrorFetch tells: KVFAIL_NO_DATABASE, KVFAIL_NO_FOLDER,
 *          KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVFolderGetCount(uint32_t database, uint32_t folderid);

/** Copies a folder. A copy in the same database holds the same documents, one in another database is empty.
 *  @param src_database, src_folderid  the folder to copy
 *  @param dest_database               where the copy goes; both databases belong to the calling thread
 *  @param dest_foldername             title of the copy, at most 129 characters; [optional] in another
 *                                     database: its own when it is empty or null
 *  @param dest_folderid               [out, optional] id of the copy, 0 on failure
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_NO_FOLDER (also any other failure of a copy to another
 *          database), KVFAIL_DATA_TOO_LONG, KVFAIL_NAME_IN_USE (also when no name is given in the same
 *          database), or an engine status */
KVAPI uint32_t KVFolderCopy(uint32_t src_database, uint32_t src_folderid, uint32_t dest_database,
                            const char* dest_foldername, uint32_t* dest_folderid);

/** Puts documents into a folder. Ids that navigation gives for rows without a document (0, 0xFFFFFFFF,
 * 0xFFFFFFFE) are passed over.
 *  @param database   an open database of this thread
 *  @param folderid   id of the folder
 *  @param doc_count  number of ids
 *  @param docid      doc_count ids of documents
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_NULL_PARAM, KVFAIL_NO_FOLDER, KVFAIL_NO_ACTION (`doc_count`
 *          0), KVFAIL_INTERNAL, KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVFolderAddEntries(uint32_t database, uint32_t folderid, uint32_t doc_count,
                                  const uint32_t* docid);

/** Takes documents out of a folder; they stay in the database. As KVFolderAddEntries. */
KVAPI uint32_t KVFolderRemoveEntries(uint32_t database, uint32_t folderid, uint32_t doc_count,
                                     const uint32_t* docid);

/** Takes all documents out of a folder.
 *  @param database  an open database of this thread
 *  @param folderid  id of the folder
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_NO_FOLDER, KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVFolderRemoveAllEntries(uint32_t database, uint32_t folderid);

/** Makes an empty folder with the design of a view or folder.
 *  @param database          an open database of this thread: where the folder goes
 *  @param folder_database   the database that holds the view or folder, 0: `database`
 *  @param viewfolder_id     id of the view or folder
 *  @param foldcreate_flags  KVFOLDCREATE_PRIVATE or 0
 *  @param foldername        name of the folder, at most 129 characters; [optional] in another database: that
 * of the view or folder when it is empty or null
 *  @param folderid          [out, optional] id of the folder; left alone on failure
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_NO_FOLDER (no such view or folder), KVFAIL_NAME_IN_USE (also
 *          when no name is given in the same database), KVFAIL_BAD_FORMAT (the view or folder has no title),
 *          KVFAIL_DATA_TOO_LONG, KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVFolderCreateFromViewFolder(uint32_t database, uint32_t folder_database,
                                            uint32_t viewfolder_id, uint32_t foldcreate_flags,
                                            const char* foldername, uint32_t* folderid);

/** As KVViewList, for folders. */
KVAPI uint32_t KVFolderList(uint32_t database, int32_t list, KVFOLDERSUMM* foldersumm);

/** Finds a navigator by its name, without regard to case, among those of all users.
 *  @param database  an open database of this thread
 *  @param navname   the navigator's whole title, or one of its synonyms
 *  @return the navigator's id; 0 for a failure, which KVErrorFetch tells: KVFAIL_NULL_PARAM,
 *          KVFAIL_NO_DATABASE, KVFAIL_NO_NAVIGATOR (also when a view or folder bears the name),
 *          KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVNavigatorLocateByName(uint32_t database, const char* navname);

/** As KVViewCopy, for navigators: any failure of the copy but KVFAIL_NAME_IN_USE, a title that is too long
 * among them, is KVFAIL_NO_NAVIGATOR. */
KVAPI uint32_t KVNavigatorCopy(uint32_t src_database, uint32_t src_navid, uint32_t dest_database,
                               const char* dest_navname, uint32_t* dest_navid);

/** Deletes a navigator.
 *  @param database  an open database of this thread
 *  @param navid     id of the navigator
 *  @return KVSUCCESS; KVFAIL_NO_DATABASE, KVFAIL_NO_NAVIGATOR, KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVNavigatorDelete(uint32_t database, uint32_t navid);

/** As KVViewList, for navigators. */
KVAPI uint32_t KVNavigatorList(uint32_t database, int32_t list, KVNAVIGATORSUMM* navsumm);

#ifdef __cplusplus
}
#endif

#endif
