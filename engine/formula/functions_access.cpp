// The access list of the database, and hierarchical names.
#include "base/boundary.h"
#include "base/name.h"
#include "formula/functions.h"

namespace brynd::formula {

namespace {

constexpr std::string_view kLevelNames[] = {"None",   "Depositor", "Reader", "Author",
                                            "Editor", "Designer",  "Manager"};

AccessFacts Access(Machine& machine) {
  AccessFacts facts;
  machine.Document().Access(&facts);
  return facts;
}

// What stands behind the common name, from the inside out.
std::vector<std::string_view> Surroundings(const NameParts& parts) {
  std::vector<std::string_view> names;
  for (size_t unit = 0; unit < parts.unit_count; ++unit) names.push_back(parts.units[unit]);
  if (!parts.organization.empty()) names.push_back(parts.organization);
  if (!parts.country.empty()) names.push_back(parts.country);
  return names;
}

template <typename Iterator>
std::string Join(Iterator begin, Iterator end, char sign) {
  std::string joined;
  for (; begin != end; ++begin) (joined.empty() ? joined : joined += sign) += *begin;
  return joined;
}

std::string CanonicalOf(const NameParts&, std::string_view name) { return CanonicalName(name); }
std::string AbbreviatedOf(const NameParts&, std::string_view name) { return AbbreviatedName(name); }
std::string CommonOf(const NameParts& parts, std::string_view) { return std::string(parts.common_name); }
std::string OrganizationOf(const NameParts& parts, std::string_view) {
  return std::string(parts.organization);
}
std::string CountryOf(const NameParts& parts, std::string_view) { return std::string(parts.country); }

// Units count from the organisation down, so that the first is the widest.
template <size_t kNumber>
std::string UnitOf(const NameParts& parts, std::string_view) {
  return parts.unit_count < kNumber ? std::string() : std::string(parts.units[parts.unit_count - kNumber]);
}

std::string HierarchyOf(const NameParts& parts, std::string_view) {
  const std::vector<std::string_view> names = Surroundings(parts);
  return Join(names.begin(), names.end(), '/');
}
std::string KeywordOf(const NameParts& parts, std::string_view) {
  const std::vector<std::string_view> names = Surroundings(parts);
  return Join(names.rbegin(), names.rend(), '\\');
}

// A personal name is taken apart at its blanks: given name, initials of what follows, surname.
std::vector<std::string_view> WordsOf(std::string_view name) {
  std::vector<std::string_view> words;
  for (size_t at = 0; at < name.size();) {
    size_t end = at;
    while (end < name.size() && !IsBlank(name[end])) end += CharacterBytes(name, end);
    if (end > at) words.push_back(name.substr(at, end - at));
    at = end + 1;
  }
  return words;
}
std::string GivenOf(const NameParts& parts, std::string_view) {
  const std::vector<std::string_view> words = WordsOf(parts.common_name);
  return words.size() < 2 ? std::string() : std::string(words.front());
}
std::string SurnameOf(const NameParts& parts, std::string_view) {
  const std::vector<std::string_view> words = WordsOf(parts.common_name);
  return words.empty() ? std::string() : std::string(words.back());
}
std::string InitialsOf(const NameParts& parts, std::string_view) {
  const std::vector<std::string_view> words = WordsOf(parts.common_name);
  std::string initials;
  for (size_t index = 1; index + 1 < words.size(); ++index)
    initials += words[index].substr(0, CharacterBytes(words[index], 0));
  return initials;
}

// Parts that names of this system never have.
std::string NoneOf(const NameParts&, std::string_view) { return {}; }

struct NameKey {
  std::string_view key;
  std::string (*part)(const NameParts& parts, std::string_view name);
};
constexpr NameKey kNameKeys[] = {
    {"Canonicalize", CanonicalOf},
    {"Abbreviate", AbbreviatedOf},
    {"CN", CommonOf},
    {"O", OrganizationOf},
    {"OU1", UnitOf<1>},
    {"OU2", UnitOf<2>},
    {"OU3", UnitOf<3>},
    {"OU4", UnitOf<4>},
    {"C", CountryOf},
    {"G", GivenOf},
    {"I", InitialsOf},
    {"S", SurnameOf},
    {"Q", NoneOf},
    {"A", NoneOf},
    {"P", NoneOf},
    {"HierarchyOnly", HierarchyOf},
    {"ToKeyword", KeywordOf},
};

}  // namespace

Value CallDbManager(Machine& machine, std::span<const Value>) {
  return TextsOf(machine, Access(machine).managers);
}
Value CallUserNamesList(Machine& machine, std::span<const Value>) {
  AccessFacts facts = Access(machine);
  std::vector<std::string>& names = facts.user_names;
  names.insert(names.end(), facts.user_roles.begin(), facts.user_roles.end());
  return TextsOf(machine, names);
}
Value CallUserRoles(Machine& machine, std::span<const Value>) {
  return TextsOf(machine, Access(machine).user_roles);
}

// The level as a number, or its name.
Value CallUserAccess(Machine& machine, std::span<const Value> arguments) {
  const uint8_t level = Access(machine).level;
  if (level >= std::size(kLevelNames)) return BadArgument();
  if (arguments.empty()) return Value::Number(level);
  const std::optional<std::string_view> option = FirstText(arguments[0]);
  if (!option.has_value()) return WantsText();
  if (EqualFold(OptionName(*option), "AccessLevel")) return Value::Number(level);
  if (EqualFold(OptionName(*option), "LevelName")) return Value::Text(kLevelNames[level]);
  return BadArgument();
}

Value CallName(Machine& machine, std::span<const Value> arguments) {
  const std::optional<std::string_view> key = FirstText(arguments[0]);
  if (!key.has_value()) return WantsText();
  const auto row = std::ranges::find_if(
      kNameKeys, [&](const NameKey& known) { return EqualFold(known.key, OptionName(*key)); });
  if (row == std::end(kNameKeys)) return BadArgument();
  return EachText(machine, arguments[1], [&](std::string_view name) {
    if (name.empty()) return Value();
    std::string part;
    const EngStatus outcome = AtBoundary([&] { part = row->part(ParseName(name), name); });
    return outcome == status::kOk ? machine.KeepText(part) : BadArgument();
  });
}

}  // namespace brynd::formula
