/** @file brynd_text.h
 *  Character set, conventions of numbers and times, numbers as text, text lists, summaries.
 *
 *  The engine's character set: bytes 0x20 to 0x7f, tab, LF and CR are ASCII; a byte of 0x80 and above alone
 *  is Latin-1; every other code point up to 0x1ffff is three bytes: 0x10 + (code >> 14), 0x80 | (code >> 7
 *  & 0x7f), 0x80 | (code & 0x7f); higher ones are two such sequences, the halves of a surrogate pair.
 *  Separators and NULs are never found inside a sequence. Where the engine interprets text, bytes that form
 *  valid UTF-8 are taken as that character. Lines inside a text item are parted by NUL.
 *
 *  A text list is a word with the count, that many length words, then the texts back to back; with a
 *  prefix, the word BRTYPE_TEXT_LIST stands in front. It has at most 65,535 bytes. Entries count from 0.
 *  Any thread may call anything here.
 */
#ifndef BRYND_TEXT_H
#define BRYND_TEXT_H

#include "brynd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Changes text between character sets.
 *  @param direction 0 from UTF-8 to engine text, 1 back; invalid UTF-8 bytes pass as Latin-1
 *  @param source_bytes bytes of the text
 *  @param target [out] no NUL is written; must not overlap the source
 *  @param target_bytes room; a character that does not fit whole is left off
 *  @return bytes written. */
BRYND_API uint32_t EngCharsetTranslate(uint16_t direction, const char* source, uint32_t source_bytes,
                                       char* target, uint32_t target_bytes);

/** The conventions for numbers and times, with what the settings file says otherwise.
 *  @param intl [out]
 *  @param intl_bytes room at intl: 139; less gets the first fields
 *  @return 0, 0x1f1. */
BRYND_API EngStatus EngIntlSettingsGet(INTLFORMAT* intl, uint16_t intl_bytes);

/** Writes a number.
 *  @param intl conventions, null for the engine's own
 *  @param format null for general format: up to 15 significant digits, no zeros at the end
 *  @param number need not be aligned
 *  @param text [out] no NUL is written
 *  @param text_bytes room in bytes
 *  @param length [out] bytes written
 *  @return 0, 0x1f1, 0x502 no such format, 0x503 the text does not fit. */
BRYND_API EngStatus EngNumberToText(const INTLFORMAT* intl, const NFMT* format, const double* number,
                                    char* text, uint16_t text_bytes, uint16_t* length);

/** Makes a text list without entries.
 *  @param entry_count how many entries are expected, @param text_bytes how much text: room that is taken
 *    at once; may be 0
 *  @param prefix non-zero: the list starts with its type word
 *  @param memory [out] its block, owned by the caller
 *  @param list [out] address of the list, good until the list changes; the block is not locked. May be
 *    null.
 *  @param list_bytes [out] bytes of the list; may be null
 *  @return 0, 0x107, 0x1f1. */
BRYND_API EngStatus EngListCreate(uint16_t entry_count, uint16_t text_bytes, uint16_t prefix, EngMem* memory,
                                  void** list, uint16_t* list_bytes);

/** Puts a text into a list. The block may move.
 *  @param prefix as at its making
 *  @param list_bytes [out] bytes of the list after; may be null
 *  @param entry the entry in front of which the text goes; the count of entries appends
 *  @param text text_bytes bytes
 *  @return 0, 0x107, 0x1f0, 0x1f2 the block holds no list, 0x230 the list would pass 65,535 bytes, 0x231
 *    no such entry. */
BRYND_API EngStatus EngListEntryAdd(EngMem memory, uint16_t prefix, uint16_t* list_bytes, uint16_t entry,
                                    const char* text, uint16_t text_bytes);

/** Takes an entry out of a list.
 *  @param list_bytes [out] bytes of the list after; may be null
 *  @return 0, 0x1f0, 0x1f2 the block holds no list, 0x231 no such entry. */
BRYND_API EngStatus EngListEntryRemove(EngMem memory, uint16_t prefix, uint16_t* list_bytes, uint16_t entry);

/** The text of an entry.
 *  @param list a whole list at any address
 *  @param text [out] in the list, not ended by NUL
 *  @param text_bytes [out]
 *  @return 0, 0x1f1, 0x231 no such entry. */
BRYND_API EngStatus EngListEntryText(const void* list, uint16_t prefix, uint16_t entry, char** text,
                                     uint16_t* text_bytes);

/** @param list a whole list at any address, or null
 *  @return number of entries, 0 for null. */
BRYND_API uint16_t EngListEntryCount(const void* list, uint16_t prefix);

/** @param list a whole list at any address, or null
 *  @return bytes of the list, prefix included; 0 for null. */
BRYND_API uint16_t EngListByteSize(const void* list, uint16_t prefix);

/** Finds a value in a summary with names, by a name that ignores case.
 *  @param summary an ITEM_TABLE with names, its Length word telling the truth about the room behind it
 *  @param value [out] in the summary, behind the type word; not ended by NUL; may be null, as both below
 *  @param value_bytes [out] bytes of the value, without the type word
 *  @param type [out] type word
 *  @return 0, 0x1f1, 0x1f2 the summary is damaged, 0x222 no such value, or an empty one without type word. */
BRYND_API EngStatus EngSummaryValueLocate(const void* summary, const char* name, char** value,
                                          uint16_t* value_bytes, uint16_t* type);

/** Turns special sequences of a view's text into what they stand for in a row. Answers 0x1ff in this
 *  build.
 *  @param output [out] @param output_limit its room @param length [out] bytes written
 *  @param id note id of the row @param position its place @param info its counts
 *  @param unread unread marks @param collapsed rows shown closed
 *  @param db_title title of the database @param view_name name of the view */
BRYND_API EngStatus EngTranslateSpecial(const char* text, uint16_t text_bytes, char* output,
                                        uint16_t output_limit, uint32_t id,
                                        const COLLECTIONPOSITION* position, const INDEXSPECIALINFO* info,
                                        EngIdTable unread, EngIdTable collapsed, const char* db_title,
                                        const char* view_name, uint16_t* length);

/** The colour of the 16-colour table nearest to a colour number of the 240-colour table. In this build
 *  only the 16 that both tables share are known.
 *  @return 0 to 15; 0, black, for the others. */
BRYND_API uint32_t EngColorMapToV3(uint32_t color);

#ifdef __cplusplus
}
#endif

#endif
