// Directories of databases: what a folder holds, and finding a database in it by its replica id.
// (1) Paths of entries are engine text as EngDbOpen takes them on the same server: the folder as it was
// given, then what lies below.  (2) Nothing is opened but regular files that are named as databases; what
// then turns out to be none of ours is no entry.  (3) Symbolic links are not followed into folders, and not
// at all in the directory of a server, which they could leave.
#pragma once

#include <functional>
#include <string>

#include "note/database.h"
#include "note/search.h"

namespace brynd {

// A file selector: a kind of entries in the low byte, and bits.
inline constexpr uint16_t kSelectKind = 0x00ff;
inline constexpr uint16_t kSelectBelow = 0x2000;      // entries of the folders below too
inline constexpr uint16_t kSelectNoFolders = 0x4000;  // no entries for folders
inline constexpr int kFolderDepthMax = 16;            // of folders below the directory

struct DirectoryQuery {
  uint16_t selector = 0;
  bool with_summary = false;
};

// Shows the entries of a directory in order of their names, a folder in front of what lies in it, each with
// a summary of $Path, $Type ("$DIR", "$NOTEFILE"), $Info, $Length and $Modified. A folder below that cannot
// be read shows nothing. Fails with kNoFile, kNotDirectory, kNoAccess for the directory itself.
EngStatus SearchDirectory(const Database& directory, const DirectoryQuery& query,
                          const SearchVisitor& visitor);

// The path of the first database with that replica id in or below a directory; empty when there is none.
std::string FindReplica(const Database& directory, uint16_t selector, const TIMEDATE& replica_id);

}  // namespace brynd
