// Whole databases: create, delete, copy, compact, the default view.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>

#include "kit/kit.h"
#include "kvint.h"

namespace {

using kit::Fault;
using kit::Spy;

constexpr uint16_t kEngineFailure = 0x1f7;
constexpr uint16_t kNotAvailable = 0x1ff;
constexpr uint32_t kUntouched = 0xdeadbeef;
constexpr uint16_t kMemberClass = 3;

// An engine database that closes itself.
class EngineDatabase {
 public:
  explicit EngineDatabase(const std::string& path) {
    EXPECT_EQ(EngDbOpen(path.c_str(), &dbhand_), 0) << path;
  }
  ~EngineDatabase() { EXPECT_EQ(EngDbClose(dbhand_), 0); }
  EngineDatabase(const EngineDatabase&) = delete;
  EngineDatabase& operator=(const EngineDatabase&) = delete;
  operator EngDb() const { return dbhand_; }  // NOLINT: it stands for the handle

 private:
  EngDb dbhand_ = 0;
};

std::string Field(EngDb dbhand, uint16_t field) {
  char info[kDbInfoBytes] = {};
  char text[kDbInfoBytes + 1] = {};
  EXPECT_EQ(EngDbInfoGet(dbhand, info), 0);
  EngDbInfoFieldGet(info, field, text, kDbInfoBytes);
  return text;
}

void SetField(const std::string& path, uint16_t field, const std::string& text) {
  const EngineDatabase database(path);
  char info[kDbInfoBytes] = {};
  ASSERT_EQ(EngDbInfoGet(database, info), 0);
  ASSERT_EQ(EngDbInfoFieldSet(info, field, text.c_str()), 0);
  ASSERT_EQ(EngDbInfoSet(database, info), 0);
}

void AddNote(EngDb dbhand, uint16_t note_class, const char* title) {
  EngNote note = 0;
  ASSERT_EQ(EngNoteCreate(dbhand, &note), 0);
  ASSERT_EQ(EngNoteInfoSet(note, kMemberClass, &note_class), 0);
  ASSERT_EQ(EngItemTextSet(note, "$TITLE", title, 0xffff), 0);
  ASSERT_EQ(EngNoteUpdate(note, 0), 0);
  ASSERT_EQ(EngNoteClose(note), 0);
}

size_t CountNotes(EngDb dbhand, uint16_t class_mask) {
  size_t count = 0;
  const auto callback = [](void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE*) -> EngStatus {
    if (match->SERetFlags & 1) ++*static_cast<size_t*>(parameter);
    return 0;
  };
  EXPECT_EQ(EngDbSearch(dbhand, 0, nullptr, 0, class_mask, nullptr, callback, &count, nullptr), 0);
  return count;
}

uint32_t DefaultView(EngDb dbhand) {
  uint32_t id = 0;
  return EngDbSpecialIdGet(dbhand, 0x8008, &id) ? 0 : id;
}

class AdminTest : public kit::KavrinTest {
 protected:
  bool Exists(const std::string& name) const { return std::filesystem::exists(directory().File(name)); }
  std::string Path(const std::string& name) const { return directory().File(name); }
  uint32_t Create(const std::string& name, const char* title = nullptr, const char* categories = nullptr,
                  const char* template_name = nullptr, uint32_t db_class = 0, uint32_t dbcreate_flags = 0) {
    const std::string template_path = template_name ? Path(template_name) : "";
    return KVDatabaseCreate(nullptr, Path(name).c_str(), title, categories, nullptr,
                            template_name ? template_path.c_str() : nullptr, db_class, dbcreate_flags);
  }
  uint32_t Copy(const std::string& source, const std::string& destination, uint32_t dbcopy_flags = 0,
                uint32_t doc_class = 0, const char* dest_title = nullptr, const KVDATETIME* begin = nullptr) {
    return KVDatabaseCopy(nullptr, Path(source).c_str(), nullptr, Path(destination).c_str(), dest_title,
                          dbcopy_flags, doc_class, begin);
  }
};

// ---- Create

TEST_F(AdminTest, KVDatabaseCreate_ChecksInOrder) {
  Spy spy;
  EXPECT_EQ(KVDatabaseCreate(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 14, 0), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatabaseCreate(nullptr, "", nullptr, nullptr, nullptr, nullptr, 14, 0), KVFAIL_NULL_PARAM);
  for (uint32_t db_class : {14u, 255u, 0xffffffffu})
    EXPECT_EQ(Create("new.qdb", nullptr, nullptr, "none.qdb", db_class), KVFAIL_BAD_ENUM);
  EXPECT_TRUE(spy.Find("EngDbCreate") == nullptr && spy.Find("EngDbOpen") == nullptr);
}

TEST_F(AdminTest, KVDatabaseCreate_Classes_AreMappedForTheEngine) {
  const struct {
    uint32_t db_class;
    uint16_t engine_class;
  } rows[] = {{0, 0xff01}, {1, 0xff00}, {2, 0xff01}, {7, 0xff06}, {13, 0xff0c}};
  for (const auto& row : rows) {
    Spy spy;
    // Which classes the engine takes is its own; here counts what it is given.
    const uint32_t status = Create("class.qdb", nullptr, nullptr, nullptr, row.db_class);
    ASSERT_NE(spy.Find("EngDbCreate"), nullptr);
    EXPECT_EQ(spy.Find("EngDbCreate")->words[1], row.engine_class);
    if (status == KVSUCCESS) {
      EXPECT_EQ(KVDatabaseDelete(nullptr, Path("class.qdb").c_str()), KVSUCCESS);
    }
  }
}

TEST_F(AdminTest, KVDatabaseCreate_DefaultClass_ReadsBackAsTwo) {
  ASSERT_EQ(Create("class.qdb"), KVSUCCESS);
  uint32_t database = 0;
  ASSERT_EQ(KVDatabaseOpen(nullptr, Path("class.qdb").c_str(), 0, &database), KVSUCCESS);
  int32_t db_class = 0;
  EXPECT_EQ(KVDatabaseGetProperty(database, KVPROP_DB_CLASS, &db_class), KVSUCCESS);
  EXPECT_EQ(db_class, 2);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(AdminTest, KVDatabaseCreate_Flags_AreMappedForTheEngine) {
  const uint32_t size_limit = 3;
  ASSERT_EQ(KVSetProperty(KVPROP_SESS_MAX_DB_SIZE, &size_limit), KVSUCCESS);
  const struct {
    uint32_t dbcreate_flags;
    uint64_t engine_class, overwrite, engine_flags, encryption;
  } rows[] = {{0, 0xff04, 0, 0, 0},          {0x1, 0xff04, 0, 0, 0},        {0x4, 0, 0, 4, 0},
              {0x10, 0xff04, 1, 0, 0},       {0x01000000, 0xff04, 0, 1, 1}, {0x0f000000, 0xff04, 0, 1, 15},
              {0xf0ffffea, 0xff04, 0, 0, 0}, {0x0a000014, 0, 1, 5, 10}};
  for (const auto& row : rows) {
    Spy spy;
    Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbCreate");
    EXPECT_EQ(Create("flags.qdb", nullptr, nullptr, nullptr, 5, row.dbcreate_flags), kEngineFailure);
    ASSERT_NE(spy.Find("EngDbCreate"), nullptr);
    const std::vector<uint64_t>& words = spy.Find("EngDbCreate")->words;
    EXPECT_EQ(std::vector<uint64_t>(words.begin() + 1, words.end()),
              (std::vector<uint64_t>{row.engine_class, row.overwrite, row.engine_flags, row.encryption,
                                     size_limit}))
        << std::hex << row.dbcreate_flags;
    EXPECT_EQ(spy.Count("EngDbDelete"), 0u);
  }
}

TEST_F(AdminTest, KVDatabaseCreate_WithoutTemplate_HasTextsViewAndDesignCollection) {
  ASSERT_EQ(Create("new.qdb", "The title", "Categories"), KVSUCCESS);
  EXPECT_EQ(kit::LastError().status, KVSUCCESS);
  const EngineDatabase database(Path("new.qdb"));
  EXPECT_EQ(Field(database, 0), "The title");
  EXPECT_EQ(Field(database, 1), "Categories");
  EXPECT_EQ(Field(database, 2), "");
  EXPECT_EQ(Field(database, 3), "");
  EXPECT_NE(DefaultView(database), 0u);
  EngNote collection = 0;
  ASSERT_EQ(EngNoteOpen(database, 0xffff0020, 0, &collection), 0);
  EXPECT_EQ(EngNoteClose(collection), 0);
  EngNote icon = 0;
  char title[256] = {};
  ASSERT_EQ(EngNoteOpen(database, 0xffff0010, 0, &icon), 0);
  EngItemTextGet(icon, "$TITLE", title, 255);
  EXPECT_EQ(std::string(title).substr(0, 9), "The title");
  EXPECT_EQ(EngNoteClose(icon), 0);
}

TEST_F(AdminTest, KVDatabaseCreate_NoTexts_Works) {
  ASSERT_EQ(Create("new.qdb"), KVSUCCESS);
  const EngineDatabase database(Path("new.qdb"));
  EXPECT_EQ(Field(database, 0), "");
}

TEST_F(AdminTest, KVDatabaseCreate_FileExists_NameInUseAndFileStays) {
  ASSERT_EQ(Create("new.qdb", "first"), KVSUCCESS);
  Spy spy;
  EXPECT_EQ(Create("new.qdb", "second"), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(spy.Count("EngDbDelete"), 0u);
  EXPECT_EQ(Field(EngineDatabase(Path("new.qdb")), 0), "first");
}

TEST_F(AdminTest, KVDatabaseCreate_Overwrite_ReplacesTheFile) {
  ASSERT_EQ(Create("new.qdb", "first"), KVSUCCESS);
  AddNote(EngineDatabase(Path("new.qdb")), 1, "goes");
  EXPECT_EQ(Create("new.qdb", "second", nullptr, nullptr, 0, KVDBCREATE_OVERWRITE), KVSUCCESS);
  const EngineDatabase database(Path("new.qdb"));
  EXPECT_EQ(Field(database, 0), "second");
  EXPECT_EQ(CountNotes(database, 1), 0u);
}

TEST_F(AdminTest, KVDatabaseCreate_TextsTogether_AtTheLimitOf127) {
  for (size_t title_bytes : {size_t{86}, size_t{87}, size_t{88}, size_t{70000}}) {
    const std::string name = "limit" + std::to_string(title_bytes) + ".qdb";
    const std::string title(title_bytes, 't');
    const uint32_t status = Create(name, title.c_str(), std::string(40, 'c').c_str());
    EXPECT_EQ(status, title_bytes + 40 <= 127 ? KVSUCCESS : KVFAIL_DATA_TOO_LONG) << title_bytes;
    EXPECT_EQ(Exists(name), title_bytes + 40 <= 127);
    if (status == KVSUCCESS) {
      EXPECT_EQ(Field(EngineDatabase(Path(name)), 0), title);
    }
  }
}

// ---- Create from a template

class TemplateTest : public AdminTest {
 protected:
  void SetUp() override {
    AdminTest::SetUp();
    ASSERT_EQ(Create("template.qdb", "Template title", "Template categories"), KVSUCCESS);
    SetField(Path("template.qdb"), 2, "TemplateName");
    const EngineDatabase database(Path("template.qdb"));
    AddNote(database, 1, "a document");
    AddNote(database, 4, "a form");
  }
};

TEST_F(TemplateTest, KVDatabaseCreate_FromTemplate_CopiesRecordsAndTexts) {
  ASSERT_EQ(Create("new.qdb", nullptr, nullptr, "template.qdb"), KVSUCCESS);
  const EngineDatabase database(Path("new.qdb"));
  EXPECT_EQ(CountNotes(database, 1), 1u);
  EXPECT_EQ(CountNotes(database, 4), 1u);
  EXPECT_EQ(CountNotes(database, 8), CountNotes(EngineDatabase(Path("template.qdb")), 8));
  EXPECT_EQ(Field(database, 0), "Template title");
  EXPECT_EQ(Field(database, 1), "Template categories");
  EXPECT_EQ(Field(database, 2), "");
  EXPECT_EQ(Field(database, 3), "");
}

TEST_F(TemplateTest, KVDatabaseCreate_Inherit_TemplateNameBecomesTheInheritedOne) {
  ASSERT_EQ(Create("new.qdb", "Own title", "Own categories", "template.qdb", 0, KVDBCREATE_INHERIT_TEMPLATE),
            KVSUCCESS);
  const EngineDatabase database(Path("new.qdb"));
  EXPECT_EQ(Field(database, 0), "Own title");
  EXPECT_EQ(Field(database, 1), "Own categories");
  EXPECT_EQ(Field(database, 2), "");
  EXPECT_EQ(Field(database, 3), "TemplateName");
  EXPECT_EQ(Field(EngineDatabase(Path("template.qdb")), 2), "TemplateName");
}

TEST_F(TemplateTest, KVDatabaseCreate_FromTemplate_EngineCallsInOrder) {
  Spy spy;
  ASSERT_EQ(Create("new.qdb", nullptr, nullptr, "template.qdb"), KVSUCCESS);
  EXPECT_EQ(spy.Find("EngTimeSpecial")->words[0], 2u);
  EXPECT_EQ(spy.Find("EngDbCopy")->words[3], 0x7fffu);
  EXPECT_EQ(spy.Find("EngDbCopyTemplateAcl")->words[2], 3u);
  EXPECT_EQ(spy.Count("EngDbOpen"), 2u);
  EXPECT_EQ(spy.Count("EngDbClose"), 2u);
  EXPECT_EQ(spy.Count("EngAclNew"), 0u);
  EXPECT_EQ(spy.Count("EngDbDelete"), 0u);
}

TEST_F(TemplateTest, KVDatabaseCreate_NoSuchTemplate_NotFoundAndNothingCreated) {
  EXPECT_EQ(Create("new.qdb", nullptr, nullptr, "none.qdb"), KVFAIL_NOT_FOUND);
  EXPECT_FALSE(Exists("new.qdb"));
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbOpen");
  EXPECT_EQ(Create("new.qdb", nullptr, nullptr, "template.qdb"), kEngineFailure);
  EXPECT_FALSE(Exists("new.qdb"));
}

TEST_F(TemplateTest, KVDatabaseCreate_EmptyTemplatePath_IsNone) {
  EXPECT_EQ(KVDatabaseCreate("", Path("new.qdb").c_str(), "", "", "", "", 0, 0), KVSUCCESS);
  EXPECT_EQ(CountNotes(EngineDatabase(Path("new.qdb")), 1), 0u);
}

TEST_F(TemplateTest, KVDatabaseCreate_TextsOfTheTemplate_CountWhereTheyAreTaken) {
  SetField(Path("template.qdb"), 0, std::string(50, 't'));
  SetField(Path("template.qdb"), 1, std::string(30, 'c'));
  SetField(Path("template.qdb"), 2, std::string(40, 'n'));
  const struct {
    size_t title_bytes, category_bytes;
    uint32_t dbcreate_flags;
    bool fits;
  } rows[] = {{0, 0, 0, true},   {0, 0, 1, true},   {57, 0, 1, true},  {58, 0, 1, false},
              {97, 0, 0, true},  {98, 0, 0, false}, {0, 77, 0, true},  {0, 78, 0, false},
              {87, 0, 1, false}, {40, 47, 1, true}, {40, 48, 1, false}};
  for (const auto& row : rows) {
    const uint32_t status = Create("fits.qdb", std::string(row.title_bytes, 'T').c_str(),
                                   std::string(row.category_bytes, 'C').c_str(), "template.qdb", 0,
                                   row.dbcreate_flags | KVDBCREATE_OVERWRITE);
    EXPECT_EQ(status, row.fits ? KVSUCCESS : KVFAIL_DATA_TOO_LONG)
        << row.title_bytes << " " << row.category_bytes;
  }
}

TEST_F(TemplateTest, KVDatabaseCreate_CopyingFails_NewDatabaseIsDeleted) {
  for (const char* call : {"EngTimeSpecial", "EngDbCopy", "EngDbCopyTemplateAcl", "EngDbInfoSet"}) {
    Fault fault = Fault::EngineCall(1, kEngineFailure, call);
    EXPECT_EQ(Create("new.qdb", nullptr, nullptr, "template.qdb"), kEngineFailure) << call;
    EXPECT_TRUE(fault.Hit()) << call;
    EXPECT_EQ(kit::LastError().status, kEngineFailure);
    EXPECT_FALSE(Exists("new.qdb")) << call;
  }
  EXPECT_TRUE(Exists("template.qdb"));
}

TEST_F(TemplateTest, KVDatabaseCreate_TemplateOnLocalServer_OpensByPlainPath) {
  ASSERT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, "Here"), KVSUCCESS);
  Spy spy;
  EXPECT_EQ(KVDatabaseCreate("HERE", Path("new.qdb").c_str(), nullptr, nullptr, "here",
                             Path("template.qdb").c_str(), 0, 0),
            KVSUCCESS);
  EXPECT_EQ(spy.Count("EngNetPathBuild"), 0u);
  EXPECT_NE(KVDatabaseCreate("There", "new.qdb", nullptr, nullptr, nullptr, nullptr, 0, 0), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngNetPathBuild"), 1u);
}

TEST_F(AdminTest, KVDatabaseCreate_TemplatePathThatCannotBeBuilt_EmptyPathAndEngineStatus) {
  constexpr uint16_t kDirectory = 0x10c;  // which the empty path names, and it is no template
  const std::string long_path(3000, 'x');
  Spy spy;
  EXPECT_EQ(
      KVDatabaseCreate(nullptr, Path("new.qdb").c_str(), nullptr, nullptr, "There", long_path.c_str(), 0, 0),
      kDirectory);
  EXPECT_EQ(spy.Find("EngDbOpen")->texts[0], "");
  EXPECT_FALSE(Exists("new.qdb"));
}

// Each engine call of a create fails in turn: the status is the engine's, and no file is left; or the call is
// one whose failure means nothing here, and the database is whole.
TEST_F(AdminTest, KVDatabaseCreate_AnyEngineCallFails_NothingIsLeftBehind) {
  bool hit = true;
  for (uint32_t nth = 1; hit; ++nth) {
    Fault fault = Fault::EngineCall(nth, kEngineFailure);
    const uint32_t status = Create("new.qdb", "title");
    hit = fault.Hit();
    const std::string name = fault.hit_name();
    fault.Disarm();
    EXPECT_EQ(Exists("new.qdb"), status == KVSUCCESS) << nth << " " << name;
    if (status != KVSUCCESS) {
      EXPECT_EQ(status, kEngineFailure) << name;
    }
    if (status == KVSUCCESS) {
      EXPECT_EQ(KVDatabaseDelete(nullptr, Path("new.qdb").c_str()), KVSUCCESS);
    }
  }
}

TEST_F(AdminTest, KVDatabaseCreate_AnyAllocationFails_NothingIsLeftBehind) {
  const std::string path = Path("new.qdb");
  bool hit = true;
  for (uint32_t nth = 1; hit; ++nth) {
    Fault fault = Fault::Allocation(nth);
    const uint32_t status = KVDatabaseCreate(nullptr, path.c_str(), "title", nullptr, nullptr, nullptr, 0, 0);
    hit = fault.Hit();
    fault.Disarm();
    EXPECT_EQ(Exists("new.qdb"), status == KVSUCCESS) << nth;
    if (status == KVSUCCESS) {
      EXPECT_EQ(KVDatabaseDelete(nullptr, Path("new.qdb").c_str()), KVSUCCESS);
    }
  }
}

TEST_F(AdminTest, KVDatabaseCreate_NoAccessControlList_EngineStatusAndNothingLeft) {
  ASSERT_EQ(Create("template.qdb"), KVSUCCESS);
  {
    Fault fault = Fault::EngineCall(1, kNotAvailable, "EngAclNew");
    EXPECT_EQ(Create("new.qdb"), kNotAvailable);
  }
  EXPECT_FALSE(Exists("new.qdb"));
  {
    Fault fault = Fault::EngineCall(1, kNotAvailable, "EngDbCopyTemplateAcl");
    EXPECT_EQ(Create("new.qdb", nullptr, nullptr, "template.qdb"), kNotAvailable);
  }
  EXPECT_FALSE(Exists("new.qdb"));
}

// ---- Delete

TEST_F(AdminTest, KVDatabaseDelete_ChecksAndStatuses) {
  EXPECT_EQ(KVDatabaseDelete(nullptr, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatabaseDelete(nullptr, ""), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatabaseDelete("", Path("none.qdb").c_str()), KVFAIL_NO_DATABASE);
  ASSERT_EQ(Create("new.qdb"), KVSUCCESS);
  {
    Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbDelete");
    EXPECT_EQ(KVDatabaseDelete("", Path("new.qdb").c_str()), kEngineFailure);
  }
  EXPECT_TRUE(Exists("new.qdb"));
  EXPECT_EQ(KVDatabaseDelete("", Path("new.qdb").c_str()), KVSUCCESS);
  EXPECT_FALSE(Exists("new.qdb"));
}

TEST_F(AdminTest, KVDatabaseDelete_Servers_LocalNameTakesThePlainPath) {
  ASSERT_EQ(Create("new.qdb"), KVSUCCESS);
  ASSERT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, "Here"), KVSUCCESS);
  Spy spy;
  EXPECT_NE(KVDatabaseDelete("There", "new.qdb"), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngNetPathBuild"), 1u);
  EXPECT_TRUE(Exists("new.qdb"));
  EXPECT_EQ(KVDatabaseDelete("hERE", Path("new.qdb").c_str()), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngNetPathBuild"), 1u);
}

TEST_F(AdminTest, KVDatabaseDelete_PathThatCannotBeBuilt_StatusAndNothingDeleted) {
  Spy spy;
  EXPECT_NE(KVDatabaseDelete("Server", std::string(3000, 'x').c_str()), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngDbDelete"), 0u);
}

// ---- Copy

class CopyTest : public AdminTest {
 protected:
  void SetUp() override {
    AdminTest::SetUp();
    ASSERT_EQ(Create("source.qdb", "Source title", "Source categories"), KVSUCCESS);
    SetField(Path("source.qdb"), 2, "Name");
    SetField(Path("source.qdb"), 3, "Inherited");
    const EngineDatabase database(Path("source.qdb"));
    AddNote(database, 1, "one");
    AddNote(database, 1, "two");
    AddNote(database, 4, "form");
  }
};

TEST_F(CopyTest, KVDatabaseCopy_ChecksInOrder) {
  Spy spy;
  EXPECT_EQ(KVDatabaseCopy(nullptr, nullptr, nullptr, "x", nullptr, 0, 0, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatabaseCopy(nullptr, "", nullptr, "x", nullptr, 0, 0, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatabaseCopy(nullptr, "x", nullptr, nullptr, nullptr, 0, 0, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatabaseCopy(nullptr, "x", nullptr, "", nullptr, 0, 0, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(spy.Count("EngDbOpen"), 0u);
  EXPECT_EQ(Copy("none.qdb", "copy.qdb"), KVFAIL_NO_DATABASE);
  EXPECT_FALSE(Exists("copy.qdb"));
}

TEST_F(CopyTest, KVDatabaseCopy_AllClasses_EverythingButTheTexts) {
  Spy spy;
  ASSERT_EQ(Copy("source.qdb", "copy.qdb"), KVSUCCESS);
  EXPECT_EQ(spy.Find("EngTimeSpecial")->words[0], 2u);
  EXPECT_EQ(spy.Find("EngDbCopy")->words[3], 0x7fffu);
  const std::vector<uint64_t>& create = spy.Find("EngDbCreate")->words;
  EXPECT_EQ(std::vector<uint64_t>(create.begin() + 1, create.end()),
            (std::vector<uint64_t>{0xff01, 1, 0, 0, 1}));
  EXPECT_EQ(spy.Count("EngDbClose"), 2u);
  const EngineDatabase copy(Path("copy.qdb"));
  EXPECT_EQ(CountNotes(copy, 1), 2u);
  EXPECT_EQ(CountNotes(copy, 4), 1u);
  // The word 0 has no bit for views, so the new database gets its own view besides those of the source.
  EXPECT_EQ(CountNotes(copy, 8), CountNotes(EngineDatabase(Path("source.qdb")), 8) + 1);
  EXPECT_EQ(Field(copy, 2), "");
}

TEST_F(CopyTest, KVDatabaseCopy_WithoutViews_NewDatabaseGetsADefaultView) {
  ASSERT_EQ(Copy("source.qdb", "data.qdb", 0, 1), KVSUCCESS);
  const EngineDatabase data(Path("data.qdb"));
  EXPECT_EQ(CountNotes(data, 1), 2u);
  EXPECT_EQ(CountNotes(data, 4), 0u);
  EXPECT_NE(DefaultView(data), 0u);
}

TEST_F(CopyTest, KVDatabaseCopy_WithViews_NewDatabaseGetsNoFurtherView) {
  ASSERT_EQ(Copy("source.qdb", "all.qdb", 0, 0x7fff), KVSUCCESS);
  EXPECT_EQ(CountNotes(EngineDatabase(Path("all.qdb")), 8),
            CountNotes(EngineDatabase(Path("source.qdb")), 8));
}

TEST_F(CopyTest, KVDatabaseCopy_SinceTime_AskedForOnceTheDestinationStands) {
  Spy spy;
  ASSERT_EQ(Copy("source.qdb", "copy.qdb"), KVSUCCESS);
  const std::vector<std::string> names = spy.Names();
  const auto place = [&](const char* name) { return std::find(names.begin(), names.end(), name); };
  EXPECT_LT(place("EngDbCreate"), place("EngTimeSpecial"));
  EXPECT_LT(place("EngDbAclStore"), place("EngTimeSpecial"));
  EXPECT_EQ(place("EngTimeSpecial") + 1, place("EngDbCopy"));
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngTimeSpecial");
  EXPECT_EQ(Copy("source.qdb", "other.qdb"), kEngineFailure);
  EXPECT_FALSE(Exists("other.qdb"));
}

TEST_F(CopyTest, KVDatabaseCopy_ClassMask_IsCutTo16Bits) {
  Spy spy;
  ASSERT_EQ(Copy("source.qdb", "one.qdb", 0, 0x10004), KVSUCCESS);
  EXPECT_EQ(spy.Find("EngDbCopy", 0)->words[3], 4u);
  ASSERT_EQ(Copy("source.qdb", "other.qdb", 0, 0x10000), KVSUCCESS);
  EXPECT_EQ(spy.Find("EngDbCopy", 1)->words[3], 0x7fffu);
}

TEST_F(CopyTest, KVDatabaseCopy_IntoExisting_AddsAndCreatesNothing) {
  ASSERT_EQ(Create("existing.qdb", "Own title"), KVSUCCESS);
  AddNote(EngineDatabase(Path("existing.qdb")), 1, "own");
  Spy spy;
  ASSERT_EQ(Copy("source.qdb", "existing.qdb", 0, 1), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngDbCreate"), 0u);
  EXPECT_EQ(spy.Count("EngAclNew"), 0u);
  EXPECT_EQ(spy.Count("EngNoteCreate"), 0u);
  const EngineDatabase existing(Path("existing.qdb"));
  EXPECT_EQ(CountNotes(existing, 1), 3u);
  EXPECT_EQ(Field(existing, 0), "Own title");
}

TEST_F(CopyTest, KVDatabaseCopy_IntoExistingFails_DeletesNothing) {
  ASSERT_EQ(Create("existing.qdb"), KVSUCCESS);
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbCopy");
  EXPECT_EQ(Copy("source.qdb", "existing.qdb"), kEngineFailure);
  EXPECT_TRUE(fault.Hit());
  EXPECT_TRUE(Exists("existing.qdb"));
}

TEST_F(CopyTest, KVDatabaseCopy_IntoNewFails_DeletesTheNewFile) {
  const struct {
    const char* call;
    uint32_t dbcopy_flags;
  } calls[] = {{"EngDbCopy", 0},
               {"EngDbInfoSet", KVDBCOPY_KEEP_INFO},
               {"EngItemTextSet", KVDBCOPY_KEEP_INFO},
               {"EngDbCopyAcl", KVDBCOPY_ACL},
               {"EngDbReplicaInfoGet", KVDBCOPY_REPLICA},
               {"EngDbReplicaInfoSet", KVDBCOPY_REPLICA}};
  for (const auto& row : calls) {
    Fault fault = Fault::EngineCall(1, kEngineFailure, row.call);
    EXPECT_EQ(Copy("source.qdb", "copy.qdb", row.dbcopy_flags), kEngineFailure) << row.call;
    EXPECT_TRUE(fault.Hit()) << row.call;
    EXPECT_FALSE(Exists("copy.qdb")) << row.call;
  }
}

TEST_F(CopyTest, KVDatabaseCopy_DestinationCannotBeOpened_ItsStatusAndNothingCreated) {
  Spy spy;
  Fault fault = Fault::EngineCall(2, kEngineFailure, "EngDbOpen");
  EXPECT_EQ(Copy("source.qdb", "copy.qdb"), kEngineFailure);
  EXPECT_EQ(spy.Count("EngDbCreate"), 0u);
  EXPECT_EQ(spy.Count("EngDbClose"), 1u);
}

TEST_F(CopyTest, KVDatabaseCopy_KeepInfo_TakesAllFieldsAndTheNewTitle) {
  ASSERT_EQ(Copy("source.qdb", "copy.qdb", KVDBCOPY_KEEP_INFO, 0, "New title"), KVSUCCESS);
  {
    const EngineDatabase copy(Path("copy.qdb"));
    EXPECT_EQ(Field(copy, 0), "New title");
    EXPECT_EQ(Field(copy, 1), "Source categories");
    EXPECT_EQ(Field(copy, 2), "Name");
    EXPECT_EQ(Field(copy, 3), "Inherited");
  }
  ASSERT_EQ(Copy("source.qdb", "same.qdb", KVDBCOPY_KEEP_INFO), KVSUCCESS);
  EXPECT_EQ(Field(EngineDatabase(Path("same.qdb")), 0), "Source title");
  ASSERT_EQ(Copy("source.qdb", "plain.qdb", 0, 0, "Ignored"), KVSUCCESS);
  EXPECT_NE(Field(EngineDatabase(Path("plain.qdb")), 0), "Ignored");
}

TEST_F(CopyTest, KVDatabaseCopy_TitleLength_AtTheLimitOf127) {
  const std::string fits(127, 't');
  const std::string too_long(128, 't');
  EXPECT_EQ(Copy("source.qdb", "one.qdb", KVDBCOPY_KEEP_INFO, 0, fits.c_str()), KVSUCCESS);
  EXPECT_EQ(Copy("source.qdb", "two.qdb", KVDBCOPY_KEEP_INFO, 0, too_long.c_str()), KVFAIL_DATA_TOO_LONG);
  EXPECT_FALSE(Exists("two.qdb"));
  EXPECT_EQ(Copy("source.qdb", "three.qdb", 0, 0, too_long.c_str()), KVSUCCESS);
}

TEST_F(CopyTest, KVDatabaseCopy_Acl_EmptyForANewDatabaseUnlessItIsCopied) {
  {
    Spy spy;
    ASSERT_EQ(Copy("source.qdb", "empty.qdb"), KVSUCCESS);
    EXPECT_EQ(spy.Count("EngAclNew"), 1u);
    EXPECT_EQ(spy.Count("EngDbCopyAcl"), 0u);
  }
  Spy spy;
  Copy("source.qdb", "copied.qdb", KVDBCOPY_ACL);
  EXPECT_EQ(spy.Count("EngAclNew"), 0u);
  EXPECT_EQ(spy.Count("EngDbCopyAcl"), 1u);
}

TEST_F(CopyTest, KVDatabaseCopy_Replica_HasTheSourcesReplicaInfo) {
  DBREPLICAINFO source{};
  DBREPLICAINFO copy{};
  ASSERT_EQ(EngDbReplicaInfoGet(EngineDatabase(Path("source.qdb")), &source), 0);
  ASSERT_EQ(Copy("source.qdb", "replica.qdb", KVDBCOPY_REPLICA), KVSUCCESS);
  ASSERT_EQ(EngDbReplicaInfoGet(EngineDatabase(Path("replica.qdb")), &copy), 0);
  EXPECT_EQ(memcmp(&source, &copy, sizeof copy), 0);
  ASSERT_EQ(Copy("source.qdb", "plain.qdb"), KVSUCCESS);
  ASSERT_EQ(EngDbReplicaInfoGet(EngineDatabase(Path("plain.qdb")), &copy), 0);
  EXPECT_NE(memcmp(&source.ID, &copy.ID, sizeof copy.ID), 0);
}

TEST_F(CopyTest, KVDatabaseCopy_Begin_TakesOnlyLaterChanges) {
  TIMEDATE future;
  ASSERT_EQ(EngTimeSpecial(1, &future), 0);
  char bytes[sizeof(KVDATETIME) + 1];
  memcpy(bytes + 1, &future, sizeof future);
  Spy spy;
  ASSERT_EQ(Copy("source.qdb", "later.qdb", 0, 1, nullptr, reinterpret_cast<const KVDATETIME*>(bytes + 1)),
            KVSUCCESS);
  EXPECT_EQ(spy.Count("EngTimeSpecial"), 0u);
  EXPECT_EQ(CountNotes(EngineDatabase(Path("later.qdb")), 1), 0u);
}

TEST_F(CopyTest, KVDatabaseCopy_AnyEngineCallFails_NothingIsLeftBehind) {
  bool hit = true;
  for (uint32_t nth = 1; hit; ++nth) {
    Fault fault = Fault::EngineCall(nth, kEngineFailure);
    const uint32_t status = Copy("source.qdb", "copy.qdb", KVDBCOPY_KEEP_INFO | KVDBCOPY_REPLICA, 1, "title");
    hit = fault.Hit();
    const std::string name = fault.hit_name();
    fault.Disarm();
    EXPECT_EQ(Exists("copy.qdb"), status == KVSUCCESS) << nth << " " << name;
    if (status == KVSUCCESS) {
      EXPECT_EQ(KVDatabaseDelete(nullptr, Path("copy.qdb").c_str()), KVSUCCESS);
    }
    EXPECT_TRUE(Exists("source.qdb"));
  }
}

// ---- Compact

TEST_F(AdminTest, KVDatabaseCompact_ChecksInOrder) {
  uint32_t before = kUntouched;
  uint32_t after = kUntouched;
  EXPECT_EQ(KVDatabaseCompact("There", nullptr, &before, &after), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatabaseCompact("There", "", &before, &after), KVFAIL_NULL_PARAM);
  EXPECT_EQ(before, kUntouched);
  EXPECT_EQ(KVDatabaseCompact("There", "x.qdb", &before, &after), KVFAIL_LOCAL_ONLY);
  EXPECT_EQ(before, 0u);
  EXPECT_EQ(after, 0u);
  EXPECT_EQ(KVDatabaseCompact(nullptr, Path("none.qdb").c_str(), nullptr, nullptr), KVFAIL_NO_DATABASE);
}

TEST_F(AdminTest, KVDatabaseCompact_Servers_OnlyTheLocalOne) {
  ASSERT_EQ(Create("new.qdb"), KVSUCCESS);
  EXPECT_EQ(KVDatabaseCompact("Here", Path("new.qdb").c_str(), nullptr, nullptr), KVFAIL_LOCAL_ONLY);
  EXPECT_EQ(kit::LastError().severity, KVSEV_NONE);
  ASSERT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, "Here"), KVSUCCESS);
  EXPECT_EQ(KVDatabaseCompact("Her", Path("new.qdb").c_str(), nullptr, nullptr), KVFAIL_LOCAL_ONLY);
  EXPECT_EQ(KVDatabaseCompact("Here2", Path("new.qdb").c_str(), nullptr, nullptr), KVFAIL_LOCAL_ONLY);
  EXPECT_EQ(KVDatabaseCompact("HERE", Path("new.qdb").c_str(), nullptr, nullptr), KVSUCCESS);
  EXPECT_EQ(KVDatabaseCompact("", Path("new.qdb").c_str(), nullptr, nullptr), KVSUCCESS);
}

TEST_F(AdminTest, KVDatabaseCompact_DeletedRecords_SizesTellWhatWasGained) {
  ASSERT_EQ(Create("new.qdb"), KVSUCCESS);
  {
    const EngineDatabase database(Path("new.qdb"));
    const std::string text(8000, 'x');
    std::vector<uint32_t> ids;
    for (int count = 0; count < 60; ++count) {
      EngNote note = 0;
      uint32_t id = 0;
      ASSERT_EQ(EngNoteCreate(database, &note), 0);
      ASSERT_EQ(EngItemTextSet(note, "Body", text.c_str(), 0xffff), 0);
      ASSERT_EQ(EngNoteUpdate(note, 4), 0);
      ASSERT_EQ(EngNoteInfoGet(note, 1, &id), 0);
      ASSERT_EQ(EngNoteClose(note), 0);
      ids.push_back(id);
    }
    for (uint32_t id : ids) ASSERT_EQ(EngNoteDelete(database, id, 4), 0);
  }
  char bytes[9];
  ASSERT_EQ(KVDatabaseCompact(nullptr, Path("new.qdb").c_str(), reinterpret_cast<uint32_t*>(bytes + 1),
                              reinterpret_cast<uint32_t*>(bytes + 5)),
            KVSUCCESS);
  EXPECT_GT(KVILoad<uint32_t>(bytes + 1), KVILoad<uint32_t>(bytes + 5));
  EXPECT_GT(KVILoad<uint32_t>(bytes + 5), 0u);
}

TEST_F(AdminTest, KVDatabaseCompact_EngineFails_ItsStatusAndSizesZero) {
  uint32_t before = kUntouched;
  uint32_t after = kUntouched;
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbCompact");
  EXPECT_EQ(KVDatabaseCompact(nullptr, "x.qdb", &before, &after), kEngineFailure);
  EXPECT_EQ(before, 0u);
  EXPECT_EQ(after, 0u);
}

// ---- No session

TEST_F(AdminTest, AdminFunctions_NoSession_ThreadNotInitialized) {
  kit::InThread([&] {
    EXPECT_EQ(KVDatabaseCreate(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0),
              KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVDatabaseDelete(nullptr, nullptr), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVDatabaseCopy(nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0, nullptr),
              KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVDatabaseCompact(nullptr, nullptr, nullptr, nullptr), KVFAIL_THREAD_NOT_INITIALIZED);
  });
}

// ---- The default view

TEST_F(AdminTest, KVIDbCreateDefaultView_NewView_IsComplete) {
  const EngineDatabase database(MakeDatabase("bare.qdb"));
  ASSERT_EQ(DefaultView(database), 0u);
  ASSERT_EQ(KVIDbCreateDefaultView(database), 0);
  const uint32_t id = DefaultView(database);
  ASSERT_NE(id, 0u);
  EngNote view = 0;
  ASSERT_EQ(EngNoteOpen(database, id, 0, &view), 0);
  uint16_t note_class = 0;
  EXPECT_EQ(EngNoteInfoGet(view, kMemberClass, &note_class), 0);
  EXPECT_EQ(note_class, 0x8008);
  char text[16] = {};
  EXPECT_EQ(EngItemTextGet(view, "$FormulaClass", text, 15), 1);
  EXPECT_STREQ(text, "1");
  BLOCKID item;
  BLOCKID value;
  uint16_t type = 0;
  uint32_t value_bytes = 0;
  EXPECT_EQ(EngItemInfo(view, "$TITLE", 6, &item, &type, &value, &value_bytes), 0);
  EXPECT_EQ(type, BRTYPE_TEXT);
  EXPECT_EQ(value_bytes, 2u);
  ASSERT_EQ(EngItemInfo(view, "$Formula", 8, &item, &type, &value, &value_bytes), 0);
  EXPECT_EQ(type, BRTYPE_FORMULA);
  char name[16];
  uint16_t name_bytes = 0;
  uint16_t flags = 0;
  EXPECT_EQ(EngItemQuery(view, item, name, 15, &name_bytes, &flags, &type, &value, &value_bytes), 0);
  EXPECT_EQ(flags & 4, 4);
  std::string formula;
  {
    KVLocked block(value.pool, value.block);
    formula.assign(block.bytes + 2, value_bytes - 2);
  }
  EXPECT_EQ(KVILoad<uint16_t>(formula.data()), formula.size());
  EngMem source = 0;
  uint16_t source_bytes = 0;
  ASSERT_EQ(EngFormulaDecompile(formula.data(), 1, &source, &source_bytes), 0);
  {
    KVLocked block(source);
    EXPECT_EQ(std::string(block.bytes, source_bytes), "SELECT @All");
  }
  EXPECT_EQ(EngMemFree(source), 0);
  EXPECT_EQ(EngNoteClose(view), 0);
}

TEST_F(AdminTest, KVIDbCreateDefaultView_AnyEngineCallFails_ItsStatusUnreportedAndNoView) {
  const EngineDatabase database(MakeDatabase("bare.qdb"));
  for (const char* call : {"EngNoteCreate", "EngNoteInfoSet", "EngItemTextSet", "EngFormulaCompile",
                           "EngFormulaSummaryItem", "EngFormulaMerge", "EngItemAppend", "EngNoteUpdate"}) {
    Fault fault = Fault::EngineCall(1, kEngineFailure, call);
    EXPECT_EQ(KVIDbCreateDefaultView(database), kEngineFailure) << call;
    EXPECT_TRUE(fault.Hit()) << call;
    EXPECT_EQ(kit::LastError().status, KVSUCCESS);
    EXPECT_EQ(DefaultView(database), 0u);
  }
}

}  // namespace
