// Id files, certifiers and registrations: not in this build.
// Closing nothing succeeds; every other call says that it is not available.
#include "base/status.h"
#include "brynd_name.h"

namespace status = brynd::status;

EngStatus EngKeyFilePasswordHash(const char*, void*) { return status::kNotAvailable; }

EngStatus EngCertifierContextGet(const char*, const void*, const char*, const TIMEDATE*, char*, EngCertifier*,
                                 int32_t*, uint16_t*) {
  return status::kNotAvailable;
}

EngStatus EngCertifierContextFree(EngCertifier certifier) {
  return certifier == 0 ? status::kOk : status::kNotAvailable;
}

EngStatus EngRegIdInfoGet(const char*, uint16_t, void*, uint16_t, uint16_t*) { return status::kNotAvailable; }

EngStatus EngRegCertifierNew(EngCertifier, uint16_t, const REGISTRATION*, const char*, const char*) {
  return status::kNotAvailable;
}

EngStatus EngRegServerNew(EngCertifier, uint16_t, const REGISTRATION*, const char*, const char*, const char*,
                          const char*, const char*) {
  return status::kNotAvailable;
}

EngStatus EngRegWorkstationNew(EngCertifier, uint16_t, const REGISTRATION*, const char*, const char*,
                               const char*, uint16_t, const char*, const char*, const char*) {
  return status::kNotAvailable;
}
