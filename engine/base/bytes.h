// Bounded cursors over stored bytes, and loads and stores that need no alignment. All stored numbers are
// little-endian.
// (1) A reader never reads past its end: a short read yields 0 or an empty span, and the reader has failed
//     for good.
// (2) A writer never writes past its end: a write that does not fit writes nothing, and the writer has failed
//     for good.
#ifndef BRYND_BASE_BYTES_H
#define BRYND_BASE_BYTES_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace brynd {

static_assert(std::endian::native == std::endian::little, "stored numbers are copied as they lie in memory");

using Bytes = std::span<const std::byte>;
using MutableBytes = std::span<std::byte>;

// A number or plain record at any address.
template <class T>
inline T Load(const void* source) noexcept {
  static_assert(std::is_trivially_copyable_v<T>);
  T value;
  std::memcpy(&value, source, sizeof value);
  return value;
}

template <class T>
inline void Store(void* target, const std::type_identity_t<T>& value) noexcept {
  static_assert(std::is_trivially_copyable_v<T>);
  std::memcpy(target, &value, sizeof value);
}

inline uint16_t LoadU16(const void* source) noexcept { return Load<uint16_t>(source); }
inline uint32_t LoadU32(const void* source) noexcept { return Load<uint32_t>(source); }
inline uint64_t LoadU64(const void* source) noexcept { return Load<uint64_t>(source); }
inline double LoadF64(const void* source) noexcept { return Load<double>(source); }
inline void StoreU16(void* target, uint16_t value) noexcept { Store<uint16_t>(target, value); }
inline void StoreU32(void* target, uint32_t value) noexcept { Store<uint32_t>(target, value); }
inline void StoreU64(void* target, uint64_t value) noexcept { Store<uint64_t>(target, value); }
inline void StoreF64(void* target, double value) noexcept { Store<double>(target, value); }

// Copies nothing for no bytes, whatever the addresses are.
inline void CopyBytes(void* target, const void* source, size_t byte_count) noexcept {
  if (byte_count != 0) std::memcpy(target, source, byte_count);
}

inline bool SameBytes(Bytes left, Bytes right) noexcept {
  return left.size() == right.size() &&
         (left.empty() || std::memcmp(left.data(), right.data(), left.size()) == 0);
}

inline Bytes BytesOf(std::string_view text) noexcept {
  return std::as_bytes(std::span(text.data(), text.size()));
}
inline Bytes BytesAt(const void* address, size_t byte_count) noexcept {
  return {static_cast<const std::byte*>(address), byte_count};
}
inline std::string_view TextOf(Bytes bytes) noexcept {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

class ByteReader {
 public:
  ByteReader() = default;
  explicit ByteReader(Bytes source) noexcept
      : begin_(source.data()), at_(begin_), end_(begin_ + source.size()) {}
  ByteReader(const void* source, size_t byte_count) noexcept : ByteReader(BytesAt(source, byte_count)) {}

  template <class T>
  T Read() noexcept {
    if (Left() < sizeof(T)) {
      FailNow();
      return T{};
    }
    const T value = Load<T>(at_);
    at_ += sizeof(T);
    return value;
  }

  uint8_t U8() noexcept { return Read<uint8_t>(); }
  uint16_t U16() noexcept { return Read<uint16_t>(); }
  uint32_t U32() noexcept { return Read<uint32_t>(); }
  uint64_t U64() noexcept { return Read<uint64_t>(); }
  int32_t I32() noexcept { return Read<int32_t>(); }
  int64_t I64() noexcept { return Read<int64_t>(); }
  double F64() noexcept { return Read<double>(); }

  // A number in 7-bit groups, lowest first, at most 10 bytes.
  uint64_t Varint() noexcept {
    uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
      const uint8_t group = U8();
      if (failed_ || (shift == 63 && group > 1)) break;
      value |= uint64_t{group & 0x7fu} << shift;
      if (group < 0x80) return value;
    }
    FailNow();
    return 0;
  }

  // The next bytes in place.
  Bytes Take(size_t byte_count) noexcept {
    if (byte_count > Left()) {
      FailNow();
      return {};
    }
    const Bytes taken(at_, byte_count);
    at_ += byte_count;
    return taken;
  }
  std::string_view Text(size_t byte_count) noexcept { return TextOf(Take(byte_count)); }
  Bytes Rest() noexcept { return Take(Left()); }

  void Skip(size_t byte_count) noexcept { Take(byte_count); }

  // Moves to a position counted from the start of the source; beyond the end fails.
  void Seek(size_t position) noexcept {
    if (failed_) return;
    if (position > static_cast<size_t>(end_ - begin_))
      FailNow();
    else
      at_ = begin_ + position;
  }

  size_t Left() const noexcept { return static_cast<size_t>(end_ - at_); }
  size_t Position() const noexcept { return static_cast<size_t>(at_ - begin_); }
  const std::byte* Address() const noexcept { return at_; }
  bool Failed() const noexcept { return failed_; }
  explicit operator bool() const noexcept { return !failed_; }

 private:
  void FailNow() noexcept {
    failed_ = true;
    at_ = end_;
  }

  const std::byte* begin_ = nullptr;
  const std::byte* at_ = nullptr;
  const std::byte* end_ = nullptr;
  bool failed_ = false;
};

