// The document, its database, and where the formula runs.
#include <charconv>

#include "base/text.h"
#include "base/time.h"
#include "formula/functions.h"

namespace brynd::formula {

namespace {

// How far up a chain of responses is followed; it may lead in a circle.
constexpr int kGenerationsMax = 32;

constexpr std::string_view kRelease = "5.0";
constexpr char kMarkerBegin = 0x7f, kMarkerEnd = static_cast<char>(0xff);
constexpr char kHexDigits[] = "0123456789ABCDEF";

std::string HexOfWord(uint32_t word) {
  std::string digits(8, '0');
  for (size_t place = 0; place < 8; ++place) digits[place] = kHexDigits[word >> (28 - 4 * place) & 15];
  return digits;
}

// What only a view knows stands in its columns as a marker: 0x7f, the function's number, a semicolon and each
// argument as text, 0xff. Bytes of arguments that are not printable, and ; and %, are % and two hexadecimal
// digits.
Value Marker(Machine& machine, uint16_t function, std::span<const Value> arguments) {
  std::string marker = kMarkerBegin + std::to_string(function);
  for (const Value& argument : arguments) {
    const Value text = ValueText(machine, argument, 0, {});
    if (text.IsError()) return text;
    marker += ';';
    for (const char letter : text.TextAt(0)) {
      const unsigned char byte = static_cast<unsigned char>(letter);
      const bool is_plain = byte > 0x20 && byte < 0x7f && letter != ';' && letter != '%';
      if (is_plain)
        marker += letter;
      else
        marker += {'%', kHexDigits[byte >> 4], kHexDigits[byte & 15]};
    }
  }
  return machine.KeepText(marker + kMarkerEnd);
}

// In a column the marker; elsewhere what holds for a document that stands in no view.
Value PlaceInView(Machine& machine, std::string_view function, std::span<const Value> arguments,
                  const Value& outside) {
  return machine.ForColumn() ? Marker(machine, FindFunction(function)->number, arguments) : outside;
}

// The counts take texts to be shown instead: for no documents, for one, for more.
Value CountInView(Machine& machine, std::string_view function, std::span<const Value> arguments) {
  const Value outside = arguments.size() > 1    ? arguments[1]
                        : arguments.size() == 1 ? arguments[0]
                                                : Value::Number(0);
  return PlaceInView(machine, function, arguments, outside);
}

DocumentFacts Facts(Machine& machine) {
  DocumentFacts facts;
  machine.Document().Document(&facts);
  return facts;
}

// A time that the document has not is nothing: the empty text.
Value TimeOrNothing(const TIMEDATE& time) { return IsWildcard(time) ? Value() : Value::Time(time); }

}  // namespace

Value TextsOf(Machine& machine, std::span<const std::string> texts) {
  if (texts.empty()) return {};
  return MakeEach(machine, texts.size(), [&](uint32_t index) { return machine.KeepText(texts[index]); });
}

std::string HexOfUnid(const UNIVERSALNOTEID& unid) {
  return HexOfWord(unid.File.Innards[1]) + HexOfWord(unid.File.Innards[0]) + HexOfWord(unid.Note.Innards[1]) +
         HexOfWord(unid.Note.Innards[0]);
}

bool UnidOfHex(std::string_view digits, UNIVERSALNOTEID* unid) {
  if (digits.size() != 32) return false;
  uint32_t words[4];
  for (size_t word = 0; word < 4; ++word) {
    const char* const begin = digits.data() + 8 * word;
    const std::from_chars_result read = std::from_chars(begin, begin + 8, words[word], 16);
    if (read.ec != std::errc() || read.ptr != begin + 8) return false;
  }
  *unid = {{{words[1], words[0]}}, {{words[3], words[2]}}};
  return true;
}

Value ItemOf(Machine& machine, Host& host, std::string_view name) {
  const NameToken token = host.Bind(name);
  ItemView item;
  return token != kNoToken && host.Find(token, &item) ? ReadItem(item, machine.Memory()) : Value();
}

std::string HexOfTime(const TIMEDATE& time) {
  return HexOfWord(time.Innards[1]) + ":" + HexOfWord(time.Innards[0]);
}

Value CallAll(Machine&, std::span<const Value>) { return Value::Bool(true); }

Value CallIsResponseDoc(Machine& machine, std::span<const Value>) {
  return Value::Bool(Facts(machine).is_response);
}
Value CallIsNewDoc(Machine& machine, std::span<const Value>) { return Value::Bool(Facts(machine).is_new); }

Value CallNoteID(Machine& machine, std::span<const Value>) {
  return machine.KeepText("NT" + HexOfWord(Facts(machine).note_id));
}

Value CallDocumentUniqueID(Machine& machine, std::span<const Value>) {
  const ORIGINATORID id = Facts(machine).originator;
  return machine.KeepText(HexOfUnid({id.File, id.Note}));
}

Value CallInheritedDocumentUniqueID(Machine& machine, std::span<const Value>) {
  const DocumentFacts facts = Facts(machine);
  return facts.is_response ? machine.KeepText(HexOfUnid(facts.parent)) : Value();
}

// Who wrote the document: what it says of that itself, else the first who changed it; a new document is the
// user's.
Value CallAuthor(Machine& machine, std::span<const Value>) {
  for (const std::string_view name : {"From", "Author", "$UpdatedBy"}) {
    const Value author = ItemOf(machine, machine.Document(), name);
    if (author.IsText() && !author.TextAt(0).empty()) return Value::Text(author.TextAt(0));
  }
  return Facts(machine).is_new ? machine.KeepText(machine.Document().UserName()) : Value();
}

Value CallCreated(Machine& machine, std::span<const Value>) { return TimeOrNothing(Facts(machine).created); }
Value CallModified(Machine& machine, std::span<const Value>) {
  return TimeOrNothing(Facts(machine).modified);
}
Value CallAccessed(Machine& machine, std::span<const Value>) {
  return TimeOrNothing(Facts(machine).accessed);
}
Value CallAddedToThisFile(Machine& machine, std::span<const Value>) {
  return TimeOrNothing(Facts(machine).added);
}

Value CallDocLength(Machine& machine, std::span<const Value>) {
  return Value::Number(static_cast<double>(Facts(machine).length));
}

Value CallDocFields(Machine& machine, std::span<const Value>) {
  std::vector<std::string> names;
  machine.Document().ItemNames(&names);
  return TextsOf(machine, names);
}

Value CallAttachments(Machine& machine, std::span<const Value>) {
  std::vector<AttachedFile> files;
  machine.Document().Attachments(&files);
  return Value::Number(static_cast<double>(files.size()));
}
Value CallAttachmentNames(Machine& machine, std::span<const Value>) {
  std::vector<AttachedFile> files;
  machine.Document().Attachments(&files);
  if (files.empty()) return {};
  return MakeEach(machine, files.size(), [&](uint32_t index) { return machine.KeepText(files[index].name); });
}
Value CallAttachmentLengths(Machine& machine, std::span<const Value>) {
  std::vector<AttachedFile> files;
  machine.Document().Attachments(&files);
  if (files.empty()) return {};
  return MakeEach(machine, files.size(),
                  [&](uint32_t index) { return Value::Number(static_cast<double>(files[index].bytes)); });
}

Value CallAllChildren(Machine& machine, std::span<const Value>) { return machine.SelectsAncestor(1); }
Value CallAllDescendants(Machine& machine, std::span<const Value>) {
  return machine.SelectsAncestor(kGenerationsMax);
}
Value CallResponses(Machine& machine, std::span<const Value>) {
  return Value::Number(static_cast<double>(machine.Document().ResponseCount()));
}

Value CallForm(Machine& machine, std::span<const Value>) { return machine.ReadName("Form"); }

Value CallDeleteDocument(Machine& machine, std::span<const Value>) {
  machine.SetDeleted();
  return Value::Bool(true);
}

Value CallVersion(Machine&, std::span<const Value>) { return Value::Text(kRelease); }
Value CallClientType(Machine&, std::span<const Value>) { return Value::Text("Library"); }
Value CallPlatform(Machine&, std::span<const Value>) { return Value::Text("Linux"); }

Value CallDbName(Machine& machine, std::span<const Value>) {
  DatabaseFacts facts;
  machine.Document().Database(&facts);
  return machine.KeepText(facts.path);
}

Value CallDbTitle(Machine& machine, std::span<const Value>) {
  DatabaseFacts facts;
  machine.Document().Database(&facts);
  return machine.KeepText(facts.title);
}

Value CallReplicaID(Machine& machine, std::span<const Value>) {
  DatabaseFacts facts;
  machine.Document().Database(&facts);
  return machine.KeepText(HexOfTime(facts.replica_id));
}

Value CallUserName(Machine& machine, std::span<const Value>) {
  return machine.KeepText(machine.Document().UserName());
}

Value CallEnvironment(Machine& machine, std::span<const Value> arguments) {
  const std::optional<std::string_view> name = FirstText(arguments[0]);
  if (!name.has_value()) return WantsText();
  const std::optional<std::string> setting = machine.Document().EnvironmentGet(*name);
  return setting.has_value() ? machine.KeepText(*setting) : Value();
}

Value CallSetEnvironment(Machine& machine, std::span<const Value> arguments) {
  const std::optional<std::string_view> name = FirstText(arguments[0]);
  if (!name.has_value()) return WantsText();
  return machine.WriteEnvironment(*name, arguments[1]);
}

Value CallDocNumber(Machine& machine, std::span<const Value> arguments) {
  return PlaceInView(machine, "DocNumber", arguments, Value());
}
Value CallDocParentNumber(Machine& machine, std::span<const Value> arguments) {
  return PlaceInView(machine, "DocParentNumber", arguments, Value());
}
Value CallDocSiblings(Machine& machine, std::span<const Value> arguments) {
  return PlaceInView(machine, "DocSiblings", arguments, Value::Number(0));
}
Value CallDocLevel(Machine& machine, std::span<const Value> arguments) {
  return PlaceInView(machine, "DocLevel", arguments, Value::Number(0));
}
Value CallDocChildren(Machine& machine, std::span<const Value> arguments) {
  return CountInView(machine, "DocChildren", arguments);
}
Value CallDocDescendants(Machine& machine, std::span<const Value> arguments) {
  return CountInView(machine, "DocDescendants", arguments);
}

// The first argument is for rows that are, the second for those that are not.
Value CallIsCategory(Machine& machine, std::span<const Value> arguments) {
  return PlaceInView(machine, "IsCategory", arguments, arguments.size() > 1 ? arguments[1] : Value());
}
Value CallIsExpandable(Machine& machine, std::span<const Value> arguments) {
  return PlaceInView(machine, "IsExpandable", arguments, arguments.size() > 1 ? arguments[1] : Value());
}

}  // namespace brynd::formula
