// Records of open composites, the stored records that a composite value is a run of, and the ways through
// them.
//
// (1) The run of a composite is its nodes one after the other; no node holds a part of a record.
// (2) A record starts at an even distance from the start of its node: one of odd length has a pad byte behind
// it, which its length does not count and which may be missing behind the last record of an item.
// (3) No header is believed before it was compared with the bytes that are left (KVICDReadHeader).
#ifndef KVINT_COMPOSITE_H
#define KVINT_COMPOSITE_H

#include "kavrin_composite.h"
#include "kvint_document.h"

// ---- Stored records

// Signatures. One byte in a record whose second byte is its length, else a word.
enum : uint16_t {
  kCdParagraph = 0x81,
  kCdPabReference = 0x83,
  kCdDocument = 0x86,
  kCdStyleName = 0xa6,
  kCdHotspotEnd = 0xaa,
  kCdHotspotEndLater = 0xae,
  kCdPabFormulaRef = 0xbc,
  kCdPabDefinition = 0xff82,
  kCdFieldPre36 = 0xff84,
  kCdText = 0xff85,
  kCdField = 0xff8a,
  kCdHotspotBegin = 0xffa9,
  kCdHotspotBeginLater = 0xffad,
};

// Codes of EngOdsRead and EngOdsWrite.
enum : uint16_t {
  kOdsWord = 0,
  kOdsLong = 1,
  kOdsParagraph = 109,
  kOdsPabDefinition = 110,
  kOdsPabReference = 111,
  kOdsText = 113,
  kOdsDocument = 114,
  kOdsField = 118,
  kOdsFieldPre36 = 119,
  kOdsHotspotBegin = 230,
};

#pragma pack(push, 1)

struct CDPARAGRAPH {
  uint8_t Signature, Length;
};
struct CDPABREFERENCE {
  uint8_t Signature, Length;
  uint16_t PABID;
};
struct CDPABDEFINITION {
  uint16_t Signature, Length;
  uint16_t PABID, JustifyMode, LineSpacing, ParagraphSpacingBefore, ParagraphSpacingAfter;
  uint16_t LeftMargin, RightMargin, FirstLineLeftMargin, Tabs;
  int16_t Tab[20];
  uint16_t Flags;
  uint32_t TabTypes;
  uint16_t Flags2;
};
// The text follows, without a NUL.
struct CDTEXT {
  uint16_t Signature, Length;
  uint32_t FontID;
};
// The only record of "$Info"; the name of the field that is inherited from follows.
struct CDDOCUMENT {
  uint8_t Signature, Length;
  uint16_t PaperColor, FormFlags, NotePrivileges, FormFlags2, InherFieldNameLength, PaperColorExt;
  uint16_t Spare[5];
};
// Three compiled formulas, the name, the description and (CDFIELD only) the keyword text follow.
struct CDFIELD_PRE_36 {
  uint16_t Signature, Length;
  uint16_t Flags, DataType, ListDelim;
  NFMT NumberFormat;
  TFMT TimeFormat;
  uint32_t FontID;
  uint16_t DVLength, ITLength, Unused1, IVLength, NameLength, DescLength;
};
struct CDFIELD {
  uint16_t Signature, Length;
  uint16_t Flags, DataType, ListDelim;
  NFMT NumberFormat;
  TFMT TimeFormat;
  uint32_t FontID;
  uint16_t DVLength, ITLength, Unused1, IVLength, NameLength, DescLength, TextValueLength;
};
// The data follow: the name of a subform with a NUL, or a compiled formula (Flags 0x10), for instance.
struct CDHOTSPOTBEGIN {
  uint16_t Signature, Length;
  uint16_t Type;
  uint32_t Flags;
  uint16_t DataLength;
};

#pragma pack(pop)

static_assert(sizeof(CDPARAGRAPH) == 2 && sizeof(CDPABREFERENCE) == 2 + 2);
static_assert(sizeof(CDPABDEFINITION) == 4 + 9 * 2 + 20 * 2 + 2 + 4 + 2 &&
              offsetof(CDPABDEFINITION, Flags) == 62);