// Writes into memory of a fixed size.
class ByteWriter {
 public:
  explicit ByteWriter(MutableBytes target) noexcept
      : begin_(target.data()), at_(begin_), end_(begin_ + target.size()) {}
  ByteWriter(void* target, size_t byte_count) noexcept
      : ByteWriter(MutableBytes(static_cast<std::byte*>(target), byte_count)) {}

  template <class T>
  void Write(const std::type_identity_t<T>& value) noexcept {
    if (!Room(sizeof(T))) return;
    Store<T>(at_, value);
    at_ += sizeof(T);
  }

  void U8(uint8_t value) noexcept { Write<uint8_t>(value); }
  void U16(uint16_t value) noexcept { Write<uint16_t>(value); }
  void U32(uint32_t value) noexcept { Write<uint32_t>(value); }
  void U64(uint64_t value) noexcept { Write<uint64_t>(value); }
  void I32(int32_t value) noexcept { Write<int32_t>(value); }
  void I64(int64_t value) noexcept { Write<int64_t>(value); }
  void F64(double value) noexcept { Write<double>(value); }

  void Varint(uint64_t value) noexcept {
    for (; value >= 0x80; value >>= 7) U8(static_cast<uint8_t>(value | 0x80));
    U8(static_cast<uint8_t>(value));
  }

  void Put(Bytes source) noexcept {
    if (!Room(source.size())) return;
    CopyBytes(at_, source.data(), source.size());
    at_ += source.size();
  }
  void Text(std::string_view text) noexcept { Put(BytesOf(text)); }

  void Fill(std::byte value, size_t byte_count) noexcept {
    if (!Room(byte_count)) return;
    if (byte_count != 0) std::memset(at_, std::to_integer<int>(value), byte_count);
    at_ += byte_count;
  }

  size_t Left() const noexcept { return static_cast<size_t>(end_ - at_); }
  size_t Position() const noexcept { return static_cast<size_t>(at_ - begin_); }
  MutableBytes Written() const noexcept { return {begin_, Position()}; }
  bool Failed() const noexcept { return failed_; }
  explicit operator bool() const noexcept { return !failed_; }

 private:
  bool Room(size_t byte_count) noexcept {
    if (failed_ || byte_count > Left()) failed_ = true;
    return !failed_;
  }

  std::byte* begin_;
  std::byte* at_;
  std::byte* end_;
  bool failed_ = false;
};

// Collects bytes in memory that grows.
class ByteBuilder {
 public:
  void Reserve(size_t byte_count) { bytes_.reserve(byte_count); }
  template <class T>
  void Write(const std::type_identity_t<T>& value) {
    const size_t position = bytes_.size();
    bytes_.resize(position + sizeof(T));
    Store<T>(bytes_.data() + position, value);
  }
  void U8(uint8_t value) { bytes_.push_back(std::byte{value}); }
  void U16(uint16_t value) { Write<uint16_t>(value); }
  void U32(uint32_t value) { Write<uint32_t>(value); }
  void U64(uint64_t value) { Write<uint64_t>(value); }
  void I32(int32_t value) { Write<int32_t>(value); }
  void F64(double value) { Write<double>(value); }
  void Varint(uint64_t value) {
    for (; value >= 0x80; value >>= 7) U8(static_cast<uint8_t>(value | 0x80));
    U8(static_cast<uint8_t>(value));
  }
  void Put(Bytes source) { bytes_.insert(bytes_.end(), source.begin(), source.end()); }
  void Text(std::string_view text) { Put(BytesOf(text)); }

  size_t Size() const noexcept { return bytes_.size(); }
  std::byte* At(size_t position) noexcept { return bytes_.data() + position; }
  Bytes View() const noexcept { return bytes_; }
  void Clear() noexcept { bytes_.clear(); }
  std::vector<std::byte> Release() noexcept { return std::move(bytes_); }

 private:
  std::vector<std::byte> bytes_;
};

}  // namespace brynd

#endif
