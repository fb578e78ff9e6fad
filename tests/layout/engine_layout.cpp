// Sizes and offsets of the records that cross the engine's boundary, for addresses of 4 and of 8 bytes:
// numbers that callers and stored data rely on, written out once more and independently of the headers.
#include <cstddef>
#include <type_traits>

#include "brynd.h"

namespace {

constexpr size_t kAddress = sizeof(void*);
static_assert(kAddress == 4 || kAddress == 8, "the boundary is defined for these two");

// Records without addresses: the same everywhere.
static_assert(sizeof(BLOCKID) == 6 && offsetof(BLOCKID, block) == 4);
static_assert(sizeof(TIMEDATE) == 8 && offsetof(TIMEDATE, Innards) == 0);
static_assert(sizeof(TIME) == 48 && offsetof(TIME, year) == 0 && offsetof(TIME, month) == 4);
static_assert(offsetof(TIME, day) == 8 && offsetof(TIME, weekday) == 12 && offsetof(TIME, hour) == 16);
static_assert(offsetof(TIME, minute) == 20 && offsetof(TIME, second) == 24);
static_assert(offsetof(TIME, hundredth) == 28);
static_assert(offsetof(TIME, dst) == 32 && offsetof(TIME, zone) == 36 && offsetof(TIME, GM) == 40);
static_assert(sizeof(UNIVERSALNOTEID) == 16 && offsetof(UNIVERSALNOTEID, Note) == 8);
static_assert(sizeof(ORIGINATORID) == 28 && offsetof(ORIGINATORID, Sequence) == 16);
static_assert(offsetof(ORIGINATORID, SequenceTime) == 20);
static_assert(sizeof(SEARCH_MATCH) == 54 && offsetof(SEARCH_MATCH, OriginatorID) == 20);
static_assert(offsetof(SEARCH_MATCH, SERetFlags) == 50 && offsetof(SEARCH_MATCH, Privileges) == 51);
static_assert(offsetof(SEARCH_MATCH, SummaryLength) == 52);
static_assert(sizeof(ITEM_TABLE) == 4 && offsetof(ITEM_TABLE, Items) == 2);
static_assert(sizeof(ITEM) == 4 && offsetof(ITEM, ValueLength) == 2);
static_assert(sizeof(COLLECTIONPOSITION) == 132 && offsetof(COLLECTIONPOSITION, Tumbler) == 4);
static_assert(sizeof(INDEXSPECIALINFO) == 14 && offsetof(INDEXSPECIALINFO, IndexAnyUnread) == 12);
static_assert(sizeof(NFMT) == 4 && offsetof(NFMT, Attributes) == 2);
static_assert(sizeof(TFMT) == 4 && offsetof(TFMT, Structure) == 3);
static_assert(sizeof(INTLFORMAT) == 139 && offsetof(INTLFORMAT, TimeZone) == 4);
static_assert(offsetof(INTLFORMAT, AMString) == 8 && offsetof(INTLFORMAT, TimeString) == 38);
static_assert(offsetof(INTLFORMAT, YesterdayString) == 43 && offsetof(INTLFORMAT, TomorrowString) == 107);
static_assert(sizeof(DBREPLICAINFO) == 20 && offsetof(DBREPLICAINFO, Flags) == 8);
static_assert(offsetof(DBREPLICAINFO, CutoffInterval) == 10 && offsetof(DBREPLICAINFO, Cutoff) == 12);
static_assert(sizeof(OBJECT_DESCRIPTOR) == 6 && offsetof(OBJECT_DESCRIPTOR, RRV) == 2);
static_assert(sizeof(FT_INDEX_STATS) == 16 && offsetof(FT_INDEX_STATS, BytesIndexed) == 12);
static_assert(sizeof(NAMES_LIST) == 14 && offsetof(NAMES_LIST, Authenticated) == 10);
static_assert(sizeof(REPLICATION_STATS) == 78 && offsetof(REPLICATION_STATS, LastError) == 76);

// Records with addresses grow with them.
static_assert(sizeof(NAME_PARTS) == 36 + 8 * kAddress);
static_assert(sizeof(REGISTRATION) == 8 + 8 * kAddress && offsetof(REGISTRATION, Flags) == 8 * kAddress);

// Words and handles.
static_assert(std::is_same_v<EngStatus, uint16_t> && std::is_same_v<EngCollection, uint16_t>);
static_assert(std::is_same_v<EngMem, uint32_t> && std::is_same_v<EngDb, uint32_t>);
static_assert(std::is_same_v<EngNote, uint32_t> && std::is_same_v<EngIdTable, uint32_t>);
static_assert(sizeof(BRTYPE_TEXT) == 4 && BRTYPE_NUMBER == 0x300 && BRTYPE_TEXT_LIST == 0x501);

}  // namespace
