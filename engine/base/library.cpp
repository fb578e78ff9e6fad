#include "base/library.h"

#include <dlfcn.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "base/status.h"

namespace brynd {

namespace {

constexpr size_t kLibraryNameBytesMax = 64;

// The loads that were given out and not given back; the system counts them too, but takes any address for
// one.
struct Loads {
  std::mutex mutex;
  std::vector<void*> libraries;
};

Loads& AllLoads() {
  static Loads loads;
  return loads;
}

// The folder this code was loaded from, with the separator at its end.
std::string EngineFolder() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&EngineFolder), &info) == 0 || info.dli_fname == nullptr)
    Fail(status::kNoLibrary);
  const std::string_view path(info.dli_fname);
  const size_t separator = path.rfind('/');
  return separator == std::string_view::npos ? "./" : std::string(path.substr(0, separator + 1));
}

}  // namespace

LoadedLibrary LoadEngineLibrary(std::string_view name) {
  if (name.empty() || name.size() > kLibraryNameBytesMax) Fail(status::kBadPath);
  if (name.find_first_of("/\\:") != std::string_view::npos) Fail(status::kBadPath);
  const std::string path = EngineFolder() + "lib" + std::string(name) + ".so";

  Loads& loads = AllLoads();
  std::lock_guard lock(loads.mutex);
  loads.libraries.reserve(loads.libraries.size() + 1);  // so that remembering a load can't fail
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) Fail(status::kNoLibrary);
  loads.libraries.push_back(library);
  return {library, dlsym(library, kLibraryProcedure.data())};
}

void FreeEngineLibrary(void* library) {
  Loads& loads = AllLoads();
  std::lock_guard lock(loads.mutex);
  const auto found = std::ranges::find(loads.libraries, library);
  if (found == loads.libraries.end()) Fail(status::kBadHandle);
  loads.libraries.erase(found);
  dlclose(library);
}

}  // namespace brynd
