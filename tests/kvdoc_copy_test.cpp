// Copies of documents: identity, parent, items, databases, and what a failure leaves.
#include <array>

#include "kvdoc_world.h"

namespace {

using kit::Answer;
using kit::Fault;
using kit::Spy;
using kvdoc::ItemsOf;
using kvdoc::kEngineFailure;
using kvdoc::kEngineFailureWithFlagBits;
using kvdoc::kUntouched;
using kvdoc::NoteItem;

using Names = std::vector<std::string>;

bool operator==(const UNIVERSALNOTEID& one, const UNIVERSALNOTEID& other) {
  return memcmp(&one, &other, sizeof one) == 0;
}

class CopyTest : public kvdoc::DocumentTest {
 protected:
  void SetUp() override {
    DocumentTest::SetUp();
    other_ = OpenDatabase(MakeDatabase("other.qdb"));
    const std::string reference = std::string("\1\0", 2) + std::string(16, 'p');
    items_ = {{"Subject", BRTYPE_TEXT, 4, "a subject"},
              {"Long", BRTYPE_TEXT, 0, std::string(20000, 'l')},
              {"Longer", BRTYPE_USER, 3, std::string(70000, 'u')},
              {"Subject", BRTYPE_TEXT, 0x400, "another subject"}};
    std::vector<NoteItem> stored = items_;
    stored.insert(stored.begin() + 1, {"$REF", 4, 4, reference});
    docid_ = StoreNote(BRCLASS_DATA, stored);
    copyinfo_ = {.src_dbhand = EngineDatabase(), .dest_dbhand = BaseOf(other_)->dbhand, .collhand = 0};
  }

  std::vector<NoteItem> ItemsIn(uint32_t database, uint32_t docid) {
    EngNote note = 0;
    EXPECT_EQ(EngNoteOpen(BaseOf(database)->dbhand, docid, 0, &note), 0);
    std::vector<NoteItem> items = ItemsOf(note);
    EXPECT_EQ(EngNoteClose(note), 0);
    return items;
  }
  static void ExpectItems(const std::vector<NoteItem>& items, const std::vector<NoteItem>& expected) {
    ASSERT_EQ(items.size(), expected.size());
    for (size_t i = 0; i < items.size(); ++i) {
      EXPECT_EQ(items[i].name, expected[i].name);
      EXPECT_EQ(items[i].type, expected[i].type);
      EXPECT_EQ(items[i].flags, expected[i].flags);
      EXPECT_TRUE(items[i].bytes == expected[i].bytes) << items[i].name;
    }
  }
  UNIVERSALNOTEID UnidIn(uint32_t database, uint32_t docid) {
    ORIGINATORID originator{};
    EXPECT_EQ(EngDbIdInfoGet(BaseOf(database)->dbhand, docid, &originator, nullptr, nullptr), 0);
    return {originator.File, originator.Note};
  }
  // The id that the next note of the database will have, found by making one.
  uint32_t NextId(uint32_t database) {
    EngNote note = 0;
    uint32_t id = 0;
    EXPECT_EQ(EngNoteCreate(BaseOf(database)->dbhand, &note), 0);
    EXPECT_EQ(EngNoteUpdate(note, 0), 0);
    EXPECT_EQ(EngNoteInfoGet(note, 1, &id), 0);
    EXPECT_EQ(EngNoteClose(note), 0);
    return id;
  }
  bool IsStoredIn(uint32_t database, uint32_t docid) {
    return EngDbIdInfoGet(BaseOf(database)->dbhand, docid, nullptr, nullptr, nullptr) == 0;
  }

