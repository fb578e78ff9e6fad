#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <set>

#include "engine/data_fixture.h"
#include "note/directory.h"
#include "note/info.h"
#include "note/summary.h"

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

class DirectoryTest : public DataFixture {
 protected:
  struct Entry {
    std::string path, type, info;
    double length = -1;
    bool has_time = false;
  };

  static std::string TextOfItem(Bytes table, std::string_view name) {
    const std::optional<Bytes> value = FindInSummary(table, name);
    EXPECT_TRUE(value.has_value());
    if (!value || value->empty()) return "";
    EXPECT_EQ(BRTYPE_TEXT, LoadU16(value->data()));
    return std::string(TextOf(value->subspan(2)));
  }

  static EngStatus KeepEntry(void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE* summary) {
    EXPECT_EQ(1, match->SERetFlags);
    const Bytes table = BytesAt(summary, match->SummaryLength);
    Entry entry{TextOfItem(table, "$Path"), TextOfItem(table, "$Type"), TextOfItem(table, "$Info")};
    const Bytes length = FindInSummary(table, "$Length").value();
    if (!length.empty()) entry.length = LoadF64(length.data() + 2);
    const Bytes time = FindInSummary(table, "$Modified").value();
    entry.has_time = time.size() == 10 && LoadU16(time.data()) == BRTYPE_TIME;
    static_cast<std::vector<Entry>*>(parameter)->push_back(entry);
    return 0;
  }
  std::vector<Entry> List(const char* path, uint16_t selector) {
    EngDb directory = 0;
    std::vector<Entry> entries;
    EXPECT_EQ(0, EngDbOpen(path, &directory));
    EXPECT_EQ(0, EngDbSearch(directory, 0, nullptr, 6, selector, nullptr, KeepEntry, &entries, nullptr));
    EXPECT_EQ(0, EngDbClose(directory));
    return entries;
  }
  std::vector<std::string> Paths(const char* path, uint16_t selector) {
    std::vector<std::string> paths;
    for (const Entry& entry : List(path, selector)) paths.push_back(entry.path);
    return paths;
  }
  void MakeDatabase(const char* path, const InfoFields& info) {
    EngDb db = 0;
    ASSERT_EQ(0, EngDbCreate(path, 0, 0, 0, 0, 0));
    ASSERT_EQ(0, EngDbOpen(path, &db));
    WriteInfo(*FindDatabase(db), BuildInfo(info));
    ASSERT_EQ(0, EngDbClose(db));
  }
  TIMEDATE ReplicaIdOf(const char* path) {
    EngDb db = 0;
    EXPECT_EQ(0, EngDbOpen(path, &db));
    const TIMEDATE id = FindDatabase(db)->ReplicaInfo().ID;
    EXPECT_EQ(0, EngDbClose(db));
    return id;
  }
  void PutFile(const std::string& name, std::string_view content) {
    SystemFiles().Replace(folder_ + "/" + name, content);
  }
  std::string Locate(EngDb directory, const TIMEDATE& id) {
    char path[256] = "untouched";
    const EngStatus outcome = EngDbLocateByReplica(directory, 0, &id, path, sizeof path);
    if (outcome != 0) {
      EXPECT_STREQ("untouched", path);
      return "<" + std::to_string(outcome) + ">";
    }
    return path;
  }
  std::set<std::string> FilesThere() {
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(folder_)) names.insert(entry.path().string());
    return names;
  }
};

using Names = std::vector<std::string>;

TEST_F(DirectoryTest, EngDbSearch_EntriesWithWhatTheyAre) {
  fs::create_directories(folder_ + "/Mail");
  MakeDatabase("plain", {"Plain title", "Cat", "", ""});
  const std::vector<Entry> entries = List("", 0);
  ASSERT_EQ((Names{"Mail", "other.QDB", "plain.QDB", "test.QDB"}), Paths("", 0));
  EXPECT_EQ("$DIR", entries[0].type);
  EXPECT_EQ(-1, entries[0].length);
  EXPECT_EQ("$NOTEFILE", entries[2].type);
  EXPECT_EQ("Plain title\nCat", entries[2].info);
  EXPECT_EQ(static_cast<double>(fs::file_size(folder_ + "/plain.QDB")), entries[2].length);
  for (const Entry& entry : entries) EXPECT_TRUE(entry.has_time) << entry.path;
}

