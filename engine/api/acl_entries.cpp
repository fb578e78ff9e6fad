// Entries, roles and settings of access control lists: not in this build.
// Closing nothing succeeds; every other call says that it is not available.
#include "base/status.h"
#include "brynd_acl.h"

namespace status = brynd::status;

EngStatus EngDbAccessGet(EngDb, uint16_t*, uint16_t*) { return status::kNotAvailable; }

EngStatus EngAclEntriesEnum(EngMem, EngAclCallback, void*) { return status::kNotAvailable; }

EngStatus EngAclEntryAdd(EngMem, const char*, uint16_t, const uint8_t*, uint16_t) {
  return status::kNotAvailable;
}

EngStatus EngAclEntryDelete(EngMem, const char*) { return status::kNotAvailable; }

EngStatus EngAclEntryUpdate(EngMem, const char*, uint16_t, const char*, uint16_t, const uint8_t*, uint16_t) {
  return status::kNotAvailable;
}

EngStatus EngAclAccessLookup(EngMem, const NAMES_LIST*, uint16_t*, uint8_t*, uint16_t*, EngMem*) {
  return status::kNotAvailable;
}

EngStatus EngAclRoleNameGet(EngMem, uint16_t, char*) { return status::kNotAvailable; }

EngStatus EngAclRoleNameSet(EngMem, uint16_t, const char*) { return status::kNotAvailable; }

EngStatus EngAclAdminServerGet(EngMem, char*) { return status::kNotAvailable; }

EngStatus EngAclAdminServerSet(EngMem, const char*) { return status::kNotAvailable; }

EngStatus EngAclFlagsGet(EngMem, uint32_t*) { return status::kNotAvailable; }

EngStatus EngAclFlagsSet(EngMem, uint32_t) { return status::kNotAvailable; }

EngStatus EngAclHistoryGet(EngMem, EngMem*, uint16_t*) { return status::kNotAvailable; }
