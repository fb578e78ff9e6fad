// The process record: what the whole engine of a process shares, made ready by EngInit, and the seams to the
// system.
// (1) Clock, random numbers, files, environment, settings and log are reached through this record alone.
// (2) The seams are always set; a test replaces one with SeamGuard while no other thread uses the engine.
// (3) Start and Stop are counted; the last Stop runs the term hooks, latest first, and reports what leaked.
#ifndef BRYND_BASE_PROCESS_H
#define BRYND_BASE_PROCESS_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/bytes.h"
#include "base/status.h"
#include "brynd_types.h"

namespace brynd {

class Clock {
 public:
  virtual ~Clock() = default;
  // Nanoseconds since 1970-01-01 GMT, leap seconds ignored.
  virtual int64_t UnixNanoseconds() = 0;
  // Nanoseconds since some moment; never runs backwards. For waits and bounds.
  virtual uint64_t MonotonicNanoseconds() = 0;
  virtual void SleepMilliseconds(uint32_t milliseconds) = 0;

  // The instant now, marked with the local zone (base/time.cpp).
  TIMEDATE Now();
};

class RandomSource {
 public:
  virtual ~RandomSource() = default;
  virtual void Fill(MutableBytes target) = 0;  // unpredictable bytes
  uint64_t U64();
  uint32_t U32() { return static_cast<uint32_t>(U64()); }
};

// Small plain files: settings, reports. Databases are the business of the store alone. Paths are the
// system's.
// An entry of a folder. What a symbolic link leads to is told, and that it is one; a link that leads nowhere
// is neither a file nor a folder.
struct FolderEntry {
  std::string name;  // as the system writes it
  bool is_folder = false;
  bool is_file = false;  // a regular one
  bool is_link = false;
  uint64_t file_bytes = 0;
  int64_t modified_hundredths = 0;  // of seconds since 1970, Universal Time; 0 when unknown
};

class Files {
 public:
  virtual ~Files() = default;
  // The whole file; none when it does not exist. Fails with kNoAccess, kIsDirectory, kMemoryTooLarge,
  // kIoError.
  virtual std::optional<std::string> Read(const std::string& path) = 0;
  // Replaces the file whole: written aside, synced, renamed, the directory synced. A reader sees the old or
  // the new one.
  virtual void Replace(const std::string& path, std::string_view content) = 0;
  virtual bool Exists(const std::string& path) = 0;
  virtual bool IsDirectory(const std::string& path) = 0;
  virtual std::string CurrentDirectory() = 0;
  // All but `.` and `..`, by name as bytes. Fails with kNoFile, kNotDirectory, kNoAccess, kNoMemory,
  // kIoError.
  virtual std::vector<FolderEntry> List(const std::string& folder) = 0;
  // Runs body while this process alone holds the lock file of that path (made when missing). The lock is
  // between processes; between threads the caller has its own mutex.
  virtual void WithLockFile(const std::string& path, const std::function<void()>& body) = 0;
};

class Environment {
 public:
  virtual ~Environment() = default;
  virtual std::optional<std::string> Variable(const char* name) = 0;
};

// The settings file as the rest of the engine sees it. Names ignore case; names and values are UTF-8.
class SettingsStore {
 public:
  virtual ~SettingsStore() = default;
  virtual std::optional<std::string> Get(std::string_view name) = 0;
  virtual void Set(std::string_view name, std::string_view value) = 0;  // fails with a status
};

class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void Line(std::string_view text) = 0;  // one line, without its end; never fails
};

// The system's own, to be handed to a seam again.
Clock& SystemClock() noexcept;
RandomSource& SystemRandom() noexcept;
Files& SystemFiles() noexcept;
Environment& SystemEnvironment() noexcept;
LogSink& StandardErrorLog() noexcept;
SettingsStore& NoSettings() noexcept;  // knows nothing; Set fails with kNotInitialized

// What Stop has found still alive.
struct LeakReport {
  uint64_t blocks = 0, bytes = 0, locks = 0;
};

struct ProcessRecord {
  Clock* clock = &SystemClock();
  RandomSource* random = &SystemRandom();
  Files* files = &SystemFiles();
  Environment* environment = &SystemEnvironment();
  LogSink* log = &StandardErrorLog();
  SettingsStore* settings = &NoSettings();

  // Set by EngInit from the setting Directory; a system path without a slash at its end, empty before.
  std::string data_directory;

  // True once started. Lock-free.
  bool Started() const noexcept { return init_count_.load(std::memory_order_acquire) != 0; }

  // Counts a start; first runs for the first one, under the record's lock, and a failure of it undoes the
  // count.
  void Start(const std::function<void()>& first);

  // Counts a stop; the last one runs the term hooks, forgets them, resets settings and data_directory, and
  // logs what leaked. More stops than starts do nothing. What leaked is zero unless this was the last stop.
  LeakReport Stop() noexcept;

  // A hook is run by the last Stop and then forgotten; a layer registers again at its next first use. It must
  // not fail.
  void AtStop(std::function<void()> hook);

 private:
  std::atomic<uint32_t> init_count_{0};
  std::recursive_mutex mutex_;
  std::vector<std::function<void()>> hooks_;
};

// The record of this process; lives from the first call to the end of the process.
ProcessRecord& Process() noexcept;

// Replaces one seam for the life of the guard:  SeamGuard clock(Process().clock, &test_clock);
template <class Seam>
class SeamGuard {
 public:
  SeamGuard(Seam*& seam, Seam* replacement) noexcept
      : seam_(seam), former_(std::exchange(seam, replacement)) {}
  SeamGuard(const SeamGuard&) = delete;
  SeamGuard& operator=(const SeamGuard&) = delete;
  ~SeamGuard() { seam_ = former_; }

 private:
  Seam*& seam_;
  Seam* former_;
};
template <class Seam, class Replacement>
SeamGuard(Seam*&, Replacement*) -> SeamGuard<Seam>;

}  // namespace brynd

#endif
