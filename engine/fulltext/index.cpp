#include "fulltext/index.h"

#include <algorithm>
#include <set>

#include "base/boundary.h"
#include "base/checksum.h"
#include "base/process.h"
#include "fulltext/note_words.h"
#include "store/fulltext.h"

namespace brynd::fulltext {

namespace {

constexpr std::string_view kFact = "fulltext";
constexpr size_t kFactHeadBytes = 4 + 2 + 2 + 8 + 8 + 8 + 4 + 4 + 8;
static_assert(kFactHeadBytes == 48);
constexpr size_t kRowBytes = 4 + 4 + 4;
constexpr size_t kChunkHeadBytes = 1 + 3 + 4;
constexpr uint8_t kChunkVersion = 1;
constexpr uint32_t kDocumentsMax = 0xfffffff0;

using Key = std::array<std::byte, 4>;

Key KeyOfChunk(uint32_t chunk) noexcept {
  return {std::byte(chunk >> 24), std::byte(chunk >> 16), std::byte(chunk >> 8), std::byte(chunk)};
}

// What is kept with an open database: the state loaded last, and up to where the journal was found to hold no
// change that is not in it.
struct Kept {
  std::shared_ptr<const IndexState> state;
  uint64_t checked_sequence = 0;
};

std::shared_ptr<const Kept> KeptOf(Database& database) {
  return std::static_pointer_cast<const Kept>(database.KeptFullText().Get());
}

void Keep(Database& database, std::shared_ptr<const IndexState> state, uint64_t checked_sequence) {
  database.KeptFullText().Set(
      std::make_shared<const Kept>(Kept{.state = std::move(state), .checked_sequence = checked_sequence}));
}

void ReadChunk(Bytes value, SharedArray<DocumentRow>* rows) {
  ByteReader in(value);
  const uint8_t version = in.U8();
  in.Skip(3);
  const uint32_t checksum = in.U32();
  const size_t row_count = in.Left() / kRowBytes;
  if (!in || version != kChunkVersion || in.Left() % kRowBytes != 0 || row_count == 0 ||
      row_count > kChunkDocuments ||
      checksum != static_cast<uint32_t>(Checksum64(BytesAt(in.Address(), in.Left())))) {
    Fail(status::kDamaged);
  }
  for (size_t i = 0; i < row_count; ++i) {
    DocumentRow row;
    row.note_id = in.U32();
    row.word_count = in.U32();
    row.checksum = in.U32();
    rows->PushBack(row);
  }
}

void WriteChunk(DatabaseWrite& write, const SharedArray<DocumentRow>& rows, uint32_t chunk) {
  const size_t first = size_t{chunk} * kChunkDocuments;
  const size_t end = std::min<size_t>(first + kChunkDocuments, rows.size());
  std::vector<std::byte> value(kChunkHeadBytes + (end - first) * kRowBytes);
  ByteWriter out(value);
  out.U8(kChunkVersion);
  out.U8(0);
  out.U16(0);
  out.U32(0);
  for (size_t at = first; at < end; ++at) {
    out.U32(rows[at].note_id);
    out.U32(rows[at].word_count);
    out.U32(rows[at].checksum);
  }
  StoreU32(value.data() + 4, static_cast<uint32_t>(Checksum64(Bytes(value).subspan(kChunkHeadBytes))));
  write.Records().PutRecord(space::kFullText, KeyOfChunk(chunk), value);
}

// The rows of all chunks, in order and without a gap.
SharedArray<DocumentRow> ReadRows(Database& database, uint32_t next_document) {
  SharedArray<DocumentRow> rows;
  uint32_t chunk = 0;
  database.Store().ScanRecords(space::kFullText, {}, std::nullopt, [&](Bytes key, Bytes value) {
    if (!SameBytes(key, KeyOfChunk(chunk)) || rows.size() != size_t{chunk} * kChunkDocuments)
      Fail(status::kDamaged);
    ReadChunk(value, &rows);
    ++chunk;
    return true;
  });
  if (rows.size() != next_document) Fail(status::kDamaged);
  return rows;
}

// Enters the living documents under their notes, and compares the sums with what was stored.
void IndexNotes(IndexState* state) {
  uint32_t live_count = 0;
  uint64_t word_total = 0;
  if (state->rows[0].note_id != 0) Fail(status::kDamaged);
  for (uint32_t document = 1; document < state->rows.size(); ++document) {
    const DocumentRow& row = state->rows[document];
    if (row.note_id == 0) continue;
    if (row.note_id > store::kNoteIdMax || state->DocumentOf(row.note_id) != 0) Fail(status::kDamaged);
    state->documents.Set(row.note_id, document);
    word_total += row.word_count;
    ++live_count;
  }
  if (live_count != state->live_count || word_total != state->word_total) Fail(status::kDamaged);
}

}  // namespace

void NoteMap::Set(uint32_t note_id, uint32_t document) {
  const size_t page = note_id / kPageNotes;
  if (page >= pages_.size()) pages_.resize(page + 1);
  std::shared_ptr<Page>& notes = pages_[page];
  if (notes == nullptr)
    notes = std::make_shared<Page>();
  else if (notes.use_count() != 1)
    notes = std::make_shared<Page>(*notes);
  (*notes)[note_id % kPageNotes] = document;
}

namespace {

// --- changing the index
// ----------------------------------------------------------------------------------------------

class IndexWriter {
 public:
  // `state` is what is stored now; a fresh one for a new index.
  IndexWriter(DatabaseWrite& write, const IndexState& state)
      : write_(write),
        database_(write.Owner()),
        words_(database_.Store().Words()),
        texts_(database_),
        state_(std::make_shared<IndexState>(state)) {}

