// Properties of documents: every number, both directions.
#include "kvdoc_forms.h"

namespace {

using kvdoc::Editable;
using kvdoc::ItemsOf;
using kvdoc::kEngineFailure;
using kvdoc::kEngineFailureWithFlagBits;
using kvdoc::kUntouched;
using kvdoc::NoteItem;
using kvdoc::Record;

constexpr uint16_t kTypeNoteReferences = 4;

class DocumentPropertyTest : public kvdoc::BoundTest {
 protected:
  // The bytes that a property writes into a buffer of '#'.
  static std::string Bytes(uint32_t document, int32_t property, size_t expected_bytes) {
    char buffer[64];
    memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(KVDocumentGetProperty(document, property, buffer + 1), KVSUCCESS) << property;
    EXPECT_EQ(buffer[0], '#');
    EXPECT_EQ(buffer[1 + expected_bytes], '#') << property << " writes more than its value";
    return std::string(buffer + 1, expected_bytes);
  }
  static std::string Head(uint32_t document, uint16_t member, size_t bytes) {
    std::string value(bytes, 0);
    EXPECT_EQ(EngNoteInfoGet(NoteOf(document), member, value.data()), 0);
    return value;
  }
  template <typename Value>
  static uint32_t Set(uint32_t document, int32_t property, Value value) {
    char unaligned[sizeof value + 1];
    memcpy(unaligned + 1, &value, sizeof value);
    return KVDocumentSetProperty(document, property, unaligned + 1);
  }
  uint32_t Saved() const {
    const uint32_t document = CreateOn(StoreMemo());
    PutText(document, "Subject", "text");
    EXPECT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
    return document;
  }
  static std::string Title(uint32_t document) {
    char title[300];
    memset(title, '#', sizeof title);
    EXPECT_EQ(KVDocumentGetProperty(document, KVPROP_DOC_TITLE, title), KVSUCCESS);
    uint32_t length = kUntouched;
    EXPECT_EQ(KVDocumentGetProperty(document, KVPROP_DOC_TITLE_LENGTH, &length), KVSUCCESS);
    EXPECT_EQ(length, strlen(title));
    return title;
  }
};

// ---- The table

TEST_F(DocumentPropertyTest, EveryNumber_ReadAndSet_AccessIsThatOfTheTable) {
  const uint32_t document = Saved();
  const KVUNID parent{{{1, 2}}, {{3, 4}}};
  ASSERT_EQ(Set(document, KVPROP_DOC_PARENT_UNID, parent), KVSUCCESS);
  for (int32_t property = -1; property <= 24; ++property) {
    const bool known = property >= 1 && property <= 22;
    const bool writable = property == 1 || property == 12 || property == 20 || property == 22;
    char value[300] = {1};
    EXPECT_EQ(KVDocumentGetProperty(document, property, value), known ? KVSUCCESS : KVFAIL_BAD_PROPERTY)
        << property;
    memset(value, 0, sizeof value);
    value[0] = 1;
    EXPECT_EQ(KVDocumentSetProperty(document, property, value), writable ? KVSUCCESS
                                                                : known  ? KVFAIL_READ_ONLY_PROPERTY
                                                                         : KVFAIL_BAD_PROPERTY)
        << property;
  }
  for (const int32_t property : {INT32_MIN, INT32_MAX}) {
    int32_t value = 0;
    EXPECT_EQ(KVDocumentGetProperty(document, property, &value), KVFAIL_BAD_PROPERTY);
    EXPECT_EQ(KVDocumentSetProperty(document, property, &value), KVFAIL_BAD_PROPERTY);
    ExpectError(KVFAIL_BAD_PROPERTY);
  }
}

TEST_F(DocumentPropertyTest, Arguments_CheckedInOrder) {
  int32_t value = 0;
  EXPECT_EQ(KVDocumentGetProperty(database_, 999, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDocumentSetProperty(database_, 999, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDocumentGetProperty(database_, 999, &value), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(KVDocumentSetProperty(database_, 999, &value), KVFAIL_BAD_DOCUMENT);
  ExpectError(KVFAIL_BAD_DOCUMENT);
}

TEST_F(DocumentPropertyTest, KVDocumentGetProperty_EarlierProgram_DoesNotKnowTheLastTwo) {
  const uint32_t document = Saved();
  char value[64];
  for (const uint32_t version : {0x20306u, 0x40105u}) {
    session_->kvprog_version = version;
    EXPECT_EQ(KVDocumentGetProperty(document, 19, value), KVSUCCESS);
    EXPECT_EQ(KVDocumentGetProperty(document, 20, value), KVFAIL_DATA_UNAVAILABLE);
    EXPECT_EQ(KVDocumentGetProperty(document, 21, value), KVFAIL_BAD_PROPERTY);
    EXPECT_EQ(KVDocumentGetProperty(document, 22, value), KVFAIL_BAD_PROPERTY);
    EXPECT_EQ(Set<int32_t>(document, 22, 0), KVSUCCESS) << "setting is not looked at";
    EXPECT_EQ(Set<int32_t>(document, 21, 0), KVFAIL_READ_ONLY_PROPERTY);
  }
  session_->kvprog_version = 0x40106;
  EXPECT_EQ(KVDocumentGetProperty(document, 21, value), KVSUCCESS);
  EXPECT_EQ(KVDocumentGetProperty(document, 22, value), KVSUCCESS);
}

// ---- The document's record

TEST_F(DocumentPropertyTest, Binding_FollowsTheForm) {
  const uint32_t formid = StoreMemo();
  const uint32_t document = CreateOn(formid);
  EXPECT_EQ(Bytes(document, KVPROP_DOC_STRICT_BIND, 4), std::string("\1\0\0\0", 4));
  EXPECT_EQ(Get<uint32_t>(document, KVPROP_DOC_FORM_ID), formid);
  ASSERT_EQ(Set<int32_t>(document, KVPROP_DOC_STRICT_BIND, 0), KVSUCCESS);
  EXPECT_EQ(Bytes(document, KVPROP_DOC_STRICT_BIND, 4), std::string(4, 0));
  EXPECT_EQ(Bytes(document, KVPROP_DOC_FORM_ID, 4), std::string(4, 0));
  EXPECT_EQ(Get(document, KVPROP_DOC_EMBEDDED_FORM), 0);
  EXPECT_EQ(Get(document, KVPROP_DOC_ENCRYPTED), 0);
}

TEST_F(DocumentPropertyTest, StrictBindCompute_AnyNumber_OneOrZero) {
  const uint32_t document = Saved();
  EXPECT_EQ(Get(document, KVPROP_DOC_STRICT_BIND_COMPUTE), 1);
  for (const int32_t value : {0, 1, 0, -1, 0, 0x10000}) {
    ASSERT_EQ(Set(document, KVPROP_DOC_STRICT_BIND_COMPUTE, value), KVSUCCESS);
    EXPECT_EQ(Get(document, KVPROP_DOC_STRICT_BIND_COMPUTE), value != 0);
  }
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND_COMPUTE, 0);
  EXPECT_EQ(Get(CreateOn(StoreMemo()), KVPROP_DOC_STRICT_BIND_COMPUTE), 0) << "what a document starts with";
}

TEST_F(DocumentPropertyTest, Dirty_FollowsChangesAndSaves) {
  const uint32_t document = CreateOn(StoreMemo());
  EXPECT_EQ(Get(document, KVPROP_DOC_DIRTY), 1);
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(Get(document, KVPROP_DOC_DIRTY), 0);
  PutText(document, "Subject", "text");
  EXPECT_EQ(Get(document, KVPROP_DOC_DIRTY), 1);
}

TEST_F(DocumentPropertyTest, Id_BeforeTheFirstSave_UnavailableAndZero) {
  const uint32_t document = CreateOn(StoreMemo());
  uint32_t docid = kUntouched;
  EXPECT_EQ(KVDocumentGetProperty(document, KVPROP_DOC_ID, &docid), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(docid, 0u);
  ExpectError(KVFAIL_DATA_UNAVAILABLE);
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_NE(Get<uint32_t>(document, KVPROP_DOC_ID), 0u);
  EXPECT_EQ(Get<uint32_t>(document, KVPROP_DOC_DATABASE), database_);
}

// ---- The head of the note

TEST_F(DocumentPropertyTest, Head_EachMember_AsTheEngineTellsIt) {
  const uint32_t document = Saved();
  const std::string originator = Head(document, 2, 28);
  EXPECT_EQ(Bytes(document, KVPROP_DOC_UNID, 16), originator.substr(0, 16));
  EXPECT_EQ(Bytes(document, KVPROP_DOC_OID, 28), originator);
  EXPECT_EQ(Bytes(document, KVPROP_DOC_NOTE_STAMP, 8), originator.substr(8, 8));
  EXPECT_EQ(Bytes(document, KVPROP_DOC_INFO_4, 8), Head(document, 4, 8));
  EXPECT_EQ(Bytes(document, KVPROP_DOC_INFO_8, 8), Head(document, 8, 8));
  EXPECT_EQ(Bytes(document, KVPROP_DOC_INFO_13, 8), Head(document, 13, 8));
  EXPECT_EQ(KVDocumentLocateByUnid(database_, reinterpret_cast<const KVUNID*>(originator.data())),
            Get<uint32_t>(document, KVPROP_DOC_ID));
}

TEST_F(DocumentPropertyTest, Head_EngineFails_ItsStatusAndTheValueIsLeftAlone) {
  const uint32_t document = Saved();
  for (const int32_t property : {5, 6, 9, 10, 11, 17, 18, 21}) {
    kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngNoteInfoGet");
    uint32_t value[7] = {kUntouched};
    EXPECT_EQ(KVDocumentGetProperty(document, property, value), kEngineFailure) << property;
    EXPECT_EQ(value[0], kUntouched);
    EXPECT_TRUE(fault.Hit());
  }
}

TEST_F(DocumentPropertyTest, Flags_EachBit_OneOrZero) {
  const uint32_t document = Saved();
  for (const uint16_t flags : {0, 1, 2, 3, 0xfffc}) {
    ASSERT_EQ(EngNoteInfoSet(NoteOf(document), 7, &flags), 0);
    EXPECT_EQ(Get(document, KVPROP_DOC_FLAG_1), flags & 1);
    EXPECT_EQ(Get(document, KVPROP_DOC_FLAG_2), (flags >> 1) & 1);
  }
}

TEST_F(DocumentPropertyTest, Class_EveryNumber_OnlySingleBitsUpToTheLimit) {
  const uint32_t document = Saved();
  for (const int32_t value : {0, 3, 5, 0x7ff, 0x801, 0x1000, 0x10000, 0x10001, -1, INT32_MIN}) {
    EXPECT_EQ(Set(document, KVPROP_DOC_CLASS, value), KVFAIL_BAD_ENUM) << value;
    EXPECT_EQ(Record(document)->dirty, 0);
  }
  for (int32_t value = 1; value <= 0x800; value *= 2) {
    EXPECT_EQ(Set(document, KVPROP_DOC_CLASS, value), KVSUCCESS) << value;
    EXPECT_EQ(Record(document)->dirty, 1);
    uint16_t note_class = 0;
    EXPECT_EQ(EngNoteInfoGet(NoteOf(document), 3, &note_class), 0);
    EXPECT_EQ(note_class, value);
    EXPECT_EQ(Get(document, KVPROP_DOC_CLASS), 1) << "the class that it was opened with";
  }
}

TEST_F(DocumentPropertyTest, Class_EngineFails_NotDirty) {
  const uint32_t document = Saved();
  kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngNoteInfoSet");
  EXPECT_EQ(Set<int32_t>(document, KVPROP_DOC_CLASS, 8), kEngineFailure);
  EXPECT_EQ(Record(document)->dirty, 0);
}

TEST_F(DocumentPropertyTest, Class_DefaultRecord_WithoutItsTopBit) {
  SetDatabaseBool(database_, KVPROP_DB_DOCOPEN_DESIGN, 1);
  const uint32_t document = Open(Form("F").Class(BRCLASS_FORM | BRCLASS_DEFAULT).Store());
  EXPECT_EQ(Record(document)->class_, 0x8004);
  EXPECT_EQ(Get(document, KVPROP_DOC_CLASS), 4);
}

// ---- Attachments

TEST_F(DocumentPropertyTest, AttachmentCount_Objects_FilesAlone) {
  const uint32_t document = Saved();
  EXPECT_EQ(Get<uint32_t>(document, KVPROP_DOC_ATTACHMENT_COUNT), 0u);
  const std::string file(6, '\0');
  const std::string other("\3\0\0\0\0\0", 6);
  const NoteItem items[] = {{"$FILE", BRTYPE_OBJECT, 0, file},  {"$File", BRTYPE_OBJECT, 0, file + "name"},
                            {"$FILE", BRTYPE_OBJECT, 0, other}, {"$FILE", BRTYPE_TEXT, 0, file},
                            {"$FILE", BRTYPE_OBJECT, 0, ""},    {"$FILE2", BRTYPE_OBJECT, 0, file},
                            {"$FILE", BRTYPE_OBJECT, 0, file}};
  const uint32_t counts[] = {1, 2, 2, 2, 2, 2, 3};
  for (size_t i = 0; i < std::size(items); ++i) {
    Append(NoteOf(document), items[i]);
    EXPECT_EQ(Get<uint32_t>(document, KVPROP_DOC_ATTACHMENT_COUNT), counts[i]) << i;
  }
  for (const char* call : {"EngItemInfo", "EngItemInfoNext"}) {
    kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, call);
    uint32_t count = kUntouched;
    EXPECT_EQ(KVDocumentGetProperty(document, KVPROP_DOC_ATTACHMENT_COUNT, &count), kEngineFailure);
    EXPECT_EQ(count, kUntouched);
  }
}

// ---- The parent

TEST_F(DocumentPropertyTest, Parent_SetReplacedAndRemoved) {
  const uint32_t document = Saved();
  EXPECT_EQ(Get(document, KVPROP_DOC_HAS_PARENT), 0);
  KVUNID parent{{{1, 2}}, {{3, 4}}};
  for (const uint32_t word : {4u, 5u}) {
    parent.doc.innards[1] = word;
    Record(document)->dirty = 0;
    ASSERT_EQ(Set(document, KVPROP_DOC_PARENT_UNID, parent), KVSUCCESS);
    EXPECT_EQ(Record(document)->dirty, 1);
    const std::vector<NoteItem> items = ItemsOf(NoteOf(document), "$REF");
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].type, kTypeNoteReferences);
    EXPECT_EQ(items[0].flags, 4);
    EXPECT_EQ(items[0].bytes, std::string("\1\0", 2) + std::string(reinterpret_cast<char*>(&parent), 16));
    EXPECT_EQ(Get(document, KVPROP_DOC_HAS_PARENT), 1);
    EXPECT_EQ(Bytes(document, KVPROP_DOC_PARENT_UNID, 16), std::string(reinterpret_cast<char*>(&parent), 16));
  }
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  ASSERT_EQ(Set(document, KVPROP_DOC_PARENT_UNID, KVUNID{}), KVSUCCESS);
  EXPECT_EQ(Record(document)->dirty, 1);
  EXPECT_TRUE(ItemsOf(NoteOf(document), "$REF").empty());
  Record(document)->dirty = 0;
  ASSERT_EQ(Set(document, KVPROP_DOC_PARENT_UNID, KVUNID{}), KVSUCCESS);
  EXPECT_EQ(Record(document)->dirty, 1) << "also when there was none";
}

TEST_F(DocumentPropertyTest, Parent_ValuesThatAreNone_UnavailableAndZero) {
  const NoteItem items[] = {{"$REF", BRTYPE_TEXT, 4, "\1\0" + std::string(16, 'x')},
                            {"$REF", kTypeNoteReferences, 4, std::string(2 + 16, '\0')},
                            {"$REF", kTypeNoteReferences, 4, std::string("\1\0", 2) + std::string(15, 'x')},
                            {"$REF", kTypeNoteReferences, 4, ""}};
  const uint32_t document = Saved();
  const auto expect_none = [&] {
    std::string parent(16, 'x');
    EXPECT_EQ(KVDocumentGetProperty(document, KVPROP_DOC_PARENT_UNID, parent.data()),
              KVFAIL_DATA_UNAVAILABLE);
    EXPECT_EQ(parent, std::string(16, 0));
  };
  expect_none();
  for (const NoteItem& item : items) {
    Append(NoteOf(document), item);
    expect_none();
    EXPECT_EQ(Get(document, KVPROP_DOC_HAS_PARENT), 1);
    ASSERT_EQ(EngItemDelete(NoteOf(document), "$REF", 4), 0);
  }
}

TEST_F(DocumentPropertyTest, Parent_EngineFails_ItsStatus) {
  const uint32_t document = Saved();
  const KVUNID parent{{{1, 2}}, {{3, 4}}};
  {
    kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngItemDelete");
    EXPECT_EQ(Set(document, KVPROP_DOC_PARENT_UNID, parent), kEngineFailure);
    EXPECT_EQ(Record(document)->dirty, 0);
  }
  {
    kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngItemAppend");
    EXPECT_EQ(Set(document, KVPROP_DOC_PARENT_UNID, parent), kEngineFailure);
    EXPECT_EQ(Record(document)->dirty, 1);
  }
  for (const int32_t property : {KVPROP_DOC_HAS_PARENT, KVPROP_DOC_PARENT_UNID}) {
    kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngItemInfo");
    KVUNID value;
    EXPECT_EQ(KVDocumentGetProperty(document, property, &value), kEngineFailure);
  }
}

// ---- The title

TEST_F(DocumentPropertyTest, Title_NoFormOrNoFormula_Empty) {
  const uint32_t document = CreateOn(StoreMemo());
  EXPECT_EQ(Title(document), "");
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 0);
  EXPECT_EQ(Title(New()), "");
}

