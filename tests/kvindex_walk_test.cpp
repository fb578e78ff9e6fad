// Moving an index on a view, with levels and flat.
#include "kvindex_world.h"

namespace {

using kit::Answer;
using kit::Fault;
using kvindex::IndexTest;
using kvindex::kEngineFailure;
using kvindex::Row;

constexpr uint32_t kBack = KVNAVF_BACKWARD;

TEST_F(IndexTest, KVIndexNavigate_ViewForthAndBack_AllRows) {
  OpenCategories();
  const std::vector<Row> all = Rows();
  EXPECT_EQ(IdsOf(all), IdsOf(AllOfCategories()));
  std::vector<uint32_t> back = IdsOf(Rows(KVNAV_NEXT, kBack));
  EXPECT_EQ(back, (std::vector<uint32_t>{KVDOCID_CATEGORY, docids_[1], docids_[0], KVDOCID_CATEGORY}));
  EXPECT_EQ(Dotted(), "1");
}

TEST_F(IndexTest, KVIndexNavigate_ViewNoCategories_DocumentsAlone) {
  OpenCategories();
  EXPECT_EQ(IdsOf(Rows(KVNAV_NEXT, KVNAVF_NO_CATEGORY)), docids_);
  ASSERT_EQ(KVIndexSetPosition(index_, 0), KVSUCCESS);
  EXPECT_EQ(IdsOf(Rows(KVNAV_MAIN)), docids_);
}

TEST_F(IndexTest, KVIndexNavigate_ViewEnd_LastAndFirstRow) {
  OpenCategories();
  EXPECT_EQ(IdAt(KVNAV_END), docids_[2]);
  EXPECT_EQ(Position(), 2u);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_END_OF_DATA);
  EXPECT_EQ(IdAt(KVNAV_END), docids_[2]);
  EXPECT_EQ(IdAt(KVNAV_NEXT, kBack), KVDOCID_CATEGORY);
  EXPECT_EQ(IdAt(KVNAV_END, kBack), KVDOCID_CATEGORY);
  EXPECT_EQ(Position(), 1u);
  EXPECT_EQ(IdAt(KVNAV_NEXT), docids_[0]);
}

TEST_F(IndexTest, KVIndexNavigate_ViewEndWithTotal_PassedOverWhenAsked) {
  OpenCategories(0, 1);
  EXPECT_EQ(IdAt(KVNAV_END), KVDOCID_TOTAL);
  EXPECT_EQ(IdAt(KVNAV_END, KVNAVF_NO_TOTAL), docids_[2]);
  EXPECT_EQ(Go(KVNAV_NEXT, KVNAVF_NO_TOTAL), KVFAIL_END_OF_DATA);
}

TEST_F(IndexTest, KVIndexNavigate_ViewPeersChildrenParents_AsTheLevelsStand) {
  OpenCategories();
  EXPECT_EQ(IdAt(KVNAV_NEXT), KVDOCID_CATEGORY);
  EXPECT_EQ(Go(KVNAV_PARENT, kBack), KVFAIL_END_OF_DATA);
  EXPECT_EQ(Go(KVNAV_CHILD, kBack), KVFAIL_NO_ACTION);
  EXPECT_EQ(IdAt(KVNAV_CHILD), docids_[0]);
  EXPECT_EQ(Dotted(), "1.1");
  EXPECT_EQ(Go(KVNAV_CHILD), KVFAIL_END_OF_DATA);
  EXPECT_EQ(IdAt(KVNAV_PEER), docids_[1]);
  EXPECT_EQ(IdAt(KVNAV_PEER, kBack), docids_[0]);
  EXPECT_EQ(IdAt(KVNAV_PARENT, kBack), KVDOCID_CATEGORY);
  EXPECT_EQ(Dotted(), "1");
  EXPECT_EQ(IdAt(KVNAV_PEER), KVDOCID_CATEGORY);
  EXPECT_EQ(Position(), 2u);
  EXPECT_EQ(Go(KVNAV_PEER), KVFAIL_END_OF_DATA);
  EXPECT_EQ(IdAt(KVNAV_PEER, kBack), KVDOCID_CATEGORY);
  EXPECT_EQ(IdAt(KVNAV_CHILD), docids_[0]);
  EXPECT_EQ(IdAt(KVNAV_PARENT), KVDOCID_CATEGORY);
  EXPECT_EQ(Position(), 2u);
  EXPECT_EQ(Go(7), KVFAIL_BAD_ENUM);
  EXPECT_EQ(Go(-1), KVFAIL_BAD_ENUM);
}

