// The border of the engine: every function of engine/api runs its body through AtBoundary.
// (1) Nothing is thrown across the border.  (2) StatusOfCurrentException holds the engine's only catch
//     clauses.
#ifndef BRYND_BASE_BOUNDARY_H
#define BRYND_BASE_BOUNDARY_H

#include <type_traits>
#include <utility>

#include "base/status.h"

namespace brynd {

// To be called while an exception is handled: a Failure gives its status, bad_alloc kNoMemory, all else
// kInternal.
EngStatus StatusOfCurrentException() noexcept;

// Runs body, which returns nothing or a status, and gives its outcome as a status.
template <class Body>
EngStatus AtBoundary(Body&& body) noexcept {
  try {
    if constexpr (std::is_void_v<std::invoke_result_t<Body>>) {
      std::forward<Body>(body)();
      return status::kOk;
    } else {
      return std::forward<Body>(body)();
    }
  } catch (...) {
    return StatusOfCurrentException();
  }
}

}  // namespace brynd

#endif