TEST_F(DocumentPropertyTest, Title_Formula_ComputedOnce) {
  const uint32_t document =
      CreateOn(Form("F").WindowTitle("\"About \" + Subject").Field(Editable("Subject")).Store());
  PutText(document, "Subject", "cats");
  EXPECT_EQ(Title(document), "About cats");
  PutText(document, "Subject", "dogs");
  kit::Spy spy;
  EXPECT_EQ(Title(document), "About cats");
  EXPECT_EQ(spy.Count("EngComputeBegin"), 0u);
  ASSERT_EQ(Bind(document, 0), KVSUCCESS);
  EXPECT_EQ(Title(document), "About cats") << "kept with the document";
}

TEST_F(DocumentPropertyTest, Title_ValuesOfOtherTypes_AsText) {
  const struct {
    const char* formula;
    const char* title;
  } rows[] = {{"1 + 1", "2"},
              {"\"one\" : \"two\"", "onetwo"},
              {"\"a\" + @Char(127) + \"hidden\" + @Char(255) + \"z\"", "az"}};
  for (const auto& row : rows) {
    const uint32_t document = CreateOn(Form(row.formula).WindowTitle(row.formula).Store());
    EXPECT_EQ(Title(document), row.title) << row.formula;
  }
}

TEST_F(DocumentPropertyTest, Title_EndOfComputeFails_ReportedAndTheTitleKept) {
  const uint32_t document = CreateOn(Form("F").WindowTitle("\"title\"").Store());
  {
    kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngComputeEnd");
    uint32_t value = kUntouched;
    EXPECT_EQ(KVDocumentGetProperty(document, KVPROP_DOC_TITLE_LENGTH, &value), kEngineFailure);
    EXPECT_EQ(value, kUntouched);
    ExpectError(kEngineFailure);
  }
  kit::Spy spy;
  EXPECT_EQ(Title(document), "title");
  EXPECT_EQ(spy.Count("EngComputeBegin"), 0u);
}

