// Items of open notes.
#include <algorithm>
#include <cstring>
#include <optional>

#include "base/boundary.h"
#include "base/text.h"
#include "brynd_item.h"
#include "note/item_text.h"
#include "note/note.h"

using brynd::AtBoundary;
using brynd::Bytes;
using brynd::BytesAt;
using brynd::FindNote;
using brynd::Note;
using brynd::Store;

namespace status = brynd::status;

namespace {

struct ItemOutputs {
  BLOCKID* item = nullptr;
  uint16_t* type = nullptr;
  BLOCKID* value = nullptr;
  uint32_t* value_bytes = nullptr;
};

std::string_view NameAt(const char* name, uint16_t name_bytes) noexcept {
  return name == nullptr ? std::string_view() : std::string_view(name, name_bytes);
}

std::string_view NameAt(const char* name) noexcept { return name == nullptr ? std::string_view() : name; }

// Whatever may fail comes before the first output is written.
void PutOutputs(Note& note, uint32_t index, const ItemOutputs& outputs) {
  if (outputs.value != nullptr) Store<BLOCKID>(outputs.value, note.Place(index));
  const Note::Item& item = note.At(index);
  if (outputs.item != nullptr) Store<BLOCKID>(outputs.item, note.Name(index));
  if (outputs.type != nullptr) Store<uint16_t>(outputs.type, item.type);
  if (outputs.value_bytes != nullptr) Store<uint32_t>(outputs.value_bytes, item.length);
}

// The note an item's BLOCKID names, and the item's place in it; kNone when it is gone.
struct FoundItem {
  Note* note;
  uint32_t index;
};

FoundItem FindItem(BLOCKID item) {
  Note& note = FindNote(item.pool);
  return {&note, note.FindSerial(item.block)};
}

// The first item of a name for the calls that answer with a count; nothing when anything is wrong.
template <class Use>
void UseFirst(EngNote note, const char* name, Use&& use) {
  (void)AtBoundary([&] {
    Note& found = FindNote(note);
    const uint32_t index = found.Find(NameAt(name));
    if (index != Note::kNone) use(found.Value(index));
  });
}

}  // namespace

EngStatus EngItemInfo(EngNote note, const char* name, uint16_t name_bytes, BLOCKID* item, uint16_t* type,
                      BLOCKID* value, uint32_t* value_bytes) {
  // The commonest call of all: what it needs is in memory nearly always, so nothing is thrown for a missing
  // item.
  return AtBoundary([&]() -> EngStatus {
    Note* found = brynd::Notes().Find(note);
    if (found == nullptr) return status::kBadHandle;
    if (name == nullptr) return status::kBadArgument;
    const uint32_t index = found->Find(NameAt(name, name_bytes));
    if (index == Note::kNone) return status::kNoItem;
    PutOutputs(*found, index, {item, type, value, value_bytes});
    return status::kOk;
  });
}

EngStatus EngItemInfoNext(EngNote note, BLOCKID previous, const char* name, uint16_t name_bytes,
                          BLOCKID* item, uint16_t* type, BLOCKID* value, uint32_t* value_bytes) {
  return AtBoundary([&]() -> EngStatus {
    Note* found = brynd::Notes().Find(note);
    if (found == nullptr) return status::kBadHandle;
    if (name == nullptr) return status::kBadArgument;
    if (previous.pool != note) return status::kBadHandle;
    // An item deleted meanwhile still tells where to go on.
    const uint32_t index = found->Find(NameAt(name, name_bytes), found->FirstBehind(previous.block));
    if (index == Note::kNone) return status::kNoItem;
    PutOutputs(*found, index, {item, type, value, value_bytes});
    return status::kOk;
  });
}

EngStatus EngItemQuery(EngNote note, BLOCKID item, char* name, uint16_t name_capacity, uint16_t* name_bytes,
                       uint16_t* flags, uint16_t* type, BLOCKID* value, uint32_t* value_bytes) {
  return AtBoundary([&]() -> EngStatus {
    Note& found = FindNote(note);
    if (item.pool != note) return status::kBadHandle;
    const uint32_t index = found.FindSerial(item.block);
    if (index == Note::kNone) return status::kNoItem;
    PutOutputs(found, index, {nullptr, type, value, value_bytes});
    if (flags != nullptr) Store<uint16_t>(flags, found.At(index).flags);
    const std::string_view full_name = found.NameOf(index);
    const size_t copied = std::min<size_t>(full_name.size(), name == nullptr ? 0 : name_capacity);
    brynd::CopyBytes(name, full_name.data(), copied);
    if (name_bytes != nullptr)
      Store<uint16_t>(name_bytes, static_cast<uint16_t>(name == nullptr ? full_name.size() : copied));
    return status::kOk;
  });
}

EngStatus EngItemScan(EngNote note, EngItemCallback callback, void* parameter) {
  return AtBoundary([&]() -> EngStatus {
    Note* found = &FindNote(note);
    if (callback == nullptr) return status::kBadArgument;
    // The callback may do what it must not, even close the note: each step looks anew.
    for (uint32_t index = 0; index < found->ItemCount(); ++index) {
      if (found->IsHidden(index)) continue;
      const Bytes value = found->Value(index);
      const std::string_view name = found->NameOf(index);
      const EngStatus outcome =
          callback(0, found->At(index).flags, name.data(), static_cast<uint16_t>(name.size()), value.data(),
                   static_cast<uint32_t>(value.size()), parameter);
      if (outcome != status::kOk) return outcome;
      found = &FindNote(note);
    }
    return status::kOk;
  });
}

