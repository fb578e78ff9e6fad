// Records of design elements: their kinds, titles, names, copies and listings, and what creating a database
// needs of them.
//
// (1) A title is stored as text, or as a list whose entries are its synonyms; it is hostile: every length in
// it is checked. (2) Nothing here resolves a handle but the listings.
#ifndef KVINT_DESIGN_H
#define KVINT_DESIGN_H

#include "kvint_session.h"

// Iteration state of one family of design elements.
struct KVDESIGNLIST {
  _DATABASE* pdbase;
  KVTEXTLIST list;
  uint32_t design_flags;
};

// Flags of design elements; the low 12 bits tell the kind.
constexpr uint32_t KVDESIGN_FORM = 0x0001;
constexpr uint32_t KVDESIGN_SUBFORM = 0x0002;
constexpr uint32_t KVDESIGN_VIEW = 0x0004;
constexpr uint32_t KVDESIGN_FOLDER = 0x0008;
constexpr uint32_t KVDESIGN_NAVIGATOR = 0x0010;
constexpr uint32_t KVDESIGN_AGENT = 0x0020;
constexpr uint32_t KVDESIGN_DEFAULT = 0x2000;
constexpr uint32_t KVDESIGN_PRIVATE = 0x4000;
constexpr uint32_t KVDESIGN_HIDDEN = 0x8000;

constexpr uint32_t kDesignKindMask = 0x0fff;
constexpr uint32_t kDesignViewOrFolder = KVDESIGN_VIEW | KVDESIGN_FOLDER;  // they share their names
constexpr uint32_t kDesignTitleMax = 129;    // characters of a title made here, and of a name in a listing
constexpr uint32_t kDesignPieceMax = 64;     // characters of a menu name, and of a cascade name
constexpr uint32_t kDesignNameBytes = 256;   // room for a title with its NUL
constexpr uint16_t kDesignFlagsMax = 31;     // characters of $Flags that are looked at

#pragma pack(push, 1)

// Head of a compiled formula.
struct BRYND_FORMULA {
  uint16_t Length;  // bytes of the whole formula, this word included
};

// Head of a collation record; its descriptors follow, then the names of the items they sort by.
struct COLLATION {
  uint16_t BufferSize;  // bytes of the whole record
  uint16_t Items;
  uint8_t Flags;
  uint8_t signature;
};

struct COLLATE_DESCRIPTOR {
  uint8_t Flags;
  uint8_t signature;
  uint8_t keytype;
  uint16_t NameOffset;  // in the names behind the last descriptor
  uint16_t NameLength;
};

#pragma pack(pop)

static_assert(sizeof(BRYND_FORMULA) == 2);
static_assert(sizeof(COLLATION) == 2 + 2 + 1 + 1);
static_assert(sizeof(COLLATE_DESCRIPTOR) == 1 + 1 + 1 + 2 + 2);

// ---- Kinds

// The design flags of a class and the text of $Flags, of wLen characters; without a text szFlags is null.
// Always KVSUCCESS.
uint32_t KVIDesignFlagsTranslateToKV(uint16_t wNoteClass, const char* szFlags, uint16_t wLen,
                                     uint32_t* pKVDesignFlags);
// The design flags of a record. With pnh the opened record goes to the caller, else it is opened to look
// only. An engine status; both outputs are 0 then. Failures are not recorded, here and below, but by
// _KVIDesignList.
uint32_t KVIDesignNoteGetFlagsExt(_DATABASE* pdbase, uint32_t nid, uint32_t* pKVDesignFlags, EngNote* pnh);
// True for a record of one user; false for one that does not open.
int KVINoteIsPrivate(_DATABASE* dbase, uint32_t noteid);
// Makes the record belong to a user. An engine status.
uint32_t KVIDesignNoteSetOwnership(EngNote nh, const char* szOwner);

// The record that a name belongs to, among the current user's private ones when design_flags say so; 0 when
// there is none, which is a success. An engine status.
uint16_t _KVIDesignFind(_DATABASE* pdbase, uint32_t design_flags, const char* name, uint16_t note_class,
                        uint32_t* noteid);

// ---- Titles

// Splits the value of a title, without its type word, into pieces that lie in it; pieces that are absent have
// a null address and length 0. hidden is 1 for a title in parentheses, else 0. KVFAIL_BAD_FORMAT for another
// type, for a text whose length no 16 bits hold, and for a list whose count or lengths go past its end.
uint32_t ParseTitle(const char* buffer, uint32_t length, uint16_t type, const char** name, uint16_t* namelen,
                    const char** dname1, uint16_t* dname1_len, const char** dname2, uint16_t* dname2_len,
                    int32_t* hidden);
