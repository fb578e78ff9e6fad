#include "formula/value.h"

#include <algorithm>

#include "base/status.h"
#include "base/text.h"

namespace brynd::formula {

namespace {

constexpr size_t kArenaBlockBytes = 16 * 1024;
constexpr size_t kArenaAlignment = 16;

uint16_t ReadU16(const std::byte* bytes) {
  return static_cast<uint16_t>(std::to_integer<unsigned>(bytes[0]) | std::to_integer<unsigned>(bytes[1])
                                                                         << 8);
}

std::byte* PutU16(std::byte* target, size_t word) {
  target[0] = static_cast<std::byte>(word & 0xff);
  target[1] = static_cast<std::byte>(word >> 8 & 0xff);
  return target + 2;
}

std::byte* PutBytes(std::byte* target, const void* source, size_t bytes) {
  if (bytes != 0) std::memcpy(target, source, bytes);
  return target + bytes;
}

template <typename Element>
Value ReadRangeList(std::span<const std::byte> stored, Arena& arena) {
  if (stored.size() < 4) return Value::Error(ErrorCode::kBadItem);
  const uint32_t singles = ReadU16(stored.data()), ranges = ReadU16(stored.data() + 2);
  const size_t elements = singles + 2u * ranges;
  if (elements * sizeof(Element) > stored.size() - 4) return Value::Error(ErrorCode::kBadItem);
  if (elements == 0) return {};
  const std::span<Element> target = arena.Array<Element>(elements);
  std::memcpy(target.data(), stored.data() + 4, elements * sizeof(Element));
  if constexpr (std::is_same_v<Element, double>) return Value::Numbers(target, static_cast<uint16_t>(ranges));
  if constexpr (!std::is_same_v<Element, double>) return Value::Times(target, static_cast<uint16_t>(ranges));
}

Value ReadTextList(std::span<const std::byte> stored, Arena& arena) {
  if (stored.size() < 2) return Value::Error(ErrorCode::kBadItem);
  const uint32_t count = ReadU16(stored.data());
  if (count * size_t{2} > stored.size() - 2) return Value::Error(ErrorCode::kBadItem);
  if (count == 0) return {};
  const std::span<std::string_view> texts = arena.Array<std::string_view>(count);
  size_t offset = 2 + count * size_t{2};
  for (uint32_t index = 0; index < count; ++index) {
    const size_t length = ReadU16(stored.data() + 2 + index * size_t{2});
    if (length > stored.size() - offset) return Value::Error(ErrorCode::kBadItem);
    texts[index] = {reinterpret_cast<const char*>(stored.data()) + offset, length};
    offset += length;
  }
  return Value::Texts(texts);
}

template <typename Element>
Element ReadScalar(std::span<const std::byte> stored) {
  Element element;
  std::memcpy(&element, stored.data(), sizeof element);
  return element;
}

size_t StoredListBytes(const Value& value) {
  if (!value.IsText()) return 2 + 4 + value.Count() * size_t{8};
  size_t bytes = 2 + 2 + value.singles * size_t{2};
  for (uint32_t index = 0; index < value.singles; ++index) bytes += value.texts[index].size();
  return bytes;
}

std::byte* StoreList(const Value& value, std::byte* target) {
  if (value.IsText()) {
    target = PutU16(PutU16(target, kWordTextList), value.singles);
    for (uint32_t index = 0; index < value.singles; ++index)
      target = PutU16(target, value.texts[index].size());
    for (uint32_t index = 0; index < value.singles; ++index)
      target = PutBytes(target, value.texts[index].data(), value.texts[index].size());
    return target;
  }
  target = PutU16(target, value.IsNumber() ? kWordNumberList : kWordTimeList);
  target = PutU16(PutU16(target, value.singles), value.ranges);
  const void* elements = value.IsNumber() ? static_cast<const void*>(value.numbers) : value.times;
  return PutBytes(target, elements, value.Count() * size_t{8});
}

}  // namespace

Value Value::Numbers(std::span<const double> numbers, uint16_t ranges) {
  Value value;
  if (numbers.empty()) return value;
  value.kind = Kind::kNumber;
  value.list = numbers.size() > 1;
  value.ranges = ranges;
  value.singles = static_cast<uint32_t>(numbers.size()) - 2u * ranges;
  if (value.list) value.numbers = numbers.data();
  if (!value.list) value.number = numbers[0];
  return value;
}

Value Value::Times(std::span<const TIMEDATE> times, uint16_t ranges) {
  Value value;
  if (times.empty()) return value;
  value.kind = Kind::kTime;
  value.list = times.size() > 1;
  value.ranges = ranges;
  value.singles = static_cast<uint32_t>(times.size()) - 2u * ranges;
  if (value.list) value.times = times.data();
  if (!value.list) value.time = times[0];
  return value;
}

Value Value::Texts(std::span<const std::string_view> texts) {
  if (texts.empty()) return {};
  if (texts.size() == 1) return Text(texts[0]);
  Value value;
  value.list = true;
  value.singles = static_cast<uint32_t>(texts.size());
  value.texts = texts.data();
  return value;
}

void* Arena::Take(size_t bytes) {
  bytes = (bytes + kArenaAlignment - 1) & ~(kArenaAlignment - 1);
  if (bytes > kArenaBytesMax || taken_ > kArenaBytesMax - bytes) Fail(status::kFormulaResultTooLarge);
  taken_ += bytes;
  if (block_ < blocks_.size() && blocks_[block_].size - used_ >= bytes) {
    void* place = blocks_[block_].bytes.get() + used_;
    used_ += bytes;
    return place;
  }
  return TakeFromNext(bytes);
}

void* Arena::TakeFromNext(size_t bytes) {
  if (block_ < blocks_.size()) ++block_;
  while (block_ < blocks_.size() && blocks_[block_].size < bytes) ++block_;
  if (block_ == blocks_.size()) {
    const size_t size = std::max(kArenaBlockBytes, bytes);
    blocks_.push_back({std::make_unique_for_overwrite<std::byte[]>(size), size});
  }
  used_ = bytes;
  return blocks_[block_].bytes.get();
}

std::string_view Arena::Copy(std::string_view text) {
  if (text.empty()) return {"", 0};
  char* target = static_cast<char*>(Take(text.size()));
  std::memcpy(target, text.data(), text.size());
  return {target, text.size()};
}

Value ReadItem(const ItemView& item, Arena& arena) {
  switch (item.type) {
    case kWordText:
      return Value::Text({reinterpret_cast<const char*>(item.value.data()), item.value.size()});
    case kWordTextList:
      return ReadTextList(item.value, arena);
    case kWordNumber:
      if (item.value.size() < sizeof(double)) return Value::Error(ErrorCode::kBadItem);
      return Value::Number(ReadScalar<double>(item.value));
    case kWordTime:
      if (item.value.size() < sizeof(TIMEDATE)) return Value::Error(ErrorCode::kBadItem);
      return Value::Time(ReadScalar<TIMEDATE>(item.value));
    case kWordNumberList:
      return ReadRangeList<double>(item.value, arena);
    case kWordTimeList:
      return ReadRangeList<TIMEDATE>(item.value, arena);
    default:
      return Value::Error(ErrorCode::kBadItem);
  }
}

size_t StoredBytes(const Value& value) {
  size_t bytes = 2;
  if (value.kind == Kind::kError) bytes += 2;
  if (value.kind == Kind::kNumber || value.kind == Kind::kTime) bytes += 8;
  if (value.kind == Kind::kText) bytes += value.text_bytes;
  if (value.list) bytes = StoredListBytes(value);
  return bytes <= kTextBytesMax ? bytes : 0;
}

std::byte* StoreValue(const Value& value, std::byte* target) {
  if (value.list) return StoreList(value, target);
  switch (value.kind) {
    case Kind::kNumber:
      return PutBytes(PutU16(target, kWordNumber), &value.number, sizeof value.number);
    case Kind::kTime:
      return PutBytes(PutU16(target, kWordTime), &value.time, sizeof value.time);
    case Kind::kText:
      return PutBytes(PutU16(target, kWordText), value.text, value.text_bytes);
    case Kind::kError:
      return PutU16(PutU16(target, kWordError), static_cast<uint16_t>(value.error));
    case Kind::kUnavailable:
      return PutU16(target, kWordUnavailable);
  }
  return target;
}

Value CopyValue(const Value& value, Arena& arena) {
  Value copy = value;
  if (!value.list) {
    if (value.IsText()) copy.text = arena.Copy({value.text, value.text_bytes}).data();
    return copy;
  }
  if (value.IsText()) {
    const std::span<std::string_view> texts = arena.Array<std::string_view>(value.singles);
    for (uint32_t index = 0; index < value.singles; ++index) texts[index] = arena.Copy(value.texts[index]);
    copy.texts = texts.data();
    return copy;
  }
  void* elements = arena.Take(value.Count() * size_t{8});
  const void* source = value.IsNumber() ? static_cast<const void*>(value.numbers) : value.times;
  std::memcpy(elements, source, value.Count() * size_t{8});
  if (value.IsNumber()) copy.numbers = static_cast<const double*>(elements);
  if (value.IsTime()) copy.times = static_cast<const TIMEDATE*>(elements);
  return copy;
}

Value CutValue(const Value& value, size_t bytes_max, Arena& arena) {
  Value cut = value;
  if (!value.list) {
    if (value.IsText())
      cut.text_bytes = static_cast<uint32_t>(CutText(value.TextAt(0), bytes_max - 2).size());
    return cut;
  }
  if (StoredListBytes(value) <= bytes_max) return cut;
  if (!value.IsText()) {  // whole single values, then no ranges: half a range would be another value
    cut.ranges = 0;
    cut.singles = static_cast<uint32_t>(std::min<size_t>(value.singles, (bytes_max - 6) / 8));
    return cut.singles == 0 ? Value() : cut;
  }
  size_t bytes = 4;
  uint32_t kept = 0;
  while (kept < value.singles && bytes + 2 + value.texts[kept].size() <= bytes_max)
    bytes += 2 + value.texts[kept++].size();
  const std::span<std::string_view> texts = arena.Array<std::string_view>(kept);
  std::copy_n(value.texts, kept, texts.begin());
  return Value::Texts(texts);
}

}  // namespace brynd::formula
