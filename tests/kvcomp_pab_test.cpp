// Numbers of paragraph styles and pairs of hotspot records.
#include "kvcomp_world.h"

namespace {

using kvcomp::PabRef;
using kvcomp::Paragraph;
using kvcomp::ShortRecord;
using kvcomp::TextRecord;
using kvcomp::Word;
using kvcomp::WordRecord;

using Strings = std::vector<std::string>;

std::string PabDef(uint32_t pabid) {
  return WordRecord(kCdPabDefinition, Word(pabid) + std::string(64, '\0'));
}
std::string StyleName(uint32_t pabid) {
  return ShortRecord(kCdStyleName, std::string(4, '\0') + Word(pabid) + std::string(36, 'n'));
}

class PabTest : public kvcomp::CompositeTest {
 protected:
  _COMPOSITE* Make(const Strings& records) {
    composite_ = Create();
    for (const std::string& record : records) EXPECT_EQ(InsertRaw(composite_, record), KVSUCCESS);
    return CompOf(composite_);
  }
  uint32_t composite_ = 0;
};

TEST_F(PabTest, KVICompGetMaxPABID_EachKind_HighestBehindTheIndex) {
  uint32_t highest = 9;
  EXPECT_EQ(KVICompGetMaxPABID(Make({PabDef(50), TextRecord("t"), PabRef(3), StyleName(12), PabDef(7)}), 1,
                               &highest),
            KVSUCCESS);
  EXPECT_EQ(highest, 12u);
  _COMPOSITE* comp = CompOf(composite_);
  EXPECT_EQ(KVICompGetMaxPABID(comp, 4, &highest), KVSUCCESS);
  EXPECT_EQ(highest, 7u);
  EXPECT_EQ(KVICompGetMaxPABID(comp, 5, &highest), KVSUCCESS);
  EXPECT_EQ(highest, 0u);
  EXPECT_EQ(KVICompGetMaxPABID(comp, 6, &highest), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVICompGetMaxPABID(nullptr, 1, &highest), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVICompGetMaxPABID(comp, 0, &highest), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVICompGetMaxPABID(comp, 1, nullptr), KVFAIL_NULL_PARAM);
}

TEST_F(PabTest, KVICompGetMaxPABID_ShortRecord_NotRead) {
  uint32_t highest = 9;
  EXPECT_EQ(
      KVICompGetMaxPABID(
          Make({Paragraph(), ShortRecord(kCdPabReference, "x"), ShortRecord(kCdStyleName, "")}), 1, &highest),
      KVSUCCESS);
  EXPECT_EQ(highest, 0u);
}

TEST_F(PabTest, KVICompMovePABIDs_Range_NumbersMovedInPlace) {
  _COMPOSITE* comp = Make({PabRef(1), PabRef(2), TextRecord("t"), StyleName(5), PabDef(0xfffe), PabRef(1)});
  ASSERT_EQ(CompGetRecord(comp, 3, 0), KVSUCCESS);
  const COMPRECORD before = comp->comprec;
  uint32_t highest = 9;
  EXPECT_EQ(KVICompMovePABIDs(comp, 2, 4, 10, &highest), KVSUCCESS);
  EXPECT_EQ(highest, 0xfffeu);
  EXPECT_EQ(memcmp(&before, &comp->comprec, sizeof before), 0);
  EXPECT_EQ(Records(composite_),
            (Strings{PabRef(1), PabRef(12), TextRecord("t"), StyleName(15), PabDef(8), PabRef(1)}));
  EXPECT_EQ(KVICompMovePABIDs(comp, 6, 100, 1, nullptr), KVSUCCESS);  // to the end
  EXPECT_EQ(RecordAt(composite_, 6), PabRef(2));
  EXPECT_EQ(KVICompMovePABIDs(comp, 1, 0, 1, nullptr), KVSUCCESS);
  EXPECT_EQ(RecordAt(composite_, 1), PabRef(1));
  EXPECT_EQ(KVICompMovePABIDs(comp, 7, 1, 1, nullptr), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVICompMovePABIDs(nullptr, 1, 1, 1, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVICompMovePABIDs(comp, 0, 1, 1, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVICompMovePABIDs(comp, 1, 1, 0, nullptr), KVFAIL_NO_ACTION);
}

TEST_F(PabTest, KVICompSynchHotspots_LaterBegin_EndBecomesTheLaterOne) {
  const std::string later = WordRecord(kCdHotspotBeginLater, std::string(8, '\0'));
  const std::string earlier = WordRecord(kCdHotspotBegin, std::string(8, '\0'));
  const std::string old_end = ShortRecord(kCdHotspotEnd, ""), new_end = ShortRecord(kCdHotspotEndLater, "");
  _COMPOSITE* comp =
      Make({earlier, old_end, later, TextRecord("t"), old_end, old_end, later, new_end, old_end});
  EXPECT_EQ(KVICompSynchHotspots(comp), KVSUCCESS);
  EXPECT_EQ(Records(composite_),
            (Strings{earlier, old_end, later, TextRecord("t"), new_end, old_end, later, new_end, new_end}));
  EXPECT_EQ(KVICompSynchHotspots(CompOf(Create())), KVSUCCESS);
}

TEST_F(PabTest, KVIPABTranlateList_BothWays_AsTold) {
  for (const auto& [flags, expected] : {std::pair{0, 0}, {0x400, 1}, {0x1000, 2}, {0x1400, 1}, {0xebff, 0}}) {
    int32_t list = 9;
    auto words = static_cast<uint16_t>(flags);
    EXPECT_EQ(KVIPABTranlateList(1, &list, &words), KVSUCCESS);
    EXPECT_EQ(list, expected);
  }
  for (const auto& [list, expected] : {std::pair{0, 1}, {1, 0x401}, {2, 0x1001}}) {
    int32_t value = list;
    uint16_t words = 1;
    EXPECT_EQ(KVIPABTranlateList(2, &value, &words), KVSUCCESS);
    EXPECT_EQ(words, expected);
  }
  for (int32_t list : {3, -1}) {
    uint16_t words = 1;
    EXPECT_EQ(KVIPABTranlateList(2, &list, &words), KVFAIL_BAD_ENUM);
    EXPECT_EQ(words, 1);
  }
  int32_t list = 1;
  uint16_t words = 1;
  EXPECT_EQ(KVIPABTranlateList(0, &list, &words), KVFAIL_NO_ACTION);
  EXPECT_EQ(KVIPABTranlateList(3, &list, &words), KVFAIL_NO_ACTION);
}

}  // namespace
