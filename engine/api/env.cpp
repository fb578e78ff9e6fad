// The settings file and the data directory.
#include "base/boundary.h"
#include "base/charset.h"
#include "base/process.h"
#include "base/settings.h"
#include "base/text.h"
#include "brynd_init.h"

using brynd::AtBoundary;

namespace status = brynd::status;

namespace {

constexpr size_t kDirectoryBytes = 256;

// Copies a text that fits, and its NUL.
void PutText(std::string_view text, char* target) {
  brynd::CopyBytes(target, text.data(), text.size());
  target[text.size()] = 0;
}

}  // namespace

int32_t EngEnvironmentGet(const char* name, char* value, uint16_t value_limit) {
  if (name == nullptr) return 0;
  bool found = false;
  const EngStatus failure = AtBoundary([&] {
    const auto setting = brynd::Process().settings->Get(brynd::Utf8FromEngine(name));
    if (!setting) return;
    found = true;
    if (value != nullptr) PutText(brynd::CutText(brynd::EngineFromUtf8(*setting), value_limit), value);
  });
  return failure == status::kOk && found ? 1 : 0;
}

EngStatus EngEnvironmentSet(const char* name, const char* value) {
  return AtBoundary([&]() -> EngStatus {
    if (name == nullptr) return status::kBadArgument;
    if (value == nullptr) return status::kBadArgument;
    brynd::Process().settings->Set(brynd::Utf8FromEngine(name), brynd::Utf8FromEngine(value));
    return status::kOk;
  });
}

EngStatus EngDataDirectoryGet(char* directory) {
  return AtBoundary([&]() -> EngStatus {
    if (directory == nullptr) return status::kBadArgument;
    if (!brynd::Process().Started()) return status::kNotInitialized;
    const std::string text = brynd::EngineFromUtf8(brynd::Process().data_directory);
    if (text.size() >= kDirectoryBytes) return status::kTextTooLong;
    PutText(text, directory);
    return status::kOk;
  });
}
