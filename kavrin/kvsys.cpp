// The layer to the operating system. It holds no state but the clock and the sleep that tests replace.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <charconv>
#include <ctime>
#include <iterator>

#include "kvint_system.h"

// ---- Clock and sleep

static int64_t ReadClock() { return static_cast<int64_t>(std::time(nullptr)); }

static void SleepThread(uint32_t msec) {
  timespec left{static_cast<time_t>(msec / 1000), static_cast<long>(msec % 1000) * 1000000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) continue;
}

const KVSYSTEM kv_operating_system{ReadClock, SleepThread};
constinit const KVSYSTEM* pgSystem = &kv_operating_system;

void KVISleep(uint32_t msec) { pgSystem->sleep(msec); }

// How long a server task may stay deaf to a request to stop.
static constexpr int64_t kPollMs = 5000;

// 1 when the task was told to stop before the polls are used up.
static int WaitPolling(int64_t polls, uint32_t rest_msec) {
  if (polls == 0 && EngTaskShouldStop() != 0) return 1;
  for (; polls > 0; --polls) {
    if (EngTaskShouldStop() != 0) return 1;
    KVISleep(static_cast<uint32_t>(kPollMs));
  }
  KVISleep(rest_msec);
  return 0;
}

static void ClearYield(int32_t* winyield) { KVIStoreIf(winyield, 0); }

// A time that has passed sleeps what is left of the difference taken as an unsigned word; callers give future
// times.
int BryndWait(uint32_t wait_until, int32_t* winyield) {
  const int64_t sleep_msec = (int64_t{wait_until} - pgSystem->seconds()) * 1000;
  const int64_t rest_msec =
      (sleep_msec >= 0 ? sleep_msec : int64_t{static_cast<uint32_t>(sleep_msec)}) % kPollMs;
  if (WaitPolling(sleep_msec / kPollMs, static_cast<uint32_t>(rest_msec)) != 0) return 1;
  ClearYield(winyield);
  return 0;
}

// Returns 1 when the time has passed too, unlike BryndWait: applications were built on it, so the difference
// stays.
int BryndYield(uint32_t msec, int32_t* winyield) {
  if (WaitPolling(msec / kPollMs, static_cast<uint32_t>(msec % kPollMs)) != 0) return 1;
  ClearYield(winyield);
  return 1;
}

// ---- Files

struct MODEROW {
  uint16_t flags;  // the low four open flags
  const char* text;
  const char* binary;
  const char* fresh;  // the file must not exist yet; null for modes that do not create
};

static constexpr MODEROW kModes[] = {
    {1, "r", "rb", nullptr},    {3, "r+", "r+b", nullptr}, {10, "r+", "r+b", nullptr},
    {11, "r+", "r+b", nullptr}, {6, "w", "wb", "wbx"},     {7, "w+", "w+b", "w+bx"},
    {14, "a", "ab", "abx"},     {15, "a+", "a+b", "a+bx"},
};
static constexpr uint16_t kModeMask = 15;

static const MODEROW* FindMode(uint16_t flags) {
  for (const MODEROW& row : kModes)
    if (row.flags == (flags & kModeMask)) return &row;
  return nullptr;
}

KVFILE KVIFileOpen(const char* filename, uint16_t flags) {
  const MODEROW* mode = FindMode(flags);
  if (mode == nullptr || filename == nullptr) return nullptr;
  return std::fopen(filename, (flags & KVFILE_BINARY) != 0 ? mode->binary : mode->text);
}

// The name is taken by making the file: a test before the making would race with other processes, and would
// miss a folder.
KVFILE KVIFileOpenTemp(char* filename, uint16_t flags) {
  constexpr unsigned kTempNameCount = 65000;
  if ((flags & KVFILE_CREATE) == 0) return nullptr;
  const MODEROW* mode = FindMode(flags);
  for (unsigned number = 0; number < kTempNameCount; ++number) {
    std::snprintf(filename, kTempNameBytes, "KVI%05u.TMP", number);
    if (mode == nullptr) continue;  // no name opens in a mode that is none
    if (KVFILE file = std::fopen(filename, mode->fresh)) return file;
  }
  return nullptr;
}

