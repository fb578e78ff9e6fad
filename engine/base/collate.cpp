#include "base/collate.h"

#include <unicode/ucol.h>
#include <unicode/uversion.h>

#include <array>
#include <limits>
#include <memory>

#include "base/charset.h"
#include "base/status.h"

namespace brynd {
namespace {

// Moves when the keys of this file change for another reason than ICU: strengths, the reading of engine text.
constexpr uint32_t kKeyFormat = 1;

struct CloseCollator {
  void operator()(UCollator* collator) const noexcept { ucol_close(collator); }
};
using CollatorPointer = std::unique_ptr<UCollator, CloseCollator>;

// Case without accents is the first level and the case level of ICU; accents without case are the first two
// levels.
CollatorPointer OpenCollator(CollationStrength strength) {
  UErrorCode error = U_ZERO_ERROR;
  CollatorPointer collator(ucol_open("", &error));
  if (U_FAILURE(error)) Fail(status::kNoCollator);
  const UColAttributeValue level = strength.ignore_accents ? UCOL_PRIMARY
                                   : strength.ignore_case  ? UCOL_SECONDARY
                                                           : UCOL_TERTIARY;
  ucol_setAttribute(collator.get(), UCOL_STRENGTH, level, &error);
  if (strength.ignore_accents && !strength.ignore_case)
    ucol_setAttribute(collator.get(), UCOL_CASE_LEVEL, UCOL_ON, &error);
  if (U_FAILURE(error)) Fail(status::kNoCollator);
  return collator;
}

// ICU's collators may be used by any number of threads while none changes them.
const UCollator* CollatorFor(CollationStrength strength) {
  static const std::array<CollatorPointer, 4> collators = {
      OpenCollator({false, false}), OpenCollator({true, false}), OpenCollator({false, true}),
      OpenCollator({true, true})};
  return collators[(strength.ignore_case ? 1u : 0u) + (strength.ignore_accents ? 2u : 0u)].get();
}

int32_t UnitCount(const std::u16string& text) {
  if (text.size() > std::numeric_limits<int32_t>::max() / 8) Fail(status::kTextTooLong);
  return static_cast<int32_t>(text.size());
}

}  // namespace

void AppendSortKey(std::string_view text, CollationStrength strength, std::string* key) {
  const UCollator* collator = CollatorFor(strength);
  const std::u16string utf16 = Utf16FromEngine(text);
  const size_t former_bytes = key->size();
  size_t room = utf16.size() * 3 + 16;  // enough for most texts
  for (;;) {
    key->resize(former_bytes + room);
    const int32_t needed =
        ucol_getSortKey(collator, utf16.data(), UnitCount(utf16),
                        reinterpret_cast<uint8_t*>(key->data() + former_bytes), static_cast<int32_t>(room));
    if (needed <= 0) {
      key->resize(former_bytes);
      Fail(status::kNoCollator);
    }
    const auto needed_bytes = static_cast<size_t>(needed);
    if (needed_bytes <= room) return key->resize(former_bytes + needed_bytes - 1);
    room = needed_bytes;
  }
}

std::string SortKey(std::string_view text, CollationStrength strength) {
  std::string key;
  AppendSortKey(text, strength, &key);
  return key;
}

int CollateText(std::string_view left, std::string_view right, CollationStrength strength) {
  const UCollator* collator = CollatorFor(strength);
  const std::u16string a = Utf16FromEngine(left), b = Utf16FromEngine(right);
  return static_cast<int>(ucol_strcoll(collator, a.data(), UnitCount(a), b.data(), UnitCount(b)));
}

uint32_t CollationVersion() {
  UVersionInfo version = {};
  ucol_getVersion(CollatorFor({}), version);
  uint32_t mixed = kKeyFormat;
  for (const uint8_t part : version) mixed = mixed * 0x01000193u ^ part;
  return mixed;
}

}  // namespace brynd
