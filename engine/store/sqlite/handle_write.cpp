// Writing: the batch, the write under way, commits, compaction.
#include <algorithm>
#include <utility>

#include "base/boundary.h"
#include "store/sqlite/handle.h"

namespace brynd::store {

namespace {

// Rows of the journal are removed when its end passes a multiple of this.
constexpr uint64_t kJournalTrimEvery = 256;

int RunOnce(StatementSet& statements, Query query) noexcept {
  int result = SQLITE_NOMEM;
  AtBoundary([&] {
    Lease lease(statements, query);
    result = lease.StepResult();
  });
  return result == SQLITE_DONE ? SQLITE_OK : result;
}

}  // namespace

// --- transactions
// ----------------------------------------------------------------------------------------------------

void Handle::CheckWritable() const {
  CheckOpen();
  if (read_only_) Fail(status::kReadOnly);
  if (current_.open) Fail(status::kInternal);
  if (lost_ != status::kOk || file_->Stopped()) Fail(status::kWriteStopped);
}

void Handle::BeginImmediate(SharedFile::Moment until) {
  connection_->LimitWaits(until);
  const int result = connection_->Run("BEGIN IMMEDIATE");
  connection_->LimitWaits({});
  if (result == SQLITE_OK) return;
  if (IsSyncFailure(result)) file_->Stop();
  Connection::FailWith(result);
}

void Handle::StartTransaction() {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(options_.busy_timeout_ms);
  end_wanted_ = false;
  if (!file_->TakeTurn(this, until)) Fail(status::kBusy);
  EndView();
  const EngStatus code = AtBoundary([&] { BeginImmediate(until); });
  if (code != status::kOk) {
    file_->EndTurn();
    Fail(code);
  }
  state_ = State::kBatch;
  counter_.Attach(*connection_);
  TakeSequence();
  batch_.changes.clear();
  batch_ = Batch{.changes = std::move(batch_.changes)};
}

Write Handle::BeginWrite() {
  std::unique_lock lock(mutex_);
  CheckWritable();
  if (state_ == State::kBatch && end_wanted_) EndBatch();
  if (state_ != State::kBatch) StartTransaction();
  current_ = Current{.open = true,
                     .changes_before = batch_.changes.size(),
                     .edits_before = batch_.edits,
                     .bytes_before = batch_.bytes,
                     .last_id_before = batch_.last_id,
                     .last_id_known_before = batch_.last_id_known};
  lock.release();  // until the write ends
  return MakeWrite();
}

// The row that tells which notes the transaction changed: (zigzag(id - previous id) << 2 | kind) for each.
void Handle::AddJournalRow(uint64_t sequence) {
  ByteBuilder packed;
  packed.Reserve(batch_.changes.size() * 2 + 8);
  int64_t previous = 0;
  for (const Change& change : batch_.changes) {
    const int64_t step = int64_t{change.note_id} - previous;
    const uint64_t zigzag = static_cast<uint64_t>(step) << 1 ^ static_cast<uint64_t>(step >> 63);
    packed.Varint(zigzag << 2 | static_cast<uint64_t>(change.kind));
    previous = change.note_id;
  }
  {
    Lease lease(*statements_, Query::kAddChanges);
    lease.Bind(1, static_cast<int64_t>(sequence)).Bind(2, packed.View()).Step();
  }
  const uint64_t former = std::exchange(journal_last_, sequence);
  if (sequence / kJournalTrimEvery == former / kJournalTrimEvery || sequence <= kJournalRowsKept) return;
  Lease lease(*statements_, Query::kTrimChanges);
  lease.Bind(1, static_cast<int64_t>(sequence - kJournalRowsKept)).Step();
}

void Handle::EndBatch(Durability durability) {
  const bool changed = batch_.edits != 0;
  uint64_t sequence = 0;
  EngStatus code = AtBoundary([&] {
    if (changed && file_->Stopped()) Fail(status::kWriteStopped);
    if (!changed) return;
    sequence = LastSequence() + 1;
    if (!batch_.told || batch_.changes.size() != 1) AddJournalRow(sequence);
  });
  const ChangeCounter::Value before = counter_.Read();
  if (code == status::kOk && changed && durability == Durability::kDurable)
    file_->ReserveLog(*connection_, counter_.Frames());
  if (code == status::kOk) {
    const int result = RunOnce(*statements_, changed ? Query::kCommit : Query::kRollback);
    if (IsSyncFailure(result)) file_->Stop();
    code = StatusOfResult(result);
  }
  if (code != status::kOk) {
    if (connection_->InTransaction()) connection_->Run("ROLLBACK");
    ForgetBatch(code);
    Fail(code);
  }
  if (changed) {
    file_->NoteCommit();
    KeepSequence(sequence, before);
  }
  state_ = State::kNone;
  sequence_.reset();
  if (changed && readings_ == 0) file_->Checkpoint(*connection_, log_frames_, false);
  file_->EndTurn();
}

// The transaction is gone. With it went lazy writes that had been reported as done: no more may follow them.
void Handle::ForgetBatch(EngStatus reason) noexcept {
  if (batch_.lazy_writes != 0) lost_ = reason;
  ++edit_count_;
  state_ = State::kNone;
  sequence_.reset();
  batch_.changes.clear();
  file_->EndTurn();
}

// --- changes of the write under way
// ----------------------------------------------------------------------------------

// A call that fails leaves the write broken: it may have been done in part, and can only be abandoned.
template <class Body>
auto Handle::Attempt(Body&& body) {
  if (current_.broken) Fail(status::kInternal);
  current_.broken = true;
  if constexpr (std::is_void_v<decltype(body())>) {
    body();
    current_.broken = false;
  } else {
    const auto answer = body();
    current_.broken = false;
    return answer;
  }
}

void Handle::BeforeChange() {
  if (current_.pending) ApplyPending();
  if (current_.stirred) return;
  if (batch_.lazy_writes != 0 && !current_.savepoint) {
    Lease lease(*statements_, Query::kSavepoint);
    lease.Step();
    current_.savepoint = true;
  }
  current_.stirred = true;
}

// Runs a statement that changes rows; says how many.
uint64_t Handle::RunChange(Lease& lease) {
  // Afterwards the newest note may be one that tells nothing, and this transaction would take the number of
  // one that a note tells.
  if (batch_.edits == 0) LastSequence();
  ++edit_count_;
  ++batch_.edits;
  const int result = lease.StepResult();
  if (result != SQLITE_DONE) {
    if (IsSyncFailure(result)) file_->Stop();
    failure_ = StatusOfResult(result);
    Connection::FailWith(result);
  }
  return static_cast<uint64_t>(sqlite3_changes64(connection_->Get()));
}

NoteId Handle::NewNoteId() {
  return Attempt([&] {
    if (!batch_.last_id_known) {
      batch_.stored_id = LastNoteId();
      batch_.last_id = std::max(batch_.last_id, batch_.stored_id);
      batch_.last_id_known = true;
    }
    if (batch_.last_id >= kNoteIdMax) Fail(status::kTooManyNotes);
    return ++batch_.last_id;
  });
}

void Handle::PutNote(NoteId note_id, Bytes image, ChangeKind kind) {
  if (note_id == 0 || note_id > kNoteIdMax) Fail(status::kBadArgument);
  if (kind < ChangeKind::kStored || kind > ChangeKind::kRemoved) Fail(status::kBadArgument);
  if (image.size() > kValueBytesMax) Fail(status::kNoteTooLarge);
  Attempt([&] {
    const bool only_one = batch_.lazy_writes != 0 && !current_.pending && !current_.stirred;
    if (only_one) {
      pending_image_.assign(image.begin(), image.end());
      current_.pending = true;
      current_.pending_id = note_id;
      current_.pending_kind = kind;
      ++edit_count_;
    } else {
      BeforeChange();
      StoreNote(note_id, image, kind);
    }
  });
}

// A note appended by the first change of a transaction tells that transaction's number itself: when nothing
// more follows, the commit need not write a page of the journal too.
void Handle::StoreNote(NoteId note_id, Bytes image, ChangeKind kind) {
  const bool appends = batch_.last_id_known && note_id > batch_.stored_id;
  const bool tells = appends && batch_.edits == 0 && kind == ChangeKind::kStored;
  const uint64_t sequence = tells ? LastSequence() + 1 : 0;
  batch_.changes.push_back({note_id, kind});
  Lease lease(*statements_, tells ? Query::kAppendTelling : appends ? Query::kAppendNote : Query::kPutNote);
  lease.Bind(1, int64_t{note_id}).Bind(2, image);
  if (tells) lease.Bind(3, static_cast<int64_t>(sequence));
  RunChange(lease);
  batch_.told = batch_.told || tells;
  batch_.stored_id = std::max(batch_.stored_id, note_id);
  batch_.last_id = std::max(batch_.last_id, note_id);
  batch_.bytes += image.size() + sizeof(Change);
}

// Brings the note that was kept aside into the transaction. More is to follow, so that a savepoint must stand
// before it.
void Handle::ApplyPending() {
  if (!current_.pending) return;
  const bool broken_before =
      std::exchange(current_.broken, true);  // a read may have called this: it counts too
  current_.pending = false;
  BeforeChange();
  StoreNote(current_.pending_id, pending_image_, current_.pending_kind);
  current_.broken = broken_before;
}

bool Handle::DeleteRow(NoteId note_id) {
  return Attempt([&] {
    BeforeChange();
    Lease lease(*statements_, Query::kDeleteNote);
    lease.Bind(1, int64_t{note_id});
    if (RunChange(lease) == 0) return false;
    batch_.changes.push_back({note_id, ChangeKind::kRemoved});
    return true;
  });
}

void Handle::PutUnid(const Unid& unid, NoteId note_id) {
  if (note_id == 0 || note_id > kNoteIdMax) Fail(status::kBadArgument);
  Attempt([&] {
    BeforeChange();
    Lease lease(*statements_, Query::kPutUnid);
    lease.Bind(1, Bytes(unid)).Bind(2, int64_t{note_id});
    RunChange(lease);
    batch_.bytes += sizeof(Unid);
  });
}

bool Handle::RemoveUnid(const Unid& unid) {
  return Attempt([&] {
    BeforeChange();
    Lease lease(*statements_, Query::kRemoveUnid);
    lease.Bind(1, Bytes(unid));
    return RunChange(lease) != 0;
  });
}

void Handle::PutRecord(Space space, Bytes key, Bytes value) {
  if (key.size() > kKeyBytesMax || value.size() > kValueBytesMax) Fail(status::kBadArgument);
  Attempt([&] {
    BeforeChange();
    Lease lease(*statements_, Query::kPutRecord);
    lease.Bind(1, int64_t{space}).Bind(2, key).Bind(3, value);
    RunChange(lease);
    batch_.bytes += key.size() + value.size();
  });
}

bool Handle::RemoveRecord(Space space, Bytes key) {
  return Attempt([&] {
    BeforeChange();
    Lease lease(*statements_, Query::kRemoveRecord);
    lease.Bind(1, int64_t{space}).Bind(2, key);
    return RunChange(lease) != 0;
  });
}

uint64_t Handle::RemoveRange(Space space, Bytes from, std::optional<Bytes> to) {
  return Attempt([&] {
    BeforeChange();
    Lease lease(*statements_, to ? Query::kRemoveRange : Query::kRemoveRangeOpen);
    lease.Bind(1, int64_t{space}).Bind(2, from);
    if (to) lease.Bind(3, *to);
    return RunChange(lease);
  });
}

// --- the end of a write
// ----------------------------------------------------------------------------------------------

void Handle::CommitWrite(Durability durability) {
  const EngStatus code = AtBoundary([&] {
    Attempt([&] {
      if (current_.pending) {  // the only change: it needs no savepoint
        current_.pending = false;
        StoreNote(current_.pending_id, pending_image_, current_.pending_kind);
      } else if (current_.savepoint) {
        Lease lease(*statements_, Query::kRelease);
        lease.Step();
      }
    });
  });
  if (code != status::kOk) {
    AbandonWrite();
    Fail(code);
  }
  const bool lazy = durability == Durability::kLazy;
  if (lazy && batch_.edits != current_.edits_before) ++batch_.lazy_writes;
  current_ = Current{};
  const std::lock_guard lock(mutex_, std::adopt_lock);
  if (!lazy) return Flush();
  if (end_wanted_ || batch_.lazy_writes >= kBatchWritesMax || batch_.bytes >= kBatchBytesMax ||
      batch_.lazy_writes == 0) {
    return EndBatch();
  }
  if (batch_.end_arranged) return;
  batch_.end_arranged = true;
  const std::chrono::milliseconds time(kBatchMilliseconds);
  Committer::OfProcess().EndBatchAt(this, std::chrono::steady_clock::now() + time);
}

void Handle::AbandonWrite() noexcept {
  const bool alone = batch_.lazy_writes == 0;
  if (alone) {
    connection_->Run("ROLLBACK");
  } else if (current_.savepoint) {
    RunOnce(*statements_, Query::kRollbackTo);
    RunOnce(*statements_, Query::kRelease);
  }
  if (connection_->InTransaction() && !alone) {
    batch_.changes.resize(std::min(batch_.changes.size(), current_.changes_before));
    batch_.edits = current_.edits_before;
    batch_.bytes = current_.bytes_before;
    batch_.last_id = current_.last_id_before;
    batch_.last_id_known = current_.last_id_known_before;
    ++edit_count_;
  } else {
    if (connection_->InTransaction()) connection_->Run("ROLLBACK");
    ForgetBatch(failure_ == status::kOk ? status::kIoError : failure_);
  }
  current_ = Current{};
  EndBatchIfAsked();
  mutex_.unlock();
}

void Handle::Flush() {
  const std::lock_guard lock(mutex_);
  CheckOpen();
  if (current_.open) Fail(status::kInternal);
  Check(lost_);
  if (read_only_) return;
  if (state_ == State::kBatch) EndBatch(Durability::kDurable);
  file_->SyncTo(file_->LastTicket(), *connection_, options_.skip_sync);
}

void Handle::EndBatchesOfOthers() {
  const std::lock_guard lock(mutex_);
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(options_.busy_timeout_ms);
  if (!file_->TakeTurn(this, until)) Fail(status::kBusy);
  file_->EndTurn();
}

// --- compaction
// ------------------------------------------------------------------------------------------------------

CompactReport Handle::Compact() {
  const std::lock_guard lock(mutex_);
  CheckWritable();
  if (readings_ != 0 || holds_ != 0) Fail(status::kBusy);
  if (state_ == State::kBatch) EndBatch();
  CompactReport report{.bytes_before = Sizes().file_bytes};
  EndView();
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(options_.busy_timeout_ms);
  if (!file_->TakeTurn(this, until)) Fail(status::kBusy);
  const EngStatus code = AtBoundary([&] { Vacuum(); });
  file_->EndTurn();
  Check(code);
  Flush();
  report.bytes_after = Sizes().file_bytes;
  return report;
}

// SQLite writes the compact file into the log as one transaction; the checkpoint then brings it into place. A
// crash finds the transaction whole or not at all.
// SQLite calls a file full when a damaged page names one beyond the last that a file may have. Nobody mends
// that by making room on the disk. A check that cannot be made leaves the first answer.
static bool IsDamaged(Connection& connection) {
  bool damaged = false;
  const EngStatus code = AtBoundary([&] { damaged = connection.Text("PRAGMA quick_check(1)") != "ok"; });
  return damaged || code == status::kDamaged;
}

void Handle::Vacuum() {
  Connection worker(path_,
                    {.vfs = options_.vfs, .busy_timeout_ms = options_.busy_timeout_ms, .may_attach = true});
  if (const int result = worker.Run("VACUUM")) {
    if (IsSyncFailure(result)) file_->Stop();
    if ((result & 0xff) == SQLITE_FULL && IsDamaged(worker)) Fail(status::kDamaged);
    Connection::FailWith(result);
  }
  file_->NoteCommit();
  file_->Checkpoint(*connection_, log_frames_, true);
}

}  // namespace brynd::store