EngStatus EngItemAppend(EngNote note, uint16_t flags, const char* name, uint16_t name_bytes, uint16_t type,
                        const void* value, uint32_t value_bytes) {
  return AtBoundary([&]() -> EngStatus {
    Note* found = brynd::Notes().Find(note);
    if (found == nullptr) return status::kBadHandle;
    if (name == nullptr || (value == nullptr && value_bytes != 0)) return status::kBadArgument;
    found->Append({name, name_bytes}, flags, type, BytesAt(value, value_bytes));
    return status::kOk;
  });
}

EngStatus EngItemAppendByBlock(EngNote note, uint16_t flags, const char* name, uint16_t name_bytes,
                               BLOCKID value, uint32_t value_bytes, uint16_t) {
  return AtBoundary([&]() -> EngStatus {
    Note& found = FindNote(note);
    if (name == nullptr) return status::kBadArgument;
    found.Adopt({name, name_bytes}, flags, value, value_bytes);
    return status::kOk;
  });
}

EngStatus EngItemCopy(EngNote destination, BLOCKID item) {
  return AtBoundary([&]() -> EngStatus {
    Note& target = FindNote(destination);
    const FoundItem source = FindItem(item);
    if (source.index == Note::kNone) return status::kNoItem;
    target.AppendCopy(*source.note, source.index);
    return status::kOk;
  });
}

EngStatus EngItemDelete(EngNote note, const char* name, uint16_t name_bytes) {
  return AtBoundary([&]() -> EngStatus {
    Note& found = FindNote(note);
    if (name == nullptr) return status::kBadArgument;
    const uint32_t index = found.Find(NameAt(name, name_bytes));
    if (index == Note::kNone) return status::kNoItem;
    found.Delete(index);
    return status::kOk;
  });
}

EngStatus EngItemDeleteByBlock(EngNote note, BLOCKID item) {
  return AtBoundary([&]() -> EngStatus {
    Note& found = FindNote(note);
    if (item.pool != note) return status::kBadHandle;
    const uint32_t index = found.FindSerial(item.block);
    if (index == Note::kNone) return status::kNoItem;
    found.Delete(index);
    return status::kOk;
  });
}

uint16_t EngItemTextGet(EngNote note, const char* name, char* text, uint16_t text_limit) {
  if (text == nullptr) return 0;
  size_t written = 0;
  UseFirst(note, name, [&](Bytes value) {
    const std::string whole = brynd::TextOfValue(value);
    const std::string_view cut = brynd::CutText(whole, text_limit);
    brynd::CopyBytes(text, cut.data(), cut.size());
    written = cut.size();
  });
  text[written] = '\0';
  return static_cast<uint16_t>(written);
}

EngStatus EngItemTextSet(EngNote note, const char* name, const char* text, uint32_t text_bytes) {
  return AtBoundary([&]() -> EngStatus {
    Note& found = FindNote(note);
    if (name == nullptr || (text == nullptr && text_bytes != 0)) return status::kBadArgument;
    // The word says "up to the NUL" in 16 bits as well as in 32.
    const bool terminated = text_bytes == 0xffff || text_bytes == 0xffffffff;
    brynd::SetText(found, name, terminated ? std::string_view(text) : std::string_view(text, text_bytes));
    return status::kOk;
  });
}

EngStatus EngItemTextListAppend(EngNote note, const char* name, const char* text, uint16_t text_bytes,
                                uint16_t allow_duplicate) {
  return AtBoundary([&]() -> EngStatus {
    Note& found = FindNote(note);
    if (name == nullptr || (text == nullptr && text_bytes != 0)) return status::kBadArgument;
    brynd::AppendTextEntry(found, name, NameAt(text, text_bytes), allow_duplicate == 0);
    return status::kOk;
  });
}

uint16_t EngItemTextListCount(EngNote note, const char* name) {
  uint16_t count = 0;
  UseFirst(note, name, [&](Bytes value) { count = brynd::TextEntryCount(value); });
  return count;
}

uint16_t EngItemTextListEntry(EngNote note, const char* name, uint16_t entry, char* text,
                              uint16_t text_limit) {
  if (text == nullptr) return 0;
  uint16_t written = 0;
  UseFirst(note, name, [&](Bytes value) {
    const std::string_view cut = brynd::CutText(brynd::TextEntry(value, entry), text_limit);
    brynd::CopyBytes(text, cut.data(), cut.size());
    written = static_cast<uint16_t>(cut.size());
  });
  return written;
}

int32_t EngItemNumberGet(EngNote note, const char* name, double* number) {
  int32_t found = 0;
  UseFirst(note, name, [&](Bytes value) {
    double first = 0;
    if (number == nullptr || !brynd::NumberOfValue(value, &first)) return;
    Store<double>(number, first);
    found = 1;
  });
  return found;
}
