// References from note to note: the value of $REF is a word count and then the universal ids of the parents.
#pragma once

#include "base/bytes.h"
#include "brynd.h"
#include "note/image.h"

namespace brynd {

inline constexpr uint16_t kReferenceListType = 4;  // type word

// The first reference of a value that begins with its type word; false when it has none.
inline bool FirstReference(Bytes value, UNIVERSALNOTEID* parent) noexcept {
  ByteReader in(value);
  const uint16_t type = in.U16(), count = in.U16();
  const auto first = in.Read<UNIVERSALNOTEID>();
  if (in.Failed() || type != kReferenceListType || count == 0) return false;
  *parent = first;
  return true;
}

}  // namespace brynd