static_assert(sizeof(CDTEXT) == 4 + 4);
static_assert(sizeof(CDDOCUMENT) == 2 + 6 * 2 + 5 * 2);
static_assert(sizeof(CDFIELD_PRE_36) == 34 && offsetof(CDFIELD_PRE_36, DVLength) == 22);
static_assert(sizeof(CDFIELD) == 36 && offsetof(CDFIELD, TextValueLength) == 34);
static_assert(sizeof(CDHOTSPOTBEGIN) == 12 && offsetof(CDHOTSPOTBEGIN, DataLength) == 10);

// ---- Walking a flat run of records

// The head of a record.
struct CDHEADER {
  uint16_t signature;     // the whole first word, or its low byte in a record with the short head
  uint16_t header_bytes;  // 2, 4 or 6
  uint32_t length;        // bytes of the record, header included, pad byte not
  uint32_t step;          // bytes to the next record: length and the pad byte, as far as it is there
};

// Reads the head of the record at data, where left_bytes are. False when no whole record lies there: fewer
// bytes than a head or than the record's length, or a length below its head's. The header is left alone then.
bool KVICDReadHeader(const char* data, size_t left_bytes, CDHEADER* header);
// The same without a bound, for records that were checked: length and signature, each unless null.
void KVICDGetSigLen(const char* data, uint32_t* plen, uint16_t* psignature);

// A walk over the records of a flat run, as a composite item's value behind its type word:
//   CDRUN run{data, bytes};
//   while (KVICDNextRecord(&run)) use(run.header.signature, run.record, run.header.length);
// It ends at the end, and before anything that is no whole record; then is_damaged is set.
struct CDRUN {
  const char* next;              // the record that the next step reaches
  size_t left_bytes;             // from there on
  const char* record = nullptr;  // the record reached
  CDHEADER header{};
  bool is_damaged = false;
};
bool KVICDNextRecord(CDRUN* run);

// A walk over the records of all composite items of one name in an open note. It ends without a failure at
// the first item of another type, behind the last item, and where an item is damaged (is_damaged).
//   CDITEMWALK walk = KVICDWalkItems(note, "$Body", 5);
//   while (KVICDNextItemRecord(&walk)) use(walk.run.header, walk.run.record);
//   KVICDEndWalk(&walk);   // always; gives the lock back
struct CDITEMWALK {
  EngNote note;
  const char* name;
  uint16_t name_bytes;
  BLOCKID item;   // the item under way
  BLOCKID value;  // its value, locked while is_locked
  bool is_locked;
  bool is_started;
  bool is_other_type;   // ended at an item that is no composite
  bool is_damaged;      // ended at bytes that are no record
  uint16_t brstatus;    // that ended the walk over the items: 0x222 behind the last one
  uint32_t item_count;  // composite items met
  CDRUN run;
};
CDITEMWALK KVICDWalkItems(EngNote note, const char* name, uint16_t name_bytes);
bool KVICDNextItemRecord(CDITEMWALK* walk);
void KVICDEndWalk(CDITEMWALK* walk);

// Records of a signature in the composite items of a name, 0 when one of them is no composite; an item counts
// up to its first damage. An engine status.
uint32_t KVICompositeItemCountBRCD(EngNote nh, const char* szItem, uint16_t wCDSig, uint32_t* pcount);
// Field records of both kinds.
uint32_t KVICompositeItemCountFields(EngNote nh, const char* szItem, uint32_t* pcount);

// Bytes of the longest run of whole records from the start of buffer that an item of max_len bytes holds. The
// last record counts without its pad where the buffer ends, so that nothing is left over there.
uint32_t CompSplitBuffer(const char* buffer, uint32_t max_len);

// ---- Open composites

struct COMPTEXT;

constexpr uint32_t kCompItemBytesMax = 60000;  // the largest item value that is written
constexpr uint32_t kCompGrowthBytes = 1024;    // a block at the end that takes small records
constexpr uint32_t kCompNotCounted = 0xffffffff;
constexpr uint32_t kCompRelease = 0xffffffff;  // CompGetRecord: give the cursor up
constexpr uint32_t kCdLongLengthMax = 0xffff;  // of a record whose length is a word
constexpr uint32_t kCdShortLengthMax = 254;    // of a record whose length is a byte

struct _COMPNODE;

// What several nodes look at after a split. Freed with the last of them, whichever goes first.
struct COMPSTORAGE {
  uint32_t node_count;
  char* value_ptr;  // heap bytes, or null for the engine's block
  uint32_t pool;
  _COMPNODE* holder;  // the node whose heap block holds the bytes, or null; it goes last
};

