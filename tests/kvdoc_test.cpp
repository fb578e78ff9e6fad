// Documents: create, open, save, delete, finding by identity and by id, threads.
#include <array>
#include <atomic>
#include <set>
#include <thread>

#include "kvdoc_world.h"

namespace {

using kit::Answer;
using kit::Fault;
using kit::Spy;
using kvdoc::AddComposite;
using kvdoc::kEngineFailure;
using kvdoc::kEngineFailureWithFlagBits;
using kvdoc::kUntouched;
using kvdoc::kUpdateWords;
using kvdoc::Record;
using kvdoc::UpdateWordOf;
using kvdoc::WordRow;

using Names = std::vector<std::string>;
using DocumentTest = kvdoc::DocumentTest;

// ---- Create

TEST_F(DocumentTest, KVDocumentCreate_NullDocument_NullParamBeforeDatabase) {
  EXPECT_EQ(KVDocumentCreate(database_ + 1000, 0, nullptr), KVFAIL_NULL_PARAM);
  ExpectError(KVFAIL_NULL_PARAM);
}

TEST_F(DocumentTest, KVDocumentCreate_UnknownDatabase_NoDatabaseAndHandleZero) {
  uint32_t document = kUntouched;
  EXPECT_EQ(KVDocumentCreate(database_ + 1000, 1, &document), KVFAIL_NO_DATABASE);
  EXPECT_EQ(document, 0u);
  ExpectError(KVFAIL_NO_DATABASE);
}

TEST_F(DocumentTest, KVDocumentCreate_FormId_NoFormAndNoNoteMade) {
  const uint32_t form = StoreNote(BRCLASS_FORM, {{"$TITLE", BRTYPE_TEXT, 4, "Memo"}});
  uint32_t document = kUntouched;
  Spy spy;
  EXPECT_EQ(KVDocumentCreate(database_, form, &document), KVFAIL_NO_FORM);
  EXPECT_EQ(document, 0u);
  EXPECT_EQ(spy.Count("EngNoteCreate"), 0u);
  ExpectError(KVFAIL_NO_FORM);
}

TEST_F(DocumentTest, KVDocumentCreate_EngineFails_StatusMaskedAndHandleZero) {
  uint32_t document = kUntouched;
  Fault fault = Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngNoteCreate");
  EXPECT_EQ(KVDocumentCreate(database_, 0, &document), kEngineFailure);
  EXPECT_EQ(document, 0u);
  EXPECT_EQ(session_->doctab[KVIBucket(database_ + 1, kDocumentBuckets)], nullptr);
}

TEST_F(DocumentTest, KVDocumentCreate_Success_RecordAndEngineCalls) {
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND_COMPUTE, 1);
  Spy spy;
  const uint32_t document = New();
  EXPECT_EQ(spy.Names(), Names{"EngNoteCreate"});
  EXPECT_EQ(document, database_ + 1);
  EXPECT_EQ(session_->hmruDOC, document);
  const _DOCUMENT* doc = session_->pmruDOC;
  ASSERT_NE(doc, nullptr);
  EXPECT_EQ(doc->document, document);
  EXPECT_EQ(doc->docid, 0u);
  EXPECT_EQ(doc->dbase, Base());
  EXPECT_EQ(doc->class_, 1);
  EXPECT_EQ(doc->new_, 1);
  EXPECT_EQ(doc->dirty, 1);
  EXPECT_EQ(doc->sb_compute, Base()->strict_bind_compute);
  EXPECT_EQ(doc->form, nullptr);
  EXPECT_EQ(doc->form_save, nullptr);
  EXPECT_EQ(session_->doctab[KVIBucket(document, kDocumentBuckets)], doc);
  ExpectError(KVSUCCESS);
}

TEST_F(DocumentTest, KVDocumentCreate_ComputeSetting_CopiedFromTheDatabase) {
  for (const int32_t compute : {0, 1}) {
    SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND_COMPUTE, compute);
    EXPECT_EQ(Record(New())->sb_compute, compute);
  }
}

TEST_F(DocumentTest, KVDocumentCreate_StrictDatabaseWithoutForm_DocumentIsUnbound) {
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 1);
  const uint32_t document = New();
  EXPECT_EQ(Record(document)->form, nullptr);
  PutText(document, "Free", "text");
}

TEST_F(DocumentTest, KVDocumentCreate_NoMemory_NoteClosedAndHandleZero) {
  uint32_t document = kUntouched;
  Spy spy;
  const uint32_t count = kvdoc::AllocationsOf([&] {
    document = kUntouched;
    spy.Clear();
    const uint32_t status = KVDocumentCreate(database_, 0, &document);
    if (status == KVSUCCESS) return;
    EXPECT_TRUE(status == KVFAIL_NO_MEMORY || status == 0x107) << std::hex << status;
    EXPECT_EQ(document, 0u);
    const size_t made = spy.Count("EngNoteCreate") != 0 && spy.Find("EngNoteCreate")->result == 0 ? 1 : 0;
    EXPECT_EQ(spy.Count("EngNoteClose"), made);
  });
  kvdoc::PrintAllocations("KVDocumentCreate", count);
  EXPECT_GE(count, 1u);
}

