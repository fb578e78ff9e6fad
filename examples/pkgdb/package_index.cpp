#include "package_index.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

constexpr const char* kListFolder = "/var/lib/apt/lists";
constexpr const char* kHelper = "/usr/lib/apt/apt-helper";

// Index files may be kept compressed; the package manager's own helper unpacks whatever it packed.
void AppendFile(const std::filesystem::path& path, std::string* text) {
  const std::string name = path.filename().string();
  if (name.ends_with("_Packages")) {
    std::ifstream file(path, std::ios::binary);
    text->append(std::istreambuf_iterator<char>(file), {});
    return;
  }
  const std::string command = std::string(kHelper) + " cat-file '" + path.string() + "'";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return;
  char part[65536];
  while (const size_t bytes = fread(part, 1, sizeof part, pipe)) text->append(part, bytes);
  pclose(pipe);
}

std::vector<std::filesystem::path> IndexFiles() {
  std::vector<std::filesystem::path> files;
  std::error_code failed;
  for (const auto& entry : std::filesystem::directory_iterator(kListFolder, failed))
    if (entry.path().filename().string().find("_Packages") != std::string::npos)
      files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

std::string_view Record::Get(std::string_view name) const {
  for (const Field& field : fields)
    if (field.name == name) return field.value;
  return {};
}

IndexText ReadSystemIndex(const char* shipped_path) {
  IndexText index;
  const auto files = IndexFiles();
  for (const auto& file : files) {
    AppendFile(file, &index.text);
    index.text += "\n";
  }
  if (index.text.size() > files.size()) {
    index.source = std::to_string(files.size()) + " index files of this system";
    return index;
  }
  std::ifstream shipped(shipped_path, std::ios::binary);
  index.text.assign(std::istreambuf_iterator<char>(shipped), {});
  index.source = "the index that ships with this program";
  return index;
}

bool NextRecord(std::string_view* text, Record* record) {
  record->fields.clear();
  while (!text->empty()) {
    const size_t end = std::min(text->find('\n'), text->size());
    const std::string_view line = text->substr(0, end);
    text->remove_prefix(std::min(end + 1, text->size()));
    if (line.empty()) {
      if (!record->fields.empty()) return true;
      continue;
    }
    if ((line[0] == ' ' || line[0] == '\t') && !record->fields.empty()) {
      std::string_view& value = record->fields.back().value;
      value = std::string_view(value.data(), static_cast<size_t>(line.data() + line.size() - value.data()));
      continue;
    }
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    const size_t start = line.find_first_not_of(' ', colon + 1);
    record->fields.push_back({line.substr(0, colon), start == std::string_view::npos
                                                         ? line.substr(line.size())
                                                         : line.substr(start)});
  }
  return !record->fields.empty();
}
