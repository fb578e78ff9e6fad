#include "note/directory.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <vector>

#include "base/boundary.h"
#include "base/charset.h"
#include "base/net_path.h"
#include "base/text.h"
#include "base/time.h"
#include "note/info.h"
#include "note/summary.h"

namespace brynd {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kDatabaseExtension = ".QDB";

// Which databases a kind of entries means. Kinds that are not listed are of files this engine does not have.
enum class Choice : uint8_t { kNone, kAll, kTemplates };
struct KindRow {
  uint8_t kind;
  Choice databases;
};
constexpr KindRow kKinds[] = {
    {0, Choice::kAll}, {1, Choice::kAll}, {2, Choice::kTemplates}, {3, Choice::kAll},
    {4, Choice::kAll}, {5, Choice::kAll}, {7, Choice::kNone},
};
static_assert(std::ranges::is_sorted(kKinds, {}, &KindRow::kind));

Choice ChoiceOf(uint16_t selector) {
  const auto row = std::ranges::find(kKinds, selector & kSelectKind, &KindRow::kind);
  return row == std::end(kKinds) ? Choice::kNone : row->databases;
}

// The entries of a folder by name; what went wrong is told in `failed`.
std::vector<fs::directory_entry> SortedEntries(const std::string& folder, std::error_code* failed) {
  std::vector<fs::directory_entry> entries;
  fs::directory_iterator at(folder.empty() ? "/" : folder, *failed);
  for (; !*failed && at != fs::directory_iterator(); at.increment(*failed)) entries.push_back(*at);
  std::sort(entries.begin(), entries.end());
  return entries;
}

EngStatus StatusOf(const std::error_code& failed) {
  if (failed == std::errc::no_such_file_or_directory) return status::kNoFile;
  if (failed == std::errc::not_a_directory) return status::kNotDirectory;
  return status::kNoAccess;
}

// What stands in front of the names of a directory's entries.
std::string PathPrefix(const Database& directory) {
  std::string prefix(ParseNetPath(directory.GivenPath()).file);
  const bool absolute = prefix.starts_with('/');
  while (!prefix.empty() && (prefix.back() == '/' || prefix.back() == '\\')) prefix.pop_back();
  if (absolute || !prefix.empty()) prefix += '/';
  return prefix;
}

TIMEDATE ModifiedOf(const fs::directory_entry& entry) {
  std::error_code failed;
  const auto written = entry.last_write_time(failed);
  if (failed) return kWildcardTime;
  const auto since_epoch = std::chrono::file_clock::to_sys(written).time_since_epoch();
  using Hundredths = std::chrono::duration<int64_t, std::ratio<1, 100>>;
  return TimedateOfUnixHundredths(std::chrono::floor<Hundredths>(since_epoch).count(), 0);
}

struct OpenedFacts {
  std::string info;
  TIMEDATE replica_id{};
};

// What only the database itself tells. A file that cannot be opened has none of it. Opened for reading alone
// it would keep the files beside it that came with the opening, so that is for what cannot be opened
// otherwise.
std::optional<OpenedFacts> ReadOpened(const fs::path& path) {
  for (const bool read_only : {false, true}) {
    OpenedFacts facts;
    const EngStatus outcome = AtBoundary([&] {
      store::OpenOptions options;
      options.read_only = read_only;
      const std::shared_ptr<Database> database = Database::OpenFile(path.string(), path.string(), options);
      facts.info = ReadInfo(*database);
      facts.replica_id = database->ReplicaInfo().ID;
      database->Close();
    });
    if (outcome == status::kOk) return facts;
    if (outcome == status::kNotDatabase || outcome == status::kDamaged) return std::nullopt;
  }
  return std::nullopt;
}

bool IsTemplate(const OpenedFacts& facts) {
  return !ParseInfo(facts.info)[static_cast<size_t>(InfoField::kTemplate)].empty();
}

struct DirectoryEntry {
  const fs::directory_entry& entry;
  std::string path;
  const OpenedFacts* facts;  // null for a folder
};

// Goes through a directory, and what lies below when the selector asks for it.
class Walk {
 public:
  using Visitor = store::Visitor<EngStatus(const DirectoryEntry& found)>;  // anything but 0 ends the walk

