#include "note/directory.h"

#include <algorithm>
#include <vector>

#include "base/boundary.h"
#include "base/charset.h"
#include "base/net_path.h"
#include "base/process.h"
#include "base/text.h"
#include "base/time.h"
#include "note/info.h"
#include "note/summary.h"

namespace brynd {

namespace {

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

// What stands in front of the names of a directory's entries.
std::string PathPrefix(const Database& directory) {
  std::string prefix(ParseNetPath(directory.GivenPath()).file);
  const bool absolute = prefix.starts_with('/');
  while (!prefix.empty() && (prefix.back() == '/' || prefix.back() == '\\')) prefix.pop_back();
  if (absolute || !prefix.empty()) prefix += '/';
  return prefix;
}

TIMEDATE ModifiedOf(const FolderEntry& entry) {
  return entry.modified_hundredths == 0 ? kWildcardTime
                                        : TimedateOfUnixHundredths(entry.modified_hundredths, 0);
}

struct OpenedFacts {
  std::string info;
  TIMEDATE replica_id{};
};

// What only the database itself tells. A file that cannot be opened has none of it. Opened for reading alone
// it would keep the files beside it that came with the opening, so that is for what cannot be opened
// otherwise.
std::optional<OpenedFacts> ReadOpened(const std::string& path) {
  for (const bool read_only : {false, true}) {
    OpenedFacts facts;
    const EngStatus outcome = AtBoundary([&] {
      store::OpenOptions options;
      options.read_only = read_only;
      const std::shared_ptr<Database> database = Database::OpenFile(path, path, options);
      facts.info = ReadInfo(*database);
      facts.replica_id = database->ReplicaInfo().ID;
      database->Close();
    });
    if (outcome == status::kOk) return facts;
    if (outcome == status::kNoMemory) Fail(outcome);
    if (outcome == status::kNotDatabase || outcome == status::kDamaged) return std::nullopt;
  }
  return std::nullopt;
}

bool IsTemplate(const OpenedFacts& facts) {
  return !ParseInfo(facts.info)[static_cast<size_t>(InfoField::kTemplate)].empty();
}

struct DirectoryEntry {
  const FolderEntry& entry;
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
    std::vector<FolderEntry> entries;
    const EngStatus listed = List(folder_, &entries);
    if (listed != status::kOk) return listed;
    return Visit(folder_, entries, prefix_, 0, visitor);
  }

 private:
  static EngStatus List(const std::string& folder, std::vector<FolderEntry>* entries) {
    return AtBoundary([&] { *entries = Process().files->List(folder.empty() ? "/" : folder); });
  }

  EngStatus Visit(const std::string& folder, const std::vector<FolderEntry>& entries,
                  const std::string& prefix, int depth, Visitor visitor) const {
    for (const FolderEntry& entry : entries) {
      if (confined_ && entry.is_link) continue;
      const std::string file_path = folder + "/" + entry.name, path = prefix + EngineFromUtf8(entry.name);
      const EngStatus outcome = entry.is_folder ? VisitFolder(file_path, entry, path, depth, visitor)
                                                : VisitFile(file_path, entry, path, visitor);
      if (outcome != status::kOk) return outcome;
    }
    return status::kOk;
  }

  EngStatus VisitFolder(const std::string& file_path, const FolderEntry& entry, const std::string& path,
                        int depth, Visitor visitor) const {
    if ((selector_ & kSelectNoFolders) == 0) {
      if (const EngStatus outcome = visitor({entry, path, nullptr})) return outcome;
    }
    if ((selector_ & kSelectBelow) == 0 || depth == kFolderDepthMax || entry.is_link) return status::kOk;
    std::vector<FolderEntry> below;
    const EngStatus listed = List(file_path, &below);
    if (listed == status::kNoMemory) return listed;
    // One that cannot be listed has nothing below it.
    return listed != status::kOk ? status::kOk : Visit(file_path, below, path + "/", depth + 1, visitor);
  }

  EngStatus VisitFile(const std::string& file_path, const FolderEntry& entry, const std::string& path,
                      Visitor visitor) const {
    if (databases_ == Choice::kNone || !entry.is_file) return status::kOk;
    // A name that is nothing but the extension has none.
    const size_t dot = entry.name.rfind('.');
    if (dot == std::string::npos || dot == 0) return status::kOk;
    if (!EqualFold(std::string_view(entry.name).substr(dot), kDatabaseExtension)) return status::kOk;
    const std::optional<OpenedFacts> facts = ReadOpened(file_path);
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
    summary->AddText("$Info", found.facts->info);
    summary->AddNumber("$Length", static_cast<double>(found.entry.file_bytes));
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