TEST_F(DocumentTest, KVDocumentCreate_HandleNumbersUsedUp_NoMemoryAndNoteClosed) {
  const uint32_t next_handle = session_->next_handle;
  uint32_t document = kUntouched;
  session_->next_handle = kHandleNumberMax;
  EXPECT_EQ(KVDocumentCreate(database_, 0, &document), KVSUCCESS);
  EXPECT_EQ(document, kHandleNumberMax);
  Spy spy;
  EXPECT_EQ(KVDocumentCreate(database_, 0, &document), KVFAIL_NO_MEMORY);
  EXPECT_EQ(document, 0u);
  EXPECT_EQ(spy.Count("EngNoteClose"), 1u);
  session_->next_handle = next_handle;
}

TEST_F(DocumentTest, KVDocumentCreate_UnalignedOutput_IsWritten) {
  std::array<char, 8> bytes{};
  auto* document = reinterpret_cast<uint32_t*>(bytes.data() + 1);
  ASSERT_EQ(KVDocumentCreate(database_, 0, document), KVSUCCESS);
  EXPECT_EQ(KVDocumentClose(KVILoad<uint32_t>(bytes.data() + 1), KVDOCWRITE_DISCARD), KVSUCCESS);
}

// ---- Open

TEST_F(DocumentTest, KVDocumentOpen_NullDocument_NullParamBeforeDatabase) {
  Spy spy;
  EXPECT_EQ(KVDocumentOpen(database_ + 1000, 1, 0, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_TRUE(spy.calls().empty());
  ExpectError(KVFAIL_NULL_PARAM);
}

TEST_F(DocumentTest, KVDocumentOpen_UnknownDatabase_NoDatabaseAndHandleZero) {
  uint32_t document = kUntouched;
  EXPECT_EQ(KVDocumentOpen(database_ + 1000, 1, 0, &document), KVFAIL_NO_DATABASE);
  EXPECT_EQ(document, 0u);
}

TEST_F(DocumentTest, KVDocumentOpen_NoSuchNote_BadDocumentAndHandleZero) {
  const uint32_t deleted = StoreDocument();
  ASSERT_EQ(KVDocumentDelete(database_, deleted, 0), KVSUCCESS);
  for (const uint32_t docid : {0u, deleted, deleted + 1000, 0xffffffffu}) {
    uint32_t document = kUntouched;
    EXPECT_EQ(KVDocumentOpen(database_, docid, 0, &document), KVFAIL_BAD_DOCUMENT) << docid;
    EXPECT_EQ(document, 0u);
    ExpectError(KVFAIL_BAD_DOCUMENT);
  }
}

TEST_F(DocumentTest, KVDocumentOpen_EngineFails_NoSuchNoteIsMaskedOthersAreTheirs) {
  const uint32_t docid = StoreDocument();
  const struct {
    uint16_t brstatus;
    uint32_t status;
  } rows[] = {{0x227, KVFAIL_BAD_DOCUMENT},
              {0x4227, KVFAIL_BAD_DOCUMENT},
              {0xc227, KVFAIL_BAD_DOCUMENT},
              {kEngineFailureWithFlagBits, kEngineFailure},
              {0x228, 0x228}};
  for (const auto& row : rows) {
    uint32_t document = kUntouched;
    Fault fault = Fault::EngineCall(1, row.brstatus, "EngNoteOpen");
    EXPECT_EQ(KVDocumentOpen(database_, docid, 0, &document), row.status);
    EXPECT_EQ(document, 0u);
  }
}

TEST_F(DocumentTest, KVDocumentOpen_Flags_OnlyTheMaskAndTheBaseReachTheEngine) {
  const uint32_t docid = StoreDocument();
  const uint32_t rows[][2] = {{0, 0x2},       {0xffffffff, 0x20f}, {0x1, 0x3},       {0x8, 0xa},
                              {0x200, 0x202}, {0x4, 0x6},          {0xfffffdf2, 0x2}};
  for (const auto& row : rows) {
    Spy spy;
    const uint32_t document = Open(docid, row[0]);
    ASSERT_EQ(spy.Count("EngNoteOpen"), 1u);
    EXPECT_EQ(spy.Find("EngNoteOpen")->words[2], row[1]) << std::hex << row[0];
    EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
  }
}

TEST_F(DocumentTest, KVDocumentOpen_SummaryFlag_OtherItemsAreOutOfSightAndKept) {
  const uint32_t docid =
      StoreNote(BRCLASS_DATA, {{"Short", BRTYPE_TEXT, 4, "one"}, {"Long", BRTYPE_TEXT, 0, "two"}});
  const uint32_t document = Open(docid, 1);
  EXPECT_EQ(KVItemGetCount(document), 1u);
  PutText(document, "More", "three");
  EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
  EXPECT_EQ(StoredItems(docid).size(), 3u);
}

TEST_F(DocumentTest, KVDocumentOpen_Success_RecordAndEngineCalls) {
  const uint32_t docid = StoreDocument();
  Spy spy;
  const uint32_t document = Open(docid);
  EXPECT_EQ(spy.Names(), (Names{"EngNoteOpen", "EngNoteInfoGet", "EngNoteSignStateGet"}));
  EXPECT_EQ(spy.Find("EngNoteInfoGet")->words[1], 3u);
  EXPECT_EQ(session_->hmruDOC, document);
  const _DOCUMENT* doc = session_->pmruDOC;
  ASSERT_NE(doc, nullptr);
  EXPECT_EQ(doc->docid, docid);
  EXPECT_EQ(doc->dbase, Base());
  EXPECT_EQ(doc->dirty, 0);
  EXPECT_EQ(doc->new_, 0);
  EXPECT_EQ(doc->class_, 1);
  EXPECT_EQ(doc->encrypted, 0);
  EXPECT_EQ(doc->form, nullptr);
  EXPECT_EQ(doc->index, 0u);
}

TEST_F(DocumentTest, KVDocumentOpen_DesignRecord_OnlyWhenTheDatabaseOpensThem) {
  const uint32_t form = StoreNote(BRCLASS_FORM, {{"$TITLE", BRTYPE_TEXT, 4, "Memo"}});
  uint32_t document = kUntouched;
  Spy spy;
  EXPECT_EQ(KVDocumentOpen(database_, form, 0, &document), KVFAIL_NON_DATA_DOCUMENT);
  EXPECT_EQ(document, 0u);
  EXPECT_EQ(spy.Count("EngNoteClose"), 1u);
  EXPECT_EQ(spy.Count("EngNoteSignStateGet"), 0u);
  ExpectError(KVFAIL_NON_DATA_DOCUMENT);
  SetDatabaseBool(database_, KVPROP_DB_DOCOPEN_DESIGN, 1);
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 1);  // binding is for data documents
  EXPECT_EQ(KVDocumentOpen(database_, form, 0, &document), KVSUCCESS);
  EXPECT_EQ(Record(document)->class_, BRCLASS_FORM);
}

TEST_F(DocumentTest, KVDocumentOpen_StrictDatabase_NoFormAndNoteClosed) {
  const uint32_t docid = StoreDocument();
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 1);
  uint32_t document = kUntouched;
  Spy spy;
  EXPECT_EQ(KVDocumentOpen(database_, docid, 0, &document), KVFAIL_STRICT_NO_FORM);
  EXPECT_EQ(document, 0u);
  EXPECT_EQ(spy.Count("EngNoteClose"), 1u);
  ExpectError(KVFAIL_STRICT_NO_FORM);
}

