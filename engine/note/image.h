// The image of a note: the form in which a note lies in the store, one run of bytes, little-endian
// throughout.
//
//   offset  size  meaning
//   0       4     checksum: low half of XXH3-64 over the bytes from 4 to the end
//   4       1     version, 1
//   5       1     form: 1 note, 2 stub of a deleted note
//   6       2     note flags
//   8       2     class word
//   10      2     item count n
//   12      4     total length
//   16      4     note id
//   20      4     sequence
//   24      16    UNID: File, Note
//   40      8     sequence time
//   48      8     created
//   56      8     modified in this file
//   64      8     added to this file
//   72      8     accessed
//   80      4     next number of an external value
//   84      2     count of external values e
//   86      2     zero
//   88      2n    name ids
//   88+2n   2n    lengths, type word included; 0xffff: the value is external
//   88+4n   2n    item flags
//   88+6n   12e   external values in item order: item index 2, type word 2, length 4, number 4
//   88+6n+12e     the other values in item order, each beginning with its type word, without gaps
//
// (1) A NoteImage exists only for bytes that passed Check: inside it every offset may be trusted.
// (2) The lengths add up to the end of the image exactly.  (3) Names are ids of the database's dictionary.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "base/bytes.h"
#include "brynd.h"

namespace brynd {

constexpr size_t kImageHeaderBytes = 4 + 1 + 1 + 2 + 2 + 2 + 4 + 4 + 4 + 16 + 8 + 4 * 8 + 4 + 2 + 2;
static_assert(kImageHeaderBytes == 88);
constexpr size_t kImageItemBytes = 2 + 2 + 2;          // name id, length, flags
constexpr size_t kImageExternalBytes = 2 + 2 + 4 + 4;  // item index, type word, length, number
constexpr uint32_t kTypeWordBytes = 2;
constexpr uint32_t kInlineValueBytesMax =
    16 * 1024;  // a longer value, type word included, is a record of its own
constexpr uint32_t kValueBytesMax = 16 * 1024 * 1024;  // of one item, type word included
constexpr uint32_t kImageBytesMax = 64 * 1024 * 1024;
constexpr uint32_t kItemCountMax = 0xfffe;
constexpr uint8_t kImageVersion = 1;

enum class NoteForm : uint8_t { kNote = 1, kStub = 2 };  // stored: append, never renumber

// What an image says of its note besides the items.
struct NoteHeader {
  NoteForm form = NoteForm::kNote;
  uint16_t note_flags = 0;
  uint16_t note_class = 1;
  uint32_t note_id = 0;
  ORIGINATORID originator{};
  TIMEDATE created{};
  TIMEDATE modified{};  // in this file
  TIMEDATE added{};     // to this file
  TIMEDATE accessed{};
  uint32_t next_external = 1;
};

// One item of an image. `value` begins with the type word; it is empty for an external value, whose number is
// not 0.
struct ImageItem {
  uint16_t name_id = 0;
  uint16_t item_flags = 0;
  uint16_t type = 0;
  uint32_t length = 0;  // type word included
  uint32_t external = 0;
  Bytes value;
};

// A checked image. It is a view: the bytes belong to whoever holds them.
class NoteImage {
 public:
  static constexpr uint32_t kNone = 0xffffffff;  // no such item

  // Checks everything once: version, form, length, checksum, every length and every external entry.
  static std::optional<NoteImage> Check(Bytes stored) noexcept;

  Bytes Stored() const noexcept { return {base_, total_}; }
  NoteForm Form() const noexcept { return static_cast<NoteForm>(base_[5]); }
  bool IsStub() const noexcept { return Form() == NoteForm::kStub; }
  uint32_t Checksum() const noexcept { return Get<uint32_t>(0); }
  uint16_t NoteFlags() const noexcept { return Get<uint16_t>(6); }
  uint16_t NoteClass() const noexcept { return Get<uint16_t>(8); }
  uint32_t NoteId() const noexcept { return Get<uint32_t>(16); }
  uint32_t Sequence() const noexcept { return Get<uint32_t>(20); }
  UNIVERSALNOTEID Unid() const noexcept { return Get<UNIVERSALNOTEID>(24); }
  ORIGINATORID Originator() const noexcept;
  TIMEDATE SequenceTime() const noexcept { return Get<TIMEDATE>(40); }
  TIMEDATE Created() const noexcept { return Get<TIMEDATE>(48); }
  TIMEDATE Modified() const noexcept { return Get<TIMEDATE>(56); }
  TIMEDATE Added() const noexcept { return Get<TIMEDATE>(64); }
  TIMEDATE Accessed() const noexcept { return Get<TIMEDATE>(72); }
  NoteHeader Header() const noexcept;