TEST_F(DirectoryTest, EngDbSearch_ForeignAndDamagedFiles_AreNoEntries) {
  PutFile("text.QDB", "no database");
  PutFile("empty.QDB", "");
  PutFile("readme.txt", "no database");
  PutFile(".hidden", "x");
  const std::string whole = *SystemFiles().Read(folder_ + "/other.QDB");
  PutFile("half.QDB", std::string_view(whole).substr(0, whole.size() / 2));
  PutFile("head.QDB", std::string_view(whole).substr(0, 100));
  std::string spoilt = whole;
  for (size_t at = 100; at < spoilt.size(); ++at) spoilt[at] = '\xff';
  PutFile("spoilt.QDB", spoilt);
  fs::create_directories(folder_ + "/folder.QDB");
  fs::create_symlink("nowhere.QDB", folder_ + "/dangling.QDB");
  ASSERT_EQ(0, mkfifo((folder_ + "/pipe.QDB").c_str(), 0600)) << "opening it would wait for ever";
  EXPECT_EQ((Names{"folder.QDB", "other.QDB", "test.QDB"}), Paths("", 0));
  EXPECT_EQ("$DIR", List("", 0)[0].type);
}

TEST_F(DirectoryTest, EngDbSearch_NothingIsLeftBeside) {
  MakeDatabase("closed", {"T", "", "", ""});
  const std::set<std::string> before = FilesThere();
  EXPECT_EQ(3u, List("", 0).size());
  EXPECT_EQ(before, FilesThere());
}

TEST_F(DirectoryTest, EngDbSearch_PathsOpenAsTheyAre) {
  fs::create_directories(folder_ + "/Sub/Deep");
  MakeDatabase("Sub/one", {"One", "", "", ""});
  MakeDatabase("Sub/Deep/two", {"Two", "", "", ""});
  EXPECT_EQ((Names{"Sub/Deep", "Sub/one.QDB"}), Paths("Sub", 0));
  EXPECT_EQ((Names{"sub/Deep", "sub/one.QDB"}), Paths("sub/", 0)) << "as the directory was given";
  EXPECT_EQ((Names{"Sub\\Deep/two.QDB"}), Paths("Sub\\Deep", 0));
  EXPECT_EQ((Names{"Sub", "Sub/Deep", "Sub/Deep/two.QDB", "Sub/one.QDB", "other.QDB", "test.QDB"}),
            Paths("", 0x2000));
  EXPECT_EQ((Names{"Sub/Deep/two.QDB", "Sub/one.QDB", "other.QDB", "test.QDB"}), Paths("", 0x6000));
  EXPECT_EQ((Names{"other.QDB", "test.QDB"}), Paths("", 0x4000));
  const std::string absolute = folder_ + "/Sub";
  EXPECT_EQ((Names{absolute + "/Deep", absolute + "/one.QDB"}), Paths(absolute.c_str(), 0));
  for (const char* directory : {"", "Sub", "Sub\\Deep", absolute.c_str()})
    for (const std::string& path : Paths(directory, 0x6000)) {
      EngDb db = 0;
      EXPECT_EQ(0, EngDbOpen(path.c_str(), &db)) << path;
      EXPECT_EQ(0, EngDbClose(db));
    }
}

TEST_F(DirectoryTest, EngDbSearch_Selectors) {
  fs::create_directories(folder_ + "/Mail");
  MakeDatabase("template", {"T", "", "Own", ""});
  const Names all{"Mail", "other.QDB", "template.QDB", "test.QDB"};
  for (const uint16_t selector : {0, 1, 3, 4, 5, 0x8000, 0x8004})
    EXPECT_EQ(all, Paths("", selector)) << selector;
  EXPECT_EQ((Names{"Mail", "template.QDB"}), Paths("", 2));
  for (const uint16_t selector : {6, 7, 8, 9, 0xff})
    EXPECT_EQ((Names{"Mail"}), Paths("", selector)) << selector;
  EXPECT_EQ(Names{}, Paths("", 0x4007));
}

TEST_F(DirectoryTest, EngDbSearch_NamesInEngineText) {
  MakeDatabase("caf\xe9", {"T", "", "", ""});
  ASSERT_TRUE(fs::exists(folder_ + "/caf\xc3\xa9.QDB"));
  EXPECT_EQ((Names{"caf\xe9.QDB", "other.QDB", "test.QDB"}), Paths("", 0));
}

