#include "collection/find.h"

#include <algorithm>
#include <limits>

#include "base/collate.h"
#include "base/status.h"

namespace brynd::collection {

namespace {

constexpr std::string_view kBehindAll = "\xff\xff\xff\xff";

bool IsTextValue(Bytes value) {
  return value.size() >= kTypeWordBytes && LoadU16(value.data()) == BRTYPE_TEXT;
}
std::string_view TextOfValue(Bytes value) { return TextOf(value.subspan(kTypeWordBytes)); }

// How texts are compared, and whether the leading part is enough.
struct Match {
  CollationStrength strength;
  bool leading = false;
  bool IsExact() const { return !leading && !strength.ignore_case && !strength.ignore_accents; }
};

Match MatchOf(uint16_t flags, bool is_last) {
  return {{(flags & kFindAnyCase) != 0, (flags & kFindAnyAccent) != 0},
          is_last && (flags & kFindLeading) != 0};
}

bool Matches(std::string_view text, std::string_view sought, const Match& match) {
  return CollateText(match.leading ? text.substr(0, sought.size()) : text, sought, match.strength) == 0;
}

// What the stored order of all texts that can match begins with. `whole`: everything that begins so matches.
struct Beginning {
  std::string order;
  bool whole = false;
};

Beginning BeginningOf(std::string_view text, const Match& match) {
  Beginning beginning{std::string(1, kOrderText), false};
  const bool ignores_both = match.strength.ignore_case && match.strength.ignore_accents;
  if (match.leading || match.strength.ignore_accents) {
    AppendSortKey(text, {.ignore_case = true, .ignore_accents = true}, &beginning.order);
    beginning.whole = ignores_both;
    if (!match.leading) beginning.order.push_back('\x01');
  } else {
    AppendSortKey(text, {.ignore_case = true, .ignore_accents = false}, &beginning.order);
    beginning.order.push_back('\x01');
    beginning.whole = true;
  }
  return beginning;
}

class KeySearch {
 public:
  KeySearch(Index& index, const std::vector<Bytes>& keys, uint16_t flags)
      : design_(index.Design()), walk_(index), keys_(keys), flags_(flags) {}

  FoundRows Run() {
    if (keys_.empty() || keys_.size() > design_.categories.size() + design_.sorts.size())
      Fail(status::kBadArgument);
    size_t used = 0;
    while (used < keys_.size() && used < design_.categories.size()) {
      EnterCategory(used);
      ++used;
    }
    if (used < keys_.size()) FindDocuments(used);
    if (found_.match_count == 0) Fail(status::kNotFound);
    walk_.Tell(&found_.position);
    return found_;
  }

 private:
  bool IsLast(size_t key) const { return key + 1 == keys_.size(); }
  Place Here() const { return walk_.OnRow() ? walk_.OwnPlace() : kTopPlace; }

  // Down to the category of a value; its pieces lead from level to level.
  void EnterCategory(size_t key) {
    const SortColumn& column = design_.categories[key];
    if (!IsTextValue(keys_[key])) return EnterPiece(EntryKind::kCategory, keys_[key], column.descending, {});
    std::string_view text = TextOfValue(keys_[key]);
    EntryKind kind = EntryKind::kCategory;
    bool entered = false;
    while (!text.empty()) {
      const size_t end = text.find('\\');
      const std::string_view piece = text.substr(0, end);
      text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
      if (piece.empty()) continue;
      Match match = MatchOf(flags_, IsLast(key) && text.empty());
      match.strength.ignore_case = true;  // spellings that differ in case alone are one category
      std::string value(kTypeWordBytes, '\0');
      StoreU16(value.data(), BRTYPE_TEXT);
      value.append(piece);
      EnterPiece(kind, BytesOf(value), column.descending, match);
      kind = EntryKind::kSubcategory;
      entered = true;
    }
    if (!entered) EnterPiece(EntryKind::kCategory, {}, column.descending, {});
  }

  void EnterPiece(EntryKind kind, Bytes value, bool descending, const Match& match) {
    const Place place = Here();
    const bool is_range = IsTextValue(value) && (match.leading || match.strength.ignore_accents);
    std::string order;
    if (is_range) {
      order = BeginningOf(TextOfValue(value), match).order;
      if (descending) Invert(&order, 0);
    } else {
      order = CategoryOrder(value, descending);
    }
    const std::string from = EntryKey(place, kind, order);
    Cursor cursor = walk_.Rows().Seek(BytesOf(from)), first;
    uint64_t documents = 0;
    for (; !cursor.AtEnd() && TextOf(cursor.Key()).starts_with(from); cursor.Next()) {
      CategoryEntry entry;
      if (!ReadCategory(cursor.Payload(), design_.totals.size(), &entry)) Fail(status::kDamaged);
      if (is_range && (!IsTextValue(BytesOf(entry.value)) ||
                       !Matches(TextOfValue(BytesOf(entry.value)), TextOfValue(value), match)))
        continue;
      if (documents == 0) first = cursor;
      documents += entry.documents;
    }
    if (documents == 0) Fail(status::kNotFound);
    walk_.Enter(first);
    SetCount(documents);
  }

