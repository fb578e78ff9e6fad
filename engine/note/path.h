// From the path a user gives to the file the system opens.
//
// A path is [port!!!][server!!]file in engine text (base/net_path.h). Without a server the file is local:
// absolute, or below the data directory (setting Directory). A server is known by its setting Server.<name>;
// `dir:<folder>` is another data directory, and its paths do not leave it.
// (1) `/` and `\` both part folders.  (2) A name without extension gets .QDB.
// (3) An exact name wins, else one that differs in case alone.
// (4) A relative path never leads out of its data directory.
#pragma once

#include <string>
#include <string_view>

#include "base/status.h"

namespace brynd {

enum class PathKind : uint8_t { kMissing, kFile, kDirectory };

struct DatabasePath {
  PathKind kind = PathKind::kMissing;
  std::string system_path;  // of the file or directory, or where the file would be made
};

// A path that is to be made names a file although there is a directory of that name.
enum class PathUse : uint8_t { kOpen, kMake };

// Fails with kBadPath, kNoServer, kNotAvailable (a server that is no folder).
DatabasePath ResolveDatabasePath(std::string_view path, PathUse use = PathUse::kOpen);

// The data directory of a server, or the local one for an empty name; system path without a slash at its end.
std::string DataDirectoryOf(std::string_view server);

}  // namespace brynd
