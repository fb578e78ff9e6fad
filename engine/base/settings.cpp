#include "base/settings.h"

#include <algorithm>
#include <utility>

#include "base/text.h"

namespace brynd {

namespace {

struct SettingLine {
  std::string_view name, value;  // value still quoted
};

// What a line sets, or nothing for comments, headings and lines of another kind.
std::optional<SettingLine> ParseLine(std::string_view line) {
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  if (line.starts_with(kByteOrderMark)) line.remove_prefix(kByteOrderMark.size());
  line = TrimBlanks(line);
  if (line.empty() || line.front() == ';' || line.front() == '[') return std::nullopt;
  const size_t sign = line.find('=');
  if (sign == std::string_view::npos || sign == 0) return std::nullopt;
  return SettingLine{TrimBlanks(line.substr(0, sign)), TrimBlanks(line.substr(sign + 1))};
}

bool IsQuoted(std::string_view value) {
  return value.size() >= 2 && value.front() == '"' && value.back() == '"';
}

std::string Unquoted(std::string_view value) {
  return std::string(IsQuoted(value) ? value.substr(1, value.size() - 2) : value);
}

// A value as a line holds it: quoted when it would not be read back otherwise.
std::string Quoted(std::string_view value) {
  if (TrimBlanks(value).size() == value.size() && !IsQuoted(value)) return std::string(value);
  return '"' + std::string(value) + '"';
}

bool HoldsLineEnd(std::string_view text) {
  constexpr std::string_view kRefused("\0\r\n", 3);
  return text.find_first_of(kRefused) != std::string_view::npos;
}

void CheckName(std::string_view name) {
  if (name.empty() || name.size() > kSettingNameBytesMax) Fail(status::kSettingTooLong);
  if (HoldsLineEnd(name) || name.find('=') != std::string_view::npos) Fail(status::kSettingTooLong);
  if (TrimBlanks(name).size() != name.size() || name.front() == ';' || name.front() == '[')
    Fail(status::kSettingTooLong);
  // A name that the reader of the file would take for its mark at the start would be read back without it.
  if (name.starts_with("\xef\xbb\xbf")) Fail(status::kSettingTooLong);
}

void CheckValue(std::string_view value) {
  if (value.size() > kSettingValueBytesMax || HoldsLineEnd(value)) Fail(status::kSettingTooLong);
}

std::string_view LineEnd(std::string_view line) {
  if (line.ends_with("\r\n")) return "\r\n";
  return line.ends_with('\n') ? "\n" : "";
}

bool Sets(const std::string& line, std::string_view name) {
  const auto parsed = ParseLine(line);
  return parsed && EqualFold(parsed->name, name);
}

std::string FolderOf(const std::string& path) {
  const size_t separator = path.rfind('/');
  if (separator == std::string::npos) return {};
  return separator == 0 ? "/" : path.substr(0, separator);
}

std::string Join(const std::string& folder, std::string_view name) {
  if (folder.empty() || name.starts_with('/')) return std::string(name);
  return folder + (folder.ends_with('/') ? "" : "/") + std::string(name);
}

}  // namespace

SettingsText::SettingsText(std::string_view text) {
  if (text.size() > kSettingsFileBytesMax) Fail(status::kBadSettings);
  if (text.find('\0') != std::string_view::npos) Fail(status::kBadSettings);
  while (!text.empty()) {
    const size_t line_bytes = std::min(text.find('\n'), text.size() - 1) + 1;
    lines_.emplace_back(text.substr(0, line_bytes));
    text.remove_prefix(line_bytes);
  }
}

std::optional<std::string> SettingsText::Get(std::string_view name) const {
  for (const std::string& line : lines_)
    if (const auto parsed = ParseLine(line); parsed && EqualFold(parsed->name, name))
      return Unquoted(parsed->value);
  return std::nullopt;
}

void SettingsText::Set(std::string_view name, std::optional<std::string_view> value) {
  CheckName(name);
  if (!value) {
    std::erase_if(lines_, [&](const std::string& line) { return Sets(line, name); });
    return;
  }
  CheckValue(*value);
  const auto found = std::ranges::find_if(lines_, [&](const std::string& line) { return Sets(line, name); });
  if (found != lines_.end()) {
    // Up to the value the line stays as its author wrote it.
    const std::string_view before = std::string_view(*found).substr(0, found->find('=') + 1);
    *found = std::string(before) + " " + Quoted(*value) + std::string(LineEnd(*found));
    return;
  }
  const std::string line_end(lines_.empty() || LineEnd(lines_.front()) != "\r\n" ? "\n" : "\r\n");
  if (!lines_.empty() && LineEnd(lines_.back()).empty()) lines_.back() += line_end;
  lines_.push_back(std::string(name) + " = " + Quoted(*value) + line_end);
}

std::string SettingsText::Text() const {
  std::string text;
  for (const std::string& line : lines_) text += line;
  return text;
}

SettingsFile::SettingsFile(Files& files, Clock& clock, std::string path)
    : files_(files), clock_(clock), path_(std::move(path)) {
  text_ = ReadFile();
  read_at_ = clock_.MonotonicNanoseconds();
}

SettingsText SettingsFile::ReadFile() {
  const auto content = files_.Read(path_);
  if (!content) Fail(status::kNoSettingsFile);
  return SettingsText(*content);
}

// A file that can't be read for the moment leaves what was read before.
void SettingsFile::Refresh() {
  const uint64_t now = clock_.MonotonicNanoseconds();
  if (now - read_at_ < kSettingsFreshNanoseconds) return;
  read_at_ = now;
  if (const auto content = files_.Read(path_)) text_ = SettingsText(*content);
}

std::optional<std::string> SettingsFile::Get(std::string_view name) {
  std::lock_guard lock(mutex_);
  Refresh();
  return text_.Get(name);
}

void SettingsFile::Change(std::string_view name, std::optional<std::string_view> value) {
  std::lock_guard lock(mutex_);
  files_.WithLockFile(path_ + ".lock", [&] {
    SettingsText changed = ReadFile();
    changed.Set(name, value);
    const std::string content = changed.Text();
    if (content.size() > kSettingsFileBytesMax) Fail(status::kBadSettings);
    files_.Replace(path_, content);
    text_ = std::move(changed);
    read_at_ = clock_.MonotonicNanoseconds();
  });
}

std::string FindSettingsFile(int argument_count, const char* const* arguments) {
  const ProcessRecord& process = Process();
  for (int index = 0; arguments != nullptr && index < argument_count; ++index)
    if (arguments[index] != nullptr && arguments[index][0] == '=') return arguments[index] + 1;
  if (const auto named = process.environment->Variable("BRYND_INI"); named && !named->empty()) return *named;

  std::vector<std::string> folders{process.files->CurrentDirectory()};
  if (const auto folder = process.environment->Variable("XDG_CONFIG_HOME"); folder && !folder->empty())
    folders.push_back(Join(*folder, "brynd"));
  if (const auto home = process.environment->Variable("HOME"); home && !home->empty())
    folders.push_back(Join(*home, ".config/brynd"));
  folders.emplace_back("/etc/brynd");
  for (const std::string& folder : folders)
    if (const std::string path = Join(folder, kSettingsFileName); process.files->Exists(path)) return path;
  Fail(status::kNoSettingsFile);
}

void StartSettings(const std::string& path) {
  ProcessRecord& process = Process();
  // Kept by its absolute path, so that a later change of the working directory does not lose the file.
  const std::string absolute = Join(process.files->CurrentDirectory(), path);
  const auto settings = std::make_shared<SettingsFile>(*process.files, *process.clock, absolute);
  std::string directory = Join(FolderOf(absolute), settings->Get("Directory").value_or(""));
  while (directory.size() > 1 && directory.ends_with('/')) directory.pop_back();

  process.AtStop([settings] {});  // owns the settings until the last stop
  process.data_directory = std::move(directory);
  process.settings = settings.get();
}

}  // namespace brynd