// One contiguous run of whole stored records.
struct _COMPNODE {
  BLOCKID value_bid;      // engine's block, used when value_ptr is null
  int32_t isbidlocked;    // the block is locked through this node
  char* value_ptr;        // private heap bytes
  uint32_t value_len;     // bytes of the records, pads included, the item's type word not
  uint32_t value_offset;  // of the first record in the storage
  uint32_t field_count;   // records, or kCompNotCounted
  int32_t comp_alloc;     // value_ptr is a growth block with room left
  int32_t alloc;          // this node owns its storage; clear in the tail of a split
  int32_t holds_bytes;    // value_ptr lies behind the node itself, in one heap block
  _COMPNODE* next;
  COMPSTORAGE* storage;  // shared with other nodes since a split; null while the node is alone
};

// A cursor in a composite.
struct COMPRECORD {
  _COMPNODE* node;      // null: before the first record
  uint32_t node_index;  // from 1; field_count + 1 behind the node's last record
  uint32_t comp_index;  // from 1
  uint32_t offset;      // bytes from the node's first record
  char* buffer;
  uint16_t signature;
  uint32_t length;
  uint16_t align;  // 1 when a pad byte follows
};

// The object behind a composite handle.
struct _COMPOSITE {
  uint32_t composite;
  _DOCUMENT* doc;
  _COMPNODE* nodelist;
  int32_t dirty;
  char* itemname;  // null: never written back
  const FORMAT* format;
  uint32_t current_index;  // that KVCDRecordList returned last; 0 for none
  COMPRECORD currec;       // cursor of KVCDRecordList
  COMPRECORD comprec;      // cursor of everything else, good within one call
  COMPTEXT* text;
  _COMPOSITE* docnext;
  _COMPOSITE* prev;
  _COMPOSITE* next;
  // Where the last node was when the end was sought last, and how many records lie before it; null when the
  // nodes have changed otherwise than at the end since then.
  _COMPNODE* tail;
  uint32_t tail_base;
  // The listing stands behind this record, but nodes have changed since: currec has to be placed anew.
  int32_t currec_stale;
};

// Writes a changed composite back into its document; success for an unchanged one or one without an item
// name.
uint32_t _CompStore(_api_session* session, _DOCUMENT* doc, _COMPOSITE* comp);
// Unlinks a composite from session and document and frees it.
void _CompFree(_api_session* session, _COMPOSITE* comp);
// Frees the first composite open on the item name, but for the one with the handle no_delete, and deletes all
// items of that name. Failures of the engine are passed over, as the items are about to be replaced.
uint32_t _CompDeleteItem(_api_session* session, _DOCUMENT* doc, const char* itemname, uint32_t no_delete);

// Nodes

// A zero-filled node without storage, null when there is no memory. Freed with its storage by
// _KVICompNodeFree, linked nowhere.
_COMPNODE* _KVICompNodeNew();
// A node with room for a growth block behind it, in one allocation; null without memory.
_COMPNODE* _KVICompNodeNewGrowth();
void _KVICompNodeFree(_COMPNODE* node);
// The address of a node's first record. A node over an engine's block is locked, once at most; null when the
// block is gone.
char* _KVICompNodeLock(_COMPNODE* node);
void _KVICompNodeUnlock(_COMPNODE* node);
void _KVICompNodesFree(_COMPNODE* node);  // a whole chain; null is none
// Takes the slack from a growth block; no more records go into it then.
void _KVICompNodeFit(_COMPNODE* node);
// A private copy of value_len bytes of a node from offset on. Null with KVFAIL_NO_MEMORY, or KVFAIL_INTERNAL
// when the source is gone.
_COMPNODE* _KVICompNodeCopy(_COMPNODE* source, uint32_t offset, uint32_t value_len, uint32_t field_count,
                            uint32_t* status);