TEST_F(DocumentPropertyTest, Title_EachFailure_ReportedAndTriedAnew) {
  const uint32_t document = CreateOn(Form("F").WindowTitle("\"title\"").Store());
  for (const char* call : {"EngComputeBegin", "EngComputeEvaluate"}) {
    for (const int32_t property : {KVPROP_DOC_TITLE, KVPROP_DOC_TITLE_LENGTH}) {
      kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, call);
      uint32_t value = kUntouched;
      EXPECT_EQ(KVDocumentGetProperty(document, property, &value), kEngineFailure) << call;
      EXPECT_EQ(value, kUntouched);
    }
  }
  EXPECT_EQ(Title(document), "title");
}

// ---- Special records

TEST_F(DocumentPropertyTest, KVDocumentLocateByClass_EveryClass_TheRecordOrZero) {
  const uint32_t form = Form("F").Class(BRCLASS_FORM | BRCLASS_DEFAULT).Store();
  EXPECT_EQ(KVDocumentLocateByClass(database_, 4), form);
  for (const int32_t doc_class : {0, 1, 3, 5, 6, 512, 0x8004, 0x10004, -4, INT32_MIN})
    EXPECT_EQ(KVDocumentLocateByClass(database_, doc_class), 0u) << doc_class;
  for (int32_t doc_class = 2; doc_class <= 256; doc_class *= 2) {
    kit::Spy spy;
    uint32_t id = 0;
    const auto special = static_cast<uint16_t>(0x8000 | doc_class);
    if (EngDbSpecialIdGet(EngineDatabase(), special, &id) != 0) id = 0;
    EXPECT_EQ(KVDocumentLocateByClass(database_, doc_class), id) << doc_class;
    EXPECT_EQ(spy.Count("EngDbSpecialIdGet"), 2u);
    EXPECT_EQ(spy.Find("EngDbSpecialIdGet", 1)->words[1], special);
  }
  EXPECT_EQ(kit::LastError().status, KVSUCCESS);
  EXPECT_EQ(KVDocumentLocateByClass(CreateOn(form), 4), 0u);
  ExpectError(KVFAIL_NO_DATABASE);
}

}  // namespace
