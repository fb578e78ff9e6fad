// Rows of the view, column, folder and navigator functions.
#include <cstring>

#include "brynd.h"
#include "kit/contract.h"
#include "kit/form_builder.h"

namespace kit {

constexpr uint16_t kNoCommit = 4;

static Argument Database() { return Handle(Object::kDatabase, KVFAIL_NO_DATABASE); }

// What a row works on: records of their own names for each call, since names are found once in a database.
struct MadeViews {
  int number = 0;
  std::string view_name, folder_name, navigator_name, new_name;
  uint32_t view = 0, folder = 0, navigator = 0;
};
static MadeViews& Current() {
  static MadeViews made;
  return made;
}

static void PutFetchDesignCode(Scene& scene) {
  const int32_t on = 1;
  KVDatabaseSetProperty(scene.Handle(Object::kDatabase), KVPROP_DB_FETCH_DESIGN_CODE, &on);
}

static KVVIEW NewView(const std::string& name) {
  KVVIEW view{};
  view.on_open = view.on_refresh = view.heading = view.row_spacing = 1;
  view.heading_lines = view.row_lines = 1;
  std::strncpy(view.name, name.c_str(), sizeof view.name - 1);
  return view;
}

static KVCOLUMN NewColumn() {
  static char formula[] = "Subject";
  KVCOLUMN column{};
  column.formula = formula;
  column.sort = 1;
  column.total = 1;
  column.type = KVTYPE_TEXT;
  std::strcpy(column.title, "Title");
  return column;
}

// A view with a column, a folder with a document, and a navigator.
static void MakeViews(Scene& scene) {
  MadeViews& made = Current();
  const std::string number = std::to_string(++made.number);
  made.view_name = "MadeView" + number;
  made.folder_name = "MadeFolder" + number;
  made.navigator_name = "MadeNavigator" + number;
  made.new_name = "MadeNewView" + number;
  const uint32_t database = scene.Handle(Object::kDatabase);
  KVVIEW view = NewView(made.view_name);
  KVCOLUMN column = NewColumn();
  static char form_formula[] = "\"Memo\"";
  view.form_formula = form_formula;
  KVViewCreate(database, &view, 1, &column, &made.view);
  KVFolderCreateFromViewFolder(database, 0, made.view, 0, made.folder_name.c_str(), &made.folder);
  const uint32_t docid = scene.docid();
  KVFolderAddEntries(database, made.folder, 1, &docid);
  EngDb dbhand = 0;
  KVDatabaseGetBryndHandle(database, KVTOBRYND_GET_HANDLE, &dbhand);
  made.navigator = FormBuilder(dbhand, made.navigator_name)
                       .Class(BRCLASS_VIEW)
                       .Flags("G")
                       .NoInfo()
                       .NoBody()
                       .Store(kNoCommit);
}

static Argument ViewId() {
  return Value([](Scene&) -> uint64_t { return Current().view; });
}
static Argument FolderId() {
  return Value([](Scene&) -> uint64_t { return Current().folder; });
}
static Argument NavigatorId() {
  return Value([](Scene&) -> uint64_t { return Current().navigator; });
}
static Argument Name(std::string MadeViews::*name, uint32_t null_status) {
  return Pointer([name](Scene& scene) -> const void* { return scene.Text(Current().*name); }, null_status);
}
static Argument TheNewView() {
  return Pointer(
      [](Scene& scene) -> const void* {
        const KVVIEW view = NewView(Current().new_name);
        return scene.Copy(&view, sizeof view);
      },
      KVFAIL_NULL_PARAM);
}
static Argument DocumentIds() {
  return Pointer(
      [](Scene& scene) -> const void* {
        const uint32_t docid = scene.docid();
        return scene.Copy(&docid, sizeof docid);
      },
      KVFAIL_NULL_PARAM);
}

static std::function<std::string(Scene&, const Words&)> ZeroAt(size_t place) {
  return [place](Scene&, const Words& words) {
    uint32_t word;
    std::memcpy(&word, reinterpret_cast<const void*>(static_cast<uintptr_t>(words[place])), sizeof word);
    return std::string(word != 0 ? "an output is not 0" : "");
  };
}

static Row ViewRow(const char* function, Call call, std::vector<Argument> arguments,
                   std::vector<uint32_t> fault_statuses) {
  return {.function = function,
          .variant = "",
          .call = std::move(call),
          .session = SessionBy::kHandle,
          .needs = Needs::kDocument,
          .arguments = std::move(arguments),
          .prepare = MakeViews,
          .fault_statuses = std::move(fault_statuses)};
}

// Rows of functions that read a view: formulas that cannot be read are none.
static Row ReadRow(Row row) {
  row.ignores = {"EngItemInfo"};
  return row;
}

static Row WithTexts(Row row) {
  row.variant = "with texts";
  row.prepare = [](Scene& scene) {
    MakeViews(scene);
    PutFetchDesignCode(scene);
  };
  row.ignores.push_back("EngFormulaDecompile");
  row.fault_statuses.push_back(KVSUCCESS);
  return row;
}

static Row CountRow(Row row) {
  row.result = Result::kCount;
  return row;
}

static Row LocateRow(const char* function, Call call, std::string MadeViews::*name, uint32_t none_status) {
  return CountRow(
      ViewRow(function, std::move(call), {Database(), Name(name, KVFAIL_NULL_PARAM)}, {none_status}));
}

static Row CopyRow(const char* function, Call call, Argument id, uint32_t none_status) {
  Row row = ViewRow(function, std::move(call),
                    {Database(), std::move(id), Handle(Object::kOtherDatabase, KVFAIL_NO_DATABASE),
                     Name(&MadeViews::new_name, kMayBeNull), Out(4, kMayBeNull)},
                    {none_status});
  row.session = SessionBy::kThread;
  row.ignores = {"EngItemDelete"};  // the new title replaces whatever is left of the old one
  row.undone = ZeroAt(4);
  return row;
}

static Row CreateRow() {
  Row row =
      ViewRow("KVViewCreate", ByWords(KVViewCreate),
              {Database(), TheNewView(), Plain(1), In(NewColumn(), KVFAIL_NULL_PARAM), Out(4, kMayBeNull)},
              {KVFAIL_FORMULA, KVFAIL_NAME_IN_USE});
  row.undone = ZeroAt(4);
  return row;
}

static Row FetchRow() {
  return ReadRow(ViewRow("KVViewFetch", ByWords(KVViewFetch),
                         {Database(), ViewId(), Out(sizeof(KVVIEW), KVFAIL_NULL_PARAM)}, {KVFAIL_NO_VIEW}));
}
static Row ColumnFetchRow() {
  return ReadRow(ViewRow("KVColumnFetch", ByWords(KVColumnFetch),
                         {Database(), ViewId(), Plain(1), Out(sizeof(KVCOLUMN), KVFAIL_NULL_PARAM)},
                         {KVFAIL_NO_VIEW}));
}

static std::vector<Row> RecordRows() {
  return {
      LocateRow("KVViewLocateByName", ByWords(KVViewLocateByName), &MadeViews::view_name, KVFAIL_NO_VIEW),
      FetchRow(),
      WithTexts(FetchRow()),
      CopyRow("KVViewCopy", ByWords(KVViewCopy), ViewId(), KVFAIL_NO_VIEW),
      ViewRow("KVViewDelete", ByWords(KVViewDelete), {Database(), ViewId()}, {KVFAIL_NO_VIEW}),
      CreateRow(),
      ReadRow(CountRow(
          ViewRow("KVColumnGetCount", ByWords(KVColumnGetCount), {Database(), ViewId()}, {KVSUCCESS}))),
      ReadRow(ViewRow("KVColumnList", ByWords(KVColumnList),
                      {Database(), ViewId(), Enum(KVLIST_FIRST, 7, KVFAIL_BAD_ENUM), Out(4, kMayBeNull),
                       Out(sizeof(KVCOLUMN), KVFAIL_NULL_PARAM)},
                      {KVFAIL_NO_VIEW})),
      ColumnFetchRow(),
      WithTexts(ColumnFetchRow()),
      LocateRow("KVNavigatorLocateByName", ByWords(KVNavigatorLocateByName), &MadeViews::navigator_name,
                KVFAIL_NO_NAVIGATOR),
      CopyRow("KVNavigatorCopy", ByWords(KVNavigatorCopy), NavigatorId(), KVFAIL_NO_NAVIGATOR),
      ViewRow("KVNavigatorDelete", ByWords(KVNavigatorDelete), {Database(), NavigatorId()},
              {KVFAIL_NO_NAVIGATOR}),
  };
}

static Row EntriesRow(const char* function, Call call) {
  return ViewRow(function, std::move(call), {Database(), FolderId(), Plain(1), DocumentIds()},
                 {KVFAIL_NO_FOLDER, KVFAIL_INTERNAL});
}

static Row NewFolderRow() {
  return ViewRow("KVFolderCreateFromViewFolder", ByWords(KVFolderCreateFromViewFolder),
                 {Database(), Plain(0), ViewId(), Plain(0),
                  Pointer([](Scene& scene) -> const void* { return scene.Text(Current().new_name); },
                          KVFAIL_NAME_IN_USE),
                  Out(4, kMayBeNull)},
                 {KVFAIL_NO_FOLDER});
}

static std::vector<Row> FolderRows() {
  return {
      LocateRow("KVFolderLocateByName", ByWords(KVFolderLocateByName), &MadeViews::folder_name,
                KVFAIL_NO_FOLDER),
      ViewRow("KVFolderDelete", ByWords(KVFolderDelete), {Database(), FolderId()}, {KVFAIL_NO_FOLDER}),
      CountRow(ViewRow("KVFolderGetCount", ByWords(KVFolderGetCount), {Database(), FolderId()},
                       {KVFAIL_NO_FOLDER})),
      CopyRow("KVFolderCopy", ByWords(KVFolderCopy), FolderId(), KVFAIL_NO_FOLDER),
      EntriesRow("KVFolderAddEntries", ByWords(KVFolderAddEntries)),
      EntriesRow("KVFolderRemoveEntries", ByWords(KVFolderRemoveEntries)),
      ViewRow("KVFolderRemoveAllEntries", ByWords(KVFolderRemoveAllEntries), {Database(), FolderId()},
              {KVFAIL_NO_FOLDER}),
      NewFolderRow(),
  };
}

std::vector<Row> ViewRows() {
  std::vector<Row> rows = RecordRows();
  for (Row& row : FolderRows()) rows.push_back(std::move(row));
  return rows;
}

}  // namespace kit