TEST_F(DirectoryTest, EngDbSearch_FlagsAndResult) {
  struct State {
    int calls = 0;
    int stop_at = 0;
  } state;
  const auto count = [](void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE* summary) -> EngStatus {
    auto* found = static_cast<State*>(parameter);
    EXPECT_EQ(nullptr, summary);
    EXPECT_EQ(0, match->SummaryLength);
    return ++found->calls == found->stop_at ? 0x123 : 0;
  };
  EXPECT_EQ(0, EngDbSearch(directory_, 0, nullptr, 4, 0, nullptr, count, &state, nullptr))
      << "without summaries";
  EXPECT_EQ(2, state.calls);
  state = {0, 1};
  TIMEDATE until{{7, 7}};
  EXPECT_EQ(0x123, EngDbSearch(directory_, 0, nullptr, 4, 0, nullptr, count, &state, &until));
  EXPECT_EQ(1, state.calls);
  EXPECT_EQ(7u, until.Innards[0]);
  EXPECT_EQ(status::kIsDirectory, EngDbSearch(directory_, 0, nullptr, 2, 1, nullptr, count, &state, nullptr));
  EXPECT_EQ(status::kBadArgument, EngDbSearch(db_, 0, nullptr, 6, 1, nullptr, count, &state, nullptr));
  EXPECT_EQ(1, state.calls);
  fs::create_directories(folder_ + "/gone");
  EngDb gone = 0;
  ASSERT_EQ(0, EngDbOpen("gone", &gone));
  fs::remove(folder_ + "/gone");
  EXPECT_EQ(status::kNoFile, EngDbSearch(gone, 0, nullptr, 6, 0, nullptr, count, &state, nullptr));
  PutFile("gone", "a file now");
  EXPECT_EQ(status::kNotDirectory, EngDbSearch(gone, 0, nullptr, 6, 0, nullptr, count, &state, nullptr));
  EXPECT_EQ(0, EngDbClose(gone));
}

// The system's files, but for folders that cannot be listed.
class FilesThatFail final : public Files {
 public:
  std::optional<std::string> Read(const std::string& path) override { return SystemFiles().Read(path); }
  void Replace(const std::string& path, std::string_view content) override {
    SystemFiles().Replace(path, content);
  }
  bool Exists(const std::string& path) override { return SystemFiles().Exists(path); }
  bool IsDirectory(const std::string& path) override { return SystemFiles().IsDirectory(path); }
  std::string CurrentDirectory() override { return SystemFiles().CurrentDirectory(); }
  std::vector<FolderEntry> List(const std::string& folder) override {
    if (--until_failure == 0) Fail(failure);
    return SystemFiles().List(folder);
  }
  void WithLockFile(const std::string& path, const std::function<void()>& body) override {
    SystemFiles().WithLockFile(path, body);
  }
  int until_failure = 0;
  EngStatus failure = status::kNoMemory;
};

TEST_F(DirectoryTest, EngDbSearch_FolderCannotBeListed_StatusOrPassedOver) {
  fs::create_directories(folder_ + "/one/two");
  FilesThatFail files;
  const SeamGuard guard(Process().files, static_cast<Files*>(&files));
  EngDb directory = 0;
  ASSERT_EQ(0, EngDbOpen("", &directory));
  const auto search = [&](int until_failure, EngStatus failure) {
    files.until_failure = until_failure;
    files.failure = failure;
    const auto take = [](void*, const SEARCH_MATCH*, const ITEM_TABLE*) -> EngStatus { return 0; };
    return EngDbSearch(directory, 0, nullptr, 6, 0x2000, nullptr, take, nullptr, nullptr);
  };
  EXPECT_EQ(0, search(0, status::kNoMemory));
  for (const int nth : {1, 2, 3}) EXPECT_EQ(status::kNoMemory, search(nth, status::kNoMemory)) << nth;
  EXPECT_EQ(status::kNoAccess, search(1, status::kNoAccess));
  EXPECT_EQ(0, search(2, status::kNoAccess)) << "one below is passed over";
  EXPECT_EQ(0, EngDbClose(directory));
}