TEST_F(DocumentTest, KVDocumentOpen_SealedWithoutKey_SucceedsAndEncryptedIsOff) {
  const uint32_t docid = StoreNote(BRCLASS_DATA, {{"$Seal", BRTYPE_TEXT, 0, "seal"}});
  Spy spy;
  const uint32_t document = Open(docid);
  ASSERT_EQ(spy.Count("EngNoteDecrypt"), 1u);
  EXPECT_EQ(spy.Find("EngNoteDecrypt")->words[1], 0u);
  EXPECT_EQ(spy.Find("EngNoteDecrypt")->words[2], 0u);
  EXPECT_EQ(Record(document)->encrypted, 0);
  ExpectError(KVSUCCESS);
}

TEST_F(DocumentTest, KVDocumentOpen_SealedWithKey_EncryptedIsOn) {
  const uint32_t docid = StoreNote(BRCLASS_DATA, {{"$Seal", BRTYPE_TEXT, 0, "seal"}});
  Answer answer("EngNoteDecrypt", 0);
  EXPECT_EQ(Record(Open(docid))->encrypted, 1);
}

TEST_F(DocumentTest, KVDocumentOpen_SignedOnly_NothingIsDecrypted) {
  const uint32_t docid = StoreNote(BRCLASS_DATA, {{"$Signature", BRTYPE_TEXT, 0, "signature"}});
  Spy spy;
  EXPECT_EQ(Record(Open(docid))->encrypted, 0);
  EXPECT_EQ(spy.Count("EngNoteDecrypt"), 0u);
}

TEST_F(DocumentTest, KVDocumentOpen_NoMemory_NoteClosedAndHandleZero) {
  const uint32_t docid = StoreDocument();
  const kit::MemoryState before = kit::Memory();
  const uint32_t count = kvdoc::AllocationsOf([&] {
    uint32_t document = kUntouched;
    const uint32_t status = KVDocumentOpen(database_, docid, 0, &document);
    if (status == KVSUCCESS) {
      EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
    } else {
      EXPECT_TRUE(status == KVFAIL_NO_MEMORY || status == 0x107) << std::hex << status;
      EXPECT_EQ(document, 0u);
    }
    EXPECT_EQ(kit::Memory().heap_blocks, before.heap_blocks);
    EXPECT_EQ(kit::Memory().blocks, before.blocks);
  });
  kvdoc::PrintAllocations("KVDocumentOpen and KVDocumentClose", count);
}

