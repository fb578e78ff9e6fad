// Records of views and folders as they were read, and how their columns are stored.
//
// (1) A spec stands on its database's list for as long as that lives, or until its view is deleted. (2) What
// is stored is hostile: when a spec was read, every formula's first word is its true length, and every
// constant has its type word.
#ifndef KVINT_VIEW_H
#define KVINT_VIEW_H

#include "kavrin_view.h"
#include "kvint_database.h"
#include "kvint_session.h"

// Bits of _VIEWSPEC.flags besides the low half, which is the stored word.
constexpr uint32_t KVVIEWSPEC_TOTALED = 0x00010000;  // some column has a subtotal: a total row ends the view
constexpr uint32_t KVVIEWSPEC_LETTER_P = 0x08000000;
constexpr uint32_t KVVIEWSPEC_LETTER_D = 0x10000000;
constexpr uint32_t KVVIEWSPEC_NOT_Y = 0x20000000;  // the letter `Y` is absent
constexpr uint32_t KVVIEWSPEC_HIDDEN = 0x40000000;
constexpr uint32_t KVVIEWSPEC_PRIVATE = 0x80000000;
// Bits of the stored word that add items to the summary of each row.
constexpr uint32_t KVVIEWSPEC_RESPONSES = 2;  // adds $REF
constexpr uint32_t KVVIEWSPEC_CONFLICTS = 8;  // adds $Conflict

// Bits of COLSPEC.flags that this library looks at.
constexpr uint16_t KVCOLSPEC_SORTED = 0x0001;
constexpr uint16_t KVCOLSPEC_CATEGORY = 0x0002;
constexpr uint16_t KVCOLSPEC_DESCENDING = 0x0004;
constexpr uint16_t KVCOLSPEC_HIDDEN = 0x0008;
constexpr uint16_t KVCOLSPEC_RESPONSES_ONLY = 0x0010;
constexpr uint16_t KVCOLSPEC_SECOND_SORT = 0x1000;
constexpr uint16_t KVCOLSPEC_SECOND_DESCENDING = 0x2000;

constexpr int32_t kColumnActionView = 0x800;  // a click on the heading goes to another view
constexpr uint32_t kViewTitleMax = 80;        // characters of a column's title that are told
constexpr uint32_t kColumnItemNameBytes = 5;  // of an item that holds a column's values: `$0001`
constexpr uint32_t kViewColumnsMax = 5460;    // of a new view: those of a collation whose length is a word
constexpr int32_t kViewFormatOld = 1;
constexpr int32_t kViewFormatNew = 2;

// One column.
struct COLSPEC {
  char* title;  // null for none
  uint16_t flags;
  uint16_t width;
  KVFONTSTYLE font_heading;
  KVFONTSTYLE font_data;
  uint16_t col_2nd_sort;  // from 0
  UNIVERSALNOTEID view;   // view to switch to
  uint16_t cat_level;     // number among the categorised columns, from 0
  FORMAT format;
  uint16_t align_heading;
  uint16_t align_data;
  uint16_t subtotal;
  char* constant;  // a value with its type word, or null
  uint16_t constant_len;
  int32_t constant_eval;  // a text with special sequences
  int32_t type;           // KVTYPE_
  char* formula;          // compiled
  char* formula_string;   // its text, made on first need; without a formula the name of the item shown
};

// One view or folder.
struct _VIEWSPEC {
  _DATABASE* pdbase;  // through which it was read
  uint32_t viewid;
  uint32_t kv_design_flags;
  int32_t hidden;
  char* name;
  char* menu_name;
  char* cascade_name;
  uint16_t namelen;
  uint32_t flags;
  int32_t format;  // kViewFormatOld, kViewFormatNew
  uint32_t col_count;
  uint32_t col_resp_only;     // number from 1 of the last column for responses only, 0 for none
  uint32_t col_summary;       // columns with an item in the summaries: those without a constant
  uint32_t col_leftmost_cat;  // number from 1 of the first categorised column, 0 for none
  uint8_t height_heading;
  uint8_t height_rows;
  int32_t height_row_spacing;
  KVFONTSTYLE font_title_border;
  KVFONTSTYLE font_unread;
  KVFONTSTYLE font_totals;
  uint16_t color_bckg;
  uint16_t color_alt_bckg;
  uint16_t auto_refresh_seconds;
  uint32_t index;           // cursor of the column list
  _INDEX* used_in_index;    // the index that shows this view on documents of another database
  char* selection_formula;  // compiled
  char* form_formula;
  char* selection_formula_string;  // their texts, made on first need
  char* form_formula_string;
  COLSPEC* collist;  // col_count entries
  _VIEWSPEC* next;
};

// ---- Specs