  void SetCount(uint64_t count) {
    found_.match_count = static_cast<uint32_t>(std::min<uint64_t>(count, UINT32_MAX));
  }

  void FindDocuments(size_t first_key) {
    // As much of the keys as is a beginning of the order of every match.
    std::string order;
    bool whole = true;
    for (size_t key = first_key; key < keys_.size() && whole; ++key) {
      const SortColumn& column = design_.sorts[key - first_key];
      const Match match = MatchOf(flags_, IsLast(key));
      if (!IsTextValue(keys_[key]) || match.IsExact()) {
        AppendColumnOrder(keys_[key], column.descending, &order);
        continue;
      }
      const Beginning beginning = BeginningOf(TextOfValue(keys_[key]), match);
      const size_t begin = order.size();
      order += beginning.order;
      if (column.descending) Invert(&order, begin);
      whole = beginning.whole && IsLast(key);
      if (!whole) break;
    }
    const std::string from = EntryKey(Here(), EntryKind::kDocument, order);
    Cursor cursor = walk_.Rows().Seek(BytesOf(from));
    if (whole) {
      const uint64_t end = walk_.Rows().Seek(BytesOf(from + std::string(kBehindAll))).Rank();
      if (end == cursor.Rank()) Fail(status::kNotFound);
      SetCount(end - cursor.Rank());
      return walk_.Enter(cursor);
    }
    Cursor first;
    uint64_t count = 0;
    for (; !cursor.AtEnd() && TextOf(cursor.Key()).starts_with(from); cursor.Next()) {
      if (!RowMatches(cursor.Payload(), first_key)) continue;
      if (count++ == 0) first = cursor;
    }
    if (count == 0) Fail(status::kNotFound);
    SetCount(count);
    walk_.Enter(first);
  }

  bool RowMatches(Bytes payload, size_t first_key) const {
    DocumentEntry entry;
    if (!ReadDocument(payload, &entry)) Fail(status::kDamaged);
    for (size_t key = first_key; key < keys_.size(); ++key) {
      const Bytes value = ValueInTable(entry.table, design_.sorts[key - first_key].item);
      const Match match = MatchOf(flags_, IsLast(key));
      if (IsTextValue(keys_[key])) {
        const std::string_view text = IsTextValue(value) ? TextOfValue(value) : std::string_view();
        if ((!value.empty() && !IsTextValue(value)) || !Matches(text, TextOfValue(keys_[key]), match))
          return false;
      } else if (!SameBytes(value, keys_[key])) {
        return false;
      }
    }
    return true;
  }

  static Bytes ValueInTable(Bytes table, uint32_t item) {
    ByteReader heads(table), content(table);
    heads.Skip(2);
    const uint16_t count = heads.U16();
    content.Seek(sizeof(ITEM_TABLE) + size_t{count} * 2);
    for (uint32_t i = 0; i < item; ++i) content.Skip(heads.U16());
    return content.Take(heads.U16());
  }

  const Definition& design_;
  Walk walk_;
  const std::vector<Bytes>& keys_;
  uint16_t flags_;
  FoundRows found_;
};

}  // namespace

FoundRows FindByKey(Index& index, const std::vector<Bytes>& keys, uint16_t flags) {
  return KeySearch(index, keys, flags).Run();
}

std::vector<Bytes> KeysOfTable(const void* table) {
  ByteReader in(table, LoadU16(table));
  in.Skip(2);
  const uint16_t count = in.U16();
  ByteReader content = in;
  content.Seek(sizeof(ITEM_TABLE) + size_t{count} * sizeof(ITEM));
  std::vector<Bytes> keys;
  for (uint16_t i = 0; i < count && !in.Failed() && !content.Failed(); ++i) {
    const uint16_t name_bytes = in.U16(), value_bytes = in.U16();
    content.Skip(name_bytes);
    keys.push_back(content.Take(value_bytes));
    if (keys.back().size() < kTypeWordBytes) Fail(status::kBadArgument);
  }
  if (in.Failed() || content.Failed()) Fail(status::kBadArgument);
  return keys;
}

}  // namespace brynd::collection
