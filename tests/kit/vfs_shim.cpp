#include "kit/vfs_shim.h"

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <vector>

namespace vfs_shim {

namespace {

constexpr size_t kSectorBytes = 512;

using Content = std::vector<unsigned char>;

// One remembered change of a file: bytes at an offset, or (no bytes) a new size.
struct Change {
  int64_t offset = 0;
  Content bytes;
  bool is_truncation = false;
};

struct PowerFile {
  Content on_disk;
  std::vector<Change> unsynced;
};

struct State {
  std::mutex mutex;
  uint64_t kill_at = 0, change_count = 0;
  Fault fault;
  uint64_t fault_count = 0, faults_hit = 0;
  bool power_on = false, skip_syncs = false, faults_paused = false;
  std::map<std::string, PowerFile> files;
  std::shared_ptr<const std::function<void(const Event&)>> hook;
  std::atomic<bool> any_hook{false};
};

State& TheState() {
  static State state;
  return state;
}

thread_local bool in_hook = false;

sqlite3_vfs* system_vfs = nullptr;

struct File {
  sqlite3_file base;
  sqlite3_file* real;
  const std::string* path;  // owned; null for files without a name
};

File* Self(sqlite3_file* file) { return reinterpret_cast<File*>(file); }
sqlite3_file* Real(sqlite3_file* file) { return Self(file)->real; }
std::string PathOf(sqlite3_file* file) {
  return Self(file)->path == nullptr ? std::string() : *Self(file)->path;
}

int UsualResult(Operation operation) {
  switch (operation) {
    case Operation::kOpen:
      return SQLITE_CANTOPEN;
    case Operation::kRead:
      return SQLITE_IOERR_READ;
    case Operation::kWrite:
      return SQLITE_IOERR_WRITE;
    case Operation::kTruncate:
      return SQLITE_IOERR_TRUNCATE;
    case Operation::kSync:
      return SQLITE_IOERR_FSYNC;
    case Operation::kDelete:
      return SQLITE_IOERR_DELETE;
    case Operation::kLock:
      return SQLITE_IOERR_LOCK;
    default:
      return SQLITE_IOERR;
  }
}

void RunHook(const Event& event) {
  if (in_hook || !TheState().any_hook) return;
  std::shared_ptr<const std::function<void(const Event&)>> hook;
  {
    const std::lock_guard lock(TheState().mutex);
    hook = TheState().hook;
  }
  if (hook == nullptr) return;
  in_hook = true;
  (*hook)(event);
  in_hook = false;
}

// Counts an operation: says which result it fails with, and whether the process is to die in it.
struct Verdict {
  int result = SQLITE_OK;
  bool dies = false;
};

Verdict Judge(Operation operation) {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  Verdict verdict;
  if ((kChanges & Bit(operation)) != 0 && ++state.change_count == state.kill_at) verdict.dies = true;
  if ((state.fault.operations & Bit(operation)) != 0 && state.fault.nth != 0 && !state.faults_paused) {
    ++state.fault_count;
    if (state.fault_count == state.fault.nth ||
        (state.fault.for_good && state.fault_count > state.fault.nth)) {
      ++state.faults_hit;
      verdict.result = state.fault.result != 0 ? state.fault.result : UsualResult(operation);
    }
  }
  return verdict;
}

[[noreturn]] void Die() {
  kill(getpid(), SIGKILL);
  std::abort();
}

void Remember(sqlite3_file* file, Change change) {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  if (state.power_on && Self(file)->path != nullptr) {
    state.files[*Self(file)->path].unsynced.push_back(std::move(change));
  }
}

void Apply(Content* content, const Change& change) {
  const auto offset = static_cast<size_t>(change.offset);
  if (change.is_truncation) return content->resize(offset);
  if (content->size() < offset + change.bytes.size()) content->resize(offset + change.bytes.size());
  std::copy(change.bytes.begin(), change.bytes.end(), content->begin() + static_cast<std::ptrdiff_t>(offset));
}

// --- methods of a file
// -----------------------------------------------------------------------------------------------

int Close(sqlite3_file* file) {
  const int result = Real(file)->pMethods->xClose(Real(file));
  std::free(Real(file));
  delete Self(file)->path;
  file->pMethods = nullptr;
  return result;
}

int Read(sqlite3_file* file, void* target, int byte_count, sqlite3_int64 offset) {
  if (const int result = Judge(Operation::kRead).result) return result;
  return Real(file)->pMethods->xRead(Real(file), target, byte_count, offset);
}

int Write(sqlite3_file* file, const void* source, int byte_count, sqlite3_int64 offset) {
  RunHook({.operation = Operation::kWrite, .path = PathOf(file)});
  const Verdict verdict = Judge(Operation::kWrite);
  if (verdict.result != SQLITE_OK) return verdict.result;
  if (verdict.dies) {
    Real(file)->pMethods->xWrite(Real(file), source, byte_count / 2, offset);
    Die();
  }
  const auto* bytes = static_cast<const unsigned char*>(source);
  Remember(file, {.offset = offset, .bytes = Content(bytes, bytes + byte_count)});
  return Real(file)->pMethods->xWrite(Real(file), source, byte_count, offset);
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) {
  RunHook({.operation = Operation::kTruncate, .path = PathOf(file)});
  const Verdict verdict = Judge(Operation::kTruncate);
  if (verdict.result != SQLITE_OK) return verdict.result;
  if (verdict.dies) Die();
  Remember(file, {.offset = size, .bytes = {}, .is_truncation = true});
  return Real(file)->pMethods->xTruncate(Real(file), size);
}

int Sync(sqlite3_file* file, int flags) {
  RunHook({.operation = Operation::kSync, .path = PathOf(file)});
  const Verdict verdict = Judge(Operation::kSync);
  if (verdict.result != SQLITE_OK) return verdict.result;
  if (verdict.dies) Die();
  {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    if (state.power_on && Self(file)->path != nullptr) {
      PowerFile& power = state.files[*Self(file)->path];
      for (const Change& change : power.unsynced) Apply(&power.on_disk, change);
      power.unsynced.clear();
      return SQLITE_OK;  // the model is the disk
    }
    if (state.skip_syncs) return SQLITE_OK;
  }
  return Real(file)->pMethods->xSync(Real(file), flags);
}

int FileSize(sqlite3_file* file, sqlite3_int64* size) {
  return Real(file)->pMethods->xFileSize(Real(file), size);
}

int Lock(sqlite3_file* file, int level) {
  RunHook({.operation = Operation::kLock, .path = PathOf(file)});
  if (const int result = Judge(Operation::kLock).result) return result;
  return Real(file)->pMethods->xLock(Real(file), level);
}

int Unlock(sqlite3_file* file, int level) {
  RunHook({.operation = Operation::kUnlock, .path = PathOf(file)});
  return Real(file)->pMethods->xUnlock(Real(file), level);
}

int CheckReservedLock(sqlite3_file* file, int* out) {
  return Real(file)->pMethods->xCheckReservedLock(Real(file), out);
}
int FileControl(sqlite3_file* file, int operation, void* argument) {
  return Real(file)->pMethods->xFileControl(Real(file), operation, argument);
}
int SectorSize(sqlite3_file* file) { return Real(file)->pMethods->xSectorSize(Real(file)); }
int Characteristics(sqlite3_file* file) { return Real(file)->pMethods->xDeviceCharacteristics(Real(file)); }
int ShmMap(sqlite3_file* file, int region, int size, int extend, void volatile** out) {
  return Real(file)->pMethods->xShmMap(Real(file), region, size, extend, out);
}

int ShmLock(sqlite3_file* file, int offset, int count, int flags) {
  const bool unlock = (flags & SQLITE_SHM_UNLOCK) != 0;
  RunHook({.operation = unlock ? Operation::kShmUnlock : Operation::kShmLock, .path = PathOf(file)});
  return Real(file)->pMethods->xShmLock(Real(file), offset, count, flags);
}

void ShmBarrier(sqlite3_file* file) { Real(file)->pMethods->xShmBarrier(Real(file)); }
int ShmUnmap(sqlite3_file* file, int remove) { return Real(file)->pMethods->xShmUnmap(Real(file), remove); }

// Nothing is ever mapped, so that each page is read and written through the methods above.
int Fetch(sqlite3_file*, sqlite3_int64, int, void** out) {
  *out = nullptr;
  return SQLITE_OK;
}

int Unfetch(sqlite3_file* file, sqlite3_int64, void* page) {
  RunHook({.operation = Operation::kUnfetch, .path = PathOf(file), .null_page = page == nullptr});
  return SQLITE_OK;
}

const sqlite3_io_methods kMethods = {3,
                                     Close,
                                     Read,
                                     Write,
                                     Truncate,
                                     Sync,
                                     FileSize,
                                     Lock,
                                     Unlock,
                                     CheckReservedLock,
                                     FileControl,
                                     SectorSize,
                                     Characteristics,
                                     ShmMap,
                                     ShmLock,
                                     ShmBarrier,
                                     ShmUnmap,
                                     Fetch,
                                     Unfetch};

// --- methods of the file system
// --------------------------------------------------------------------------------------

int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out_flags) {
  File* self = Self(file);
  *self = File{};
  if (const int result = Judge(Operation::kOpen).result) return result;
  self->real = static_cast<sqlite3_file*>(std::calloc(1, static_cast<size_t>(system_vfs->szOsFile)));
  if (self->real == nullptr) return SQLITE_NOMEM;
  const int result = system_vfs->xOpen(system_vfs, name, self->real, flags, out_flags);
  if (result != SQLITE_OK) {
    std::free(self->real);
    return result;
  }
  self->path = name == nullptr ? nullptr : new std::string(name);
  file->pMethods = &kMethods;
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  if (state.power_on && name != nullptr && !state.files.contains(name)) {
    // Read through the file just opened: opening and closing another would drop this process's locks on it.
    PowerFile& power = state.files[name];
    sqlite3_int64 size = 0;
    self->real->pMethods->xFileSize(self->real, &size);
    power.on_disk.resize(static_cast<size_t>(size));
    if (size != 0) self->real->pMethods->xRead(self->real, power.on_disk.data(), static_cast<int>(size), 0);
  }
  return SQLITE_OK;
}

int Delete(sqlite3_vfs*, const char* name, int sync_folder) {
  RunHook({.operation = Operation::kDelete, .path = name});
  const Verdict verdict = Judge(Operation::kDelete);
  if (verdict.result != SQLITE_OK) return verdict.result;
  if (verdict.dies) Die();
  const int result = system_vfs->xDelete(system_vfs, name, sync_folder);
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  if (state.power_on) state.files.erase(name);
  return result;
}

int Access(sqlite3_vfs*, const char* name, int flags, int* out) {
  return system_vfs->xAccess(system_vfs, name, flags, out);
}
int FullPathname(sqlite3_vfs*, const char* name, int byte_count, char* out) {
  return system_vfs->xFullPathname(system_vfs, name, byte_count, out);
}

sqlite3_vfs MakeVfs() {
  sqlite3_initialize();
  system_vfs = sqlite3_vfs_find(nullptr);
  sqlite3_vfs vfs = *system_vfs;
  vfs.pNext = nullptr;
  vfs.zName = "shim";
  vfs.szOsFile = sizeof(File);
  vfs.xOpen = Open;
  vfs.xDelete = Delete;
  vfs.xAccess = Access;
  vfs.xFullPathname = FullPathname;
  return vfs;
}

}  // namespace

