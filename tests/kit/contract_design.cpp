// Rows of the functions that list design elements.
#include "kit/contract.h"
#include "kit/form_builder.h"
#include "kvint.h"

namespace kit {

constexpr uint32_t kNoMemory = 0x107;  // the engine's word, which the callback of a search gives

// Puts a record of each family into the database, so that a list has an entry; once, since a database
// outlives its scenes, and a sweep over faults would not end if each run had more to read.
static void StoreDesign(Scene& scene) {
  const _DATABASE* dbase = _GetDatabase(KVICurrentSession(), scene.Handle(Object::kDatabase));
  uint32_t id = 0;
  if (dbase == nullptr || EngDesignFind(dbase->dbhand, "Part", BRCLASS_FORM, &id) == 0) return;
  FormBuilder(dbase->dbhand, "Main\\Sub|Form").Flags("D").Store();  // else each would be opened to look
  FormBuilder(dbase->dbhand, "Part").Subform().Store();
  for (const char* letter : {"Y", "F", "G"})
    FormBuilder(dbase->dbhand, letter).Class(BRCLASS_VIEW).Flags(letter).NoInfo().NoBody().Store();
}

static Row ListRow(const char* name, Call call, size_t summary_bytes) {
  return {.function = name,
          .variant = "",
          .call = std::move(call),
          .session = SessionBy::kHandle,
          .needs = Needs::kDatabase,
          .arguments = {Handle(Object::kDatabase, KVFAIL_NO_DATABASE), Enum(KVLIST_FIRST, 7, KVFAIL_BAD_ENUM),
                        Out(summary_bytes, KVFAIL_NULL_PARAM)},
          .prepare = StoreDesign,
          .fault_statuses = {kNoMemory}};
}

std::vector<Row> DesignRows() {
  return {ListRow("KVFormList", ByWords(KVFormList), sizeof(KVFORMSUMM)),
          ListRow("KVSubformList", ByWords(KVSubformList), sizeof(KVSUBFORMSUMM)),
          ListRow("KVViewList", ByWords(KVViewList), sizeof(KVVIEWSUMM)),
          ListRow("KVFolderList", ByWords(KVFolderList), sizeof(KVFOLDERSUMM)),
          ListRow("KVNavigatorList", ByWords(KVNavigatorList), sizeof(KVNAVIGATORSUMM))};
}

}  // namespace kit