TEST_F(DocumentTest, KVDocumentOpen_UnalignedOutput_IsWritten) {
  const uint32_t docid = StoreDocument();
  std::array<char, 8> bytes{};
  ASSERT_EQ(KVDocumentOpen(database_, docid, 0, reinterpret_cast<uint32_t*>(bytes.data() + 3)), KVSUCCESS);
  EXPECT_EQ(KVDocumentClose(KVILoad<uint32_t>(bytes.data() + 3), 0), KVSUCCESS);
}

TEST_F(DocumentTest, KVDocumentOpen_ManyDocuments_EachHandleFindsItsOwnInAnyOrder) {
  constexpr uint32_t kCount = 61;  // three in each chain, and one
  const uint32_t docid = StoreDocument();
  std::vector<uint32_t> documents;
  for (uint32_t i = 0; i < kCount; ++i) documents.push_back(Open(docid));
  EXPECT_EQ(std::set<uint32_t>(documents.begin(), documents.end()).size(), kCount);
  for (uint32_t step : {20u, 7u, 3u}) {
    for (size_t i = 0; i < documents.size(); i += step) {
      EXPECT_EQ(KVDocumentClose(documents[i], 0), KVSUCCESS);
      EXPECT_EQ(KVDocumentClose(documents[i], 0), KVFAIL_BAD_DOCUMENT);
      documents[i] = 0;
    }
    std::erase(documents, 0u);
    for (const uint32_t document : documents) {
      ASSERT_NE(Record(document), nullptr);
      EXPECT_EQ(Record(document)->document, document);
    }
  }
}

// ---- Save

TEST_F(DocumentTest, KVDocumentSave_UnknownHandle_BadDocument) {
  const uint32_t document = New();
  ASSERT_EQ(KVDocumentClose(document, KVDOCWRITE_DISCARD), KVSUCCESS);
  for (const uint32_t handle : {document, database_, 0u, document + 50, document | kIndexDocumentBit}) {
    EXPECT_EQ(KVDocumentSave(handle, 0), KVFAIL_BAD_DOCUMENT) << handle;
    EXPECT_EQ(KVDocumentSave(handle, KVDOCWRITE_DISCARD), KVFAIL_BAD_DOCUMENT);
    ExpectError(KVFAIL_BAD_DOCUMENT);
  }
}

TEST_F(DocumentTest, KVDocumentSave_TwiceWithoutChange_UpdatesOnce) {
  const uint32_t document = New();
  Spy spy;
  EXPECT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(spy.Names(), (Names{"EngNoteUpdate", "EngNoteInfoGet"}));
  EXPECT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngNoteUpdate"), 1u);
  EXPECT_EQ(spy.calls().size(), 2u);
}

TEST_F(DocumentTest, KVDocumentSave_NewDocument_GetsItsIdOnTheFirstSave) {
  const uint32_t document = New();
  PutText(document, "Subject", "first");
  EXPECT_EQ(Record(document)->docid, 0u);
  Spy spy;
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(spy.Find("EngNoteInfoGet")->words[1], 1u);
  const uint32_t docid = Record(document)->docid;
  ASSERT_NE(docid, 0u);
  EXPECT_EQ(StoredItems(docid).size(), 1u);
  PutText(document, "Subject", "second");
  spy.Clear();
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngNoteInfoGet"), 0u);
  EXPECT_EQ(Record(document)->docid, docid);
  EXPECT_EQ(StoredItems(docid)[0].bytes, "second");
}

TEST_F(DocumentTest, KVDocumentSave_EachFlagAndSetting_UpdateWord) {
  const uint32_t stored = Open(StoreDocument());
  const uint32_t fresh = New();
  for (const WordRow& row : kUpdateWords) {
    SetDatabaseBool(database_, KVPROP_DB_DELAY_COMMIT, row.delay_commit);
    for (const uint32_t document : {stored, fresh}) {
      PutText(document, "Subject", "again");
      Spy spy;
      ASSERT_EQ(KVDocumentSave(document, row.flags), KVSUCCESS);
      // A document that was created keeps the bit of its first update: no form takes it away.
      const uint32_t expected = document == fresh ? row.word | 0x100 : row.word;
      EXPECT_EQ(UpdateWordOf(spy), expected) << row.delay_commit << " " << std::hex << row.flags;
    }
  }
}

TEST_F(DocumentTest, KVDocumentSave_Discard_DropsTheMarkAndKeepsTheEdits) {
  const uint32_t docid = StoreDocument("before");
  const uint32_t document = Open(docid);
  PutText(document, "Subject", "after");
  Spy spy;
  EXPECT_EQ(KVDocumentSave(document, KVDOCWRITE_DISCARD), KVSUCCESS);
  EXPECT_TRUE(spy.calls().empty());
  EXPECT_EQ(Record(document)->dirty, 0);
  EXPECT_EQ(FetchText(document, "Subject"), "after");
  spy.Clear();
  EXPECT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngNoteUpdate"), 0u);
  PutText(document, "Other", "change");
  EXPECT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(StoredItems(docid, "Subject")[0].bytes, "after");
}

