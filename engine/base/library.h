// Libraries of procedures that the engine loads at run time, such as converters.
// (1) A library is loaded from the engine's own folder alone: a name that came from a settings file reaches
//     no other place.
// (2) Only a library that Load gave out is ever released.
#ifndef BRYND_BASE_LIBRARY_H
#define BRYND_BASE_LIBRARY_H

#include <string_view>

namespace brynd {

inline constexpr std::string_view kLibraryProcedure = "BryndLibraryMain";

struct LoadedLibrary {
  void* library;    // the system loader's handle
  void* procedure;  // what kLibraryProcedure names in it, or null
};

// Loads lib<name>.so. Fails with kBadPath (the name is empty or holds a separator), kNoLibrary.
LoadedLibrary LoadEngineLibrary(std::string_view name);

// Gives one load back. Fails with kBadHandle.
void FreeEngineLibrary(void* library);

}  // namespace brynd

#endif
