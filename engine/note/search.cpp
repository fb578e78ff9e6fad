#include "note/search.h"

#include "base/boundary.h"
#include "base/time.h"
#include "formula/evaluator.h"
#include "note/formula_host.h"
#include "note/summary.h"

namespace brynd {

namespace {

constexpr uint16_t kClassBits = 0x0fff;

SEARCH_MATCH MatchOf(const ImageView& view, const TIMEDATE& file) {
  SEARCH_MATCH match{};
  const ORIGINATORID originator = view.Image().Originator();
  match.ID.File = file;
  match.ID.Note = originator.Note;
  match.ID.NoteID = view.NoteId();
  match.OriginatorID = originator;
  match.NoteClass = view.NoteClass();
  match.SERetFlags = kSearchMatches;
  return match;
}

bool ChangedSince(const ImageView& view, const TIMEDATE& since) {
  return IsWildcard(since) || InstantCompare(view.Image().Modified(), since) >= 0;
}

// What a search keeps between two notes.
class Search {
 public:
  Search(Database& database, const SearchQuery& query, const SearchVisitor& visitor)
      : database_(database), query_(query), visitor_(visitor), host_(database), file_(database.InstanceId()) {
    if (!query.formula.empty()) evaluator_.emplace(formula::Program::Load(query.formula));
  }

  EngStatus Run() {
    store::Database& store = database_.Store();
    const store::NoteId last = store.LastNoteId();
    store.ScanNotes(1, [&](store::NoteId note_id, Bytes stored) {
      if (note_id > last) return false;
      const std::optional<ImageView> view = database_.TryView(stored);
      if (!view || view->NoteId() != note_id || !Takes(*view)) return true;
      Show(*view);
      return outcome_ == status::kOk;
    });
    return outcome_;
  }

 private:
  bool Takes(const ImageView& view) {
    if (view.IsStub() || !ClassMatches(view.NoteClass(), query_.class_mask)) return false;
    if (!ChangedSince(view, query_.since)) return false;
    if (!evaluator_) return true;
    host_.Show(view);
    bool selected = false;
    const EngStatus computed = AtBoundary([&] { selected = evaluator_->Selects(host_); });
    // A value that lies by itself may be damaged too.
    if (computed == status::kDamaged || computed == status::kConflict) return false;
    Check(computed);
    return selected;
  }

  void Show(const ImageView& view) {
    SEARCH_MATCH match = MatchOf(view, file_);
    Bytes summary;
    if (query_.with_summary) {
      summary_.Clear();
      AddSummaryItems(database_, view, &summary_);
      summary = summary_.Finish();
      match.SummaryLength = static_cast<uint16_t>(summary.size());
    }
    outcome_ = visitor_(match, summary);
    if (outcome_ == status::kOk && !database_.IsOpen()) outcome_ = status::kBadHandle;
  }

  Database& database_;
  const SearchQuery& query_;
  const SearchVisitor& visitor_;
  ImageHost host_;
  const TIMEDATE file_;
  std::optional<formula::Evaluator> evaluator_;
  SummaryBuilder summary_;
  EngStatus outcome_ = status::kOk;
};

}  // namespace

bool ClassMatches(uint16_t note_class, uint16_t class_mask) noexcept {
  if ((class_mask & BRCLASS_ALL) == BRCLASS_ALL) return true;
  if ((note_class & class_mask & kClassBits) == 0) return false;
  return (note_class & BRCLASS_PRIVATE) == 0 || (class_mask & BRCLASS_PRIVATE) != 0;
}

EngStatus SearchNotes(const std::shared_ptr<Database>& database, const SearchQuery& query,
                      const SearchVisitor& visitor) {
  const std::shared_ptr<Database> held = database;  // a visitor may close the handle
  const Database::Use use(*held);
  held->Store().Refresh();
  return Search(*held, query, visitor).Run();
}

uint32_t VisitChangedSince(Database& database, uint16_t class_mask, const TIMEDATE& since,
                           store::Visitor<void(const ImageView& view)> visitor) {
  uint32_t damaged_count = 0;
  database.Store().Refresh();
  database.Store().ScanNotes(1, [&](store::NoteId note_id, Bytes stored) {
    const std::optional<ImageView> view = database.TryView(stored);
    if (!view || view->NoteId() != note_id)
      ++damaged_count;
    else if (ClassMatches(view->NoteClass(), class_mask) && ChangedSince(*view, since))
      visitor(*view);
    return true;
  });
  return damaged_count;
}

static ModifiedTimes ScanModified(Database& database) {
  ModifiedTimes times{.data = kWildcardTime, .other = kWildcardTime};
  VisitChangedSince(database, BRCLASS_ALL, kWildcardTime, [&](const ImageView& view) {
    TIMEDATE& last = CountsAsData(view.NoteClass()) ? times.data : times.other;
    if (InstantCompare(view.Image().Modified(), last) > 0) last = view.Image().Modified();
  });
  return times;
}

// The newest changes tell when data was last modified; design changes seldom, and leaves a stamp.
ModifiedTimes LastModified(Database& database) {
  store::Database& store = database.Store();
  store.Refresh();
  const store::Database::Hold hold(store);
  const std::optional<TIMEDATE> other = database.OtherModified();
  if (!other) return ScanModified(database);
  ModifiedTimes times{.data = kWildcardTime, .other = *other};
  const bool whole = store.ChangesBackward([&](const store::NoteChange& change) {
    bool found = false;
    store.ReadNote(change.note_id, [&](Bytes stored) {
      const std::optional<ImageView> view = database.TryView(stored);
      found = view && view->NoteId() == change.note_id && CountsAsData(view->NoteClass());
      if (found) times.data = view->Image().Modified();
    });
    return !found;
  });
  return whole ? times : ScanModified(database);
}

}  // namespace brynd