TEST_F(DocumentTest, KVDocumentSave_DiscardThenClose_WritesNothing) {
  const uint32_t docid = StoreDocument("before");
  const uint32_t document = Open(docid);
  PutText(document, "Subject", "after");
  EXPECT_EQ(KVDocumentSave(document, KVDOCWRITE_DISCARD), KVSUCCESS);
  Spy spy;
  EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
  EXPECT_EQ(spy.Names(), Names{"EngNoteClose"});
  EXPECT_EQ(StoredItems(docid)[0].bytes, "before");
}

TEST_F(DocumentTest, KVDocumentSave_EngineFails_StatusMaskedAndDirtyOff) {
  const uint32_t document = New();
  {
    Fault fault = Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngNoteUpdate");
    EXPECT_EQ(KVDocumentSave(document, 0), kEngineFailure);
  }
  EXPECT_EQ(Record(document)->dirty, 0);
  EXPECT_EQ(Record(document)->docid, 0u);
  ExpectError(kEngineFailure);
  Spy spy;
  EXPECT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngNoteUpdate"), 0u);
  PutText(document, "Subject", "now");
  EXPECT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_NE(Record(document)->docid, 0u);
}

TEST_F(DocumentTest, KVDocumentSave_ExecuteResult_FreedAlsoWithoutChange) {
  const uint32_t document = Open(StoreDocument());
  for (const uint32_t flags : {uint32_t{KVDOCWRITE_DISCARD}, 0u}) {
    if (Record(document)->exechand == 0) {
      ASSERT_EQ(EngMemAlloc(0, 8, &Record(document)->exechand), 0);
    }
    Spy spy;
    EXPECT_EQ(KVDocumentSave(document, flags), KVSUCCESS);
    EXPECT_EQ(spy.Count("EngMemFree"), flags == 0 ? 1u : 0u);
    EXPECT_EQ(Record(document)->exechand == 0, flags == 0);
  }
}

TEST_F(DocumentTest, KVDocumentSave_CompositeCannotBeStored_FirstFailureKeptAndDocumentUpdated) {
  const uint32_t document = New();
  AddComposite(session_, document, "Body", true);
  AddComposite(session_, document, "Other", true);
  AddComposite(session_, document, nullptr, true);
  AddComposite(session_, document, "Clean", false);
  Spy spy;
  const Answer items("EngItemInfo", kEngineFailureWithFlagBits);
  EXPECT_EQ(KVDocumentSave(document, 0), kEngineFailure);
  EXPECT_EQ(spy.Count("EngItemInfo"), 2u) << "the walk goes on behind a failure";
  EXPECT_EQ(spy.Count("EngNoteUpdate"), 1u);
  EXPECT_EQ(Record(document)->dirty, 0);
  EXPECT_NE(Record(document)->docid, 0u);
  EXPECT_NE(Record(document)->complist, nullptr);
  ExpectError(kEngineFailure);
}

TEST_F(DocumentTest, KVDocumentSave_ChangedElsewhere_ConflictUnlessForced) {
  const uint32_t docid = StoreDocument("before");
  const uint32_t one = Open(docid);
  const uint32_t other = Open(docid);
  PutText(one, "Subject", "one");
  PutText(other, "Subject", "other");
  EXPECT_EQ(KVDocumentSave(one, 0), KVSUCCESS);
  EXPECT_EQ(KVDocumentSave(other, 0), 0x240u);
  EXPECT_EQ(Record(other)->dirty, 0);
  EXPECT_EQ(StoredItems(docid)[0].bytes, "one");
  PutText(other, "Subject", "forced");
  EXPECT_EQ(KVDocumentSave(other, KVDOCWRITE_FORCE), KVSUCCESS);
  EXPECT_EQ(StoredItems(docid)[0].bytes, "forced");
  PutText(one, "Subject", "late");
  EXPECT_EQ(KVDocumentClose(one, 0), 0x240u);
  EXPECT_EQ(StoredItems(docid)[0].bytes, "forced");
}

TEST_F(DocumentTest, KVDocumentSave_ChangedThroughAnotherHandle_ConflictToo) {
  const uint32_t docid = StoreDocument("before");
  const uint32_t second = OpenDatabase(path_);
  const uint32_t one = Open(docid);
  const uint32_t other = OpenIn(second, docid);
  PutText(one, "Subject", "one");
  PutText(other, "Subject", "other");
  EXPECT_EQ(KVDocumentClose(other, KVDOCWRITE_NOCOMMIT), KVSUCCESS);
  EXPECT_EQ(KVDocumentClose(one, 0), 0x240u);
  EXPECT_EQ(StoredItems(docid)[0].bytes, "other");
}

