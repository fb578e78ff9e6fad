// The calls about whole databases through the C boundary: every status, every output left alone on failure.
#include <filesystem>
#include <string>

#include "base/idtable.h"
#include "engine/data_fixture.h"
#include "engine/test_random.h"
#include "note/acl.h"
#include "note/info.h"
#include "note/summary.h"

using namespace brynd;

namespace {

class DbCallTest : public DataFixture {
 protected:
  static EngStatus NoMatch(void*, const SEARCH_MATCH*, const ITEM_TABLE*) { return 0; }
  static EngMem Block(std::string_view content) { return MemoryCopy(BytesOf(content)).Release(); }
  static std::string Taken(EngMem block) {
    const MutableBytes bytes = memory::FindBytes(block);
    std::string content(TextOf(bytes));
    EXPECT_EQ(0, EngMemFree(block));
    return content;
  }
  // Every call that takes a database, with good arguments otherwise.
  struct Call {
    const char* name;
    std::function<EngStatus(EngDb db)> run;
    bool for_directories = false;
  };
  std::vector<Call> Calls() {
    return {
        {"EngDbInfoGet", [this](EngDb db) { return EngDbInfoGet(db, info_); }},
        {"EngDbInfoSet", [this](EngDb db) { return EngDbInfoSet(db, info_); }},
        {"EngDbReplicaInfoGet", [this](EngDb db) { return EngDbReplicaInfoGet(db, &replica_); }},
        {"EngDbReplicaInfoSet", [this](EngDb db) { return EngDbReplicaInfoSet(db, &replica_); }},
        {"EngDbLocateByReplica",
         [this](EngDb db) { return EngDbLocateByReplica(db, 0, &replica_.ID, info_, sizeof info_); }, true},
        {"EngDbModifiedTimeGet", [this](EngDb db) { return EngDbModifiedTimeGet(db, &time_, &time_); }},
        {"EngDbModifiedTableGet",
         [this](EngDb db) { return EngDbModifiedTableGet(db, 1, nullptr, nullptr, &made_); }},
        {"EngDbSpaceUsageGet", [this](EngDb db) { return EngDbSpaceUsageGet(db, &number_, &number_); }},
        {"EngDbDeleteIds", [this](EngDb db) { return EngDbDeleteIds(db, table_, 0); }},
        {"EngDbCopy from", [this](EngDb db) { return EngDbCopy(db, other_, nullptr, 0); }},
        {"EngDbCopy to", [this](EngDb db) { return EngDbCopy(other_, db, nullptr, 0); }},
        {"EngDbSearch",
         [](EngDb db) { return EngDbSearch(db, 0, nullptr, 0, 1, nullptr, NoMatch, nullptr, nullptr); }},
        {"EngDesignFind", [this](EngDb db) { return EngDesignFind(db, "none", 8, &number_); }},
        {"EngDesignFindPrivate", [this](EngDb db) { return EngDesignFindPrivate(db, "none", 8, &number_); }},
        {"EngDbAclRead", [this](EngDb db) { return EngDbAclRead(db, &made_); }},
        {"EngDbAclStore", [this](EngDb db) { return EngDbAclStore(db, acl_, 0, 0); }},
        {"EngDbCopyAcl from", [this](EngDb db) { return EngDbCopyAcl(db, other_); }},
        {"EngDbCopyAcl to", [this](EngDb db) { return EngDbCopyAcl(other_, db); }},
        {"EngDbCopyTemplateAcl from", [this](EngDb db) { return EngDbCopyTemplateAcl(db, other_, 3); }},
        {"EngDbCopyTemplateAcl to", [this](EngDb db) { return EngDbCopyTemplateAcl(other_, db, 3); }},
        {"EngDbObjectAlloc", [this](EngDb db) { return EngDbObjectAlloc(db, 4, 1, 0, &number_); }},
        {"EngDbObjectRealloc", [](EngDb db) { return EngDbObjectRealloc(db, 7, 4); }},
        {"EngDbObjectFree", [](EngDb db) { return EngDbObjectFree(db, 7); }},
        {"EngDbObjectRead", [this](EngDb db) { return EngDbObjectRead(db, 7, 0, 0, &made_); }},
        {"EngDbObjectWrite", [this](EngDb db) { return EngDbObjectWrite(db, 7, acl_, 0, 1); }},
    };
  }
  void SetUp() override {
    DataFixture::SetUp();
    ASSERT_EQ(0, EngIdTableCreate(4, &table_));
    ASSERT_EQ(0, EngAclNew(&acl_));
  }
  void TearDown() override {
    EXPECT_EQ(0, EngIdTableDestroy(table_));
    EXPECT_EQ(0, EngMemFree(acl_));
    DataFixture::TearDown();
  }

