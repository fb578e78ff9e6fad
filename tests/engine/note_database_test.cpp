#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "engine/note_fixture.h"
#include "note/database.h"
#include "note/path.h"

using namespace brynd;

namespace {

namespace fs = std::filesystem;

class MapSettings : public SettingsStore {
 public:
  std::optional<std::string> Get(std::string_view name) override {
    const auto found = values.find(std::string(name));
    return found == values.end() ? std::nullopt : std::optional(found->second);
  }
  void Set(std::string_view name, std::string_view value) override { values[std::string(name)] = value; }
  std::map<std::string, std::string> values;
};

class DatabaseTest : public NoteFixture {
 protected:
  EngStatus OpenStatus(const char* path) {
    EngDb handle = 0;
    const EngStatus outcome = EngDbOpen(path, &handle);
    if (outcome == 0) {
      uint16_t mode = 0;
      EXPECT_EQ(0, EngDbModeGet(handle, &mode));
      mode_ = mode;
      EXPECT_EQ(0, EngDbClose(handle));
    }
    return outcome;
  }
  uint16_t mode_ = 0;
};

TEST_F(DatabaseTest, EngDbOpen_NameWithoutExtensionInAnyCase) {
  EXPECT_TRUE(fs::exists(folder_ + "/test.QDB"));
  for (const char* path :
       {"test", "TEST", "test.qdb", "Test.QDB", "./test", "sub/../test", "sub\\..\\test"}) {
    EXPECT_EQ(0, OpenStatus(path)) << path;
    EXPECT_EQ(1, mode_);
  }
  EXPECT_EQ(0, OpenStatus((folder_ + "/test").c_str()));
  EXPECT_EQ(status::kNoFile, OpenStatus("missing"));
  EXPECT_EQ(status::kNoFile, OpenStatus("no/such/folder"));
  EXPECT_EQ(status::kBadPath, OpenStatus("../test"));
  EXPECT_EQ(status::kBadPath, OpenStatus(std::string(2000, 'x').c_str()));
  EXPECT_EQ(status::kBadArgument, EngDbOpen(nullptr, &db_));
  EXPECT_EQ(status::kBadArgument, EngDbOpen("test", nullptr));
}

TEST_F(DatabaseTest, EngDbOpen_ExactNameWinsOverAnotherCase) {
  ASSERT_EQ(0, EngDbCreate("Other", 0xff05, 0, 0, 0, 0));
  ASSERT_EQ(0, EngDbDelete("other")) << "found in another case";
  EXPECT_FALSE(fs::exists(folder_ + "/Other.QDB"));
  fs::create_directories(folder_ + "/Sub");
  ASSERT_EQ(0, EngDbCreate("sub/Inner.qdb", 0, 0, 0, 0, 0));
  EXPECT_TRUE(fs::exists(folder_ + "/Sub/Inner.qdb"));
  fs::copy_file(folder_ + "/Sub/Inner.qdb", folder_ + "/Sub/INNER.QDB");
  EngDb exact = 0;
  ASSERT_EQ(0, EngDbOpen("SUB\\INNER", &exact));
  EXPECT_EQ(folder_ + "/Sub/INNER.QDB", FindDatabase(exact)->FilePath());
  EXPECT_EQ(0, EngDbClose(exact));
}

TEST_F(DatabaseTest, EngDbOpen_Directory_HandleOfModeTwoThatHoldsNoNotes) {
  fs::create_directories(folder_ + "/Mail");
  for (const char* path : {"", "Mail", "mail/", "/"}) {
    EngDb handle = 0;
    ASSERT_EQ(0, EngDbOpen(path, &handle)) << path;
    uint16_t mode = 0;
    EXPECT_EQ(0, EngDbModeGet(handle, &mode));
    EXPECT_EQ(2, mode);
    EngNote note = 0;
    TIMEDATE id{};
    EXPECT_EQ(status::kIsDirectory, EngNoteCreate(handle, &note));
    EXPECT_EQ(status::kIsDirectory, EngNoteOpen(handle, 1, 0, &note));
    EXPECT_EQ(status::kIsDirectory, EngDbIdGet(handle, &id));
    EngDb second = 0;
    EXPECT_EQ(0, EngDbReopen(handle, &second));
    EXPECT_EQ(0, EngDbClose(second));
    EXPECT_EQ(0, EngDbClose(handle));
  }
  EXPECT_EQ(status::kIsDirectory, EngDbDelete("Mail"));
  ASSERT_EQ(0, EngDbCreate("Mail", 0, 0, 0, 0, 0)) << "a file beside the folder";
  EXPECT_EQ(0, OpenStatus("Mail"));
  EXPECT_EQ(1, mode_);
  EXPECT_EQ(0, OpenStatus("Mail/"));
  EXPECT_EQ(2, mode_);
}

TEST_F(DatabaseTest, EngDbOpen_ServerFolder_ConfinedToIt) {
  MapSettings settings;
  SeamGuard seam(Process().settings, static_cast<SettingsStore*>(&settings));
  fs::create_directories(folder_ + "/far/in");
  settings.values["Server.CN=Far/O=X"] = "dir:" + folder_ + "/far";
  settings.values["Server.Later"] = "postgresql://somewhere";
  ASSERT_EQ(0, EngDbCreate("CN=Far/O=X!!in/box", 0, 0, 0, 0, 0));
  EXPECT_TRUE(fs::exists(folder_ + "/far/in/box.QDB"));
  EXPECT_EQ(0, OpenStatus("TCP!!!CN=Far/O=X!!IN\\BOX"));
  EXPECT_EQ(status::kBadPath, OpenStatus("CN=Far/O=X!!../test"));
  EXPECT_EQ(0, OpenStatus("CN=Far/O=X!!/in/box")) << "a leading separator does not leave the folder";
  EXPECT_EQ(status::kNoServer, OpenStatus("Nobody!!box"));
  EXPECT_EQ(status::kNotAvailable, OpenStatus("Later!!box"));
  fs::create_directory_symlink(folder_, folder_ + "/far/out");
  EXPECT_EQ(status::kBadPath, OpenStatus("CN=Far/O=X!!out/test")) << "a link that leads out";
}

TEST_F(DatabaseTest, EngDbCreate_ExistingFileAndOverwrite) {
  const TIMEDATE before = Owner().ReplicaInfo().ID;
  EXPECT_EQ(status::kFileExists, EngDbCreate("TEST", 0, 0, 0, 0, 0));
  ASSERT_EQ(0, EngDbCreate("fresh", 0xff03, 0, 0, 0, 0));
  EngDb fresh = 0;
  ASSERT_EQ(0, EngDbOpen("fresh", &fresh));
  uint16_t file_class = 0, build = 0;
  EXPECT_EQ(0, EngDbClassGet(fresh, &file_class));
  EXPECT_EQ(0xff03, file_class);
  EXPECT_EQ(0, EngDbClassGet(db_, &file_class));
  EXPECT_EQ(0xff01, file_class) << "class 0 is the default";
  EXPECT_EQ(0, EngDbBuildVersionGet(fresh, &build));
  EXPECT_GE(build, 136);
  const TIMEDATE replica = FindDatabase(fresh)->ReplicaInfo().ID;
  EXPECT_NE(0, std::memcmp(&before, &replica, sizeof before));
  EXPECT_NE(0, EngDbCreate("fresh", 0, 1, 0, 0, 0)) << "not while it is open";
  EXPECT_EQ(0, EngDbClose(fresh));
  EXPECT_EQ(0, EngDbCreate("fresh", 0, 1, 0, 0, 0));
  EXPECT_EQ(status::kNotAvailable, EngDbCreate("sealed", 0, 0, 1, 2, 0));
  EXPECT_FALSE(fs::exists(folder_ + "/sealed.QDB"));
  EXPECT_EQ(0, EngDbDelete("fresh"));
  EXPECT_EQ(status::kNoFile, EngDbDelete("fresh"));
}

TEST_F(DatabaseTest, EngDbOpen_FileThatIsNoDatabase_StatusAndFileUntouched) {
  std::ofstream(folder_ + "/text.QDB")
      << "this is no database, whatever its name says; it is long enough for a header.";
  EngDb handle = 0;
  EXPECT_NE(0, EngDbOpen("text", &handle));
  EXPECT_NE(0, EngDbDelete("text"));
  EXPECT_TRUE(fs::exists(folder_ + "/text.QDB"));
}

TEST_F(DatabaseTest, EngDbIdGet_SameForEveryHandleOfTheFile) {
  EngDb second = 0;
  ASSERT_EQ(0, EngDbReopen(db_, &second));
  TIMEDATE first_id{}, second_id{};
  EXPECT_EQ(0, EngDbIdGet(db_, &first_id));
  EXPECT_EQ(0, EngDbIdGet(second, &second_id));
  EXPECT_EQ(0, std::memcmp(&first_id, &second_id, sizeof first_id));
  EXPECT_EQ(0, EngDbSessionClose(second));
  EXPECT_EQ(status::kBadHandle, EngDbIdGet(second, &second_id));
  EXPECT_EQ(status::kBadHandle, EngDbClose(second));
  EXPECT_EQ(0, EngDbClose(0));
}

TEST_F(DatabaseTest, EngDbOidGenerate_FreshEachTime) {
  ORIGINATORID first{}, second{};
  ASSERT_EQ(0, EngDbOidGenerate(db_, &first));
  ASSERT_EQ(0, EngDbOidGenerate(db_, &second));
  EXPECT_EQ(1u, first.Sequence);
  EXPECT_FALSE(SameUnid(UnidOf(first), UnidOf(second)));
  EXPECT_EQ(status::kBadArgument, EngDbOidGenerate(db_, nullptr));
}

TEST_F(DatabaseTest, ReplicaInfo_SetAndReadAgain) {
  DBREPLICAINFO info = Owner().ReplicaInfo();
  info.Flags = 0xc010;
  info.CutoffInterval = 30;
  Owner().SetReplicaInfo(info);
  Reopen();
  const DBREPLICAINFO again = Owner().ReplicaInfo();
  EXPECT_EQ(0, std::memcmp(&info, &again, sizeof info));
}

TEST_F(DatabaseTest, ReadFact_EveryByteFlipped_Damaged) {
  std::vector<std::byte> record;
  Owner().Store().ReadRecord(space::kDatabase, BytesOf("replica"),
                             [&](Bytes stored) { record.assign(stored.begin(), stored.end()); });
  ASSERT_FALSE(record.empty());
  for (size_t at = 0; at < record.size(); ++at) {
    if (at >= 1 && at < 4) continue;  // not used
    std::vector<std::byte> broken = record;
    broken[at] ^= std::byte{0x10};
    store::Write write = Owner().Store().BeginWrite();
    write.PutRecord(space::kDatabase, BytesOf("replica"), broken);
    write.Commit(store::Durability::kLazy);
    EXPECT_THROW(Owner().ReplicaInfo(), Failure) << at;
  }
}

TEST_F(DatabaseTest, LoadExternal_EveryByteFlippedAndCut_DamagedOrConflict) {
  std::string value(20000, ' ');
  for (size_t i = 0; i < value.size(); ++i) value[i] = static_cast<char>((i * 7919) % 61);
  const uint32_t id = StoreText("Large", value);
  std::vector<std::byte> key, record;
  Owner().Store().ScanRecords(space::kValues, {}, std::nullopt, [&](Bytes k, Bytes v) {
    key.assign(k.begin(), k.end());
    record.assign(v.begin(), v.end());
    return false;
  });
  ASSERT_LT(record.size(), value.size()) << "packed";
  const auto put = [&](Bytes broken) {
    store::Write write = Owner().Store().BeginWrite();
    write.PutRecord(space::kValues, key, broken);
    write.Commit(store::Durability::kLazy);
  };
  char text[10];
  for (size_t at = 0; at < record.size(); at += at < 16 ? 1 : 97) {
    if (at == 2 || at == 3) continue;  // not used
    std::vector<std::byte> broken = record;
    broken[at] ^= std::byte{0x04};
    put(broken);
    const EngNote note = OpenNote(id);
    BLOCKID place{};
    EXPECT_EQ(status::kDamaged, EngItemInfo(note, "Large", 5, nullptr, nullptr, &place, nullptr)) << at;
    EXPECT_EQ(0, EngItemTextGet(note, "Large", text, 9));
    EXPECT_EQ(0, EngNoteClose(note));
    put(Bytes(record).first(at));
    const EngNote cut = OpenNote(id);
    EXPECT_EQ(status::kDamaged, EngItemInfo(cut, "Large", 5, nullptr, nullptr, &place, nullptr)) << at;
    EXPECT_EQ(0, EngNoteClose(cut));
  }
  put(record);
  const EngNote note = OpenNote(id);
  EXPECT_EQ(value, Text(note, "Large"));
  EXPECT_EQ(0, EngNoteClose(note));
}

TEST_F(DatabaseTest, RefreshNames_DamagedRecords_StatusNotACrash) {
  StoreText("A", "1");
  const uint32_t known = Owner().Names().StoredCount();
  {
    std::byte gap[2] = {std::byte{0}, static_cast<std::byte>(known + 1)};
    store::Write write = Owner().Store().BeginWrite();
    write.PutRecord(space::kNames, gap, BytesOf("gap"));
    write.Commit(store::Durability::kDurable);
  }
  EngDb second = 0;
  EXPECT_EQ(status::kDamaged, EngDbOpen("test", &second));
  {
    std::byte gap[2] = {std::byte{0}, static_cast<std::byte>(known + 1)};
    store::Write write = Owner().Store().BeginWrite();
    write.RemoveRecord(space::kNames, gap);
    write.Commit(store::Durability::kDurable);
  }
  EXPECT_EQ(0, EngDbOpen("test", &second));
  EXPECT_EQ(0, EngDbClose(second));
}

TEST_F(DatabaseTest, DatabaseWrite_Abandoned_NamesAreTakenBack) {
  const uint32_t known = Owner().Names().StoredCount();
  const NameToken token = Owner().Names().Intern("Abandoned");
  {
    DatabaseWrite write(Owner());
    EXPECT_EQ(known, write.NameId(token));
  }
  EXPECT_EQ(known, Owner().Names().StoredCount());
  EXPECT_EQ(kNotStored, Owner().Names().StoredId(token));
  const uint32_t id = StoreText("Another", "x");
  EXPECT_EQ(known, Owner().Names().StoredId(Owner().Names().Lookup("another")));
  Reopen();
  const EngNote note = OpenNote(id);
  EXPECT_EQ("x", Text(note, "ANOTHER"));
  EXPECT_EQ(0, EngNoteClose(note));
}

TEST_F(DatabaseTest, Create_OnUnwritableFolder_StatusAndNothingLeft) {
  EXPECT_NE(0, EngDbCreate("no/such/folder/db", 0, 0, 0, 0, 0));
  EXPECT_FALSE(fs::exists(folder_ + "/no"));
}

}  // namespace
