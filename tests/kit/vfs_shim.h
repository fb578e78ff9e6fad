// A file system for SQLite that wraps the system's one and plays four parts:
//   killer      ends this process at the n-th write, sync, truncation or deletion (half the write is done)
//   power       remembers what was written since the last sync of each file, and writes out what a disk might
//               hold after the power failed at this moment: any sectors of any unsynced writes
//   fault       makes the n-th operation of chosen kinds fail, once or from then on
//   scheduler   calls a hook at every lock, unlock, change and at the points where SQLite lets go of a mapped
//               page
// (1) It needs nothing but SQLite, so that tests of any layer can use it.
// (2) Counters and switches are of the process; Reset puts all back. They may be used from several threads.
#ifndef KAVRIN_TESTS_KIT_VFS_SHIM_H
#define KAVRIN_TESTS_KIT_VFS_SHIM_H

#include <cstdint>
#include <functional>
#include <string>

namespace vfs_shim {

enum class Operation : uint8_t {
  kOpen,
  kRead,
  kWrite,
  kTruncate,
  kSync,
  kDelete,
  kLock,
  kUnlock,
  kShmLock,
  kShmUnlock,
  kUnfetch
};

constexpr uint32_t Bit(Operation operation) { return 1u << static_cast<unsigned>(operation); }

// What changes the disk: the operations that the killer counts.
inline constexpr uint32_t kChanges =
    Bit(Operation::kWrite) | Bit(Operation::kTruncate) | Bit(Operation::kSync) | Bit(Operation::kDelete);

struct Event {
  Operation operation;
  std::string path;        // empty for files without a name
  bool null_page = false;  // of kUnfetch: SQLite lets go of everything mapped
};

// Registers the file system (once) and gives its name.
const char* Name();

// Takes back every switch, forgets every count.
void Reset();

// --- killer
// ----------------------------------------------------------------------------------------------------------
// The process kills itself at the n-th change from now, counted from 1; 0 never.
void KillAtChange(uint64_t nth);
uint64_t ChangeCount();  // changes since Reset or KillAtChange

// --- fault
// -----------------------------------------------------------------------------------------------------------
struct Fault {
  uint32_t operations = 0;  // bits of the kinds that count and fail
  uint64_t nth = 0;         // the first that fails, counted from 1; 0 none
  bool for_good = false;    // all later ones too
  int result = 0;           // result of SQLite; 0: the usual one of the operation
};
void SetFault(const Fault& fault);
void PauseFaults(bool pause);  // meanwhile operations neither count nor fail
uint64_t FaultsHit();          // operations that were made to fail since SetFault

// --- power
// -----------------------------------------------------------------------------------------------------------
// From here on writes are remembered; what files hold now counts as being on disk.
void StartPowerModel();
uint64_t UnsyncedWrites();  // remembered ones of all files

// Writes the files as they might be found after a power failure now into a folder, under their own last
// names. Each sector of each unsynced write is there with the given chance (0..100). The same seed gives the
// same files.
void WriteAfterPowerLoss(const std::string& folder, uint64_t seed, uint32_t chance_percent);

// Syncs succeed without troubling the disk: for tests in which only processes die.
void SkipRealSyncs(bool skip);

// --- scheduler
// -------------------------------------------------------------------------------------------------------
// Called before each operation but reads, in the thread that does it, unless a hook is already running in it.
// An empty one: none.
void SetHook(std::function<void(const Event&)> hook);

}  // namespace vfs_shim

#endif  // KAVRIN_TESTS_KIT_VFS_SHIM_H
