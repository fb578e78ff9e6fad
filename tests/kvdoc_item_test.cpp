// Reading items: information, length, value into the caller's buffer, value by pointer.
#include <array>

#include "kvdoc_world.h"

namespace {

using kit::Fault;
using kit::Spy;
using kvdoc::IndexDocument;
using kvdoc::kEngineFailure;
using kvdoc::kEngineFailureWithFlagBits;
using kvdoc::kUntouched;
using kvdoc::NoteItem;
using kvdoc::NumberBytes;
using kvdoc::Record;
using kvdoc::TextList;

constexpr int32_t kTypeUntouched = 0x55;

class ItemTest : public kvdoc::DocumentTest {
 protected:
  void SetUp() override {
    DocumentTest::SetUp();
    document_ = New();
    note_ = NoteOf(document_);
    AppendText(note_, "Subject", "a subject");
    Append(note_, {"Number", BRTYPE_NUMBER, 0x404, NumberBytes(42.5)});
    Append(note_, {"List", BRTYPE_TEXT_LIST, 4, TextList({"one", "two", "three"})});
    Append(note_, {"Lines", BRTYPE_TEXT, 0, std::string("first\0second", 12)});
    Append(note_, {"User", BRTYPE_USER, 4, "12345678user"});
    Append(note_, {"Body", BRTYPE_COMPOSITE, 0, std::string(10, '\0')});
    Append(note_, {"Odd", 0x502, 4, "no public type"});
    Append(note_, {"Mixed", BRTYPE_TEXT, 4, "text"});
    Append(note_, {"Mixed", BRTYPE_NUMBER, 0x20, NumberBytes(7)});
    Append(note_, {"Mixed", BRTYPE_TEXT_LIST, 4, TextList({"entry", "more"})});
    Append(note_, {"$File", BRTYPE_TEXT, 4, "attachment"});
    Append(note_, {"$ref", 4, 4, std::string(18, 'r')});
    Append(note_, {"$FILES", BRTYPE_TEXT, 4, "seen"});
    Append(note_, {"$RE", BRTYPE_TEXT, 4, "seen"});
  }

  struct Outcome {
    uint32_t status;
    int32_t item_type;
    uint32_t length;
    int32_t buffer_type;
    std::string bytes;
  };
  Outcome Fetch(const std::string& name, int32_t item_type, uint32_t length, int32_t buffer_type) {
    std::vector<char> buffer(length + 1 > 200 ? length + 1 : 200, '#');
    Outcome outcome{0, item_type, length, buffer_type, ""};
    outcome.status = KVItemFetch(document_, name.c_str(), &outcome.item_type, &outcome.length,
                                 &outcome.buffer_type, buffer.data());
    outcome.bytes.assign(buffer.data(), outcome.status == KVSUCCESS ? outcome.length : 10);
    return outcome;
  }
  // Makes a formula's value the result of the last execution.
  void SetExecuteResult(uint16_t type, const std::string& bytes) {
    _DOCUMENT* doc = Record(document_);
    if (doc->exechand == 0) {
      ASSERT_EQ(EngMemAlloc(0, 100, &doc->exechand), 0);
    }
    KVLocked value(doc->exechand);
    KVIStore<uint16_t>(value.bytes, type);
    memcpy(value.bytes + 2, bytes.data(), bytes.size());
    doc->execlen = static_cast<uint16_t>(bytes.size() + 2);
  }

