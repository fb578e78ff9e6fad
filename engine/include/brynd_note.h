/** @file brynd_note.h
 *  Notes: opening, creating, writing, deleting, their headers, signatures, attachments.
 */
#ifndef BRYND_NOTE_H
#define BRYND_NOTE_H

#include "brynd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Opens a note.
 *  @param id note id, or BRNOTE_SPECIAL | class
 *  @param open_word 1 summary items only, 2 and 4 accepted, 8 without objects
 *  @param note [out] close it with EngNoteClose
 *  @return 0, 0x1f0, 0x1f1, 0x227 no such note, 0x228 deleted. */
BRYND_API EngStatus EngNoteOpen(EngDb database, uint32_t id, uint16_t open_word, EngNote* note);

/** Makes a note that is not stored yet.
 *  @param note [out] close it with EngNoteClose
 *  @return 0, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngNoteCreate(EngDb database, EngNote* note);

/** Closes a note, dropping what was not updated; 0 is none and no failure.
 *  @return 0, 0x1f0. */
BRYND_API EngStatus EngNoteClose(EngNote note);

/** Stores a note: raises its sequence and stamps its times. A fresh note learns its id.
 *  @param update_word 1 store even if the note was changed on disk since it was opened; 4 no commit: it
 *    is on disk at the next durable commit or within 20 ms, in order; 0x100 a hint that it is new; others
 *    accepted
 *  @return 0, 0x1f0, 0x240 changed by someone else, 0x1f5 the disk did not confirm, 0x1f8 read-only,
 *    0x1f6. */
BRYND_API EngStatus EngNoteUpdate(EngNote note, uint16_t update_word);

/** Deletes a note, leaving a stub for replication.
 *  @param update_word as EngNoteUpdate, of which 4 counts
 *  @return 0, 0x1f0, 0x227 no such note, 0x1f8. */
BRYND_API EngStatus EngNoteDelete(EngDb database, uint32_t id, uint16_t update_word);

/** Copies an open note with all items into a fresh one that is not stored yet; its header is the
 *  source's.
 *  @param note [out] close it with EngNoteClose
 *  @return 0, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngNoteCopy(EngNote source, EngNote* note);

/** Reads a member of a note's header.
 *  @param member 0 database handle (4 bytes), 1 note id (4), 2 ORIGINATORID (28), 3 class (2), 4 modified
 *    (8), 7 flags (2), 8 accessed (8), 10 parent's note id (4), 11 number of responses (4), 13 added (8)
 *  @param value [out] at any address
 *  @return 0, 0x1f0, 0x1f1, 0x22b no such member. */
BRYND_API EngStatus EngNoteInfoGet(EngNote note, uint16_t member, void* value);

/** Writes a member of a note's header; it is stored with the next update.
 *  @param member 0, 1, 2, 3, 7 as EngNoteInfoGet; note id 0 makes the next update store a fresh note
 *  @param value at any address
 *  @return 0, 0x1f0, 0x1f1, 0x22b. */
BRYND_API EngStatus EngNoteInfoSet(EngNote note, uint16_t member, const void* value);

/** Whether a note is signed or has sealed items.
 *  @param is_signed [out] 1 or 0; may be null @param is_sealed [out] 1 or 0; may be null
 *  @return non-zero when it is either; 0 for a bad handle. */
BRYND_API int32_t EngNoteSignStateGet(EngNote note, int32_t* is_signed, int32_t* is_sealed);

/** Signs a note with the identity of the current user. Answers 0x1ff in this build. */
BRYND_API EngStatus EngNoteSign(EngNote note);

/** Takes the signature off a note. Answers 0x1ff in this build. */
BRYND_API EngStatus EngNoteUnsign(EngNote note);

/** Unseals the items of a note. Answers 0x1ff in this build.
 *  @param flags 0 @param key [out] the key that sealed them, may be null */
BRYND_API EngStatus EngNoteDecrypt(EngNote note, uint16_t flags, void* key);

/** Copies an open note into a fresh one whose flagged items are sealed. Answers 0x1ff in this build. */
BRYND_API EngStatus EngNoteCopyEncrypted(EngNote source, uint16_t flags, EngNote* note);

/** Attaches a file to a note. Answers 0x1ff in this build.
 *  @param name "$FILE" @param path the file to read @param file_name name of the attachment
 *  @param attach_word how it is packed */
BRYND_API EngStatus EngNoteFileAttach(EngNote note, const char* name, uint16_t name_bytes, const char* path,
                                      const char* file_name, uint16_t attach_word);

/** Writes an attachment to a file. Answers 0x1ff in this build.
 *  @param item the attachment's item @param path the file to write @param key what EngNoteDecrypt gave,
 *    or null */
BRYND_API EngStatus EngNoteFileExtract(EngNote note, BLOCKID item, const char* path, const void* key);

/** Takes an attachment off a note. Answers 0x1ff in this build. */
BRYND_API EngStatus EngNoteFileDetach(EngNote note, BLOCKID item);

#ifdef __cplusplus
}
#endif

#endif
