#include "note/user_names.h"

#include "base/boundary.h"
#include "base/name.h"
#include "base/text.h"

namespace brynd {

std::string ComparedName(std::string_view name) {
  std::string compared(name);
  AtBoundary([&] { compared = CanonicalName(name); });
  return compared;
}

std::vector<std::string> NamesOfUser(std::string_view user) {
  std::vector<std::string> names;
  if (user.empty()) return names;
  const std::string canonical = ComparedName(user);
  names.push_back(canonical);
  for (size_t sign = FindCharacter(canonical, '/'); sign != std::string::npos;
       sign = FindCharacter(canonical, '/', sign + 1))
    names.push_back("*" + canonical.substr(sign));
  return names;
}

}  // namespace brynd
