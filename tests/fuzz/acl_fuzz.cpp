// Access control lists of any bytes: what is taken is taken whole, and a template's list makes one for its
// database.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "note/acl.h"

namespace {

void Demand(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const brynd::Bytes given = brynd::BytesAt(data, size);
  const std::vector<std::byte> stored(given.begin(), given.end());
  const std::optional<brynd::Acl> acl = brynd::ParseAcl(stored);
  if (!acl) return 0;
  Demand(brynd::BuildAcl(*acl) == stored);
  const std::vector<std::byte> taken = brynd::BuildAcl(brynd::TemplateAcl(*acl));
  const std::optional<brynd::Acl> again = brynd::ParseAcl(taken);
  Demand(again.has_value() && brynd::BuildAcl(*again) == taken);
  Demand(again->entries.size() <= acl->entries.size() + 1);
  return 0;
}
