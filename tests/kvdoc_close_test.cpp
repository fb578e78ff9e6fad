// The end of documents: close, the documents of an index, the note handed to the caller.
#include <array>

#include "kvdoc_world.h"

namespace {

using kit::Answer;
using kit::Fault;
using kit::Spy;
using kvdoc::AddComposite;
using kvdoc::IndexDocument;
using kvdoc::ItemsOf;
using kvdoc::kEngineFailure;
using kvdoc::kEngineFailureWithFlagBits;
using kvdoc::kUntouched;
using kvdoc::kUpdateWords;
using kvdoc::Record;
using kvdoc::UpdateWordOf;
using kvdoc::WordRow;

using Names = std::vector<std::string>;
using DocumentTest = kvdoc::DocumentTest;

// ---- Close

TEST_F(DocumentTest, KVDocumentClose_EachFlagAndSetting_UpdateWord) {
  const uint32_t docid = StoreDocument();
  for (const WordRow& row : kUpdateWords) {
    SetDatabaseBool(database_, KVPROP_DB_DELAY_COMMIT, row.delay_commit);
    for (const bool is_new : {false, true}) {
      const uint32_t document = is_new ? New() : Open(docid);
      PutText(document, "Subject", "again");
      Spy spy;
      ASSERT_EQ(KVDocumentClose(document, row.flags), KVSUCCESS);
      EXPECT_EQ(UpdateWordOf(spy), is_new ? row.word | 0x100 : row.word) << std::hex << row.flags;
      EXPECT_EQ(spy.Count("EngNoteInfoGet"), 0u);
    }
  }
}

TEST_F(DocumentTest, KVDocumentClose_ClosedHandle_BadDocumentAlsoIfItWasTheCachedOne) {
  const uint32_t document = New();
  EXPECT_EQ(session_->hmruDOC, document);
  EXPECT_EQ(KVDocumentClose(document, KVDOCWRITE_DISCARD), KVSUCCESS);
  EXPECT_EQ(session_->hmruDOC, 0u);
  EXPECT_EQ(session_->pmruDOC, nullptr);
  EXPECT_EQ(KVDocumentClose(document, 0), KVFAIL_BAD_DOCUMENT);
  ExpectError(KVFAIL_BAD_DOCUMENT);
}

TEST_F(DocumentTest, KVDocumentClose_Dirty_SavesAndClean_WritesNothing) {
  const uint32_t docid = StoreDocument("before");
  uint32_t document = Open(docid);
  Spy spy;
  EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
  EXPECT_EQ(spy.Names(), Names{"EngNoteClose"});
  document = Open(docid);
  PutText(document, "Subject", "after");
  spy.Clear();
  EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
  EXPECT_EQ(spy.Names(), (Names{"EngNoteUpdate", "EngNoteClose"}));
  EXPECT_EQ(StoredItems(docid)[0].bytes, "after");
}

TEST_F(DocumentTest, KVDocumentClose_DiscardNew_LeavesNothingInTheDatabase) {
  const uint32_t first = StoreDocument();
  const uint32_t document = New();
  PutText(document, "Subject", "dropped");
  EXPECT_EQ(KVDocumentClose(document, KVDOCWRITE_DISCARD), KVSUCCESS);
  EXPECT_FALSE(IsStored(first + 1));
  EXPECT_EQ(StoreDocument(), first + 1);
}

TEST_F(DocumentTest, KVDocumentClose_UpdateFails_StatusAndEverythingReleased) {
  const kit::MemoryState before = kit::Memory();
  const uint32_t document = New();
  void* pointer = nullptr;
  KVITEM item;
  PutText(document, "Subject", "text");
  ASSERT_EQ(KVItemGetPointer(document, "Subject", nullptr, nullptr, nullptr, &pointer), KVSUCCESS);
  ASSERT_EQ(KVItemList(document, KVLIST_FIRST, 1, &item), KVSUCCESS);
  ASSERT_EQ(EngMemAlloc(0, 8, &Record(document)->exechand), 0);
  Record(document)->title = KVICopyText("title", 5);
  ASSERT_EQ(EngNoteCreate(EngineDatabase(), &Record(document)->precrypt_notehand), 0);
  AddComposite(session_, document, nullptr, false);
  {
    Fault fault = Fault::EngineCall(1, kEngineFailure, "EngNoteUpdate");
    EXPECT_EQ(KVDocumentClose(document, 0), kEngineFailure);
  }
  EXPECT_EQ(KVDocumentClose(document, 0), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(kit::Memory().blocks, before.blocks);
  EXPECT_EQ(kit::Memory().heap_blocks, before.heap_blocks);
}

TEST_F(DocumentTest, KVDocumentClose_CompositeCannotBeStored_NoUpdateAndAllReleased) {
  const uint32_t document = New();
  AddComposite(session_, document, "Body", true);
  AddComposite(session_, document, "Clean", false);
  Spy spy;
  const Answer items("EngItemInfo", kEngineFailureWithFlagBits);
  EXPECT_EQ(KVDocumentClose(document, 0), kEngineFailure);
  EXPECT_EQ(spy.Count("EngNoteUpdate"), 0u);
  EXPECT_EQ(spy.Count("EngNoteClose"), 1u);
  EXPECT_EQ(session_->pmruCOMP, nullptr);
}

TEST_F(DocumentTest, KVDocumentClose_DiscardWithComposites_ReleasedUnstored) {
  const uint32_t document = New();
  AddComposite(session_, document, "Body", true);
  EXPECT_EQ(KVDocumentClose(document, KVDOCWRITE_DISCARD), KVSUCCESS);
}

TEST_F(DocumentTest, KVDocumentClose_DatabaseClosed_HandleIsGone) {
  const uint32_t document = Open(StoreDocument());
  EXPECT_EQ(KVDatabaseClose(database_, 0), KVSUCCESS);
  EXPECT_EQ(KVDocumentClose(document, 0), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(KVDocumentSave(document, 0), KVFAIL_BAD_DOCUMENT);
}

TEST_F(DocumentTest, ClearDocState_EmptyState_SucceedsAgainAndAgain) {
  const uint32_t document = New();
  const uint32_t discard = KVDOCWRITE_DISCARD;
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(_ClearDocState(session_, Record(document), kStateDocumentEdits, &discard), KVSUCCESS);
    EXPECT_EQ(_ClearDocState(session_, Record(document), kStateDocumentValues, nullptr), KVSUCCESS);
    EXPECT_EQ(_ClearDocState(session_, Record(document), 23, nullptr), KVSUCCESS);
  }
}

// ---- Documents of an index

TEST_F(DocumentTest, KVDocumentClose_IndexDocument_RecordStaysWithItsIndex) {
  const uint32_t docid = StoreDocument("before");
  EngNote note = 0;
  ASSERT_EQ(EngNoteOpen(EngineDatabase(), docid, 2, &note), 0);
  IndexDocument loaded(session_, Base(), note, docid);
  PutText(loaded.handle(), "Subject", "after");
  EXPECT_EQ(session_->pmruDOC, &loaded.record());
  Spy spy;
  EXPECT_EQ(KVDocumentClose(loaded.handle(), 0), KVSUCCESS);
  EXPECT_EQ(spy.Names(), (Names{"EngNoteUpdate", "EngNoteClose"}));
  EXPECT_EQ(loaded.record().notehand, 0u);
  EXPECT_EQ(loaded.record().document, loaded.handle());
  EXPECT_EQ(session_->pmruDOC, nullptr);
  EXPECT_EQ(KVDocumentClose(loaded.handle(), 0), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(KVItemGetCount(loaded.handle()), 0u);
  ExpectError(KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(StoredItems(docid)[0].bytes, "after");
}

TEST_F(DocumentTest, KVDocumentSave_IndexDocument_WorksAsAnyOther) {
  const uint32_t docid = StoreDocument("before");
  EngNote note = 0;
  ASSERT_EQ(EngNoteOpen(EngineDatabase(), docid, 2, &note), 0);
  IndexDocument loaded(session_, Base(), note, docid);
  PutText(loaded.handle(), "Subject", "after");
  EXPECT_EQ(KVDocumentSave(loaded.handle(), 0), KVSUCCESS);
  EXPECT_EQ(StoredItems(docid)[0].bytes, "after");
  EXPECT_EQ(FetchText(loaded.handle(), "Subject"), "after");
  EXPECT_EQ(KVDocumentSave(loaded.index(), 0), KVFAIL_BAD_DOCUMENT);
}

TEST_F(DocumentTest, KVDocumentGetBryndHandle_IndexDocument_NoteHandedOutAndRecordEmpty) {
  const uint32_t docid = StoreDocument();
  EngNote note = 0;
  ASSERT_EQ(EngNoteOpen(EngineDatabase(), docid, 2, &note), 0);
  IndexDocument loaded(session_, Base(), note, docid);
  EngNote released = 0;
  EXPECT_EQ(KVDocumentGetBryndHandle(loaded.handle(), KVTOBRYND_RELEASE, &released), KVSUCCESS);
  EXPECT_EQ(released, note);
  EXPECT_EQ(loaded.record().notehand, 0u);
  EXPECT_EQ(EngNoteClose(released), 0);
}

// ---- The engine's handle

TEST_F(DocumentTest, KVDocumentGetBryndHandle_NullOutput_NullParamBeforeDocument) {
  EXPECT_EQ(KVDocumentGetBryndHandle(database_ + 1000, KVTOBRYND_GET_HANDLE, nullptr), KVFAIL_NULL_PARAM);
  ExpectError(KVFAIL_NULL_PARAM);
}

TEST_F(DocumentTest, KVDocumentGetBryndHandle_UnknownDocument_BadDocumentAndOutputUntouched) {
  uint32_t note = kUntouched;
  EXPECT_EQ(KVDocumentGetBryndHandle(database_, KVTOBRYND_RELEASE, &note), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(note, kUntouched);
}

TEST_F(DocumentTest, KVDocumentGetBryndHandle_NeitherOrBothFlags_NoActionAndNotRecorded) {
  const uint32_t document = New();
  for (const uint32_t flags : {0u, 0x3fffffffu, 0xc0000000u, 0xffffffffu}) {
    uint32_t note = kUntouched;
    EXPECT_EQ(KVDocumentGetBryndHandle(document, flags, &note), KVFAIL_NO_ACTION);
    EXPECT_EQ(note, kUntouched);
    ExpectError(KVSUCCESS);
  }
}

TEST_F(DocumentTest, KVDocumentGetBryndHandle_Get_BothHandlesWork) {
  const uint32_t document = New();
  std::array<char, 8> bytes{};
  EXPECT_EQ(KVDocumentGetBryndHandle(document, KVTOBRYND_GET_HANDLE | KVDOCWRITE_DISCARD, bytes.data() + 1),
            KVSUCCESS);
  const auto note = KVILoad<EngNote>(bytes.data() + 1);
  EXPECT_EQ(note, NoteOf(document));
  AppendText(note, "Past", "the library");
  EXPECT_EQ(FetchText(document, "Past"), "the library");
}

TEST_F(DocumentTest, KVDocumentGetBryndHandle_Release_SavesAndTheCallerOwnsTheNote) {
  const uint32_t docid = StoreDocument("before");
  const uint32_t document = Open(docid);
  PutText(document, "Subject", "after");
  const EngNote expected = NoteOf(document);
  EngNote note = 0;
  Spy spy;
  EXPECT_EQ(KVDocumentGetBryndHandle(document, KVTOBRYND_RELEASE, &note), KVSUCCESS);
  EXPECT_EQ(spy.Names(), Names{"EngNoteUpdate"});
  EXPECT_EQ(note, expected);
  EXPECT_EQ(KVDocumentClose(document, 0), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(ItemsOf(note)[0].bytes, "after");
  EXPECT_EQ(EngNoteClose(note), 0);
  EXPECT_EQ(StoredItems(docid)[0].bytes, "after");
}

TEST_F(DocumentTest, KVDocumentGetBryndHandle_ReleaseFlags_ThoseOfACloseAlone) {
  const uint32_t docid = StoreDocument("before");
  const WordRow rows[] = {{0, 0x3ffcffff, 0x105}, {0, 0x3ffdffff, 0x101}, {0, 0x3ffcfefa, 0}, {1, 0, 0x4}};
  for (const WordRow& row : rows) {
    SetDatabaseBool(database_, KVPROP_DB_DELAY_COMMIT, row.delay_commit);
    const uint32_t document = Open(docid);
    PutText(document, "Subject", "after");
    EngNote note = 0;
    Spy spy;
    EXPECT_EQ(KVDocumentGetBryndHandle(document, row.flags | KVTOBRYND_RELEASE, &note), KVSUCCESS);
    EXPECT_EQ(UpdateWordOf(spy), row.word) << std::hex << row.flags;
    EXPECT_EQ(EngNoteClose(note), 0);
  }
  const uint32_t document = Open(docid);
  PutText(document, "Subject", "dropped");
  EngNote note = 0;
  Spy spy;
  EXPECT_EQ(KVDocumentGetBryndHandle(document, KVTOBRYND_RELEASE | KVDOCWRITE_DISCARD, &note), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngNoteUpdate"), 0u);
  EXPECT_EQ(ItemsOf(note)[0].bytes, "dropped");
  EXPECT_EQ(EngNoteClose(note), 0);
}

TEST_F(DocumentTest, KVDocumentGetBryndHandle_ReleaseAndUpdateFails_StatusAndNoteHandedOut) {
  const uint32_t document = New();
  const EngNote expected = NoteOf(document);
  EngNote note = 0;
  {
    Fault fault = Fault::EngineCall(1, kEngineFailure, "EngNoteUpdate");
    EXPECT_EQ(KVDocumentGetBryndHandle(document, KVTOBRYND_RELEASE, &note), kEngineFailure);
  }
  EXPECT_EQ(note, expected);
  EXPECT_EQ(EngNoteClose(note), 0);
  EXPECT_EQ(KVDocumentClose(document, 0), KVFAIL_BAD_DOCUMENT);
}

}  // namespace
