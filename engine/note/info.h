// The information buffer of a database: 128 bytes of text, kept as the fact "info" of the database.
//
//   title LF categories LF "#1" template name LF "#2" inherited template name NUL
// (1) Lines that are empty at the end are not written.  (2) A field never holds a LF: a blank stands for it.
// (3) What does not fit is cut between characters, the last fields first; a buffer always ends with NUL.
// (4) The second line is the categories, whatever it begins with; the lines behind it are known by their
// marks.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "note/database.h"

namespace brynd {

inline constexpr size_t kInfoBytes = 128;

enum class InfoField : uint16_t { kTitle = 0, kCategories = 1, kTemplate = 2, kInheritedTemplate = 3 };
inline constexpr size_t kInfoFieldCount = 4;

using InfoFields = std::array<std::string, kInfoFieldCount>;

// The fields of a buffer; any bytes are read, up to their NUL.
InfoFields ParseInfo(std::string_view buffer);
// The text of a buffer, at most 127 bytes.
std::string BuildInfo(const InfoFields& fields);

std::string ReadInfo(Database& database);
void WriteInfo(Database& database, std::string_view text);

}  // namespace brynd
