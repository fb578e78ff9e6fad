// Rows of the document functions.
#include <cstring>

#include "brynd.h"
#include "kit/contract.h"

namespace kit {

static Argument Database() { return Handle(Object::kDatabase, KVFAIL_NO_DATABASE); }
static Argument Document() { return Handle(Object::kDocument, KVFAIL_BAD_DOCUMENT); }
static Argument DocumentId() {
  return Value([](Scene& scene) -> uint64_t { return scene.docid(); });
}

static void MakeDirty(Scene& scene) {
  KVItemPut(scene.Handle(Object::kDocument), "Changed", 0, 0, KVTYPE_TEXT, "more", 0);
}

static uint32_t WordAt(uint64_t address) {
  uint32_t word;
  std::memcpy(&word, reinterpret_cast<const void*>(static_cast<uintptr_t>(address)), sizeof word);
  return word;
}

// A call that failed must have left 0 in the word whose address is the argument at place.
static std::function<std::string(Scene&, const Words&)> ZeroAt(size_t place) {
  return [place](Scene&, const Words& words) {
    return std::string(WordAt(words[place]) != 0 ? "an output is not 0" : "");
  };
}

// The note of a released document belongs to the caller, also when its last save failed.
static void CloseNote(Scene&, const Words& words) { EngNoteClose(WordAt(words[2])); }

static Row Release() {
  return {
      .function = "KVDocumentGetBryndHandle",
      .variant = "release",
      .call = ByWords(KVDocumentGetBryndHandle),
      .session = SessionBy::kHandle,
      .needs = Needs::kDocument,
      .arguments = {Document(), Plain(KVTOBRYND_RELEASE | KVDOCWRITE_NOCOMMIT), Out(4, KVFAIL_NULL_PARAM)},
      .prepare = MakeDirty,
      .finish = CloseNote,
      .undone = [](Scene& scene, const Words& words) {
        CloseNote(scene, words);
        return std::string();
      }};
}

static Row WriteRow(const char* function, const char* variant, Call call, Argument first, uint32_t flags) {
  return {.function = function,
          .variant = variant,
          .call = std::move(call),
          .session = SessionBy::kHandle,
          .needs = Needs::kDocument,
          .arguments = {std::move(first), Plain(flags)}};
}

static std::vector<Row> VariantRows() {
  return {
      WriteRow("KVDocumentSave", "without changes", ByWords(KVDocumentSave), Document(), 0),
      WriteRow("KVDocumentSave", "discard", ByWords(KVDocumentSave), Document(), KVDOCWRITE_DISCARD),
      WriteRow("KVDocumentClose", "discard", ByWords(KVDocumentClose), Document(), KVDOCWRITE_DISCARD),
      Release(),
  };
}

static std::vector<Row> MainRows() {
  const uint32_t null = KVFAIL_NULL_PARAM;
  return {
      {.function = "KVDocumentCreate",
       .variant = "",
       .call = ByWords(KVDocumentCreate),
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Database(), Plain(0), Out(4, null)},
       .undone = ZeroAt(2)},
      {.function = "KVDocumentOpen",
       .variant = "",
       .call = ByWords(KVDocumentOpen),
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Database(), DocumentId(), Plain(0), Out(4, null)},
       // A class that cannot be read is not that of a data document.
       .fault_statuses = {KVFAIL_NON_DATA_DOCUMENT},
       .undone = ZeroAt(3)},
      {.function = "KVDocumentSave",
       .variant = "",
       .call = ByWords(KVDocumentSave),
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Document(), Plain(KVDOCWRITE_NOCOMMIT)},
       .prepare = MakeDirty},
      {.function = "KVDocumentClose",
       .variant = "",
       .call = ByWords(KVDocumentClose),
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Document(), Plain(KVDOCWRITE_NOCOMMIT)},
       .prepare = MakeDirty},
      {"KVDocumentDelete",
       "",
       ByWords(KVDocumentDelete),
       Result::kStatus,
       SessionBy::kHandle,
       Needs::kDocument,
       {Database(), DocumentId(), Plain(KVDOCDELETE_NOCOMMIT)}},
      {.function = "KVDocumentCopy",
       .variant = "",
       .call = ByWords(KVDocumentCopy),
       .needs = Needs::kDocument,
       .arguments = {Database(), DocumentId(), Handle(Object::kOtherDatabase, KVFAIL_NO_DATABASE),
                     Out(4, kMayBeNull)},
       .ignores = {"EngNoteInfoGet"},
       .undone = ZeroAt(3)},
      {"KVDocumentGetBryndHandle",
       "",
       ByWords(KVDocumentGetBryndHandle),
       Result::kStatus,
       SessionBy::kHandle,
       Needs::kDocument,
       {Document(), Plain(KVTOBRYND_GET_HANDLE), Out(4, null)}},
      {.function = "KVDocumentLocateByUnid",
       .variant = "",
       .call = ByWords(KVDocumentLocateByUnid),
       .result = Result::kCount,
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Database(), Value([](Scene& scene) -> uint64_t {
                       return reinterpret_cast<uintptr_t>(scene.Copy(scene.unid(), sizeof(KVUNID)));
                     })},
       .ignores = {"EngDbUnidInfoGet", "EngDbIdInfoGet"}},
  };
}

std::vector<Row> DocumentRows() {
  std::vector<Row> rows = MainRows();
  for (Row& row : VariantRows()) rows.push_back(std::move(row));
  return rows;
}

}  // namespace kit
