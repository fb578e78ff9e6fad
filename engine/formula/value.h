// Values of the formula language, and the arena that holds what does not fit in one.
//
// (1) A value has at least one element: an empty list of any type is the empty text.
// (2) A list's elements are its single values, then the two ends of each range; both ends count as elements.
// (3) What a value points to belongs to the arena, the program or the document; values own nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "brynd.h"
#include "formula/host.h"

namespace brynd::formula {

enum class Kind : uint8_t {
  kNumber = 1,
  kTime = 2,
  kText = 3,
  kError = 4,
  kUnavailable =
      5,  // what @Unavailable and @DeleteField give: FIELD removes the item, elsewhere it is the empty text
};

// Why a value is an error. Stored in results: append, never renumber.
enum class ErrorCode : uint16_t {
  kGiven = 1,       // @Error
  kMixedTypes = 2,  // an operation on values of different types
  kWantsNumber = 3,
  kWantsText = 4,
  kWantsTime = 5,
  kDivision = 6,    // by zero
  kDomain = 7,      // the function has no value there
  kNotANumber = 8,  // a text that is no number
  kNotATime = 9,
  kTooLong = 10,       // a text over 65,535 bytes, or a list over 65,535 elements
  kTooManySteps = 11,  // a loop that does not end
  kBadArgument = 12,
  kBadItem = 13,   // a stored value that is damaged, or of a type formulas do not compute with
  kRefused = 14,   // not allowed in this place
  kNotBuilt = 15,    // not available in this build
  kNoDocument = 16,  // there is no document of that id
};

constexpr uint32_t kTextBytesMax = 65535;
constexpr uint32_t kListElementsMax = 65535;
constexpr size_t kArenaBytesMax = 64u << 20;  // more than this fails the evaluation with a status

// Type words of item values, and the two that only results have.
constexpr uint16_t kWordError = 0x100;        // followed by the error code, 2 bytes
constexpr uint16_t kWordUnavailable = 0x200;  // nothing follows
constexpr uint16_t kWordNumber = 0x300, kWordNumberList = 0x301;
constexpr uint16_t kWordTime = 0x400, kWordTimeList = 0x401;
constexpr uint16_t kWordText = 0x500, kWordTextList = 0x501;

struct Value {
  Kind kind = Kind::kText;
  bool list = false;  // the elements stand in an array
  uint16_t ranges = 0;
  uint32_t singles = 1;     // elements that are no ends of ranges
  uint32_t text_bytes = 0;  // of a single text
  uint32_t no_gap = 0;      // the head is whole: one store writes it, and a copy need not wait for several
  union {
    double number;
    TIMEDATE time;
    ErrorCode error;
    const char* text;
    const double* numbers;
    const TIMEDATE* times;
    const std::string_view* texts;
  };

  Value() : text("") {}
  static Value Number(double number) {
    Value value;
    value.kind = Kind::kNumber;
    value.number = number;
    return value;
  }
  static Value Bool(bool truth) { return Number(truth ? 1 : 0); }
  static Value Time(TIMEDATE time) {
    Value value;
    value.kind = Kind::kTime;
    value.time = time;
    return value;
  }
  static Value Text(std::string_view text) {
    Value value;
    value.text_bytes = static_cast<uint32_t>(text.size());
    value.text = text.data();
    return value;
  }
  static Value Error(ErrorCode code) {
    Value value;
    value.kind = Kind::kError;
    value.error = code;
    return value;
  }
  static Value Unavailable() {
    Value value;
    value.kind = Kind::kUnavailable;
    return value;
  }
  static Value Numbers(std::span<const double> numbers, uint16_t ranges = 0);
  static Value Times(std::span<const TIMEDATE> times, uint16_t ranges = 0);
  static Value Texts(std::span<const std::string_view> texts);

  bool IsError() const { return kind == Kind::kError; }
  bool IsText() const { return kind == Kind::kText; }
  bool IsNumber() const { return kind == Kind::kNumber; }
  bool IsTime() const { return kind == Kind::kTime; }
  bool IsEmptyText() const { return kind == Kind::kText && !list && text_bytes == 0; }
  uint32_t Count() const { return singles + 2u * ranges; }

  // The element at that place; the last one repeats. The kind must be the one asked for.
  double NumberAt(uint32_t index) const {
    if (!list) return number;
    return numbers[index < Count() ? index : Count() - 1];
  }
  TIMEDATE TimeAt(uint32_t index) const {
    if (!list) return time;
    return times[index < Count() ? index : Count() - 1];
  }
  std::string_view TextAt(uint32_t index) const {
    if (!list) return {text, text_bytes};
    return texts[index < singles ? index : singles - 1];
  }
};

static_assert(sizeof(Value) == 24 || sizeof(void*) == 4, "a stack of values stays small");

// Memory for texts and lists of one evaluation, given back all at once and kept for the next.
class Arena {
 public:
  void* Take(size_t bytes);  // aligned for any element; throws when the evaluation has taken too much
  template <typename Element>
  std::span<Element> Array(size_t count) {
    return {static_cast<Element*>(Take(count * sizeof(Element))), count};
  }
  std::string_view Copy(std::string_view text);
  void Reset() {
    block_ = 0;
    used_ = 0;
    taken_ = 0;
  }
  size_t Taken() const { return taken_; }
  void Swap(Arena& other) {
    blocks_.swap(other.blocks_);
    std::swap(block_, other.block_);
    std::swap(used_, other.used_);
    std::swap(taken_, other.taken_);
  }

 private:
  struct Block {
    std::unique_ptr<std::byte[]> bytes;
    size_t size = 0;
  };
  void* TakeFromNext(size_t bytes);

  std::vector<Block> blocks_;
  size_t block_ = 0;  // the block being filled
  size_t used_ = 0;   // of that block
  size_t taken_ = 0;  // of all, since the last reset
};

// From a stored item to a value; texts stay where they are, lists get an array in the arena.
Value ReadItem(const ItemView& item, Arena& arena);

// Bytes that the value takes as an item with its type word in front; 0 when it is longer than an item can be.
size_t StoredBytes(const Value& value);
// Writes the value with its type word; the target has StoredBytes bytes. Returns what follows the written
// bytes.
std::byte* StoreValue(const Value& value, std::byte* target);

// Copies what the value points to, so that it outlives its source.
Value CopyValue(const Value& value, Arena& arena);

// Cuts texts and lists so that the stored form takes at most that many bytes.
Value CutValue(const Value& value, size_t bytes_max, Arena& arena);

}  // namespace brynd::formula