  // Begins an index without documents, in place of one there may be.
  void BeginAnew(uint16_t flags, const StopWords& stop_words) {
    words_.Drop();
    words_.Make();
    write_.Records().RemoveRange(space::kFullText, {}, std::nullopt);
    *state_ = IndexState{};
    state_->flags = flags;
    state_->stop_words = stop_words;
    state_->rows.PushBack({});
    dirty_ = {0};
  }

  // Takes in what a note is now. `stored` is nothing when the note is gone.
  void Take(uint32_t note_id, std::optional<Bytes> stored) {
    const std::optional<ImageView> view = stored ? database_.TryView(*stored) : std::nullopt;
    const bool searched = view && view->NoteId() == note_id && IsSearchedNote(*view);
    const uint32_t former = state_->DocumentOf(note_id);
    if (searched && former != 0 && state_->rows[former].checksum == view->Image().Checksum()) return;
    if (former != 0) Bury(former);
    if (searched) Add(note_id, *view);
    if (searched)
      ++(former != 0 ? stats_.DocsUpdated : stats_.DocsAdded);
    else if (former != 0)
      ++stats_.DocsDeleted;
  }

  void TakeAll() {
    database_.Store().ScanNotes(1, [&](store::NoteId note_id, Bytes stored) {
      Take(note_id, stored);
      return true;
    });
  }

  // Writes what has changed; to be committed next.
  std::shared_ptr<const IndexState> Finish(uint64_t sequence) {
    for (const uint32_t chunk : dirty_) WriteChunk(write_, state_->rows, chunk);
    state_->sequence = sequence;
    state_->time = Process().clock->Now();
    const std::string stop_words = state_->stop_words.Text();
    state_->fact.assign(kFactHeadBytes + stop_words.size(), std::byte{0});
    ByteWriter out(state_->fact);
    out.U32(WordsVersion());
    out.U16(state_->flags);
    out.U16(0);
    out.U64(sequence);
    out.U64(Process().random->U64());
    out.U32(state_->time.Innards[0]);
    out.U32(state_->time.Innards[1]);
    out.U32(static_cast<uint32_t>(state_->rows.size()));
    out.U32(state_->live_count);
    out.U64(state_->word_total);
    CopyBytes(state_->fact.data() + kFactHeadBytes, stop_words.data(), stop_words.size());
    Database::PutFact(write_, kFact, state_->fact);
    return state_;
  }

  const FT_INDEX_STATS& Stats() const noexcept { return stats_; }

 private:
  void Bury(uint32_t document) {
    DocumentRow& row = state_->rows.At(document);
    state_->documents.Set(row.note_id, 0);
    --state_->live_count;
    state_->word_total -= row.word_count;
    row = {};
    dirty_.insert(document / kChunkDocuments);
  }

  void Add(uint32_t note_id, const ImageView& view) {
    const auto document = static_cast<uint32_t>(state_->rows.size());
    const uint32_t word_count = GatherTokens(view);
    if (word_count != 0) words_.Add(document, tokens_);
    state_->rows.PushBack(
        {.note_id = note_id, .word_count = word_count, .checksum = view.Image().Checksum()});
    state_->documents.Set(note_id, document);
    ++state_->live_count;
    state_->word_total += word_count;
    dirty_.insert(document / kChunkDocuments);
  }