TEST_F(DocumentTest, KVDocumentSave_DelayedCommits_StoredWithTheNextCommitAtTheLatest) {
  SetDatabaseBool(database_, KVPROP_DB_DELAY_COMMIT, 1);
  const uint32_t second = OpenDatabase(path_);
  const uint32_t docid = StoreDocument("delayed");
  EXPECT_EQ(FetchText(Open(docid), "Subject"), "delayed");  // its own handle sees it at once
  const uint32_t document = New();
  ASSERT_EQ(KVDocumentClose(document, KVDOCWRITE_COMMIT), KVSUCCESS);
  EXPECT_EQ(FetchText(OpenIn(second, docid), "Subject"), "delayed");
}

// ---- Bound documents: the form is a record of the test's own, without fields

class BoundDocumentTest : public DocumentTest {
 protected:
  void SetUp() override {
    DocumentTest::SetUp();
    form_.compute = form_.compute_new = 1;
    form_.flags = KVFORMSPEC_ANONYMOUS;
    document_ = New();
    Bind(1);
  }
  void TearDown() override {
    if (_DOCUMENT* doc = Record(document_)) doc->form = nullptr;
    DocumentTest::TearDown();
  }
  void Bind(int32_t compute) {
    Record(document_)->form = &form_;
    Record(document_)->sb_compute = compute;
  }

  _FORMSPEC form_{};
  uint32_t document_ = 0;
};

TEST_F(BoundDocumentTest, KVDocumentSave_ComputeFails_NoUpdateAndDocumentStaysDirty) {
  Spy spy;
  const Answer mark("EngItemTextSet", kEngineFailureWithFlagBits);
  EXPECT_EQ(KVDocumentSave(document_, 0), kEngineFailure);
  EXPECT_EQ(spy.Count("EngNoteUpdate"), 0u);
  EXPECT_EQ(Record(document_)->dirty, 1);
  EXPECT_EQ(Record(document_)->new_, 0);
  ExpectError(kEngineFailure);
}

TEST_F(BoundDocumentTest, KVDocumentSave_ComputeOff_FirstUpdateAloneIsMarkedNew) {
  Bind(0);
  for (const uint32_t word : {0x100u, 0u, 0u}) {
    Record(document_)->dirty = 1;
    Spy spy;
    EXPECT_EQ(KVDocumentSave(document_, 0), KVSUCCESS);
    EXPECT_EQ(UpdateWordOf(spy), word);
  }
}

TEST_F(BoundDocumentTest, KVDocumentSave_FormComputesNewOnesAlone_NewIsOverBeforeTheCompute) {
  form_.compute = 0;
  const Answer mark("EngItemTextSet", kEngineFailure);
  EXPECT_EQ(KVDocumentSave(document_, 0), KVSUCCESS);
}

TEST_F(BoundDocumentTest, KVDocumentClose_ComputeFails_NoUpdateAndHandleGone) {
  const kit::MemoryState before = kit::Memory();
  Spy spy;
  const Answer mark("EngItemTextSet", kEngineFailureWithFlagBits);
  EXPECT_EQ(KVDocumentClose(document_, 0), kEngineFailure);
  EXPECT_EQ(spy.Count("EngNoteUpdate"), 0u);
  EXPECT_EQ(spy.Count("EngNoteClose"), 1u);
  EXPECT_EQ(KVDocumentSave(document_, 0), KVFAIL_BAD_DOCUMENT);
  EXPECT_LT(kit::Memory().heap_blocks, before.heap_blocks);
}

TEST_F(BoundDocumentTest, KVDocumentClose_Discard_NothingComputes) {
  const Answer mark("EngItemTextSet", kEngineFailure);
  EXPECT_EQ(KVDocumentClose(document_, KVDOCWRITE_DISCARD), KVSUCCESS);
}

// ---- Delete

TEST_F(DocumentTest, KVDocumentDelete_UnknownDatabase_NoDatabaseBeforeTheId) {
  EXPECT_EQ(KVDocumentDelete(database_ + 1000, 0, 0), KVFAIL_NO_DATABASE);
  ExpectError(KVFAIL_NO_DATABASE);
}

TEST_F(DocumentTest, KVDocumentDelete_IdZero_BadDocumentWithoutAskingTheEngine) {
  Spy spy;
  EXPECT_EQ(KVDocumentDelete(database_, 0, 0), KVFAIL_BAD_DOCUMENT);
  EXPECT_TRUE(spy.calls().empty());
  ExpectError(KVFAIL_BAD_DOCUMENT);
}

TEST_F(DocumentTest, KVDocumentDelete_NoSuchNote_BadDocumentAndNothingDeleted) {
  const uint32_t docid = StoreDocument();
  EXPECT_EQ(KVDocumentDelete(database_, docid + 1000, 0), KVFAIL_BAD_DOCUMENT);
  for (const uint16_t brstatus : {uint16_t{0x227}, uint16_t{0x8227}}) {
    Spy spy;
    Fault fault = Fault::EngineCall(1, brstatus, "EngDbIdInfoGet");
    EXPECT_EQ(KVDocumentDelete(database_, docid, 0), KVFAIL_BAD_DOCUMENT);
    EXPECT_EQ(spy.Count("EngNoteDelete"), 0u);
  }
  EXPECT_TRUE(IsStored(docid));
}