// The spec of a view or folder by its id, from the cache of the database or read anew; null and a status when
// there is none. KVFAIL_NO_VIEW, KVFAIL_BAD_FORMAT (damaged), KVFAIL_NO_MEMORY, or an engine status. Failures
// are not recorded.
uint32_t KVIViewGetSpec(_DATABASE* pdbase, uint32_t vid, _VIEWSPEC** ppspec);
// Frees a spec that is in no cache; null is none.
void ClearView(_VIEWSPEC* viewspec);
// Takes the _VIEWSPEC of a deleted view out of the cache and frees it; one that is not there is a success.
// KVFAIL_ACTIVE_RESULT when an index shows it on another database.
uint32_t KVIDbInfoClearViewFolder(_DATABASE* pdbase, uint32_t vfid);
// True when an index of the session shows the view or folder.
bool _KVISessionIsViewFolderActive(const _api_session* session, const _DATABASE* pdbase, uint32_t vfid);
// True when design flags are those of what the session's program calls a view: old programs know no folders,
// which count as views then.
bool _KVIIsView(const _api_session* session, uint32_t design_flags);

// ---- What views, folders and navigators have in common

// True for a record that opens and is of a kind among those; KVDESIGN_VIEW alone is what the session's
// program calls a view.
bool _KVIHasKind(const _api_session* session, _DATABASE* dbase, uint32_t id, uint32_t kind);

// The whole of an exported function that finds a record by name: 0 after a failure, which is recorded.
struct KVILOCATE {
  uint32_t database;
  const char* name;
  bool may_be_private;  // the user's private records count too
  uint32_t kind;
  uint32_t none_status;
};
uint32_t _KVIViewClassLocate(const KVILOCATE& call);

// The whole of an exported function that copies a record.
struct KVICOPY {
  uint32_t src_database, src_id, dest_database;
  const char* dest_name;  // may be null
  uint32_t* dest_id;      // may be null
  bool checks_length;     // a name that is too long has its own status
  uint32_t kind;
  uint32_t none_status;  // for any failure of the copy but a name in use
};
uint32_t _KVIViewClassCopy(const KVICOPY& call);

// ---- Parts of the reading and writing

// The columns in $ViewFormat behind its head, at pColData, of *dwSize bytes at most; *dwSize receives the
// bytes up to the second table record, behind which further column records are read too. KVFAIL_BAD_FORMAT,
// KVFAIL_NO_MEMORY.
uint32_t KVIViewLoadColumns(_VIEWSPEC* pviewspec, const void* pColData, uint32_t* dwSize);
uint32_t KVIViewLoadFormulas(EngNote nh, _VIEWSPEC* pviewspec);
// Takes constant_len bytes, type word first. KVFAIL_NO_MEMORY.
uint32_t KVIColumnSetConstant(COLSPEC* pcolspec, const char* pConstData);
uint32_t KVIViewGetDesignFlags(EngNote nh, _VIEWSPEC* pviewspec);
uint32_t KVIViewSetDesignFlags(EngNote nh, const _VIEWSPEC* pviewspec);

// Fill a cleared record.
void KVIViewGetVIEWFromSpec(_VIEWSPEC* pviewspec, KVVIEW* pview);
void KVIColumnGetCOLUMNFromSpec(const _DATABASE* pdbase, COLSPEC* pcolspec, KVCOLUMN* pcol);

// ---- New views

// A spec made of the caller's records, to be stored and cleared. CheckFont writes to the caller's records.
uint32_t _KVIViewCreateSpec(_api_session* session, _DATABASE* pdbase, KVVIEW* pview, KVCOLUMN* pcolumns,
                            uint32_t colcount, _VIEWSPEC** ppspec);
uint32_t _KVIViewValidateVIEW(_api_session* session, _DATABASE* pdbase, KVVIEW* pview, KVCOLUMN* pcolumns,
                              uint32_t colcount);
// index counts from 0, max_index is the number of columns.
uint32_t KVIColumnValidateCOLUMN(_DATABASE* pdbase, uint32_t max_index, uint32_t index, KVCOLUMN* pcolumn);
// Stores a new record. pviewid may be null.
uint32_t _KVIViewCreateFromSpec(_api_session* session, _DATABASE* pdbase, const _VIEWSPEC* pspec,
                                uint32_t* pviewid);
// The value of $ViewFormat, a block of the heap that the caller frees; formulas are the compiled formulas of
// the columns. KVFAIL_NO_MEMORY, KVFAIL_INTERNAL, or an engine status.
uint32_t KVIViewBuildFormat(const _VIEWSPEC& spec, const EngMem* formulas, char** buffer, uint32_t* bytes);
// The value of $Collation, the same; null when no column is sorted.
uint32_t KVIViewBuildCollation(const _VIEWSPEC& spec, char** buffer, uint32_t* bytes);
// The name of the item of a column, number counting from 1: 5 bytes without NUL.
void KVIColumnCreateItemName(char* buffer, uint32_t number);

// ---- Stored flags and public values; Translate is kTranslateRead or kTranslateWrite, and writing ors bits
// into *flags. KVFAIL_BAD_ENUM for a value that has no bits, but where it is told.