  char info_[kInfoBytes] = {};
  DBREPLICAINFO replica_{};
  TIMEDATE time_{};
  uint32_t number_ = 0;
  EngMem made_ = 0, acl_ = 0;
  EngIdTable table_ = 0;
};

TEST_F(DbCallTest, EveryCall_BadHandle) {
  EngDb closed = 0;
  ASSERT_EQ(0, EngDbOpen("other", &closed));
  ASSERT_EQ(0, EngDbClose(closed));
  const EngNote note = NewNote();
  for (const Call& call : Calls())
    for (const uint32_t handle : {0u, closed, note, acl_, table_, 0xffffffffu, db_ ^ 0x100u})
      EXPECT_EQ(status::kBadHandle, call.run(handle)) << call.name << " " << handle;
  EXPECT_EQ(0u, made_);
  EXPECT_EQ(0, EngNoteClose(note));
}

TEST_F(DbCallTest, EveryCall_Directory) {
  for (const Call& call : Calls())
    if (!call.for_directories) {
      EXPECT_EQ(status::kIsDirectory, call.run(directory_)) << call.name;
    }
  EXPECT_EQ(0u, made_);
  EXPECT_EQ(status::kBadArgument, EngDbLocateByReplica(db_, 0, &replica_.ID, info_, sizeof info_));
}

TEST_F(DbCallTest, EveryCall_NullArguments) {
  const EngStatus bad = status::kBadArgument;
  EXPECT_EQ(bad, EngDbInfoGet(db_, nullptr));
  EXPECT_EQ(bad, EngDbInfoSet(db_, nullptr));
  EXPECT_EQ(bad, EngDbInfoFieldGet(nullptr, 0, info_, 10));
  EXPECT_EQ(bad, EngDbInfoFieldGet(info_, 0, nullptr, 10));
  EXPECT_EQ(bad, EngDbInfoFieldGet(info_, 4, info_, 10));
  EXPECT_EQ(bad, EngDbInfoFieldSet(nullptr, 0, ""));
  EXPECT_EQ(bad, EngDbInfoFieldSet(info_, 4, ""));
  EXPECT_EQ(bad, EngDbReplicaInfoGet(db_, nullptr));
  EXPECT_EQ(bad, EngDbReplicaInfoSet(db_, nullptr));
  EXPECT_EQ(bad, EngDbLocateByReplica(directory_, 0, nullptr, info_, 10));
  EXPECT_EQ(bad, EngDbLocateByReplica(directory_, 0, &replica_.ID, nullptr, 10));
  EXPECT_EQ(0, EngDbModifiedTimeGet(db_, nullptr, nullptr));
  EXPECT_EQ(0, EngDbSpaceUsageGet(db_, nullptr, nullptr));
  EXPECT_EQ(bad, EngDbModifiedTableGet(db_, 1, nullptr, nullptr, nullptr));
  EXPECT_EQ(bad, EngDbCompact(nullptr, 0, nullptr));
  EXPECT_EQ(bad, EngDbSearch(db_, 0, nullptr, 0, 1, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(bad, EngDesignFind(db_, nullptr, 8, &number_));
  EXPECT_EQ(bad, EngDesignFind(db_, "", 8, nullptr));
  EXPECT_EQ(bad, EngDesignFindPrivate(db_, nullptr, 8, &number_));
  EXPECT_EQ(bad, EngDesignFindPrivate(db_, "", 8, nullptr));
  EXPECT_EQ(bad, EngSummaryValueLocate(nullptr, "x", nullptr, nullptr, nullptr));
  EXPECT_EQ(bad, EngSummaryValueLocate("\4\0\0", nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(bad, EngAclNew(nullptr));
  EXPECT_EQ(bad, EngDbAclRead(db_, nullptr));
  EXPECT_EQ(bad, EngDbObjectAlloc(db_, 1, 1, 0, nullptr));
  EXPECT_EQ(bad, EngDbObjectRead(db_, 1, 0, 0, nullptr));
}

TEST_F(DbCallTest, EveryCall_ReadOnlyWrites_ReadOnly) {
  store::OpenOptions options;
  options.read_only = true;
  const EngDb read_only = AddDatabase(Database::OpenFile(Owner().FilePath(), "test", options));
  for (const Call& call : Calls()) {
    const std::string_view name = call.name;
    const bool writes = name == "EngDbInfoSet" || name == "EngDbReplicaInfoSet" || name == "EngDbDeleteIds" ||
                        name == "EngDbAclStore" || name == "EngDbCopyAcl to" ||
                        name == "EngDbCopyTemplateAcl to" || name == "EngDbObjectAlloc" ||
                        name == "EngDbObjectRealloc" || name == "EngDbObjectFree" ||
                        name == "EngDbObjectWrite";
    const EngStatus outcome = call.run(read_only);
    EXPECT_EQ(writes, outcome == status::kReadOnly) << name << " " << outcome;
    if (made_ != 0) {
      EXPECT_EQ(0, EngMemFree(std::exchange(made_, 0)));
    }
  }
  StoreText("Title", "x");
  EXPECT_EQ(0, EngDbCopy(db_, read_only, nullptr, 1)) << "the same file: nothing is to be written";
  EXPECT_EQ(0, EngDbCopy(db_, other_, nullptr, 1));
  EXPECT_EQ(status::kReadOnly, EngDbCopy(other_, read_only, nullptr, 1));
  EXPECT_EQ(0, EngDbClose(read_only));
}

TEST_F(DbCallTest, EngDbInfo_WholeBufferAndFields) {
  char info[kInfoBytes];
  std::memset(info, 'x', sizeof info);
  ASSERT_EQ(0, EngDbInfoGet(db_, info));
  EXPECT_EQ(std::string(kInfoBytes, '\0'), std::string(info, sizeof info)) << "a fresh database has no title";
  ASSERT_EQ(0, EngDbInfoFieldSet(info, 0, "Title\nof two lines"));
  ASSERT_EQ(0, EngDbInfoFieldSet(info, 3, "Inherited"));
  ASSERT_EQ(0, EngDbInfoFieldSet(info, 2, "Own"));
  ASSERT_EQ(0, EngDbInfoFieldSet(info, 1, "A,B"));
  ASSERT_EQ(0, EngDbInfoSet(db_, info));
  Reopen();
  char again[kInfoBytes];
  ASSERT_EQ(0, EngDbInfoGet(db_, again));
  EXPECT_STREQ("Title of two lines\nA,B\n#1Own\n#2Inherited", again);
  EXPECT_EQ(std::string(info, sizeof info), std::string(again, sizeof again)) << "zeros behind the text";
  const char* const expected[] = {"Title of two lines", "A,B", "Own", "Inherited"};
  for (uint16_t field = 0; field < 4; ++field) {
    char text[kInfoBytes];
    std::memset(text, 'x', sizeof text);
    ASSERT_EQ(0, EngDbInfoFieldGet(again, field, text, sizeof text - 1));
    EXPECT_STREQ(expected[field], text);
    std::memset(text, 'x', sizeof text);
    ASSERT_EQ(0, EngDbInfoFieldGet(again, field, text, 2));
    EXPECT_EQ(std::string(expected[field]).substr(0, 2), text);
    EXPECT_EQ('x', text[3]);
    ASSERT_EQ(0, EngDbInfoFieldGet(again, field, text, 0));
    EXPECT_STREQ("", text);
  }
  ASSERT_EQ(0, EngDbInfoFieldSet(again, 2, nullptr));
  EXPECT_STREQ("Title of two lines\nA,B\n#2Inherited", again);
  // The text may lie in the very buffer.
  ASSERT_EQ(0, EngDbInfoFieldSet(again, 1, again));
  EXPECT_STREQ("Title of two lines\nTitle of two lines A,B #2Inherited\n#2Inherited", again);
}

TEST_F(DbCallTest, EngDbInfo_BufferWithoutNul_FirstBytesCount) {
  char info[kInfoBytes];
  std::memset(info, 'x', sizeof info);
  ASSERT_EQ(0, EngDbInfoSet(db_, info));
  char again[kInfoBytes];
  ASSERT_EQ(0, EngDbInfoGet(db_, again));
  EXPECT_EQ(std::string(kInfoBytes - 1, 'x'), again);
  char text[kInfoBytes + 1];
  ASSERT_EQ(0, EngDbInfoFieldGet(info, 0, text, kInfoBytes));
  EXPECT_EQ(std::string(kInfoBytes, 'x'), text);
  ASSERT_EQ(0, EngDbInfoFieldSet(info, 1, "c"));
  EXPECT_EQ(std::string(kInfoBytes - 1, 'x'), info);
}

TEST_F(DbCallTest, EngDbReplicaInfo_UnalignedAddresses) {
  alignas(8) char buffer[sizeof(DBREPLICAINFO) + 1];
  auto* at = reinterpret_cast<DBREPLICAINFO*>(buffer + 1);
  ASSERT_EQ(0, EngDbReplicaInfoGet(db_, at));
  DBREPLICAINFO info;
  std::memcpy(&info, at, sizeof info);
  info.Flags = 0x1234;
  std::memcpy(at, &info, sizeof info);
  ASSERT_EQ(0, EngDbReplicaInfoSet(db_, at));
  Reopen();
  DBREPLICAINFO again;
  ASSERT_EQ(0, EngDbReplicaInfoGet(db_, &again));
  EXPECT_EQ(0, std::memcmp(&info, &again, sizeof info));
}

TEST_F(DbCallTest, EngDbModifiedTableGet_ChangedAndDeleted) {
  SetClock clock;
  const SeamGuard guard(Process().clock, static_cast<Clock*>(&clock));
  const uint32_t early = StoreText("Title", "x"), deleted = StoreText("Title", "x");
  const TIMEDATE since = clock.Pass(1);
  const uint32_t late = StoreText("Title", "x");
  StoreClass(8);
  ASSERT_EQ(0, EngNoteDelete(db_, deleted, 0));
  const TIMEDATE now = clock.Pass(1);
  TIMEDATE until{};
  EngIdTable table = 0;
  ASSERT_EQ(0, EngDbModifiedTableGet(db_, 1, &since, &until, &table));
  const IdTable& ids = IdTableOf(table);
  EXPECT_EQ(2u, ids.Count());
  EXPECT_TRUE(ids.Contains(late));
  EXPECT_TRUE(ids.Contains(0x80000000u | deleted));
  EXPECT_EQ(0, InstantCompare(now, until));
  EXPECT_EQ(0, InstantCompare(now, ids.time));
  ASSERT_EQ(0, EngIdTableDestroy(table));
  ASSERT_EQ(0, EngDbModifiedTableGet(db_, 1, nullptr, nullptr, &table));
  EXPECT_EQ(3u, IdTableOf(table).Count());
  EXPECT_TRUE(IdTableOf(table).Contains(early));
  ASSERT_EQ(0, EngIdTableDestroy(table));
  ASSERT_EQ(0, EngDbModifiedTableGet(db_, 1, &until, nullptr, &table));
  EXPECT_EQ(0u, IdTableOf(table).Count());
  ASSERT_EQ(0, EngIdTableDestroy(table));
}

TEST_F(DbCallTest, EngDbModifiedTimeGet_DataAndOther) {
  TIMEDATE data{}, other{};
  ASSERT_EQ(0, EngDbModifiedTimeGet(db_, &data, &other));
  EXPECT_TRUE(IsWildcard(data));
  EXPECT_FALSE(IsWildcard(other));
  StoreText("Title", "x");
  TIMEDATE alone{};
  ASSERT_EQ(0, EngDbModifiedTimeGet(db_, &alone, nullptr));
  EXPECT_GE(InstantCompare(alone, other), 0);
}

TEST_F(DbCallTest, EngDbSpaceUsageGet_FreedSpaceShows_CompactGivesItBack) {
  uint32_t used_before = 0, unused_before = 0, used = 0, unused = 0;
  ASSERT_EQ(0, EngDbSpaceUsageGet(db_, &used_before, &unused_before));
  std::vector<uint32_t> ids;
  for (int i = 0; i < 60; ++i) ids.push_back(StoreText("Title", std::string(12000, 'x'), 4));
  ASSERT_EQ(0, EngDbSpaceUsageGet(db_, &used, &unused));
  EXPECT_GT(used, used_before + 60 * 12000);
  for (const uint32_t id : ids) ASSERT_EQ(0, EngNoteDelete(db_, id, id == ids.back() ? 0 : 4));
  ASSERT_EQ(0, EngDbSpaceUsageGet(db_, nullptr, &unused));
  EXPECT_GT(unused, 60u * 8000);
  DBCOMPACTSIZES sizes{};
  ASSERT_EQ(0, EngDbCompact("test", 0, &sizes)) << "open here all the while";
  EXPECT_GT(sizes.Before, 60u * 10000);
  EXPECT_LE(sizes.After, sizes.Before - unused);
  ASSERT_EQ(0, EngDbSpaceUsageGet(db_, &used, &unused));
  EXPECT_EQ(0u, unused);
  EXPECT_EQ(sizes.After, used);
  StoreText("Title", "still works");
}

TEST_F(DbCallTest, EngDbCompact_Statuses) {
  DBCOMPACTSIZES sizes{7, 7};
  EXPECT_EQ(status::kNoFile, EngDbCompact("missing", 0, &sizes));
  EXPECT_EQ(status::kBadPath, EngDbCompact("../x", 0, &sizes));
  EXPECT_EQ(status::kIsDirectory, EngDbCompact("", 0, &sizes));
  SystemFiles().Replace(folder_ + "/foreign.QDB", "no database");
  EXPECT_EQ(status::kNotDatabase, EngDbCompact("foreign", 0, &sizes));
  EXPECT_EQ(7u, sizes.Before);
  EXPECT_EQ(0, EngDbCompact("test", 0, nullptr));
}

TEST_F(DbCallTest, EngDbDeleteIds_ThoseThatAre_OthersPassedOver) {
  const uint32_t first = StoreText("Title", "1"), second = StoreText("Title", "2"),
                 third = StoreText("Title", "3");
  ASSERT_EQ(0, EngNoteDelete(db_, third, 0));
  for (const uint32_t id :
       {0u, first, third, 999999u, 0x3fffffffu, 0x40000000u, 0x80000000u | second, 0xffff0010u})
    ASSERT_EQ(0, EngIdTableInsertId(table_, id, nullptr));
  EXPECT_EQ(0, EngDbDeleteIds(db_, table_, 4));
  EXPECT_EQ((std::vector<uint32_t>{second}), Search(1).ids);
  EXPECT_NE(0u, Owner().SpecialId(BRCLASS_ICON));
  EXPECT_EQ(status::kBadHandle, EngDbDeleteIds(db_, 0, 0));
  EXPECT_EQ(status::kBadHandle, EngDbDeleteIds(db_, acl_, 0));
  // A damaged note stops it, and then nothing is deleted.
  const uint32_t fourth = StoreText("Title", "4");
  PutRawNote(Owner(), fourth, BytesOf("damaged"));
  for (const uint32_t id : {second, fourth}) ASSERT_EQ(0, EngIdTableInsertId(table_, id, nullptr));
  EXPECT_EQ(status::kDamaged, EngDbDeleteIds(db_, table_, 0));
  EXPECT_EQ((std::vector<uint32_t>{second}), Search(1).ids);
}

TEST_F(DbCallTest, EngDbCopy_SinceAndMask) {
  SetClock clock;
  const SeamGuard guard(Process().clock, static_cast<Clock*>(&clock));
  StoreText("Title", "early");
  const TIMEDATE since = clock.Pass(1);
  StoreText("Title", "late");
  EXPECT_EQ(0, EngDbCopy(db_, other_, &since, 1));
  std::swap(db_, other_);
  EXPECT_EQ(1u, Search(1).ids.size());
  std::swap(db_, other_);
  EXPECT_EQ(0, EngDbCopy(db_, other_, nullptr, 0x7fff));
  std::swap(db_, other_);
  EXPECT_EQ(2u, Search(1).ids.size());
  std::swap(db_, other_);
}

TEST_F(DbCallTest, EngDbSearch_BadFormula) {
  StoreText("Title", "x");
  TIMEDATE until{{7, 7}};
  EXPECT_EQ(status::kBadHandle, EngDbSearch(db_, 77, nullptr, 0, 1, nullptr, NoMatch, nullptr, &until));
  const EngMem text = Block("no formula");
  EXPECT_EQ(status::kFormulaBad, EngDbSearch(db_, text, nullptr, 0, 1, nullptr, NoMatch, nullptr, &until));
  EXPECT_EQ(7u, until.Innards[0]);
  EXPECT_EQ(0, EngMemFree(text));
  EXPECT_EQ(0, EngDbSearch(db_, 0, "Title", 0, 1, nullptr, NoMatch, nullptr, nullptr));
}

TEST_F(DbCallTest, EngSummaryValueLocate_ValueTypeAndLength) {
  SummaryBuilder builder;
  builder.AddText("Title", "abc");
  builder.AddNumber("Size", 2.5);
  builder.Add("Empty", Bytes());
  builder.Add("Short", BytesOf("x"));
  builder.AddText("Blank", "");
  const Bytes table = builder.Finish();
  std::vector<std::byte> shifted(table.size() + 1);  // at an odd address
  std::copy(table.begin(), table.end(), shifted.begin() + 1);
  const void* summary = shifted.data() + 1;
  char* value = nullptr;
  uint16_t bytes = 0, type = 0;
  ASSERT_EQ(0, EngSummaryValueLocate(summary, "TITLE", &value, &bytes, &type));
  EXPECT_EQ("abc", std::string(value, bytes));
  EXPECT_EQ(BRTYPE_TEXT, type);
  ASSERT_EQ(0, EngSummaryValueLocate(summary, "size", &value, &bytes, &type));
  EXPECT_EQ(8, bytes);
  EXPECT_EQ(2.5, LoadF64(value));
  EXPECT_EQ(BRTYPE_NUMBER, type);
  ASSERT_EQ(0, EngSummaryValueLocate(summary, "Blank", &value, &bytes, &type));
  EXPECT_EQ(0, bytes);
  EXPECT_EQ(0, EngSummaryValueLocate(summary, "Blank", nullptr, nullptr, nullptr));
  bytes = 77;
  EXPECT_EQ(status::kNoItem, EngSummaryValueLocate(summary, "Empty", &value, &bytes, &type));
  EXPECT_EQ(status::kNoItem, EngSummaryValueLocate(summary, "none", &value, &bytes, &type));
  EXPECT_EQ(status::kDamaged, EngSummaryValueLocate(summary, "Short", &value, &bytes, &type));
  for (const uint16_t told : {0, 1, 3}) {
    StoreU16(shifted.data() + 1, told);
    EXPECT_EQ(status::kDamaged, EngSummaryValueLocate(summary, "Title", &value, &bytes, &type));
  }
  for (uint16_t told = 4; told < table.size() - 1; ++told) {
    StoreU16(shifted.data() + 1, told);
    EXPECT_EQ(status::kDamaged, EngSummaryValueLocate(summary, "none", &value, &bytes, &type)) << told;
  }
  EXPECT_EQ(77, bytes);
}

TEST_F(DbCallTest, EngDesignFind_SharedAndPrivate) {
  const auto store = [&](uint16_t note_class, std::string_view owner) {
    const EngNote note = NewNote();
    EXPECT_EQ(0, EngNoteInfoSet(note, 3, &note_class));
    EXPECT_EQ(0, AppendText(note, "$TITLE", "By Date|date"));
    EXPECT_EQ(0, AppendText(note, "$Authors", owner, 0x25));
    EXPECT_EQ(0, EngNoteUpdate(note, 0));
    const uint32_t id = IdOf(note);
    EXPECT_EQ(0, EngNoteClose(note));
    return id;
  };
  uint32_t id = 77;
  EXPECT_EQ(status::kNotFound, EngDesignFind(db_, "date", 8, &id));
  EXPECT_EQ(77u, id);
  const uint32_t priv = store(0x1008, "");
  EXPECT_EQ(status::kNotFound, EngDesignFind(db_, "date", 8, &id));
  ASSERT_EQ(0, EngDesignFindPrivate(db_, "DATE", 8, &id)) << "no user is named in the settings";
  EXPECT_EQ(priv, id);
  const uint32_t shared = store(8, "");
  ASSERT_EQ(0, EngDesignFind(db_, "by date|DATE", 8, &id));
  EXPECT_EQ(shared, id);
  EXPECT_EQ(status::kNotFound, EngDesignFind(db_, "date", 4, &id));
}

TEST_F(DbCallTest, EngDbAcl_StoreReadCopy) {
  Acl acl = NewAcl();
  acl.entries.push_back({.name = "[Ann]", .level = AclLevel::kEditor});
  const Record list = BuildAcl(acl);
  const std::string text(TextOf(list));
  const EngMem block = Block(text);
  ASSERT_EQ(0, EngDbAclStore(db_, block, 0, 1));
  EXPECT_EQ(text, Taken(block)) << "the block stays the caller's";
  ASSERT_EQ(0, EngDbAclRead(db_, &made_));
  EXPECT_EQ(text, Taken(made_));
  ASSERT_EQ(0, EngDbCopyTemplateAcl(db_, other_, 3));
  ASSERT_EQ(0, EngDbAclRead(other_, &made_));
  const std::optional<Acl> taken = ParseAcl(memory::FindBytes(made_));
  ASSERT_EQ(0, EngMemFree(made_));
  ASSERT_TRUE(taken.has_value());
  ASSERT_EQ(2u, taken->entries.size());
  EXPECT_EQ("Ann", taken->entries[1].name);
  ASSERT_EQ(0, EngDbCopyAcl(db_, other_));
  ASSERT_EQ(0, EngDbAclRead(other_, &made_));
  EXPECT_EQ(text, Taken(made_));
  EXPECT_EQ(status::kBadArgument, EngDbCopyTemplateAcl(db_, other_, 2));
  EXPECT_EQ(status::kBadHandle, EngDbAclStore(db_, 0, 0, 0));
  const EngMem foreign = Block("no list");
  EXPECT_EQ(status::kBadAcl, EngDbAclStore(db_, foreign, 0, 0));
  EXPECT_EQ(0, EngMemFree(foreign));
  EXPECT_EQ(status::kBadAcl, EngDbAclStore(db_, table_, 0, 0)) << "a block of another kind";
}

TEST_F(DbCallTest, EngDbObject_WholeLife) {
  uint32_t object = 0;
  ASSERT_EQ(0, EngDbObjectAlloc(db_, 10, 0x200, 0, &object));
  const EngMem block = Block("0123456789ab");
  EXPECT_EQ(status::kBadArgument, EngDbObjectWrite(db_, object, block, 0, 11)) << "not within the object";
  EXPECT_EQ(status::kBadArgument, EngDbObjectWrite(db_, object, block, 0, 13)) << "not within the block";
  EXPECT_EQ(status::kBadHandle, EngDbObjectWrite(db_, object, 0, 0, 1));
  ASSERT_EQ(0, EngDbObjectWrite(db_, object, block, 0, 10));
  ASSERT_EQ(0, EngDbObjectWrite(db_, object, block, 8, 2));
  EXPECT_EQ(0, EngMemFree(block));
  ASSERT_EQ(0, EngDbObjectRead(db_, object, 0, 0xffffffff, &made_));
  EXPECT_EQ("0123456701", Taken(std::exchange(made_, 0)));
  ASSERT_EQ(0, EngDbObjectRealloc(db_, object, 12));
  ASSERT_EQ(0, EngDbObjectRead(db_, object, 7, 5, &made_));
  EXPECT_EQ(std::string("701\0\0", 5), Taken(std::exchange(made_, 0)));
  EXPECT_EQ(status::kBadArgument, EngDbObjectRead(db_, object, 13, 0, &made_));
  EXPECT_EQ(status::kBadArgument, EngDbObjectRead(db_, object, 0, 13, &made_));
  EXPECT_EQ(status::kBadArgument, EngDbObjectRealloc(db_, object, 0x80000000));
  EXPECT_EQ(status::kBadArgument, EngDbObjectAlloc(db_, 0x80000000, 1, 0, &object));
  ASSERT_EQ(0, EngDbObjectFree(db_, object));
  EXPECT_EQ(status::kNoObject, EngDbObjectFree(db_, object));
  EXPECT_EQ(status::kNoObject, EngDbObjectRead(db_, object, 0, 0, &made_));
  EXPECT_EQ(0u, made_);
}

}  // namespace
