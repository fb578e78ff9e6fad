// Reading: notes, records, the journal.
#include <limits>

#include "base/boundary.h"
#include "store/sqlite/handle.h"

namespace brynd::store {

namespace {

NoteId CheckedNoteId(int64_t number) {
  if (number < 1 || number > int64_t{kNoteIdMax}) Fail(status::kDamaged);
  return static_cast<NoteId>(number);
}

}  // namespace

// One read: excludes others from the handle, brings a pending note in, sees to it that there is a view.
class Handle::Reading {
 public:
  explicit Reading(Handle& handle) : lock_(handle.mutex_), handle_(handle) {
    handle.CheckOpen();
    if (handle.current_.pending) handle.ApplyPending();
    if (handle.state_ == State::kNone) handle.BeginView();
    handle.view_touched_ = true;
    ++handle.readings_;
    handle.CountRead();
  }
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;
  ~Reading() {
    if (--handle_.readings_ == 0) handle_.EndBatchIfAsked();
  }

 private:
  const std::lock_guard<std::recursive_mutex> lock_;
  Handle& handle_;
};

struct Handle::NoteScan {
  Visitor<bool(NoteId, Bytes)> visitor;
  EngStatus failure = status::kOk;
};

bool Handle::ReadNote(NoteId note_id, Visitor<void(Bytes)> visitor) {
  const Reading reading(*this);
  Lease lease(*statements_, Query::kReadNote);
  if (!lease.Bind(1, int64_t{note_id}).Step()) return false;
  visitor(lease.Blob(0));
  return true;
}

// The rows of a scan are shown from inside the statement, by a function in its condition: that spares a fifth
// of the time of stepping from row to row. Nothing may be thrown through SQLite, so a failure waits in the
// scan.
void Handle::ShowNote(sqlite3_context* context, int, sqlite3_value** values) noexcept {
  auto& handle = *static_cast<Handle*>(sqlite3_user_data(context));
  NoteScan& scan = *handle.scan_;
  bool go_on = false;
  scan.failure = AtBoundary([&] {
    if (sqlite3_value_type(values[1]) != SQLITE_BLOB) Fail(status::kDamaged);
    const NoteId note_id = CheckedNoteId(sqlite3_value_int64(values[0]));
    const void* address = sqlite3_value_blob(values[1]);
    const auto byte_count = static_cast<size_t>(sqlite3_value_bytes(values[1]));
    if (address == nullptr && byte_count != 0) Fail(status::kNoMemory);
    go_on = scan.visitor(note_id, BytesAt(address, byte_count));
  });
  handle.EndBatchIfAsked();
  handle.CountRead();
  sqlite3_result_int(context, go_on ? 0 : 1);
}

void Handle::ScanNotes(NoteId from, Visitor<bool(NoteId, Bytes)> visitor) {
  const Reading reading(*this);
  NoteScan scan{.visitor = visitor};
  Lease lease(*statements_, Query::kScanNotes);
  lease.Bind(1,
             from == 0 ? std::numeric_limits<int64_t>::min() : int64_t{from});  // a note id below 1 is damage
  NoteScan* const outer = scan_;
  scan_ = &scan;
  const int result = lease.StepResult();  // a row: the visitor, or a failure, ended the scan
  scan_ = outer;
  Check(scan.failure);
  if (result != SQLITE_ROW && result != SQLITE_DONE) Connection::FailWith(result);
}

NoteId Handle::FindUnid(const Unid& unid) {
  const Reading reading(*this);
  Lease lease(*statements_, Query::kFindUnid);
  return lease.Bind(1, Bytes(unid)).Step() ? CheckedNoteId(lease.Number(0)) : 0;
}

bool Handle::ReadRecord(Space space, Bytes key, Visitor<void(Bytes)> visitor) {
  const Reading reading(*this);
  Lease lease(*statements_, Query::kReadRecord);
  if (!lease.Bind(1, int64_t{space}).Bind(2, key).Step()) return false;
  visitor(lease.Blob(0));
  return true;
}

void Handle::ScanRecords(Space space, Bytes from, std::optional<Bytes> to,
                         Visitor<bool(Bytes, Bytes)> visitor, Order order) {
  const Reading reading(*this);
  const bool up = order == Order::kAscending;
  const Query query =
      to ? (up ? Query::kScanUp : Query::kScanDown) : (up ? Query::kScanUpOpen : Query::kScanDownOpen);
  Lease lease(*statements_, query);
  lease.Bind(1, int64_t{space}).Bind(2, from);
  if (to) lease.Bind(3, *to);
  while (lease.Step() && visitor(lease.Blob(0), lease.Blob(1))) EndBatchIfAsked();
}

NoteId Handle::LastNoteId() {
  const Reading reading(*this);
  Lease lease(*statements_, Query::kLastNote);
  return lease.Step() && lease.IsNumber(0) ? CheckedNoteId(lease.Number(0)) : 0;
}

uint64_t Handle::CountNotes() {
  const Reading reading(*this);
  Lease lease(*statements_, Query::kCountNotes);
  return lease.Step() ? static_cast<uint64_t>(lease.Number(0)) : 0;
}

uint64_t Handle::LastSequence() {
  if (!sequence_) {
    Lease lease(*statements_, Query::kLastSequence);
    if (!lease.Step() || !lease.IsNumber(0) || lease.Number(0) < 1) Fail(status::kDamaged);
    sequence_ = static_cast<uint64_t>(lease.Number(0));
  }
  return *sequence_;
}

bool Handle::ChangesSince(uint64_t sequence, Visitor<void(const NoteChange&)> visitor) {
  const Reading reading(*this);
  if (!ShowJournal(sequence, visitor)) return false;
  if (state_ != State::kBatch) return true;
  const std::vector<Change> own = batch_.changes;  // the visitor may add to them
  for (const Change& change : own) visitor({LastSequence() + 1, change.note_id, change.kind});
  return true;
}

bool Handle::ShowJournal(uint64_t sequence, Visitor<void(const NoteChange&)> visitor) {
  const uint64_t last = LastSequence();
  if (sequence > last) return false;
  {
    Lease lease(*statements_, Query::kFirstSequence);
    if (!lease.Step() || lease.Number(0) < 1) Fail(status::kDamaged);
    if (sequence + 1 < static_cast<uint64_t>(lease.Number(0))) return false;
  }
  Lease lease(*statements_, Query::kChanges);
  lease.Bind(1, static_cast<int64_t>(sequence));
  for (uint64_t expected = sequence + 1; expected <= last; ++expected) {
    if (!lease.Step() || static_cast<uint64_t>(lease.Number(0)) != expected) Fail(status::kDamaged);
    ShowChanges(expected, lease.Blob(1), visitor);
  }
  return true;
}

void Handle::ShowChanges(uint64_t sequence, Bytes packed, Visitor<void(const NoteChange&)> visitor) {
  ByteReader in(packed);
  int64_t note_id = 0;
  while (in.Left() != 0) {
    const uint64_t word = in.Varint();
    const uint64_t zigzag = word >> 2, kind = word & 3;
    if (!in || kind == 0 || zigzag > 2 * uint64_t{kNoteIdMax} + 1) Fail(status::kDamaged);
    note_id += static_cast<int64_t>(zigzag >> 1) ^ -static_cast<int64_t>(zigzag & 1);
    visitor({sequence, CheckedNoteId(note_id), static_cast<ChangeKind>(kind)});
  }
}

}  // namespace brynd::store
