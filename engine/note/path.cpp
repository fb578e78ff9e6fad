// From the path a user gives to the file the system opens.
#include "note/path.h"

#include <dirent.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <vector>

#include "base/charset.h"
#include "base/net_path.h"
#include "base/process.h"
#include "base/text.h"

namespace brynd {

namespace {

namespace fs = std::filesystem;

constexpr size_t kPathBytesMax = 1023;
constexpr std::string_view kDefaultExtension = ".QDB";

bool IsSeparator(char byte) noexcept { return byte == '/' || byte == '\\'; }

// The folders and the name of a path, in order; `.` and empty pieces are left out.
std::vector<std::string> PiecesOf(std::string_view path) {
  std::vector<std::string> pieces;
  size_t begin = 0;
  for (size_t at = 0; at <= path.size(); ++at) {
    if (at < path.size() && !IsSeparator(path[at])) continue;
    const std::string_view piece = path.substr(begin, at - begin);
    if (!piece.empty() && piece != ".") pieces.emplace_back(piece);
    begin = at + 1;
  }
  return pieces;
}

// Takes `..` back where it stands. False when it would lead out of where the path begins.
bool TakeBackParents(std::vector<std::string>* pieces) {
  std::vector<std::string> kept;
  for (std::string& piece : *pieces) {
    if (piece != "..") {
      kept.push_back(std::move(piece));
    } else if (kept.empty()) {
      return false;
    } else {
      kept.pop_back();
    }
  }
  *pieces = std::move(kept);
  return true;
}

PathKind KindOf(const std::string& path) {
  std::error_code error;
  const fs::file_status found = fs::status(path, error);
  if (fs::is_directory(found)) return PathKind::kDirectory;
  return fs::exists(found) ? PathKind::kFile : PathKind::kMissing;
}

// The name in a folder that equals the one asked for but for case; of several the first in byte order.
std::optional<std::string> NameInOtherCase(const std::string& folder, std::string_view name) {
  // Plain calls: the standard library's iterator ends the process when memory is short.
  struct CloseFolder {
    void operator()(DIR* opened) const noexcept { closedir(opened); }
  };
  const std::unique_ptr<DIR, CloseFolder> opened(opendir(folder.empty() ? "/" : folder.c_str()));
  std::optional<std::string> best;
  while (const dirent* entry = opened == nullptr ? nullptr : readdir(opened.get())) {
    const std::string candidate = entry->d_name;
    if (EqualFold(candidate, name) && (!best || candidate < *best)) best = candidate;
  }
  return best;
}

struct Walk {
  std::string path;  // system path reached so far, without a slash at its end
  bool exists = true;
};

// One piece further: the exact name, else the one that differs in case alone, else the name as given.
void Step(Walk* walk, const std::string& piece) {
  const std::string exact = walk->path + "/" + piece;
  if (walk->exists && KindOf(exact) == PathKind::kMissing) {
    const std::optional<std::string> other = NameInOtherCase(walk->path, piece);
    if (other) {
      walk->path += "/" + *other;
      return;
    }
    walk->exists = false;
  }
  walk->path = exact;
}

std::string WithoutSlashAtEnd(std::string path) {
  while (path.size() > 1 && IsSeparator(path.back())) path.pop_back();
  return path == "/" ? std::string() : path;
}

// A symbolic link on the way must not lead out of a folder that confines. What does not exist yet is judged
// by its folder.
bool LiesBelow(const std::string& folder, const std::string& path) {
  std::error_code error;
  const fs::path base = fs::weakly_canonical(folder.empty() ? "/" : folder, error);
  if (error) return false;
  const fs::path target = fs::weakly_canonical(path.empty() ? "/" : path, error);
  if (error) return false;
  const auto [base_end, target_at] = std::mismatch(base.begin(), base.end(), target.begin(), target.end());
  return base_end == base.end() || (std::next(base_end) == base.end() && base_end->empty());
}

}  // namespace

std::string DataDirectoryOf(std::string_view server) {
  ProcessRecord& process = Process();
  if (server.empty()) {
    const std::string& folder = process.data_directory;
    return WithoutSlashAtEnd(folder.empty() ? process.files->CurrentDirectory() : folder);
  }
  const std::optional<std::string> place = process.settings->Get("Server." + Utf8FromEngine(server));
  if (!place) Fail(status::kNoServer);
  constexpr std::string_view kFolder = "dir:";
  if (!StartsWithFold(*place, kFolder)) Fail(status::kNotAvailable);
  const std::string folder = std::string(TrimBlanks(std::string_view(*place).substr(kFolder.size())));
  if (folder.empty()) Fail(status::kNoServer);
  return WithoutSlashAtEnd(folder);
}

DatabasePath ResolveDatabasePath(std::string_view path, PathUse use) {
  if (path.size() > kPathBytesMax || path.find('\0') != std::string_view::npos) Fail(status::kBadPath);
  const NetPath parts = ParseNetPath(path);
  const std::string file = Utf8FromEngine(parts.file);
  const bool remote = !parts.server.empty();
  const bool absolute = !remote && !file.empty() && file[0] == '/';
  std::vector<std::string> pieces = PiecesOf(file);
  if (!TakeBackParents(&pieces)) Fail(status::kBadPath);

  Walk walk;
  if (!absolute) walk.path = DataDirectoryOf(parts.server);
  const std::string root = walk.path;
  const bool names_folder = pieces.empty() || IsSeparator(file.back());
  for (size_t i = 0; i + 1 < pieces.size(); ++i) Step(&walk, pieces[i]);

  DatabasePath found;
  if (!pieces.empty()) {
    const std::string name = pieces.back();
    const bool has_extension = name.find('.', 1) != std::string::npos;
    const std::string file_name = has_extension ? name : name + std::string(kDefaultExtension);
    Walk with_extension = walk;
    // A folder of exactly that name needs no look at its neighbours.
    const bool is_folder = use != PathUse::kMake && KindOf(walk.path + "/" + name) == PathKind::kDirectory &&
                           KindOf(walk.path + "/" + file_name) != PathKind::kFile;
    if (!is_folder) Step(&with_extension, file_name);
    Step(&walk, name);
    const bool take_file =
        !names_folder && (use == PathUse::kMake || KindOf(with_extension.path) == PathKind::kFile ||
                          KindOf(walk.path) != PathKind::kDirectory);
    if (take_file) walk = with_extension;
  }
  found.kind = KindOf(walk.path.empty() ? "/" : walk.path);
  found.system_path = walk.path;
  if (remote && !LiesBelow(root, walk.path)) Fail(status::kBadPath);
  return found;
}

}  // namespace brynd
