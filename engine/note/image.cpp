// Checking, walking and building note images. The layout stands in image.h.
#include "note/image.h"

#include <algorithm>
#include <bit>
#include <cassert>

#include "base/checksum.h"

namespace brynd {

namespace {

static_assert(std::endian::native == std::endian::little,
              "images are little-endian and read by plain copies");
static_assert(sizeof(TIMEDATE) == 8 && sizeof(UNIVERSALNOTEID) == 16 && sizeof(ORIGINATORID) == 28);

constexpr size_t kChecksumBytes = 4;

uint32_t ImageChecksum(const std::byte* base, size_t total) noexcept {
  return static_cast<uint32_t>(Checksum64({base + kChecksumBytes, total - kChecksumBytes}));
}

// What a walk over the lengths finds: the sum of the inline ones, how many are external, the smallest of all.
struct LengthSum {
  uint64_t inline_bytes = 0;
  uint32_t external_count = 0;
  uint16_t smallest = 0xffff;
};

LengthSum SumEach(const std::byte* lengths, uint32_t count) noexcept {
  LengthSum sum;
  for (uint32_t index = 0; index < count; ++index) {
    const uint16_t length = Load<uint16_t>(lengths + 2 * size_t{index});
    const bool external = length == kExternalLengthWord;
    sum.external_count += external;
    sum.inline_bytes += external ? 0 : length;
    sum.smallest = std::min(sum.smallest, length);
  }
  return sum;
}

// Words of four 16-bit lanes. ZeroLanes is not 0 when a lane is 0, and then its lowest bit tells the first
// one.
constexpr uint64_t kLaneOnes = 0x0001000100010001u, kLaneTops = 0x8000800080008000u;
constexpr uint64_t kEvenLanes = 0x0000ffff0000ffffu;
constexpr uint64_t ZeroLanes(uint64_t lanes) noexcept { return (lanes - kLaneOnes) & ~lanes & kLaneTops; }

// The same four lengths at a time, for images without external values and without damage: the others are
// looked at one by one. Sums of 32,767 lengths fit their half of a word.
LengthSum SumLengths(const std::byte* lengths, uint32_t count) noexcept {
  uint64_t even = 0, odd = 0, unusual = 0;
  uint32_t index = 0;
  for (; index + 4 <= count; index += 4) {
    const auto lanes = Load<uint64_t>(lengths + 2 * size_t{index});
    even += lanes & kEvenLanes;
    odd += (lanes >> 16) & kEvenLanes;
    unusual |= ZeroLanes(~lanes) | ZeroLanes(lanes & ~kLaneOnes);  // 0xffff, or below 2
  }
  if (unusual != 0) return SumEach(lengths, count);
  LengthSum sum = SumEach(lengths + 2 * size_t{index}, count - index);
  sum.inline_bytes += (even & 0xffffffffu) + (even >> 32) + (odd & 0xffffffffu) + (odd >> 32);
  return sum;
}

// External entries name external items, each one once, in order, with lengths an item may have.
bool CheckExternals(const NoteImage& image, const std::byte* entries, const std::byte* lengths) noexcept {
  uint32_t least_index = 0;
  for (uint32_t i = 0; i < image.ExternalCount(); ++i, entries += kImageExternalBytes) {
    const uint16_t index = Load<uint16_t>(entries);
    const uint32_t length = Load<uint32_t>(entries + 4), number = Load<uint32_t>(entries + 8);
    if (index < least_index || index >= image.ItemCount()) return false;
    if (Load<uint16_t>(lengths + 2 * size_t{index}) != kExternalLengthWord) return false;
    if (length < kTypeWordBytes || length > kValueBytesMax) return false;
    if (number == 0 || number >= image.NextExternal()) return false;
    least_index = index + 1u;
  }
  return true;
}

// All name ids or-ed together: no id is above it.
uint32_t NamesTogether(const std::byte* names, uint32_t count) noexcept {
  uint64_t lanes = 0;
  uint32_t index = 0;
  for (; index + 4 <= count; index += 4) lanes |= Load<uint64_t>(names + 2 * size_t{index});
  for (; index < count; ++index) lanes |= Load<uint16_t>(names + 2 * size_t{index});
  lanes |= lanes >> 32;
  return static_cast<uint32_t>((lanes | lanes >> 16) & 0xffff);
}

}  // namespace

std::optional<NoteImage> NoteImage::Check(Bytes stored) noexcept {
  if (stored.size() < kImageHeaderBytes || stored.size() > kImageBytesMax) return std::nullopt;
  NoteImage image;
  image.base_ = stored.data();
  image.total_ = static_cast<uint32_t>(stored.size());
  if (image.Get<uint8_t>(4) != kImageVersion) return std::nullopt;
  if (image.Form() != NoteForm::kNote && image.Form() != NoteForm::kStub) return std::nullopt;
  if (image.Get<uint32_t>(12) != image.total_) return std::nullopt;
  image.item_count_ = image.Get<uint16_t>(10);
  image.external_count_ = image.Get<uint16_t>(84);
  const uint64_t fixed = kImageHeaderBytes + kImageItemBytes * uint64_t{image.item_count_} +
                         kImageExternalBytes * uint64_t{image.external_count_};
  if (fixed > image.total_) return std::nullopt;
  if (image.IsStub() && image.item_count_ != 0) return std::nullopt;
  if (ImageChecksum(image.base_, image.total_) != image.Checksum()) return std::nullopt;

  const std::byte* names = image.base_ + kImageHeaderBytes;
  const std::byte* lengths = names + 2 * size_t{image.item_count_};
  const LengthSum sum = SumLengths(lengths, image.item_count_);
  if (sum.inline_bytes != image.total_ - fixed || sum.external_count != image.external_count_)
    return std::nullopt;
  if (sum.smallest < kTypeWordBytes) return std::nullopt;
  if (image.external_count_ != 0 && !CheckExternals(image, image.Externals(), lengths)) return std::nullopt;
  image.name_id_bound_ = NamesTogether(names, image.item_count_);
  return image;
}

uint32_t NoteImage::MaxNameId() const noexcept {
  if (item_count_ == 0) return kNone;
  uint16_t largest = 0;
  for (uint32_t index = 0; index < item_count_; ++index) largest = std::max(largest, NameId(index));
  return largest;
}

ORIGINATORID NoteImage::Originator() const noexcept {
  ORIGINATORID originator;
  const UNIVERSALNOTEID unid = Unid();
  originator.File = unid.File;
  originator.Note = unid.Note;
  originator.Sequence = Sequence();
  originator.SequenceTime = SequenceTime();
  return originator;
}

NoteHeader NoteImage::Header() const noexcept {
  return {.form = Form(),
          .note_flags = NoteFlags(),
          .note_class = NoteClass(),
          .note_id = NoteId(),
          .originator = Originator(),
          .created = Created(),
          .modified = Modified(),
          .added = Added(),
          .accessed = Accessed(),
          .next_external = NextExternal()};
}

uint64_t NoteImage::ValueBytes() const noexcept {
  uint64_t bytes = total_ - static_cast<uint64_t>(Values() - base_);
  const std::byte* entry = Externals();
  for (uint32_t i = 0; i < external_count_; ++i, entry += kImageExternalBytes)
    bytes += Load<uint32_t>(entry + 4);
  return bytes;
}

uint32_t NoteImage::FindName(uint16_t name_id, uint32_t from) const noexcept {
  const std::byte* names = base_ + kImageHeaderBytes;
  uint32_t index = from;
  // Four ids at a time: a lane that equals the wanted one becomes 0, and the lowest zero lane is found
  // exactly.
  const uint64_t wanted = name_id * kLaneOnes;
  for (; index + 4 <= item_count_; index += 4) {
    const uint64_t lanes = Load<uint64_t>(names + 2 * size_t{index}) ^ wanted;
    const uint64_t zero = ZeroLanes(lanes);
    if (zero != 0) return index + static_cast<uint32_t>(std::countr_zero(zero)) / 16;
  }
  for (; index < item_count_; ++index) {
    if (Load<uint16_t>(names + 2 * size_t{index}) == name_id) return index;
  }
  return kNone;
}

ImageItem NoteImage::Item(uint32_t index) const noexcept {
  assert(index < item_count_);
  ImageItem item;
  item.name_id = NameId(index);
  item.item_flags = ItemFlags(index);
  const std::byte* lengths = base_ + kImageHeaderBytes + 2 * size_t{item_count_};
  const uint16_t length = LengthWord(index);
  if (length == kExternalLengthWord) {
    const std::byte* entry = Externals();
    while (Load<uint16_t>(entry) != index) entry += kImageExternalBytes;
    item.type = Load<uint16_t>(entry + 2);
    item.length = Load<uint32_t>(entry + 4);
    item.external = Load<uint32_t>(entry + 8);
    return item;
  }
  const auto offset = static_cast<size_t>(SumLengths(lengths, index).inline_bytes);
  const std::byte* value = Values() + offset;
  item.type = Load<uint16_t>(value);
  item.length = length;
  item.value = {value, length};
  return item;
}

bool NoteImage::Cursor::Next(ImageItem* item) noexcept {
  if (next_ >= image_.item_count_) return false;
  const uint32_t index = next_++;
  item->name_id = image_.NameId(index);
  item->item_flags = image_.ItemFlags(index);
  const uint16_t length = image_.LengthWord(index);
  if (length == kExternalLengthWord) {
    item->type = Load<uint16_t>(external_ + 2);
    item->length = Load<uint32_t>(external_ + 4);
    item->external = Load<uint32_t>(external_ + 8);
    item->value = {};
    external_ += kImageExternalBytes;
    return true;
  }
  item->type = Load<uint16_t>(value_);
  item->length = length;
  item->external = 0;
  item->value = {value_, length};
  value_ += length;
  return true;
}

bool ImageBuilder::Begin(const Sizes& sizes) {
  assert(sizes.item_count <= kItemCountMax && sizes.external_count <= sizes.item_count);
  const uint64_t fixed = kImageHeaderBytes + kImageItemBytes * uint64_t{sizes.item_count} +
                         kImageExternalBytes * uint64_t{sizes.external_count};
  const uint64_t total = fixed + sizes.inline_bytes;
  if (total > kImageBytesMax) return false;
  // A long image must not keep its buffer for all the short ones that follow.
  constexpr size_t kKeptBytes = 1024 * 1024;
  if (buffer_.size() < total || (buffer_.size() > kKeptBytes && total <= kKeptBytes)) {
    buffer_ = std::vector<std::byte>(std::max<size_t>(total, 4096));
  }
  sizes_ = sizes;
  total_ = total;
  external_at_ = kImageHeaderBytes + kImageItemBytes * size_t{sizes.item_count};
  value_at_ = fixed;
  return true;
}

void ImageBuilder::SetItem(uint32_t index, uint16_t name_id, uint16_t item_flags,
                           uint16_t length_word) noexcept {
  assert(index < sizes_.item_count);
  std::byte* names = buffer_.data() + kImageHeaderBytes;
  const size_t row = 2 * size_t{sizes_.item_count};
  Store<uint16_t>(names + 2 * size_t{index}, name_id);
  Store<uint16_t>(names + row + 2 * size_t{index}, length_word);
  Store<uint16_t>(names + 2 * row + 2 * size_t{index}, item_flags);
}

void ImageBuilder::AddExternal(uint32_t index, uint16_t type, uint32_t length, uint32_t number) noexcept {
  std::byte* entry = buffer_.data() + external_at_;
  external_at_ += kImageExternalBytes;
  assert(index < sizes_.item_count && external_at_ <= total_ - sizes_.inline_bytes);
  Store<uint16_t>(entry, static_cast<uint16_t>(index));
  Store<uint16_t>(entry + 2, type);
  Store<uint32_t>(entry + 4, length);
  Store<uint32_t>(entry + 8, number);
}

std::byte* ImageBuilder::AddValues(size_t length) noexcept {
  std::byte* at = buffer_.data() + value_at_;
  value_at_ += length;
  assert(value_at_ <= total_);
  return at;
}

namespace {

void WriteHeader(std::byte* base, const NoteHeader& header, const ImageBuilder::Sizes& sizes,
                 size_t total) noexcept {
  Store<uint8_t>(base + 4, kImageVersion);
  Store<uint8_t>(base + 5, static_cast<uint8_t>(header.form));
  Store<uint16_t>(base + 6, header.note_flags);
  Store<uint16_t>(base + 8, header.note_class);
  Store<uint16_t>(base + 10, static_cast<uint16_t>(sizes.item_count));
  Store<uint32_t>(base + 12, static_cast<uint32_t>(total));
  Store<uint32_t>(base + 16, header.note_id);
  Store<uint32_t>(base + 20, header.originator.Sequence);
  Store<TIMEDATE>(base + 24, header.originator.File);
  Store<TIMEDATE>(base + 32, header.originator.Note);
  Store<TIMEDATE>(base + 40, header.originator.SequenceTime);
  Store<TIMEDATE>(base + 48, header.created);
  Store<TIMEDATE>(base + 56, header.modified);
  Store<TIMEDATE>(base + 64, header.added);
  Store<TIMEDATE>(base + 72, header.accessed);
  Store<uint32_t>(base + 80, header.next_external);
  Store<uint16_t>(base + 84, static_cast<uint16_t>(sizes.external_count));
  Store<uint16_t>(base + 86, uint16_t{0});
  Store<uint32_t>(base, ImageChecksum(base, total));
}

}  // namespace

Bytes ImageBuilder::Finish(const NoteHeader& header) noexcept {
  assert(value_at_ == total_ && external_at_ == total_ - sizes_.inline_bytes);
  WriteHeader(buffer_.data(), header, sizes_, total_);
  return {buffer_.data(), total_};
}

Bytes BuildStub(const NoteHeader& header, std::span<std::byte, kImageHeaderBytes> target) noexcept {
  WriteHeader(target.data(), header, {}, target.size());
  return target;
}

}  // namespace brynd
