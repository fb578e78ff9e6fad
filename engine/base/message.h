// Messages of the engine: the texts of statuses, and a few that have a number of their own.
#ifndef BRYND_BASE_MESSAGE_H
#define BRYND_BASE_MESSAGE_H

#include <cstdint>
#include <string_view>

namespace brynd {

// The build number of this engine, as databases and the version text give it.
inline constexpr uint16_t kEngineBuildNumber = 190;

inline constexpr uint16_t kVersionMessage = 1;
inline constexpr uint16_t kDesignSelectionMessage = 7108;  // source of a formula

// The text of a status, or of a message above; empty for any other number. Texts live as long as the process.
std::string_view MessageText(uint16_t number) noexcept;

}  // namespace brynd

#endif
