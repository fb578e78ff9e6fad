#include "collection/collection.h"

#include <atomic>

#include "base/boundary.h"
#include "base/idtable.h"
#include "base/process.h"
#include "collection/page.h"

namespace brynd::collection {

namespace {

constexpr uint32_t kToTheEnd = 0xffff;  // a skip count that with kContinue means: however far

bool HasRowFields(uint32_t mask) {
  return (mask & (kNoteId | kUnid | kClass | kSiblings | kChildren | kDescendants | kAnyUnread | kIndent |
                  kScore | kUnread | kPosition | kSummary | kNamedSummary)) != 0;
}

uint16_t CheckedNavigator(uint16_t navigator) {
  const auto plain = static_cast<uint16_t>(navigator & ~kContinue);
  if (plain >= kNextHit && plain <= kCurrentHit) Fail(status::kNotAvailable);  // no result is attached
  if (!IsNavigator(plain)) Fail(status::kBadArgument);
  return plain;
}

}  // namespace

void Collection::Look() {
  if (index_.Look()) return;
  index_.CheckDesign();
  if (!index_.Look()) index_.BringUpToDate();
  if (!index_.Look()) Fail(status::kBadCollection);
}

EngIdTable Collection::Collapsed() {
  if (collapsed_.handle() == 0) collapsed_ = MakeIdTable();
  return collapsed_.handle();
}

ReadAnswer Collection::Read(const ReadRequest& request, COLLECTIONPOSITION* position) {
  const uint16_t skip_navigator = CheckedNavigator(request.skip_navigator);
  const uint16_t return_navigator = CheckedNavigator(request.return_navigator);
  const bool continues = (request.skip_navigator & kContinue) != 0;
  Look();
  const store::Database::Hold hold(data_->Store());
  if (!index_.Look()) Fail(status::kBadCollection);
  Walk walk(index_);
  ReadAnswer answer;
  PageWriter page(index_, walk, request.mask, unread_ == 0 ? nullptr : FindIdTable(unread_), &page_);
  if ((request.mask & kStatistics) != 0) page.AddStatistics();

  const bool to_end = continues && request.skip_count == kToTheEnd;
  COLLECTIONPOSITION start = *position;
  const bool there = walk.Go(start) || to_end;  // from a place that is no more the end is still to be found
  const uint64_t wanted = to_end ? UINT64_MAX : request.skip_count;
  if (there)
    answer.skipped = static_cast<uint32_t>(std::min<uint64_t>(walk.Move(skip_navigator, wanted), UINT32_MAX));
  const bool arrived = there && walk.OnRow() && (continues || answer.skipped == request.skip_count);

  bool more = false;
  if (arrived && request.return_count != 0 && !HasRowFields(request.mask)) {
    answer.returned = 1;
    if (return_navigator != kCurrent)
      answer.returned += static_cast<uint32_t>(walk.Move(return_navigator, request.return_count - 1));
    more = walk.CanMove(return_navigator);
  } else if (arrived && request.return_count != 0) {
    uint64_t last = walk.RowNumber();
    while (page.AddRow()) {
      ++answer.returned;
      last = walk.RowNumber();
      const bool full = answer.returned == request.return_count;
      more = full ? walk.CanMove(return_navigator)
                  : return_navigator != kCurrent && walk.Move(return_navigator, 1) == 1;
      if (full || !more) break;
    }
    // A row that did not fit is left for the next page: the position rests on the last one returned.
    if (walk.RowNumber() != last) walk.ToRow(last);
  }
  if (there) walk.Tell(position);
  if (more) answer.signal = kMoreRows;
  if (!page_.empty()) {
    MemHandle handle = 0;
    Check(memory::Allocate(uint16_t{0}, static_cast<uint32_t>(page_.size()), &handle));
    answer.page = MemoryBlock(handle);
    CopyBytes(answer.page.data(), page_.data(), page_.size());
    answer.page_bytes = static_cast<uint16_t>(page_.size());
  }
  return answer;
}

FoundRows Collection::Find(const std::vector<Bytes>& keys, uint16_t flags) {
  Look();
  const store::Database::Hold hold(data_->Store());
  if (!index_.Look()) Fail(status::kBadCollection);
  return FindByKey(index_, keys, flags);
}

// --- handles

namespace {

std::atomic<bool> closing_registered{false};

void CloseEverything() {
  closing_registered.store(false);
  std::vector<EngCollection> handles;
  Collections().ForEach([&](EngCollection handle, const Collection&) { handles.push_back(handle); });
  for (const EngCollection handle : handles) Collections().Remove(handle);
}

}  // namespace

CollectionTable& Collections() {
  static CollectionTable table;
  return table;
}

EngCollection OpenCollection(const std::shared_ptr<Database>& view_database,
                             const std::shared_ptr<Database>& data, uint32_t view, uint16_t flags) {
  view_database->Store().Refresh();
  data->Store().Refresh();
  auto collection = std::make_unique<Collection>(data, view_database, view);
  Index& index = collection->Rows();
  if ((flags & kOpenBuildAnew) != 0) {
    index.Build();
  } else if ((flags & kOpenAsIs) == 0 || !index.Look()) {
    const EngStatus updated = AtBoundary([&] { index.BringUpToDate(); });
    // A file that is read only shows what was stored last.
    if (updated != status::kOk && !(updated == status::kReadOnly && index.Look())) Fail(updated);
  }
  if (!closing_registered.exchange(true)) Process().AtStop(CloseEverything);
  return Collections().Add(std::move(collection));
}

void CloseCollection(EngCollection handle) {
  if (Collections().Remove(handle) == nullptr) Fail(status::kBadHandle);
}

void UpdateCollection(Collection& collection) {
  std::vector<Index*> indexes{&collection.Rows()};
  Collections().ForEach([&](EngCollection, Collection& other) {
    if (&other != &collection && other.DataPointer() == collection.DataPointer())
      indexes.push_back(&other.Rows());
  });
  Index::BringUpToDate(indexes);
}

}  // namespace brynd::collection
