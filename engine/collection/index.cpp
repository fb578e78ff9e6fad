#include "collection/index.h"

#include <algorithm>
#include <array>
#include <map>
#include <mutex>

#include "base/boundary.h"
#include "base/checksum.h"
#include "base/collate.h"
#include "collection/build.h"
#include "collection/index_update.h"

namespace brynd::collection {

namespace {

constexpr uint8_t kHeadVersion = 1;
constexpr size_t kHeadBytes = 8 + 4 + 4 + 8 + 4 + 8 + 4 + 4 + 4 + 4 + 2 * (4 + 4 + 8 + 8 + 8);
// So many changes and more, and a quarter of the view: building anew is quicker.
constexpr size_t kChangesToBuild = 2000;

void AppendHigh(uint32_t number, std::string* text) {
  for (int shift = 24; shift >= 0; shift -= 8) text->push_back(static_cast<char>(number >> shift));
}

void WriteReference(const NodeReference& reference, ByteWriter* out) {
  out->U32(reference.number);
  out->U32(reference.level);
  out->U64(reference.checksum);
  out->U64(reference.entry_count);
  out->U64(reference.weight);
}

bool ReadReference(ByteReader* in, NodeReference* reference) {
  reference->number = in->U32();
  const uint32_t level = in->U32();
  reference->level = static_cast<uint8_t>(level);
  reference->checksum = in->U64();
  reference->entry_count = in->U64();
  reference->weight = in->U64();
  return level <= kTreeLevelMax;
}

uint32_t NewCollection(Database& database, store::Write& write) {
  uint32_t number = 1;
  database.Store().ReadRecord(kHeadSpace, BytesOf("N"), [&](Bytes stored) {
    if (stored.size() == sizeof number) number = LoadU32(stored.data());
  });
  const uint32_t next = number + 1;
  write.PutRecord(kHeadSpace, BytesOf("N"), BytesAt(&next, sizeof next));
  return number;
}

}  // namespace

std::string HeadKey(uint64_t view_instance, uint32_t view_id) {
  std::string key = "H";
  AppendHigh(static_cast<uint32_t>(view_instance >> 32), &key);
  AppendHigh(static_cast<uint32_t>(view_instance), &key);
  AppendHigh(view_id, &key);
  return key;
}

std::string MemberKey(uint32_t folder, uint32_t note_id) {
  std::string key = "M";
  AppendHigh(folder, &key);
  AppendHigh(note_id, &key);
  return key;
}

std::optional<Head> ReadHead(Database& database, const std::string& key) {
  std::optional<Head> found;
  database.Store().ReadRecord(kHeadSpace, BytesOf(key), [&](Bytes stored) {
    if (stored.size() != kHeadBytes || LoadU64(stored.data()) != Checksum64(stored.subspan(8))) return;
    ByteReader in(stored.subspan(8));
    if (in.U32() != kHeadVersion) return;
    Head head;
    head.collection = in.U32();
    head.fingerprint = in.U64();
    head.collation = in.U32();
    head.sequence = in.U64();
    head.changes = in.U32();
    head.last_category = in.U32();
    head.next_node = in.U32();
    head.documents = in.U32();
    if (ReadReference(&in, &head.rows) && ReadReference(&in, &head.finder)) found = head;
  });
  return found;
}

void PutHead(store::Write& write, const std::string& key, const Head& head) {
  std::array<std::byte, kHeadBytes> stored;
  ByteWriter out(stored);
  out.U64(0);
  out.U32(kHeadVersion);
  out.U32(head.collection);
  out.U64(head.fingerprint);
  out.U32(head.collation);
  out.U64(head.sequence);
  out.U32(head.changes);
  out.U32(head.last_category);
  out.U32(head.next_node);
  out.U32(head.documents);
  WriteReference(head.rows, &out);
  WriteReference(head.finder, &out);
  StoreU64(stored.data(), Checksum64(Bytes(stored).subspan(8)));
  write.PutRecord(kHeadSpace, BytesOf(key), stored);
}

std::shared_ptr<NodeCache> SharedCache(uint64_t file_number, uint32_t collection) {
  static std::mutex mutex;
  static std::map<std::pair<uint64_t, uint32_t>, std::weak_ptr<NodeCache>> caches;
  const std::lock_guard lock(mutex);
  std::erase_if(caches, [](const auto& entry) { return entry.second.expired(); });
  std::weak_ptr<NodeCache>& slot = caches[{file_number, collection}];
  std::shared_ptr<NodeCache> cache = slot.lock();
  if (cache == nullptr) slot = cache = std::make_shared<NodeCache>();
  return cache;
}

Lag LagOf(Database& database, const Head& head) {
  Lag lag;
  lag.sequence = database.Store().Stamp().sequence;
  if (head.sequence > lag.sequence) return lag;  // of another file
  uint32_t to_pass = head.changes;
  lag.changes = head.sequence == lag.sequence ? head.changes : 0;
  uint32_t own = 0;
  lag.known = database.Store().ChangesSince(head.sequence, [&](const store::NoteChange& change) {
    own += change.sequence > lag.sequence;
    if (change.sequence == head.sequence + 1 && to_pass != 0) {
      --to_pass;
      return;
    }
    lag.notes.push_back(change.note_id);
  });
  // Passed changes that are no more were taken back with their transaction, and the head with them.
  if (to_pass != 0) lag.known = false;
  lag.changes = own;
  std::ranges::sort(lag.notes);
  lag.notes.erase(std::unique(lag.notes.begin(), lag.notes.end()), lag.notes.end());
  return lag;
}

// --- one index

Index::Index(std::shared_ptr<Database> data, std::shared_ptr<Database> view_database, uint32_t view_id)
    : data_(std::move(data)),
      view_database_(std::move(view_database)),
      view_id_(view_database_->PlainNoteId(view_id)),
      key_(HeadKey(IsHere() ? 0 : view_database_->Store().InstanceId(), view_id_)) {
  CheckDesign();
}

void Index::CheckDesign() {
  uint32_t checksum = 0;
  const bool found = view_database_->VisitNote(view_id_, [&](const ImageView& view) {
    if (view.IsStub()) Fail(status::kNoNote);
    checksum = view.Image().Checksum();
  });
  if (!found) Fail(status::kNoNote);
  if (design_read_ && checksum == design_checksum_) return;
  maker_.reset();
  definition_ = ReadDefinition(*view_database_, view_id_);
  design_checksum_ = checksum;
  design_read_ = true;
  head_.reset();
}

void Index::SetHead(const Head& head) {
  if (cache_ == nullptr || !head_ || head_->collection != head.collection)
    cache_ = SharedCache(data_->Store().FileNumber(), head.collection);
  head_ = head;
}

RowMaker& Index::Maker() {
  if (maker_ == nullptr) maker_ = std::make_unique<RowMaker>(*data_, definition_);
  return *maker_;
}

uint64_t Index::RowCount() {
  if (head_->rows == counted_root_) return row_count_;
  NodeSource source = Rows();
  row_count_ = Tree(source, head_->rows).Seek(BytesOf(ParentEnd(kTopPlace))).WeightBefore();
  counted_root_ = head_->rows;
  return row_count_;
}

bool Index::Look() {
  store::Database& store = data_->Store();
  store.Refresh();
  const store::ViewStamp stamp = store.Stamp();
  if (head_ && stamp == stamp_) return true;
  const std::optional<Head> head = ReadHead(*data_, key_);
  if (!head || head->fingerprint != definition_.fingerprint || head->collation != CollationVersion()) {
    head_.reset();
    return false;
  }
  SetHead(*head);
  stamp_ = stamp;
  return true;
}

void Index::Build() {
  DatabaseWrite write(*data_);
  BuildInto(write);
  write.Commit(store::Durability::kLazy);
}

void Index::BuildInto(DatabaseWrite& write) {
  Head head;
  const std::optional<Head> former = ReadHead(*data_, key_);
  if (former) {
    head.collection = former->collection;
    head.next_node = former->next_node;
    const NodeKey from = KeyOfNode({head.collection, 0}, 0), to = KeyOfNode({head.collection + 1, 0}, 0);
    write.Records().RemoveRange(kNodeSpace, from, Bytes(to));
  } else {
    head.collection = NewCollection(*data_, write.Records());
  }
  head.fingerprint = definition_.fingerprint;
  head.collation = CollationVersion();
  head.sequence = data_->Store().Stamp().sequence;
  head.changes = LagOf(*data_, head).changes;
  IndexBuild(*data_, definition_, Maker(), view_id_).Run(write.Records(), &head);
  PutHead(write.Records(), key_, head);
  SetHead(head);
  stamp_ = kNoStamp;
}

namespace {

void Show(Database& database, uint32_t note_id, store::Visitor<void(const ImageView*)> visitor) {
  bool shown = false;
  database.Store().ReadNote(note_id, [&](Bytes stored) {
    const std::optional<ImageView> view = database.TryView(stored);
    if (!view || view->NoteId() != note_id) return;
    shown = true;
    visitor(&*view);
  });
  if (!shown) visitor(nullptr);
}

}  // namespace

void Index::TakeIn(DatabaseWrite& write, const IdTable& notes) {
  const std::optional<Head> head = ReadHead(*data_, key_);
  stamp_ = kNoStamp;
  if (!head || head->fingerprint != definition_.fingerprint || head->collation != CollationVersion()) return;
  SetHead(*head);
  IndexUpdate update(*this, write,
                     {.known = true, .notes = {}, .sequence = head->sequence, .changes = head->changes});
  notes.ForEach([&](uint32_t note_id) {
    Show(*data_, note_id, [&](const ImageView* view) { update.Apply(note_id, view); });
    return true;
  });
  update.Finish();
}

void Index::BringUpToDate(std::span<Index* const> indexes) {
  std::vector<Index*> behind;
  for (Index* index : indexes) {
    index->data_->Store().Refresh();
    // What is wrong with the design of another view is that view's affair.
    const EngStatus checked = AtBoundary([&] { index->CheckDesign(); });
    if (checked != status::kOk && index != indexes.front()) continue;
    Check(checked);
    if (index->Look()) {
      const Lag lag = LagOf(*index->data_, *index->head_);
      if (lag.known && lag.notes.empty()) continue;
    }
    index->stamp_ = kNoStamp;  // whatever happens now, the head is read again
    behind.push_back(index);
  }
  if (behind.empty()) return;
  Database& database = *behind.front()->data_;
  DatabaseWrite write(database);
  // Inside the write the view is the latest there is; others may have done the work meanwhile.
  std::map<uint32_t, std::vector<IndexUpdate*>> work;
  std::vector<std::unique_ptr<IndexUpdate>> updates;
  for (Index* index : behind) {
    const std::optional<Head> head = ReadHead(database, index->key_);
    Lag lag;
    if (head && head->fingerprint == index->definition_.fingerprint && head->collation == CollationVersion())
      lag = LagOf(database, *head);
    if (!lag.known || lag.notes.size() > std::max<size_t>(kChangesToBuild, head->documents / 4)) {
      index->BuildInto(write);
      continue;
    }
    index->SetHead(*head);
    updates.push_back(std::make_unique<IndexUpdate>(*index, write, lag));
    for (const uint32_t note_id : lag.notes) work[note_id].push_back(updates.back().get());
  }
  for (const auto& change : work) {
    Show(database, change.first, [&](const ImageView* view) {
      for (IndexUpdate* update : change.second) update->Apply(change.first, view);
    });
  }
  for (const std::unique_ptr<IndexUpdate>& update : updates) update->Finish();
  write.Commit(store::Durability::kLazy);
}

}  // namespace brynd::collection
