// Rows of the item functions.
#include "kit/contract.h"
#include "kvint_document.h"

namespace kit {

static Argument Document() { return Handle(Object::kDocument, KVFAIL_BAD_DOCUMENT); }
static Argument Name(const char* name) { return Text(name, KVFAIL_NULL_PARAM); }
static Argument Optional(uint32_t word) { return In(word, kMayBeNull); }

static Row ItemRow(const char* name, Call call, std::vector<Argument> arguments) {
  return {
      name, "", std::move(call), Result::kStatus, SessionBy::kHandle, Needs::kDocument, std::move(arguments)};
}

// The same, of a function that does not look at the status of these calls.
static Row Ignoring(Row row, std::vector<const char*> calls) {
  row.ignores = std::move(calls);
  return row;
}

// A write that failed must not mark the document as changed.
static std::string MarkedDirty(Scene& scene, const Words&) {
  const _DOCUMENT* doc = _GetDocument(KVICurrentSession(), scene.Handle(Object::kDocument));
  return doc != nullptr && doc->dirty != 0 ? "the document is marked as changed" : "";
}
static Row Unmarked(Row row) {
  row.undone = MarkedDirty;
  return row;
}

static Row Variant(const char* variant, Row row) {
  row.variant = variant;
  return row;
}
// The same, of a function that gives this status for some faults.
static Row Giving(Row row, uint32_t fault_status) {
  row.fault_statuses.push_back(fault_status);
  return row;
}
static Row Missing(Row row) {
  row.valid_status = KVFAIL_NO_ITEM;
  return Variant("missing item", std::move(row));
}

static std::vector<Row> ReadRows() {
  const uint32_t null = KVFAIL_NULL_PARAM;
  Row count = Ignoring(ItemRow("KVItemGetCount", ByWords(KVItemGetCount), {Document()}), {"EngItemScan"});
  count.result = Result::kCount;
  return {
      count,
      ItemRow("KVItemList", ByWords(KVItemList),
              {Document(), Enum(KVLIST_FIRST, 7, KVFAIL_BAD_ENUM), Plain(1), Out(sizeof(KVITEM), null)}),
      Ignoring(ItemRow("KVItemGetInfo", ByWords(KVItemGetInfo),
                       {Document(), Name("Subject"), Optional(0), Optional(0), Optional(0)}),
               {"EngItemQuery"}),
      ItemRow("KVItemGetLength", ByWords(KVItemGetLength),
              {Document(), Name("Subject"), Optional(0), Optional(KVTYPE_TEXTLIST), Out(4, null)}),
      ItemRow("KVItemFetch", ByWords(KVItemFetch),
              {Document(), Name("Subject"), Optional(0), Optional(100), Optional(0), Out(101, null)}),
      // A block that cannot be made shorter serves as it is.
      Giving(ItemRow("KVItemGetPointer", ByWords(KVItemGetPointer),
                     {Document(), Name("Number"), Optional(0), Optional(0), Optional(KVTYPE_TEXT),
                      Out(sizeof(void*), null)}),
             KVSUCCESS),
      Variant("anew, without value", ItemRow("KVItemList", ByWords(KVItemList),
                                             {Document(), Enum(KVLIST_REFRESH, 7, KVFAIL_BAD_ENUM), Plain(0),
                                              Out(sizeof(KVITEM), null)})),
      // A number that the engine does not write is bad data for a buffer with an end.
      Giving(Variant("number as text", ItemRow("KVItemFetch", ByWords(KVItemFetch),
                                               {Document(), Name("Number"), Optional(0), Optional(100),
                                                In(KVTYPE_TEXT, kMayBeNull), Out(101, null)})),
             KVFAIL_BAD_FORMAT),
      Missing(
          ItemRow("KVItemFetch", ByWords(KVItemFetch),
                  {Document(), Name("Missing"), Optional(0), Optional(100), Optional(0), Out(101, null)})),
      Missing(ItemRow("KVItemGetInfo", ByWords(KVItemGetInfo),
                      {Document(), Name("Missing"), Optional(0), Optional(0), Optional(0)})),
  };
}

static std::vector<Row> WriteRows() {
  Row copy = ItemRow("KVItemCopy", ByWords(KVItemCopy),
                     {Document(), Name("List"), Handle(Object::kOtherDocument, KVFAIL_BAD_DOCUMENT)});
  copy.session = SessionBy::kThread;
  copy.ignores = {"EngItemDeleteByBlock"};
  copy.fault_statuses = {KVFAIL_NO_ITEM};  // nothing was found to copy
  Row unique =
      Ignoring(ItemRow("KVItemAppendTextList", ByWords(KVItemAppendTextList),
                       {Document(), Name("List"), Text("two", KVFAIL_NULL_PARAM), Plain(0), Plain(0)}),
               {"EngItemTextListAppend", "EngItemInfo"});
  unique.fault_statuses = {KVFAIL_NAME_IN_USE};  // the list is as long as before
  return {
      Unmarked(Ignoring(ItemRow("KVItemPut", ByWords(KVItemPut),
                                {Document(), Name("Subject"), Enum(0, 9, KVFAIL_BAD_ENUM), Plain(0),
                                 Enum(KVTYPE_TEXT, 10, KVFAIL_BAD_ENUM),
                                 Text("Another subject", KVFAIL_NULL_PARAM), Plain(0)}),
                        {"EngItemDeleteByBlock"})),
      Unmarked(Variant("without duplicates", unique)),
      Ignoring(ItemRow("KVItemAppendTextList", ByWords(KVItemAppendTextList),
                       {Document(), Name("List"), Text("two", KVFAIL_NULL_PARAM), Plain(0), Plain(1)}),
               {"EngItemTextListAppend"}),
      copy,
      Unmarked(ItemRow("KVItemDelete", ByWords(KVItemDelete), {Document(), Name("Subject")})),
  };
}

std::vector<Row> ItemRows() {
  std::vector<Row> rows;
  for (const auto& part : {ReadRows, WriteRows})
    for (Row& row : part()) rows.push_back(std::move(row));
  return rows;
}

}  // namespace kit
