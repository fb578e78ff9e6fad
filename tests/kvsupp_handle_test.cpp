#include <memory>

#include "kit/kit.h"
#include "kvint_composite.h"
#include "kvint_index.h"

namespace {

// Records of the test itself stand in for real ones; they are taken out of the tables before the session
// ends.
class HandleTest : public kit::KavrinTest {
 protected:
  _api_session* Session() { return KVICurrentSession(); }

  _DOCUMENT* LinkDocument(uint32_t handle) {
    documents_.push_back(std::make_unique<_DOCUMENT>());
    documents_.back()->document = handle;
    _KVILinkDocument(Session(), documents_.back().get());
    return documents_.back().get();
  }
  void TearDown() override {
    for (auto& document : documents_) _KVIUnlinkDocument(Session(), document.get());
    KavrinTest::TearDown();
  }

 private:
  std::vector<std::unique_ptr<_DOCUMENT>> documents_;
};

}  // namespace

TEST_F(HandleTest, KVINewHandle_MainSession_ConsecutiveNumbersFromOne) {
  uint32_t handle = 0;
  for (uint32_t expected = 1; expected < 4; ++expected) {
    EXPECT_EQ(_KVINewHandle(Session(), &handle), KVSUCCESS);
    EXPECT_EQ(handle, expected);
  }
}

TEST_F(HandleTest, KVINewHandle_ThreadSession_SessionBitsAboveTheNumber) {
  kit::InSession([] {
    uint32_t handle = 0;
    EXPECT_EQ(_KVINewHandle(KVICurrentSession(), &handle), KVSUCCESS);
    EXPECT_EQ(handle, 1u << 22 | 1u);
  });
}

TEST_F(HandleTest, KVINewHandle_AtTheLimit_NoMemoryAndNothingChanged) {
  Session()->next_handle = kHandleNumberMax;
  uint32_t handle = 0;
  EXPECT_EQ(_KVINewHandle(Session(), &handle), KVSUCCESS);
  EXPECT_EQ(handle, 0x3fffffu);
  EXPECT_EQ(_KVINewHandle(Session(), &handle), KVFAIL_NO_MEMORY);
  EXPECT_EQ(handle, 0x3fffffu);
  EXPECT_EQ(_KVINewHandle(Session(), &handle), KVFAIL_NO_MEMORY);
}

TEST_F(HandleTest, KVIBucket_MaskKeepsBit31DropsSessionBitsAndBit21) {
  EXPECT_EQ(KVIBucket(0x00600007u, 10), 7u);
  EXPECT_EQ(KVIBucket(0x7fe00013u, 20), 0x13u % 20);
  EXPECT_EQ(KVIBucket(0x80000001u, 10), 0x80000001u % 10);
}

TEST_F(HandleTest, Documents_ManyInOneBucket_EachFoundAndUnlinkedAnywhere) {
  _DOCUMENT* first = LinkDocument(3);
  _DOCUMENT* middle = LinkDocument(23);
  _DOCUMENT* last = LinkDocument(43);
  EXPECT_EQ(Session()->doctab[3], last);  // new records first
  EXPECT_EQ(Session()->pmruDOC, last);
  for (_DOCUMENT* document : {first, middle, last}) {
    EXPECT_EQ(_GetDocument(Session(), document->document), document);
    EXPECT_EQ(Session()->hmruDOC, document->document);
    EXPECT_EQ(_KVIFindDocument(Session(), document->document), document);
  }
  EXPECT_EQ(_GetDocument(Session(), 63), nullptr);
  EXPECT_EQ(Session()->pmruDOC, last);  // a failed lookup changes nothing
  _KVIUnlinkDocument(Session(), middle);
  EXPECT_EQ(_GetDocument(Session(), 23), nullptr);
  EXPECT_EQ(_GetDocument(Session(), 3), first);
  EXPECT_EQ(_GetDocument(Session(), 43), last);
  _KVIUnlinkDocument(Session(), last);
  EXPECT_EQ(Session()->doctab[3], first);
  EXPECT_EQ(Session()->pmruDOC, nullptr);
  EXPECT_EQ(_KVIFindDocument(Session(), 43), nullptr);
  _KVIUnlinkDocument(Session(), last);  // once more is harmless
  EXPECT_EQ(Session()->doctab[3], first);
}

