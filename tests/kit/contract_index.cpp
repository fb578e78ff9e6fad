// Rows of the index functions.
#include <cstring>

#include "kit/contract.h"

namespace kit {

constexpr uint32_t kEngineNoMemory = 0x107;

static Argument Index() { return Handle(Object::kIndex, KVFAIL_BAD_INDEX); }

static uint32_t& View() {
  static uint32_t view = 0;
  return view;
}

// A view of three documents, made once for a database: a sweep over faults would not end if each run had more
// to read.
static void MakeView(Scene& scene) {
  static char formula[] = "Row";
  static char selection[] = "SELECT @IsAvailable(Row)";
  const uint32_t database = scene.Handle(Object::kDatabase);
  View() = KVViewLocateByName(database, "MadeRows");
  if (View() != 0) return;
  for (const char* text : {"one", "three", "two"}) {
    uint32_t document = 0;
    KVDocumentCreate(database, 0, &document);
    KVItemPut(document, "Row", 0, 0, KVTYPE_TEXT, text, 0);
    KVDocumentSave(document, KVDOCWRITE_NOCOMMIT);
    KVDocumentClose(document, 0);
  }
  KVVIEW view{};
  view.on_open = view.on_refresh = view.heading = view.row_spacing = 1;
  view.heading_lines = view.row_lines = 1;
  view.selection_formula = selection;
  std::strcpy(view.name, "MadeRows");
  KVCOLUMN column{};
  column.formula = formula;
  column.sort = 1;
  column.type = KVTYPE_TEXT;
  KVViewCreate(database, &view, 1, &column, &View());
}

static void OpenList(Scene& scene) {
  MakeView(scene);
  char formula[] = "SELECT @IsAvailable(Row)";
  KVIndexSearch(scene.Handle(Object::kIndex), formula, 0, nullptr);
}

static void OpenRows(Scene& scene) {
  MakeView(scene);
  KVIndexOpenView(scene.Handle(Object::kIndex), 0, View(), 0);
}

static void OpenFlat(Scene& scene) {
  MakeView(scene);
  KVIndexOpenView(scene.Handle(Object::kIndex), 0, View(), KVOPENVIEW_FLAT);
}

static Row IndexRow(const char* function, Call call, std::vector<Argument> arguments,
                    std::vector<uint32_t> fault_statuses = {}) {
  return {.function = function,
          .variant = "",
          .call = std::move(call),
          .session = SessionBy::kHandle,
          .needs = Needs::kIndex,
          .arguments = std::move(arguments),
          .prepare = MakeView,
          .fault_statuses = std::move(fault_statuses)};
}

static Row On(const char* variant, void (*prepare)(Scene&), Row row) {
  row.variant = variant;
  row.prepare = prepare;
  return row;
}

static Row OpenRow() {
  Row row = IndexRow("KVIndexOpen", ByWords(KVIndexOpen),
                     {Handle(Object::kDatabase, KVFAIL_NO_DATABASE), Out(4, KVFAIL_NULL_PARAM)});
  row.undone = [](Scene&, const Words& words) {
    uint32_t index = 0;
    std::memcpy(&index, reinterpret_cast<const void*>(static_cast<uintptr_t>(words[1])), sizeof index);
    return std::string(index != 0 ? "the handle is not 0" : "");
  };
  return row;
}

static Row SearchRow() {
  const KVDATETIME tomorrow{{0, 0x00300000}};
  return IndexRow(
      "KVIndexSearch", ByWords(KVIndexSearch),
      {Index(),
       Pointer([](Scene& scene) -> const void* { return scene.Text("SELECT @All"); }, KVFAIL_FORMULA),
       Plain(0), In(tomorrow, kMayBeNull)},
      {KVFAIL_FORMULA, kEngineNoMemory});
}

static Row ViewRow(const char* function, Call call) {
  // The collection that cannot tell its rows is an internal failure.
  Row row = IndexRow(function, std::move(call),
                     {Index(), Plain(0), Value([](Scene&) -> uint64_t { return View(); }), Plain(0)},
                     {KVFAIL_INTERNAL, KVFAIL_NO_VIEW, KVFAIL_BAD_FORMAT});
  row.ignores = {"EngItemInfo", "EngItemTextGet", "EngItemTextListEntry", "EngNoteInfoGet", "EngNoteOpen"};
  return row;
}

static Row NavigateRow() {
  return IndexRow(
      "KVIndexNavigate", ByWords(KVIndexNavigate),
      {Index(), Enum(KVNAV_NEXT, 7, KVFAIL_BAD_ENUM), Plain(0), Out(4, kMayBeNull), Out(4, kMayBeNull)},
      {KVFAIL_INTERNAL});
}

static Row SetPositionRow() {
  return IndexRow("KVIndexSetPosition", ByWords(KVIndexSetPosition), {Index(), Plain(2)});
}

static std::vector<Row> MoveRows() {
  return {
      On("list", OpenList, NavigateRow()),
      On("view", OpenRows, NavigateRow()),
      On("flat", OpenFlat, NavigateRow()),
      On("list", OpenList, SetPositionRow()),
      On("flat", OpenFlat, SetPositionRow()),
      On("list", OpenList, IndexRow("KVIndexGetPosition", ByWords(KVIndexGetPosition), {Index()})),
      On("", OpenRows,
         IndexRow("KVIndexGetViewPosition", ByWords(KVIndexGetViewPosition),
                  {Index(), Plain(10), Out(11, KVFAIL_NULL_PARAM)})),
      On("", OpenRows,
         IndexRow("KVIndexSetViewPosition", ByWords(KVIndexSetViewPosition),
                  {Index(), Text("2", KVFAIL_NULL_PARAM)})),
  };
}

std::vector<Row> IndexRows() {
  Row count = On("", OpenList, IndexRow("KVIndexGetCount", ByWords(KVIndexGetCount), {Index()}));
  count.result = Result::kCount;
  std::vector<Row> rows = {
      OpenRow(),
      On("", OpenRows, IndexRow("KVIndexClose", ByWords(KVIndexClose), {Index()})),
      SearchRow(),
      ViewRow("KVIndexOpenView", ByWords(KVIndexOpenView)),
      ViewRow("KVIndexOpenViewFolder", ByWords(KVIndexOpenViewFolder)),
      std::move(count),
      IndexRow("KVIndexGetProperty", ByWords(KVIndexGetProperty),
               {Index(), Enum(KVPROP_INDEX_DATABASE, 15, KVFAIL_BAD_PROPERTY), Out(4, KVFAIL_NULL_PARAM)}),
      IndexRow("KVIndexSetProperty", ByWords(KVIndexSetProperty),
               {Index(), Enum(KVPROP_INDEX_SEARCH_CLASS, 15, KVFAIL_BAD_PROPERTY),
                In(uint32_t{1}, KVFAIL_NULL_PARAM)}),
  };
  for (Row& row : MoveRows()) rows.push_back(std::move(row));
  return rows;
}

}  // namespace kit
