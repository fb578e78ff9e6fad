// Paths that may name a server: `[port!!!]server!!file`; without a server the file alone.
#ifndef BRYND_BASE_NET_PATH_H
#define BRYND_BASE_NET_PATH_H

#include <string>
#include <string_view>

namespace brynd {

inline constexpr size_t kNetPathBytesMax = 511;
inline constexpr size_t kNetPathPartBytesMax = 255;

// In place in the path that was taken apart.
struct NetPath {
  std::string_view port, server, file;
};

// Fails with kBadPath when a part is too long.
NetPath ParseNetPath(std::string_view path);

// Fails with kBadPath when a part or the whole is too long, or port or server holds a `!`.
std::string BuildNetPath(const NetPath& parts);

}  // namespace brynd

#endif