TEST_F(HandleTest, FindDocument_HandleZero_NothingEvenWithAnEmptyCache) {
  Session()->hmruDOC = 0;
  Session()->pmruDOC = nullptr;
  EXPECT_EQ(_KVIFindDocument(Session(), 0), nullptr);
  EXPECT_EQ(_KVIFindDatabase(Session(), 0), nullptr);
  EXPECT_EQ(_KVIFindIndex(Session(), 0), nullptr);
  EXPECT_EQ(_KVIFindComposite(Session(), 0), nullptr);
}

TEST_F(HandleTest, IndexDocument_LoadedOrNot_FoundByBit31) {
  _INDEX index{};
  index.index = 12;
  _KVILinkIndex(Session(), &index);
  const uint32_t handle = 12 | kIndexDocumentBit;
  EXPECT_EQ(_GetDocument(Session(), handle), nullptr);
  index.last_load.notehand = 5;
  index.last_load.document = handle;
  EXPECT_EQ(_GetDocument(Session(), handle), &index.last_load);
  EXPECT_EQ(Session()->hmruDOC, handle);
  EXPECT_EQ(_GetDocument(Session(), 13 | kIndexDocumentBit), nullptr);
  index.last_load.notehand = 0;
  _KVIForgetDocument(Session(), &index.last_load);
  EXPECT_EQ(_KVIFindDocument(Session(), handle), nullptr);
  index.last_load.notehand = 5;
  EXPECT_EQ(_KVIFindDocument(Session(), handle), &index.last_load);
  _KVIUnlinkIndex(Session(), &index);
  EXPECT_EQ(_KVIFindDocument(Session(), handle), nullptr);  // the document goes with its index
  EXPECT_EQ(_KVIFindIndex(Session(), 12), nullptr);
}

TEST_F(HandleTest, DatabasesAndIndexes_LinkFindUnlink) {
  _DATABASE database{};
  _INDEX index{};
  database.database = 11;
  index.index = 21;
  _KVILinkDatabase(Session(), &database);
  _KVILinkIndex(Session(), &index);
  EXPECT_EQ(_KVIFindDatabase(Session(), 11), &database);
  EXPECT_EQ(_GetDatabase(Session(), 11), &database);
  EXPECT_EQ(_GetDatabase(Session(), 21), nullptr);  // a handle of another kind
  EXPECT_EQ(_GetIndex(Session(), 21), &index);
  _KVIUnlinkDatabase(Session(), &database);
  _KVIUnlinkIndex(Session(), &index);
  EXPECT_EQ(_KVIFindDatabase(Session(), 11), nullptr);
  EXPECT_EQ(_KVIFindIndex(Session(), 21), nullptr);
}

TEST_F(HandleTest, AddComposite_ThreadSession_BareNumberOnly) {
  kit::InSession([] {
    _api_session* session = KVICurrentSession();
    _DOCUMENT document{};
    _COMPOSITE first{}, second{};
    first.doc = second.doc = &document;
    uint32_t number = 0;
    ASSERT_EQ(_AddComposite(session, &first, &number), KVSUCCESS);
    EXPECT_EQ(number, 1u);
    EXPECT_EQ(first.composite, 1u);
    ASSERT_EQ(_AddComposite(session, &second, &number), KVSUCCESS);
    EXPECT_EQ(document.complist, &second);
    EXPECT_EQ(second.docnext, &first);
    EXPECT_EQ(session->pmruCOMP, &second);
    EXPECT_EQ(_GetComposite(session, 1), &first);
    EXPECT_EQ(_GetComposite(session, 1u << 22 | 1), nullptr);
    _KVIUnlinkComposite(session, &first);
    _KVIUnlinkComposite(session, &second);
    EXPECT_EQ(_KVIFindComposite(session, 1), nullptr);
    session->next_handle = kHandleNumberMax + 1;
    EXPECT_EQ(_AddComposite(session, &first, &number), KVFAIL_NO_MEMORY);
    EXPECT_EQ(document.complist, &second);
  });
}
