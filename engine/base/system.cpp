// The system behind the seams of the process record. Nothing else in the engine but the store calls it
// directly.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "base/process.h"

namespace brynd {
namespace {

// Settings files are small; more than this is a mistake.
constexpr off_t kFileBytesMax = 64 << 20;

class FileDescriptor {
 public:
  explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  int get() const noexcept { return descriptor_; }
  bool IsOpen() const noexcept { return descriptor_ >= 0; }

 private:
  int descriptor_;
};

struct ErrorRow {
  int error;
  EngStatus code;
};
constexpr ErrorRow kErrors[] = {
    {ENOENT, status::kNoFile},       {EACCES, status::kNoAccess},      {EPERM, status::kNoAccess},
    {EISDIR, status::kIsDirectory},  {ENOTDIR, status::kNotDirectory}, {ENOSPC, status::kDiskFull},
    {EDQUOT, status::kDiskFull},     {EROFS, status::kNoAccess},       {EEXIST, status::kFileExists},
    {ENOMEM, status::kNoMemory},     {EMFILE, status::kTooManyOpen},   {ENFILE, status::kTooManyOpen},
    {ENAMETOOLONG, status::kBadPath}};

[[noreturn]] void FailErrno(int error) {
  for (const ErrorRow& row : kErrors)
    if (row.error == error) Fail(row.code);
  Fail(status::kIoError);
}

void WriteAll(int descriptor, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(descriptor, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) FailErrno(errno);
    content.remove_prefix(static_cast<size_t>(written));
  }
}

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

void SyncDirectory(const std::string& directory) {
  const FileDescriptor descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor.IsOpen() || ::fsync(descriptor.get()) != 0) Fail(status::kSyncFailed);
}

// A new file beside path with the content, synced, with the permissions of the one it will replace.
void WriteAside(const std::string& path, std::string_view content, std::string* aside) {
  *aside = path + ".XXXXXX";
  const FileDescriptor descriptor(::mkostemp(aside->data(), O_CLOEXEC));
  if (!descriptor.IsOpen()) {
    aside->clear();
    FailErrno(errno);
  }
  struct stat former = {};
  const mode_t mode = ::stat(path.c_str(), &former) == 0 ? former.st_mode & 07777 : 0644;
  if (::fchmod(descriptor.get(), mode) != 0) FailErrno(errno);
  WriteAll(descriptor.get(), content);
  if (::fsync(descriptor.get()) != 0) Fail(status::kSyncFailed);
}

class SystemClockSeam final : public Clock {
 public:
  int64_t UnixNanoseconds() override {
    using std::chrono::duration_cast, std::chrono::nanoseconds;
    return duration_cast<nanoseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
  }
  uint64_t MonotonicNanoseconds() override {
    using std::chrono::duration_cast, std::chrono::nanoseconds;
    const auto elapsed = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(duration_cast<nanoseconds>(elapsed).count());
  }
  void SleepMilliseconds(uint32_t milliseconds) override {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  }
};

class SystemRandomSeam final : public RandomSource {
 public:
  void Fill(MutableBytes target) override {
    while (!target.empty()) {
      const ssize_t filled = ::getrandom(target.data(), target.size(), 0);
      if (filled < 0 && errno == EINTR) continue;
      if (filled < 0) Fail(status::kInternal);
      target = target.subspan(static_cast<size_t>(filled));
    }
  }
};

