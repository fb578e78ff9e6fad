#include "collection/row.h"

#include "base/boundary.h"
#include "note/reference.h"
#include "note/search.h"

namespace brynd::collection {

namespace {

std::string Typed(uint16_t type, Bytes content) {
  std::string value(kTypeWordBytes, '\0');
  StoreU16(value.data(), type);
  return value.append(TextOf(content));
}

// The pieces of a text between backslashes, empty ones dropped; what is beyond the levels stays in one piece.
std::vector<std::string_view> PiecesOf(std::string_view text, size_t most) {
  std::vector<std::string_view> pieces;
  while (!text.empty()) {
    const size_t end = pieces.size() + 1 >= most ? std::string_view::npos : text.find('\\');
    const std::string_view piece = text.substr(0, end);
    if (!piece.empty()) pieces.push_back(piece);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
  }
  return pieces;
}

}  // namespace

RowMaker::RowMaker(Database& database, const Definition& definition)
    : definition_(definition), host_(database), evaluator_(formula::Program::Load(definition.formula)) {}

bool RowMaker::Make(const ImageView& view, Row* row) {
  if (view.IsStub() || !ClassMatches(view.NoteClass(), definition_.class_mask)) return false;
  host_.Show(view);
  bool selected = false;
  const EngStatus computed = AtBoundary([&] { selected = Compute(view); });
  if (computed == status::kNoMemory) Fail(computed);
  if (computed != status::kOk || !selected) return false;
  row->note_id = view.NoteId();
  row->entry.note_class = view.NoteClass();
  row->entry.unid = view.Image().Unid();
  row->entry.table = table_;
  row->entry.is_response = false;
  ImageItem reference;
  if (definition_.responses && view.Find("$REF", &reference))
    row->entry.is_response = FirstReference(reference.value, &row->parent);
  arena_.Reset();
  SetOrder(row, view.Image().Created());
  SetNumbers(row);
  row->paths.clear();
  if (!row->entry.is_response) SetPaths(row);
  return true;
}

bool RowMaker::Compute(const ImageView&) {
  if (definition_.is_folder) {
    FolderTable();
  } else {
    const formula::Evaluator::Table table = evaluator_.Columns(host_, formula::TableForm::kValues);
    if (!table.selected) return false;
    table_ = table.bytes;
  }
  ByteReader heads(table_), content(table_);
  heads.Skip(2);
  const uint16_t count = heads.U16();
  content.Seek(sizeof(ITEM_TABLE) + size_t{count} * sizeof(uint16_t));
  values_.clear();
  for (uint16_t i = 0; i < count; ++i) values_.push_back(content.Take(heads.U16()));
  return !heads.Failed() && !content.Failed() && count == definition_.item_names.size();
}

// Members of a folder are not selected by the formula: its columns alone count.
void RowMaker::FolderTable() {
  const size_t count = evaluator_.Formula().Columns().size();
  own_table_.assign(sizeof(ITEM_TABLE) + count * sizeof(uint16_t), std::byte{0});
  for (size_t i = 0; i < count; ++i) {
    const Bytes value = evaluator_.ColumnValue(host_, i);
    if (own_table_.size() + value.size() > UINT16_MAX) break;
    StoreU16(own_table_.data() + sizeof(ITEM_TABLE) + i * sizeof(uint16_t),
             static_cast<uint16_t>(value.size()));
    own_table_.insert(own_table_.end(), value.begin(), value.end());
  }
  StoreU16(own_table_.data(), static_cast<uint16_t>(own_table_.size()));
  StoreU16(own_table_.data() + 2, static_cast<uint16_t>(count));
  table_ = own_table_;
}

void RowMaker::SetOrder(Row* row, const TIMEDATE& created) const {
  row->order.clear();
  for (const SortColumn& sort : definition_.sorts) {
    if (row->order.size() > KeyLimits::kKeyBytesMax) break;
    AppendColumnOrder(values_[sort.item], sort.descending, &row->order);
  }
  AppendTie(created, row->note_id, &row->order);
}

void RowMaker::SetNumbers(Row* row) {
  row->numbers.clear();
  for (const TotalColumn& total : definition_.totals) {
    const Bytes value = values_[total.item];
    double sum = std::nan("");
    if (value.size() >= kTypeWordBytes) {
      const formula::Value read =
          formula::ReadItem({LoadU16(value.data()), value.subspan(kTypeWordBytes)}, arena_);
      for (uint32_t i = 0; read.IsNumber() && i < read.Count(); ++i)
        sum = (std::isnan(sum) ? 0 : sum) + read.NumberAt(i);
    }
    row->numbers.push_back(std::isfinite(sum) ? sum : std::nan(""));
  }
}

// The ways that one column's value leads: one for each entry of a list, each by one or more pieces.
std::vector<CategoryPath> RowMaker::PathsOfColumn(size_t column) {
  const SortColumn& sort = definition_.categories[column];
  const Bytes value = values_[sort.item];
  const size_t levels = kCategoryLevelsMax / definition_.categories.size();
  std::vector<CategoryPath> paths;
  formula::Value read = formula::Value::Text({});
  if (value.size() >= kTypeWordBytes)
    read = formula::ReadItem({LoadU16(value.data()), value.subspan(kTypeWordBytes)}, arena_);
  for (uint32_t i = 0; i < read.Count() && paths.size() < kStandsMax; ++i) {
    CategoryPath path;
    const auto add = [&](std::string typed) {
      path.push_back({path.empty() ? EntryKind::kCategory : EntryKind::kSubcategory,
                      static_cast<uint8_t>(column), static_cast<uint8_t>(path.size()), sort.descending,
                      std::move(typed)});
    };
    if (read.IsNumber()) {
      const double number = read.NumberAt(i);
      add(Typed(BRTYPE_NUMBER, BytesAt(&number, sizeof number)));
    } else if (read.IsTime()) {
      const TIMEDATE time = read.TimeAt(i);
      add(Typed(BRTYPE_TIME, BytesAt(&time, sizeof time)));
    } else if (read.IsText()) {
      for (const std::string_view piece : PiecesOf(read.TextAt(i), levels))
        add(Typed(BRTYPE_TEXT, BytesOf(piece)));
    }
    if (path.empty()) add({});
    paths.push_back(std::move(path));
  }
  if (paths.empty())
    paths.push_back({{EntryKind::kCategory, static_cast<uint8_t>(column), 0, sort.descending, {}}});
  return paths;
}

void RowMaker::SetPaths(Row* row) {
  row->paths.emplace_back();
  for (size_t column = 0; column < definition_.categories.size(); ++column) {
    std::vector<CategoryPath> ways = PathsOfColumn(column);
    if (ways.size() == 1) {  // nearly always
      for (CategoryPath& path : row->paths) path.insert(path.end(), ways[0].begin(), ways[0].end());
      continue;
    }
    std::vector<CategoryPath> longer;
    for (const CategoryPath& path : row->paths) {
      for (const CategoryPath& way : ways) {
        if (longer.size() == kStandsMax) break;
        longer.push_back(path);
        longer.back().insert(longer.back().end(), way.begin(), way.end());
      }
    }
    row->paths = std::move(longer);
  }
}

}  // namespace brynd::collection
