#include "formula/host.h"

#include "base/process.h"
#include "base/status.h"

namespace brynd::formula {

std::string Host::UserName() { return Process().settings->Get("UserName").value_or(std::string()); }

std::optional<std::string> Host::EnvironmentGet(std::string_view name) {
  return Process().settings->Get(name);
}

bool Host::EnvironmentSet(std::string_view name, std::string_view value) {
  Process().settings->Set(name, value);
  return true;
}

}  // namespace brynd::formula
