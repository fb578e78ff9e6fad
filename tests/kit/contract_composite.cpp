// Rows of the composite functions.
#include "kit/contract.h"
#include "kvint_composite.h"

namespace kit {

static Argument Composite() { return Handle(Object::kComposite, KVFAIL_BAD_COMPOSITE); }
static Argument Opened() { return Handle(Object::kOtherComposite, KVFAIL_BAD_COMPOSITE); }
static Argument Document() { return Handle(Object::kDocument, KVFAIL_BAD_DOCUMENT); }
static Argument OtherDocument() { return Handle(Object::kOtherDocument, KVFAIL_BAD_DOCUMENT); }
static Argument OptionalType(int32_t cdtype) { return In(cdtype, kMayBeNull); }

// Two of a function's engine calls find items to delete; their failure leaves the items.
static const std::vector<const char*> kDeletingCalls = {"EngItemInfo", "EngItemInfoNext",
                                                        "EngItemDeleteByBlock"};

static Row CompositeRow(const char* name, const char* variant, Call call, SessionBy session,
                        std::vector<Argument> arguments) {
  return {.function = name,
          .variant = variant,
          .call = std::move(call),
          .session = session,
          .needs = Needs::kComposite,
          .arguments = std::move(arguments)};
}
static Row ByHandle(const char* name, Call call, std::vector<Argument> arguments, const char* variant = "") {
  return CompositeRow(name, variant, std::move(call), SessionBy::kHandle, std::move(arguments));
}
static Row ByThread(const char* name, Call call, std::vector<Argument> arguments, const char* variant = "") {
  return CompositeRow(name, variant, std::move(call), SessionBy::kThread, std::move(arguments));
}
static Row Ignoring(Row row, std::vector<const char*> calls) {
  row.ignores = std::move(calls);
  return row;
}
static Row Giving(Row row, std::vector<uint32_t> fault_statuses) {
  row.fault_statuses = std::move(fault_statuses);
  return row;
}

// After a fault both composites still have their three records, in the order of their texts.
static std::string RecordsChanged(Scene& scene, const Words&) {
  for (const Object object : {Object::kComposite, Object::kOtherComposite})
    if (KVCDRecordGetCount(scene.Handle(object)) != 3)
      return "the composite's records are not what they were";
  return "";
}
static Row Unchanged(Row row) {
  row.undone = RecordsChanged;
  return row;
}

static Argument TextToInsert() {
  return Pointer(
      [](Scene& scene) -> const void* {
        const KVCDTEXT text{KVFONTSTYLE_DEFAULT, 3, const_cast<char*>(scene.Text("new"))};
        return scene.Copy(&text, sizeof text);
      },
      KVFAIL_NULL_PARAM);
}
static Argument FieldToInsert() {
  return Pointer(
      [](Scene& scene) -> const void* {
        KVCDFIELD field = KVCDFIELD_DEFAULT;
        field.default_formula_length = 5;
        field.input_valid_formula_length = 8;
        field.field_name_length = 4;
        field.buffer = const_cast<char*>(scene.Text("1 + 2@SuccessName"));
        return scene.Copy(&field, sizeof field);
      },
      KVFAIL_NULL_PARAM);
}
static Argument TextToFill() {
  return Pointer(
      [](Scene& scene) -> const void* {
        const KVCDTEXT text{{}, 0, static_cast<char*>(scene.Bytes(5))};
        return scene.Copy(&text, sizeof text);
      },
      kMayBeNull);
}

static std::vector<Row> HandleRows() {
  const uint32_t null = KVFAIL_NULL_PARAM;
  const auto change = [](Scene& scene) { KVCDRecordDelete(scene.Handle(Object::kOtherComposite), 2, 1); };
  Row close_changed = Giving(
      Ignoring(ByHandle("KVCompositeClose", ByWords(KVCompositeClose), {Opened(), Plain(0)}, "changed"),
               {"EngItemDeleteByBlock"}),
      {KVFAIL_NO_MEMORY});
  close_changed.prepare = change;
  return {
      Ignoring(ByHandle("KVCompositeCreate", ByWords(KVCompositeCreate),
                        {Document(), Text("Body", kMayBeNull), Out(4, null)}),
               kDeletingCalls),
      ByHandle("KVCompositeOpen", ByWords(KVCompositeOpen),
               {OtherDocument(), Text("Body", null), Out(4, null)}),
      Giving(Ignoring(ByHandle("KVCompositeClose", ByWords(KVCompositeClose), {Composite(), Plain(0)}),
                      {"EngItemDeleteByBlock"}),
             {KVFAIL_NO_MEMORY}),
      close_changed,
      ByHandle("KVCompositeClose", ByWords(KVCompositeClose), {Opened(), Plain(KVCOMPWRITE_DISCARD)},
               "discarding"),
      ByHandle("KVCompositeGetProperty", ByWords(KVCompositeGetProperty),
               {Composite(), Enum(KVPROP_COMPOSITE_ITEMNAME, 5, KVFAIL_BAD_PROPERTY), Out(65, null)}),
      Ignoring(ByThread("KVCompositeCopy", ByWords(KVCompositeCopy),
                        {Opened(), Document(), Text("Copy", kMayBeNull), Out(4, null)}),
               kDeletingCalls),
      Ignoring(ByThread("KVCompositeCopySubset", ByWords(KVCompositeCopySubset),
                        {Opened(), Plain(2), Plain(9), Document(), Text("Copy", kMayBeNull), Out(4, null)}),
               kDeletingCalls),
      // A growth block that cannot be made shorter serves as it is.
      Unchanged(
          Giving(ByThread("KVCompositeMerge", ByWords(KVCompositeMerge), {Composite(), Plain(2), Opened()}),
                 {KVSUCCESS})),
      Unchanged(ByThread("KVCompositeMerge", ByWords(KVCompositeMerge), {Opened(), Plain(0), Composite()},
                         "at the end")),
  };
}

static std::vector<Row> RecordRows() {
  const uint32_t null = KVFAIL_NULL_PARAM;
  Row count = ByHandle("KVCDRecordGetCount", ByWords(KVCDRecordGetCount), {Opened()});
  count.result = Result::kCount;
  return {
      count,
      ByHandle("KVCDRecordList", ByWords(KVCDRecordList),
               {Opened(), Enum(KVLIST_FIRST, 7, KVFAIL_BAD_ENUM), In(int32_t{KVCDTYPE_TEXT}, null),
                Out(4, kMayBeNull)}),
      ByHandle("KVCDRecordGetInfo", ByWords(KVCDRecordGetInfo),
               {Opened(), Plain(2), OptionalType(0), Out(4, kMayBeNull)}),
      ByHandle("KVCDRecordFetch", ByWords(KVCDRecordFetch),
               {Opened(), Plain(2), OptionalType(KVCDTYPE_TEXT), TextToFill()}),
      ByHandle("KVCDRecordGetPointer", ByWords(KVCDRecordGetPointer),
               {Opened(), Plain(2), OptionalType(0), TextToFill()}),
      Unchanged(ByHandle("KVCDRecordInsert", ByWords(KVCDRecordInsert),
                         {Opened(), Plain(2), Enum(KVCDTYPE_TEXT, 20, KVFAIL_BAD_ENUM), TextToInsert()})),
      Unchanged(Giving(ByHandle("KVCDRecordInsert", ByWords(KVCDRecordInsert),
                                {Composite(), Plain(0), Plain(KVCDTYPE_FIELD), FieldToInsert()}, "field"),
                       {KVFAIL_FORMULA})),
      Unchanged(ByHandle("KVCDRecordUpdate", ByWords(KVCDRecordUpdate),
                         {Opened(), Plain(2), Enum(KVCDTYPE_TEXT, 20, KVFAIL_BAD_ENUM), TextToInsert()})),
      Unchanged(ByHandle("KVCDRecordDelete", ByWords(KVCDRecordDelete), {Opened(), Plain(2), Plain(1)})),
  };
}

std::vector<Row> CompositeRows() {
  std::vector<Row> rows = HandleRows();
  for (Row& row : RecordRows()) rows.push_back(std::move(row));
  return rows;
}

}  // namespace kit