TEST_F(DocumentTest, KVDocumentDelete_EngineFails_ItsStatusFromEitherCall) {
  const uint32_t docid = StoreDocument();
  for (const char* call : {"EngDbIdInfoGet", "EngNoteDelete"}) {
    Fault fault = Fault::EngineCall(1, kEngineFailureWithFlagBits, call);
    EXPECT_EQ(KVDocumentDelete(database_, docid, 0), kEngineFailure);
    ExpectError(kEngineFailure);
  }
  EXPECT_TRUE(IsStored(docid));
}

TEST_F(DocumentTest, KVDocumentDelete_DesignRecord_OnlyWhenTheDatabaseOpensThem) {
  const uint32_t form = StoreNote(BRCLASS_FORM);
  EXPECT_EQ(KVDocumentDelete(database_, form, 0), KVFAIL_NON_DATA_DOCUMENT);
  EXPECT_TRUE(IsStored(form));
  SetDatabaseBool(database_, KVPROP_DB_DOCOPEN_DESIGN, 1);
  EXPECT_EQ(KVDocumentDelete(database_, form, 0), KVSUCCESS);
  EXPECT_FALSE(IsStored(form));
}

TEST_F(DocumentTest, KVDocumentDelete_EachFlagAndSetting_EngineWord) {
  const WordRow rows[] = {{0, 0, 0},
                          {0, KVDOCDELETE_ENGINE_BIT, 0x200},
                          {0, KVDOCDELETE_NOCOMMIT, 0x4},
                          {0, KVDOCDELETE_COMMIT, 0},
                          {0, KVDOCDELETE_NOCOMMIT | KVDOCDELETE_COMMIT, 0},
                          {0, 0xfffcfffe, 0},
                          {0, 0xffffffff, 0x200},
                          {1, 0, 0x4},
                          {1, KVDOCDELETE_ENGINE_BIT, 0x204},
                          {1, KVDOCDELETE_NOCOMMIT, 0x4},
                          {1, KVDOCDELETE_COMMIT, 0},
                          {1, KVDOCDELETE_COMMIT | KVDOCDELETE_ENGINE_BIT, 0x200}};
  for (const WordRow& row : rows) {
    SetDatabaseBool(database_, KVPROP_DB_DELAY_COMMIT, row.delay_commit);
    const uint32_t docid = StoreDocument();
    Spy spy;
    ASSERT_EQ(KVDocumentDelete(database_, docid, row.flags), KVSUCCESS);
    EXPECT_EQ(spy.Names(), (Names{"EngDbIdInfoGet", "EngNoteDelete"}));
    EXPECT_EQ(spy.Find("EngNoteDelete")->words[1], docid);
    EXPECT_EQ(spy.Find("EngNoteDelete")->words[2], row.word) << std::hex << row.flags;
    EXPECT_FALSE(IsStored(docid));
    EXPECT_EQ(KVDocumentDelete(database_, docid, row.flags), KVFAIL_BAD_DOCUMENT);
  }
}

TEST_F(DocumentTest, KVDocumentDelete_OpenElsewhere_HandleStaysAndItsSaveFails) {
  const uint32_t docid = StoreDocument();
  const uint32_t document = Open(docid);
  ASSERT_EQ(KVDocumentDelete(database_, docid, 0), KVSUCCESS);
  EXPECT_EQ(FetchText(document, "Subject"), "a subject");
  PutText(document, "Subject", "late");
  EXPECT_EQ(KVDocumentSave(document, 0), 0x228u);
  EXPECT_FALSE(IsStored(docid));
}

// ---- By identity, by id

KVUNID UnidOf(EngNote note) {
  ORIGINATORID originator;
  KVUNID unid;
  EXPECT_EQ(EngNoteInfoGet(note, 2, &originator), 0);
  memcpy(&unid, &originator, sizeof unid);
  return unid;
}

