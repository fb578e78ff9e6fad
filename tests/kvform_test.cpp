// Forms and subforms by name, their copies and deletion.
#include "kvform_world.h"

namespace {

using kit::Answer;
using kit::Spy;
using kvform::FormTest;
using kvform::Named;

constexpr uint16_t kEngineFailure = 0x1f7;

class LibraryTest : public FormTest {
 protected:
  void SetUp() override {
    FormTest::SetUp();
    form_ = Form("Menu\\Cascade|Memo").Field(Named("Subject")).Store();
    subform_ = Form("Part").Subform().Field(Named("P")).Store();
    other_ = OpenDatabase(MakeDatabase("other.qdb"));
  }
  uint32_t form_ = 0, subform_ = 0, other_ = 0;
};

// ---- By name

TEST_F(LibraryTest, KVFormLocateByName_Names_IdOrNoForm) {
  EXPECT_EQ(KVFormLocateByName(database_, "Memo"), form_);
  EXPECT_EQ(KVFormLocateByName(database_, "MEMO"), form_);
  EXPECT_EQ(KVFormLocateByName(database_, "menu\\cascade|memo"), form_);
  ExpectError(KVSUCCESS);
  for (const char* name : {"Mem", "", "Part"}) {
    EXPECT_EQ(KVFormLocateByName(database_, name), 0u) << name;
    ExpectError(KVFAIL_NO_FORM);
  }
}

TEST_F(LibraryTest, KVSubformLocateByName_Names_IdOrNoSubform) {
  EXPECT_EQ(KVSubformLocateByName(database_, "part"), subform_);
  for (const char* name : {"Mem", "", "Memo"}) {
    EXPECT_EQ(KVSubformLocateByName(database_, name), 0u) << name;
    ExpectError(KVFAIL_NO_SUBFORM);
  }
}

TEST_F(LibraryTest, LocateByName_BadArguments_StatusesInOrder) {
  for (const auto locate : {KVFormLocateByName, KVSubformLocateByName}) {
    EXPECT_EQ(locate(0, nullptr), 0u);
    ExpectError(KVFAIL_NULL_PARAM);
    EXPECT_EQ(locate(0, "Memo"), 0u);
    ExpectError(KVFAIL_NO_DATABASE);
  }
}

TEST_F(LibraryTest, LocateByName_EngineFails_ThatStatus) {
  const Answer answer("EngDesignFind", kEngineFailure);
  EXPECT_EQ(KVFormLocateByName(database_, "Memo"), 0u);
  ExpectError(kEngineFailure);
  EXPECT_EQ(KVSubformLocateByName(database_, "Part"), 0u);
  ExpectError(kEngineFailure);
}

TEST_F(LibraryTest, LocateByName_RecordDoesNotOpen_None) {
  const Answer answer("EngNoteOpen", kEngineFailure);
  EXPECT_EQ(KVFormLocateByName(database_, "Memo"), 0u);
  ExpectError(KVFAIL_NO_FORM);
  EXPECT_EQ(KVSubformLocateByName(database_, "Part"), 0u);
  ExpectError(KVFAIL_NO_SUBFORM);
}

// ---- Copies

TEST_F(LibraryTest, KVFormCopy_ToAnotherDatabase_WholeForm) {
  uint32_t copy = 0;
  ASSERT_EQ(KVFormCopy(database_, form_, other_, nullptr, &copy), KVSUCCESS);
  EXPECT_EQ(KVFormLocateByName(other_, "Memo"), copy);
  KVFIELD field;
  EXPECT_EQ(KVFieldFetch(other_, copy, "Subject", &field), KVSUCCESS);
  EXPECT_EQ(KVFormCopy(database_, form_, other_, "", &copy), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(copy, 0u);
  ExpectError(KVFAIL_NAME_IN_USE);
}

TEST_F(LibraryTest, KVFormCopy_UnderANewName_InTheSameDatabase) {
  uint32_t copy = 0;
  ASSERT_EQ(KVFormCopy(database_, form_, database_, "Letter", &copy), KVSUCCESS);
  EXPECT_NE(copy, form_);
  EXPECT_EQ(KVFormLocateByName(database_, "Letter"), copy);
  EXPECT_EQ(KVFormLocateByName(database_, "Memo"), form_);
  EXPECT_EQ(KVFormCopy(database_, form_, database_, "Memo", nullptr), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(KVFormCopy(database_, form_, database_, nullptr, nullptr), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(KVFormCopy(database_, form_, database_, std::string(129, 'n').c_str(), nullptr), KVSUCCESS);
  EXPECT_EQ(KVFormCopy(database_, form_, database_, std::string(130, 'n').c_str(), nullptr),
            KVFAIL_DATA_TOO_LONG);
}

TEST_F(LibraryTest, Copy_RecordsOfAnotherKind_NoneOfTheKind) {
  uint32_t copy = 77;
  for (const uint32_t id : {0u, subform_, StoreDocument(), 100000u}) {
    EXPECT_EQ(KVFormCopy(database_, id, other_, "New", &copy), KVFAIL_NO_FORM) << id;
    EXPECT_EQ(copy, 0u);
  }
  for (const uint32_t id : {0u, form_, 100000u})
    EXPECT_EQ(KVSubformCopy(database_, id, other_, "New", &copy), KVFAIL_NO_SUBFORM) << id;
  EXPECT_EQ(KVSubformCopy(database_, subform_, other_, "New", &copy), KVSUCCESS);
  EXPECT_EQ(KVSubformLocateByName(other_, "New"), copy);
  EXPECT_EQ(KVSubformCopy(database_, subform_, other_, "New", &copy), KVFAIL_NAME_IN_USE);
}

TEST_F(LibraryTest, Copy_BadArguments_StatusesInOrder) {
  const std::string name(130, 'n');
  uint32_t copy = 77;
  EXPECT_EQ(KVFormCopy(0, form_, 0, name.c_str(), &copy), KVFAIL_NO_DATABASE);
  EXPECT_EQ(copy, 0u);
  EXPECT_EQ(KVFormCopy(database_, form_, 0, name.c_str(), &copy), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVFormCopy(database_, 0, other_, name.c_str(), &copy), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(KVSubformCopy(database_, 0, other_, name.c_str(), &copy), KVFAIL_DATA_TOO_LONG);
}

TEST_F(LibraryTest, Copy_EngineFails_NoneOfTheKind) {
  const Answer answer("EngNoteUpdate", kEngineFailure);
  uint32_t copy = 77;
  EXPECT_EQ(KVFormCopy(database_, form_, other_, nullptr, &copy), KVFAIL_NO_FORM);
  EXPECT_EQ(KVSubformCopy(database_, subform_, other_, nullptr, &copy), KVFAIL_NO_SUBFORM);
  EXPECT_EQ(copy, 0u);
}

// ---- Deletion

TEST_F(LibraryTest, KVFormDelete_FormThatWasRead_GoneWithoutEngineCall) {
  const _FORMSPEC* spec = SpecOf(form_);
  ASSERT_EQ(KVFormDelete(database_, form_), KVSUCCESS);
  EXPECT_EQ(spec->deleted, 1) << "documents may still point at it";
  KVFORM form;
  KVFIELD field;
  Spy spy;
  EXPECT_EQ(KVFormFetch(database_, form_, &form), KVFAIL_NO_FORM);
  EXPECT_TRUE(spy.calls().empty());
  EXPECT_EQ(KVFieldFetch(database_, form_, "Subject", &field), KVFAIL_NO_FORM);
  EXPECT_EQ(KVFormLocateByName(database_, "Memo"), 0u);
  EXPECT_EQ(KVFormDelete(database_, form_), KVFAIL_NO_FORM);
}

TEST_F(LibraryTest, KVFormDelete_FormThatWasNotRead_Gone) {
  ASSERT_EQ(KVFormDelete(database_, form_), KVSUCCESS);
  KVFORM form;
  EXPECT_EQ(KVFormFetch(database_, form_, &form), KVFAIL_NO_FORM);
}

TEST_F(LibraryTest, KVFormDelete_BadArguments_StatusesInOrder) {
  EXPECT_EQ(KVFormDelete(0, 0), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVFormDelete(database_, 0), KVFAIL_NO_FORM);
  EXPECT_EQ(KVFormDelete(database_, 100000), KVFAIL_NO_FORM);
  EXPECT_EQ(KVFormDelete(database_, StoreDocument()), KVFAIL_NO_FORM);
  ExpectError(KVFAIL_NO_FORM);
  for (const char* call : {"EngDbIdInfoGet", "EngNoteDelete"}) {
    const Answer answer(call, kEngineFailure);
    EXPECT_EQ(KVFormDelete(database_, form_), kEngineFailure) << call;
  }
  EXPECT_EQ(SpecOf(form_)->deleted, 0);
}

TEST_F(LibraryTest, KVFormDelete_DocumentBoundToIt_ActiveResultAndNothingDeleted) {
  Set(KVPROP_DB_STRICT_BIND, 1);
  uint32_t document = 0;
  ASSERT_EQ(KVDocumentCreate(database_, form_, &document), KVSUCCESS);
  ASSERT_NE(kvdoc::Record(document)->form, nullptr);
  const uint32_t again = OpenDatabase(path_);
  for (const uint32_t database : {database_, again})
    EXPECT_EQ(KVFormDelete(database, form_), KVFAIL_ACTIVE_RESULT);
  EXPECT_TRUE(IsStored(form_));
  EXPECT_EQ(kvdoc::Record(document)->form->deleted, 0);
  ASSERT_EQ(KVDocumentClose(document, KVDOCWRITE_DISCARD), KVSUCCESS);
  EXPECT_EQ(KVFormDelete(database_, form_), KVSUCCESS);
}

TEST_F(LibraryTest, KVFormDelete_DocumentsInEachBucketAndOfAnIndex_ActiveResult) {
  _FORMSPEC* spec = SpecOf(form_);
  for (uint32_t i = 0; i < kDocumentBuckets; ++i) {
    const uint32_t document = New();
    kvdoc::Record(document)->form = spec;
    EXPECT_EQ(KVFormDelete(database_, form_), KVFAIL_ACTIVE_RESULT) << i;
    kvdoc::Record(document)->form = nullptr;
  }
  EngNote note = 0;
  ASSERT_EQ(EngNoteCreate(EngineDatabase(), &note), 0);
  kvdoc::IndexDocument loaded(session_, Base(), note, 0);
  loaded.record().form = spec;
  EXPECT_EQ(KVFormDelete(database_, form_), KVFAIL_ACTIVE_RESULT);
  loaded.record().form = nullptr;
  EXPECT_EQ(KVFormDelete(database_, form_), KVSUCCESS);
}

TEST_F(LibraryTest, KVFormDelete_DocumentsOfOthers_DoNotMatter) {
  const uint32_t second = Form("Second").Store();
  _FORMSPEC* spec = SpecOf(form_);
  const uint32_t aside = New();
  kvdoc::Record(aside)->form_save = spec;  // binding is off
  uint32_t elsewhere = 0;
  ASSERT_EQ(KVDocumentCreate(other_, 0, &elsewhere), KVSUCCESS);
  kvdoc::Record(elsewhere)->form = spec;  // a form of the same id in another database
  const uint32_t bound = New();
  kvdoc::Record(bound)->form = SpecOf(second);
  EXPECT_EQ(KVFormDelete(database_, form_), KVSUCCESS);
  EXPECT_EQ(kvdoc::Record(aside)->form_save->deleted, 1);
  EXPECT_STREQ(kvdoc::Record(aside)->form_save->name, "Memo") << "its address stays good";
  kvdoc::Record(elsewhere)->form = nullptr;
  kvdoc::Record(bound)->form = nullptr;
}

TEST_F(LibraryTest, KVSubformDelete_SubformThatWasRead_GoneButKeptInForms) {
  const uint32_t id = Form("F").UseSubform("Part").Store();
  const _FORMSPEC* spec = SpecOf(id);
  ASSERT_EQ(KVSubformDelete(database_, subform_), KVSUCCESS);
  EXPECT_EQ(spec->fieldlist[0].psubform->deleted, 1);
  Set(KVPROP_DB_READ_SUBF_FIELDS, 1);
  EXPECT_EQ(FieldNames(id), std::vector<std::string>{"P"});
  KVSUBFORM subform;
  Spy spy;
  EXPECT_EQ(KVSubformFetch(database_, subform_, &subform), KVFAIL_NO_SUBFORM);
  EXPECT_TRUE(spy.calls().empty());
  EXPECT_EQ(KVSubformLocateByName(database_, "Part"), 0u);
}

TEST_F(LibraryTest, KVSubformDelete_BadArguments_StatusesInOrder) {
  EXPECT_EQ(KVSubformDelete(0, 0), KVFAIL_NO_DATABASE);
  for (const uint32_t id : {0u, form_, StoreDocument(), 100000u})
    EXPECT_EQ(KVSubformDelete(database_, id), KVFAIL_NO_SUBFORM) << id;
  const Answer answer("EngNoteDelete", kEngineFailure);
  EXPECT_EQ(KVSubformDelete(database_, subform_), kEngineFailure);
  EXPECT_EQ(SubformOf(subform_)->deleted, 0);
}

TEST_F(LibraryTest, KVSubformDelete_FormOfTheSameDatabaseListed_OnlyTheSubformMarked) {
  const _FORMSPEC* form = SpecOf(form_);
  ASSERT_EQ(KVSubformDelete(database_, subform_), KVSUCCESS);
  EXPECT_EQ(form->deleted, 0);
}

}  // namespace