// Private copies of all nodes of a composite, as a chain; null for an empty one.
uint32_t _KVICompNodesCopy(const _COMPOSITE* source, _COMPNODE** copies);
// Links a node, or a chain of them, behind prevnode; at the head for null.
void _KVICompLink(_COMPOSITE* comp, _COMPNODE* prevnode, _COMPNODE* node);
// Takes the node behind prevnode out of the list.
void _KVICompUnlink(_COMPOSITE* comp, _COMPNODE* prevnode, _COMPNODE* node);
// The node behind prevnode, the head for null.
inline _COMPNODE* _KVICompNodeBehind(const _COMPOSITE* comp, const _COMPNODE* prevnode) {
  return prevnode != nullptr ? prevnode->next : comp->nodelist;
}
// Parts the run at comp->comprec: new nodes belong behind *prevnode, at the head for null. KVFAIL_INTERNAL,
// KVFAIL_NO_MEMORY.
uint32_t CompSplit(_COMPOSITE* comp, _COMPNODE** prevnode);

// Cursors

// Counts the records of a node. KVFAIL_BAD_FORMAT for bytes that are no record; the node stays uncounted.
uint32_t CompCountFields(_COMPNODE* node);
// Counts it unless that was done.
inline uint32_t _KVICompCount(_COMPNODE* node) {
  return node->field_count != kCompNotCounted ? uint32_t{KVSUCCESS} : CompCountFields(node);
}
// Moves a cursor (null: currec) one record on. KVFAIL_END_OF_DATA, or what counting gives.
uint32_t CompRecords(_COMPOSITE* comp, COMPRECORD* comprec);
// Places comprec on a record; 0 or the count plus 1 with last_ok: behind the last one; kCompRelease: nowhere.
// KVFAIL_DATA_UNAVAILABLE, KVFAIL_END_OF_DATA for kCompRelease, or what counting gives.
uint32_t CompGetRecord(_COMPOSITE* comp, uint32_t index, int last_ok);
// Records of a composite. A failure is the status, and the count is 0 then.
uint32_t _KVICompRecordCount(_COMPOSITE* comp, uint32_t* count);
// Makes a cursor's address and head anew, its node locked, after the node's bytes may have moved.
uint32_t _KVICompCursorRefresh(COMPRECORD* cursor);
// Before nodes change otherwise than at the end: the listing cursor holds a number instead of a place.
void _KVICompLoosenCursor(_COMPOSITE* comp);

// Records

// True for the types that a record may have in this interface, built or not.
bool _KVICDIsType(int32_t cdtype);
// A public record made into a stored one. *compnode null asks for a new node, else that node is offered to
// take the record in; receives the node that holds it, unlinked if new. On failure nothing has changed.
uint32_t _CompCreate(_api_session* session, _COMPOSITE* comp, int32_t cdtype, void* compbuf,
                     _COMPNODE** compnode);
// The record at a cursor made into a public one. *cdtype is the type wanted, 0 for any, and receives what it
// is. compbuf null: no record, but the sizing, formulas included, is done; direct: pointers into the stored
// bytes instead of copies. complen (optional) receives the bytes of the variable part.
uint32_t _CompData(_api_session* session, _DOCUMENT* document, const COMPRECORD* comprec, int direct,
                   int32_t* cdtype, uint32_t* complen, void* compbuf);
// Clears the bit of a font that has no meaning outside.
void CheckFont(KVFONTSTYLE* font);
// Between list_format of a paragraph style and its stored flags. KVFAIL_BAD_ENUM, KVFAIL_NO_ACTION.
constexpr uint32_t kPabListRead = 1;
constexpr uint32_t kPabListWrite = 2;
uint32_t KVIPABTranlateList(uint32_t Translate, int32_t* pKVList, uint16_t* pBRFlags);
// The highest number of a paragraph style behind the record at index.
uint32_t KVICompGetMaxPABID(_COMPOSITE* compos, uint32_t index, uint32_t* max_pabid);
// Adds offset to the style numbers in count records from index on; max_pabid (optional) receives the highest
// old one.
uint32_t KVICompMovePABIDs(_COMPOSITE* compos, uint32_t index, uint32_t count, uint32_t offset,
                           uint32_t* max_pabid);
// Gives each later hotspot the end record that belongs to it.
uint32_t KVICompSynchHotspots(_COMPOSITE* pcomp);

// The public records of callers that declare a version below 0x40000. Source and target may be one buffer.
uint32_t BCKWCDRecordConvertOldToNew(uint32_t KVVer, int32_t cdtype, const void* pCDOld, void* pCDNew);
uint32_t BCKWCDRecordConvertNewToOld(uint32_t KVVer, int32_t cdtype, const void* pCDNew, void* pCDOld);

#endif
