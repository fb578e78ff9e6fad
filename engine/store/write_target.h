// What stands behind a store::Write: the side of a database that takes changes. Implemented by each means of
// storage.
#ifndef BRYND_STORE_WRITE_TARGET_H
#define BRYND_STORE_WRITE_TARGET_H

#include "store/store.h"

namespace brynd::store {

class WriteTarget {
 public:
  WriteTarget(const WriteTarget&) = delete;
  WriteTarget& operator=(const WriteTarget&) = delete;

  virtual NoteId NewNoteId() = 0;
  virtual void PutNote(NoteId note_id, Bytes image, ChangeKind kind) = 0;
  virtual bool DeleteRow(NoteId note_id) = 0;
  virtual void PutUnid(const Unid& unid, NoteId note_id) = 0;
  virtual bool RemoveUnid(const Unid& unid) = 0;
  virtual void PutRecord(Space space, Bytes key, Bytes value) = 0;
  virtual bool RemoveRecord(Space space, Bytes key) = 0;
  virtual uint64_t RemoveRange(Space space, Bytes from, std::optional<Bytes> to) = 0;
  virtual void CommitWrite(Durability durability) = 0;  // the write has ended when this returns or throws
  virtual void AbandonWrite() noexcept = 0;

 protected:
  WriteTarget() = default;
  ~WriteTarget() = default;
  Write MakeWrite() { return Write(this); }
};

}  // namespace brynd::store

#endif  // BRYND_STORE_WRITE_TARGET_H
