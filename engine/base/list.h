// Text lists in memory: word count, that many length words, then the texts back to back; with a prefix, the
// type word of a text list in front.
// (1) A list never has more than 65,535 bytes, prefix included.  (2) Entries count from 0.
// (3) CheckList is the border: the other functions trust the list they are given.
#ifndef BRYND_BASE_LIST_H
#define BRYND_BASE_LIST_H

#include <cstdint>
#include <string_view>

#include "base/bytes.h"
#include "base/memory.h"

namespace brynd {

inline constexpr size_t kListBytesMax = 0xffff;
inline constexpr uint16_t kTextListWord = 0x0501;

enum class ListPrefix : uint8_t { kNone = 0, kTypeWord = 1 };

// A list at an address whose end its owner vouches for.
struct ListView {
  const std::byte* address;
  ListPrefix prefix;
};

// True when the bytes start with a whole list (more may follow).
bool CheckList(Bytes bytes, ListPrefix prefix) noexcept;

uint16_t ListCount(ListView list) noexcept;
size_t ListByteSize(ListView list) noexcept;

// The text of an entry; an entry that does not exist is an empty text at a null address.
std::string_view ListEntry(ListView list, uint16_t entry) noexcept;

// A new list without entries, in a block with room for more.
MemoryBlock MakeList(ListPrefix prefix, size_t room_bytes);

// Puts a text in front of the entry of that number; the count as number appends. Gives the list's new size.
// Fails with kBadHandle, kDamaged (the block holds no list), kNoListEntry, kListFull; the list stays as it
// was.
size_t AddListEntry(MemHandle list, ListPrefix prefix, uint16_t entry, std::string_view text);

// Takes an entry out and gives the new size; the block keeps its own. Fails as above.
size_t RemoveListEntry(MemHandle list, ListPrefix prefix, uint16_t entry);

}  // namespace brynd

#endif
