// Text put together in room of a fixed size.
#ifndef BRYND_BASE_BOUNDED_TEXT_H
#define BRYND_BASE_BOUNDED_TEXT_H

#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

namespace brynd {

// (1) Never writes past its room.  (2) Once something did not fit, Full stays true and nothing more is
//     written.
class BoundedText {
 public:
  explicit BoundedText(std::span<char> room) noexcept
      : begin_(room.data()), at_(begin_), end_(begin_ + room.size()) {}

  void Put(std::string_view text) noexcept {
    if (text.size() > static_cast<size_t>(end_ - at_)) full_ = true;
    if (full_ || text.empty()) return;
    std::memcpy(at_, text.data(), text.size());
    at_ += text.size();
  }
  void Put(char character) noexcept { Put(std::string_view(&character, 1)); }

  // A number of 0 and more, with leading zeros up to a width.
  void PutNumber(unsigned number, unsigned width) noexcept {
    char digits[12];
    char* first = digits + sizeof digits;
    for (; number != 0 || width != 0; number /= 10) {
      *--first = static_cast<char>('0' + number % 10);
      if (width != 0) --width;
    }
    if (first == digits + sizeof digits) *--first = '0';
    Put(std::string_view(first, static_cast<size_t>(digits + sizeof digits - first)));
  }

  bool Full() const noexcept { return full_; }
  bool Empty() const noexcept { return at_ == begin_; }
  size_t Size() const noexcept { return static_cast<size_t>(at_ - begin_); }

 private:
  char* begin_;
  char* at_;
  char* end_;
  bool full_ = false;
};

}  // namespace brynd

#endif