  uint32_t GatherTokens(const ImageView& view) {
    tokens_.clear();
    uint32_t word_count = 0;
    const bool exact_too = (state_->flags & kCaseKept) != 0;
    const bool with_stop_words = !state_->stop_words.IsEmpty();
    texts_.Visit(view, [&](const ImageItem&, std::string_view text) {
      stats_.BytesIndexed += static_cast<uint32_t>(text.size());
      bool first = true;
      breaker_.Break(text, [&](const FoundWord& word) {
        if (with_stop_words && state_->stop_words.Contains(word.folded)) return;
        if (!tokens_.empty()) tokens_.push_back(store::kNextToken);
        if (first && !tokens_.empty()) tokens_.append({kItemBreak, store::kNextToken});
        first = false;
        ++word_count;
        tokens_.append(word.folded);
        if (exact_too) tokens_.append({store::kSameToken, kExactMark}).append(word.exact);
      });
    });
    return word_count;
  }

  DatabaseWrite& write_;
  Database& database_;
  store::WordIndex& words_;
  NoteTexts texts_;
  WordBreaker breaker_;
  std::shared_ptr<IndexState> state_;
  std::set<uint32_t> dirty_;
  std::string tokens_;
  FT_INDEX_STATS stats_{};
};

// The notes that may have changed since the index was brought up to date; nothing when that is not known.
std::optional<std::vector<uint32_t>> ChangedNotes(Database& database, uint64_t sequence) {
  std::vector<uint32_t> changed;
  if (!database.Store().ChangesSince(
          sequence, [&](const store::NoteChange& change) { changed.push_back(change.note_id); }))
    return std::nullopt;
  std::ranges::sort(changed);
  changed.erase(std::unique(changed.begin(), changed.end()), changed.end());
  return changed;
}

bool IsNoteBehind(Database& database, const IndexState& state, uint32_t note_id) {
  const uint32_t document = state.DocumentOf(note_id);
  bool behind = document != 0;
  database.Store().ReadNote(note_id, [&](Bytes stored) {
    const std::optional<ImageView> view = database.TryView(stored);
    const bool searched = view && view->NoteId() == note_id && IsSearchedNote(*view);
    behind =
        searched ? document == 0 || state.rows[document].checksum != view->Image().Checksum() : document != 0;
  });
  return behind;
}

bool IsBehind(Database& database, const std::shared_ptr<const IndexState>& state) {
  const store::Database::Hold hold(database.Store());
  const store::ViewStamp stamp = database.Store().Stamp();
  const std::shared_ptr<const Kept> kept = KeptOf(database);
  uint64_t from = state->sequence;
  if (kept != nullptr && kept->state == state) from = std::max(from, kept->checked_sequence);
  if (stamp.sequence == from && stamp.pending == 0) return false;
  const std::optional<std::vector<uint32_t>> changed = ChangedNotes(database, from);
  if (!changed) return true;
  for (const uint32_t note_id : *changed)
    if (IsNoteBehind(database, *state, note_id)) return true;
  Keep(database, state, stamp.sequence);
  return false;
}

bool IsOfOtherWords(const IndexState& state) noexcept { return LoadU32(state.fact.data()) != WordsVersion(); }

bool IsMostlyDead(const IndexState& state) noexcept {
  const uint64_t dead_count = state.rows.size() - 1 - state.live_count;
  return dead_count > uint64_t{state.live_count} + kDeadDocumentsKept || state.rows.size() >= kDocumentsMax;
}

struct Plan {
  bool anew = false;
  uint16_t flags = 0;
  StopWords stop_words;
};

void TakeChanges(Database& database, const IndexState& stored, IndexWriter* writer) {
  const std::optional<std::vector<uint32_t>> changed = ChangedNotes(database, stored.sequence);
  if (!changed) {
    writer->TakeAll();
    // Rows that are gone without a trace.
    for (uint32_t document = 1; document < stored.rows.size(); ++document) {
      const DocumentRow& row = stored.rows[document];
      if (row.note_id != 0 && !database.Store().ReadNote(row.note_id, [](Bytes) {}))
        writer->Take(row.note_id, std::nullopt);
    }
    return;
  }
  for (const uint32_t note_id : *changed) {
    if (!database.Store().ReadNote(note_id, [&](Bytes image) { writer->Take(note_id, image); }))
      writer->Take(note_id, std::nullopt);
  }
}

// Makes the index what the plan and the notes say, in one write.
FT_INDEX_STATS Advance(Database& database, const Plan& plan, store::Durability durability) {
  if (plan.anew) database.Store().Flush();
  DatabaseWrite write(database);
  database.RefreshNames();
  const uint64_t sequence = database.Store().Stamp().sequence;
  const std::shared_ptr<const IndexState> stored = plan.anew ? nullptr : LoadState(database);
  if (!plan.anew && stored == nullptr) Fail(status::kFullTextNoIndex);  // somebody was quicker
  IndexWriter writer(write, stored == nullptr ? IndexState{} : *stored);
  if (stored != nullptr) TakeChanges(database, *stored, &writer);
  if (stored == nullptr) {
    writer.BeginAnew(plan.flags, plan.stop_words);
    writer.TakeAll();
  }
  const std::shared_ptr<const IndexState> state = writer.Finish(sequence);
  write.Commit(durability);
  Keep(database, state, sequence);
  return writer.Stats();
}

}  // namespace

std::shared_ptr<const IndexState> LoadState(Database& database) {
  const store::Database::Hold hold(database.Store());
  std::optional<std::vector<std::byte>> fact = database.ReadFact(kFact);
  if (!fact) return nullptr;
  const std::shared_ptr<const Kept> kept = KeptOf(database);
  if (kept != nullptr && kept->state != nullptr && SameBytes(kept->state->fact, *fact)) return kept->state;
  if (!database.Store().Words().Exists()) Fail(status::kDamaged);
  auto state = std::make_shared<IndexState>();
  ByteReader in(*fact);
  in.Skip(4);
  state->flags = in.U16();
  in.Skip(2);
  state->sequence = in.U64();
  in.Skip(8);
  state->time = in.Read<TIMEDATE>();
  const uint32_t next_document = in.U32();
  state->live_count = in.U32();
  state->word_total = in.U64();
  if (!in || next_document == 0 || (state->flags & ~kStoredFlags) != 0) Fail(status::kDamaged);
  state->stop_words = StopWords::Of(TextOf(in.Rest()));
  state->fact = std::move(*fact);
  state->rows = ReadRows(database, next_document);
  IndexNotes(state.get());
  Keep(database, state, state->sequence);
  return state;
}

std::shared_ptr<const IndexState> FreshState(Database& database) {
  database.Store().Refresh();
  const std::shared_ptr<const IndexState> state = LoadState(database);
  if (state == nullptr) return nullptr;
  const bool other_words = IsOfOtherWords(*state);
  const bool usable = !other_words && !IsBehind(database, state);
  if (usable && !IsMostlyDead(*state)) return state;
  const Plan plan{
      .anew = other_words || IsMostlyDead(*state), .flags = state->flags, .stop_words = state->stop_words};
  const EngStatus code = AtBoundary([&] { Advance(database, plan, store::Durability::kLazy); });
  constexpr EngStatus kCannotWrite[] = {status::kReadOnly,       status::kBusy,     status::kWriteStopped,
                                        status::kDiskFull,       status::kNoAccess, status::kSyncFailed,
                                        status::kFullTextNoIndex};
  if (std::ranges::find(kCannotWrite, code) != std::end(kCannotWrite)) return usable ? state : nullptr;
  Check(code);
  return LoadState(database);
}

FT_INDEX_STATS BuildIndex(Database& database, uint16_t flags, const std::optional<StopWords>& stop_words) {
  database.Store().Refresh();
  // An index that is damaged is built anew when that is asked for.
  std::shared_ptr<const IndexState> state;
  const EngStatus code = AtBoundary([&] { state = LoadState(database); });
  if (code != status::kDamaged || (flags & kBuildAnew) == 0) Check(code);
  Plan plan{.anew = false, .flags = static_cast<uint16_t>(flags & kStoredFlags), .stop_words = {}};
  if ((flags & kNoStopWords) == 0) plan.stop_words = stop_words ? *stop_words : StopWords::English();
  if ((flags & kAsDatabaseAsks) != 0 && state != nullptr) {
    plan.flags = state->flags;
    plan.stop_words = state->stop_words;
  }
  plan.anew = (flags & kBuildAnew) != 0 || state == nullptr || state->flags != plan.flags ||
              state->stop_words != plan.stop_words || IsOfOtherWords(*state) || IsMostlyDead(*state);
  return Advance(database, plan, store::Durability::kDurable);
}

void DeleteIndex(Database& database) {
  database.Store().Flush();
  DatabaseWrite write(database);
  const bool recorded = write.Records().RemoveRecord(space::kDatabase, BytesOf(kFact));
  if (!recorded && !database.Store().Words().Exists()) Fail(status::kFullTextNoIndex);
  write.Records().RemoveRange(space::kFullText, {}, std::nullopt);
  database.Store().Words().Drop();
  write.Commit(store::Durability::kDurable);
  database.KeptFullText().Set(nullptr);
}

std::optional<TIMEDATE> IndexTime(Database& database) {
  database.Store().Refresh();
  const std::optional<std::vector<std::byte>> fact = database.ReadFact(kFact);
  if (!fact) return std::nullopt;
  if (fact->size() < kFactHeadBytes) Fail(status::kDamaged);
  return Load<TIMEDATE>(fact->data() + 24);
}

}  // namespace brynd::fulltext
