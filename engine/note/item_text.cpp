// Items as texts and text lists.
#include "note/item_text.h"

#include <array>
#include <vector>

#include "base/intl.h"
#include "base/list.h"
#include "base/number.h"
#include "base/text.h"
#include "base/time.h"

namespace brynd {

namespace {

constexpr size_t kNumberTextBytesMax = 400;  // a fixed form of the largest double needs some 310

uint16_t TypeOfValue(Bytes value) noexcept {
  return value.size() < kTypeWordBytes ? 0 : LoadU16(value.data());
}

bool IsList(Bytes value) noexcept {
  return TypeOfValue(value) == BRTYPE_TEXT_LIST && CheckList(value, ListPrefix::kTypeWord);
}

// The first element of a range list (word count, word range count, elements) or the single one of a scalar.
template <class Element>
bool FirstElement(Bytes value, uint16_t scalar, uint16_t list, Element* element) noexcept {
  constexpr size_t kCountsBytes = 2 + 2;
  const uint16_t type = TypeOfValue(value);
  size_t offset = kTypeWordBytes;
  if (type == list) {
    if (value.size() < kTypeWordBytes + kCountsBytes || LoadU16(value.data() + kTypeWordBytes) == 0)
      return false;
    offset += kCountsBytes;
  } else if (type != scalar) {
    return false;
  }
  if (value.size() < offset + sizeof *element) return false;
  *element = Load<Element>(value.data() + offset);
  return true;
}

std::string NumberText(double number) {
  std::array<char, kNumberTextBytesMax> room;
  size_t bytes = 0;
  const NFMT general{};
  if (NumberToText(IntlFromSettings(), general, number, room, &bytes) != status::kOk) return {};
  return {room.data(), bytes};
}

std::string TimeText(const TIMEDATE& time) {
  std::array<char, kTimeTextBytesMax> room;
  size_t bytes = 0;
  TFMT format{};
  format.Structure = static_cast<uint8_t>(TimeStructure::kBoth);
  if (TimeToText(IntlFromSettings(), format, time, room, &bytes) != status::kOk) return {};
  return {room.data(), bytes};
}

}  // namespace

uint16_t TextEntryCount(Bytes value) noexcept {
  if (TypeOfValue(value) == BRTYPE_TEXT) return 1;
  return IsList(value) ? ListCount({value.data(), ListPrefix::kTypeWord}) : 0;
}

std::string_view TextEntry(Bytes value, uint16_t entry) noexcept {
  if (TypeOfValue(value) == BRTYPE_TEXT)
    return entry == 0 ? TextOf(value.subspan(kTypeWordBytes)) : std::string_view();
  return IsList(value) ? ListEntry({value.data(), ListPrefix::kTypeWord}, entry) : std::string_view();
}

bool NumberOfValue(Bytes value, double* number) noexcept {
  return FirstElement(value, BRTYPE_NUMBER, BRTYPE_NUMBER_RANGE, number);
}

std::string TextOfValue(Bytes value) {
  double number = 0;
  if (NumberOfValue(value, &number)) return NumberText(number);
  TIMEDATE time;
  if (FirstElement(value, BRTYPE_TIME, BRTYPE_TIME_RANGE, &time)) return TimeText(time);
  std::string text;
  const uint16_t count = TextEntryCount(value);
  for (uint16_t entry = 0; entry < count; ++entry)
    text.append(entry == 0 ? "" : ";").append(TextEntry(value, entry));
  return text;
}

void SetText(Note& note, std::string_view name, std::string_view text) {
  const bool summary = text.size() + kTypeWordBytes <= kSummaryValueBytesMax;
  // The new item first: when it cannot be made the old ones stay.
  const uint32_t added = note.Append(name, summary ? kItemSummary : 0, BRTYPE_TEXT, BytesOf(text));
  note.DeleteOthers(added);
}

void AppendTextEntry(Note& note, std::string_view name, std::string_view text, bool no_duplicate) {
  const uint32_t index = note.Find(name);
  if (index == Note::kNone) {
    std::vector<std::byte> list(2 + 2 + text.size());
    if (list.size() > kListBytesMax - kTypeWordBytes) Fail(status::kListFull);
    StoreU16(list.data(), 1);
    StoreU16(list.data() + 2, static_cast<uint16_t>(text.size()));
    CopyBytes(list.data() + 4, text.data(), text.size());
    note.Append(name, kItemSummary, BRTYPE_TEXT_LIST, list);
    return;
  }
  const Bytes value = note.Value(index);
  const bool is_text = TypeOfValue(value) == BRTYPE_TEXT;
  if (!is_text && !IsList(value)) Fail(status::kWrongItemType);
  if (no_duplicate) {
    const uint16_t count = TextEntryCount(value);
    for (uint16_t entry = 0; entry < count; ++entry) {
      if (EqualFold(TextEntry(value, entry), text)) return;
    }
  }
  if (is_text) {
    const std::string_view first = TextEntry(value, 0);
    std::vector<std::byte> list(2 + 2 + first.size());
    // Both entries together must fit, or the text item stays one.
    if (list.size() + 2 + text.size() > kListBytesMax - kTypeWordBytes) Fail(status::kListFull);
    StoreU16(list.data(), 1);
    StoreU16(list.data() + 2, static_cast<uint16_t>(first.size()));
    CopyBytes(list.data() + 4, first.data(), first.size());
    const std::string kept(text);  // it may lie in the value that is replaced
    note.SetValue(index, BRTYPE_TEXT_LIST, list);
    note.AddListEntry(index, kept);
    return;
  }
  note.AddListEntry(index, text);
}

}  // namespace brynd