uint32_t KVIFileSeek(KVFILE file, int32_t position, uint16_t base) {
  static constexpr int kBases[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  if (base >= std::size(kBases)) return 0;
  if (std::fseek(file, position, kBases[base]) != 0) return 0;
  return static_cast<uint32_t>(std::ftell(file));
}

uint32_t KVIFileRead(KVFILE file, void* buffer, uint32_t length) {
  if (length > kFileMoveBytesMax) return 0;
  return static_cast<uint32_t>(std::fread(buffer, 1, length, file));
}

uint32_t KVIFileWrite(KVFILE file, const void* buffer, uint32_t length) {
  if (length > kFileMoveBytesMax) return 0;
  return static_cast<uint32_t>(std::fwrite(buffer, 1, length, file));
}

int KVIFileClose(KVFILE file) { return std::fclose(file); }

int KVIFileEOF(KVFILE file) { return std::feof(file); }

bool KVIFileDelete(const char* filename) { return std::remove(filename) == 0; }

char* KVIgetdir(char* directory, uint32_t length) {
  if (getcwd(directory, length) == nullptr && length != 0) *directory = 0;
  return directory;
}

// There are no drives here: a drive in front of the path is taken as selected.
int KVIchdir(const char* directory) {
  if (KVIEmpty(directory)) return -1;
  if (directory[1] == ':') directory += 2;
  return *directory != 0 && chdir(directory) == 0 ? 0 : -1;
}

// ---- Libraries

static bool IsLetter(char character) { return std::isalpha(static_cast<unsigned char>(character)) != 0; }

void KVIBryndLibBuildName(char* dest, const char* name) {
  if (dest == nullptr || name == nullptr) return;
  if (*name != 0 && !IsLetter(*name)) ++name;
  *dest = 'N';
  std::memcpy(dest + 1, name, std::strlen(name) + 1);
}

void KVIBryndLibGetExt(char* libname) { std::memcpy(libname, ".DLL", sizeof ".DLL"); }

uint16_t KVIBryndLibLoad(const char* name, void** modhand, void** proc) {
  constexpr size_t kNameBytesMax = 255;
  char built[kNameBytesMax + 2];
  *modhand = nullptr;
  if (proc != nullptr) *proc = nullptr;
  char cut[kNameBytesMax + 1];
  KVIstrnncpy(cut, name, kNameBytesMax);
  KVIBryndLibBuildName(built, cut);
  return EngLibraryLoad(built, 0, modhand, proc);
}

uint32_t KVIBryndProcGetAddrByName(const char* mod_name, const char* proc_name, void** hmod, void** address) {
  if (mod_name == nullptr) return KVFAIL_NULL_PARAM;
  if (proc_name == nullptr) return KVFAIL_NULL_PARAM;
  if (hmod == nullptr) return KVFAIL_NULL_PARAM;
  if (address == nullptr) return KVFAIL_NULL_PARAM;
  if (uint16_t brstatus = KVIBryndLibLoad(mod_name, hmod, nullptr)) return brstatus;
  *address = dlsym(*hmod, proc_name);
  if (*address != nullptr) return KVSUCCESS;
  EngLibraryFree(*hmod);
  *hmod = nullptr;
  return KVFAIL_NOT_FOUND;
}

// ---- Characters and strings

// First bytes 0x01 to 0x1f begin a sequence, except tab, line feed and carriage return.
const uint8_t kCharacterBytes[256] = {
    0, 2, 2, 2, 2, 2, 2, 2, 2, 0, 0, 2, 2, 0, 2, 2,  // 0x00 to 0x0f
    3, 3, 3, 3, 3, 3, 3, 3, 2, 2, 2, 2, 2, 2, 2, 2,  // 0x10 to 0x1f
};

char* KVIstrnncpy(char* string1, const char* string2, size_t count) {
  const size_t bytes = strnlen(string2, count);
  std::memmove(string1, string2, bytes);
  string1[bytes] = 0;
  return string1;
}

// Written without the process's locale, whose decimal sign may be another one.
char* KVIdtoa(double value, char* string, uint32_t length) {
  constexpr uint32_t kLengthMax = 18;
  constexpr uint32_t kSignAndPoint = 3;
  constexpr size_t kTextBytes = 32;
  if (length > kLengthMax) length = kLengthMax;
  const int digits = length > kSignAndPoint ? static_cast<int>(length - kSignAndPoint) : 1;
  const auto written =
      std::to_chars(string, string + kTextBytes - 1, value, std::chars_format::general, digits);
  *written.ptr = 0;
  return string;
}

const char* KVImemchr(const char* buf, char c, size_t count) {
  for (const char* end = buf + count; buf < end;) {
    const uint32_t bytes = KVICharacterBytes(*buf);
    if (bytes == 1 && *buf == c) return buf;
    if (bytes > static_cast<size_t>(end - buf)) return nullptr;
    buf += bytes;
  }
  return nullptr;
}

// Bytes of the character at string, cut short by a terminator inside it; 0 at the terminator.
static uint32_t StepBytes(const char* string) {
  const uint32_t bytes = KVICharacterBytes(*string);
  uint32_t step = 0;
  while (step < bytes && string[step] != 0) ++step;
  return step;
}

const char* KVIstrchr(const char* string, char c) {
  for (uint32_t step; (step = StepBytes(string)) != 0; string += step)
    if (KVICharacterBytes(*string) == 1 && *string == c) return string;
  return c == 0 ? string : nullptr;
}

const char* KVIstrrchr(const char* string, char c) {
  const char* last = nullptr;
  for (uint32_t step; (step = StepBytes(string)) != 0; string += step)
    if (KVICharacterBytes(*string) == 1 && *string == c) last = string;
  return c == 0 ? string : last;
}

static bool HoldsCharacter(const char* set, const char* character, uint32_t character_bytes) {
  for (uint32_t step; (step = StepBytes(set)) != 0; set += step)
    if (step == character_bytes && std::memcmp(set, character, step) == 0) return true;
  return false;
}

size_t KVIstrcspn(const char* string1, const char* string2) {
  const char* place = string1;
  for (uint32_t step; (step = StepBytes(place)) != 0; place += step)
    if (HoldsCharacter(string2, place, step)) break;
  return static_cast<size_t>(place - string1);
}
