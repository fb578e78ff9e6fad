// Summaries: the summary items of a note as an item table with names and values.
//
//   table bytes 2, item count 2; for each item name bytes 2, value bytes 2; for each item its name, then its
//   value
// (1) At most 65,535 bytes: items from the one that would make it longer stay out.  (2) A text longer than
// 15 KiB is cut between characters, a list between entries; a longer value of another type stays out.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "formula/value.h"
#include "note/database.h"

namespace brynd {

inline constexpr size_t kSummaryBytesMax = 65535;

// Collects the items of one table; used again for the next.
class SummaryBuilder {
 public:
  void Clear() noexcept;
  // `value` begins with its type word. False when the table would grow too long; it stays as it is.
  bool Add(std::string_view name, Bytes value);
  bool AddText(std::string_view name, std::string_view text);
  bool AddNumber(std::string_view name, double number);
  bool AddTime(std::string_view name, const TIMEDATE& time);
  // The table; good until the next change.
  Bytes Finish();

 private:
  Bytes CutToFit(Bytes value);

  std::vector<std::byte> heads_;
  std::vector<std::byte> content_;
  std::vector<std::byte> table_;
  formula::Arena arena_;  // of lists that are cut
  std::vector<std::byte> cut_;
};

// Fills a builder with the summary items of a stored note. A value that is stored by itself and cannot be
// read stays out.
void AddSummaryItems(Database& database, const ImageView& view, SummaryBuilder* builder);

// The value of a name in a table, type word first, or no bytes when the table has none; nothing at all when
// the table is damaged in front of it. Names ignore case.
std::optional<Bytes> FindInSummary(Bytes table, std::string_view name);

}  // namespace brynd
