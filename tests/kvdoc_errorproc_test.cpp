// Error procedures that take away what a save or a close works on: composites, the document, the session.
#include "kvcomp_world.h"

namespace {

using kit::Answer;
using kit::Fault;
using kit::Spy;
using kvdoc::IndexDocument;
using kvdoc::kEngineFailure;
using kvdoc::kUntouched;
using kvdoc::Record;

using Strings = std::vector<std::string>;

class ErrorProcedureTest : public kvcomp::CompositeTest {
 protected:
  void TearDown() override {
    if (running_) KVErrorSetProcedure(nullptr, nullptr);
    CompositeTest::TearDown();
  }

  // The next failure runs the work; later ones are only noted.
  void AtFailure(std::function<void()> work) {
    work_ = std::move(work);
    KVErrorSetProcedure(Procedure, this);
  }
  static uint32_t Procedure(uint32_t status, int32_t, char*, void* parameter) {
    auto* test = static_cast<ErrorProcedureTest*>(parameter);
    test->told_.push_back(status);
    const std::function<void()> work = std::exchange(test->work_, nullptr);
    if (work) work();
    return 0;
  }

  // A changed composite with content of its own.
  uint32_t Changed(const char* name) const {
    const uint32_t composite = Create(name);
    EXPECT_EQ(InsertText(composite, name), KVSUCCESS);
    return composite;
  }
  // The items that stand in the open note, in order.
  static Strings NamesIn(EngNote note) {
    Strings names;
    for (const kvdoc::NoteItem& item : kvdoc::ItemsOf(note)) names.push_back(item.name);
    return names;
  }