const char* Name() {
  static sqlite3_vfs vfs = [] { return MakeVfs(); }();
  static const int registered = sqlite3_vfs_register(&vfs, 0);
  return registered == SQLITE_OK ? vfs.zName : nullptr;
}

void Reset() {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  state.kill_at = state.change_count = 0;
  state.fault = {};
  state.fault_count = state.faults_hit = 0;
  state.power_on = state.skip_syncs = state.faults_paused = false;
  state.files.clear();
  state.hook = nullptr;
  state.any_hook = false;
}

void KillAtChange(uint64_t nth) {
  const std::lock_guard lock(TheState().mutex);
  TheState().kill_at = nth;
  TheState().change_count = 0;
}

uint64_t ChangeCount() {
  const std::lock_guard lock(TheState().mutex);
  return TheState().change_count;
}

void SetFault(const Fault& fault) {
  const std::lock_guard lock(TheState().mutex);
  TheState().fault = fault;
  TheState().fault_count = TheState().faults_hit = 0;
}

void PauseFaults(bool pause) {
  const std::lock_guard lock(TheState().mutex);
  TheState().faults_paused = pause;
}

uint64_t FaultsHit() {
  const std::lock_guard lock(TheState().mutex);
  return TheState().faults_hit;
}

void StartPowerModel() {
  const std::lock_guard lock(TheState().mutex);
  TheState().files.clear();
  TheState().power_on = true;
}