  uint32_t other_ = 0;
  uint32_t docid_ = 0;
  std::vector<NoteItem> items_;  // of the document, "$REF" left out
  COPYINFO copyinfo_{};
};

TEST_F(CopyTest, KVDocumentCopy_UnknownDatabases_SourceFirstAndOutputZero) {
  Spy spy;
  const uint32_t unknown = other_ + 1000;
  const uint32_t rows[][2] = {{unknown, other_}, {database_, unknown}, {0, 0}};
  for (const auto& row : rows) {
    uint32_t docid = kUntouched;
    EXPECT_EQ(KVDocumentCopy(row[0], docid_, row[1], &docid), KVFAIL_NO_DATABASE);
    EXPECT_EQ(docid, 0u);
    ExpectError(KVFAIL_NO_DATABASE);
  }
  EXPECT_TRUE(spy.calls().empty());
}

TEST_F(CopyTest, KVDocumentCopy_NoSuchNote_BadDocumentAndOutputZero) {
  for (const uint32_t docid : {0u, docid_ + 1000}) {
    uint32_t copy = kUntouched;
    EXPECT_EQ(KVDocumentCopy(database_, docid, other_, &copy), KVFAIL_BAD_DOCUMENT);
    EXPECT_EQ(copy, 0u);
    ExpectError(KVFAIL_BAD_DOCUMENT);
  }
  Fault fault = Fault::EngineCall(1, 0x4227, "EngNoteOpen");
  EXPECT_EQ(KVDocumentCopy(database_, docid_, other_, nullptr), KVFAIL_BAD_DOCUMENT);
}

TEST_F(CopyTest, KVDocumentCopy_AnotherDatabase_ItemsIdentityAndNoParent) {
  uint32_t copy = 0;
  ASSERT_EQ(KVDocumentCopy(database_, docid_, other_, &copy), KVSUCCESS);
  ASSERT_NE(copy, 0u);
  ExpectItems(ItemsIn(other_, copy), items_);
  EXPECT_FALSE(UnidIn(other_, copy) == UnidIn(database_, docid_));
  EXPECT_EQ(ItemsIn(database_, docid_).size(), items_.size() + 1);
  const UNIVERSALNOTEID unid = UnidIn(other_, copy);
  EXPECT_EQ(KVDocumentLocateByUnid(other_, reinterpret_cast<const KVUNID*>(&unid)), copy);
}

TEST_F(CopyTest, KVDocumentCopy_SameDatabase_NewNoteBesideTheOld) {
  uint32_t copy = 0;
  ASSERT_EQ(KVDocumentCopy(database_, docid_, database_, &copy), KVSUCCESS);
  EXPECT_GT(copy, docid_);
  ExpectItems(ItemsIn(database_, copy), items_);
  EXPECT_FALSE(UnidIn(database_, copy) == UnidIn(database_, docid_));
}

TEST_F(CopyTest, KVDocumentCopy_NullOutput_CopiesAllTheSame) {
  const uint32_t next = NextId(other_) + 1;
  EXPECT_EQ(KVDocumentCopy(database_, docid_, other_, nullptr), KVSUCCESS);
  EXPECT_TRUE(IsStoredIn(other_, next));
}

TEST_F(CopyTest, KVDocumentCopy_UnalignedOutput_IsWritten) {
  std::array<char, 8> bytes{};
  ASSERT_EQ(KVDocumentCopy(database_, docid_, other_, reinterpret_cast<uint32_t*>(bytes.data() + 1)),
            KVSUCCESS);
  EXPECT_TRUE(IsStoredIn(other_, KVILoad<uint32_t>(bytes.data() + 1)));
}

TEST_F(CopyTest, KVDocumentCopy_DesignRecordAndStrictDatabases_CopiedWithoutQuestions) {
  const uint32_t form = StoreNote(BRCLASS_FORM, {{"$TITLE", BRTYPE_TEXT, 4, "Memo"}});
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 1);
  SetDatabaseBool(other_, KVPROP_DB_STRICT_BIND, 1);
  uint32_t copy = 0;
  ASSERT_EQ(KVDocumentCopy(database_, form, other_, &copy), KVSUCCESS);
  uint16_t note_class = 0;
  EXPECT_EQ(EngDbIdInfoGet(BaseOf(other_)->dbhand, copy, nullptr, nullptr, &note_class), 0);
  EXPECT_EQ(note_class, BRCLASS_FORM);
}