TEST_F(DocumentTest, KVDocumentLocateByUnid_EachCase_IdOrZero) {
  const uint32_t docid = StoreDocument();
  const uint32_t form = StoreNote(BRCLASS_FORM);
  SetDatabaseBool(database_, KVPROP_DB_DOCOPEN_DESIGN, 1);
  const KVUNID unid = UnidOf(NoteOf(Open(docid)));
  const KVUNID form_unid = UnidOf(NoteOf(Open(form)));
  EXPECT_EQ(KVDocumentLocateByUnid(database_, &unid), docid);
  EXPECT_EQ(KVDocumentLocateByUnid(database_, &form_unid), form);
  SetDatabaseBool(database_, KVPROP_DB_DOCOPEN_DESIGN, 0);
  EXPECT_EQ(KVDocumentLocateByUnid(database_, &unid), docid);
  EXPECT_EQ(KVDocumentLocateByUnid(database_, &form_unid), 0u);
  ExpectError(KVSUCCESS);
  KVUNID other = unid;
  other.doc.innards[1] ^= 1;
  EXPECT_EQ(KVDocumentLocateByUnid(database_, &other), 0u);
  EXPECT_EQ(KVDocumentLocateByUnid(database_, nullptr), 0u);
  ExpectError(KVSUCCESS);
  std::array<char, sizeof(KVUNID) + 1> bytes;
  memcpy(bytes.data() + 1, &unid, sizeof unid);
  EXPECT_EQ(KVDocumentLocateByUnid(database_, reinterpret_cast<const KVUNID*>(bytes.data() + 1)), docid);
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbUnidInfoGet");
  EXPECT_EQ(KVDocumentLocateByUnid(database_, &unid), 0u);
  ExpectError(KVSUCCESS);
}

TEST_F(DocumentTest, KVDocumentLocateByUnid_UnknownDatabase_ZeroAndRecorded) {
  const KVUNID unid{};
  EXPECT_EQ(KVDocumentLocateByUnid(database_ + 1000, &unid), 0u);
  ExpectError(KVFAIL_NO_DATABASE);
}

TEST_F(DocumentTest, KVIDbFindDocByID_OpenDocuments_RecentFirstAndPairUnchanged) {
  const uint32_t docid = StoreDocument();
  const uint32_t other_docid = StoreDocument();
  const uint32_t second = OpenDatabase(path_);
  const uint32_t first = Open(docid);
  const uint32_t again = Open(docid);
  const uint32_t other = Open(other_docid);
  const uint32_t elsewhere = OpenIn(second, docid);
  _DOCUMENT* found = nullptr;
  ASSERT_EQ(Record(first)->document, first);  // the pair names it now
  EXPECT_EQ(_KVIDbFindDocByID(session_, Base(), docid, &found), KVSUCCESS);
  EXPECT_EQ(found->document, first);
  ASSERT_EQ(Record(other)->document, other);
  EXPECT_EQ(_KVIDbFindDocByID(session_, Base(), docid, &found), KVSUCCESS);
  EXPECT_TRUE(found->document == first || found->document == again);
  EXPECT_EQ(session_->hmruDOC, other);
  EXPECT_EQ(_KVIDbFindDocByID(session_, BaseOf(second), docid, &found), KVSUCCESS);
  EXPECT_EQ(found->document, elsewhere);
  kit::LastError();
  EXPECT_EQ(_KVIDbFindDocByID(session_, BaseOf(second), other_docid, &found), KVFAIL_NOT_FOUND);
  EXPECT_EQ(found, nullptr);
  ExpectError(KVSUCCESS);
}

// ---- Threads

TEST_F(DocumentTest, EachFunction_HandleOfAnotherThread_BadHandle) {
  const uint32_t docid = StoreDocument();
  const uint32_t document = Open(docid);
  kit::InSession([&] {
    uint32_t out = kUntouched;
    const KVUNID unid{};
    EXPECT_EQ(KVDocumentCreate(database_, 0, nullptr), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVDocumentOpen(database_, docid, 0, &out), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(out, kUntouched);
    EXPECT_EQ(KVDocumentSave(document, 0), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVDocumentClose(document, 0), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVDocumentDelete(database_, docid, 0), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVDocumentGetBryndHandle(document, KVTOBRYND_GET_HANDLE, &out), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVDocumentLocateByUnid(database_, &unid), 0u);
    EXPECT_EQ(kit::LastError().status, KVSUCCESS);
  });
  EXPECT_EQ(FetchText(document, "Subject"), "a subject");
}

TEST_F(DocumentTest, EachFunction_ThreadsWithTheirOwnHandles_WorkSideBySide) {
  constexpr int kThreads = 3;
  constexpr int kDocuments = 20;
  std::atomic<int> stored{0};
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number)
    threads.emplace_back([&, number] {
      ASSERT_EQ(KVInitThread(0), KVSUCCESS);
      const uint32_t database = OpenDatabase(path_);
      for (int i = 0; i < kDocuments; ++i) {
        uint32_t document = 0;
        ASSERT_EQ(KVDocumentCreate(database, 0, &document), KVSUCCESS);
        const std::string text = std::to_string(number) + "/" + std::to_string(i);
        PutText(document, "Subject", text);
        ASSERT_EQ(KVDocumentSave(document, KVDOCWRITE_NOCOMMIT), KVSUCCESS);
        const uint32_t docid = Record(document)->docid;
        ASSERT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
        ASSERT_EQ(KVDocumentOpen(database, docid, 0, &document), KVSUCCESS);
        EXPECT_EQ(FetchText(document, "Subject"), text);
        EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
        ++stored;
      }
      EXPECT_EQ(KVTerm(KVTERM_THREAD), KVSUCCESS);
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(stored, kThreads * kDocuments);
}

}  // namespace
