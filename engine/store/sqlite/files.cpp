// Whole files: opening, making, removing, copying, looking at them.
// A new file is made under a name of its own beside the target, synced, and then given the target's name: the
// target is whole or absent. Who makes one holds a shared lock of the folder meanwhile; so whoever gets the
// folder for itself knows that new files found there were left by a crash, and removes those of its target. A
// file that gives way is first claimed: taken out of log mode under SQLite's exclusive lock, which nobody
// gets while anyone has it open.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <vector>

#include "base/boundary.h"
#include "base/process.h"
#include "store/sqlite/handle.h"

namespace brynd::store {

namespace {

constexpr uint32_t kClaimTimeoutMs = 50;
constexpr int kOpenAttempts = 8;

std::atomic<const char*> default_vfs{nullptr};

OpenOptions WithVfs(OpenOptions options) {
  if (options.vfs == nullptr) options.vfs = default_vfs;
  return options;
}

struct ErrorRow {
  int error;
  EngStatus status;
};

constexpr ErrorRow kErrors[] = {
    {ENOENT, status::kNoFile},  {ENOTDIR, status::kNoFile},    {EACCES, status::kNoAccess},
    {EPERM, status::kNoAccess}, {ENOSPC, status::kDiskFull},   {EDQUOT, status::kDiskFull},
    {EROFS, status::kReadOnly}, {EEXIST, status::kFileExists}, {ENAMETOOLONG, status::kBadPath},
    {ELOOP, status::kBadPath},  {ENOMEM, status::kNoMemory},
};

EngStatus StatusOfError(int error) noexcept {
  for (const ErrorRow& row : kErrors) {
    if (row.error == error) return row.status;
  }
  return status::kIoError;
}

// The one absolute name of a file. An absolute name is also never taken for a URI by SQLite.
std::string Resolved(const std::string& path) {
  char resolved[PATH_MAX];
  if (realpath(path.c_str(), resolved) == nullptr) Fail(StatusOfError(errno));
  return resolved;
}

void CheckPath(const std::string& path) {
  const bool usable = !path.empty() && path.size() < PATH_MAX - 64 && path.find('\0') == std::string::npos;
  if (!usable || path.back() == '/') Fail(status::kBadPath);
}

std::string ExistingPath(const std::string& path) {
  CheckPath(path);
  std::string resolved = Resolved(path);
  struct stat facts;
  if (stat(resolved.c_str(), &facts) != 0) Fail(StatusOfError(errno));
  if (S_ISDIR(facts.st_mode)) Fail(status::kIsDirectory);
  if (!S_ISREG(facts.st_mode)) Fail(status::kNotDatabase);
  return resolved;
}

// A name that may be taken: an existing file's, or a free one in an existing directory.
std::string TargetPath(const std::string& path) {
  CheckPath(path);
  struct stat facts;
  if (stat(path.c_str(), &facts) == 0) return ExistingPath(path);
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const std::string resolved = Resolved(folder);
  return (resolved == "/" ? resolved : resolved + "/") + name;
}

void SyncFolderOf(const std::string& path) {
  const std::string folder = path.substr(0, std::max<size_t>(path.rfind('/'), 1));
  const int descriptor =
      ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);  // tidy-allow: a folder, no file
  if (descriptor < 0) Fail(StatusOfError(errno));
  const int result = fsync(descriptor);
  close(descriptor);
  if (result != 0) Fail(status::kSyncFailed);
}

constexpr const char* kBesides[] = {"", "-wal", "-shm", "-journal"};
constexpr size_t kRandomDigits = 16;

// Whether a name is that of a new file of the target, or of what lies beside one.
bool IsNewFileOf(std::string_view target_name, std::string_view name) {
  if (!name.starts_with(target_name) || name.size() < target_name.size() + 1 + kRandomDigits) return false;
  name.remove_prefix(target_name.size());
  const std::string_view digits = name.substr(1, kRandomDigits), beside = name.substr(1 + kRandomDigits);
  return name[0] == '~' && digits.find_first_not_of("0123456789abcdef") == std::string_view::npos &&
         std::ranges::find(kBesides, beside) != std::end(kBesides);
}

// Holds a lock of a folder that no one needs but those who make files in it. A lock by flock: it goes with
// the process, and not with whatever else the process closes. Where folders cannot be locked nothing is
// removed.
class FolderLock {
 public:
  explicit FolderLock(const std::string& target) {
    const size_t slash = target.rfind('/');
    const std::string folder = target.substr(0, std::max<size_t>(slash, 1));
    folder_ = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);  // tidy-allow: a folder, no file
    if (folder_ < 0) return;
    if (flock(folder_, LOCK_EX | LOCK_NB) == 0) RemoveLeftovers(folder, target.substr(slash + 1));
    while (flock(folder_, LOCK_SH) != 0 && errno == EINTR) {
    }
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;
  ~FolderLock() {
    if (folder_ >= 0) close(folder_);
  }

