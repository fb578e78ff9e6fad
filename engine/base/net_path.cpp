#include "base/net_path.h"

#include "base/status.h"

namespace brynd {

namespace {

constexpr std::string_view kPortEnd = "!!!", kServerEnd = "!!";

void CheckLengths(const NetPath& parts) {
  for (const std::string_view part : {parts.port, parts.server, parts.file})
    if (part.size() > kNetPathPartBytesMax) Fail(status::kBadPath);
}

}  // namespace

NetPath ParseNetPath(std::string_view path) {
  NetPath parts;
  if (const size_t end = path.find(kPortEnd); end != std::string_view::npos && end == path.find(kServerEnd)) {
    parts.port = path.substr(0, end);
    path.remove_prefix(end + kPortEnd.size());
  }
  if (const size_t end = path.find(kServerEnd); end != std::string_view::npos) {
    parts.server = path.substr(0, end);
    parts.file = path.substr(end + kServerEnd.size());
  } else {
    (parts.port.empty() ? parts.file : parts.server) = path;
  }
  CheckLengths(parts);
  return parts;
}

std::string BuildNetPath(const NetPath& parts) {
  CheckLengths(parts);
  if (parts.server.empty()) return std::string(parts.file);
  for (const std::string_view part : {parts.port, parts.server})
    if (part.find('!') != std::string_view::npos) Fail(status::kBadPath);
  std::string path;
  if (!parts.port.empty()) path.append(parts.port).append(kPortEnd);
  path.append(parts.server).append(kServerEnd).append(parts.file);
  if (path.size() > kNetPathBytesMax) Fail(status::kBadPath);
  return path;
}

}  // namespace brynd
