#define XXH_INLINE_ALL
#include "base/checksum.h"

#include <xxhash.h>

namespace brynd {

uint64_t Checksum64(Bytes bytes) noexcept { return XXH3_64bits(bytes.data(), bytes.size()); }

uint64_t Checksum64(Bytes bytes, uint64_t seed) noexcept {
  return XXH3_64bits_withSeed(bytes.data(), bytes.size(), seed);
}

}  // namespace brynd