uint32_t KVIViewTranslateOpen(int Translate, int32_t* on_open, uint32_t* flags);
uint32_t KVIViewTranslateRefresh(int Translate, int32_t* on_refresh, uint32_t* flags);
uint32_t KVIViewTranslateHeading(int Translate, int32_t* heading, uint32_t* flags);
uint32_t KVIViewTranslateUnread(int Translate, int32_t* unread, uint32_t* flags);  // passes others over
// The stored byte is the value less 1. KVFAIL_BAD_FORMAT for a stored one above 4, KVFAIL_BAD_ENUM for a
// value below 1.
uint32_t KVIViewTranslateSpacing(int Translate, int32_t* spacing, uint8_t* stored);
uint32_t KVIColumnTranslateColSort(int Translate, int32_t* sort, uint16_t* flags);
uint32_t KVIColumnTranslateSecondColSort(int Translate, int32_t* second_sort, uint16_t* flags);
uint32_t KVIColumnTranslateAction(int Translate, int32_t* action, uint16_t* flags);  // passes others over
uint32_t KVIColumnTranslateAlignment(int Translate, int32_t* justify, uint16_t* alignment);

// ---- The stored records

constexpr uint16_t kOdsViewTableFormat = 29;
constexpr uint16_t kOdsViewColumnFormat = 30;
constexpr uint16_t kOdsViewTableFormat2 = 43;
constexpr uint16_t kOdsViewColumnFormat2 = 428;
constexpr uint16_t kViewColumnSignature = 0x4356;
constexpr uint16_t kViewColumnSignature2 = 0x4357;
constexpr uint16_t kViewTableSignature2 = 0x2bad;

#pragma pack(push, 1)

struct VIEW_TABLE_FORMAT {
  uint8_t Version;
  uint8_t ViewStyle;
  uint16_t Columns;
  uint16_t ItemSequenceNumber;
  uint16_t Flags;
  uint16_t spare2;
};

struct VIEW_COLUMN_FORMAT {
  uint16_t Signature;
  uint16_t Flags1;
  uint16_t ItemNameSize;
  uint16_t TitleSize;
  uint16_t FormulaSize;
  uint16_t ConstantValueSize;
  uint16_t DisplayWidth;
  KVFONTSTYLE FontID;
  uint16_t Flags2;
  NFMT NumberFormat;
  TFMT TimeFormat;
  uint16_t FormatDataType;
  uint16_t ListSep;
};

struct VIEW_TABLE_FORMAT2 {
  uint16_t Length;
  uint16_t BackgroundColor;
  uint16_t V2BorderColor;
  KVFONTSTYLE TitleFont;
  KVFONTSTYLE UnreadFont;
  KVFONTSTYLE TotalsFont;
  uint16_t AutoUpdateSeconds;
  uint16_t AlternateBackgroundColor;
  uint16_t wSig;
  uint8_t LineCount;
  uint8_t Spacing;
  uint16_t BackgroundColorExt;
  uint8_t HeaderLineCount;
  uint8_t Flags1;
  uint16_t Spare[4];
};

struct VIEW_COLUMN_FORMAT2 {
  uint16_t Signature;
  KVFONTSTYLE HeaderFontID;
  UNIVERSALNOTEID ResortToViewUNID;
  uint16_t wSecondResortColumnIndex;
  uint16_t wSpare;
  uint32_t dwSpare[5];
};

#pragma pack(pop)

static_assert(sizeof(VIEW_TABLE_FORMAT) == 1 + 1 + 4 * 2);
static_assert(sizeof(VIEW_COLUMN_FORMAT) == 7 * 2 + 4 + 2 + 4 + 4 + 2 * 2);
static_assert(sizeof(VIEW_TABLE_FORMAT2) == 3 * 2 + 3 * 4 + 3 * 2 + 2 + 2 + 2 + 4 * 2);
static_assert(sizeof(VIEW_COLUMN_FORMAT2) == 2 + 4 + 16 + 2 * 2 + 5 * 4);
static_assert(offsetof(VIEW_COLUMN_FORMAT, FontID) == 14 && offsetof(VIEW_COLUMN_FORMAT, NumberFormat) == 20);
static_assert(offsetof(VIEW_COLUMN_FORMAT, FormatDataType) == 28);
static_assert(offsetof(VIEW_TABLE_FORMAT2, AutoUpdateSeconds) == 18 &&
              offsetof(VIEW_TABLE_FORMAT2, wSig) == 22);
static_assert(offsetof(VIEW_TABLE_FORMAT2, HeaderLineCount) == 28);
static_assert(offsetof(VIEW_COLUMN_FORMAT2, wSecondResortColumnIndex) == 22);

// Bits of Flags2: where a value of two, four, two bits starts.
constexpr int kAlignDataShift = 0;
constexpr int kSubtotalShift = 2;
constexpr int kAlignHeadingShift = 6;
constexpr uint16_t kAlignMask = 3;
constexpr uint16_t kSubtotalMask = 15;

#endif