uint64_t UnsyncedWrites() {
  const std::lock_guard lock(TheState().mutex);
  uint64_t count = 0;
  for (const auto& [path, file] : TheState().files) count += file.unsynced.size();
  return count;
}

void WriteAfterPowerLoss(const std::string& folder, uint64_t seed, uint32_t chance_percent) {
  const std::lock_guard lock(TheState().mutex);
  std::mt19937_64 random(seed);
  for (const auto& [path, file] : TheState().files) {
    Content content = file.on_disk;
    for (const Change& change : file.unsynced) {
      if (change.is_truncation) {
        if (random() % 100 < chance_percent) Apply(&content, change);
        continue;
      }
      for (size_t at = 0; at < change.bytes.size();) {
        const size_t within = static_cast<size_t>(change.offset) + at;
        const size_t length = std::min(change.bytes.size() - at, kSectorBytes - within % kSectorBytes);
        const auto* begin = change.bytes.data() + at;
        if (random() % 100 < chance_percent) {
          Apply(&content, {.offset = static_cast<int64_t>(within), .bytes = Content(begin, begin + length)});
        }
        at += length;
      }
    }
    const std::string target = folder + "/" + path.substr(path.rfind('/') + 1);
    std::unique_ptr<FILE, int (*)(FILE*)> out(std::fopen(target.c_str(), "wb"), std::fclose);
    if (out == nullptr) std::abort();
    if (!content.empty() && std::fwrite(content.data(), 1, content.size(), out.get()) != content.size())
      std::abort();
  }
}

void SkipRealSyncs(bool skip) {
  const std::lock_guard lock(TheState().mutex);
  TheState().skip_syncs = skip;
}

void SetHook(std::function<void(const Event&)> hook) {
  const std::lock_guard lock(TheState().mutex);
  TheState().any_hook = hook != nullptr;
  TheState().hook =
      hook == nullptr ? nullptr : std::make_shared<const std::function<void(const Event&)>>(std::move(hook));
}

}  // namespace vfs_shim
