// Patterns of @Matches and @Like, on characters of engine text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace brynd::formula {

constexpr size_t kPatternStepsMax = 1u << 26;  // of one match; a pattern that needs more does not match

enum class Match : uint8_t { kNo, kYes, kBadPattern };

// ? one character, * any run, {a-z} one of a set, {!a-z} one of the others, +x any number of x, \ takes the
// next character as it is; patterns before and behind & must both match, of those beside | one, one behind !
// must not. & and | go from left to right.
Match MatchPattern(std::string_view text, std::string_view pattern);

// _ one character, % any run, behind the escape character both are themselves.
bool LikePattern(std::string_view text, std::string_view pattern, char32_t escape);

}  // namespace brynd::formula
