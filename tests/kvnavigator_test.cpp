// Navigators: by name, their copies and deletion.
#include "kvview_world.h"

namespace {

using kit::Answer;
using kvdoc::kEngineFailure;
using kvview::ViewTest;

class NavigatorTest : public ViewTest {
 protected:
  void SetUp() override {
    ViewTest::SetUp();
    view_ = MadeView("Memos");
    navigator_ = StoreView("Main|Navigator", "", "G");
  }
  uint32_t view_ = 0, navigator_ = 0;
};

TEST_F(NavigatorTest, KVNavigatorLocateByName_Names_IdOrNoNavigator) {
  EXPECT_EQ(KVNavigatorLocateByName(database_, "navigator"), navigator_);
  ExpectError(KVSUCCESS);
  for (const char* name : {"Memos", "None", ""}) {
    EXPECT_EQ(KVNavigatorLocateByName(database_, name), 0u) << name;
    ExpectError(KVFAIL_NO_NAVIGATOR);
  }
  EXPECT_EQ(KVNavigatorLocateByName(0, nullptr), 0u);
  ExpectError(KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVNavigatorLocateByName(0, "Navigator"), 0u);
  ExpectError(KVFAIL_NO_DATABASE);
}

TEST_F(NavigatorTest, KVNavigatorLocateByName_NotFoundOrFailing_NoPrivateLookup) {
  const kit::Spy spy;
  EXPECT_EQ(KVNavigatorLocateByName(database_, "None"), 0u);
  EXPECT_EQ(spy.Count("EngDesignFindPrivate"), 0u);
  const Answer answer("EngDesignFind", kEngineFailure);
  EXPECT_EQ(KVNavigatorLocateByName(database_, "Navigator"), 0u);
  ExpectError(kEngineFailure);
}

TEST_F(NavigatorTest, KVNavigatorCopy_OtherAndSameDatabase_WholeRecord) {
  uint32_t copy = 0;
  ASSERT_EQ(KVNavigatorCopy(database_, navigator_, other_, nullptr, &copy), KVSUCCESS);
  EXPECT_EQ(KVNavigatorLocateByName(other_, "Navigator"), copy);
  EXPECT_EQ(KVNavigatorCopy(database_, navigator_, database_, "", &copy), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(copy, 0u);
  ASSERT_EQ(KVNavigatorCopy(database_, navigator_, database_, "A|B", &copy), KVSUCCESS);
  EXPECT_EQ(Bytes(copy, "$TITLE"), "A|B");
}

TEST_F(NavigatorTest, KVNavigatorCopy_WrongArguments_Status) {
  uint32_t copy = 77;
  EXPECT_EQ(KVNavigatorCopy(0, navigator_, other_, nullptr, &copy), KVFAIL_NO_DATABASE);
  EXPECT_EQ(copy, 0u);
  EXPECT_EQ(KVNavigatorCopy(database_, navigator_, 0, nullptr, nullptr), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVNavigatorCopy(database_, view_, other_, nullptr, &copy), KVFAIL_NO_NAVIGATOR);
  EXPECT_EQ(KVNavigatorCopy(database_, navigator_, other_, std::string(130, 'n').c_str(), &copy),
            KVFAIL_NO_NAVIGATOR);
  const Answer answer("EngNoteUpdate", kEngineFailure);
  EXPECT_EQ(KVNavigatorCopy(database_, navigator_, other_, "New", &copy), KVFAIL_NO_NAVIGATOR);
}

TEST_F(NavigatorTest, KVNavigatorDelete_NavigatorsAlone_Gone) {
  EXPECT_EQ(KVNavigatorDelete(0, navigator_), KVFAIL_NO_DATABASE);
  for (const uint32_t id : {0u, view_, StoreDocument()})
    EXPECT_EQ(KVNavigatorDelete(database_, id), KVFAIL_NO_NAVIGATOR);
  EXPECT_TRUE(IsStored(view_));
  {
    const Answer answer("EngNoteDelete", kEngineFailure);
    EXPECT_EQ(KVNavigatorDelete(database_, navigator_), kEngineFailure);
  }
  EXPECT_EQ(KVNavigatorDelete(database_, navigator_), KVSUCCESS);
  EXPECT_FALSE(IsStored(navigator_));
  EXPECT_EQ(KVNavigatorDelete(database_, navigator_), KVFAIL_NO_NAVIGATOR);
}

}  // namespace