  Walk(const Database& directory, uint16_t selector)
      : folder_(directory.FilePath()),
        prefix_(PathPrefix(directory)),
        selector_(selector),
        databases_(ChoiceOf(selector)),
        confined_(!ParseNetPath(directory.GivenPath()).server.empty()) {}

  EngStatus Run(Visitor visitor) const {
    std::error_code failed;
    const std::vector<fs::directory_entry> entries = SortedEntries(folder_, &failed);
    if (failed) return StatusOf(failed);
    return Visit(entries, prefix_, 0, visitor);
  }

 private:
  EngStatus Visit(const std::vector<fs::directory_entry>& entries, const std::string& prefix, int depth,
                  Visitor visitor) const {
    for (const fs::directory_entry& entry : entries) {
      std::error_code ignored;
      if (confined_ && entry.is_symlink(ignored)) continue;
      const std::string path = prefix + EngineFromUtf8(entry.path().filename().string());
      const EngStatus outcome = entry.is_directory(ignored) ? VisitFolder(entry, path, depth, visitor)
                                                            : VisitFile(entry, path, visitor);
      if (outcome != status::kOk) return outcome;
    }
    return status::kOk;
  }

  EngStatus VisitFolder(const fs::directory_entry& entry, const std::string& path, int depth,
                        Visitor visitor) const {
    if ((selector_ & kSelectNoFolders) == 0) {
      if (const EngStatus outcome = visitor({entry, path, nullptr})) return outcome;
    }
    std::error_code failed;
    if ((selector_ & kSelectBelow) == 0 || depth == kFolderDepthMax || entry.is_symlink(failed))
      return status::kOk;
    const std::vector<fs::directory_entry> below = SortedEntries(entry.path().string(), &failed);
    return failed ? status::kOk : Visit(below, path + "/", depth + 1, visitor);
  }

  EngStatus VisitFile(const fs::directory_entry& entry, const std::string& path, Visitor visitor) const {
    std::error_code ignored;
    if (databases_ == Choice::kNone || !entry.is_regular_file(ignored)) return status::kOk;
    if (!EqualFold(entry.path().extension().string(), kDatabaseExtension)) return status::kOk;
    const std::optional<OpenedFacts> facts = ReadOpened(entry.path());
    if (!facts || (databases_ == Choice::kTemplates && !IsTemplate(*facts))) return status::kOk;
    return visitor({entry, path, &*facts});
  }

  const std::string folder_, prefix_;
  const uint16_t selector_;
  const Choice databases_;
  const bool confined_;
};

void BuildEntry(const DirectoryEntry& found, SummaryBuilder* summary) {
  summary->Clear();
  summary->AddText("$Path", found.path);
  summary->AddText("$Type", found.facts == nullptr ? "$DIR" : "$NOTEFILE");
  if (found.facts != nullptr) {
    std::error_code failed;
    const uintmax_t file_bytes = found.entry.file_size(failed);
    summary->AddText("$Info", found.facts->info);
    summary->AddNumber("$Length", failed ? 0 : static_cast<double>(file_bytes));
  }
  summary->AddTime("$Modified", ModifiedOf(found.entry));
}

}  // namespace

EngStatus SearchDirectory(const Database& directory, const DirectoryQuery& query,
                          const SearchVisitor& visitor) {
  SummaryBuilder builder;
  return Walk(directory, query.selector).Run([&](const DirectoryEntry& found) {
    SEARCH_MATCH match{};
    match.SERetFlags = kSearchMatches;
    if (!query.with_summary) return visitor(match, {});
    BuildEntry(found, &builder);
    const Bytes summary = builder.Finish();
    match.SummaryLength = static_cast<uint16_t>(summary.size());
    return visitor(match, summary);
  });
}

std::string FindReplica(const Database& directory, uint16_t selector, const TIMEDATE& replica_id) {
  std::string path;
  const uint16_t everywhere =
      static_cast<uint16_t>((selector & kSelectKind) | kSelectBelow | kSelectNoFolders);
  const EngStatus outcome = Walk(directory, everywhere).Run([&](const DirectoryEntry& found) -> EngStatus {
    if (Load<uint64_t>(&found.facts->replica_id) != Load<uint64_t>(&replica_id)) return status::kOk;
    path = found.path;
    return status::kStopped;
  });
  if (outcome != status::kStopped) Check(outcome);
  return path;
}

}  // namespace brynd
