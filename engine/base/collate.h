// Order of texts by the Unicode collation rules of ICU, on engine text read generously. Any thread.
// (1) Byte order of two keys of one strength is the order of their texts.
// (2) Keys may be stored together with CollationVersion; another version needs new keys.
#ifndef BRYND_BASE_COLLATE_H
#define BRYND_BASE_COLLATE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/bytes.h"

namespace brynd {

struct CollationStrength {
  bool ignore_case = false;
  bool ignore_accents = false;
};

// Appends the sort key of text to key, without the NUL that ICU ends it with. Fails with kNoCollator,
// kNoMemory.
void AppendSortKey(std::string_view text, CollationStrength strength, std::string* key);
std::string SortKey(std::string_view text, CollationStrength strength = {});

// Below, equal, above 0; the same order as that of keys.
int CollateText(std::string_view left, std::string_view right, CollationStrength strength = {});

// Changes whenever keys of equal texts may differ from those of an earlier build of ICU or of this file.
uint32_t CollationVersion();

}  // namespace brynd

#endif
