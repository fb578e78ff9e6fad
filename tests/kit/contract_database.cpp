// Rows of the database functions.
#include <cstring>
#include <filesystem>

#include "brynd.h"
#include "kit/contract.h"

namespace kit {

static Argument Database() { return Handle(Object::kDatabase, KVFAIL_NO_DATABASE); }
static Argument Server() { return Text("", kMayBeNull); }
static Argument FreshDatabase() {
  return Pointer([](Scene& scene) -> const void* { return scene.FreshDatabase(); }, KVFAIL_NULL_PARAM);
}
static Argument FreshPath() {
  return Pointer([](Scene& scene) -> const void* { return scene.FreshPath(); }, KVFAIL_NULL_PARAM);
}

// A call that failed must not leave the file whose path is the argument at place.
static std::function<std::string(Scene&, const Words&)> NoFileAt(size_t place) {
  return [place](Scene&, const Words& words) {
    const bool left = std::filesystem::exists(reinterpret_cast<const char*>(words[place]));
    return std::string(left ? "a file is left" : "");
  };
}

static const std::vector<const char*>& CallsWithoutStatus() {
  static const std::vector<const char*> calls{"EngDbModeGet", "EngDbIdGet", "EngDbInfoGet",
                                              "EngDbInfoFieldGet", "EngDbBuildVersionGet"};
  return calls;
}

static std::vector<Row> HandleRows() {
  return {
      {.function = "KVDatabaseOpen",
       .variant = "",
       .call = ByWords(KVDatabaseOpen),
       .arguments = {Server(), FreshDatabase(), Plain(0), Out(4, KVFAIL_NULL_PARAM)},
       .finish = [](Scene&, const Words&) { Scene::CloseAll(); },
       .ignores = CallsWithoutStatus()},
      {"KVDatabaseClose",
       "",
       ByWords(KVDatabaseClose),
       Result::kStatus,
       SessionBy::kHandle,
       Needs::kDocument,
       {Database(), Plain(0)}},
      {.function = "KVDatabaseReopen",
       .variant = "",
       .call = ByWords(KVDatabaseReopen),
       .needs = Needs::kDocument,
       .arguments = {Handle(Object::kDatabase, KVFAIL_BAD_HANDLE), Plain(1),
                     Value([](Scene& scene) -> uint64_t {
                       return reinterpret_cast<uintptr_t>(scene.Bytes(4));
                     })},
       .foreign_status = KVSUCCESS,
       .ignores = CallsWithoutStatus()},
      {"KVDatabaseGetBryndHandle",
       "",
       ByWords(KVDatabaseGetBryndHandle),
       Result::kStatus,
       SessionBy::kHandle,
       Needs::kDocument,
       {Database(), Plain(KVTOBRYND_GET_HANDLE), Out(4, KVFAIL_NULL_PARAM)}},
      {.function = "KVDatabaseGetBryndHandle",
       .variant = "release",
       .call = ByWords(KVDatabaseGetBryndHandle),
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Database(), Plain(KVTOBRYND_RELEASE), Out(4, KVFAIL_NULL_PARAM)},
       .finish =
           [](Scene&, const Words& words) {
             EngDb dbhand = 0;
             memcpy(&dbhand, reinterpret_cast<const void*>(words[2]), sizeof dbhand);
             EngDbClose(dbhand);
           }},
  };
}

static Row GetProperty(const char* variant, uint64_t property, size_t bytes) {
  return {"KVDatabaseGetProperty",
          variant,
          ByWords(KVDatabaseGetProperty),
          Result::kStatus,
          SessionBy::kHandle,
          Needs::kDocument,
          {Database(), Enum(property, 33, KVFAIL_BAD_PROPERTY), Out(bytes, KVFAIL_NULL_PARAM)}};
}
static Row SetProperty(const char* variant, uint64_t property, Argument value) {
  return {"KVDatabaseSetProperty",
          variant,
          ByWords(KVDatabaseSetProperty),
          Result::kStatus,
          SessionBy::kHandle,
          Needs::kDocument,
          {Database(), Enum(property, 33, KVFAIL_BAD_PROPERTY), std::move(value)}};
}

// The row with the engine calls whose failure it passes over, and the statuses it gives for others.
static Row Tolerating(Row row, std::vector<const char*> ignores, std::vector<uint32_t> fault_statuses = {}) {
  row.ignores = std::move(ignores);
  row.fault_statuses = std::move(fault_statuses);
  return row;
}

