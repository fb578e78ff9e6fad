// Finding rows by the values of the sorted columns.
#pragma once

#include "collection/walk.h"

namespace brynd::collection {

constexpr uint16_t kFindLeading = 1, kFindAnyCase = 2, kFindAnyAccent = 8;

struct FoundRows {
  COLLECTIONPOSITION position{};
  uint32_t match_count = 0;
};

// The keys' values in column order, type word first. Fails with kNotFound, with kBadArgument for more keys
// than sorted columns or none.
FoundRows FindByKey(Index& index, const std::vector<Bytes>& keys, uint16_t flags);

// The values of an item table; fails with kBadArgument when it is none.
std::vector<Bytes> KeysOfTable(const void* table);

}  // namespace brynd::collection