TEST_F(IndexTest, KVIndexNavigate_ViewCurrentFilteredOut_DataUnavailable) {
  OpenCategories();
  ASSERT_EQ(IdAt(KVNAV_NEXT), KVDOCID_CATEGORY);
  EXPECT_EQ(IdAt(KVNAV_CURRENT), KVDOCID_CATEGORY);
  EXPECT_EQ(Go(KVNAV_CURRENT, KVNAVF_NO_CATEGORY), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(IndexTest, KVIndexNavigate_ViewPeek_PositionAsItWas) {
  OpenCategories();
  EXPECT_EQ(IdAt(KVNAV_NEXT, KVNAVF_PEEK | KVNAVF_NO_CATEGORY), docids_[0]);
  EXPECT_EQ(Index()->coll_first, 1);
  EXPECT_EQ(IdAt(KVNAV_NEXT), KVDOCID_CATEGORY);
  for (const int32_t direction :
       {KVNAV_NEXT, KVNAV_END, KVNAV_PEER, KVNAV_CHILD, KVNAV_MAIN, KVNAV_CURRENT}) {
    EXPECT_EQ(Go(direction, KVNAVF_PEEK), KVSUCCESS) << direction;
    EXPECT_EQ(Dotted(), "1");
    EXPECT_EQ(Position(), 1u);
  }
  EXPECT_EQ(Go(KVNAV_NEXT, KVNAVF_PEEK | kBack), KVFAIL_END_OF_DATA);
  EXPECT_EQ(Go(KVNAV_PARENT, KVNAVF_PEEK), KVFAIL_END_OF_DATA);
  EXPECT_EQ(Dotted(), "1");
  EXPECT_EQ(IdAt(KVNAV_NEXT), docids_[0]);
}

TEST_F(IndexTest, KVIndexNavigate_EmptyView_EndOfDataEverywhere) {
  view_ = MakeView(CategoryAndKey());
  for (const uint32_t flags : {0u, uint32_t{KVOPENVIEW_FLAT}}) {
    ASSERT_EQ(KVIndexOpenView(index_, 0, view_, flags), KVSUCCESS);
    EXPECT_EQ(KVIndexGetCount(index_), 0u);
    for (const uint32_t nav_flags : {0u, kBack}) {
      EXPECT_EQ(Go(KVNAV_NEXT, nav_flags), KVFAIL_END_OF_DATA);
      EXPECT_EQ(Go(KVNAV_END, nav_flags), KVFAIL_END_OF_DATA);
    }
  }
}

TEST_F(IndexTest, KVIndexNavigate_FlatView_PositionCountsRows) {
  OpenCategories(KVOPENVIEW_FLAT);
  const std::vector<uint32_t> ids = IdsOf(AllOfCategories());
  for (uint32_t i = 0; i < ids.size(); ++i) {
    EXPECT_EQ(IdAt(KVNAV_NEXT), ids[i]);
    EXPECT_EQ(Position(), i + 1);
  }
  EXPECT_EQ(IdAt(KVNAV_NEXT, kBack), ids[3]);
  EXPECT_EQ(Position(), 4u);
  EXPECT_EQ(IdAt(KVNAV_END), ids[4]);
  EXPECT_EQ(Position(), 5u);
  EXPECT_EQ(IdAt(KVNAV_PARENT, kBack), ids[3]);
  EXPECT_EQ(Position(), 4u);
  EXPECT_EQ(IdAt(KVNAV_END, kBack), ids[0]);
  EXPECT_EQ(Position(), 1u);
  EXPECT_EQ(IdAt(KVNAV_PEER), ids[3]);
  EXPECT_EQ(Position(), 4u);
  EXPECT_EQ(IdAt(KVNAV_CURRENT), ids[3]);
  EXPECT_EQ(Position(), 4u);
  EXPECT_EQ(IdAt(KVNAV_NEXT, KVNAVF_PEEK), ids[4]);
  EXPECT_EQ(Position(), 4u);
}

TEST_F(IndexTest, KVIndexNavigate_FlatViewMainFromTheStart_PassedRowsCount) {
  OpenCategories(KVOPENVIEW_FLAT);
  EXPECT_EQ(IdAt(KVNAV_NEXT, KVNAVF_NO_CATEGORY), docids_[0]);
  EXPECT_EQ(Position(), 2u);
}

TEST_F(IndexTest, KVIndexNavigate_FlatViewBackFromBeforeTheFirst_FirstRowAtOne) {
  OpenCategories(KVOPENVIEW_FLAT);
  EXPECT_EQ(IdAt(KVNAV_NEXT, kBack), KVDOCID_CATEGORY);
  EXPECT_EQ(Position(), 1u);
}

TEST_F(IndexTest, KVIndexNavigate_EngineFails_Status) {
  OpenCategories();
  for (const int32_t direction : {KVNAV_NEXT, KVNAV_END}) {
    Fault fault = Fault::EngineCall(1, kEngineFailure, "EngCollectionRead");
    EXPECT_EQ(Go(direction), kEngineFailure);
    EXPECT_TRUE(fault.Hit());
  }
  ASSERT_EQ(KVIndexOpenView(index_, 0, view_, KVOPENVIEW_FLAT), KVSUCCESS);
  Fault fault = Fault::EngineCall(2, kEngineFailure, "EngCollectionRead");
  EXPECT_EQ(Go(KVNAV_NEXT), kEngineFailure);
}

// A row of the test's own making instead of the engine's.
class RowBytesTest : public IndexTest {
 protected:
  uint32_t GoTo(const std::string& bytes, uint32_t nav_flags = 0) {
    const Answer answer("EngCollectionRead", [&](const std::vector<uint64_t>& words) -> uint64_t {
      EngMem page = 0;
      EngMemAlloc(0, 64, &page);
      KVICopyBytes(EngMemLock(page), bytes.data(), bytes.size());
      EngMemUnlock(page);
      KVIStore<EngMem>(reinterpret_cast<void*>(words[7]), page);
      KVIStoreIf<uint16_t>(reinterpret_cast<uint16_t*>(words[8]), static_cast<uint16_t>(bytes.size()));
      KVIStoreIf<uint32_t>(reinterpret_cast<uint32_t*>(words[10]), 1);
      return 0;
    });
    return Go(KVNAV_NEXT, nav_flags | KVNAVF_PEEK);
  }
  static std::string Entry(uint32_t id, uint16_t note_class, const std::string& table) {
    std::string bytes(reinterpret_cast<const char*>(&id), sizeof id);
    PutWord(&bytes, note_class);
    PutWord(&bytes, 0);
    return bytes + table;
  }
  static std::string Table(uint16_t length, uint16_t items, const std::string& rest = "") {
    std::string bytes;
    PutWord(&bytes, length);
    PutWord(&bytes, items);
    return bytes + rest;
  }
};

TEST_F(RowBytesTest, KVIndexNavigate_DamagedRow_Internal) {
  OpenCategories();
  EXPECT_EQ(GoTo(Entry(0x8f6, 1, Table(4, 0))), KVSUCCESS);
  EXPECT_EQ(GoTo(Entry(0x8f6, 1, Table(8, 1, std::string("\x02\0\0\5", 4)))), KVSUCCESS);
  const std::string damaged[] = {std::string(7, 1),
                                 Entry(0x8f6, 1, ""),
                                 Entry(0x8f6, 1, Table(5, 0)),
                                 Entry(0x8f6, 1, Table(4, 1)),
                                 Entry(0x8f6, 1, Table(8, 1, std::string("\x03\0\0\5", 4))),
                                 Entry(0x8f6, 1, Table(4, 0xffff))};
  for (const std::string& bytes : damaged) EXPECT_EQ(GoTo(bytes), KVFAIL_INTERNAL) << bytes.size();
}

}  // namespace