// The names of a record, as strings of the heap that the caller frees with KVIFree; empty ones when absent,
// of any length up to the title's. Each output may be null. An engine status when there is no title,
// KVFAIL_BAD_FORMAT, KVFAIL_NO_MEMORY; all strings are null then.
uint32_t KVIDesignNoteGetNames(EngNote notehand, char** name, char** menu_name, char** cascade_name,
                               int32_t* hidden);
// Builds `menu\cascade|name`; each argument may be null or empty, szOut has kDesignNameBytes.
// KVFAIL_BAD_FORMAT, KVFAIL_DATA_TOO_LONG.
uint32_t KVIDesignNoteMakeName(const char* szName, const char* szMenu, const char* szCascade, char* szOut);
// Builds a title in the session's buffer and stores it, as a list of synonyms or with text_only as one text;
// with a record 0 it only looks whether that can be done. ForceHidden puts the part for menus in parentheses.
// Statuses of KVIDesignNoteMakeName, or an engine status.
uint32_t _KVIDesignNoteSetTitle(_api_session* session, EngNote nh, const char* title, const char* menu_name,
                                const char* cascade_name, int text_only, int ForceHidden);
// The title by which the engine finds the record: a text as it is, of a list its first entry, at most 255
// characters. szQIXName has kDesignNameBytes; wLen may be null. KVFAIL_NOT_FOUND, KVFAIL_BAD_FORMAT.
uint32_t KVIDesignNoteGetQIXName(EngNote nh, char* szQIXName, uint16_t* wLen);
// Non-zero when no design element of the kind, or of one that shares its names, bears the name.
int _KVIDesignNoteIsQIXNameUnique(_api_session* session, _DATABASE* pdbase, uint32_t KVDesignFlags,
                                  const char* szName, const char* szMenuName, const char* szCascName);

// ---- Copies

// Copies a design element of the expected kind into a database, under its own title or a new one (null or
// empty: its own). dest_noteid may be null. KVFAIL_NOT_FOUND, KVFAIL_BAD_FORMAT for another kind,
// KVFAIL_NAME_IN_USE, statuses of _KVIDesignNoteSetTitle, an engine status.
uint32_t _KVIDesignNoteCopy(_api_session* session, uint32_t expected, _DATABASE* src_dbase,
                            uint32_t src_noteid, _DATABASE* dest_dbase, const char* new_title,
                            uint32_t* dest_noteid, int text_only);

// ---- Formulas

// A name as it stands in a string constant of a formula: backslashes doubled. inlen 0 means strlen; out has
// twice the characters and a NUL. Null arguments do nothing.
void KVIDesignGetFormulaFormat(char* out, const char* in, int inlen);
// The text of a compiled formula, kept as a string of the heap in *formula_string_ptr and returned; null for
// a failure. viewsel is 1 for the selection formula of a view, else 0. The formula's first word, its length,
// must be true.
char* FetchDesignFormula(const char* formula, char** formula_string_ptr, int viewsel);

// ---- Listings

// The search callback of every listing; list_ptr is the family's KVDESIGNLIST.
EngStatus SearchTitle(void* list_ptr, const SEARCH_MATCH* search_match, const ITEM_TABLE* summary_buffer);

enum class DesignFamily : uint8_t { kForm, kSubform, kView, kFolder, kNavigator, kAgent };

// The whole of a family's exported list function behind its prologue: reads one entry of the family's list
// into the caller's summary record, whose layout is that of the session's version. Records failures and
// returns their word.
uint32_t _KVIDesignList(_api_session* session, DesignFamily family, uint32_t database, int32_t list,
                        void* summ);

// ---- The design collection

// Decimal digits of n and a NUL; ptr has 6 bytes. Returns the address of the NUL.
char* KVIwtoa(uint16_t n, char* ptr);

// An engine block that the caller frees.
uint16_t _KV_QDBFormulaCreate(EngMem* rethFormula);  // an empty compiled formula
uint16_t _KVICompileFormula(const char* item_name, const char* text, EngMem* formula);

// Appends $Formula, a summary item that holds the compiled formula.
uint16_t _KVIPutFormula(EngNote note, EngMem formula);
// Appends $Collation, which sorts by $TITLE.
uint16_t _KV_SetDesignCollation(EngNote hNote);

// Creates the record of the design collection: a hidden view of all design records. NewNoteID may be null.
uint16_t _KV_DesignNoteCreate(EngDb hFile, uint32_t* NewNoteID);
// Creates the design collection unless the database has one.
uint16_t KVIBryndDesignCollCreate(EngDb dbh);

#endif