  uint32_t ItemCount() const noexcept { return item_count_; }
  uint32_t ExternalCount() const noexcept { return external_count_; }
  uint32_t NextExternal() const noexcept { return Get<uint32_t>(80); }
  uint32_t MaxNameId() const noexcept;                              // kNone without items
  uint32_t NameIdBound() const noexcept { return name_id_bound_; }  // no name id is above it
  uint64_t ValueBytes() const noexcept;                             // of all items, external ones included

  uint16_t NameId(uint32_t index) const noexcept { return U16(kImageHeaderBytes, index); }
  uint16_t ItemFlags(uint32_t index) const noexcept {
    return U16(kImageHeaderBytes + 4 * item_count_, index);
  }
  // The first item at or behind `from` that carries this name id; kNone without one.
  uint32_t FindName(uint16_t name_id, uint32_t from = 0) const noexcept;
  // The values that are not external, one after the other.
  Bytes InlineValues() const noexcept { return {Values(), total_ - static_cast<size_t>(Values() - base_)}; }
  // Costs a sum over the items in front; use a cursor to walk.
  ImageItem Item(uint32_t index) const noexcept;

  class Cursor;
  Cursor Items() const noexcept;

 private:
  template <class T>
  T Get(size_t offset) const noexcept {
    return Load<T>(base_ + offset);
  }
  uint16_t U16(size_t offset, uint32_t index) const noexcept {
    return Load<uint16_t>(base_ + offset + 2 * size_t{index});
  }
  uint16_t LengthWord(uint32_t index) const noexcept {
    return U16(kImageHeaderBytes + 2 * size_t{item_count_}, index);
  }
  const std::byte* Externals() const noexcept {
    return base_ + kImageHeaderBytes + kImageItemBytes * size_t{item_count_};
  }
  const std::byte* Values() const noexcept {
    return Externals() + kImageExternalBytes * size_t{external_count_};
  }

  const std::byte* base_ = nullptr;
  uint32_t total_ = 0;
  uint32_t item_count_ = 0;
  uint32_t external_count_ = 0;
  uint32_t name_id_bound_ = 0;
};

// Walks the items of an image in order at a constant cost each.
class NoteImage::Cursor {
 public:
  explicit Cursor(const NoteImage& image) noexcept
      : image_(image), external_(image.Externals()), value_(image.Values()) {}
  // False at the end.
  bool Next(ImageItem* item) noexcept;
  uint32_t Index() const noexcept { return next_ - 1; }  // of the item given last

 private:
  const NoteImage image_;
  const std::byte* external_;
  const std::byte* value_;
  uint32_t next_ = 0;
};

inline NoteImage::Cursor NoteImage::Items() const noexcept { return Cursor(*this); }

// Builds images in one buffer that is used again and again. Sizes are told first, so every byte is written
// once.
class ImageBuilder {
 public:
  struct Sizes {
    uint32_t item_count = 0;
    uint32_t external_count = 0;
    uint64_t inline_bytes = 0;  // sum of the inline lengths, type words included
  };
  // False when the image would be longer than an image may be.
  bool Begin(const Sizes& sizes);
  void SetItem(uint32_t index, uint16_t name_id, uint16_t item_flags, uint16_t length_word) noexcept;
  void AddExternal(uint32_t index, uint16_t type, uint32_t length, uint32_t number) noexcept;
  // Where the next `length` bytes of values go.
  std::byte* AddValues(size_t length) noexcept;
  // Writes the header and the checksum. The bytes hold until the next Begin.
  Bytes Finish(const NoteHeader& header) noexcept;

 private:
  std::vector<std::byte> buffer_;
  Sizes sizes_;
  size_t total_ = 0;
  size_t external_at_ = 0;
  size_t value_at_ = 0;
};

// The image of a stub: the header alone.
Bytes BuildStub(const NoteHeader& header, std::span<std::byte, kImageHeaderBytes> target) noexcept;

// The length word that says: this value is external.
constexpr uint16_t kExternalLengthWord = 0xffff;

}  // namespace brynd
