/** @file brynd_types.h
 *  Words, handles and records that cross the boundary of the engine, and the layout each of them has in
 *  memory.
 *
 *  (1) A record declared between `pragma pack(push, 1)` and `pop` has no padding: its fields lie at the sum
 *      of the sizes before them, on every platform. A pointer to such a record may have any address; read
 *      fields through the record type or by memcpy, never through a pointer to the field's own type.
 *  (2) All numbers are little-endian.  (3) Engine handles have 32 bits (collections 16); 0 is never a valid
 *      handle.
 */
#ifndef BRYND_TYPES_H
#define BRYND_TYPES_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define BRYND_API __declspec(dllexport)
#else
#define BRYND_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define BRYND_ASSERT(condition, text) static_assert(condition, text)
extern "C" {
#else
#define BRYND_ASSERT(condition, text) _Static_assert(condition, text)
#endif

/** Result of an engine call: 0 is success, otherwise a code below 0x4000 whose text EngMessageLoad gives.
 *  Bits 8 to 13 are the package, bits 0 to 7 the number in it; bits 14 and 15 are always 0. */
typedef uint16_t EngStatus;

typedef uint32_t EngMem;          /**< a block of the engine's heap (EngMemAlloc) */
typedef uint32_t EngDb;           /**< an open database or directory */
typedef uint32_t EngNote;         /**< an open note */
typedef uint32_t EngIdTable;      /**< a set of note ids; also a block of the engine's heap */
typedef uint32_t EngCompute;      /**< a formula made ready for evaluation */
typedef uint32_t EngSearch;       /**< a full-text search */
typedef uint32_t EngAgent;        /**< an agent made ready to run */
typedef uint32_t EngAgentContext; /**< the surroundings an agent runs in */
typedef uint32_t EngCertifier;    /**< a certifier that is open for registrations */
typedef uint32_t EngTaskLine;     /**< a status line of a server task */
typedef uint16_t EngCollection;   /**< an open view or folder */

/** @name Type words of item values
 *  The word stands in front of a stored value; EngItemAppend takes it apart from the data.
 *  @{ */
#define BRTYPE_COMPOSITE 0x0001u    /**< composite records */
#define BRTYPE_OBJECT 0x0003u       /**< OBJECT_DESCRIPTOR and what belongs to it */
#define BRTYPE_NUMBER 0x0300u       /**< 8-byte double */
#define BRTYPE_NUMBER_RANGE 0x0301u /**< word count, word range count, doubles, then pairs of doubles */
#define BRTYPE_TIME 0x0400u         /**< TIMEDATE */
#define BRTYPE_TIME_RANGE 0x0401u   /**< as BRTYPE_NUMBER_RANGE, of TIMEDATE values */
#define BRTYPE_TEXT 0x0500u         /**< text, lines ended by NUL */
#define BRTYPE_TEXT_LIST 0x0501u    /**< word count, that many length words, then the texts back to back */
#define BRTYPE_FORMULA 0x0600u      /**< compiled formula; its first word is its length in bytes */
#define BRTYPE_USER 0x0700u         /**< 8 bytes more than the text that applications see */
/** @} */

/** @name Note classes
 *  @{ */
#define BRCLASS_DATA 0x0001u    /**< data document */
#define BRCLASS_INFO 0x0002u    /**< help about the database */
#define BRCLASS_FORM 0x0004u    /**< form, subform */
#define BRCLASS_VIEW 0x0008u    /**< view, folder */
#define BRCLASS_ICON 0x0010u    /**< icon record: title and flags of the database */
#define BRCLASS_DESIGN 0x0020u  /**< design collection */
#define BRCLASS_ACL 0x0040u     /**< access control list */
#define BRCLASS_AGENT 0x0200u   /**< agent */
#define BRCLASS_FIELD 0x0400u   /**< shared field */
#define BRCLASS_PRIVATE 0x1000u /**< modifier: belongs to one user */
#define BRCLASS_DEFAULT 0x8000u /**< modifier: the default record of its class */
#define BRCLASS_ALL 0x7fffu     /**< mask of all classes */
/** Base of the note ids that name the special record of a class: BRNOTE_SPECIAL | class. */
#define BRNOTE_SPECIAL 0xffff0000u
/** @} */

#pragma pack(push, 1)

/** A piece of a block: lock pool, add block, read, unlock pool. Empty when pool is 0. */
typedef struct BLOCKID {
    EngMem pool;    /**< block of the engine's heap, or for items the note */
    uint16_t block; /**< byte offset in it, or for items the item's serial number */
} BLOCKID;

/** A point in time. Innards[0]: hundredths of a second since midnight GMT, 0xffffffff for none. Innards[1]:
 *  low 24 bits the Julian day (GMT), 0xffffff for none; high byte the zone it was made in (bit 7 daylight
 *  saving, bit 6 east, bits 4 and 5 quarter hours, bits 0 to 3 hours). */
typedef struct TIMEDATE {
    uint32_t Innards[2];
} TIMEDATE;

/** A time taken apart. A field of -1 stands for no value. */
typedef struct TIME {
    int32_t year;
    int32_t month; /**< 1 to 12 */
    int32_t day;   /**< 1 to 31 */
    int32_t weekday; /**< 1 (Sunday) to 7; output only */
    int32_t hour;    /**< 0 to 23 */
    int32_t minute;
    int32_t second;
    int32_t hundredth;
    int32_t dst;  /**< 1: the fields are daylight saving time */
    int32_t zone; /**< hours west of GMT, east negative; plus or minus 100 for each minute off the hour */
    TIMEDATE GM;  /**< the same instant in the engine's form */
} TIME;

/** Names a note in every replica. */
typedef struct UNIVERSALNOTEID {
    TIMEDATE File;
    TIMEDATE Note;
} UNIVERSALNOTEID;

/** Names one revision of a note: the universal id, and how often and when it was changed. */
typedef struct ORIGINATORID {
    TIMEDATE File;
    TIMEDATE Note;
    uint32_t Sequence;
    TIMEDATE SequenceTime;
} ORIGINATORID;

/** Names a note of one database file. */
typedef struct NOTEINSTANCEID {
    TIMEDATE File;
    TIMEDATE Note;
    uint32_t NoteID;
} NOTEINSTANCEID;

/** What a search tells of a note. */
typedef struct SEARCH_MATCH {
    NOTEINSTANCEID ID;
    ORIGINATORID OriginatorID;
    uint16_t NoteClass;
    uint8_t SERetFlags; /**< bit 1: the note matches */
    uint8_t Privileges;
    uint16_t SummaryLength; /**< bytes of the summary, 0 when it was not asked for */
} SEARCH_MATCH;

/** Head of a summary. Behind it `Items` records ITEM, then for each item in that order its name and its
 *  value; a value starts with its type word. In rows of a collection read without names the records are plain
 *  length words. */
typedef struct ITEM_TABLE {
    uint16_t Length; /**< bytes of the whole table, this head included */
    uint16_t Items;  /**< number of items */
} ITEM_TABLE;

/** One item of an ITEM_TABLE. */
typedef struct ITEM {
    uint16_t NameLength;
    uint16_t ValueLength; /**< bytes, the type word included */
} ITEM;

/** A place in a collection. Level * 4 + 8 bytes of it mean something. */
typedef struct COLLECTIONPOSITION {
    uint16_t Level;       /**< depth, 0 at the top; highest used subscript of Tumbler, at most 31 */
    uint8_t MinLevel;     /**< bounds of some navigators */
    uint8_t MaxLevel;
    uint32_t Tumbler[32]; /**< ordinal among its siblings on each level, from 1 */
} COLLECTIONPOSITION;

/** Counts that stand beside a row of a collection. */
typedef struct INDEXSPECIALINFO {
    uint32_t IndexSiblings;
    uint32_t IndexChildren;
    uint32_t IndexDescendants;
    uint16_t IndexAnyUnread;
} INDEXSPECIALINFO;

/** How numbers are written. */
typedef struct NFMT {
    uint8_t Digits;     /**< decimal digits, 0 to 15 */
    uint8_t Format;     /**< 0 general, 1 fixed, 2 scientific, 3 currency */
    uint8_t Attributes; /**< 1 thousands separated, 2 negative in parentheses, 4 percent */
    uint8_t Unused;
} NFMT;

/** How times are written. */
typedef struct TFMT {
    uint8_t Date; /**< 0 full, 1 without the year if it is this one, 2 month and day, 3 year and month */
    uint8_t Time;      /**< 0 with seconds, 1 without */
    uint8_t Zone;      /**< 0 never, 1 when it differs from here, 2 always */
    uint8_t Structure; /**< 0 date, 1 time, 2 both, 3 both with yesterday, today and tomorrow as words */
} TFMT;

/** @name INTLFORMAT.Flags
 *  @{ */
#define BRINTL_CURRENCY_SUFFIX 0x01u /**< currency behind the number */
#define BRINTL_CURRENCY_SPACE 0x02u  /**< a blank between currency and number */
#define BRINTL_LEADING_ZERO 0x04u    /**< a zero before the decimal sign */
#define BRINTL_CLOCK_24 0x08u        /**< 24-hour clock */
#define BRINTL_DAYLIGHT 0x10u        /**< daylight saving is observed */
#define BRINTL_DATE_MDY 0x20u        /**< month, day, year; the first set bit of the three decides */
#define BRINTL_DATE_DMY 0x40u        /**< day, month, year */
#define BRINTL_DATE_YMD 0x80u        /**< year, month, day */
/** @} */

/** The conventions of a place for numbers and times. The strings end with NUL. */
typedef struct INTLFORMAT {
    uint16_t Flags;
    uint8_t CurrencyDigits;
    uint8_t Length;   /**< bytes of this record */
    int32_t TimeZone; /**< as TIME.zone */
    char AMString[5];
    char PMString[5];
    char CurrencyString[5];
    char ThousandString[5];
    char DecimalString[5];
    char DateString[5];
    char TimeString[5];
    char YesterdayString[32];
    char TodayString[32];
    char TomorrowString[32];
} INTLFORMAT;

/** Replication settings of a database. */
typedef struct DBREPLICAINFO {
    TIMEDATE ID;             /**< equal in all replicas */
    uint16_t Flags;          /**< the top 2 bits are the priority */
    uint16_t CutoffInterval; /**< days */
    TIMEDATE Cutoff;
} DBREPLICAINFO;

/** What compaction achieved. */
typedef struct DBCOMPACTSIZES {
    uint32_t Before; /**< bytes of the file, at most 0xffffffff */
    uint32_t After;
} DBCOMPACTSIZES;

/** Names an object of a database; the value of an item of type BRTYPE_OBJECT starts with it. */
typedef struct OBJECT_DESCRIPTOR {
    uint16_t ObjectType; /**< 0 file, 3 id table and the like */
    uint32_t RRV;        /**< object id */
} OBJECT_DESCRIPTOR;

/** What an indexing run did. */
typedef struct FT_INDEX_STATS {
    uint32_t DocsAdded;
    uint32_t DocsUpdated;
    uint32_t DocsDeleted;
    uint32_t BytesIndexed;
} FT_INDEX_STATS;

/** Head of a list of names; the names follow, each with its NUL. */
typedef struct NAMES_LIST {
    uint16_t NumNames;
    uint8_t Reserved[8]; /**< zero */
    uint32_t Authenticated;
} NAMES_LIST;

/** One direction of a replication. */
typedef struct REPLICATION_FILE_STATS {
    uint32_t TotalFiles;
    uint32_t FilesCompleted;
    uint32_t NotesAdded;
    uint32_t NotesDeleted;
    uint32_t NotesUpdated;
    uint32_t Successful;
    uint32_t Failed;
    uint32_t NumberErrors;
} REPLICATION_FILE_STATS;

/** What a replication did. */
typedef struct REPLICATION_STATS {
    REPLICATION_FILE_STATS Pull;
    REPLICATION_FILE_STATS Push;
    uint32_t StubsInitialized;
    uint32_t TotalUnreadExchanges;
    uint32_t NumberErrors;
    EngStatus LastError;
} REPLICATION_STATS;

/** The parts of a hierarchical name. Each text points into the name that was given and is not ended by NUL;
 *  null and 0 for a part that it has not. */
typedef struct NAME_PARTS {
    uint32_t Flags;         /**< 1: the name is hierarchical */
    uint32_t CountryLength; /**< bytes */
    const char* Country;
    uint32_t OrgLength;
    const char* Org;
    uint32_t OrgUnitLength[4];
    const char* OrgUnit[4]; /**< [0] is the outermost unit */
    uint32_t CommonNameLength;
    const char* CommonName;
    uint32_t DomainLength;
    const char* Domain; /**< what stands behind `@` */
} NAME_PARTS;

/** What the registrations of certifiers, servers and users have in common. Null texts are not given. */
typedef struct REGISTRATION {
    const char* Server; /**< where to register; empty is here */
    const char* Organization;
    const char* Password;
    const char* IdFile;
    const char* Profile;
    const char* LocalAdmin;
    const char* Location;
    const char* Comment;
    uint32_t Flags;
    uint32_t MinPasswordLength; /**< characters, below 32 */
} REGISTRATION;

#pragma pack(pop)

BRYND_ASSERT(sizeof(BLOCKID) == 4 + 2, "pool, block");
BRYND_ASSERT(sizeof(TIMEDATE) == 2 * 4, "two words");
BRYND_ASSERT(sizeof(TIME) == 10 * 4 + 8 && offsetof(TIME, GM) == 40, "ten fields, then the instant");
BRYND_ASSERT(sizeof(UNIVERSALNOTEID) == 8 + 8, "file, note");
BRYND_ASSERT(sizeof(ORIGINATORID) == 8 + 8 + 4 + 8, "file, note, sequence, sequence time");
BRYND_ASSERT(sizeof(SEARCH_MATCH) == 8 + 8 + 4 + 28 + 2 + 1 + 1 + 2, "instance, originator, rest");
BRYND_ASSERT(offsetof(SEARCH_MATCH, ID.NoteID) == 16 && offsetof(SEARCH_MATCH, NoteClass) == 48, "patched");
BRYND_ASSERT(sizeof(ITEM_TABLE) == 4 && sizeof(ITEM) == 4, "two words each");
BRYND_ASSERT(sizeof(COLLECTIONPOSITION) == 2 + 1 + 1 + 32 * 4, "level, bounds, ordinals");
BRYND_ASSERT(sizeof(INDEXSPECIALINFO) == 3 * 4 + 2, "three counts and a word");
BRYND_ASSERT(sizeof(NFMT) == 4 && sizeof(TFMT) == 4, "four bytes each");
BRYND_ASSERT(sizeof(INTLFORMAT) == 2 + 1 + 1 + 4 + 7 * 5 + 3 * 32, "139 bytes");
BRYND_ASSERT(sizeof(DBREPLICAINFO) == 8 + 2 + 2 + 8, "id, flags, interval, cutoff");
BRYND_ASSERT(sizeof(OBJECT_DESCRIPTOR) == 2 + 4, "type, object");
BRYND_ASSERT(sizeof(FT_INDEX_STATS) == 4 * 4, "four counts");
BRYND_ASSERT(sizeof(NAMES_LIST) == 2 + 8 + 4, "count, reserved, authenticated");
BRYND_ASSERT(sizeof(REPLICATION_STATS) == 2 * 8 * 4 + 3 * 4 + 2, "78 bytes");
BRYND_ASSERT(sizeof(NAME_PARTS) == 9 * 4 + 8 * sizeof(void*), "flags, eight lengths, eight texts");
BRYND_ASSERT(sizeof(REGISTRATION) == 8 * sizeof(void*) + 2 * 4, "eight texts, two words");

/** Called once for each note or file that a search looks at.
 *  @param parameter what the searcher passed
 *  @param match     the note; bit 1 of SERetFlags tells whether it matches. Valid during the call.
 *  @param summary   its summary with names and values, or null when it was not asked for. Valid during the
 *  call.
 *  @return 0 to go on; anything else ends the search and is its result. */
typedef EngStatus (*EngSearchCallback)(void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE* summary);

/** Called once for each item of a note, in stored order.
 *  @param spare       0
 *  @param flags       item flags
 *  @param name        the item's name, name_bytes long, not ended by NUL
 *  @param value       its value, type word first, value_bytes long. Valid during the call.
 *  @return 0 to go on; anything else ends the scan and is its result. */
typedef EngStatus (*EngItemCallback)(uint16_t spare, uint16_t flags, const char* name, uint16_t name_bytes,
                                     const void* value, uint32_t value_bytes, void* parameter);

/** Called once for each entry of an access control list.
 *  @param name  ended by NUL @param level 0 to 6 @param roles 10 bytes, role n is bit n & 7 of byte n >> 3,
 *  from 0
 *  @param flags entry flags, within 0x81ff */
typedef void (*EngAclCallback)(void* parameter, const char* name, uint16_t level, const uint8_t* roles,
                               uint16_t flags);

#ifdef __cplusplus
}
#endif

#endif
