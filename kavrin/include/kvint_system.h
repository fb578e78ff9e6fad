// The layer to the operating system: files, current directory, sleeping, engine-side libraries, and string
// routines that step over the multi-byte characters of the engine's text.
#ifndef KVINT_SYSTEM_H
#define KVINT_SYSTEM_H

#include <cstdio>

#include "kvint_support.h"

// Clock and sleep; a test puts its own in place.
struct KVSYSTEM {
  int64_t (*seconds)();  // since the C epoch
  void (*sleep)(uint32_t msec);
};
extern const KVSYSTEM kv_operating_system;
extern const KVSYSTEM* pgSystem;

using KVFILE = std::FILE*;  // null means failure

// Open flags; the low four select the mode as a whole.
constexpr uint16_t KVFILE_READ = 1;
constexpr uint16_t KVFILE_WRITE = 2;
constexpr uint16_t KVFILE_CREATE = 4;
constexpr uint16_t KVFILE_APPEND = 8;
constexpr uint16_t KVFILE_BINARY = 16;
constexpr uint32_t kFileMoveBytesMax = 65534;
constexpr size_t kTempNameBytes = 13;  // "KVI00000.TMP" and a NUL

KVFILE KVIFileOpen(const char* filename, uint16_t flags);
// Makes a new file "KVI%05d.TMP" in the current directory; filename receives its name and has kTempNameBytes.
KVFILE KVIFileOpenTemp(char* filename, uint16_t flags);
// The position after the move; base 0 start, 1 current, 2 end, any other gives 0.
uint32_t KVIFileSeek(KVFILE file, int32_t position, uint16_t base);
// Bytes moved; 65535 and more move nothing.
uint32_t KVIFileRead(KVFILE file, void* buffer, uint32_t length);
uint32_t KVIFileWrite(KVFILE file, const void* buffer, uint32_t length);
int KVIFileClose(KVFILE file);
int KVIFileEOF(KVFILE file);
bool KVIFileDelete(const char* filename);
// The current directory, empty when it needs more than length bytes with its NUL.
char* KVIgetdir(char* directory, uint32_t length);
int KVIchdir(const char* directory);
void KVISleep(uint32_t msec);

// "N" and the name, whose first character is dropped unless it is a letter; dest has strlen(name) + 2 bytes.
void KVIBryndLibBuildName(char* dest, const char* name);
void KVIBryndLibGetExt(char* libname);
uint16_t KVIBryndLibLoad(const char* name, void** modhand, void** proc);
uint32_t KVIBryndProcGetAddrByName(const char* mod_name, const char* proc_name, void** hmod, void** address);

// Waits until the time, in seconds of the clock. 1 when the task was told to stop, 0 when the time has
// passed.
int BryndWait(uint32_t wait_until, int32_t* winyield);
// Waits msec milliseconds. 1 when the task was told to stop and 1 when the time has passed.
int BryndYield(uint32_t msec, int32_t* winyield);

// Bytes of the character that starts with this byte: 2 or 3, 0 for a single byte.
extern const uint8_t kCharacterBytes[256];
inline uint32_t KVICharacterBytes(char first) {
  const uint8_t bytes = kCharacterBytes[static_cast<unsigned char>(first)];
  return bytes == 0 ? 1 : bytes;
}

// At most count bytes of string2, and always a NUL: string1 has count + 1 bytes.
char* KVIstrnncpy(char* string1, const char* string2, size_t count);
// The value with length - 3 significant digits, length at most 18; string has 32 bytes.
char* KVIdtoa(double value, char* string, uint32_t length);
const char* KVImemchr(const char* buf, char c, size_t count);
const char* KVIstrchr(const char* string, char c);
const char* KVIstrrchr(const char* string, char c);
// Bytes of string1 before its first character that is one of string2, by whole characters.
size_t KVIstrcspn(const char* string1, const char* string2);

#endif