  uint32_t document_ = 0;
  EngNote note_ = 0;
};

// ---- The one reader

TEST_F(ItemTest, GetItemInfo_EachItem_TypeLengthAndPlace) {
  const struct {
    const char* name;
    int32_t form_type;
    uint32_t status;
    int32_t type;
    uint32_t length;
  } rows[] = {
      {"Subject", 0, KVSUCCESS, KVTYPE_TEXT, 11},
      {"sUBJECT", 0, KVSUCCESS, KVTYPE_TEXT, 11},
      {"Subject", KVTYPE_TEXTLIST, KVSUCCESS, KVTYPE_TEXT, 11},
      {"Subject", KVTYPE_NUMBER, KVFAIL_NO_ITEM, 0, 0},
      {"Number", KVTYPE_NUMBERLIST, KVSUCCESS, KVTYPE_NUMBER, 10},
      {"List", KVTYPE_TEXT, KVSUCCESS, KVTYPE_TEXTLIST, 21},
      {"User", 0, KVSUCCESS, KVTYPE_TEXT, 6},
      {"Body", 0, KVSUCCESS, KVTYPE_COMPOSITE, 12},
      {"Odd", 0, KVSUCCESS, KVTYPE_NONE, 16},
      {"Odd", KVTYPE_TEXT, KVFAIL_NO_ITEM, 0, 0},
      {"Mixed", 0, KVSUCCESS, KVTYPE_TEXT, 6},
      {"Mixed", KVTYPE_NUMBER, KVSUCCESS, KVTYPE_NUMBER, 10},
      {"Mixed", KVTYPE_TEXTLIST, KVSUCCESS, KVTYPE_TEXT, 6},
      {"Mixed", KVTYPE_DATETIME, KVFAIL_NO_ITEM, 0, 0},
      {"$FILE", 0, KVFAIL_NO_ITEM, 0, 0},
      {"$file", 0, KVFAIL_NO_ITEM, 0, 0},
      {"$REF", 0, KVFAIL_NO_ITEM, 0, 0},
      {"$FILES", 0, KVSUCCESS, KVTYPE_TEXT, 6},
      {"$RE", 0, KVSUCCESS, KVTYPE_TEXT, 6},
      {"Missing", 0, KVFAIL_NO_ITEM, 0, 0},
  };
  for (const auto& row : rows) {
    ItemPlace place{.type = 99, .length = 99, .value = {.pool = 99, .block = 99}, .free_value = 99};
    EXPECT_EQ(
        GetItemInfo(Record(document_), row.name, KVIItemNameBytes(row.name), row.form_type, nullptr, &place),
        row.status)
        << row.name << row.form_type;
    EXPECT_EQ(place.type, row.type) << row.name;
    EXPECT_EQ(place.length, row.length) << row.name;
    EXPECT_EQ(place.free_value, 0);
    EXPECT_EQ(place.value.pool != 0, row.status == KVSUCCESS) << row.name;
  }
}

TEST_F(ItemTest, GetItemInfo_HiddenNames_TheEngineIsNotAsked) {
  Spy spy;
  ItemPlace place;
  EXPECT_EQ(GetItemInfo(Record(document_), "$FILE", 5, 0, nullptr, &place), KVFAIL_NO_ITEM);
  EXPECT_EQ(GetItemInfo(Record(document_), "$Ref", 4, 0, nullptr, &place), KVFAIL_NO_ITEM);
  EXPECT_TRUE(spy.calls().empty());
}

TEST_F(ItemTest, GetItemInfo_EngineFails_MaskedAndOthersReported) {
  ItemPlace place;
  const struct {
    uint16_t brstatus;
    uint32_t status;
  } rows[] = {
      {0x222, KVFAIL_NO_ITEM}, {0x4222, KVFAIL_NO_ITEM}, {kEngineFailureWithFlagBits, kEngineFailure}};
  for (const auto& row : rows) {
    Fault fault = Fault::EngineCall(1, row.brstatus, "EngItemInfo");
    ASSERT_EQ(KVDocumentSave(document_, KVDOCWRITE_DISCARD), KVSUCCESS);  // its prologue clears the error
    EXPECT_EQ(GetItemInfo(Record(document_), "Subject", 7, 0, nullptr, &place), row.status);
    EXPECT_EQ(place.length, 0u);
  }
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngItemInfoNext");
  uint32_t length = kUntouched;
  int32_t type = KVTYPE_NUMBER;
  EXPECT_EQ(KVItemGetLength(document_, "Mixed", &type, nullptr, &length), kEngineFailure);
  EXPECT_EQ(length, 0u);
}

TEST_F(ItemTest, GetItemInfo_ExecuteResult_FoundByItsExactNameAlone) {
  ItemPlace place;
  const auto get = [&](const char* name, int32_t form_type) {
    return GetItemInfo(Record(document_), name, KVIItemNameBytes(name), form_type, nullptr, &place);
  };
  EXPECT_EQ(get("$$KVDocExecute!", 0), KVFAIL_NO_ITEM);
  SetExecuteResult(BRTYPE_NUMBER, NumberBytes(3));
  EXPECT_EQ(get("$$KVDocExecute!", 0), KVSUCCESS);
  EXPECT_EQ(place.type, KVTYPE_NUMBER);
  EXPECT_EQ(place.length, 10u);
  EXPECT_EQ(place.value.pool, Record(document_)->exechand);
  EXPECT_EQ(place.value.block, 0);
  EXPECT_EQ(place.free_value, 0);
  EXPECT_EQ(get("$$KVDocExecute!", KVTYPE_NUMBERLIST), KVSUCCESS);
  EXPECT_EQ(get("$$KVDocExecute!", KVTYPE_TEXT), KVFAIL_NO_ITEM);
  EXPECT_EQ(get("$$kvdocexecute!", 0), KVFAIL_NO_ITEM);
  AppendText(note_, "$$KVDocExecute!", "an item comes first");
  EXPECT_EQ(get("$$KVDocExecute!", 0), KVSUCCESS);
  EXPECT_EQ(place.type, KVTYPE_TEXT);
}

// A field with a formula; forms cannot be read yet, so the test makes one.
class ComputedFieldTest : public ItemTest {
 protected:
  void SetUp() override {
    ItemTest::SetUp();
    Compile("6 * 7");
  }
  void TearDown() override {
    EXPECT_EQ(EngMemFree(formula_), 0);
    ItemTest::TearDown();
  }
  void Compile(const std::string& text) {
    if (formula_ != 0) {
      EXPECT_EQ(EngMemFree(formula_), 0);
    }
    uint16_t bytes, error, line, column, offset, error_bytes;
    ASSERT_EQ(EngFormulaCompile(nullptr, 0, text.c_str(), static_cast<uint16_t>(text.size()), &formula_,
                                &bytes, &error, &line, &column, &offset, &error_bytes),
              0);
    field_.dvformula = static_cast<char*>(EngMemLock(formula_));
    EngMemUnlock(formula_);
  }
  uint32_t Get(const char* name, int32_t form_type) {
    return GetItemInfo(Record(document_), name, KVIItemNameBytes(name), form_type, &field_, &place_);
  }

