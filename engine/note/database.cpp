// Opening, closing and identity of databases, names and facts in the store, external values.
#include "note/database.h"

#include <zstd.h>

#include <array>
#include <bit>
#include <cassert>
#include <utility>

#include "base/boundary.h"
#include "base/checksum.h"
#include "base/process.h"
#include "base/time.h"
#include "note/design_index.h"
#include "note/note.h"

namespace brynd {

namespace {

using NameKey = std::array<std::byte, 2>;
using ValueKey = std::array<std::byte, 8>;

// Numbers in keys stand high byte first, so that keys sort as the numbers do.
NameKey KeyOfName(uint32_t id) noexcept {
  NameKey key;
  Store<uint16_t>(key.data(), __builtin_bswap16(static_cast<uint16_t>(id)));
  return key;
}

ValueKey KeyOfValue(uint32_t note_id, uint32_t number) noexcept {
  ValueKey key;
  Store<uint32_t>(key.data(), __builtin_bswap32(note_id));
  Store<uint32_t>(key.data() + 4, __builtin_bswap32(number));
  return key;
}

// Runs an undo unless it is dismissed.
template <class Undo>
class UndoGuard {
 public:
  explicit UndoGuard(Undo undo) : undo_(std::move(undo)) {}
  UndoGuard(const UndoGuard&) = delete;
  UndoGuard& operator=(const UndoGuard&) = delete;
  ~UndoGuard() {
    if (armed_) undo_();
  }
  void Dismiss() noexcept { armed_ = false; }

