// Hierarchical names. Canonical: `CN=Jo Doe/OU=Dev/O=Acme/C=US`; abbreviated: `Jo Doe/Dev/Acme/US`. A name
// without `/` and without a key is flat and has one form only. Behind the last part may stand `@` and a
// domain.
// (1) Parts stand in the order common name, units from the innermost outwards, organisation, country.
// (2) Canonical(Abbreviated(name)) == Canonical(name): a part whose kind would be guessed wrong keeps its
//     key.
#ifndef BRYND_BASE_NAME_H
#define BRYND_BASE_NAME_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace brynd {

inline constexpr size_t kNameBytesMax = 255;
inline constexpr size_t kNameUnitsMax = 4;

// The parts of a name, in place in the text that was taken apart; empty for a part that it has not.
struct NameParts {
  bool hierarchical = false;
  std::string_view common_name, organization, country, domain;
  std::array<std::string_view, kNameUnitsMax> units;  // as written: the innermost first
  size_t unit_count = 0;
};

// Fails with kBadName: empty, too long, an empty part, parts out of order or more than there can be.
NameParts ParseName(std::string_view name);

// The canonical form. A flat name takes units, organisation and country from a template that has them.
std::string CanonicalName(std::string_view name, std::string_view name_template = {});

// The abbreviated form. What the name shares with a template behind the common name is left off.
std::string AbbreviatedName(std::string_view name, std::string_view name_template = {});

// The user of this process: the setting UserName in canonical form and engine text. Fails with kNoSetting,
// kBadName.
std::string CurrentUserName();

}  // namespace brynd

#endif