class SystemFilesSeam final : public Files {
 public:
  std::optional<std::string> Read(const std::string& path) override {
    const FileDescriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!descriptor.IsOpen() && errno == ENOENT) return std::nullopt;
    if (!descriptor.IsOpen()) FailErrno(errno);
    struct stat facts = {};
    if (::fstat(descriptor.get(), &facts) != 0) FailErrno(errno);
    if (S_ISDIR(facts.st_mode)) Fail(status::kIsDirectory);
    if (facts.st_size > kFileBytesMax) Fail(status::kMemoryTooLarge);
    return ReadAll(descriptor.get());
  }

  void Replace(const std::string& path, std::string_view content) override {
    std::string aside;
    try {
      WriteAside(path, content, &aside);
      if (::rename(aside.c_str(), path.c_str()) != 0) FailErrno(errno);
    } catch (...) {
      if (!aside.empty()) ::unlink(aside.c_str());
      throw;
    }
    SyncDirectory(DirectoryOf(path));
  }

  bool Exists(const std::string& path) override {
    struct stat facts = {};
    return ::stat(path.c_str(), &facts) == 0;
  }

  bool IsDirectory(const std::string& path) override {
    struct stat facts = {};
    return ::stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
  }

  std::string CurrentDirectory() override {
    std::string directory(256, '\0');
    while (::getcwd(directory.data(), directory.size()) == nullptr) {
      if (errno != ERANGE) FailErrno(errno);
      directory.resize(directory.size() * 2);
    }
    directory.resize(directory.find('\0'));
    return directory;
  }

  // Plain calls: the standard library's iterator ends the process when memory is short.
  std::vector<FolderEntry> List(const std::string& folder) override {
    struct CloseFolder {
      void operator()(DIR* opened) const noexcept { ::closedir(opened); }
    };
    const std::unique_ptr<DIR, CloseFolder> opened(::opendir(folder.c_str()));
    if (opened == nullptr) FailErrno(errno);
    std::vector<FolderEntry> entries;
    for (;;) {
      errno = 0;
      const dirent* found = ::readdir(opened.get());
      if (found == nullptr) break;
      const std::string_view name = found->d_name;
      if (name != "." && name != "..") entries.push_back(EntryOf(::dirfd(opened.get()), found->d_name));
    }
    if (errno != 0) FailErrno(errno);
    std::ranges::sort(entries, {}, &FolderEntry::name);
    return entries;
  }

  void WithLockFile(const std::string& path, const std::function<void()>& body) override {
    // Closing the descriptor gives the lock back. The file stays: removing it would let two processes lock
    // two files.
    const FileDescriptor descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!descriptor.IsOpen()) FailErrno(errno);
    while (::flock(descriptor.get(), LOCK_EX) != 0)
      if (errno != EINTR) FailErrno(errno);
    body();
  }

 private:
  static FolderEntry EntryOf(int folder, const char* name) {
    FolderEntry entry{.name = name};
    struct stat facts = {};
    entry.is_link = ::fstatat(folder, name, &facts, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(facts.st_mode);
    if (::fstatat(folder, name, &facts, 0) != 0) return entry;
    entry.is_folder = S_ISDIR(facts.st_mode);
    entry.is_file = S_ISREG(facts.st_mode);
    entry.file_bytes = static_cast<uint64_t>(facts.st_size);
    entry.modified_hundredths = int64_t{facts.st_mtim.tv_sec} * 100 + facts.st_mtim.tv_nsec / 10000000;
    return entry;
  }

  static std::string ReadAll(int descriptor) {
    std::string content;
    char piece[16384];
    for (;;) {
      const ssize_t got = ::read(descriptor, piece, sizeof piece);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) FailErrno(errno);
      if (got == 0) return content;
      content.append(piece, static_cast<size_t>(got));
      if (content.size() > static_cast<size_t>(kFileBytesMax)) Fail(status::kMemoryTooLarge);
    }
  }
};

class SystemEnvironmentSeam final : public Environment {
 public:
  std::optional<std::string> Variable(const char* name) override {
    const char* value = std::getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
  }
};

class StandardErrorSink final : public LogSink {
 public:
  void Line(std::string_view text) override {
    std::lock_guard lock(mutex_);
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
  }

 private:
  std::mutex mutex_;
};

}  // namespace

// Function-local and never destroyed in use: each is reachable from the process record, which lives to the
// end.
Clock& SystemClock() noexcept {
  static SystemClockSeam seam;
  return seam;
}
RandomSource& SystemRandom() noexcept {
  static SystemRandomSeam seam;
  return seam;
}
Files& SystemFiles() noexcept {
  static SystemFilesSeam seam;
  return seam;
}
Environment& SystemEnvironment() noexcept {
  static SystemEnvironmentSeam seam;
  return seam;
}
LogSink& StandardErrorLog() noexcept {
  static StandardErrorSink seam;
  return seam;
}

}  // namespace brynd
