#include "base/name.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "base/charset.h"
#include "base/process.h"
#include "base/status.h"
#include "base/text.h"

namespace brynd {

namespace {

enum class PartKind : uint8_t { kCommonName, kUnit, kOrganization, kCountry };

struct KindRow {
  PartKind kind;
  std::string_view key;
};

constexpr KindRow kKinds[] = {{PartKind::kCommonName, "CN="},
                              {PartKind::kUnit, "OU="},
                              {PartKind::kOrganization, "O="},
                              {PartKind::kCountry, "C="}};

constexpr size_t kCountryBytes = 2;

struct Part {
  std::optional<PartKind> kind;  // none: written without a key
  std::string_view text;
};

// Empty text for a part that is none.
Part ParsePart(std::string_view text) {
  text = TrimBlanks(text);
  Part part{std::nullopt, text};
  for (const KindRow& row : kKinds)
    if (StartsWithFold(text, row.key)) part = {row.kind, TrimBlanks(text.substr(row.key.size()))};
  return part;
}

// Nothing when a part is empty.
std::vector<Part> SplitParts(std::string_view name) {
  std::vector<Part> parts;
  for (size_t start = 0; start <= name.size();) {
    const size_t end = std::min(FindCharacter(name, '/', start), name.size());
    parts.push_back(ParsePart(name.substr(start, end - start)));
    if (parts.back().text.empty()) return {};
    start = end + 1;
  }
  return parts;
}

bool LooksLikeCountry(std::string_view text) {
  const auto is_letter = [](char byte) { return FoldByte(byte) >= 'a' && FoldByte(byte) <= 'z'; };
  return text.size() == kCountryBytes && is_letter(text[0]) && is_letter(text[1]);
}

// Gives the parts without a key theirs by where they stand: the first is the common name, the last the
// organisation, or the country when it has two letters and something can be the organisation before it; those
// between are units.
void GuessKinds(std::vector<Part>& parts) {
  if (!parts.front().kind) parts.front().kind = PartKind::kCommonName;
  size_t last = parts.size() - 1;
  if (last == 0) return;
  if (!parts[last].kind &&
      ((last >= 2 && LooksLikeCountry(parts[last].text)) || parts[last - 1].kind == PartKind::kOrganization))
    parts[last].kind = PartKind::kCountry;
  if (parts[last].kind == PartKind::kCountry) --last;
  if (!parts[last].kind) parts[last].kind = PartKind::kOrganization;
  for (Part& part : parts)
    if (!part.kind) part.kind = PartKind::kUnit;
}

// False when the name has that part already, or as many units as there can be.
bool PutPart(NameParts& name, const Part& part) {
  if (*part.kind == PartKind::kUnit) {
    if (name.unit_count == kNameUnitsMax) return false;
    name.units[name.unit_count++] = part.text;
    return true;
  }
  std::string_view& field = *part.kind == PartKind::kCommonName     ? name.common_name
                            : *part.kind == PartKind::kOrganization ? name.organization
                                                                    : name.country;
  if (!field.empty()) return false;
  field = part.text;
  return true;
}

// Takes a domain off the end of a name: what stands behind an `@` in its last part. None for an empty one.
std::optional<std::string_view> TakeDomain(std::string_view& name) {
  const size_t sign = FindCharacter(name, '@');
  if (sign == std::string_view::npos || sign == 0) return std::string_view();
  if (FindCharacter(name, '/', sign) != std::string_view::npos) return std::string_view();
  const std::string_view domain = TrimBlanks(name.substr(sign + 1));
  if (domain.empty()) return std::nullopt;
  name = TrimBlanks(name.substr(0, sign));
  return domain;
}

std::optional<NameParts> TakeApart(std::string_view name) {
  name = TrimBlanks(name);
  if (name.empty() || name.size() > kNameBytesMax) return std::nullopt;
  NameParts parts;
  const auto domain = TakeDomain(name);
  if (!domain) return std::nullopt;
  parts.domain = *domain;
  std::vector<Part> written = SplitParts(name);
  if (written.empty()) return std::nullopt;
  parts.hierarchical = written.size() > 1 || written.front().kind.has_value();
  GuessKinds(written);
  for (size_t index = 0; index < written.size(); ++index) {
    if (index > 0 && *written[index].kind < *written[index - 1].kind) return std::nullopt;
    if (!PutPart(parts, written[index])) return std::nullopt;
  }
  return parts;
}

void AppendPart(std::string& name, PartKind kind, std::string_view text, bool keyed) {
  if (text.empty()) return;
  if (!name.empty()) name += '/';
  if (keyed) name += kKinds[static_cast<size_t>(kind)].key;
  name += text;
}

// keyed(kind) tells whether parts of a kind are written with their key.
template <class Keyed>
std::string Compose(const NameParts& parts, Keyed&& keyed) {
  std::string name;
  if (!parts.hierarchical) {
    name = parts.common_name;
  } else {
    AppendPart(name, PartKind::kCommonName, parts.common_name, keyed(PartKind::kCommonName));
    for (size_t index = 0; index < parts.unit_count; ++index)
      AppendPart(name, PartKind::kUnit, parts.units[index], keyed(PartKind::kUnit));
    AppendPart(name, PartKind::kOrganization, parts.organization, keyed(PartKind::kOrganization));
    AppendPart(name, PartKind::kCountry, parts.country, keyed(PartKind::kCountry));
  }
  if (!parts.domain.empty()) name.append("@").append(parts.domain);
  return name;
}

std::string ComposeCanonical(const NameParts& parts) {
  return Compose(parts, [](PartKind) { return true; });
}

bool SameSurroundings(const NameParts& left, const NameParts& right) {
  if (left.unit_count != right.unit_count) return false;
  for (size_t index = 0; index < left.unit_count; ++index)
    if (!EqualFold(left.units[index], right.units[index])) return false;
  return EqualFold(left.organization, right.organization) && EqualFold(left.country, right.country);
}

}  // namespace

NameParts ParseName(std::string_view name) {
  const auto parts = TakeApart(name);
  if (!parts) Fail(status::kBadName);
  return *parts;
}

std::string CanonicalName(std::string_view name, std::string_view name_template) {
  NameParts parts = ParseName(name);
  if (!parts.hierarchical && parts.domain.empty() && !name_template.empty()) {
    const NameParts surroundings = ParseName(name_template);
    const std::string_view common_name = parts.common_name;
    if (surroundings.hierarchical) parts = surroundings;
    parts.common_name = common_name;
  }
  std::string canonical = ComposeCanonical(parts);
  if (canonical.size() > kNameBytesMax) Fail(status::kBadName);
  return canonical;
}

std::string AbbreviatedName(std::string_view name, std::string_view name_template) {
  NameParts parts = ParseName(name);
  if (parts.hierarchical && !parts.common_name.empty() && parts.domain.empty() && !name_template.empty() &&
      SameSurroundings(parts, ParseName(name_template)))
    return std::string(parts.common_name);

  const std::string canonical = ComposeCanonical(parts);
  if (canonical.size() > kNameBytesMax) Fail(status::kBadName);
  const auto reads_back = [&](const std::string& text) {
    const auto again = TakeApart(text);
    return again && ComposeCanonical(*again) == canonical;
  };
  if (const std::string bare = Compose(parts, [](PartKind) { return false; }); reads_back(bare)) return bare;
  const std::string outer = Compose(parts, [](PartKind kind) { return kind >= PartKind::kOrganization; });
  return reads_back(outer) ? outer : canonical;
}

std::string CurrentUserName() {
  const auto name = Process().settings->Get("UserName");
  if (!name || name->empty()) Fail(status::kNoSetting);
  return CanonicalName(EngineFromUtf8(*name));
}

}  // namespace brynd
