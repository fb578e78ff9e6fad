// A document in memory for tests of formulas: a list of items, header facts that tests set, settings in a
// map.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "formula/compiler.h"
#include "formula/evaluator.h"
#include "formula/host.h"
#include "formula/value.h"

namespace brynd::formula {

class MemoryHost : public Host {
 public:
  struct Item {
    std::string name;
    uint16_t type = 0;
    std::vector<std::byte> value;
  };

  NameScope Scope() const override { return {1, names_.size()}; }
  NameToken Bind(std::string_view name) override {
    for (size_t token = 0; token < names_.size(); ++token)
      if (EqualFold(names_[token], name)) return static_cast<NameToken>(token);
    return kNoToken;
  }
  bool Find(NameToken token, ItemView* item) override {
    ++finds;
    for (const Item& stored : items) {
      if (!EqualFold(stored.name, names_[token])) continue;
      *item = {stored.type, stored.value};
      return true;
    }
    return false;
  }
  void ItemNames(std::vector<std::string>* names) override {
    for (const Item& item : items) names->push_back(item.name);
  }
  bool WriteItem(std::string_view name, const ItemView& item) override {
    if (is_read_only) return false;
    const std::vector<std::byte> value(item.value.begin(), item.value.end());
    DeleteItem(name);
    Add(name, item.type, value);
    return true;
  }
  bool DeleteItem(std::string_view name) override {
    if (is_read_only) return false;
    std::erase_if(items, [&](const Item& item) { return EqualFold(item.name, name); });
    return true;
  }
  void Document(DocumentFacts* facts) override { *facts = document; }
  void Database(DatabaseFacts* facts) override { *facts = database; }
  std::string UserName() override { return "CN=Ann Author/O=Acme"; }
  void Attachments(std::vector<AttachedFile>* attached) override { *attached = files; }
  void Access(AccessFacts* facts) override { *facts = access; }
  uint64_t ResponseCount() override { return responses; }
  bool DatabaseExists(std::string_view path) override { return path == database.path; }
  std::unique_ptr<Host> Stored(const UNIVERSALNOTEID& unid) override {
    for (const MemoryHost* other : others) {
      if (std::memcmp(&other->document.originator, &unid, sizeof unid) != 0) continue;
      auto copy = std::make_unique<MemoryHost>(*other);
      copy->is_read_only = true;
      return copy;
    }
    return nullptr;
  }
  Answer WriteStored(const UNIVERSALNOTEID& unid, std::string_view name, const ItemView* item) override {
    if (is_read_only) return Answer::kRefused;
    for (MemoryHost* other : others) {
      if (std::memcmp(&other->document.originator, &unid, sizeof unid) != 0) continue;
      if (item != nullptr)
        other->WriteItem(name, *item);
      else
        other->DeleteItem(name);
      return Answer::kDone;
    }
    return Answer::kNothing;
  }
  // One view, of two rows: "a", 1 and "b", 2.
  Answer ReadView(const ViewQuestion& question, std::vector<std::byte>* value) override {
    if (!has_views) return Answer::kNotAvailable;
    if (question.view == "Closed") return Answer::kRefused;
    if (question.view != "Rows" || !question.database.empty()) return Answer::kNothing;
    std::string_view keys[] = {"a", "b"};
    double numbers[] = {1, 2};
    Arena arena;
    if (question.key != nullptr) {
      const Value key = ReadItem(*question.key, arena);
      const bool is_b =
          key.IsText() &&
          (question.partial_key ? std::string_view("b").starts_with(key.TextAt(0)) : key.TextAt(0) == "b");
      if (!is_b) return Answer::kNothing;
      keys[0] = question.document_ids ? "id of b" : "b";
      numbers[0] = 2;
    }
    const size_t rows = question.key != nullptr ? 1 : 2;
    const bool is_text = question.document_ids || question.column == 1 || question.field == "Key";
    const Value answer = is_text ? Value::Texts({keys, rows}) : Value::Numbers({numbers, rows});
    value->resize(StoredBytes(answer));
    StoreValue(answer, value->data());
    return Answer::kDone;
  }
  std::optional<std::string> EnvironmentGet(std::string_view name) override {
    const auto found = settings.find(std::string(name));
    return found == settings.end() ? std::nullopt : std::optional(found->second);
  }
  bool EnvironmentSet(std::string_view name, std::string_view value) override {
    settings[std::string(name)] = value;
    return true;
  }

  void Add(std::string_view name, uint16_t type, std::vector<std::byte> value) {
    if (Bind(name) == kNoToken) names_.emplace_back(name);
    items.push_back({std::string(name), type, std::move(value)});
  }
  void AddValue(std::string_view name, const Value& value) {
    std::vector<std::byte> stored(StoredBytes(value));
    StoreValue(value, stored.data());
    Add(name, LoadU16(stored.data()), {stored.begin() + 2, stored.end()});
  }
  void AddText(std::string_view name, std::string_view text) { AddValue(name, Value::Text(text)); }
  void AddNumber(std::string_view name, double number) { AddValue(name, Value::Number(number)); }
  void AddTexts(std::string_view name, std::vector<std::string_view> texts) {
    AddValue(name, Value::Texts(texts));
  }
  void AddNumbers(std::string_view name, std::vector<double> numbers, uint16_t ranges = 0) {
    AddValue(name, Value::Numbers(numbers, ranges));
  }

  std::vector<Item> items;
  DocumentFacts document;
  DatabaseFacts database;
  std::map<std::string, std::string> settings;
  std::vector<AttachedFile> files;
  AccessFacts access;
  uint64_t responses = 0;
  std::vector<MemoryHost*> others;  // documents that Stored finds
  bool has_views = false;
  bool is_read_only = false;
  int finds = 0;

 private:
  std::vector<std::string> names_;
};

// The stored form of a value as a test states it: numbers as they are, texts in quotes, lists apart by ':',
// ranges with
// ".." between their ends, times as day and ticks, errors as !code, nothing as "nothing".
inline std::string Show(Bytes stored) {
  Arena arena;
  if (stored.size() < 2) return "(" + std::to_string(stored.size()) + " bytes)";
  const uint16_t type = LoadU16(stored.data());
  if (type == kWordError) return "!" + std::to_string(LoadU16(stored.data() + 2));
  if (type == kWordUnavailable) return "nothing";
  const Value value = ReadItem({type, stored.subspan(2)}, arena);
  std::string text;
  for (uint32_t index = 0; index < value.Count(); ++index) {
    const bool is_upper_end = index >= value.singles && (index - value.singles) % 2 == 1;
    if (index != 0) text += is_upper_end ? ".." : ":";
    char number[40];
    if (value.IsText()) text += '"' + std::string(value.TextAt(index)) + '"';
    if (value.IsNumber())
      text.append(number,
                  static_cast<size_t>(snprintf(number, sizeof number, "%.15g", value.NumberAt(index))));
    if (value.IsTime())
      text += std::to_string(value.TimeAt(index).Innards[1] & 0xffffff) + "/" +
              std::to_string(value.TimeAt(index).Innards[0]);
  }
  return text;
}

// The result of a formula for a document; what is wrong with its text when it does not compile.
inline std::string Compute(std::string_view source, Host& host, CompileOptions options = {}) {
  std::vector<std::byte> compiled;
  CompileError error;
  if (const EngStatus status = Compile(source, options, &compiled, &error))
    return std::string(StatusName(status)) + "@" + std::to_string(error.offset) + "+" +
           std::to_string(error.length);
  Evaluator evaluator(Program::Load(compiled));
  return Show(evaluator.Evaluate(host).value);
}

}  // namespace brynd::formula
