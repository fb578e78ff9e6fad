// Open notes: their life, header and items.
#include "note/note.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <utility>

#include "base/boundary.h"

namespace brynd {

namespace {

// Capacities of the blocks a note takes one after the other; a longer value gets a block of its size.
constexpr std::array<uint32_t, 4> kBlockBytes = {1000, 4000, 16000, 64000};
constexpr uint32_t kOffsetMax = 0xffff;  // a BLOCKID's
constexpr uint32_t kBlocksMax = 0xfffe,
                   kBlocksReused = 256;     // places of freed blocks are looked for beyond the second
constexpr uint32_t kRoomBehindImage = 200;  // so that a small change to an opened note needs no second block
constexpr uint64_t kDeadBytesKept = 1024 * 1024;
constexpr size_t kNotesKept = 16, kItemsKept = 1024;

std::vector<std::unique_ptr<Note>>& KeptNotes() {
  thread_local std::vector<std::unique_ptr<Note>> notes;
  return notes;
}

}  // namespace

// --- life

std::unique_ptr<Note> Note::Take(std::shared_ptr<Database> database) {
  auto& kept = KeptNotes();
  std::unique_ptr<Note> note;
  if (kept.empty()) {
    note = std::make_unique<Note>(Key());
  } else {
    note = std::move(kept.back());
    kept.pop_back();
  }
  note->database_ = std::move(database);
  return note;
}

void Note::Recycle(std::unique_ptr<Note> note) noexcept {
  if (note == nullptr) return;
  note->Reset();
  auto& kept = KeptNotes();
  if (kept.capacity() < kNotesKept) {
    (void)AtBoundary([&] { kept.reserve(kNotesKept); });  // without memory for it the note simply goes
  }
  if (kept.size() < kept.capacity() && note->items_.capacity() <= kItemsKept) kept.push_back(std::move(note));
}

Note::~Note() { Reset(); }

void Note::Reset() noexcept {
  for (const Block& block : blocks_) {
    if (block.handle != 0) memory::Free(block.handle);
  }
  blocks_.clear();
  items_.clear();
  canonical_.clear();
  pending_.externals.clear();
  database_.reset();
  handle_ = 0;
  header_ = {};
  has_originator_ = modified_ = serials_wrapped_ = false;
  open_word_ = last_serial_ = 0;
  current_block_ = kNotLoaded;
  stored_checksum_ = stored_sequence_ = source_id_ = 0;
  dead_bytes_ = 0;
  dead_bytes_limit_ = kDeadBytesKept;
}

std::unique_ptr<Note> Note::Create(std::shared_ptr<Database> database) {
  database->Store();  // a closed one, or a directory, has no notes
  return Take(std::move(database));
}

std::unique_ptr<Note> Note::Open(std::shared_ptr<Database> database, uint32_t note_id, uint16_t open_word) {
  Database& owner = *database;
  owner.Store().Refresh();
  const uint32_t plain_id = owner.PlainNoteId(note_id);
  std::unique_ptr<Note> note = Take(std::move(database));
  bool found = false;
  owner.VisitNote(plain_id, [&](const ImageView& view) {
    if (view.IsStub()) return;
    note->LoadImage(view, open_word);
    found = true;
  });
  if (!found) Fail(status::kNoNote);
  return note;
}

std::unique_ptr<Note> Note::FromImage(std::shared_ptr<Database> database, const ImageView& view,
                                      uint16_t open_word) {
  std::unique_ptr<Note> note = Take(std::move(database));
  note->LoadImage(view, open_word);
  return note;
}

void Note::LoadImage(const ImageView& view, uint16_t open_word) {
  const NoteImage& image = view.Image();
  header_ = image.Header();
  has_originator_ = true;
  open_word_ = open_word;
  stored_checksum_ = image.Checksum();
  stored_sequence_ = image.Sequence();
  source_id_ = header_.note_id;
  const uint32_t count = image.ItemCount();
  items_.resize(count);
  canonical_.resize(count);

  // One copy brings all values over when one block can address them.
  const Bytes values = image.InlineValues();
  const bool one_block = values.size() <= kOffsetMax;
  if (one_block && !values.empty()) {
    current_block_ = AddBlock(static_cast<uint32_t>(values.size()) + kRoomBehindImage);
    CopyBytes(memory::Find(blocks_[0].handle), values.data(), values.size());
    blocks_[0].used = static_cast<uint32_t>(values.size());
  }
  const NameDictionary& names = view.Names();
  NoteImage::Cursor cursor = image.Items();
  ImageItem stored;
  uint32_t offset = 0;
  for (uint32_t index = 0; cursor.Next(&stored); ++index) {
    Item& item = items_[index];
    item.name = names.OfStored(stored.name_id);
    item.length = stored.length;
    item.external = stored.external;
    item.flags = stored.item_flags;
    item.type = stored.type;
    item.serial = static_cast<uint16_t>(index + 1);
    item.block = kNotLoaded;
    const bool hidden = (open_word & kOpenSummary) != 0 && (stored.item_flags & kItemSummary) == 0;
    canonical_[index] = names.Canonical(item.name) | (hidden ? kHiddenBit : 0);
    if (stored.external != 0) continue;
    if (one_block) {
      item.block = 0;
      item.offset = offset;
      offset += stored.length;
    } else {
      const Room room = MakeRoom(stored.length);
      CopyBytes(room.at, stored.value.data(), stored.length);
      item.block = room.block;
      item.offset = room.offset;
    }
  }
  last_serial_ = static_cast<uint16_t>(count);
}

std::unique_ptr<Note> Note::CopyOf(Note& source) {
  std::unique_ptr<Note> copy = Take(source.database_);
  copy->header_ = source.header_;
  copy->has_originator_ = source.has_originator_;
  copy->open_word_ = source.open_word_;
  copy->stored_checksum_ = source.stored_checksum_;
  copy->stored_sequence_ = source.stored_sequence_;
  copy->items_.reserve(source.items_.size());
  copy->canonical_.reserve(source.items_.size());
  for (uint32_t index = 0; index < source.ItemCount(); ++index) {
    copy->AppendCopy(source, index);
    if (source.IsHidden(index)) copy->canonical_.back() |= kHiddenBit;
  }
  return copy;
}

// --- header

void Note::SetTimes(const TIMEDATE& created, const TIMEDATE& added) noexcept {
  header_.created = created;
  header_.added = added;
  modified_ = true;
}

void Note::SetOriginator(const ORIGINATORID& originator) noexcept {
  header_.originator = originator;
  has_originator_ = true;
  modified_ = true;
}

const ORIGINATORID& Note::Originator() {
  if (!has_originator_) SetOriginator(database_->NewOriginator());
  return header_.originator;
}

void Note::SetNoteId(uint32_t note_id) noexcept {
  if (note_id == header_.note_id) return;
  header_.note_id = note_id;
  stored_checksum_ = 0;
  modified_ = true;
  if (note_id == 0) header_.created = header_.added = TIMEDATE{};  // a new document of its own
}

void Note::MoveTo(std::shared_ptr<Database> database) {
  if (database == database_) return;
  database->Store();
  // What may fail comes first, so that a failure leaves the note where it was.
  for (uint32_t index = 0; index < ItemCount(); ++index) Load(index);
  std::vector<NameToken> tokens;
  tokens.reserve(items_.size());
  for (uint32_t index = 0; index < ItemCount(); ++index)
    tokens.push_back(database->Names().Intern(NameOf(index)));
  for (uint32_t index = 0; index < ItemCount(); ++index) {
    items_[index].name = tokens[index];
    items_[index].external = 0;
    canonical_[index] = database->Names().Canonical(tokens[index]) | (canonical_[index] & kHiddenBit);
  }
  database_ = std::move(database);
  source_id_ = 0;
  stored_checksum_ = 0;
  modified_ = true;
}

// --- finding

uint32_t Note::Find(NameToken canonical, uint32_t from) const noexcept {
  const uint32_t count = ItemCount();
  for (uint32_t index = from; index < count; ++index) {
    if (canonical_[index] == canonical) return index;
  }
  return kNone;
}

uint32_t Note::Find(std::string_view name, uint32_t from) const noexcept {
  const NameToken canonical = database_->Names().Lookup(name);
  return canonical == kNoName ? kNone : Find(canonical, from);
}

uint32_t Note::FirstBehind(uint16_t serial) const noexcept {
  if (serials_wrapped_) {
    const uint32_t index = FindSerial(serial);
    return index == kNone ? ItemCount() : index + 1;
  }
  // Serials rise by one at least, so the item of serial s stands at s - 1 or before.
  const auto last = items_.begin() + std::min<ptrdiff_t>(serial, static_cast<ptrdiff_t>(items_.size()));
  const auto behind = std::upper_bound(
      items_.begin(), last, serial, [](uint16_t wanted, const Item& item) { return wanted < item.serial; });
  return static_cast<uint32_t>(behind - items_.begin());
}

uint32_t Note::FindSerial(uint16_t serial) const noexcept {
  if (serials_wrapped_) {
    const auto at = std::ranges::find(items_, serial, &Item::serial);
    return at == items_.end() ? kNone : static_cast<uint32_t>(at - items_.begin());
  }
  // Nothing deleted yet, the common case: the serial tells the place.
  if (serial != 0 && serial <= items_.size() && items_[serial - 1u].serial == serial) return serial - 1u;
  const uint32_t behind = FirstBehind(serial);
  return behind != 0 && items_[behind - 1].serial == serial ? behind - 1 : kNone;
}

// --- values in memory

// The number of a place in blocks_ that is free, a new one if need be.
uint16_t Note::BlockPlace() {
  if (blocks_.size() < kBlocksReused) {
    blocks_.emplace_back();
    return static_cast<uint16_t>(blocks_.size() - 1);
  }
  const auto free = std::ranges::find(blocks_, MemHandle{0}, &Block::handle);
  if (free != blocks_.end()) return static_cast<uint16_t>(free - blocks_.begin());
  if (blocks_.size() >= kBlocksMax) Fail(status::kNoteTooLarge);
  blocks_.emplace_back();
  return static_cast<uint16_t>(blocks_.size() - 1);
}

uint16_t Note::AddBlock(uint32_t capacity) {
  const uint16_t place = BlockPlace();
  Check(memory::Allocate(0, capacity, &blocks_[place].handle));
  blocks_[place].capacity = capacity;
  return place;
}

Note::Room Note::MakeRoom(uint32_t value_bytes) {
  if (current_block_ != kNotLoaded) {
    Block& block = blocks_[current_block_];
    if (block.used <= kOffsetMax && block.capacity - block.used >= value_bytes) {
      const MutableBytes bytes = memory::FindBytes(block.handle);
      if (bytes.size() >= block.capacity) {
        const Room room{current_block_, block.used, bytes.data() + block.used};
        block.used += value_bytes;
        return room;
      }
    }
  }
  const uint32_t step = std::min<uint32_t>(static_cast<uint32_t>(blocks_.size()), kBlockBytes.size() - 1);
  const uint32_t standard = kBlockBytes[step];
  const uint16_t added = AddBlock(std::max(standard, value_bytes));
  blocks_[added].used = value_bytes;
  // A value with a block of its own leaves the room that is left elsewhere in use.
  if (value_bytes < standard) current_block_ = added;
  return {added, 0, memory::Find(blocks_[added].handle)};
}

std::byte* Note::AddressOf(const Item& item) const {
  const MutableBytes bytes = memory::FindBytes(blocks_[item.block].handle);
  if (uint64_t{item.offset} + item.length > bytes.size()) Fail(status::kBadHandle);
  return bytes.data() + item.offset;
}

void Note::Load(uint32_t index) {
  Item& item = items_[index];
  if (item.block != kNotLoaded) return;
  const Room room = MakeRoom(item.length);
  database_->LoadExternal(source_id_, item.external, {room.at, item.length});
  if (LoadU16(room.at) != item.type) Fail(status::kDamaged);
  item.block = room.block;
  item.offset = room.offset;
}

Bytes Note::Value(uint32_t index) {
  Load(index);
  return {AddressOf(items_[index]), items_[index].length};
}

BLOCKID Note::Place(uint32_t index) {
  Load(index);
  const Item& item = items_[index];
  return {blocks_[item.block].handle, static_cast<uint16_t>(item.offset)};
}

void Note::DropValue(const Item& item) noexcept {
  if (item.block != kNotLoaded) dead_bytes_ += item.length;
}

// Dead values stay readable for a while, since callers may still look at what they have replaced. Live ones
// never move.
void Note::FreeDeadBlocks() noexcept {
  for (uint32_t number = 0; number < blocks_.size(); ++number) {
    Block& block = blocks_[number];
    const memory::Slot* slot = memory::FindSlot(block.handle);
    if (slot == nullptr || number == current_block_ || slot->lock_count.load(std::memory_order_relaxed) != 0)
      continue;
    if (std::ranges::any_of(items_, [&](const Item& item) { return item.block == number; })) continue;
    dead_bytes_ -= std::min<uint64_t>(dead_bytes_, block.used);
    memory::Free(block.handle);
    block = {};
  }
  // What could not be freed must not make every further change look for it again.
  dead_bytes_limit_ = 2 * dead_bytes_ + kDeadBytesKept;
}

// --- changing items

uint16_t Note::NextSerial() {
  if (last_serial_ < 0xffff) return ++last_serial_;
  // All were given out once: from here on a free one is searched, and places are found by looking at each
  // item.
  serials_wrapped_ = true;
  std::vector<bool> used(0x10000);
  for (const Item& item : items_) used[item.serial] = true;
  for (uint32_t serial = 1; serial < 0x10000; ++serial) {
    if (!used[serial]) return static_cast<uint16_t>(serial);
  }
  Fail(status::kTooManyItems);
}

void Note::CheckRoomForItem(size_t value_bytes) const {
  if (value_bytes > kValueBytesMax) Fail(status::kItemTooLarge);
  if (items_.size() >= kItemCountMax) Fail(status::kTooManyItems);
}

// The item's name, value and flags are settled; it gets its serial and its place at the end.
uint32_t Note::AddItem(Item item) {
  item.serial = NextSerial();
  if (canonical_.capacity() == canonical_.size()) canonical_.reserve(2 * canonical_.size() + 16);
  items_.push_back(item);  // the two stay in step: only this may fail
  canonical_.push_back(database_->Names().Canonical(item.name));
  modified_ = true;
  if (dead_bytes_ >= dead_bytes_limit_) FreeDeadBlocks();
  return ItemCount() - 1;
}

uint32_t Note::Append(std::string_view name, uint16_t flags, uint16_t type, Bytes data) {
  CheckRoomForItem(data.size() + kTypeWordBytes);
  Item item;
  item.name = database_->Names().Intern(name);
  item.flags = flags;
  item.type = type;
  item.length = static_cast<uint32_t>(data.size()) + kTypeWordBytes;
  const Room room = MakeRoom(item.length);
  StoreU16(room.at, type);
  CopyBytes(room.at + kTypeWordBytes, data.data(), data.size());
  item.block = room.block;
  item.offset = room.offset;
  return AddItem(item);
}

uint32_t Note::Adopt(std::string_view name, uint16_t flags, BLOCKID value, uint32_t value_bytes) {
  const MutableBytes bytes = memory::FindBytes(value.pool);
  if (bytes.data() == nullptr) Fail(status::kBadHandle);
  if (value_bytes < kTypeWordBytes || uint64_t{value.block} + value_bytes > bytes.size())
    Fail(status::kBadArgument);
  // A block with a destroy hook is an object of the engine, not an item's value.
  if (memory::TypeOf(value.pool) != nullptr) Fail(status::kBadHandle);
  CheckRoomForItem(value_bytes);
  Item item;
  item.name = database_->Names().Intern(name);
  item.flags = flags;
  item.type = LoadU16(bytes.data() + value.block);
  item.length = value_bytes;
  item.offset = value.block;
  const auto owned = std::ranges::find(blocks_, value.pool, &Block::handle);
  item.block = static_cast<uint16_t>(owned - blocks_.begin());
  if (owned != blocks_.end()) return AddItem(item);  // another piece of a block that the note has already

  item.block = BlockPlace();
  const uint32_t index = AddItem(item);
  const auto size = static_cast<uint32_t>(bytes.size());
  blocks_[item.block] = {.handle = value.pool, .used = size, .capacity = size};
  return index;
}

uint32_t Note::AppendCopy(Note& source, uint32_t index) {
  const Bytes value = source.Value(index);
  const uint16_t flags = source.items_[index].flags, type = source.items_[index].type;
  return Append(source.NameOf(index), flags, type, value.subspan(kTypeWordBytes));
}

void Note::SetValue(uint32_t index, uint16_t type, Bytes data) {
  if (data.size() + kTypeWordBytes > kValueBytesMax) Fail(status::kItemTooLarge);
  const auto length = static_cast<uint32_t>(data.size()) + kTypeWordBytes;
  const Room room = MakeRoom(length);
  StoreU16(room.at, type);
  CopyBytes(room.at + kTypeWordBytes, data.data(), data.size());
  Item& item = items_[index];
  DropValue(item);
  item.type = type;
  item.length = length;
  item.block = room.block;
  item.offset = room.offset;
  item.external = 0;
  modified_ = true;
}

namespace {

// The list value `old` (count, lengths, texts) with one more entry, written to `target`, which may be where
// `old` lies.
void WriteWithEntry(std::byte* target, Bytes old, std::string_view text) noexcept {
  const uint16_t count = LoadU16(old.data());
  const size_t lengths_end = 2 + 2 * size_t{count}, texts_bytes = old.size() - lengths_end;
  const Bytes texts = old.subspan(lengths_end);
  if (!texts.empty()) std::memmove(target + lengths_end + 2, texts.data(), texts_bytes);
  if (target != old.data()) CopyBytes(target, old.data(), lengths_end);
  StoreU16(target, static_cast<uint16_t>(count + 1));
  StoreU16(target + lengths_end, static_cast<uint16_t>(text.size()));
  CopyBytes(target + lengths_end + 2 + texts_bytes, text.data(), text.size());
}

}  // namespace

void Note::AddListEntry(uint32_t index, std::string_view text) {
  constexpr uint32_t kListBytesMax = 0xffff;
  const Bytes old = Value(index);
  Item& item = items_[index];
  const uint16_t count = LoadU16(old.data() + kTypeWordBytes);
  const uint64_t length = uint64_t{item.length} + 2 + text.size();
  if (length > kListBytesMax || count == 0xffff) Fail(status::kListFull);
  const Bytes list = old.subspan(kTypeWordBytes);
  const auto added = static_cast<uint32_t>(length - item.length);
  Block& block = blocks_[item.block];
  // The text may lie in the very block that would move under it.
  const bool outside = memory::FindBytes(block.handle).empty() ||
                       BytesOf(text).data() + text.size() <= list.data() ||
                       BytesOf(text).data() >= list.data() + list.size();
  const bool in_place = item.block == current_block_ && item.offset + item.length == block.used && outside &&
                        block.capacity - block.used >= added &&
                        memory::FindBytes(block.handle).size() >= block.capacity;
  if (in_place) {
    WriteWithEntry(AddressOf(item) + kTypeWordBytes, list, text);
    block.used += added;
    item.length += added;
  } else {
    const Room room = MakeRoom(static_cast<uint32_t>(length));
    StoreU16(room.at, item.type);
    WriteWithEntry(room.at + kTypeWordBytes, list, text);
    DropValue(item);
    item.length = static_cast<uint32_t>(length);
    item.block = room.block;
    item.offset = room.offset;
  }
  item.external = 0;
  modified_ = true;
}

void Note::Delete(uint32_t index) noexcept {
  DropValue(items_[index]);
  items_.erase(items_.begin() + index);
  canonical_.erase(canonical_.begin() + index);
  modified_ = true;
}

uint32_t Note::DeleteAll(std::string_view name) noexcept {
  const NameToken canonical = database_->Names().Lookup(name);
  return canonical == kNoName ? 0 : DeleteNamed(canonical, 0);
}

// Serials begin at 1, so 0 keeps none.
uint32_t Note::DeleteNamed(NameToken canonical, uint16_t kept_serial) noexcept {
  uint32_t kept = 0;
  for (uint32_t index = 0; index < ItemCount(); ++index) {
    if (Canonical(index) == canonical && items_[index].serial != kept_serial) {
      DropValue(items_[index]);
      continue;
    }
    items_[kept] = items_[index];
    canonical_[kept++] = canonical_[index];
  }
  const uint32_t deleted = ItemCount() - kept;
  items_.resize(kept);
  canonical_.resize(kept);
  if (deleted != 0) modified_ = true;
  return deleted;
}

// --- handles

NoteTable& Notes() {
  static NoteTable table;
  return table;
}

EngNote AddNote(std::unique_ptr<Note> note) {
  Note& added = *note;
  const EngNote handle = Notes().Add(std::move(note));
  added.SetHandle(handle);
  return handle;
}

Note& FindNote(EngNote handle) { return Notes().Get(handle); }

void CloseNote(EngNote handle) {
  std::unique_ptr<Note> note = Notes().Remove(handle);
  if (note == nullptr) Fail(status::kBadHandle);
  Note::Recycle(std::move(note));
}

}  // namespace brynd
