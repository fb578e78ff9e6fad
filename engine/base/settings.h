// The settings file BRYND.INI: lines `name = value`, comments that start with `;`, UTF-8.
// (1) Rewriting keeps every line it does not change: comments, order, line ends, lines it does not
//     understand.
// (2) The first line of a name counts; names ignore case; blanks around name and value mean nothing. A value
//     between double quotes stands for what is between them.
// (3) What Set took, Get gives back, byte for byte.
#ifndef BRYND_BASE_SETTINGS_H
#define BRYND_BASE_SETTINGS_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/process.h"

namespace brynd {

inline constexpr std::string_view kSettingsFileName = "BRYND.INI";
inline constexpr size_t kSettingsFileBytesMax = 1u << 20;
inline constexpr size_t kSettingNameBytesMax = 255;
inline constexpr size_t kSettingValueBytesMax = 4096;

// The text of a settings file, taken apart into lines.
class SettingsText {
 public:
  SettingsText() = default;
  // Fails with kBadSettings when the text holds a NUL or is longer than kSettingsFileBytesMax.
  explicit SettingsText(std::string_view text);

  std::optional<std::string> Get(std::string_view name) const;

  // Changes the line of a name or adds one at the end; no value takes all its lines out. Fails with
  // kSettingTooLong when name or value is too long or not one that a line can hold.
  void Set(std::string_view name, std::optional<std::string_view> value);

  std::string Text() const;

 private:
  std::vector<std::string> lines_;  // with their line ends
};

// A settings file that is read and changed by several processes.
class SettingsFile : public SettingsStore {
 public:
  // Reads the file. Fails with kNoSettingsFile, kBadSettings or the status of the file seam.
  SettingsFile(Files& files, Clock& clock, std::string path);

  // A change by another process is seen within kSettingsFreshNanoseconds.
  std::optional<std::string> Get(std::string_view name) override;

  // Fails as SettingsText::Set, or with the status of the file seam; the file is then as it was.
  void Set(std::string_view name, std::string_view value) override { Change(name, value); }
  void Remove(std::string_view name) { Change(name, std::nullopt); }

  const std::string& path() const noexcept { return path_; }

 private:
  void Change(std::string_view name, std::optional<std::string_view> value);
  SettingsText ReadFile();
  void Refresh();

  Files& files_;
  Clock& clock_;
  const std::string path_;
  std::mutex mutex_;
  SettingsText text_;
  uint64_t read_at_ = 0;  // monotonic nanoseconds
};

inline constexpr uint64_t kSettingsFreshNanoseconds = 1'000'000'000;

// Where the settings file is: an argument `=path`, the variable BRYND_INI, the current directory,
// $XDG_CONFIG_HOME/brynd, ~/.config/brynd, /etc/brynd. The first two are decisive, whether the file exists or
// not. Fails with kNoSettingsFile.
std::string FindSettingsFile(int argument_count, const char* const* arguments);

// To be run by the first start of the process: reads the file, makes it the record's settings until the last
// stop, and sets the data directory (the setting Directory, relative to the file's folder; without one, that
// folder).
void StartSettings(const std::string& path);

}  // namespace brynd

#endif
