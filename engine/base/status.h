// Statuses of the engine and the one way a failure travels inside it.
// (1) Every status stands in statuses.def, sorted by code, below 0x4000, with a text its reader can act on.
// (2) Inside the engine a failure is a thrown Failure; AtBoundary (base/boundary.h) turns it into its status.
#ifndef BRYND_BASE_STATUS_H
#define BRYND_BASE_STATUS_H

#include <cstdint>
#include <exception>
#include <string_view>

#include "brynd_types.h"

namespace brynd {

namespace status {
inline constexpr EngStatus kOk = 0;
#define BRYND_STATUS(name, code, text) inline constexpr EngStatus name = code;
#include "base/statuses.def"
#undef BRYND_STATUS
}  // namespace status

// A failure on its way to the boundary; carries nothing but its status.
class Failure : public std::exception {
 public:
  explicit Failure(EngStatus code) noexcept : code_(code) {}
  EngStatus status() const noexcept { return code_; }
  const char* what() const noexcept override;

 private:
  EngStatus code_;
};

[[noreturn]] void Fail(EngStatus code);

// Fails when code is not 0, so that a call that reports by status can be used where failures are thrown.
inline void Check(EngStatus code) {
  if (code != 0) Fail(code);
}

// The text of a status, without a final stop removed or added; empty for a code the list does not hold.
std::string_view StatusText(EngStatus code) noexcept;

// The name of a status as the list writes it (for logs and tests); empty for an unknown code.
std::string_view StatusName(EngStatus code) noexcept;

}  // namespace brynd

#endif
