#include "base/text.h"

#include <algorithm>

namespace brynd {

int CompareFold(std::string_view left, std::string_view right) noexcept {
  const size_t common = std::min(left.size(), right.size());
  for (size_t index = 0; index < common; ++index) {
    const auto a = static_cast<unsigned char>(FoldByte(left[index]));
    const auto b = static_cast<unsigned char>(FoldByte(right[index]));
    if (a != b) return a < b ? -1 : 1;
  }
  return left.size() < right.size() ? -1 : left.size() > right.size();
}

std::string Folded(std::string_view text) {
  std::string folded(text);
  for (char& byte : folded) byte = FoldByte(byte);
  return folded;
}

std::string_view CutText(std::string_view text, size_t byte_limit) noexcept {
  if (text.size() <= byte_limit) return text;
  // A prefix byte decides at most the two bytes behind it, but which bytes are prefixes is known only from
  // the start.
  size_t position = 0;
  while (position < byte_limit) {
    const size_t next = position + CharacterBytes(text, position);
    if (next > byte_limit) break;
    position = next;
  }
  return text.substr(0, position);
}

size_t FindCharacter(std::string_view text, char character, size_t position) noexcept {
  while (position < text.size()) {
    const unsigned width = SequenceBytes(text[position]);
    if (width == 1 && text[position] == character) return position;
    position += width;
  }
  return std::string_view::npos;
}

std::string_view TrimBlanks(std::string_view text) noexcept {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace brynd