 private:
  // What fails here fails for the next one too, and harms nobody.
  static void RemoveLeftovers(const std::string& folder, const std::string& target_name) {
    struct CloseFolder {
      void operator()(DIR* opened) const noexcept { closedir(opened); }
    };
    const std::unique_ptr<DIR, CloseFolder> opened(opendir(folder.c_str()));
    while (const dirent* entry = opened == nullptr ? nullptr : readdir(opened.get())) {
      if (!IsNewFileOf(target_name, entry->d_name)) continue;
      const std::string path = folder + "/" + entry->d_name;
      struct stat facts;
      if (lstat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) && !SharedFile::IsOpen(path))
        unlink(path.c_str());
    }
  }

  int folder_ = -1;
};

// A file under a name of its own beside the target; gone with this record unless it was published.
class NewFile {
 public:
  explicit NewFile(const std::string& target) : lock_(target), target_(target) {
    char suffix[24];
    std::snprintf(suffix, sizeof suffix, "~%016llx",
                  static_cast<unsigned long long>(Process().random->U64()));
    path_ = target + suffix;
    for (const char* beside : kBesides) leftovers_.push_back(path_ + beside);
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile() {
    for (const std::string& leftover : leftovers_) unlink(leftover.c_str());
  }

  const std::string& Path() const noexcept { return path_; }

  void PublishAsNew() {
    if (link(path_.c_str(), target_.c_str()) != 0) Fail(StatusOfError(errno));
    const EngStatus synced = AtBoundary([&] { SyncFolderOf(target_); });
    if (synced == status::kOk) return;
    unlink(target_.c_str());
    Fail(synced);
  }
  void PublishOver() {
    if (rename(path_.c_str(), target_.c_str()) != 0) Fail(StatusOfError(errno));
    SyncFolderOf(target_);
  }

 private:
  const FolderLock lock_;
  const std::string target_;
  std::string path_;
  std::vector<std::string> leftovers_;  // made beforehand: the end of a failure must need no memory
};

// Holds a database file that nobody else has open, until it has given way.
class Claim {
 public:
  Claim(const std::string& path, const OpenOptions& options) {
    const EngStatus code = AtBoundary([&] {
      if (SharedFile::IsOpen(path)) Fail(status::kFileInUse);
      connection_ = std::make_unique<Connection>(
          path, ConnectionOptions{.vfs = options.vfs, .busy_timeout_ms = kClaimTimeoutMs});
      connection_->Execute("PRAGMA journal_mode=DELETE");
      connection_->Execute("BEGIN EXCLUSIVE");
    });
    if (code == status::kBusy) Fail(status::kFileInUse);
    if (code != status::kOk && code != status::kDamaged) Fail(code);  // a damaged one may go too
  }

 private:
  std::unique_ptr<Connection> connection_;
};

// Gives a new file its marks, brings it to disk and closes it.
void FinishFile(Connection& connection, const std::string& path) {
  WriteInstance(connection, {.instance_id = Process().random->U64() | 1, .mark = MarkOf(path)});
  if (connection.Text("PRAGMA journal_mode=WAL") != "wal") Fail(status::kIoError);
  sqlite3_file* file = connection.MainFile();
  if (file == nullptr) Fail(status::kInternal);
  if (const int result = file->pMethods->xSync(file, SQLITE_SYNC_NORMAL)) Connection::FailWith(result);
}

// Puts a finished file in its place.
void Publish(NewFile& file, const std::string& target, bool overwrite, const OpenOptions& options) {
  struct stat facts;
  if (!overwrite || stat(target.c_str(), &facts) != 0) return file.PublishAsNew();
  CheckHeader(ReadHeader(target, options.vfs));  // only a database is ever replaced
  const Claim claim(target, options);
  file.PublishOver();
}

void CheckFree(const std::string& target, bool overwrite) {
  struct stat facts;
  if (!overwrite && stat(target.c_str(), &facts) == 0) Fail(status::kFileExists);
}

}  // namespace