TEST_F(DirectoryTest, List_TellsWhatEntriesAre) {
  fs::create_directories(folder_ + "/b folder");
  PutFile("c file", "12345");
  fs::create_symlink(folder_ + "/c file", folder_ + "/d link");
  fs::create_symlink(folder_ + "/nowhere", folder_ + "/e broken");
  std::string seen;
  for (const FolderEntry& entry : SystemFiles().List(folder_)) {
    if (entry.name < "b" || entry.name > "f") continue;
    seen += entry.name + (entry.is_folder ? " folder" : "") + (entry.is_file ? " file" : "") +
            (entry.is_link ? " link" : "") + (entry.is_file ? " " + std::to_string(entry.file_bytes) : "") +
            "; ";
    EXPECT_EQ(entry.is_file, entry.is_file && entry.modified_hundredths > 160000000000);
  }
  EXPECT_EQ("b folder folder; c file file 5; d link file link 5; e broken link; ", seen);
  EXPECT_THROW(SystemFiles().List(folder_ + "/c file"), Failure);
  EXPECT_THROW(SystemFiles().List(folder_ + "/nowhere"), Failure);
}

TEST_F(DirectoryTest, EngDbSearch_DepthIsBounded_LinksAreNotFollowed) {
  std::string path = folder_;
  for (int depth = 0; depth < kFolderDepthMax + 2; ++depth) path += "/d";
  fs::create_directories(path);
  fs::create_directory_symlink(folder_, folder_ + "/d/loop");
  size_t folders = 0;
  for (const Entry& entry : List("", 0x2000)) folders += entry.type == "$DIR";
  EXPECT_EQ(static_cast<size_t>(kFolderDepthMax) + 1 + 1, folders) << "one of them is the link itself";
}

TEST_F(DirectoryTest, EngDbSearch_Server_StaysInItsFolder) {
  MapSettings settings;
  settings.values["Server.Far"] = "dir:" + folder_ + "/far";
  const SeamGuard guard(Process().settings, static_cast<SettingsStore*>(&settings));
  fs::create_directories(folder_ + "/far/sub");
  MakeDatabase("Far!!one", {"One", "", "", ""});
  MakeDatabase("Far!!sub/two", {"Two", "", "", ""});
  fs::create_symlink(folder_ + "/other.QDB", folder_ + "/far/link.QDB");
  fs::create_directory_symlink(folder_, folder_ + "/far/out");
  EXPECT_EQ((Names{"one.QDB", "sub", "sub/two.QDB"}), Paths("Far!!", 0x2000)) << "paths on the server";
  EXPECT_EQ((Names{"sub/two.QDB"}), Paths("Far!!sub", 0));
}

TEST_F(DirectoryTest, EngDbLocateByReplica_InFoldersBelow) {
  fs::create_directories(folder_ + "/Sub/Deep");
  MakeDatabase("Sub/Deep/two", {"Two", "", "", ""});
  const TIMEDATE two = ReplicaIdOf("Sub/Deep/two"), test = Owner().ReplicaInfo().ID;
  EXPECT_EQ("Sub/Deep/two.QDB", Locate(directory_, two));
  EXPECT_EQ("test.QDB", Locate(directory_, test)) << "open as it is";
  EngDb below = 0;
  ASSERT_EQ(0, EngDbOpen("Sub", &below));
  EXPECT_EQ("Sub/Deep/two.QDB", Locate(below, two));
  EXPECT_EQ("<1028>", Locate(below, test));
  fs::remove_all(folder_ + "/Sub");
  EXPECT_EQ("<259>", Locate(below, two));
  EXPECT_EQ(0, EngDbClose(below));
  TIMEDATE none = test;
  none.Innards[0] ^= 1;
  EXPECT_EQ("<1028>", Locate(directory_, none));
  // Room for the path and its NUL, and one byte less.
  char path[256] = "untouched";
  EXPECT_EQ(status::kBufferTooSmall, EngDbLocateByReplica(directory_, 0, &test, path, 8));
  EXPECT_STREQ("untouched", path);
  EXPECT_EQ(0, EngDbLocateByReplica(directory_, 0, &test, path, 9));
  EXPECT_STREQ("test.QDB", path);
  EXPECT_EQ(status::kNotFound, EngDbLocateByReplica(directory_, 7, &test, path, 256))
      << "no kind of databases";
}

}  // namespace
