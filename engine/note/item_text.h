// Items as texts and text lists.
#pragma once

#include <string>
#include <string_view>

#include "note/note.h"

namespace brynd {

// A value as text: a text as it is, the first number or time in the form of the settings, list entries joined
// with `;`. Empty for other types and for values that are not whole. `value` begins with its type word.
std::string TextOfValue(Bytes value);

// The entries of a text list value, or the one text of a text value; 0 and empty for other types.
uint16_t TextEntryCount(Bytes value) noexcept;
std::string_view TextEntry(Bytes value, uint16_t entry) noexcept;

// The first number of a number or number list value.
bool NumberOfValue(Bytes value, double* number) noexcept;

// Replaces all items of the name by one text item, a summary item while it is short enough.
void SetText(Note& note, std::string_view name, std::string_view text);

// Adds an entry to the first item of the name and makes it a text list if it is not yet. With `no_duplicate`
// a text that is in the list already, without regard to case, is not added. Fails with kWrongItemType,
// kListFull.
void AppendTextEntry(Note& note, std::string_view name, std::string_view text, bool no_duplicate);

}  // namespace brynd
