// Hierarchical names, the name of the user, and paths that name a server.
#include "base/name.h"

#include <string>
#include <string_view>

#include "base/boundary.h"
#include "base/bytes.h"
#include "base/net_path.h"
#include "brynd_name.h"

using brynd::AtBoundary;

namespace status = brynd::status;

namespace {

std::string_view TextOrEmpty(const char* text) { return text == nullptr ? std::string_view() : text; }

void PutText(std::string_view text, char* target) {
  if (target == nullptr) return;
  brynd::CopyBytes(target, text.data(), text.size());
  target[text.size()] = 0;
}

using Convert = std::string (*)(std::string_view name, std::string_view name_template);

EngStatus ConvertName(Convert convert, const char* name_template, const char* name, char* output,
                      uint16_t output_limit, uint16_t* length) {
  return AtBoundary([&]() -> EngStatus {
    if (name == nullptr) return status::kBadArgument;
    if (output == nullptr) return status::kBadArgument;
    const std::string converted = convert(name, TextOrEmpty(name_template));
    if (converted.size() > output_limit) return status::kTextTooLong;
    PutText(converted, output);
    if (length != nullptr) brynd::Store<uint16_t>(length, static_cast<uint16_t>(converted.size()));
    return status::kOk;
  });
}

void PutPart(std::string_view part, uint32_t& length, const char*& text) {
  length = static_cast<uint32_t>(part.size());
  text = part.empty() ? nullptr : part.data();
}

}  // namespace

EngStatus EngUserNameGet(char* name) {
  return AtBoundary([&]() -> EngStatus {
    if (name == nullptr) return status::kBadArgument;
    PutText(brynd::CurrentUserName(), name);
    return status::kOk;
  });
}

EngStatus EngNameCanonicalize(uint32_t, const char* name_template, const char* name, char* output,
                              uint16_t output_limit, uint16_t* length) {
  return ConvertName(brynd::CanonicalName, name_template, name, output, output_limit, length);
}

EngStatus EngNameAbbreviate(uint32_t, const char* name_template, const char* name, char* output,
                            uint16_t output_limit, uint16_t* length) {
  return ConvertName(brynd::AbbreviatedName, name_template, name, output, output_limit, length);
}

EngStatus EngNameParse(uint32_t, const char*, const char* name, NAME_PARTS* parts) {
  return AtBoundary([&]() -> EngStatus {
    if (name == nullptr) return status::kBadArgument;
    if (parts == nullptr) return status::kBadArgument;
    const brynd::NameParts found = brynd::ParseName(name);
    NAME_PARTS result{};  // packed: filled through locals, never through references to its fields
    const auto put = [&](std::string_view part, size_t length_offset, size_t text_offset) {
      uint32_t length = 0;
      const char* text = nullptr;
      PutPart(part, length, text);
      auto* bytes = reinterpret_cast<std::byte*>(&result);
      brynd::Store<uint32_t>(bytes + length_offset, length);
      brynd::Store<const char*>(bytes + text_offset, text);
    };
    result.Flags = found.hierarchical ? 1 : 0;
    put(found.country, offsetof(NAME_PARTS, CountryLength), offsetof(NAME_PARTS, Country));
    put(found.organization, offsetof(NAME_PARTS, OrgLength), offsetof(NAME_PARTS, Org));
    for (size_t index = 0; index < found.unit_count; ++index)  // outermost first
      put(found.units[found.unit_count - 1 - index],
          offsetof(NAME_PARTS, OrgUnitLength) + index * sizeof(uint32_t),
          offsetof(NAME_PARTS, OrgUnit) + index * sizeof(char*));
    put(found.common_name, offsetof(NAME_PARTS, CommonNameLength), offsetof(NAME_PARTS, CommonName));
    put(found.domain, offsetof(NAME_PARTS, DomainLength), offsetof(NAME_PARTS, Domain));
    brynd::CopyBytes(parts, &result, sizeof result);
    return status::kOk;
  });
}

EngStatus EngNetPathBuild(const char* port, const char* server, const char* file, char* path) {
  return AtBoundary([&]() -> EngStatus {
    if (path == nullptr) return status::kBadArgument;
    PutText(brynd::BuildNetPath({TextOrEmpty(port), TextOrEmpty(server), TextOrEmpty(file)}), path);
    return status::kOk;
  });
}

EngStatus EngNetPathParse(const char* path, char* port, char* server, char* file) {
  return AtBoundary([&]() -> EngStatus {
    if (path == nullptr) return status::kBadArgument;
    const brynd::NetPath parts = brynd::ParseNetPath(path);
    PutText(parts.port, port);
    PutText(parts.server, server);
    PutText(parts.file, file);
    return status::kOk;
  });
}
