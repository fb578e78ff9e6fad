// Item tables: of any bytes, where nothing beyond the table is touched; and built from any names and values,
// where each is found again.
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "base/text.h"
#include "brynd.h"
#include "note/note.h"
#include "note/summary.h"

namespace {

using brynd::ByteReader;
using brynd::Bytes;

void Demand(bool holds) {
  if (!holds) std::abort();
}

bool LiesWithin(Bytes value, Bytes table) {
  return value.empty() ||
         (value.data() >= table.data() && value.data() + value.size() <= table.data() + table.size());
}

// A name, its length in front, and the table.
void SearchTable(ByteReader in) {
  const std::string name(in.Text(in.U8()));
  const Bytes rest = in.Rest();
  const std::vector<std::byte> table(rest.begin(),
                                     rest.end());  // of its own: what lies behind it is not to be read
  const std::optional<Bytes> found = brynd::FindInSummary(table, name);
  if (found) Demand(LiesWithin(*found, table));
  if (table.size() < sizeof(ITEM_TABLE) || brynd::LoadU16(table.data()) > table.size()) {
    Demand(!found);
    return;
  }
  char* value = nullptr;
  uint16_t value_bytes = 0, type = 0;
  const EngStatus outcome = EngSummaryValueLocate(table.data(), name.c_str(), &value, &value_bytes, &type);
  if (outcome == 0) Demand(LiesWithin(brynd::BytesAt(value, value_bytes), table));
}

// Items: name bytes 1, value bytes 2, name, value.
void BuildTable(ByteReader in) {
  brynd::SummaryBuilder builder;
  std::vector<std::pair<std::string_view, Bytes>> added;
  while (in.Left() != 0) {
    const uint8_t name_bytes = in.U8();
    const uint16_t value_bytes = in.U16();
    const std::string_view name = in.Text(name_bytes);
    const Bytes value = in.Take(value_bytes);
    if (in.Failed()) break;
    if (value.size() > brynd::kSummaryValueBytesMax) {
      builder.Add("a long one", value);  // cut, or left out
    } else if (builder.Add(name, value)) {
      added.emplace_back(name, value);
    }
  }
  const Bytes table = builder.Finish();
  Demand(table.size() <= brynd::kSummaryBytesMax && brynd::LoadU16(table.data()) == table.size());
  for (const auto& [name, value] : added) {
    const std::optional<Bytes> found = brynd::FindInSummary(table, name);
    Demand(found.has_value());
    for (const auto& [first_name, first_value] : added) {
      if (!brynd::EqualFold(first_name, name) || brynd::EqualFold(name, "a long one")) continue;
      Demand(brynd::SameBytes(*found, first_value));
      break;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ByteReader in(data, size);
  const bool build = in.U8() == 'b';
  if (in.Failed()) return 0;
  if (build)
    BuildTable(in);
  else
    SearchTable(in);
  return 0;
}
