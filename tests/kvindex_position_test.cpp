// Positions of indexes, as numbers and with dots.
#include "kvindex_world.h"

namespace {

using kit::Fault;
using kvindex::IndexTest;
using kvindex::kEngineFailure;

TEST_F(IndexTest, KVIndexSetPosition_List_EachPlace) {
  const std::vector<uint32_t> docids = StoreMany(3);
  EXPECT_EQ(KVIndexSetPosition(77, 0), KVFAIL_BAD_INDEX);
  EXPECT_EQ(KVIndexSetPosition(index_, 0), KVFAIL_DATA_UNAVAILABLE);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  for (uint32_t position = 0; position <= 4; ++position) {
    EXPECT_EQ(KVIndexSetPosition(index_, position), KVSUCCESS);
    EXPECT_EQ(Position(), position);
    if (position >= 1 && position <= 3) {
      EXPECT_EQ(IdAt(KVNAV_CURRENT), docids[position - 1]);
    }
  }
  EXPECT_EQ(KVIndexSetPosition(index_, 5), KVFAIL_END_OF_DATA);
  EXPECT_EQ(KVIndexSetPosition(index_, 0xffffffff), KVFAIL_END_OF_DATA);
  EXPECT_EQ(Position(), 4u);
}

TEST_F(IndexTest, KVIndexSetPosition_View_RowsAtTheTop) {
  OpenCategories();
  EXPECT_EQ(KVIndexSetPosition(index_, 2), KVSUCCESS);
  EXPECT_EQ(IdAt(KVNAV_CURRENT), KVDOCID_CATEGORY);
  EXPECT_EQ(IdAt(KVNAV_NEXT), docids_[2]);
  EXPECT_EQ(KVIndexSetPosition(index_, 0), KVSUCCESS);
  EXPECT_EQ(Go(KVNAV_CURRENT), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(IdAt(KVNAV_NEXT, KVNAVF_NO_CATEGORY), docids_[0]);
  EXPECT_EQ(KVIndexSetPosition(index_, 3), KVSUCCESS);
  EXPECT_EQ(Position(), 3u);
  EXPECT_EQ(IdAt(KVNAV_CURRENT), docids_[2]);
  EXPECT_EQ(KVIndexSetPosition(index_, 4), KVFAIL_END_OF_DATA);
}

TEST_F(IndexTest, KVIndexSetPosition_FlatView_FromEachPlaceToEach) {
  OpenCategories(KVOPENVIEW_FLAT);
  const std::vector<uint32_t> ids = IdsOf(AllOfCategories());
  for (uint32_t from = 0; from <= 5; ++from)
    for (uint32_t to = 0; to <= 5; ++to) {
      ASSERT_EQ(KVIndexSetPosition(index_, from), KVSUCCESS);
      ASSERT_EQ(KVIndexSetPosition(index_, to), KVSUCCESS);
      EXPECT_EQ(Position(), to);
      if (to != 0) {
        EXPECT_EQ(IdAt(KVNAV_CURRENT), ids[to - 1]) << from << " to " << to;
      }
      if (to != 5) {
        EXPECT_EQ(IdAt(KVNAV_NEXT), ids[to]) << from << " to " << to;
      }
    }
  EXPECT_EQ(KVIndexSetPosition(index_, 6), KVSUCCESS);
  EXPECT_EQ(Position(), 6u);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_END_OF_DATA);
}

TEST_F(IndexTest, KVIndexSetPosition_EngineFails_Status) {
  OpenCategories(KVOPENVIEW_FLAT);
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngCollectionRead");
  EXPECT_EQ(KVIndexSetPosition(index_, 3), kEngineFailure);
  EXPECT_EQ(Position(), 0u);
}

TEST_F(IndexTest, KVIndexGetViewPosition_EachKind_TextOrStatus) {
  char position[40] = "unset";
  EXPECT_EQ(KVIndexGetViewPosition(77, 0, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIndexGetViewPosition(77, 0, position), KVFAIL_BAD_INDEX);
  EXPECT_EQ(KVIndexGetViewPosition(index_, 0, position), KVFAIL_DATA_UNAVAILABLE);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  EXPECT_EQ(KVIndexGetViewPosition(index_, 0, position), KVFAIL_NOT_HIERARCHICAL);
  OpenCategories(KVOPENVIEW_FLAT);
  EXPECT_EQ(KVIndexGetViewPosition(index_, 0, position), KVFAIL_NOT_HIERARCHICAL);
  EXPECT_EQ(KVIndexSetViewPosition(index_, "1"), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(IndexTest, KVIndexGetViewPosition_EachLength_WholeOrTooLong) {
  OpenCategories();
  Index()->collpos.Level = 2;
  Index()->collpos.Tumbler[0] = 1;
  Index()->collpos.Tumbler[1] = 4294967295u;
  Index()->collpos.Tumbler[2] = 27;
  EXPECT_EQ(Dotted(), "1.4294967295.27");
  for (uint32_t length = 1; length < 15; ++length) {
    char position[16] = "unset";
    EXPECT_EQ(KVIndexGetViewPosition(index_, length, position), KVFAIL_DATA_TOO_LONG) << length;
    EXPECT_EQ(kit::LastError().status, KVSUCCESS);
    EXPECT_STREQ(position, "");
  }
  EXPECT_EQ(Dotted(15), "1.4294967295.27");
  KVIStandAtStart(&Index()->collpos);
  EXPECT_EQ(Dotted(1), "1");
}

TEST_F(IndexTest, KVIndexSetViewPosition_Rows_StandThere) {
  OpenCategories();
  EXPECT_EQ(KVIndexSetViewPosition(index_, "1.2"), KVSUCCESS);
  EXPECT_EQ(Dotted(), "1.2");
  EXPECT_EQ(Position(), 1u);
  EXPECT_EQ(IdAt(KVNAV_CURRENT), docids_[1]);
  EXPECT_EQ(KVIndexSetViewPosition(index_, "2."), KVSUCCESS);
  EXPECT_EQ(Dotted(), "2");
  EXPECT_EQ(Position(), 2u);
}

TEST_F(IndexTest, KVIndexSetViewPosition_NoSuchRow_StandsWhereItStood) {
  OpenCategories();
  ASSERT_EQ(KVIndexSetViewPosition(index_, "1.2"), KVSUCCESS);
  for (const char* position : {"0", "3", "99999999999999999999", "x", "1.3", "1.0", "1.1.1", "1x", "1..2",
                               "1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1"}) {
    EXPECT_EQ(KVIndexSetViewPosition(index_, position), KVFAIL_END_OF_DATA) << position;
    EXPECT_EQ(kit::LastError().status, KVSUCCESS);
    EXPECT_EQ(Dotted(), "1.2");
  }
  EXPECT_EQ(KVIndexSetViewPosition(77, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIndexSetViewPosition(77, ""), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIndexSetViewPosition(77, "1"), KVFAIL_BAD_INDEX);
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngCollectionRead");
  EXPECT_EQ(KVIndexSetViewPosition(index_, "1.1"), kEngineFailure);
  EXPECT_EQ(Dotted(), "1.2");
}

TEST_F(IndexTest, KVIndexSetViewPosition_OtherKinds_Statuses) {
  EXPECT_EQ(KVIndexSetViewPosition(index_, "1"), KVFAIL_DATA_UNAVAILABLE);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  EXPECT_EQ(KVIndexSetViewPosition(index_, "1"), KVFAIL_NOT_HIERARCHICAL);
}

}  // namespace