std::unique_ptr<Database> Open(const std::string& path, const OpenOptions& given) {
  const OpenOptions options = WithVfs(given);
  for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
    const std::string resolved = ExistingPath(path);
    CheckHeader(ReadHeader(resolved, options.vfs));
    auto handle = std::make_unique<Handle>(resolved, options);
    if (!handle->FileHasMoved()) return handle;  // else the file was replaced between looking and opening
  }
  Fail(status::kBusy);
}

std::unique_ptr<Database> Create(const std::string& path, const CreateOptions& given) {
  const OpenOptions options = WithVfs(given.open);
  const std::string target = TargetPath(path);
  CheckFree(target, given.overwrite);
  {
    NewFile file(target);
    {
      Connection connection(file.Path(), {.access = Access::kMake, .vfs = options.vfs});
      connection.Execute("PRAGMA synchronous=OFF");  // synced once, whole, at the end
      MakeSchema(connection, given.file_class, given.page_bytes);
      FinishFile(connection, file.Path());
    }
    Publish(file, target, given.overwrite, options);
  }
  // A database that was made and cannot be opened goes again: whoever asked for it was told that there is
  // none.
  std::unique_ptr<Database> opened;
  const EngStatus code = AtBoundary([&] { opened = Open(target, options); });
  if (code == status::kOk) return opened;
  unlink(target.c_str());
  Fail(code);
}

void Remove(const std::string& path, const OpenOptions& given) {
  const OpenOptions options = WithVfs(given);
  const std::string target = ExistingPath(path);
  CheckHeader(ReadHeader(target, options.vfs));
  const Claim claim(target, options);
  if (unlink(target.c_str()) != 0) Fail(StatusOfError(errno));
  for (const char* beside : {"-wal", "-shm", "-journal"}) unlink((target + beside).c_str());
  SyncFolderOf(target);
}

void Copy(const std::string& source, const std::string& target_path, const CopyOptions& given) {
  const OpenOptions options = WithVfs(given.open);
  const std::string target = TargetPath(target_path);
  CheckFree(target, given.overwrite);
  OpenOptions source_options = options;
  source_options.cache_bytes = 1u << 20;
  const std::unique_ptr<Database> opened = Open(source, source_options);
  if (opened->Path() == target) Fail(status::kFileInUse);
  static_cast<Handle&>(*opened).EndBatchesOfOthers();
  NewFile file(target);
  {
    Connection reader(opened->Path(), {.access = Access::kReadOnly,
                                       .vfs = options.vfs,
                                       .busy_timeout_ms = options.busy_timeout_ms,
                                       .may_attach = true});
    const StatementOwner copy = reader.Prepare("VACUUM INTO ?1");
    sqlite3_bind_text(copy.get(), 1, file.Path().c_str(), -1, SQLITE_STATIC);
    const int result = sqlite3_step(copy.get());
    if (result != SQLITE_DONE) Connection::FailWith(result);
  }
  {
    Connection connection(file.Path(), {.vfs = options.vfs});
    connection.Execute("PRAGMA synchronous=OFF; PRAGMA journal_mode=MEMORY");
    VerifySchema(connection);
    FinishFile(connection, file.Path());
  }
  Publish(file, target, given.overwrite, options);
}

bool Exists(const std::string& path) {
  struct stat facts;
  return stat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode);
}

FileInfo Inspect(const std::string& path, const OpenOptions& given) {
  return ReadHeader(ExistingPath(path), WithVfs(given).vfs);
}

void SetDefaultVfs(const char* name) { default_vfs = name; }

size_t OpenHandleCount() { return Committer::OfProcess().ClientCount(); }

}  // namespace brynd::store
