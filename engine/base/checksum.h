// The checksum of stored records: XXH3, 64 bits.
#ifndef BRYND_BASE_CHECKSUM_H
#define BRYND_BASE_CHECKSUM_H

#include <cstdint>

#include "base/bytes.h"

namespace brynd {

uint64_t Checksum64(Bytes bytes) noexcept;

// The checksum of bytes that follow others: seed is the checksum of what stands before them.
uint64_t Checksum64(Bytes bytes, uint64_t seed) noexcept;

}  // namespace brynd

#endif
