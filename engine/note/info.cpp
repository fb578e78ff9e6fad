#include "note/info.h"

#include <algorithm>

#include "base/text.h"

namespace brynd {

namespace {

constexpr std::string_view kInfoFact = "info";
constexpr std::string_view kTemplateMark = "#1", kInheritedMark = "#2";

std::string OneLine(std::string_view text) {
  std::string line(text);
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line;
}

}  // namespace

InfoFields ParseInfo(std::string_view buffer) {
  InfoFields fields;
  std::string_view rest = buffer.substr(0, std::min(buffer.find('\0'), buffer.size()));
  for (size_t line_index = 0; !rest.empty() || line_index == 0; ++line_index) {
    const size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (line_index == 0)
      fields[static_cast<size_t>(InfoField::kTitle)] = line;
    else if (line_index == 1)
      fields[static_cast<size_t>(InfoField::kCategories)] = line;
    else if (line.starts_with(kTemplateMark))
      fields[static_cast<size_t>(InfoField::kTemplate)] = line.substr(kTemplateMark.size());
    else if (line.starts_with(kInheritedMark))
      fields[static_cast<size_t>(InfoField::kInheritedTemplate)] = line.substr(kInheritedMark.size());
  }
  return fields;
}

std::string BuildInfo(const InfoFields& fields) {
  const auto field = [&](InfoField which) { return OneLine(fields[static_cast<size_t>(which)]); };
  std::string text = field(InfoField::kTitle);
  const std::string categories = field(InfoField::kCategories), own = field(InfoField::kTemplate);
  const std::string inherited = field(InfoField::kInheritedTemplate);
  if (!categories.empty() || !own.empty() || !inherited.empty()) text += '\n' + categories;
  if (!own.empty()) text += '\n' + std::string(kTemplateMark) + own;
  if (!inherited.empty()) text += '\n' + std::string(kInheritedMark) + inherited;
  text.resize(CutText(text, kInfoBytes - 1).size());
  return text;
}

std::string ReadInfo(Database& database) {
  const std::optional<std::vector<std::byte>> fact = database.ReadFact(kInfoFact);
  if (!fact) return {};
  if (fact->size() > kInfoBytes - 1) Fail(status::kDamaged);
  return std::string(TextOf(*fact));
}

void WriteInfo(Database& database, std::string_view text) {
  DatabaseWrite write(database);
  Database::PutFact(write, kInfoFact, BytesOf(text));
  write.Commit(store::Durability::kDurable);
}

}  // namespace brynd
