#include "note/object.h"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include "base/checksum.h"

namespace brynd {

namespace {

constexpr uint8_t kObjectVersion = 1;
constexpr uint32_t kChunkBytes = 64 * 1024;
constexpr size_t kHeadBytes = 1 + 1 + 2 + 4 + 4;
constexpr size_t kChunkHeadBytes = 4;
constexpr uint32_t kObjectNumberMax = 0xfffffffe;
constexpr std::string_view kNextObjectFact = "next object";

// The value of an object item: type word, type of the object 2, number 4.
constexpr size_t kObjectNumberOffset = kTypeWordBytes + 2;
static_assert(kObjectNumberOffset + 4 == kTypeWordBytes + sizeof(OBJECT_DESCRIPTOR));

using ObjectKey = std::array<std::byte, 8>;

ObjectKey KeyOf(uint32_t object, uint32_t chunk) {
  ObjectKey key;
  StoreU32(key.data(), __builtin_bswap32(object));
  StoreU32(key.data() + 4, __builtin_bswap32(chunk));
  return key;
}

// All records of an object lie between these keys.
struct KeyRange {
  explicit KeyRange(uint32_t object) : from(KeyOf(object, 0)), to(KeyOf(object + 1, 0)) {}
  ObjectKey from, to;
};

struct Head {
  uint16_t object_class = 0;
  uint32_t byte_count = 0;
};

uint32_t Check32(Bytes content) { return static_cast<uint32_t>(Checksum64(content)); }

// Nothing when there is no such object.
std::optional<Head> FindHead(Database& database, uint32_t object) {
  Head head;
  bool whole = false;
  const bool found = database.Store().ReadRecord(space::kObjects, KeyOf(object, 0), [&](Bytes stored) {
    ByteReader in(stored);
    const uint8_t version = in.U8();
    in.Skip(1);
    head.object_class = in.U16();
    head.byte_count = in.U32();
    const uint32_t checksum = in.U32();
    whole = !in.Failed() && in.Left() == 0 && version == kObjectVersion &&
            head.byte_count <= kObjectBytesMax && checksum == Check32(stored.first(kHeadBytes - 4));
  });
  if (!found) return std::nullopt;
  if (!whole) Fail(status::kDamaged);
  return head;
}

Head ReadHead(Database& database, uint32_t object) {
  const std::optional<Head> head = FindHead(database, object);
  if (!head) Fail(status::kNoObject);
  return *head;
}

void PutHead(DatabaseWrite& write, uint32_t object, const Head& head) {
  ByteBuilder out;
  out.U8(kObjectVersion);
  out.U8(0);
  out.U16(head.object_class);
  out.U32(head.byte_count);
  out.U32(Check32(out.View()));
  write.Records().PutRecord(space::kObjects, KeyOf(object, 0), out.View());
}

// How much of a chunk lies within an object of that size.
size_t ChunkBytesWithin(uint32_t object_bytes, uint32_t chunk) {
  const uint64_t begin = uint64_t{chunk} * kChunkBytes;
  return begin >= object_bytes ? 0 : std::min<uint64_t>(kChunkBytes, object_bytes - begin);
}

// Fills the target with a chunk's bytes from there on; false when the chunk is absent, and zeros.
bool ReadChunk(Database& database, uint32_t object, uint32_t chunk, size_t from, MutableBytes target) {
  std::fill(target.begin(), target.end(), std::byte{0});
  bool whole = true;
  const bool found =
      database.Store().ReadRecord(space::kObjects, KeyOf(object, chunk + 1), [&](Bytes stored) {
        whole = stored.size() >= kChunkHeadBytes && stored.size() <= kChunkHeadBytes + kChunkBytes &&
                LoadU32(stored.data()) == Check32(stored.subspan(kChunkHeadBytes));
        if (!whole) return;
        const Bytes content = stored.subspan(kChunkHeadBytes);
        if (from < content.size())
          CopyBytes(target.data(), content.data() + from, std::min(target.size(), content.size() - from));
      });
  if (!whole) Fail(status::kDamaged);
  return found;
}

void PutChunk(DatabaseWrite& write, uint32_t object, uint32_t chunk, Bytes content) {
  ByteBuilder out;
  out.Reserve(kChunkHeadBytes + content.size());
  out.U32(Check32(content));
  out.Put(content);
  write.Records().PutRecord(space::kObjects, KeyOf(object, chunk + 1), out.View());
}

void CheckRange(const Head& head, uint32_t offset, size_t byte_count) {
  if (offset > head.byte_count || byte_count > head.byte_count - offset) Fail(status::kBadArgument);
}

// The next number. One that is in use says that the count of numbers was damaged.
uint32_t TakeNumber(DatabaseWrite& write) {
  Database& database = write.Owner();
  uint32_t object = 1;
  if (const auto fact = database.ReadFact(kNextObjectFact)) {
    if (fact->size() != sizeof object) Fail(status::kDamaged);
    object = LoadU32(fact->data());
  }
  if (object > kObjectNumberMax) Fail(status::kTooManyNotes);
  if (object == 0 || FindHead(database, object)) Fail(status::kDamaged);
  const uint32_t next = object + 1;
  Database::PutFact(write, kNextObjectFact, BytesAt(&next, sizeof next));
  return object;
}

}  // namespace

uint32_t AllocateObject(Database& database, uint32_t object_bytes, uint16_t object_class) {
  if (object_bytes > kObjectBytesMax) Fail(status::kBadArgument);
  DatabaseWrite write(database);
  const uint32_t object = TakeNumber(write);
  PutHead(write, object, {.object_class = object_class, .byte_count = object_bytes});
  write.Commit(store::Durability::kDurable);
  return object;
}

void ResizeObject(Database& database, uint32_t object, uint32_t object_bytes) {
  if (object_bytes > kObjectBytesMax) Fail(status::kBadArgument);
  DatabaseWrite write(database);
  Head head = ReadHead(database, object);
  if (object_bytes < head.byte_count) {
    // What lies behind the new end goes, so that a later growth finds zeros there.
    const uint32_t last_chunk = object_bytes / kChunkBytes;
    std::vector<std::byte> kept(object_bytes % kChunkBytes);
    const bool found = ReadChunk(database, object, last_chunk, 0, kept);
    const ObjectKey from = KeyOf(object, last_chunk + 1);
    write.Records().RemoveRange(space::kObjects, from, Bytes(KeyRange(object).to));
    if (found && !kept.empty()) PutChunk(write, object, last_chunk, kept);
  }
  head.byte_count = object_bytes;
  PutHead(write, object, head);
  write.Commit(store::Durability::kDurable);
}

void FreeObject(Database& database, uint32_t object) {
  DatabaseWrite write(database);
  ReadHead(database, object);
  FreeObjectInto(write, object);
  write.Commit(store::Durability::kDurable);
}

MemoryBlock ReadObject(Database& database, uint32_t object, uint32_t offset, uint32_t byte_count) {
  database.Store().Refresh();
  const store::Database::Hold hold(database.Store());
  const Head head = ReadHead(database, object);
  if (byte_count == kAllBytes && offset <= head.byte_count) byte_count = head.byte_count - offset;
  CheckRange(head, offset, byte_count);
  MemoryBlock block = MemoryAllocate(byte_count);
  MutableBytes left = block.bytes();
  for (uint64_t at = offset; !left.empty();) {
    const size_t from = at % kChunkBytes, taken = std::min(kChunkBytes - from, left.size());
    ReadChunk(database, object, static_cast<uint32_t>(at / kChunkBytes), from, left.first(taken));
    left = left.subspan(taken);
    at += taken;
  }
  return block;
}

void WriteObject(Database& database, uint32_t object, uint32_t offset, Bytes content) {
  DatabaseWrite write(database);
  const Head head = ReadHead(database, object);
  CheckRange(head, offset, content.size());
  std::vector<std::byte> whole;
  for (uint64_t at = offset; !content.empty();) {
    const auto chunk = static_cast<uint32_t>(at / kChunkBytes);
    const size_t from = at % kChunkBytes, taken = std::min(kChunkBytes - from, content.size());
    whole.resize(ChunkBytesWithin(head.byte_count, chunk));
    ReadChunk(database, object, chunk, 0, whole);
    CopyBytes(whole.data() + from, content.data(), taken);
    PutChunk(write, object, chunk, whole);
    content = content.subspan(taken);
    at += taken;
  }
  write.Commit(store::Durability::kDurable);
}

uint32_t CopyObjectInto(DatabaseWrite& write, Database& source, uint32_t object) {
  if (object == 0 || object > kObjectNumberMax) return 0;
  const std::optional<Head> head = FindHead(source, object);
  if (!head) return 0;
  const uint32_t copy = TakeNumber(write);
  PutHead(write, copy, *head);
  std::vector<std::byte> content;
  const KeyRange range(object);
  source.Store().ScanRecords(space::kObjects, KeyOf(object, 1), Bytes(range.to), [&](Bytes key, Bytes) {
    if (key.size() != sizeof(ObjectKey)) Fail(status::kDamaged);
    const uint32_t chunk = __builtin_bswap32(LoadU32(key.data() + 4)) - 1;
    content.resize(ChunkBytesWithin(head->byte_count, chunk));
    ReadChunk(source, object, chunk, 0, content);
    if (!content.empty()) PutChunk(write, copy, chunk, content);
    return true;
  });
  return copy;
}

void FreeObjectInto(DatabaseWrite& write, uint32_t object) {
  if (object == 0 || object > kObjectNumberMax) return;
  const KeyRange range(object);
  write.Records().RemoveRange(space::kObjects, range.from, Bytes(range.to));
  write.Records().RemoveRange(space::kObjectUses, range.from, Bytes(range.to));
}

// --- who names an object

uint32_t ObjectOf(uint16_t type, Bytes value) noexcept {
  if (type != BRTYPE_OBJECT || value.size() < kTypeWordBytes + sizeof(OBJECT_DESCRIPTOR)) return 0;
  const uint32_t object = LoadU32(value.data() + kObjectNumberOffset);
  return object > kObjectNumberMax ? 0 : object;
}

void AddObject(ObjectSet* objects, uint32_t object) {
  const auto at = std::ranges::lower_bound(*objects, object);
  if (object != 0 && (at == objects->end() || *at != object)) objects->insert(at, object);
}

ObjectSet ObjectsOf(const NoteImage& image) {
  ObjectSet objects;
  NoteImage::Cursor items = image.Items();
  for (ImageItem item; items.Next(&item);)
    if (item.type == BRTYPE_OBJECT) AddObject(&objects, ObjectOf(item.type, item.value));
  return objects;
}

void ChangeObjectUses(DatabaseWrite& write, uint32_t note_id, const ObjectSet& before, const ObjectSet& now) {
  for (const uint32_t object : before)
    if (!std::ranges::binary_search(now, object))
      write.Records().RemoveRecord(space::kObjectUses, KeyOf(object, note_id));
  for (const uint32_t object : now)
    if (!std::ranges::binary_search(before, object))
      write.Records().PutRecord(space::kObjectUses, KeyOf(object, note_id), {});
}

void ReleaseObjects(DatabaseWrite& write, uint32_t note_id, const ObjectSet& objects) {
  for (const uint32_t object : objects) {
    write.Records().RemoveRecord(space::kObjectUses, KeyOf(object, note_id));
    bool used = false;
    const KeyRange range(object);
    write.Owner().Store().ScanRecords(space::kObjectUses, range.from, Bytes(range.to), [&](Bytes, Bytes) {
      used = true;
      return false;
    });
    if (!used) FreeObjectInto(write, object);
  }
}

}  // namespace brynd