TEST_F(CopyTest, KVDocumentCopy_OpenWithChanges_TheStoredDocumentIsCopied) {
  const uint32_t docid = StoreDocument("stored");
  const uint32_t document = Open(docid);
  PutText(document, "Subject", "changed");
  uint32_t copy = 0;
  ASSERT_EQ(KVDocumentCopy(database_, docid, other_, &copy), KVSUCCESS);
  EXPECT_EQ(ItemsIn(other_, copy)[0].bytes, "stored");
}

TEST_F(CopyTest, KVDocumentCopy_Success_EngineCallsInOrder) {
  Spy spy;
  uint32_t copy = 0;
  ASSERT_EQ(KVDocumentCopy(database_, docid_, other_, &copy), KVSUCCESS);
  EXPECT_EQ(spy.Names(), (Names{"EngNoteOpen", "EngNoteCopy", "EngNoteClose", "EngDbOidGenerate",
                                "EngNoteInfoSet", "EngNoteInfoSet", "EngNoteInfoSet", "EngItemDelete",
                                "EngNoteUpdate", "EngNoteInfoGet", "EngNoteInfoGet", "EngNoteClose"}));
  EXPECT_EQ(spy.Find("EngNoteOpen")->words[2], 0u);
  EXPECT_EQ(spy.Find("EngDbOidGenerate")->words[0], copyinfo_.dest_dbhand);
  EXPECT_EQ(spy.Find("EngNoteInfoSet", 0)->words[1], 2u);
  EXPECT_EQ(spy.Find("EngNoteInfoSet", 1)->words[1], 1u);
  EXPECT_EQ(spy.Find("EngNoteInfoSet", 2)->words[1], 0u);
  EXPECT_EQ(spy.Find("EngItemDelete")->texts[1], "$REF");
  EXPECT_EQ(spy.Find("EngNoteUpdate")->words[1], 0u);
  EXPECT_EQ(spy.Find("EngNoteInfoGet", 0)->words[1], 1u);
  EXPECT_EQ(spy.Find("EngNoteInfoGet", 1)->words[1], 2u);
}

TEST_F(CopyTest, KVDocumentCopy_DelayedCommits_UpdateWordStaysZero) {
  SetDatabaseBool(other_, KVPROP_DB_DELAY_COMMIT, 1);
  Spy spy;
  EXPECT_EQ(KVDocumentCopy(database_, docid_, other_, nullptr), KVSUCCESS);
  EXPECT_EQ(kvdoc::UpdateWordOf(spy), 0u);
}

TEST_F(CopyTest, KVDocumentCopy_EachEngineCallFails_StatusNoCopyAndSourceUnharmed) {
  const char* calls[] = {"EngNoteOpen",    "EngNoteCopy",    "EngDbOidGenerate", "EngNoteInfoSet",
                         "EngNoteInfoSet", "EngNoteInfoSet", "EngItemDelete",    "EngNoteUpdate"};
  for (const uint32_t destination : {database_, other_}) {
    uint32_t info_set = 0;
    for (const char* call : calls) {
      const uint32_t nth = std::strcmp(call, "EngNoteInfoSet") == 0 ? ++info_set : 1;
      const uint32_t next = NextId(destination) + 1;
      uint32_t copy = kUntouched;
      Spy spy;
      {
        Fault fault = Fault::EngineCall(nth, kEngineFailureWithFlagBits, call);
        EXPECT_EQ(KVDocumentCopy(database_, docid_, destination, &copy), kEngineFailure) << call;
        EXPECT_TRUE(fault.Hit());
      }
      EXPECT_EQ(copy, 0u);
      ExpectError(kEngineFailure);
      EXPECT_EQ(spy.Count("EngNoteDelete"), 0u) << call;
      EXPECT_FALSE(IsStoredIn(destination, next)) << call << " " << nth;
      EXPECT_EQ(ItemsIn(database_, docid_).size(), items_.size() + 1) << call << " " << nth;
    }
  }
}

