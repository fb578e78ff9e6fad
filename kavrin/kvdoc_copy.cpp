// The copy of a document into a database: a new identity, no parent unless one is named.
#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kNoSuchItem = 0x222;
constexpr uint16_t kNoSuchNote = 0x227;
constexpr uint16_t kTypeNoteReferences = 4;
constexpr uint16_t kItemSummary = 4;

// "$REF": a list header with the count of one, and the parent's identity.
constexpr size_t kReferenceBytes = 2 + 16;

uint16_t PutReference(EngNote note, const UNIVERSALNOTEID& parent) {
  uint8_t value[kReferenceBytes] = {1, 0};
  memcpy(value + 2, &parent, sizeof parent);
  return EngItemAppend(note, kItemSummary, "$REF", 4, kTypeNoteReferences, value, sizeof value);
}

// Gives the copy its own identity in the destination. Each step counts: a copy that kept the id or the
// database of its source would be stored over the source.
uint16_t MoveCopy(const COPYINFO* copyinfo, EngNote note, const UNIVERSALNOTEID* parent) {
  ORIGINATORID originator;
  if (uint16_t brstatus = EngDbOidGenerate(copyinfo->dest_dbhand, &originator)) return brstatus;
  if (uint16_t brstatus = EngNoteInfoSet(note, 2, &originator)) return brstatus;
  const uint32_t no_id = 0;
  if (uint16_t brstatus = EngNoteInfoSet(note, 1, &no_id)) return brstatus;
  const EngDb dest_dbhand = copyinfo->dest_dbhand;
  if (uint16_t brstatus = EngNoteInfoSet(note, 0, &dest_dbhand)) return brstatus;
  const uint16_t parted = EngItemDelete(note, "$REF", 4);  // a copy loses its parent; most have none
  if (parted && (parted & 0x3fff) != kNoSuchItem) return parted;
  return parent != nullptr ? PutReference(note, *parent) : uint16_t{0};
}

// Ends a copy that failed. Only an update can have given it an id in the destination; then it is taken back.
uint32_t DropCopy(const COPYINFO* copyinfo, EngNote note, bool updated, uint16_t brstatus) {
  uint32_t stored_id = 0;
  if (updated) EngNoteInfoGet(note, 1, &stored_id);
  EngNoteClose(note);
  if (stored_id) (void)EngNoteDelete(copyinfo->dest_dbhand, stored_id, 0);
  return KVError(brstatus);
}

}  // namespace

uint32_t CopyDocument(const COPYINFO* copyinfo, uint32_t src_noteid, uint32_t* dest_noteid,
                      UNIVERSALNOTEID* dest_unid, const UNIVERSALNOTEID* parent) {
  *dest_noteid = 0;
  memset(dest_unid, 0, sizeof *dest_unid);
  EngNote source = 0;
  if (uint16_t brstatus = EngNoteOpen(copyinfo->src_dbhand, src_noteid, 0, &source))
    return (brstatus & 0x3fff) == kNoSuchNote ? KVFAIL_BAD_DOCUMENT : brstatus;
  EngNote note = 0;
  const uint16_t copied = EngNoteCopy(source, &note);
  EngNoteClose(source);
  if (copied) return copied;

  if (uint16_t brstatus = MoveCopy(copyinfo, note, parent)) return DropCopy(copyinfo, note, false, brstatus);
  if (uint16_t brstatus = EngNoteUpdate(note, 0)) return DropCopy(copyinfo, note, true, brstatus);
  uint32_t noteid = 0;
  ORIGINATORID originator{};
  EngNoteInfoGet(note, 1, &noteid);
  EngNoteInfoGet(note, 2, &originator);
  EngNoteClose(note);
  *dest_noteid = noteid;
  memcpy(dest_unid, &originator, sizeof *dest_unid);
  return KVSUCCESS;
}
