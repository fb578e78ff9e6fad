#include "base/list.h"

#include <algorithm>

#include "base/status.h"

namespace brynd {

namespace {

constexpr size_t kWordBytes = 2;
constexpr size_t kFirstRoomBytes = 64;

size_t HeadBytes(ListPrefix prefix) noexcept {
  return prefix == ListPrefix::kNone ? kWordBytes : 2 * kWordBytes;
}

const std::byte* CountAddress(ListView list) noexcept {
  return list.address + (list.prefix == ListPrefix::kNone ? 0 : kWordBytes);
}

size_t LengthAt(ListView list, size_t entry) noexcept {
  return LoadU16(CountAddress(list) + kWordBytes + entry * kWordBytes);
}

// Bytes in front of the text of an entry, counted from the list's start.
size_t TextPosition(ListView list, size_t entry) noexcept {
  size_t position = HeadBytes(list.prefix) + ListCount(list) * kWordBytes;
  for (size_t index = 0; index < entry; ++index) position += LengthAt(list, index);
  return position;
}

// The list in a block, checked.
ListView ListIn(MemHandle handle, ListPrefix prefix) {
  const MutableBytes bytes = memory::FindBytes(handle);
  if (bytes.data() == nullptr) Fail(status::kBadHandle);
  if (!CheckList(bytes, prefix)) Fail(status::kDamaged);
  return {bytes.data(), prefix};
}

// Makes a block at least as large as a list is going to be; it grows by halves, so that long lists move
// seldom.
void MakeRoom(MemHandle handle, size_t list_bytes) {
  const size_t block_bytes = memory::FindBytes(handle).size();
  if (list_bytes <= block_bytes) return;
  const size_t grown_bytes = std::min(block_bytes + block_bytes / 2, kListBytesMax);
  Check(memory::Reallocate(handle, static_cast<uint32_t>(std::max(list_bytes, grown_bytes))));
}

}  // namespace

bool CheckList(Bytes bytes, ListPrefix prefix) noexcept {
  ByteReader in(bytes);
  if (prefix == ListPrefix::kTypeWord && in.U16() != kTextListWord) return false;
  const uint16_t entry_count = in.U16();
  const Bytes lengths = in.Take(entry_count * kWordBytes);
  if (!in) return false;
  size_t text_bytes = 0;
  for (size_t index = 0; index < entry_count; ++index)
    text_bytes += LoadU16(lengths.data() + index * kWordBytes);
  return text_bytes <= in.Left() && in.Position() + text_bytes <= kListBytesMax;
}

uint16_t ListCount(ListView list) noexcept { return LoadU16(CountAddress(list)); }

size_t ListByteSize(ListView list) noexcept { return TextPosition(list, ListCount(list)); }

std::string_view ListEntry(ListView list, uint16_t entry) noexcept {
  if (entry >= ListCount(list)) return {};
  return TextOf(BytesAt(list.address + TextPosition(list, entry), LengthAt(list, entry)));
}

MemoryBlock MakeList(ListPrefix prefix, size_t room_bytes) {
  const size_t block_bytes = std::clamp(room_bytes, kFirstRoomBytes, kListBytesMax);
  MemoryBlock block = MemoryAllocate(static_cast<uint32_t>(block_bytes));
  ByteWriter out(block.bytes());
  if (prefix == ListPrefix::kTypeWord) out.U16(kTextListWord);
  out.U16(0);
  return block;
}

size_t AddListEntry(MemHandle handle, ListPrefix prefix, uint16_t entry, std::string_view text) {
  const ListView before = ListIn(handle, prefix);
  const size_t entry_count = ListCount(before), list_bytes = ListByteSize(before);
  if (entry > entry_count) Fail(status::kNoListEntry);
  if (text.size() > kListBytesMax - kWordBytes || list_bytes > kListBytesMax - kWordBytes - text.size())
    Fail(status::kListFull);
  const size_t position = TextPosition(before, entry);
  const size_t length_position = HeadBytes(prefix) + entry * kWordBytes;
  // The text may lie in the list itself, whose block is about to move.
  const std::string kept(text);

  MakeRoom(handle, list_bytes + kWordBytes + kept.size());
  std::byte* list = memory::Find(handle);
  std::memmove(list + position + kWordBytes + kept.size(), list + position, list_bytes - position);
  std::memmove(list + length_position + kWordBytes, list + length_position, position - length_position);
  StoreU16(list + length_position, static_cast<uint16_t>(kept.size()));
  CopyBytes(list + position + kWordBytes, kept.data(), kept.size());
  StoreU16(list + HeadBytes(prefix) - kWordBytes, static_cast<uint16_t>(entry_count + 1));
  return list_bytes + kWordBytes + kept.size();
}

size_t RemoveListEntry(MemHandle handle, ListPrefix prefix, uint16_t entry) {
  const ListView before = ListIn(handle, prefix);
  const size_t entry_count = ListCount(before), list_bytes = ListByteSize(before);
  if (entry >= entry_count) Fail(status::kNoListEntry);
  const size_t position = TextPosition(before, entry), text_bytes = LengthAt(before, entry);
  const size_t length_position = HeadBytes(prefix) + entry * kWordBytes;

  std::byte* list = memory::Find(handle);
  const size_t after = position + text_bytes;
  std::memmove(list + length_position, list + length_position + kWordBytes,
               position - length_position - kWordBytes);
  std::memmove(list + position - kWordBytes, list + after, list_bytes - after);
  StoreU16(list + HeadBytes(prefix) - kWordBytes, static_cast<uint16_t>(entry_count - 1));
  return list_bytes - kWordBytes - text_bytes;
}

}  // namespace brynd
