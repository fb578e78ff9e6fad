// Canonical records at a caller's cursor.
#include "base/ods.h"

#include "base/bytes.h"
#include "brynd_memory.h"

using brynd::Load;
using brynd::Store;

uint16_t EngOdsLength(uint16_t type) { return static_cast<uint16_t>(brynd::OdsLength(type)); }

void EngOdsRead(const void** source, uint16_t type, void* target, uint16_t count) {
  if (source == nullptr) return;
  const char* stored = Load<const char*>(source);
  if (stored == nullptr) return;
  if (target == nullptr) return;
  Store<const char*>(source, stored + brynd::OdsRead(stored, type, target, count));
}

void EngOdsWrite(void** target, uint16_t type, const void* source, uint16_t count) {
  if (target == nullptr) return;
  char* stored = Load<char*>(target);
  if (stored == nullptr) return;
  if (source == nullptr) return;
  Store<char*>(target, stored + brynd::OdsWrite(stored, type, source, count));
}
