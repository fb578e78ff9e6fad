#include "formula/host.h"

#include "base/boundary.h"
#include "base/charset.h"
#include "base/name.h"
#include "base/process.h"

namespace brynd::formula {

std::string Host::UserName() {
  std::string name;
  AtBoundary([&] { name = CurrentUserName(); });  // no name, or one that is none: nobody
  return name;
}

// Settings are UTF-8.
std::optional<std::string> Host::EnvironmentGet(std::string_view name) {
  std::optional<std::string> value = Process().settings->Get(Utf8FromEngine(name));
  if (value.has_value()) value = EngineFromUtf8(*value);
  return value;
}

// What no line of the file can hold is refused; that the file cannot be written fails the evaluation.
bool Host::EnvironmentSet(std::string_view name, std::string_view value) {
  const EngStatus outcome =
      AtBoundary([&] { Process().settings->Set(Utf8FromEngine(name), Utf8FromEngine(value)); });
  if (outcome == status::kSettingTooLong || outcome == status::kNotInitialized) return false;
  Check(outcome);
  return true;
}

}  // namespace brynd::formula