static std::vector<Row> PropertyRows() {
  const uint32_t limit = 100;
  const uint32_t nothing = 0;
  const KVDATETIME id{};
  return {
      GetProperty("", KVPROP_DB_SUMMARY_LIMIT, 4),
      GetProperty("title", KVPROP_DB_TITLE, 130),
      GetProperty("replica id", KVPROP_DB_REPLICA_ID, 8),
      GetProperty("modified", KVPROP_DB_DATA_MODIFIED, 8),
      GetProperty("space", KVPROP_DB_SPACE_1, 4),
      GetProperty("path", KVPROP_DB_FILEPATH, 256),
      GetProperty("class", KVPROP_DB_CLASS, 4),
      GetProperty("id", KVPROP_DB_ID, 8),
      GetProperty("build", KVPROP_DB_BUILD, 4),
      Tolerating(GetProperty("categories", KVPROP_DB_INFO_1, 128), {"EngDbInfoGet", "EngDbInfoFieldGet"}),
      Tolerating(GetProperty("default view", KVPROP_DB_DEFAULT_VIEW, 4), {"EngDbSpecialIdGet"}),
      Tolerating(GetProperty("full text", KVPROP_DB_HAS_FULLTEXT, 4), {"EngFullTextIndexTimeGet"}),
      Tolerating(GetProperty("stored form", KVPROP_DB_STORED_FORM, 4), {"EngNoteClose"}, {KVFAIL_INTERNAL}),
      SetProperty("", KVPROP_DB_SUMMARY_LIMIT, In(limit, KVFAIL_NULL_PARAM)),
      SetProperty("bool", KVPROP_DB_DELAY_COMMIT, In(limit, KVFAIL_NULL_PARAM)),
      SetProperty("replica id", KVPROP_DB_REPLICA_ID, In(id, KVFAIL_NULL_PARAM)),
      Tolerating(SetProperty("default form", KVPROP_DB_DEFAULT_FORM, In(nothing, KVFAIL_NULL_PARAM)),
                 {"EngDbSpecialIdGet"}),
      Tolerating(SetProperty("stored form", KVPROP_DB_STORED_FORM, In(nothing, KVFAIL_NULL_PARAM)),
                 {"EngItemTextSet", "EngNoteUpdate", "EngNoteClose"}, {KVFAIL_INTERNAL}),
      Tolerating(SetProperty("title", KVPROP_DB_TITLE, Text("A title", KVFAIL_NULL_PARAM)),
                 {"EngDbInfoFieldGet"}),
      SetProperty("cutoff", KVPROP_DB_CUTOFF_INTERVAL, In(limit, KVFAIL_NULL_PARAM)),
  };
}

// What a create asks without looking at the status: lengths of texts, and whether something is there already.
// A default view whose size is not told is complete all the same.
static std::vector<const char*> CallsOfACreate() {
  return {"EngDbInfoFieldGet", "EngMessageLoad", "EngFormulaSizeGet", "EngNoteOpen"};
}

static std::vector<Row> AdministrationRows() {
  return {
      {.function = "KVDatabaseCreate",
       .variant = "",
       .call = ByWords(KVDatabaseCreate),
       .arguments = {Server(), FreshPath(), Text("Title", kMayBeNull), Text("Category", kMayBeNull),
                     Text("", kMayBeNull), Text("", kMayBeNull), Enum(0, 14, KVFAIL_BAD_ENUM), Plain(0)},
       .ignores = CallsOfACreate(),
       .undone = NoFileAt(1)},
      {.function = "KVDatabaseCreate",
       .variant = "from a template",
       .call = ByWords(KVDatabaseCreate),
       .arguments = {Server(), FreshPath(), Text("", kMayBeNull), Text("", kMayBeNull), Text("", kMayBeNull),
                     Pointer([](Scene& scene) -> const void* { return scene.FreshDatabase(); }, kMayBeNull),
                     Enum(0, 14, KVFAIL_BAD_ENUM), Plain(KVDBCREATE_INHERIT_TEMPLATE)},
       .ignores = CallsOfACreate(),
       .undone = NoFileAt(1)},
      {"KVDatabaseDelete",
       "",
       ByWords(KVDatabaseDelete),
       Result::kStatus,
       SessionBy::kThread,
       Needs::kNothing,
       {Server(), FreshDatabase()}},
      {.function = "KVDatabaseCopy",
       .variant = "",
       .call = ByWords(KVDatabaseCopy),
       .arguments = {Server(), FreshDatabase(), Text("", kMayBeNull), FreshPath(), Text("Copy", kMayBeNull),
                     Plain(KVDBCOPY_KEEP_INFO), Plain(0), Plain(0)},
       .ignores = CallsOfACreate(),
       .undone = NoFileAt(3)},
      {.function = "KVDatabaseCopy",
       .variant = "replica of documents",
       .call = ByWords(KVDatabaseCopy),
       .arguments = {Server(), FreshDatabase(), Text("", kMayBeNull), FreshPath(), Text("", kMayBeNull),
                     Plain(KVDBCOPY_REPLICA), Plain(1), Plain(0)},
       .ignores = CallsOfACreate(),
       .undone = NoFileAt(3)},
      {"KVDatabaseCompact",
       "",
       ByWords(KVDatabaseCompact),
       Result::kStatus,
       SessionBy::kThread,
       Needs::kNothing,
       {Server(), FreshDatabase(), Out(4, kMayBeNull), Out(4, kMayBeNull)}},
  };
}

std::vector<Row> DatabaseRows() {
  std::vector<Row> rows;
  for (const auto& part : {HandleRows, PropertyRows, AdministrationRows})
    for (Row& row : part()) rows.push_back(std::move(row));
  return rows;
}

}  // namespace kit
