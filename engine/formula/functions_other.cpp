// Other documents and databases. Selections and columns, which are computed for every document, keep to their
// own: there these functions are refused.
#include "formula/functions.h"

namespace brynd::formula {

namespace {

Value Refused() { return Value::Error(ErrorCode::kRefused); }

// The path of a database as views are asked for: one text, or server and path.
std::optional<std::string> DatabasePath(const Value& value) {
  if (!value.IsText()) return std::nullopt;
  const std::string_view first = value.TextAt(0);
  if (value.Count() == 1) return std::string(first);
  const std::string path(value.TextAt(1));
  return first.empty() ? path : std::string(first) + "!!" + path;
}

Value AskView(Machine& machine, const ViewQuestion& question) {
  std::vector<std::byte> stored;
  switch (machine.Document().ReadView(question, &stored)) {
    case Answer::kDone: {
      if (stored.size() < 2) return Value::Error(ErrorCode::kBadItem);
      const ItemView item{LoadU16(stored.data()), Bytes(stored).subspan(2)};
      return CopyValue(ReadItem(item, machine.Memory()), machine.Memory());
    }
    case Answer::kNothing:
      return {};
    case Answer::kRefused:
      return Refused();
    case Answer::kNotAvailable:
      return Value::Error(ErrorCode::kNotBuilt);
  }
  return Refused();
}

// The number of a column, or the name of a field of the documents.
std::optional<Value> TakeColumn(const Value& value, ViewQuestion* question) {
  if (value.IsText() && !value.TextAt(0).empty()) {
    question->field = value.TextAt(0);
    return std::nullopt;
  }
  const std::optional<int64_t> column = FirstWhole(value);
  if (!column.has_value()) return WantsNumber();
  if (*column < 1 || *column > kListElementsMax) return BadArgument();
  question->column = static_cast<uint32_t>(*column);
  return std::nullopt;
}

std::optional<UNIVERSALNOTEID> FirstUnid(const Value& value) {
  const std::optional<std::string_view> digits = FirstText(value);
  UNIVERSALNOTEID unid;
  if (!digits.has_value() || !UnidOfHex(*digits, &unid)) return std::nullopt;
  return unid;
}

// Checks class, database and view: the first three arguments of both questions. The path lives in `path`.
std::optional<Value> TakePlace(std::span<const Value> arguments, std::string* path, ViewQuestion* question) {
  const std::optional<std::string> database = DatabasePath(arguments[1]);
  const std::optional<std::string_view> view = FirstText(arguments[2]);
  if (!arguments[0].IsText() || !database.has_value() || !view.has_value()) return WantsText();
  for (uint32_t index = 0; index < arguments[0].Count(); ++index)
    if (!arguments[0].TextAt(index).empty() && !EqualFold(OptionName(arguments[0].TextAt(index)), "NoCache"))
      return BadArgument();
  if (view->empty()) return BadArgument();
  *path = *database;
  question->database = *path;
  question->view = *view;
  return std::nullopt;
}

}  // namespace

Value CallDbColumn(Machine& machine, std::span<const Value> arguments) {
  if (machine.KeepsToDocument()) return Refused();
  std::string path;
  ViewQuestion question;
  if (const std::optional<Value> bad = TakePlace(arguments, &path, &question)) return *bad;
  if (const std::optional<Value> bad = TakeColumn(arguments[3], &question)) return *bad;
  return AskView(machine, question);
}

Value CallDbLookup(Machine& machine, std::span<const Value> arguments) {
  if (machine.KeepsToDocument()) return Refused();
  std::string path;
  ViewQuestion question;
  if (const std::optional<Value> bad = TakePlace(arguments, &path, &question)) return *bad;
  const bool has_options = arguments.size() == 6;
  if (has_options && !arguments[5].IsText()) return WantsText();
  question.partial_key = has_options && HasOption(arguments[5], "PartialMatch");
  question.document_ids = has_options && HasOption(arguments[5], "ReturnDocumentUniqueID");
  const bool fail_silent = has_options && HasOption(arguments[5], "FailSilent");
  if (const std::optional<Value> bad = TakeColumn(arguments[4], &question)) return *bad;
  const size_t bytes = StoredBytes(arguments[3]);
  if (bytes == 0) return Value::Error(ErrorCode::kTooLong);
  std::byte* const stored = static_cast<std::byte*>(machine.Memory().Take(bytes));
  StoreValue(arguments[3], stored);
  const ItemView key{LoadU16(stored), {stored + 2, bytes - 2}};
  question.key = &key;
  const Value found = AskView(machine, question);
  return found.IsError() && fail_silent ? Value() : found;
}

// Whether a path names a database; with two arguments, on a server.
Value CallDbExists(Machine& machine, std::span<const Value> arguments) {
  if (machine.KeepsToDocument()) return Refused();
  const std::optional<std::string_view> first = FirstText(arguments[0]);
  if (!first.has_value()) return WantsText();
  if (arguments.size() == 1) return Value::Bool(machine.Document().DatabaseExists(*first));
  const std::optional<std::string_view> path = FirstText(arguments[1]);
  if (!path.has_value()) return WantsText();
  const std::string server = first->empty() ? std::string() : std::string(*first) + "!!";
  return Value::Bool(machine.Document().DatabaseExists(server + std::string(*path)));
}

Value CallGetDocField(Machine& machine, std::span<const Value> arguments) {
  if (machine.KeepsToDocument()) return Refused();
  const std::optional<std::string_view> name = FirstText(arguments[1]);
  if (!arguments[0].IsText() || !name.has_value()) return WantsText();
  const std::optional<UNIVERSALNOTEID> unid = FirstUnid(arguments[0]);
  if (!unid.has_value() || name->empty() || name->size() > kNameBytesMax) return BadArgument();
  return machine.ReadStored(*unid, *name);
}

Value CallSetDocField(Machine& machine, std::span<const Value> arguments) {
  if (machine.KeepsToDocument()) return Refused();
  const std::optional<std::string_view> name = FirstText(arguments[1]);
  if (!arguments[0].IsText() || !name.has_value()) return WantsText();
  const std::optional<UNIVERSALNOTEID> unid = FirstUnid(arguments[0]);
  if (!unid.has_value() || name->empty() || name->size() > kNameBytesMax) return BadArgument();
  return machine.WriteStored(*unid, *name, arguments[2]);
}

}  // namespace brynd::formula
