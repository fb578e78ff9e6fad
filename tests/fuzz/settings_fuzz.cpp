// Settings files of any bytes: taken apart and put together unchanged, and what is set is read back.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "base/settings.h"

namespace {

void Demand(bool holds) {
  if (!holds) std::abort();
}

std::optional<brynd::SettingsText> Parsed(std::string_view text) {
  try {
    return brynd::SettingsText(text);
  } catch (const brynd::Failure&) {
    return std::nullopt;
  }
}

bool Set(brynd::SettingsText& settings, std::string_view name, std::string_view value) {
  try {
    settings.Set(name, value);
    return true;
  } catch (const brynd::Failure&) {
    return false;
  }
}

}  // namespace

// The input is a name, a value and the file, parted by NULs.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const size_t name_end = input.find('\0');
  if (name_end == std::string_view::npos) return 0;
  const size_t value_end = input.find('\0', name_end + 1);
  if (value_end == std::string_view::npos) return 0;
  const std::string_view name = input.substr(0, name_end);
  const std::string_view value = input.substr(name_end + 1, value_end - name_end - 1);
  const std::string_view file = input.substr(value_end + 1);

  auto settings = Parsed(file);
  if (!settings) return 0;
  Demand(settings->Text() == file);
  settings->Get(name);
  if (!Set(*settings, name, value)) {
    Demand(settings->Text() == file);
    return 0;
  }
  Demand(settings->Get(name) == value);
  const auto again = Parsed(settings->Text());
  if (again) Demand(again->Get(name) == value);
  settings->Set(name, std::nullopt);
  Demand(settings->Get(name) == std::nullopt);
  return 0;
}