TEST_F(CopyTest, KVDocumentCopy_UpdateGaveAnIdAndFailed_ThatIdIsDeleted) {
  const uint32_t victim = NextId(other_);
  uint32_t copy = kUntouched;
  Spy spy;
  {
    Answer answer("EngNoteUpdate", [&](const std::vector<uint64_t>& words) -> uint64_t {
      EXPECT_EQ(EngNoteInfoSet(static_cast<EngNote>(words[0]), 1, &victim), 0);
      return kEngineFailure;
    });
    EXPECT_EQ(KVDocumentCopy(database_, docid_, other_, &copy), kEngineFailure);
  }
  EXPECT_EQ(copy, 0u);
  ASSERT_EQ(spy.Count("EngNoteDelete"), 1u);
  EXPECT_EQ(spy.Find("EngNoteDelete")->words[0], copyinfo_.dest_dbhand);
  EXPECT_EQ(spy.Find("EngNoteDelete")->words[1], victim);
  EXPECT_EQ(spy.Find("EngNoteDelete")->words[2], 0u);
  EXPECT_FALSE(IsStoredIn(other_, victim));
  EXPECT_TRUE(IsStored(docid_));
}

TEST_F(CopyTest, CopyDocument_Parent_BecomesTheReference) {
  UNIVERSALNOTEID parent;
  memset(&parent, 'q', sizeof parent);
  UNIVERSALNOTEID unid;
  memset(&unid, 0xff, sizeof unid);
  uint32_t copy = kUntouched;
  ASSERT_EQ(CopyDocument(&copyinfo_, docid_, &copy, &unid, &parent), KVSUCCESS);
  EXPECT_TRUE(unid == UnidIn(other_, copy));
  std::vector<NoteItem> expected = items_;
  expected.push_back({"$REF", 4, 4, std::string("\1\0", 2) + std::string(16, 'q')});
  ExpectItems(ItemsIn(other_, copy), expected);
}

TEST_F(CopyTest, CopyDocument_Failure_OutputsZeroed) {
  UNIVERSALNOTEID unid;
  memset(&unid, 0xff, sizeof unid);
  uint32_t copy = kUntouched;
  EXPECT_EQ(CopyDocument(&copyinfo_, docid_ + 1000, &copy, &unid, nullptr), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(copy, 0u);
  EXPECT_TRUE(unid == UNIVERSALNOTEID{});
  UNIVERSALNOTEID parent{};
  memset(&unid, 0xff, sizeof unid);
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngItemAppend");
  EXPECT_EQ(CopyDocument(&copyinfo_, docid_, &copy, &unid, &parent), kEngineFailure);
  EXPECT_EQ(copy, 0u);
  EXPECT_TRUE(unid == UNIVERSALNOTEID{});
}

TEST_F(CopyTest, KVDocumentCopy_NoMemory_NoCopyAndNothingLost) {
  const kit::MemoryState before = kit::Memory();
  const uint32_t count = kvdoc::AllocationsOf([&] {
    uint32_t copy = kUntouched;
    const uint32_t status = KVDocumentCopy(database_, docid_, other_, &copy);
    EXPECT_EQ(status == KVSUCCESS, copy != 0);
    EXPECT_EQ(kit::Memory().blocks, before.blocks);
    EXPECT_EQ(kit::Memory().heap_blocks, before.heap_blocks);
  });
  EXPECT_GT(count, 0u);
  ExpectItems(ItemsIn(other_, NextId(other_) - 1), items_);
}

TEST_F(CopyTest, KVDocumentCopy_HandlesOfAnotherThread_NoDatabase) {
  kit::InSession([&] {
    uint32_t copy = kUntouched;
    EXPECT_EQ(KVDocumentCopy(database_, docid_, other_, &copy), KVFAIL_NO_DATABASE);
    EXPECT_EQ(copy, 0u);
    const uint32_t own = OpenDatabase(path_);
    EXPECT_EQ(KVDocumentCopy(own, docid_, other_, &copy), KVFAIL_NO_DATABASE);
    EXPECT_EQ(KVDocumentCopy(own, docid_, own, &copy), KVSUCCESS);
  });
}

}  // namespace
