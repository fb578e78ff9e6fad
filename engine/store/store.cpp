// store::Write: hands each call on to the database it belongs to, and abandons the write when it was not
// committed.
#include "store/store.h"

#include "base/status.h"
#include "store/write_target.h"

namespace brynd::store {

namespace {

WriteTarget& Live(WriteTarget* target) {
  if (target == nullptr) Fail(status::kInternal);
  return *target;
}

}  // namespace

Write::~Write() {
  if (target_ != nullptr) target_->AbandonWrite();
}

NoteId Write::NewNoteId() { return Live(target_).NewNoteId(); }
void Write::PutNote(NoteId note_id, Bytes image, ChangeKind kind) {
  Live(target_).PutNote(note_id, image, kind);
}
bool Write::DeleteRow(NoteId note_id) { return Live(target_).DeleteRow(note_id); }
void Write::PutUnid(const Unid& unid, NoteId note_id) { Live(target_).PutUnid(unid, note_id); }
bool Write::RemoveUnid(const Unid& unid) { return Live(target_).RemoveUnid(unid); }
void Write::PutRecord(Space space, Bytes key, Bytes value) { Live(target_).PutRecord(space, key, value); }
bool Write::RemoveRecord(Space space, Bytes key) { return Live(target_).RemoveRecord(space, key); }
uint64_t Write::RemoveRange(Space space, Bytes from, std::optional<Bytes> to) {
  return Live(target_).RemoveRange(space, from, to);
}

void Write::Commit(Durability durability) {
  WriteTarget& target = Live(target_);
  target_ = nullptr;
  target.CommitWrite(durability);
}

}  // namespace brynd::store
