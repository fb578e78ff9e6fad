// Libraries loaded at run time.
#include "base/library.h"

#include "base/boundary.h"
#include "base/bytes.h"
#include "brynd_init.h"

namespace status = brynd::status;

EngStatus EngLibraryLoad(const char* name, uint32_t, void** library, void** procedure) {
  return brynd::AtBoundary([&]() -> EngStatus {
    if (name == nullptr) return status::kBadArgument;
    if (library == nullptr) return status::kBadArgument;
    const brynd::LoadedLibrary loaded = brynd::LoadEngineLibrary(name);
    if (procedure != nullptr && loaded.procedure == nullptr) {
      brynd::FreeEngineLibrary(loaded.library);
      return status::kNoLibrary;
    }
    brynd::Store<void*>(library, loaded.library);
    if (procedure != nullptr) brynd::Store<void*>(procedure, loaded.procedure);
    return status::kOk;
  });
}

EngStatus EngLibraryFree(void* library) {
  return library == nullptr ? status::kOk : brynd::AtBoundary([&] { brynd::FreeEngineLibrary(library); });
}