  std::function<void()> work_;
  std::vector<uint32_t> told_;
};

// ---- Save

TEST_F(ErrorProcedureTest, KVDocumentSave_ProcedureClosesTheDocument_BadDocumentAndNothingStored) {
  const uint32_t first = Changed("First");
  const uint32_t second = Changed("Second");
  ASSERT_EQ(EngMemAlloc(0, 8, &Record(document_)->exechand), 0);
  const Answer fails("EngItemAppend", kEngineFailure);
  const Spy spy;
  uint32_t closed = kUntouched;
  AtFailure([&] { closed = KVDocumentClose(document_, KVDOCWRITE_DISCARD); });
  EXPECT_EQ(KVDocumentSave(document_, 0), KVFAIL_BAD_DOCUMENT);
  ExpectError(KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(closed, KVSUCCESS);
  EXPECT_EQ(told_, (std::vector<uint32_t>{kEngineFailure, KVFAIL_BAD_DOCUMENT}));
  EXPECT_EQ(spy.Count("EngNoteUpdate"), 0u);
  EXPECT_EQ(spy.Count("EngItemAppend"), 1u);
  EXPECT_EQ(spy.Count("EngNoteClose"), 1u);
  EXPECT_EQ(KVCompositeClose(first, 0), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(KVCompositeClose(second, 0), KVFAIL_BAD_COMPOSITE);
}

TEST_F(ErrorProcedureTest, KVDocumentSave_ProcedureClosesTheDatabase_BadDocument) {
  Changed("First");
  Changed("Second");
  const Answer fails("EngItemAppend", kEngineFailure);
  AtFailure([&] { EXPECT_EQ(KVDatabaseClose(database_, 0), KVSUCCESS); });
  EXPECT_EQ(KVDocumentSave(document_, 0), KVFAIL_BAD_DOCUMENT);
}

TEST_F(ErrorProcedureTest, KVDocumentSave_ProcedureEndsTheLibrary_BadDocument) {
  Changed("First");
  Changed("Second");
  const Answer fails("EngItemAppend", kEngineFailure);
  AtFailure([&] { EndLibrary(); });
  EXPECT_EQ(KVDocumentSave(document_, 0), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(told_, std::vector<uint32_t>{kEngineFailure});
}

TEST_F(ErrorProcedureTest, KVDocumentSave_ProcedureClosesComposites_TheOthersAreStored) {
  // The composite opened last is stored first, and fails.
  struct Case {
    const char* what;
    std::vector<size_t> closed;
    Strings stored;
  };
  for (const Case& each : {Case{"none", {}, {"B", "A"}}, Case{"itself", {2}, {"B", "A"}},
                           Case{"the next", {1}, {"A"}}, Case{"both", {1, 2}, {"A"}},
                           Case{"the last", {0}, {"B"}}, Case{"all", {0, 1, 2}, {}}}) {
    document_ = New();
    const std::vector<uint32_t> composites = {Changed("A"), Changed("B"), Changed("C")};
    told_.clear();
    AtFailure([&] {
      for (const size_t i : each.closed)
        EXPECT_EQ(KVCompositeClose(composites[i], KVCOMPWRITE_DISCARD), KVSUCCESS);
    });
    {
      const Fault fault = Fault::EngineCall(1, kEngineFailure, "EngItemAppend");
      EXPECT_EQ(KVDocumentSave(document_, 0), kEngineFailure) << each.what;
    }
    EXPECT_EQ(NamesIn(NoteOf(document_)), each.stored) << each.what;
    EXPECT_NE(Record(document_)->docid, 0u) << "the update runs all the same";
    EXPECT_EQ(KVDocumentClose(document_, KVDOCWRITE_DISCARD), KVSUCCESS);
  }
}

TEST_F(ErrorProcedureTest, KVDocumentSave_ProcedureOpensAComposite_LeftForTheNextSave) {
  Changed("A");
  AtFailure([&] { Changed("New"); });
  {
    const Fault fault = Fault::EngineCall(1, kEngineFailure, "EngItemAppend");
    EXPECT_EQ(KVDocumentSave(document_, 0), kEngineFailure);
  }
  EXPECT_EQ(NamesIn(note_), Strings{});
  Record(document_)->dirty = 1;
  EXPECT_EQ(KVDocumentSave(document_, 0), KVSUCCESS);
  EXPECT_EQ(NamesIn(note_), (Strings{"New", "A"}));
}

// An index whose document is another one by the time that the procedure is done.
TEST_F(ErrorProcedureTest, KVDocumentSaveAndClose_ProcedureLoadsAnotherDocument_ThatOneIsLeftAlone) {
  for (const bool closes : {false, true}) {
    const uint32_t docids[] = {StoreDocument("one"), StoreDocument("other")};
    EngNote notes[2] = {};
    for (size_t i = 0; i < 2; ++i) ASSERT_EQ(EngNoteOpen(EngineDatabase(), docids[i], 2, &notes[i]), 0);
    IndexDocument loaded(session_, Base(), notes[0], docids[0]);
    document_ = loaded.handle();
    Changed("A");
    AtFailure([&] {
      EXPECT_EQ(KVDocumentClose(document_, KVDOCWRITE_DISCARD), KVSUCCESS);
      loaded.record().notehand = notes[1];
      loaded.record().docid = docids[1];
      PutText(document_, "Subject", "changed");
    });
    {
      const Spy spy;
      const Fault fault = Fault::EngineCall(1, kEngineFailure, "EngItemAppend");
      if (closes)
        EXPECT_EQ(KVDocumentClose(document_, 0), kEngineFailure);
      else
        EXPECT_EQ(KVDocumentSave(document_, 0), KVFAIL_BAD_DOCUMENT);
      EXPECT_EQ(spy.Count("EngNoteUpdate"), 0u);
      EXPECT_EQ(spy.Count("EngNoteClose"), 1u) << "that of the procedure";
    }
    EXPECT_EQ(loaded.record().notehand, notes[1]);
    EXPECT_EQ(loaded.record().dirty, 1);
    EXPECT_EQ(FetchText(document_, "Subject"), "changed");
  }
}

// ---- Close

TEST_F(ErrorProcedureTest, KVDocumentClose_ProcedureClosesItToo_FirstFailureAndClosedOnce) {
  for (const char* call : {"EngItemAppend", "EngNoteUpdate"}) {
    document_ = New();
    Changed("A");
    Changed("B");
    told_.clear();
    uint32_t closed = kUntouched;
    AtFailure([&] { closed = KVDocumentClose(document_, KVDOCWRITE_DISCARD); });
    const Spy spy;
    const Answer fails(call, kEngineFailure);
    EXPECT_EQ(KVDocumentClose(document_, 0), kEngineFailure) << call;
    EXPECT_EQ(closed, KVSUCCESS);
    EXPECT_EQ(told_, std::vector<uint32_t>{kEngineFailure});
    EXPECT_EQ(spy.Count("EngNoteClose"), 1u);
    EXPECT_EQ(KVDocumentClose(document_, 0), KVFAIL_BAD_DOCUMENT);
  }
}

TEST_F(ErrorProcedureTest, KVDocumentClose_ProcedureEndsTheLibrary_FirstFailure) {
  Changed("A");
  const Answer fails("EngNoteUpdate", kEngineFailure);
  AtFailure([&] { EndLibrary(); });
  EXPECT_EQ(KVDocumentClose(document_, 0), kEngineFailure);
}

TEST_F(ErrorProcedureTest, KVDocumentClose_ProcedureClosesComposites_EachIsReleasedOnce) {
  for (const std::vector<size_t>& closing : {std::vector<size_t>{1}, {0}, {0, 1}}) {
    document_ = New();
    const std::vector<uint32_t> composites = {Changed("A"), Changed("B")};
    AtFailure([&] {
      for (const size_t i : closing)
        EXPECT_EQ(KVCompositeClose(composites[i], KVCOMPWRITE_DISCARD), KVSUCCESS);
    });
    const Spy spy;
    const Fault fault = Fault::EngineCall(1, kEngineFailure, "EngItemAppend");
    EXPECT_EQ(KVDocumentClose(document_, 0), kEngineFailure);
    EXPECT_EQ(spy.Count("EngNoteUpdate"), 0u);
    for (const uint32_t composite : composites) EXPECT_EQ(CompOf(composite), nullptr);
  }
}

TEST_F(ErrorProcedureTest, KVDocumentGetBryndHandle_ProcedureClosesTheDocument_NoNoteIsHandedOut) {
  AtFailure([&] { EXPECT_EQ(KVDocumentClose(document_, KVDOCWRITE_DISCARD), KVSUCCESS); });
  const Answer fails("EngNoteUpdate", kEngineFailure);
  EngNote note = kUntouched;
  EXPECT_EQ(KVDocumentGetBryndHandle(document_, KVTOBRYND_RELEASE, &note), kEngineFailure);
  EXPECT_EQ(note, 0u);
}

// ---- Items

// A conversion reads the value where it lies in the note, and fails with that value in its hands.
TEST_F(ErrorProcedureTest, KVItems_ProcedureClosesTheDocument_StatusAndNothingLeftLocked) {
  const double number = 1.5;
  for (const char* what : {"fetch", "pointer", "length", "put"}) {
    document_ = New();
    const std::string name = what;
    ASSERT_EQ(KVItemPut(document_, "Count", KVTYPE_NUMBER, 0, KVTYPE_NUMBER, &number, 0), KVSUCCESS);
    const Answer fails("EngNumberToText", kEngineFailure);
    told_.clear();
    AtFailure([&] { EXPECT_EQ(KVDocumentClose(document_, KVDOCWRITE_DISCARD), KVSUCCESS); });
    int32_t type = KVTYPE_TEXT;
    uint32_t length = 0;
    char text[100] = {};
    void* pointer = nullptr;
    uint32_t status = KVSUCCESS;
    if (name == "fetch") status = KVItemFetch(document_, "Count", nullptr, &length, &type, text);
    if (name == "pointer") status = KVItemGetPointer(document_, "Count", nullptr, &length, &type, &pointer);
    if (name == "length") status = KVItemGetLength(document_, "Count", nullptr, &type, &length);
    if (name == "put") status = KVItemPut(document_, "Count", KVTYPE_TEXT, 0, KVTYPE_NUMBER, &number, 0);
    // The procedure's own call clears the error state, so that the failure may be told once more.
    ASSERT_FALSE(told_.empty()) << what;
    EXPECT_EQ(told_.front(), status) << what;
    EXPECT_EQ(pointer, nullptr) << what;
    EXPECT_EQ(KVDocumentClose(document_, 0), KVFAIL_BAD_DOCUMENT) << what;
    EXPECT_EQ(kit::Memory().locks, 0u) << what;
  }
}

}  // namespace