  EngMem formula_ = 0;
  FIELDSPEC field_{};
  ItemPlace place_{};
};

TEST_F(ComputedFieldTest, GetItemInfo_ComputedAndNotInTheNote_FormulaGivesTheValue) {
  for (const uint32_t flags : {0x100u, 0x108u, 0x105u, 0xffffff00u}) {
    field_.flags = flags;
    Spy spy;
    EXPECT_EQ(Get("Missing", KVTYPE_NUMBER), KVSUCCESS) << std::hex << flags;
    EXPECT_EQ(spy.Count("EngComputeBegin"), 1u);
    EXPECT_EQ(spy.Find("EngComputeEvaluate")->words[1], note_);
    EXPECT_EQ(spy.Count("EngComputeEnd"), 1u);
    EXPECT_EQ(place_.type, KVTYPE_NUMBER);
    EXPECT_EQ(place_.length, 10u);
    EXPECT_EQ(place_.value.block, 0);
    EXPECT_EQ(place_.free_value, 1);
    {
      const KVLocked value(place_.value.pool);
      EXPECT_EQ(KVILoad<double>(value.bytes + 2), 42);
    }
    EXPECT_EQ(EngMemFree(place_.value.pool), 0);
  }
}

TEST_F(ComputedFieldTest, GetItemInfo_OtherKindsOrNoFormulaOrInTheNote_NothingIsEvaluated) {
  Spy spy;
  for (const uint32_t flags : {0u, 0x2u, 0x8u, 0x102u, 0x10au}) {
    field_.flags = flags;
    EXPECT_EQ(Get("Missing", 0), KVFAIL_NO_ITEM) << std::hex << flags;
  }
  field_.flags = 0x100;
  EXPECT_EQ(Get("Subject", 0), KVSUCCESS);
  EXPECT_EQ(place_.free_value, 0);
  field_.dvformula = nullptr;
  EXPECT_EQ(Get("Missing", 0), KVFAIL_NO_ITEM);
  EXPECT_EQ(spy.Count("EngComputeBegin"), 0u);
}

TEST_F(ComputedFieldTest, GetItemInfo_ResultOfAnotherType_NoItemAndFreed) {
  const kit::MemoryState before = kit::Memory();
  field_.flags = 0x100;
  EXPECT_EQ(Get("Missing", KVTYPE_TEXT), KVFAIL_NO_ITEM);
  EXPECT_EQ(place_.free_value, 0);
  EXPECT_EQ(place_.value.pool, 0u);
  EXPECT_EQ(kit::Memory().blocks, before.blocks);
}

TEST_F(ComputedFieldTest, GetItemInfo_EvaluationFails_EngineStatusAndEverythingEnded) {
  field_.flags = 0x108;
  const kit::MemoryState before = kit::Memory();
  for (const char* call : {"EngComputeBegin", "EngComputeEvaluate"}) {
    Spy spy;
    Fault fault = Fault::EngineCall(1, kEngineFailure, call);
    EXPECT_EQ(Get("Missing", 0), kEngineFailure) << call;
    EXPECT_EQ(spy.Count("EngComputeEnd"), std::strcmp(call, "EngComputeBegin") == 0 ? 0u : 1u);
    EXPECT_EQ(kit::Memory().blocks, before.blocks);
  }
}

// ---- Information

TEST_F(ItemTest, KVItemGetInfo_BadArguments_InOrder) {
  int32_t type = kTypeUntouched;
  uint32_t flags = kUntouched;
  uint32_t length = kUntouched;
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(KVItemGetInfo(database_, name, &type, &flags, &length), KVFAIL_NULL_PARAM);
    EXPECT_EQ(length, kUntouched);
  }
  EXPECT_EQ(KVItemGetInfo(database_, "Subject", &type, &flags, &length), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(type, 0);
  EXPECT_EQ(flags, 0u);
  EXPECT_EQ(length, 0u);
  ExpectError(KVFAIL_BAD_DOCUMENT);
  type = kTypeUntouched;
  EXPECT_EQ(KVItemGetInfo(document_, "Missing", &type, nullptr, nullptr), KVFAIL_NO_ITEM);
  EXPECT_EQ(type, 0);
  EXPECT_EQ(KVItemGetInfo(document_, "$REF", nullptr, nullptr, nullptr), KVFAIL_NO_ITEM);
}

TEST_F(ItemTest, KVItemGetInfo_EachItem_TypeFlagsAndLength) {
  const struct {
    const char* name;
    int32_t type;
    uint32_t flags, length;
  } rows[] = {{"Subject", KVTYPE_TEXT, 4, 9},   {"Number", KVTYPE_NUMBER, 0x404, 8},
              {"List", KVTYPE_TEXTLIST, 4, 19}, {"Lines", KVTYPE_TEXT, 0, 12},
              {"User", KVTYPE_TEXT, 4, 4},      {"Body", KVTYPE_COMPOSITE, 0, 4},
              {"Odd", KVTYPE_NONE, 4, 14},      {"Mixed", KVTYPE_TEXT, 4, 4}};
  for (const auto& row : rows) {
    int32_t type = kTypeUntouched;
    uint32_t flags = kUntouched;
    uint32_t length = kUntouched;
    EXPECT_EQ(KVItemGetInfo(document_, row.name, &type, &flags, &length), KVSUCCESS) << row.name;
    EXPECT_EQ(type, row.type) << row.name;
    EXPECT_EQ(flags, row.flags) << row.name;
    EXPECT_EQ(length, row.length) << row.name;
    EXPECT_EQ(KVItemGetInfo(document_, row.name, nullptr, nullptr, nullptr), KVSUCCESS);
  }
  ExpectError(KVSUCCESS);
}

TEST_F(ItemTest, KVItemGetInfo_ExecuteResult_ComputedValueHasNoFlags) {
  SetExecuteResult(BRTYPE_TEXT, "result");
  int32_t type = 0;
  uint32_t flags = kUntouched;
  uint32_t length = 0;
  EXPECT_EQ(KVItemGetInfo(document_, "$$KVDocExecute!", &type, &flags, &length), KVSUCCESS);
  EXPECT_EQ(type, KVTYPE_TEXT);
  EXPECT_EQ(flags, 0u);
  EXPECT_EQ(length, 6u);
}

TEST_F(ItemTest, KVItemGetInfo_SecondWalkFails_EngineStatusAndOutputsZero) {
  uint32_t length = kUntouched;
  Fault fault = Fault::EngineCall(2, kEngineFailureWithFlagBits, "EngItemInfo");
  EXPECT_EQ(KVItemGetInfo(document_, "Subject", nullptr, nullptr, &length), kEngineFailure);
  EXPECT_EQ(length, 0u);
}

// ---- Length

TEST_F(ItemTest, KVItemGetLength_BadArguments_InOrder) {
  uint32_t length = kUntouched;
  EXPECT_EQ(KVItemGetLength(database_, nullptr, nullptr, nullptr, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemGetLength(database_, nullptr, nullptr, nullptr, &length), KVFAIL_NULL_PARAM);
  EXPECT_EQ(length, 0u);
  length = kUntouched;
  EXPECT_EQ(KVItemGetLength(database_, "", nullptr, nullptr, &length), KVFAIL_NULL_PARAM);
  EXPECT_EQ(length, 0u);
  length = kUntouched;
  EXPECT_EQ(KVItemGetLength(database_, "Subject", nullptr, nullptr, &length), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(length, 0u);
  int32_t type = 9;
  EXPECT_EQ(KVItemGetLength(document_, "Subject", &type, nullptr, &length), KVFAIL_BAD_ENUM);
  type = -1;
  EXPECT_EQ(KVItemGetLength(document_, "Subject", &type, nullptr, &length), KVFAIL_BAD_ENUM);
  EXPECT_EQ(type, -1);
  EXPECT_EQ(KVItemGetLength(document_, "Missing", nullptr, nullptr, &length), KVFAIL_NO_ITEM);
}

TEST_F(ItemTest, KVItemGetLength_EachConversion_LengthAndTypes) {
  const struct {
    const char* name;
    int32_t item_type, buffer_type;
    uint32_t status, length;
    int32_t item_type_out, buffer_type_out;
  } rows[] = {
      {"Subject", 0, 0, KVSUCCESS, 9, KVTYPE_TEXT, KVTYPE_TEXT},
      {"Subject", KVTYPE_TEXTLIST, 0, KVSUCCESS, 9, KVTYPE_TEXTLIST, KVTYPE_TEXT},
      {"Subject", 0, KVTYPE_TEXTLIST, KVSUCCESS, 13, KVTYPE_TEXT, KVTYPE_TEXTLIST},
      {"Number", 0, KVTYPE_TEXT, KVSUCCESS, 4, KVTYPE_NUMBER, KVTYPE_TEXT},
      {"Number", 0, KVTYPE_NUMBERLIST, KVSUCCESS, 12, KVTYPE_NUMBER, KVTYPE_NUMBERLIST},
      {"List", 0, KVTYPE_TEXT, KVSUCCESS, 15, KVTYPE_TEXTLIST, KVTYPE_TEXT},
      {"Lines", 0, 0, KVSUCCESS, 13, KVTYPE_TEXT, KVTYPE_TEXT},
      {"User", 0, 0, KVSUCCESS, 4, KVTYPE_TEXT, KVTYPE_TEXT},
      {"Mixed", KVTYPE_NUMBER, 0, KVSUCCESS, 8, KVTYPE_NUMBER, KVTYPE_NUMBER},
      {"Number", 0, KVTYPE_DATETIME, KVFAIL_ILLEGAL_CONVERSION, 0, 0, KVTYPE_DATETIME},
      {"Number", 0, 9, KVFAIL_ILLEGAL_CONVERSION, 0, 0, 9},
      {"Number", 0, 10, KVFAIL_BAD_ENUM, 0, 0, 10},
      {"Number", 0, -1, KVFAIL_BAD_ENUM, 0, 0, -1},
      {"Odd", 0, 0, KVFAIL_ILLEGAL_CONVERSION, 0, 0, 0},
  };
  for (const auto& row : rows) {
    int32_t item_type = row.item_type;
    int32_t buffer_type = row.buffer_type;
    uint32_t length = kUntouched;
    EXPECT_EQ(KVItemGetLength(document_, row.name, &item_type, &buffer_type, &length), row.status)
        << row.name;
    EXPECT_EQ(length, row.length) << row.name << row.buffer_type;
    EXPECT_EQ(item_type, row.item_type_out) << row.name;
    EXPECT_EQ(buffer_type, row.buffer_type_out) << row.name;
  }
  uint32_t length = 0;
  EXPECT_EQ(KVItemGetLength(document_, "List", nullptr, nullptr, &length), KVSUCCESS);
  EXPECT_EQ(length, 19u);
}

// ---- Fetch

TEST_F(ItemTest, KVItemFetch_BadArguments_InOrder) {
  char buffer[20];
  uint32_t length = kUntouched;
  EXPECT_EQ(KVItemFetch(database_, nullptr, nullptr, &length, nullptr, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemFetch(database_, nullptr, nullptr, &length, nullptr, buffer), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemFetch(database_, "", nullptr, &length, nullptr, buffer), KVFAIL_NULL_PARAM);
  EXPECT_EQ(length, kUntouched);
  EXPECT_EQ(KVItemFetch(database_, "Subject", nullptr, &length, nullptr, buffer), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(length, kUntouched);
  int32_t type = 9;
  EXPECT_EQ(KVItemFetch(document_, "Subject", &type, &length, nullptr, buffer), KVFAIL_BAD_ENUM);
  EXPECT_EQ(length, 0u);
}

TEST_F(ItemTest, KVItemFetch_MissingItem_StartOfTheBufferCleared) {
  const struct {
    int32_t item_type, buffer_type;
    uint32_t length;  // kUntouched: none given
    uint32_t cleared;
  } rows[] = {
      {0, KVTYPE_TEXT, 100, 1},
      {0, KVTYPE_TEXT, kUntouched, 1},
      {0, KVTYPE_NUMBER, 100, 8},
      {0, KVTYPE_NUMBER, 5, 5},
      {0, KVTYPE_NUMBER, 0, 8},
      {0, KVTYPE_NUMBER, kUntouched, 8},
      {0, KVTYPE_TEXTLIST, 100, 2},
      {0, KVTYPE_NUMBERLIST, 100, 4},
      {0, KVTYPE_DATETIME, 8, 8},
      {0, 0, 100, 8},
      {0, 0, kUntouched, 8},
      {KVTYPE_TEXT, 0, kUntouched, 1},
      {0, KVTYPE_FORMULA, 1, 1},
      {0, 77, 100, 0},
      {0, -1, 100, 0},
  };
  for (const auto& row : rows) {
    std::array<char, 20> buffer;
    buffer.fill('#');
    uint32_t length = row.length;
    int32_t item_type = row.item_type;
    int32_t buffer_type = row.buffer_type;
    EXPECT_EQ(KVItemFetch(document_, "Missing", &item_type, row.length == kUntouched ? nullptr : &length,
                          &buffer_type, buffer.data()),
              KVFAIL_NO_ITEM);
    std::string expected(20, '#');
    expected.replace(0, row.cleared, row.cleared, '\0');
    EXPECT_EQ(std::string(buffer.data(), 20), expected) << row.buffer_type << " " << row.length;
    EXPECT_EQ(buffer_type, row.buffer_type);
    if (row.length != kUntouched) {
      EXPECT_EQ(length, 0u);
    }
    ExpectError(KVFAIL_NO_ITEM);
  }
}

TEST_F(ItemTest, KVItemFetch_EachConversion_ValueAndTypes) {
  const struct {
    const char* name;
    int32_t item_type, buffer_type;
    std::string bytes;
    int32_t item_type_out, buffer_type_out;
  } rows[] = {
      {"Subject", 0, 0, "a subject", KVTYPE_TEXT, KVTYPE_TEXT},
      {"SUBJECT", KVTYPE_TEXT, KVTYPE_TEXT, "a subject", KVTYPE_TEXT, KVTYPE_TEXT},
      {"Number", 0, KVTYPE_TEXT, "42.5", KVTYPE_NUMBER, KVTYPE_TEXT},
      {"Number", 0, 0, NumberBytes(42.5), KVTYPE_NUMBER, KVTYPE_NUMBER},
      {"List", 0, KVTYPE_TEXT, "one, two, three", KVTYPE_TEXTLIST, KVTYPE_TEXT},
      {"List", 0, 0, TextList({"one", "two", "three"}), KVTYPE_TEXTLIST, KVTYPE_TEXTLIST},
      {"Lines", 0, 0, "first\r\nsecond", KVTYPE_TEXT, KVTYPE_TEXT},
      {"Mixed", KVTYPE_NUMBER, KVTYPE_TEXT, "7", KVTYPE_NUMBER, KVTYPE_TEXT},
      {"Mixed", KVTYPE_TEXTLIST, 0, "text", KVTYPE_TEXTLIST, KVTYPE_TEXT},
      {"User", 0, 0, "1234", KVTYPE_TEXT, KVTYPE_TEXT},
  };
  for (const auto& row : rows) {
    for (const uint32_t length : {100u, 0u}) {
      const Outcome outcome = Fetch(row.name, row.item_type, length, row.buffer_type);
      EXPECT_EQ(outcome.status, KVSUCCESS) << row.name;
      EXPECT_EQ(outcome.bytes, row.bytes) << row.name;
      EXPECT_EQ(outcome.item_type, row.item_type_out) << row.name;
      EXPECT_EQ(outcome.buffer_type, row.buffer_type_out) << row.name;
    }
  }
  ExpectError(KVSUCCESS);
}

TEST_F(ItemTest, KVItemFetch_NoOptionalArguments_TextWithItsTerminator) {
  std::array<char, 20> buffer;
  buffer.fill('#');
  EXPECT_EQ(KVItemFetch(document_, "Subject", nullptr, nullptr, nullptr, buffer.data()), KVSUCCESS);
  EXPECT_STREQ(buffer.data(), "a subject");
  EXPECT_EQ(buffer[10], '#');
}

TEST_F(ItemTest, KVItemFetch_BufferSizes_ExactFitsOneLessDoesNot) {
  for (const uint32_t length : {1u, 8u, 9u, 10u}) {
    const Outcome outcome = Fetch("Subject", 0, length, KVTYPE_TEXT);
    EXPECT_EQ(outcome.status, length < 9 ? KVFAIL_DATA_TOO_LONG : KVSUCCESS) << length;
    EXPECT_EQ(outcome.length, length < 9 ? 0u : 9u);
    if (length < 9) {
      EXPECT_EQ(outcome.bytes, "##########");
    }
  }
  for (const uint32_t length : {7u, 8u, 9u})
    EXPECT_EQ(Fetch("Number", 0, length, 0).status, length < 8 ? KVFAIL_DATA_TOO_LONG : KVSUCCESS);
}

TEST_F(ItemTest, KVItemFetch_TruncatingSession_CutTextKeepsWholeCharacters) {
  const int32_t on = 1;
  ASSERT_EQ(KVSetProperty(KVPROP_SESS_TRUNCATE_TEXT, &on), KVSUCCESS);
  EXPECT_EQ(Fetch("Subject", 0, 4, KVTYPE_TEXT).bytes, "a su");
  AppendText(note_, "Wide", "ab\xc3\xa9");
  for (uint32_t length = 1; length <= 5; ++length) {
    const Outcome outcome = Fetch("Wide", 0, length, KVTYPE_TEXT);
    ASSERT_EQ(outcome.status, KVSUCCESS);
    uint32_t whole = length < 4 ? length : 4;
    ReviseSplitCharacter(&whole, static_cast<const void*>("ab\xc3\xa9"));
    EXPECT_EQ(outcome.length, whole);
    EXPECT_EQ(outcome.bytes, std::string("ab\xc3\xa9").substr(0, whole));
  }
}

TEST_F(ItemTest, KVItemFetch_IllegalConversions_StatusAndLengthZero) {
  const struct {
    const char* name;
    int32_t buffer_type;
    uint32_t status;
  } rows[] = {{"Number", KVTYPE_DATETIME, KVFAIL_ILLEGAL_CONVERSION},
              {"Number", 9, KVFAIL_ILLEGAL_CONVERSION},
              {"Number", 10, KVFAIL_BAD_ENUM},
              {"Number", -1, KVFAIL_BAD_ENUM},
              {"Odd", 0, KVFAIL_ILLEGAL_CONVERSION},
              {"Odd", KVTYPE_TEXT, KVFAIL_ILLEGAL_CONVERSION}};
  for (const auto& row : rows) {
    const Outcome outcome = Fetch(row.name, 0, 100, row.buffer_type);
    EXPECT_EQ(outcome.status, row.status) << row.name << row.buffer_type;
    EXPECT_EQ(outcome.length, 0u);
    EXPECT_EQ(outcome.item_type, 0);
    EXPECT_EQ(outcome.buffer_type, row.buffer_type);
    ExpectError(row.status);
  }
}

TEST_F(ItemTest, KVItemFetch_UnalignedPointers_AllAreReadAndWritten) {
  std::vector<char> bytes(64, 0);
  auto* item_type = reinterpret_cast<int32_t*>(bytes.data() + 1);
  auto* length = reinterpret_cast<uint32_t*>(bytes.data() + 7);
  auto* buffer_type = reinterpret_cast<int32_t*>(bytes.data() + 13);
  KVIStore<uint32_t>(length, 9);
  EXPECT_EQ(KVItemFetch(document_, "Number", item_type, length, buffer_type, bytes.data() + 19), KVSUCCESS);
  EXPECT_EQ(KVILoad<int32_t>(item_type), KVTYPE_NUMBER);
  EXPECT_EQ(KVILoad<uint32_t>(length), 8u);
  EXPECT_EQ(KVILoad<int32_t>(buffer_type), KVTYPE_NUMBER);
  EXPECT_EQ(KVILoad<double>(bytes.data() + 19), 42.5);
  EXPECT_EQ(KVItemGetLength(document_, "Number", item_type, buffer_type, length), KVSUCCESS);
  EXPECT_EQ(
      KVItemGetInfo(document_, "Number", item_type, length, reinterpret_cast<uint32_t*>(bytes.data() + 33)),
      KVSUCCESS);
  auto* pointer = reinterpret_cast<void**>(bytes.data() + 41);
  EXPECT_EQ(KVItemGetPointer(document_, "Number", item_type, length, buffer_type, pointer), KVSUCCESS);
  EXPECT_EQ(KVILoad<double>(KVILoad<void*>(pointer)), 42.5);
}

TEST_F(ItemTest, KVItemFetch_NamesOfEachLength_FoundUpToTheLongest) {
  for (const size_t bytes : {1u, 64u, 65u, 255u}) {
    const std::string name(bytes, 'n');
    AppendText(note_, name, std::to_string(bytes));
    EXPECT_EQ(FetchText(document_, name), std::to_string(bytes));
  }
  for (const size_t bytes : {2u, 256u, 65535u, 65536u, 70000u}) {
    const std::string name(bytes, 'n');
    uint32_t length = 10;
    char buffer[11];
    EXPECT_EQ(KVItemFetch(document_, name.c_str(), nullptr, &length, nullptr, buffer), KVFAIL_NO_ITEM)
        << bytes;
  }
}

TEST_F(ItemTest, KVItemFetch_LongValues_WholeBeforeAndAfterTheyWereStored) {
  const uint32_t sizes[] = {16381, 16382, 16383, 59999, 60000, 60001, 65533, 65534, 65535, 65536, 100000};
  for (const uint32_t bytes : sizes)
    Append(note_, {"Long" + std::to_string(bytes), BRTYPE_TEXT, 0,
                   std::string(bytes, static_cast<char>('a' + bytes % 26))});
  ASSERT_EQ(KVDocumentSave(document_, 0), KVSUCCESS);
  const uint32_t stored = Open(Record(document_)->docid);
  for (const uint32_t document : {document_, stored})
    for (const uint32_t bytes : sizes) {
      std::vector<char> buffer(bytes + 1, '#');
      uint32_t length = bytes;
      const std::string name = "Long" + std::to_string(bytes);
      ASSERT_EQ(KVItemFetch(document, name.c_str(), nullptr, &length, nullptr, buffer.data()), KVSUCCESS)
          << bytes;
      EXPECT_EQ(length, bytes);
      EXPECT_TRUE(std::string(buffer.data(), bytes) ==
                  std::string(bytes, static_cast<char>('a' + bytes % 26)));
      EXPECT_EQ(buffer[bytes], 0);
      length = bytes - 1;
      EXPECT_EQ(KVItemFetch(document, name.c_str(), nullptr, &length, nullptr, buffer.data()),
                KVFAIL_DATA_TOO_LONG);
    }
}

TEST_F(ItemTest, KVItemFetch_DamagedValues_StatusAndNoHarm) {
  const NoteItem items[] = {{"Short", BRTYPE_NUMBER, 4, "1234"},
                            {"Empty", BRTYPE_NUMBER, 4, ""},
                            {"Counts", BRTYPE_TEXT_LIST, 4, std::string("\xff\xff\x01\x00", 4)},
                            {"None", BRTYPE_TEXT_LIST, 4, ""},
                            {"Ranges", BRTYPE_NUMBER_RANGE, 4, std::string("\xff\xff\xff\xff", 4)},
                            {"Formula", BRTYPE_FORMULA, 0, "\xff"}};
  for (const NoteItem& item : items) {
    Append(note_, item);
    for (const int32_t type : std::vector<int32_t>{0, KVTYPE_TEXT, KVTYPE_TEXTLIST, KVTYPE_NUMBER}) {
      const Outcome outcome = Fetch(item.name, 0, 100, type);
      EXPECT_NE(outcome.status, KVSUCCESS) << item.name << type;
      EXPECT_EQ(outcome.length, 0u);
    }
  }
  Append(note_, {"Tiny", BRTYPE_USER, 4, "1234567"});
  EXPECT_EQ(Fetch("Tiny", 0, 100, 0).bytes, "1234567");
}

TEST_F(ItemTest, KVItemFetch_ShortText_NoAllocationAndThreeEngineCalls) {
  char buffer[21];
  const uint32_t count = kvdoc::AllocationsOf([&] {
    uint32_t length = 20;
    int32_t type = KVTYPE_TEXT;
    EXPECT_EQ(KVItemFetch(document_, "Subject", nullptr, &length, &type, buffer), KVSUCCESS);
  });
  kvdoc::PrintAllocations("KVItemFetch of a short text", count);
  EXPECT_EQ(count, 0u);
  const uint32_t number_count = kvdoc::AllocationsOf([&] {
    uint32_t length = 20;
    int32_t type = KVTYPE_TEXT;
    EXPECT_EQ(KVItemFetch(document_, "Number", nullptr, &length, &type, buffer), KVSUCCESS);
  });
  kvdoc::PrintAllocations("KVItemFetch of a number as text", number_count);
  EXPECT_EQ(number_count, 0u);
  Spy spy;
  uint32_t length = 20;
  EXPECT_EQ(KVItemFetch(document_, "Subject", nullptr, &length, nullptr, buffer), KVSUCCESS);
  EXPECT_EQ(spy.Names(), (std::vector<std::string>{"EngItemInfo", "EngMemLock", "EngMemUnlock"}));
}

TEST_F(ItemTest, Prologue_EachKindOfFirstArgument_NoAllocation) {
  const uint32_t count = kvdoc::AllocationsOf([&] {
    _api_session* session = nullptr;
    EXPECT_EQ(KVIEnter(document_, &session), KVSUCCESS);
    EXPECT_NE(_KVIFindDocument(session, document_), nullptr);
    EXPECT_EQ(KVIEnterThread(&session), KVSUCCESS);
    EXPECT_EQ(KVDocumentSave(document_, KVDOCWRITE_DISCARD), KVSUCCESS);
  });
  kvdoc::PrintAllocations("the prologue", count);
  EXPECT_EQ(count, 0u);
}

// ---- By pointer

TEST_F(ItemTest, KVItemGetPointer_BadArguments_InOrder) {
  void* pointer = this;
  uint32_t length = kUntouched;
  EXPECT_EQ(KVItemGetPointer(database_, nullptr, nullptr, &length, nullptr, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemGetPointer(database_, nullptr, nullptr, &length, nullptr, &pointer), KVFAIL_NULL_PARAM);
  EXPECT_EQ(pointer, nullptr);
  pointer = this;
  EXPECT_EQ(KVItemGetPointer(database_, "", nullptr, &length, nullptr, &pointer), KVFAIL_NULL_PARAM);
  EXPECT_EQ(pointer, nullptr);
  pointer = this;
  EXPECT_EQ(KVItemGetPointer(database_, "Subject", nullptr, &length, nullptr, &pointer), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(pointer, nullptr);
  EXPECT_EQ(length, kUntouched);
  EXPECT_EQ(KVItemGetPointer(document_, "Missing", nullptr, &length, nullptr, &pointer), KVFAIL_NO_ITEM);
  EXPECT_EQ(length, 0u);
  int32_t type = KVTYPE_DATETIME;
  EXPECT_EQ(KVItemGetPointer(document_, "Number", nullptr, nullptr, &type, &pointer),
            KVFAIL_ILLEGAL_CONVERSION);
  EXPECT_EQ(Record(document_)->fieldlist, nullptr);
}

TEST_F(ItemTest, KVItemGetPointer_EachConversion_ValueTypesAndNode) {
  const struct {
    const char* name;
    int32_t item_type, buffer_type;
    std::string bytes;
    int32_t type, form_type;
  } rows[] = {{"Subject", 0, 0, "a subject", KVTYPE_TEXT, KVTYPE_TEXT},
              {"Number", 0, KVTYPE_TEXT, "42.5", KVTYPE_TEXT, KVTYPE_NUMBER},
              {"List", 0, 0, TextList({"one", "two", "three"}), KVTYPE_TEXTLIST, KVTYPE_TEXTLIST},
              {"Lines", 0, KVTYPE_TEXT, "first\r\nsecond", KVTYPE_TEXT, KVTYPE_TEXT},
              {"Mixed", KVTYPE_NUMBER, 0, NumberBytes(7), KVTYPE_NUMBER, KVTYPE_NUMBER}};
  for (const auto& row : rows) {
    int32_t item_type = row.item_type;
    int32_t buffer_type = row.buffer_type;
    uint32_t length = 0;
    void* pointer = nullptr;
    ASSERT_EQ(KVItemGetPointer(document_, row.name, &item_type, &length, &buffer_type, &pointer), KVSUCCESS);
    EXPECT_EQ(std::string(static_cast<char*>(pointer), length), row.bytes) << row.name;
    EXPECT_EQ(buffer_type, row.type);
    EXPECT_EQ(item_type, row.form_type);
    const _DATAFIELD* field = Record(document_)->fieldlist;
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(field->buffer, pointer);
    EXPECT_STREQ(field->name, row.name);
    EXPECT_EQ(field->namelen, std::strlen(row.name));
    EXPECT_EQ(field->type, row.type);
    EXPECT_EQ(field->form_type, row.form_type);
    EXPECT_EQ(field->in_form, 0);
    const BLOCKID none{};
    EXPECT_EQ(memcmp(&field->blockid, &none, sizeof none), 0);
    EXPECT_EQ(field->length, length);
  }
}

TEST_F(ItemTest, KVItemGetPointer_ShortLengthIn_IsNoLimit) {
  uint32_t length = 2;
  void* pointer = nullptr;
  ASSERT_EQ(KVItemGetPointer(document_, "Subject", nullptr, &length, nullptr, &pointer), KVSUCCESS);
  EXPECT_EQ(length, 9u);
  EXPECT_STREQ(static_cast<char*>(pointer), "a subject");
}

TEST_F(ItemTest, KVItemGetPointer_NoMemory_StatusNullAndNoNode) {
  uint32_t count = 0;
  for (uint32_t nth = 1;; ++nth) {
    Fault fault = Fault::Allocation(nth);
    void* pointer = this;
    uint32_t length = kUntouched;
    const uint32_t status = KVItemGetPointer(document_, "Subject", nullptr, &length, nullptr, &pointer);
    if (!fault.Hit()) break;
    if (fault.hit_name() == "heap" && status == KVSUCCESS)
      continue;  // a block that could not shrink serves too
    EXPECT_EQ(status, KVFAIL_NO_MEMORY);
    EXPECT_EQ(pointer, nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(Record(document_)->fieldlist, nullptr);
    ++count;
  }
  kvdoc::PrintAllocations("KVItemGetPointer that must not fail", count);
  EXPECT_EQ(count, 3u);
}

// ---- Documents of an index, threads

TEST_F(ItemTest, EachRead_IndexDocument_WorksByItsHandle) {
  ASSERT_EQ(KVDocumentSave(document_, 0), KVSUCCESS);
  EngNote note = 0;
  ASSERT_EQ(EngNoteOpen(EngineDatabase(), Record(document_)->docid, 0, &note), 0);
  IndexDocument loaded(session_, Base(), note, Record(document_)->docid);
  uint32_t length = 0;
  void* pointer = nullptr;
  EXPECT_EQ(FetchText(loaded.handle(), "Subject"), "a subject");
  EXPECT_EQ(KVItemGetLength(loaded.handle(), "Subject", nullptr, nullptr, &length), KVSUCCESS);
  EXPECT_EQ(KVItemGetInfo(loaded.handle(), "Subject", nullptr, nullptr, &length), KVSUCCESS);
  EXPECT_EQ(KVItemGetPointer(loaded.handle(), "Subject", nullptr, nullptr, nullptr, &pointer), KVSUCCESS);
  EXPECT_NE(loaded.record().fieldlist, nullptr);
  EXPECT_EQ(KVItemGetLength(loaded.index(), "Subject", nullptr, nullptr, &length), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(KVItemGetLength(document_ | kIndexDocumentBit, "Subject", nullptr, nullptr, &length),
            KVFAIL_BAD_DOCUMENT);
}

TEST_F(ItemTest, EachRead_HandleOfAnotherThread_BadHandleAndOutputsUntouched) {
  kit::InSession([&] {
    uint32_t length = kUntouched;
    char buffer[10] = "#";
    void* pointer = this;
    EXPECT_EQ(KVItemGetInfo(document_, nullptr, nullptr, nullptr, &length), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVItemGetLength(document_, nullptr, nullptr, nullptr, &length), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVItemFetch(document_, "Subject", nullptr, &length, nullptr, buffer), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVItemGetPointer(document_, "Subject", nullptr, &length, nullptr, &pointer), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(length, kUntouched);
    EXPECT_EQ(buffer[0], '#');
    EXPECT_EQ(pointer, this);
  });
}

}  // namespace
