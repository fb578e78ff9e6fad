// Forms. This version reads none: a database has no form for a document to be bound to, and each question for
// one is answered with "none", so that strict binding refuses documents instead of leaving them unchecked.
#include "kavrin.h"
#include "kvint.h"

uint32_t _KVIFormGetSpec(_api_session*, _DATABASE*, uint32_t, _DOCUMENT*, _FORMSPEC** formspec) {
  *formspec = nullptr;
  return KVFAIL_UNSUPPORTED;
}

void _ClearForm(_api_session*, _FORMSPEC*) {}

FIELDSPEC* GetFieldspec(_FORMSPEC*, const char*) { return nullptr; }

uint32_t EmbedForm(_DATABASE*, uint32_t, const char*) { return KVFAIL_UNSUPPORTED; }
