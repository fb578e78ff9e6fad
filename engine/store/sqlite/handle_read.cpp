// Reading: notes, records, the journal.
#include <algorithm>
#include <limits>
#include <vector>

#include "base/boundary.h"
#include "store/sqlite/handle.h"

namespace brynd::store {

namespace {

constexpr int64_t kSequenceMax = int64_t{1} << 60;  // no file gets so far, and sums of two do not wrap

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
    if (!lease.Step() || !lease.IsNumber(0) || lease.Number(0) < 1 || lease.Number(0) > kSequenceMax)
      Fail(status::kDamaged);
    journal_last_ = static_cast<uint64_t>(lease.Number(0));
    sequence_ = std::max(journal_last_, NewestTold());
  }
  return *sequence_;
}

// The transaction that a row of kNewestNotes tells; 0 for none.
static uint64_t ToldBy(const Lease& row) {
  if (row.IsNull(1)) return 0;
  if (!row.IsNumber(1) || row.Number(1) < 2 || row.Number(1) > kSequenceMax) Fail(status::kDamaged);
  return static_cast<uint64_t>(row.Number(1));
}

// The newest note tells the newest of all transactions that notes tell, unless a later one stands in the
// journal.
uint64_t Handle::NewestTold() {
  Lease lease(*statements_, Query::kNewestNotes);
  return lease.Step() ? ToldBy(lease) : 0;
}

// After a commit: whether no other came right behind it is seen from the count of all commits.
void Handle::KeepSequence(uint64_t sequence, const ChangeCounter::Value& before) noexcept {
  own_commit_ = counter_.Read();
  const auto count = [](const ChangeCounter::Value& value) {
    return static_cast<uint32_t>(value.transactions);
  };
  own_sequence_ = counter_.Attached() && count(own_commit_) == count(before) + 1 ? sequence : 0;
}

// At the beginning of a view or a transaction that writes: nothing was committed since this handle's last
// commit.
void Handle::TakeSequence() noexcept {
  sequence_.reset();
  if (own_sequence_ != 0 && !counter_.Moved(own_commit_)) sequence_ = own_sequence_;
}

bool Handle::ChangesSince(uint64_t sequence, Visitor<void(const NoteChange&)> visitor) {
  const Reading reading(*this);
  if (!ShowJournal(sequence, visitor)) return false;
  if (state_ != State::kBatch) return true;
  const std::vector<Change> own = batch_.changes;  // the visitor may add to them
  for (const Change& change : own) visitor({LastSequence() + 1, change.note_id, change.kind});
  return true;
}

// The transactions that notes tell, after `sequence` and up to `last`, newest first. Every transaction that
// begins by appending a note has one that tells it, so the search ends soon behind those wanted.
std::vector<NoteChange> Handle::ToldSince(uint64_t sequence, uint64_t last) {
  std::vector<NoteChange> told;
  Lease lease(*statements_, Query::kNewestNotes);
  while (lease.Step()) {
    const uint64_t made = ToldBy(lease);
    if (made == 0 || made > last) continue;  // above the last: the batch's own
    if (made <= sequence) break;
    if (!told.empty() && made >= told.back().sequence) Fail(status::kDamaged);
    told.push_back({made, CheckedNoteId(lease.Number(0)), ChangeKind::kStored});
  }
  return told;
}

// A number that neither the journal nor a note tells belongs to a note that was appended, and later removed
// with its row.
bool Handle::ShowJournal(uint64_t sequence, Visitor<void(const NoteChange&)> visitor) {
  const uint64_t last = LastSequence();
  if (sequence > last) return false;
  uint64_t rows = 0;
  {
    Lease lease(*statements_, Query::kFirstSequence);
    if (!lease.Step() || lease.Number(0) < 1) Fail(status::kDamaged);
    if (sequence + 1 < static_cast<uint64_t>(lease.Number(0))) return false;
    Lease counting(*statements_, Query::kCountChanges);
    rows = counting.Bind(1, static_cast<int64_t>(sequence)).Step() ? static_cast<uint64_t>(counting.Number(0))
                                                                   : 0;
  }
  if (rows > last - sequence) Fail(status::kDamaged);
  std::vector<NoteChange> told;
  if (rows != last - sequence) told = ToldSince(sequence, last);
  const auto show_told_before = [&](uint64_t limit) {
    for (; !told.empty() && told.back().sequence < limit; told.pop_back()) visitor(told.back());
  };
  Lease lease(*statements_, Query::kChanges);
  for (lease.Bind(1, static_cast<int64_t>(sequence)); lease.Step();) {
    const auto row_sequence = static_cast<uint64_t>(lease.Number(0));
    show_told_before(row_sequence);
    if (!told.empty() && told.back().sequence == row_sequence)
      told.pop_back();  // more was done than the note tells
    ShowChanges(row_sequence, lease.Blob(1), visitor);
  }
  show_told_before(last + 1);
  return true;
}

bool Handle::ShowChangesBackward(uint64_t sequence, Bytes packed, Visitor<bool(const NoteChange&)> visitor) {
  std::vector<NoteChange> changes;
  ShowChanges(sequence, packed, [&](const NoteChange& change) { changes.push_back(change); });
  for (; !changes.empty(); changes.pop_back())
    if (!visitor(changes.back())) return false;
  return true;
}

// Goes down the numbers of transactions. One that the journal's next row does not have is looked for in the
// notes.
bool Handle::ChangesBackward(Visitor<bool(const NoteChange&)> visitor) {
  const Reading reading(*this);
  uint64_t sequence = LastSequence();
  if (state_ == State::kBatch) {
    std::vector<Change> own = batch_.changes;  // the visitor may add to them
    for (; !own.empty(); own.pop_back())
      if (!visitor({sequence + 1, own.back().note_id, own.back().kind})) return true;
  }
  Lease journal(*statements_, Query::kChangesDown), newest(*statements_, Query::kNewestNotes);
  NoteChange told{.sequence = sequence + 1};
  const auto find_told = [&] {
    while (told.sequence > sequence) {
      if (!newest.Step()) return void(told.sequence = 0);
      if (const uint64_t made = ToldBy(newest))
        told = {made, CheckedNoteId(newest.Number(0)), ChangeKind::kStored};
    }
  };
  while (journal.Step()) {
    if (journal.Number(0) < 1 || static_cast<uint64_t>(journal.Number(0)) > sequence) Fail(status::kDamaged);
    const auto row = static_cast<uint64_t>(journal.Number(0));
    while (sequence > row) {
      find_told();
      if (told.sequence > row && !visitor(told)) return true;
      sequence = told.sequence > row ? told.sequence - 1 : row;
    }
    if (!ShowChangesBackward(row, journal.Blob(1), visitor)) return true;
    sequence = row - 1;
  }
  return sequence == 0;
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
