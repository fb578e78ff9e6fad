// Listings of design records, of all families.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kvmeta_world.h"

namespace {

using kit::Fault;
using kit::Spy;
using kvdoc::kEngineFailure;
using kvdoc::kUntouched;
using kvdoc::TextList;
using kvmeta::Flags;
using kvmeta::kOwnName;
using kvmeta::Owner;
using kvmeta::Title;
using kvmeta::TitleList;

// A summary record as bytes, and its members by their places. A member at 0 is none.
struct Shape {
  size_t bytes, hidden, personal, name, menu, cascade, name_bytes, piece_bytes;
};
constexpr Shape kFormShape{268, 4, 0, 8, 138, 203, 130, 65};
constexpr Shape kOldFormShape{140, 4, 0, 8, 74, 107, 66, 33};
constexpr Shape kPlainShape{199, 0, 0, 4, 134, 0, 130, 65};
constexpr Shape kViewShape{272, 4, 8, 12, 142, 207, 130, 65};

struct Entry {
  uint32_t status = 0;
  uint32_t id = 0;
  std::string name, menu, cascade;
  int32_t hidden = 0, personal = 0;
};

class ListTest : public kvmeta::DesignTest {
 protected:
  Entry List(DesignFamily family, int32_t list, const Shape& shape) const {
    constexpr size_t kGuard = 8;
    std::vector<char> summ(shape.bytes + kGuard, 'x');
    Entry entry;
    session_->errcode = 0;
    entry.status = _KVIDesignList(session_, family, database_, list, summ.data());
    EXPECT_EQ(std::string(summ.end() - kGuard, summ.end()), std::string(kGuard, 'x'));
    entry.id = KVILoad<uint32_t>(summ.data());
    if (shape.hidden != 0) entry.hidden = KVILoad<int32_t>(summ.data() + shape.hidden);
    if (shape.personal != 0) entry.personal = KVILoad<int32_t>(summ.data() + shape.personal);
    const auto text = [&](size_t member, size_t member_bytes) {
      EXPECT_EQ(summ[member + member_bytes - 1], 0);
      return std::string(summ.data() + member);
    };
    entry.name = text(shape.name, shape.name_bytes);
    entry.menu = text(shape.menu, shape.piece_bytes);
    if (shape.cascade != 0) entry.cascade = text(shape.cascade, shape.piece_bytes);
    if (entry.status != KVSUCCESS) {
      EXPECT_EQ(std::string(summ.begin(), summ.end() - kGuard), std::string(shape.bytes, '\0'));
    }
    return entry;
  }
  std::vector<uint32_t> Ids(DesignFamily family, const Shape& shape) const {
    std::vector<uint32_t> ids;
    Entry entry = List(family, KVLIST_REFRESH, shape);
    for (; entry.status == KVSUCCESS; entry = List(family, KVLIST_NEXT, shape)) ids.push_back(entry.id);
    EXPECT_EQ(entry.status, KVFAIL_END_OF_DATA);
    return ids;
  }
};

struct Family {
  DesignFamily family;
  const Shape* shape;
  uint16_t class_mask;
  KVDESIGNLIST _DATABASE::*list;
};
constexpr Family kFamilies[] = {{DesignFamily::kForm, &kFormShape, 0x0004, &_DATABASE::formlist},
                                {DesignFamily::kSubform, &kPlainShape, 0x0004, &_DATABASE::subformlist},
                                {DesignFamily::kView, &kViewShape, 0x1008, &_DATABASE::viewlist},
                                {DesignFamily::kFolder, &kViewShape, 0x1008, &_DATABASE::folderlist},
                                {DesignFamily::kNavigator, &kPlainShape, 0x1008, &_DATABASE::navlist},
                                {DesignFamily::kAgent, &kViewShape, 0x1200, &_DATABASE::agentlist}};

TEST_F(ListTest, KVIDesignList_OneOfEachKind_EachFamilyListsItsOwn) {
  const std::vector<uint32_t> ids = {StoreNote(4, {Title("Form")}),
                                     StoreNote(4, {Title("Subform"), Flags("CU3")}),
                                     StoreNote(8, {Title("View")}),
                                     StoreNote(8, {Title("Folder"), Flags("F")}),
                                     StoreNote(8, {Title("Navi"), Flags("G")}),
                                     StoreNote(0x200, {Title("Agent")})};
  StoreNote(1, {Title("Document")});
  StoreNote(0x400, {Title("Field")});
  StoreNote(0x8020, {Title("Collection")});
  for (size_t i = 0; i < std::size(kFamilies); ++i) {
    const Family& row = kFamilies[i];
    Spy spy;
    EXPECT_EQ(Ids(row.family, *row.shape), std::vector<uint32_t>{ids[i]}) << i;
    const kit::EngineCall* search = spy.Find("EngDbSearch");
    ASSERT_NE(search, nullptr);
    EXPECT_EQ(search->words[1], 0u);
    EXPECT_EQ(search->words[2], 0u);
    EXPECT_EQ(search->words[3], 2u);
    EXPECT_EQ(search->words[4], row.class_mask);
    EXPECT_EQ(search->words[5], 0u);
    EXPECT_EQ(search->words[7], reinterpret_cast<uintptr_t>(&(Base()->*row.list)));
    EXPECT_EQ(spy.Count("EngDbSearch"), 1u);
    EXPECT_EQ((Base()->*row.list).pdbase, Base());
    EXPECT_NE((Base()->*row.list).list.buffer, nullptr);
    EXPECT_EQ((Base()->*row.list).list.listhand, 0u);
  }
}

TEST_F(ListTest, KVIDesignList_Names_InTheirMembers) {
  const uint32_t first = StoreNote(8, {Title("Main\\Sub|Alias")});
  const uint32_t second = StoreNote(0x1008, {TitleList({"(Other)", "Second"}), Owner(kOwnName)});
  Entry entry = List(DesignFamily::kView, KVLIST_FIRST, kViewShape);
  EXPECT_EQ(entry.status, KVSUCCESS);
  EXPECT_EQ(entry.id, first);
  EXPECT_EQ(entry.name, "Alias");
  EXPECT_EQ(entry.menu, "Main");
  EXPECT_EQ(entry.cascade, "Sub");
  EXPECT_EQ(entry.hidden, 0);
  EXPECT_EQ(entry.personal, 0);
  entry = List(DesignFamily::kView, KVLIST_NEXT, kViewShape);
  EXPECT_EQ(entry.id, second);
  EXPECT_EQ(entry.name, "Second");
  EXPECT_EQ(entry.menu, "Other");
  EXPECT_EQ(entry.cascade, "");
  EXPECT_EQ(entry.hidden, 1);
  EXPECT_EQ(entry.personal, 1);
}

TEST_F(ListTest, KVIDesignList_Directions_WalkTheRecords) {
  std::vector<uint32_t> ids;
  for (const char* name : {"One", "Two", "Three"}) ids.push_back(StoreNote(8, {Title(name)}));
  const struct {
    int32_t list;
    uint32_t status;
    size_t record;
  } steps[] = {
      {KVLIST_CURRENT, KVFAIL_DATA_UNAVAILABLE, 0},
      {KVLIST_FIRST, 0, 1},
      {KVLIST_CURRENT, 0, 1},
      {KVLIST_PREVIOUS, KVFAIL_END_OF_DATA, 0},
      {KVLIST_NEXT, 0, 2},
      {KVLIST_PREVIOUS, 0, 1},
      {KVLIST_LAST, 0, 3},
      {KVLIST_CURRENT, 0, 3},
      {KVLIST_NEXT, KVFAIL_END_OF_DATA, 0},
      {KVLIST_PREVIOUS, 0, 2},
      {0, KVFAIL_BAD_ENUM, 0},
      {7, KVFAIL_BAD_ENUM, 0},
      {KVLIST_CURRENT, 0, 2},
      {KVLIST_REFRESH, 0, 1},
  };
  for (const auto& step : steps) {
    const Entry entry = List(DesignFamily::kView, step.list, kViewShape);
    EXPECT_EQ(entry.status, step.status) << &step - steps;
    EXPECT_EQ(entry.id, step.record == 0 ? 0 : ids[step.record - 1]) << &step - steps;
    if (step.status != KVSUCCESS) ExpectError(step.status);
  }
}

TEST_F(ListTest, KVIDesignList_NextBeforeAnyListing_BuildsAndGivesTheFirst) {
  const uint32_t id = StoreNote(8, {Title("One")});
  EXPECT_EQ(List(DesignFamily::kView, KVLIST_NEXT, kViewShape).id, id);
}

TEST_F(ListTest, KVIDesignList_BuiltOnce_RefreshSeesChanges) {
  const uint32_t first = StoreNote(8, {Title("One")});
  EXPECT_EQ(Ids(DesignFamily::kView, kViewShape), std::vector<uint32_t>{first});
  const uint32_t second = StoreNote(8, {Title("Two")});
  Spy spy;
  EXPECT_EQ(List(DesignFamily::kView, KVLIST_LAST, kViewShape).id, first);
  EXPECT_EQ(List(DesignFamily::kView, KVLIST_FIRST, kViewShape).id, first);
  EXPECT_TRUE(spy.calls().empty());
  EXPECT_EQ(Ids(DesignFamily::kView, kViewShape), (std::vector<uint32_t>{first, second}));
  EXPECT_EQ(EngNoteDelete(EngineDatabase(), first, 0), 0);
  EXPECT_EQ(Ids(DesignFamily::kView, kViewShape), std::vector<uint32_t>{second});
}

TEST_F(ListTest, KVIDesignList_Empty_EndOfDataWithoutAnotherSearch) {
  EXPECT_EQ(List(DesignFamily::kFolder, KVLIST_FIRST, kViewShape).status, KVFAIL_END_OF_DATA);
  Spy spy;
  EXPECT_EQ(List(DesignFamily::kFolder, KVLIST_NEXT, kViewShape).status, KVFAIL_END_OF_DATA);
  EXPECT_EQ(spy.Count("EngDbSearch"), 0u);
}

TEST_F(ListTest, KVIDesignList_FamiliesAndHandles_HaveTheirOwnPlace) {
  const uint32_t one = StoreNote(8, {Title("One")}), two = StoreNote(8, {Title("Two")});
  const uint32_t agent = StoreNote(0x200, {Title("Agent")});
  EXPECT_EQ(List(DesignFamily::kView, KVLIST_FIRST, kViewShape).id, one);
  EXPECT_EQ(List(DesignFamily::kAgent, KVLIST_FIRST, kViewShape).id, agent);
  const uint32_t again = OpenDatabase(path_);
  std::swap(database_, const_cast<uint32_t&>(again));
  EXPECT_EQ(List(DesignFamily::kView, KVLIST_CURRENT, kViewShape).status, KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(List(DesignFamily::kView, KVLIST_FIRST, kViewShape).id, one);
  std::swap(database_, const_cast<uint32_t&>(again));
  EXPECT_EQ(List(DesignFamily::kView, KVLIST_NEXT, kViewShape).id, two);
}

TEST_F(ListTest, KVIDesignList_LongPieces_CutToTheirLimits) {
  const std::string longest(200, 'l');
  StoreNote(8, {TitleList({longest + "\\" + longest, longest})});
  const Entry entry = List(DesignFamily::kView, KVLIST_FIRST, kViewShape);
  EXPECT_EQ(entry.name, std::string(129, 'l'));
  EXPECT_EQ(entry.menu, std::string(64, 'l'));
  EXPECT_EQ(entry.cascade, std::string(64, 'l'));
}

TEST_F(ListTest, KVIDesignList_HostileTitles_SkippedWithoutStoppingTheListing) {
  std::string cut = TextList({"A", "B"});
  cut.pop_back();
  StoreNote(8);                                                       // none
  StoreNote(8, {{"$TITLE", BRTYPE_TEXT, 0, "no summary"}});           // not in the summary
  StoreNote(8, {{"$TITLE", BRTYPE_NUMBER, 4, std::string(8, 'x')}});  // no text
  StoreNote(8, {{"$TITLE", BRTYPE_TEXT_LIST, 4, cut}});               // cut off
  StoreNote(8, {{"$TITLE", BRTYPE_TEXT_LIST, 4, "\xff\xff"}});        // counts over the end
  const uint32_t empty = StoreNote(8, {Title("")});
  const uint32_t good = StoreNote(8, {Title("Good")});
  EXPECT_EQ(Ids(DesignFamily::kView, kViewShape), (std::vector<uint32_t>{empty, good}));
}

TEST_F(ListTest, KVIDesignList_FlagsNoTextOfTheSummary_AskedOfTheRecord) {
  const uint32_t folder = StoreNote(8, {Title("Folder"), {"$Flags", BRTYPE_TEXT_LIST, 4, TextList({"F"})}});
  const uint32_t number = StoreNote(8, {Title("Number"), {"$Flags", BRTYPE_NUMBER, 4, std::string(8, 0)}});
  // A record is looked at by its summary alone, so these letters are not seen.
  const uint32_t unseen = StoreNote(8, {Title("Unseen"), {"$Flags", BRTYPE_TEXT, 0, "F"}});
  const uint32_t seen = StoreNote(8, {Title("Seen"), Flags("F")});
  EXPECT_EQ(Ids(DesignFamily::kFolder, kViewShape), (std::vector<uint32_t>{folder, seen}));
  EXPECT_EQ(Ids(DesignFamily::kView, kViewShape), (std::vector<uint32_t>{number, unseen}));
}

TEST_F(ListTest, KVIDesignList_Hidden_ByTitleFlagsOrType) {
  const struct {
    DesignFamily family;
    uint16_t note_class;
    std::vector<kvdoc::NoteItem> items;
    int32_t hidden;
  } rows[] = {
      {DesignFamily::kForm, 4, {Title("Name")}, 0},
      {DesignFamily::kForm, 4, {Title("(Name)")}, 1},
      {DesignFamily::kForm, 4, {Title("Name"), Flags("DC")}, 1},
      {DesignFamily::kForm, 4, {Title("Name"), Flags("D")}, 0},
      {DesignFamily::kForm, 0x8004, {Title("Name"), Flags("C")}, 1},
      {DesignFamily::kView, 8, {Title("Name"), Flags("C")}, 0},
      {DesignFamily::kView, 8, {Title("(Main\\Sub)|Name")}, 1},
      {DesignFamily::kAgent, 0x200, {Title("Name")}, 0},
      {DesignFamily::kAgent, 0x200, {Title("Name"), {"$Type", BRTYPE_TEXT, 4, "0"}}, 0},
      {DesignFamily::kAgent, 0x200, {Title("Name"), {"$Type", BRTYPE_TEXT, 4, "1"}}, 1},
      {DesignFamily::kAgent, 0x200, {Title("Name"), {"$Type", BRTYPE_TEXT, 4, ""}}, 0},
      {DesignFamily::kAgent, 0x200, {Title("Name"), {"$Type", BRTYPE_NUMBER, 4, "12345678"}}, 0},
      {DesignFamily::kAgent, 0x200, {Title("Name"), Flags("C")}, 0},
      {DesignFamily::kAgent, 0x200, {Title("(Name)"), {"$Type", BRTYPE_TEXT, 4, "0"}}, 1},
      {DesignFamily::kAgent, 0x1200, {Title("Name"), {"$Type", BRTYPE_TEXT, 4, "1"}}, 0},
  };
  for (const auto& row : rows) {
    const uint32_t id = StoreNote(row.note_class, row.items);
    const Shape& shape = row.family == DesignFamily::kForm ? kFormShape : kViewShape;
    const Entry entry = List(row.family, KVLIST_REFRESH, shape);
    EXPECT_EQ(entry.id, id);
    EXPECT_EQ(entry.hidden, row.hidden) << &row - rows;
    if (shape.personal != 0) {
      EXPECT_EQ(entry.personal, row.note_class == 0x1200);
    }
    EXPECT_EQ(EngNoteDelete(EngineDatabase(), id, 0), 0);
  }
}

TEST_F(ListTest, KVIDesignList_OldCallers_TheirSummariesAndFoldersAmongViews) {
  const std::string longest(129, 'l');
  const std::string piece(64, 'p');
  const uint32_t form = StoreNote(4, {TitleList({"(" + piece + "\\" + piece + ")", longest})});
  const uint32_t view = StoreNote(8, {Title("View")}), folder = StoreNote(8, {Title("Folder"), Flags("F")});
  const uint32_t subform = StoreNote(4, {Title(longest), Flags("U")});
  const uint32_t version = session_->kvprog_version;
  session_->kvprog_version = kVersionLongNames - 1;
  Entry entry = List(DesignFamily::kForm, KVLIST_REFRESH, kOldFormShape);
  EXPECT_EQ(entry.id, form);
  EXPECT_EQ(entry.hidden, 1);
  EXPECT_EQ(entry.name, std::string(65, 'l'));
  EXPECT_EQ(entry.menu, std::string(32, 'p'));
  EXPECT_EQ(entry.cascade, std::string(32, 'p'));
  EXPECT_EQ(Ids(DesignFamily::kView, kOldFormShape), (std::vector<uint32_t>{view, folder}));
  EXPECT_EQ(List(DesignFamily::kSubform, KVLIST_REFRESH, kPlainShape).name, longest);
  EXPECT_EQ(Ids(DesignFamily::kSubform, kPlainShape), std::vector<uint32_t>{subform});
  session_->kvprog_version = kVersionLongNames;
  EXPECT_EQ(List(DesignFamily::kForm, KVLIST_REFRESH, kFormShape).name, longest);
  session_->kvprog_version = kVersionFourth - 1;
  EXPECT_EQ(Ids(DesignFamily::kView, kFormShape), (std::vector<uint32_t>{view, folder}));
  EXPECT_EQ(Ids(DesignFamily::kFolder, kViewShape), std::vector<uint32_t>{folder});
  session_->kvprog_version = kVersionFourth;
  EXPECT_EQ(Ids(DesignFamily::kView, kViewShape), std::vector<uint32_t>{view});
  session_->kvprog_version = version;
}

TEST_F(ListTest, KVIDesignList_WrongArguments_NullFirstThenTheDatabase) {
  EXPECT_EQ(_KVIDesignList(session_, DesignFamily::kView, 0x12345, KVLIST_FIRST, nullptr), KVFAIL_NULL_PARAM);
  ExpectError(KVFAIL_NULL_PARAM);
  std::vector<char> summ(kViewShape.bytes, 'x');
  session_->errcode = 0;
  EXPECT_EQ(_KVIDesignList(session_, DesignFamily::kView, 0x12345, KVLIST_FIRST, summ.data()),
            KVFAIL_NO_DATABASE);
  EXPECT_EQ(std::string(summ.begin(), summ.end()), std::string(kViewShape.bytes, '\0'));
  ExpectError(KVFAIL_NO_DATABASE);
}

TEST_F(ListTest, KVIDesignList_BuildingFails_StatusAndNoList) {
  StoreNote(8, {Title("One")});
  const struct {
    const char* call;
    uint32_t status;
  } rows[] = {{"EngListCreate", kEngineFailure}, {"EngDbSearch", kEngineFailure}};
  for (const auto& row : rows) {
    List(DesignFamily::kView, KVLIST_REFRESH, kViewShape);
    Fault fault = Fault::EngineCall(1, kEngineFailure, row.call);
    EXPECT_EQ(List(DesignFamily::kView, KVLIST_REFRESH, kViewShape).status, row.status) << row.call;
    EXPECT_TRUE(fault.Hit());
    fault.Disarm();
    ExpectError(row.status);
    EXPECT_EQ(Base()->viewlist.list.buffer, nullptr);
    EXPECT_EQ(Base()->viewlist.list.listhand, 0u);
    EXPECT_EQ(List(DesignFamily::kView, KVLIST_CURRENT, kViewShape).status, KVFAIL_DATA_UNAVAILABLE);
  }
}

TEST_F(ListTest, KVIDesignList_NoMemory_StatusAndNothingLeft) {
  StoreNote(8, {Title("One")});
  bool hit = true;
  for (uint32_t nth = 1; hit; ++nth) {
    const uint64_t blocks = kit::Memory().blocks;
    char summ[kViewShape.bytes];
    session_->errcode = 0;
    Fault fault = Fault::Allocation(nth);
    const uint32_t status = _KVIDesignList(session_, DesignFamily::kView, database_, KVLIST_REFRESH, summ);
    hit = fault.Hit();
    fault.Disarm();
    if (status != KVSUCCESS) {
      EXPECT_TRUE(status == KVFAIL_NO_MEMORY || status == 0x107) << std::hex << status;
    }
    EXPECT_EQ(kit::Memory().blocks, blocks);
  }
}

TEST_F(ListTest, KVIDesignList_ListFull_EndsWithWholeRecords) {
  // Entries of 129, 64 and 64 characters and 8 bytes, each with its length word: 273 bytes a record.
  const std::string name(129, 'n');
  const std::string piece(64, 'p');
  const kvdoc::NoteItem title = TitleList({piece + "\\" + piece, name});
  constexpr size_t kStored = 250;
  constexpr size_t kFitting = (65535 - 2) / 273;
  static_assert(kFitting < kStored);
  std::vector<uint32_t> ids;
  for (size_t i = 0; i < kStored; ++i) ids.push_back(StoreNote(8, {title}));
  ids.resize(kFitting);
  EXPECT_EQ(Ids(DesignFamily::kView, kViewShape), ids);
  EXPECT_EQ(Base()->viewlist.list.count, kFitting * 4);
  EXPECT_EQ(List(DesignFamily::kView, KVLIST_LAST, kViewShape).id, ids.back());
}

TEST_F(ListTest, KVIDesignList_PartOfARecordMissing_Internal) {
  StoreNote(8, {Title("One")});
  List(DesignFamily::kView, KVLIST_FIRST, kViewShape);
  Base()->viewlist.list.count = 3;
  EXPECT_EQ(List(DesignFamily::kView, KVLIST_FIRST, kViewShape).status, KVFAIL_INTERNAL);
  ExpectError(KVFAIL_INTERNAL);
}

TEST_F(ListTest, KVIDesignList_AfterClose_ListIsFreed) {
  StoreNote(8, {Title("One")});
  StoreNote(4, {Title("Form")});
  List(DesignFamily::kView, KVLIST_FIRST, kViewShape);
  List(DesignFamily::kForm, KVLIST_FIRST, kFormShape);
  const int64_t before = kit::Memory().heap_blocks;
  EXPECT_EQ(KVDatabaseClose(database_, 0), KVSUCCESS);
  EXPECT_LE(kit::Memory().heap_blocks, before - 3);
}

// ---- The callback

// What a search shows of its records, to be shown again: the layer between library and engine does not see
// calls that a callback makes.
struct Shown {
  SEARCH_MATCH match;
  std::vector<char> summary;
};

class CallbackTest : public ListTest {
 protected:
  void SetUp() override {
    ListTest::SetUp();
    list_.pdbase = Base();
    list_.design_flags = KVDESIGN_VIEW;
    ASSERT_EQ(EngListCreate(0, 0, 0, &list_.list.listhand, nullptr, nullptr), 0);
  }
  void TearDown() override {
    EXPECT_EQ(EngMemFree(list_.list.listhand), 0);
    ListTest::TearDown();
  }
  Shown ShowOf(uint32_t id) const {
    struct Wanted {
      uint32_t id;
      Shown shown;
    } wanted{id, {}};
    const auto callback = [](void* parameter, const SEARCH_MATCH* match,
                             const ITEM_TABLE* summary) -> EngStatus {
      auto* target = static_cast<Wanted*>(parameter);
      if (match->ID.NoteID != target->id) return 0;
      target->shown.match = *match;
      const auto* bytes = reinterpret_cast<const char*>(summary);
      target->shown.summary.assign(bytes, bytes + summary->Length);
      return 0;
    };
    EXPECT_EQ(EngDbSearch(EngineDatabase(), 0, nullptr, 2, 0x7fff, nullptr, callback, &wanted, nullptr), 0);
    return wanted.shown;
  }
  EngStatus Show(const Shown& shown) {
    return SearchTitle(&list_, &shown.match, reinterpret_cast<const ITEM_TABLE*>(shown.summary.data()));
  }
  // Entries of the list as the engine has them.
  std::vector<std::string> Entries() const {
    std::vector<std::string> entries;
    KVLocked block(list_.list.listhand);
    for (uint16_t i = 0; i < EngListEntryCount(block.bytes, 0); ++i) {
      char* text = nullptr;
      uint16_t text_bytes = 0;
      EXPECT_EQ(EngListEntryText(block.bytes, 0, i, &text, &text_bytes), 0);
      entries.emplace_back(text, text_bytes);
    }
    EXPECT_EQ(entries.size(), list_.list.count);
    return entries;
  }
  KVDESIGNLIST list_{};
};

TEST_F(CallbackTest, SearchTitle_Record_FourEntries) {
  const uint32_t id = StoreNote(0x1008, {Title("(Main\\Sub)|Alias"), Owner(kOwnName)});
  EXPECT_EQ(Show(ShowOf(id)), 0);
  const std::vector<std::string> entries = Entries();
  ASSERT_EQ(entries.size(), 4u);
  EXPECT_EQ(entries[0], "Alias");
  EXPECT_EQ(entries[1], "Main");
  EXPECT_EQ(entries[2], "Sub");
  ASSERT_EQ(entries[3].size(), 8u);
  EXPECT_EQ(KVILoad<uint32_t>(entries[3].data()), id);
  EXPECT_EQ(KVILoad<uint32_t>(entries[3].data() + 4), KVDESIGN_VIEW | KVDESIGN_PRIVATE | KVDESIGN_HIDDEN);
}

TEST_F(CallbackTest, SearchTitle_NoSummary_Skipped) {
  const Shown shown = ShowOf(StoreNote(8, {Title("Name")}));
  EXPECT_EQ(SearchTitle(&list_, &shown.match, nullptr), 0);
  EXPECT_TRUE(Entries().empty());
}

TEST_F(CallbackTest, SearchTitle_UnalignedMatch_IsCopied) {
  const Shown shown = ShowOf(StoreNote(8, {Title("Name")}));
  std::vector<char> match(sizeof(SEARCH_MATCH) + 1);
  memcpy(match.data() + 1, &shown.match, sizeof shown.match);
  EXPECT_EQ(SearchTitle(&list_, reinterpret_cast<const SEARCH_MATCH*>(match.data() + 1),
                        reinterpret_cast<const ITEM_TABLE*>(shown.summary.data())),
            0);
  EXPECT_EQ(Entries().size(), 4u);
}

TEST_F(CallbackTest, SearchTitle_FlagsMissing_RecordIsAskedAndCountsAsViewIfItCannotBeOpened) {
  const Shown with_flags = ShowOf(StoreNote(8, {Title("Name"), Flags("F")}));
  const Shown without =
      ShowOf(StoreNote(8, {Title("Name"), {"$Flags", BRTYPE_TEXT_LIST, 4, TextList({"F"})}}));
  {
    Spy spy;
    EXPECT_EQ(Show(with_flags), 0);
    EXPECT_EQ(spy.Count("EngNoteOpen"), 0u);
    EXPECT_EQ(Show(without), 0);
    EXPECT_EQ(spy.Count("EngNoteOpen"), 1u);
    EXPECT_TRUE(Entries().empty());
  }
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngNoteOpen");
  EXPECT_EQ(Show(without), 0);
  fault.Disarm();
  EXPECT_EQ(Entries().size(), 4u);
}

TEST_F(CallbackTest, SearchTitle_EntryCannotBeAdded_StatusAndNoPartOfTheRecord) {
  const Shown shown = ShowOf(StoreNote(8, {Title("Main\\Sub|Alias")}));
  for (uint16_t status : {uint16_t{0x230}, uint16_t{0x107}})
    for (uint32_t nth = 1; nth <= 4; ++nth) {
      Fault fault = Fault::EngineCall(nth, status, "EngListEntryAdd");
      EXPECT_EQ(Show(shown), status);
      EXPECT_TRUE(fault.Hit());
      fault.Disarm();
      EXPECT_TRUE(Entries().empty()) << nth;
    }
}

TEST_F(CallbackTest, SearchTitle_NoMemoryForTheTitle_EngineWord) {
  const Shown shown = ShowOf(StoreNote(8, {Title("Name"), Flags("Y")}));
  const Shown empty = ShowOf(StoreNote(8, {Title(""), Flags("Y")}));
  Fault fault = Fault::Allocation(1);
  EXPECT_EQ(Show(shown), 0x107);
  EXPECT_EQ(fault.hit_name(), "heap");
  fault.Disarm();
  EXPECT_TRUE(Entries().empty());
  EXPECT_EQ(Show(empty), 0);
  EXPECT_EQ(Entries().size(), 4u);
}

// ---- Forms and subforms

TEST_F(ListTest, KVFormList_FormsAndSubforms_EachItsOwn) {
  const uint32_t form = StoreNote(4, {Title("Main\\Sub|Form"), Flags("C")});
  const uint32_t subform = StoreNote(4, {Title("Part|Subform"), Flags("CU3")});
  KVFORMSUMM summ;
  memset(&summ, 'x', sizeof summ);
  EXPECT_EQ(KVFormList(database_, KVLIST_FIRST, &summ), KVSUCCESS);
  EXPECT_EQ(summ.formid, form);
  EXPECT_EQ(summ.hidden, 1);
  EXPECT_STREQ(summ.name, "Form");
  EXPECT_STREQ(summ.menu_name, "Main");
  EXPECT_STREQ(summ.cascade_name, "Sub");
  EXPECT_EQ(KVFormList(database_, KVLIST_NEXT, &summ), KVFAIL_END_OF_DATA);
  EXPECT_EQ(summ.formid, 0u);
  KVSUBFORMSUMM subsumm;
  memset(&subsumm, 'x', sizeof subsumm);
  EXPECT_EQ(KVSubformList(database_, KVLIST_FIRST, &subsumm), KVSUCCESS);
  EXPECT_EQ(subsumm.subformid, subform);
  EXPECT_STREQ(subsumm.name, "Subform");
  EXPECT_STREQ(subsumm.menu_name, "Part");
  EXPECT_EQ(KVSubformList(database_, KVLIST_NEXT, &subsumm), KVFAIL_END_OF_DATA);
}

TEST_F(ListTest, KVFormList_WrongArguments_TheirStatusInOrder) {
  KVFORMSUMM summ;
  KVSUBFORMSUMM subsumm;
  EXPECT_EQ(KVFormList(database_, KVLIST_CURRENT, &summ), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVSubformList(database_, KVLIST_CURRENT, &subsumm), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVFormList(database_, KVLIST_FIRST, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVSubformList(database_, KVLIST_FIRST, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVFormList(database_ + 99, KVLIST_FIRST, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVFormList(database_ + 99, KVLIST_FIRST, &summ), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVSubformList(database_ + 99, KVLIST_FIRST, &subsumm), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVFormList(kUntouched, KVLIST_FIRST, nullptr), KVFAIL_BAD_HANDLE);
}

// ---- Views, folders and navigators

TEST_F(ListTest, KVViewList_ViewsFoldersNavigators_EachItsOwn) {
  const uint32_t view = StoreNote(8, {Title("(Main\\Sub)|View"), Flags("Y")});
  const uint32_t folder = StoreNote(0x1008, {Title("Folder"), Flags("F"), Owner(kOwnName)});
  const uint32_t navigator = StoreNote(8, {Title("Map|Navigator"), Flags("G")});
  KVVIEWSUMM summ;
  memset(&summ, 'x', sizeof summ);
  EXPECT_EQ(KVViewList(database_, KVLIST_FIRST, &summ), KVSUCCESS);
  EXPECT_EQ(summ.viewid, view);
  EXPECT_EQ(summ.hidden, 1);
  EXPECT_EQ(summ.personal, 0);
  EXPECT_STREQ(summ.name, "View");
  EXPECT_STREQ(summ.menu_name, "Main");
  EXPECT_STREQ(summ.cascade_name, "Sub");
  EXPECT_EQ(KVViewList(database_, KVLIST_NEXT, &summ), KVFAIL_END_OF_DATA);
  KVFOLDERSUMM foldersumm;
  memset(&foldersumm, 'x', sizeof foldersumm);
  EXPECT_EQ(KVFolderList(database_, KVLIST_FIRST, &foldersumm), KVSUCCESS);
  EXPECT_EQ(foldersumm.folderid, folder);
  EXPECT_EQ(foldersumm.hidden, 0);
  EXPECT_EQ(foldersumm.personal, 1);
  EXPECT_STREQ(foldersumm.name, "Folder");
  EXPECT_EQ(KVFolderList(database_, KVLIST_NEXT, &foldersumm), KVFAIL_END_OF_DATA);
  KVNAVIGATORSUMM navsumm;
  memset(&navsumm, 'x', sizeof navsumm);
  EXPECT_EQ(KVNavigatorList(database_, KVLIST_FIRST, &navsumm), KVSUCCESS);
  EXPECT_EQ(navsumm.navid, navigator);
  EXPECT_STREQ(navsumm.name, "Navigator");
  EXPECT_STREQ(navsumm.menu_name, "Map");
  EXPECT_EQ(KVNavigatorList(database_, KVLIST_NEXT, &navsumm), KVFAIL_END_OF_DATA);
}

TEST_F(ListTest, KVViewList_WrongArguments_TheirStatusInOrder) {
  KVVIEWSUMM summ;
  KVFOLDERSUMM foldersumm;
  KVNAVIGATORSUMM navsumm;
  EXPECT_EQ(KVViewList(database_, KVLIST_CURRENT, &summ), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVFolderList(database_, KVLIST_CURRENT, &foldersumm), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVNavigatorList(database_, KVLIST_CURRENT, &navsumm), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVViewList(0, KVLIST_FIRST, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVFolderList(0, KVLIST_FIRST, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVNavigatorList(0, KVLIST_FIRST, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVViewList(0, KVLIST_FIRST, &summ), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVFolderList(0, KVLIST_FIRST, &foldersumm), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVNavigatorList(0, KVLIST_FIRST, &navsumm), KVFAIL_NO_DATABASE);
}

}  // namespace