 private:
  Undo undo_;
  bool armed_ = true;
};

constexpr std::string_view kReplicaFact = "replica", kLimitFact = "limit", kOtherFact = "other";
constexpr uint8_t kFactVersion = 1;
constexpr size_t kFactHeadBytes = 1 + 3 + 4;  // version, zero, checksum

}  // namespace

// --- writes

DatabaseWrite::DatabaseWrite(Database& database) : database_(database), names_before_(0) {
  store::Database& store = database.Store();
  UndoGuard reload([&] { database.ReloadNames(); });
  write_.emplace(store.BeginWrite());
  reload.Dismiss();
  names_before_ = database.names_.StoredCount();
}

DatabaseWrite::~DatabaseWrite() {
  write_.reset();  // not committed: it never was, and so neither were its names
  if (names_added_) database_.names_.Forget(names_before_);
}

uint16_t DatabaseWrite::NameId(NameToken token) {
  NameDictionary& names = database_.names_;
  uint32_t id = names.StoredId(token);
  if (id != kNotStored) return static_cast<uint16_t>(id);
  if (!names_fresh_) {
    // Inside the write the view is the latest there is: another process may have stored the name meanwhile.
    database_.RefreshNames();
    names_fresh_ = true;
    names_before_ = names.StoredCount();
    id = names.StoredId(token);
    if (id != kNotStored) return static_cast<uint16_t>(id);
  }
  names_added_ = true;
  const uint16_t assigned = names.Assign(token);
  write_->PutRecord(space::kNames, KeyOfName(assigned), BytesOf(names.Spelling(token)));
  return assigned;
}

void DatabaseWrite::Commit(store::Durability durability) {
  UndoGuard reload([&] { database_.ReloadNames(); });
  write_->Commit(durability);
  reload.Dismiss();
  names_added_ = false;
}

// --- open and close

Database::Database(std::string file_path, std::string given_path)
    : file_path_(std::move(file_path)), given_path_(std::move(given_path)) {}

Database::~Database() = default;

std::shared_ptr<Database> Database::OpenFile(const std::string& file_path, const std::string& given_path,
                                             const store::OpenOptions& options) {
  struct Opened : Database {
    Opened(std::string file, std::string given) : Database(std::move(file), std::move(given)) {}
  };
  auto database = std::make_shared<Opened>(file_path, given_path);
  database->store_ = store::Open(file_path, options);
  database->RefreshNames();
  return database;
}

std::shared_ptr<Database> Database::OpenDirectory(const std::string& file_path,
                                                  const std::string& given_path) {
  struct Opened : Database {
    Opened(std::string file, std::string given) : Database(std::move(file), std::move(given)) {}
  };
  return std::make_shared<Opened>(file_path, given_path);
}

void Database::Create(const std::string& file_path, const Creation& creation) {
  store::CreateOptions options;
  options.overwrite = creation.overwrite;
  options.file_class = creation.file_class == 0 ? kDefaultFileClass : creation.file_class;
  { store::Create(file_path, options)->Close(); }
  // The file is there: what is not finished must not stay. A failed removal changes nothing about the failure
  // told.
  UndoGuard remove([&] { (void)AtBoundary([&] { store::Remove(file_path); }); });
  {
    const std::shared_ptr<Database> database = OpenFile(file_path, file_path);
    DBREPLICAINFO info{};
    Process().random->Fill(std::as_writable_bytes(std::span(&info.ID, 1)));
    info.Cutoff = kWildcardTime;
    DatabaseWrite write(*database);
    PutFact(write, kReplicaFact, BytesAt(&info, sizeof info));
    PutFact(write, kLimitFact, BytesAt(&creation.size_limit, sizeof creation.size_limit));
    const std::unique_ptr<Note> icon = Note::Create(database);
    icon->SetClass(BRCLASS_ICON);
    icon->Append("$TITLE", kItemSummary, BRTYPE_TEXT, {});
    icon->Append("$Flags", kItemSummary, BRTYPE_TEXT, {});
    icon->SaveInto(write, {});
    write.Commit(store::Durability::kDurable);
    database->Close();
  }
  remove.Dismiss();
}

void Database::Close() {
  if (!open_.exchange(false, std::memory_order_acq_rel)) return;
  if (store_ != nullptr && uses_ == 0) store_->Close();
}

// A failure to close is lost here: the status of what the use was for tells that the database is gone.
Database::Use::~Use() {
  if (--database_.uses_ == 0 && !database_.IsOpen()) (void)AtBoundary([&] { database_.store_->Close(); });
}

// --- names

void Database::RefreshNames() {
  store::Database& store = Store();
  uint32_t next = names_.StoredCount();
  bool whole = true;
  store.ScanRecords(space::kNames, KeyOfName(next), std::nullopt, [&](Bytes key, Bytes value) {
    // Ids are dense: a gap, or a key of another shape, is damage.
    whole = key.size() == sizeof(NameKey) && __builtin_bswap16(LoadU16(key.data())) == next &&
            !value.empty() && value.size() <= kNameBytesMax && next < kStoredNamesMax;
    if (!whole) return false;
    names_.Learn(TextOf(value));
    ++next;
    return true;
  });
  if (!whole) Fail(status::kDamaged);
}

void Database::ReloadNames() noexcept {
  if (!IsOpen() || store_ == nullptr) return;
  names_.Forget(0);
  (void)AtBoundary(
      [&] { RefreshNames(); });  // what cannot be learned now is learned, or reported, when it is met
}

ImageView Database::View(Bytes stored) {
  const std::optional<ImageView> view = TryView(stored);
  if (!view) Fail(status::kDamaged);
  return *view;
}

std::optional<ImageView> Database::TryView(Bytes stored) {
  const std::optional<NoteImage> image = NoteImage::Check(stored);
  if (!image) return std::nullopt;
  // The bound is quick and nearly always enough; names that others have stored meanwhile are learned now.
  if (image->NameIdBound() >= names_.StoredCount() && image->ItemCount() != 0 &&
      image->MaxNameId() >= names_.StoredCount()) {
    RefreshNames();
    if (image->MaxNameId() >= names_.StoredCount()) return std::nullopt;
  }
  return ImageView(*image, names_);
}

bool Database::VisitNote(uint32_t note_id, store::Visitor<void(const ImageView&)> visitor) {
  return Store().ReadNote(note_id, [&](Bytes stored) {
    const ImageView view = View(stored);
    if (view.NoteId() != note_id) Fail(status::kDamaged);
    visitor(view);
  });
}

// --- external values: version 1, form (1 plain, 2 zstd), two zero bytes, length 4, XXH3-64 of what follows
// 8, content

namespace {

constexpr uint8_t kValueVersion = 1, kValuePlain = 1, kValuePacked = 2;
constexpr size_t kValueHeadBytes = 1 + 1 + 2 + 4 + 8;
constexpr int kPackLevel = 1;

bool UnpackValue(Bytes stored, std::span<std::byte> target) {
  if (stored.size() < kValueHeadBytes) return false;
  const Bytes content = stored.subspan(kValueHeadBytes);
  if (LoadU32(stored.data() + 4) != target.size() || LoadU64(stored.data() + 8) != Checksum64(content))
    return false;
  if (stored[0] != std::byte{kValueVersion}) return false;
  if (stored[1] == std::byte{kValuePlain}) {
    if (content.size() != target.size()) return false;
    CopyBytes(target.data(), content.data(), content.size());
    return true;
  }
  if (stored[1] != std::byte{kValuePacked}) return false;
  return ZSTD_decompress(target.data(), target.size(), content.data(), content.size()) == target.size();
}

}  // namespace

void Database::LoadExternal(uint32_t note_id, uint32_t number, std::span<std::byte> target) {
  bool whole = false;
  const bool found = Store().ReadRecord(space::kValues, KeyOfValue(note_id, number),
                                        [&](Bytes stored) { whole = UnpackValue(stored, target); });
  if (!found) Fail(status::kConflict);
  if (!whole) Fail(status::kDamaged);
}

void Database::StoreExternal(DatabaseWrite& write, uint32_t note_id, uint32_t number, Bytes value) {
  std::vector<std::byte> record(kValueHeadBytes + ZSTD_compressBound(value.size()));
  size_t packed = ZSTD_compress(record.data() + kValueHeadBytes, record.size() - kValueHeadBytes,
                                value.data(), value.size(), kPackLevel);
  // Packing must save an eighth, else reading the value is not worth the unpacking.
  const bool plain = ZSTD_isError(packed) != 0 || packed > value.size() - value.size() / 8;
  if (plain) {
    packed = value.size();
    CopyBytes(record.data() + kValueHeadBytes, value.data(), packed);
  }
  record.resize(kValueHeadBytes + packed);
  record[0] = std::byte{kValueVersion};
  record[1] = std::byte{plain ? kValuePlain : kValuePacked};
  StoreU32(record.data() + 4, static_cast<uint32_t>(value.size()));
  StoreU64(record.data() + 8, Checksum64(Bytes(record).subspan(kValueHeadBytes)));
  write.Records().PutRecord(space::kValues, KeyOfValue(note_id, number), record);
}

void Database::RemoveExternal(DatabaseWrite& write, uint32_t note_id, uint32_t number) {
  write.Records().RemoveRecord(space::kValues, KeyOfValue(note_id, number));
}

void Database::RemoveAllExternals(DatabaseWrite& write, uint32_t note_id) {
  const ValueKey from = KeyOfValue(note_id, 0), to = KeyOfValue(note_id + 1, 0);
  write.Records().RemoveRange(space::kValues, from, Bytes(to));
}

// --- identity

namespace {

// Spreads the database's part of a universal id over the note's part, so that ids do not read as small
// numbers.
uint32_t UnidSalt(const TIMEDATE& file) noexcept {
  const uint64_t word = Load<uint64_t>(&file);
  return static_cast<uint32_t>((word ^ (word >> 29)) * 0x9e3779b97f4a7c15u >> 32);
}

uint32_t UnixHundredthsNow() {
  constexpr int64_t kNanosecondsPerHundredth = 10'000'000;
  return static_cast<uint32_t>(Process().clock->UnixNanoseconds() / kNanosecondsPerHundredth);
}

}  // namespace

store::Unid UnidKey(const UNIVERSALNOTEID& unid) noexcept {
  store::Unid key;
  CopyBytes(key.data(), &unid, key.size());
  return key;
}

bool SameUnid(const UNIVERSALNOTEID& left, const UNIVERSALNOTEID& right) noexcept {
  return UnidKey(left) == UnidKey(right);
}

TIMEDATE Database::InstanceId() const {
  const uint64_t instance = Store().InstanceId();
  return Load<TIMEDATE>(&instance);
}

UNIVERSALNOTEID Database::MintUnid(uint32_t note_id) const {
  UNIVERSALNOTEID unid;
  unid.File = InstanceId();
  unid.Note.Innards[0] = note_id == 0 ? Process().random->U32() : note_id ^ UnidSalt(unid.File);
  unid.Note.Innards[1] = UnixHundredthsNow();
  return unid;
}

ORIGINATORID Database::NewOriginator() const {
  const UNIVERSALNOTEID unid = MintUnid(0);
  ORIGINATORID originator;
  originator.File = unid.File;
  originator.Note = unid.Note;
  originator.Sequence = 1;
  originator.SequenceTime = Process().clock->Now();
  return originator;
}

uint32_t Database::DerivedNoteId(const UNIVERSALNOTEID& unid) noexcept {
  return unid.Note.Innards[0] ^ UnidSalt(unid.File);
}

uint32_t Database::FindUnid(const UNIVERSALNOTEID& unid, bool stubs_too) {
  store::Database& store = Store();
  uint32_t found = 0;
  const auto matches = [&](uint32_t candidate) {
    if (candidate == 0 || candidate > store::kNoteIdMax) return false;
    bool same = false;
    VisitNote(candidate, [&](const ImageView& view) {
      same = SameUnid(view.Image().Unid(), unid);
      if (same && (stubs_too || !view.IsStub())) found = candidate;
    });
    return same;
  };
  store::Database::Hold hold(store);
  if (!matches(DerivedNoteId(unid))) matches(store.FindUnid(UnidKey(unid)));
  return found;
}

uint32_t Database::PlainNoteId(uint32_t note_id) {
  if ((note_id & BRNOTE_SPECIAL) == BRNOTE_SPECIAL) note_id = SpecialId(static_cast<uint16_t>(note_id));
  if (note_id == 0 || note_id > store::kNoteIdMax) Fail(status::kNoNote);
  return note_id;
}

uint32_t Database::SpecialId(uint16_t note_class) { return design_index::Special(*this, note_class); }

uint16_t Database::FileClass() const { return Store().FileClass(); }

// --- facts

std::optional<std::vector<std::byte>> Database::ReadFact(std::string_view key) {
  std::optional<std::vector<std::byte>> content;
  bool whole = true;
  Store().ReadRecord(space::kDatabase, BytesOf(key), [&](Bytes stored) {
    whole = stored.size() >= kFactHeadBytes && stored[0] == std::byte{kFactVersion};
    if (!whole) return;
    const Bytes tail = stored.subspan(kFactHeadBytes);
    whole = static_cast<uint32_t>(Checksum64(tail)) == LoadU32(stored.data() + 4);
    if (whole) content.emplace(tail.begin(), tail.end());
  });
  if (!whole) Fail(status::kDamaged);
  return content;
}

void Database::PutFact(DatabaseWrite& write, std::string_view key, Bytes content) {
  ByteBuilder record;
  record.U32(kFactVersion);
  record.U32(static_cast<uint32_t>(Checksum64(content)));
  record.Put(content);
  write.Records().PutRecord(space::kDatabase, BytesOf(key), record.View());
}

std::optional<TIMEDATE> Database::OtherModified() {
  const std::optional<std::vector<std::byte>> fact = ReadFact(kOtherFact);
  if (!fact) return std::nullopt;
  if (fact->size() != sizeof(TIMEDATE)) Fail(status::kDamaged);
  return Load<TIMEDATE>(fact->data());
}

// A clock that was put back does not take the stamp back.
void Database::StampOther(DatabaseWrite& write, const TIMEDATE& modified) {
  const std::optional<TIMEDATE> former = write.Owner().OtherModified();
  if (!former || InstantCompare(modified, *former) > 0)
    PutFact(write, kOtherFact, BytesAt(&modified, sizeof modified));
}

DBREPLICAINFO Database::ReplicaInfo() {
  const std::optional<std::vector<std::byte>> fact = ReadFact(kReplicaFact);
  if (!fact || fact->size() != sizeof(DBREPLICAINFO)) Fail(status::kDamaged);
  return Load<DBREPLICAINFO>(fact->data());
}

void Database::SetReplicaInfo(const DBREPLICAINFO& info, store::Durability durability) {
  DatabaseWrite write(*this);
  PutFact(write, kReplicaFact, BytesAt(&info, sizeof info));
  write.Commit(durability);
}

// --- handles

namespace {

std::atomic<bool> closing_registered{false};

// What is still open when the engine stops: notes first, then what they lie in.
void CloseEverything() {
  closing_registered.store(false);
  std::vector<uint32_t> handles;
  Notes().ForEach([&](EngNote handle, const Note&) { handles.push_back(handle); });
  for (const uint32_t handle : handles) Notes().Remove(handle);
  handles.clear();
  Databases().ForEach([&](EngDb handle, const DatabaseEntry&) { handles.push_back(handle); });
  for (const uint32_t handle : handles) (void)AtBoundary([&] { CloseDatabase(handle); });
}

}  // namespace

DatabaseTable& Databases() {
  static DatabaseTable table;
  return table;
}

EngDb AddDatabase(std::shared_ptr<Database> database) {
  if (!closing_registered.exchange(true)) Process().AtStop(CloseEverything);
  auto entry = std::make_unique<DatabaseEntry>();
  entry->database = std::move(database);
  return Databases().Add(std::move(entry));
}

const std::shared_ptr<Database>& FindDatabase(EngDb handle) { return Databases().Get(handle).database; }

void CloseDatabase(EngDb handle) {
  const std::unique_ptr<DatabaseEntry> entry = Databases().Remove(handle);
  if (entry == nullptr) Fail(status::kBadHandle);
  // Notes that are still open in it become bad handles.
  std::vector<EngNote> open_notes;
  Notes().ForEach([&](EngNote note_handle, const Note& note) {
    if (note.OwnerPointer() == entry->database) open_notes.push_back(note_handle);
  });
  for (const EngNote note_handle : open_notes) Notes().Remove(note_handle);
  entry->database->Close();
}

}  // namespace brynd
