// The settings file: lines kept, values read back, the search for it, changes by several hands, failing
// files.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <thread>

#include "base/settings.h"
#include "brynd_init.h"

namespace brynd {
namespace {

// Files in memory; every call can be made to fail.
class MemoryFiles : public Files {
 public:
  std::optional<std::string> Read(const std::string& path) override {
    if (fail_read != 0) Fail(fail_read);
    ++reads;
    const auto found = content.find(path);
    return found == content.end() ? std::nullopt : std::optional(found->second);
  }
  void Replace(const std::string& path, std::string_view text) override {
    EXPECT_TRUE(locked);
    if (fail_replace != 0) Fail(fail_replace);
    content[path] = text;
  }
  bool Exists(const std::string& path) override { return content.contains(path); }
  bool IsDirectory(const std::string&) override { return false; }
  std::string CurrentDirectory() override { return "/here"; }
  std::vector<FolderEntry> List(const std::string&) override { return {}; }
  void WithLockFile(const std::string& path, const std::function<void()>& body) override {
    EXPECT_TRUE(path.ends_with(".lock"));
    locked = true;
    try {
      body();
    } catch (...) {
      locked = false;
      throw;
    }
    locked = false;
  }

  std::map<std::string, std::string> content;
  EngStatus fail_read = 0, fail_replace = 0;
  int reads = 0;
  bool locked = false;
};

class SetClock : public Clock {
 public:
  int64_t UnixNanoseconds() override { return 0; }
  uint64_t MonotonicNanoseconds() override { return now; }
  void SleepMilliseconds(uint32_t) override {}
  uint64_t now = 1'000'000'000'000;
};

class SetEnvironment : public Environment {
 public:
  std::optional<std::string> Variable(const char* name) override {
    const auto found = values.find(name);
    return found == values.end() ? std::nullopt : std::optional(found->second);
  }
  std::map<std::string, std::string> values;
};

template <class Body>
EngStatus StatusOf(Body&& body) {
  try {
    body();
  } catch (const Failure& failure) {
    return failure.status();
  }
  return status::kOk;
}

constexpr std::string_view kExample =
    "; the settings of this computer\n"
    "Directory = data\n"
    "\n"
    "  userNAME=  Jo Doe/Acme  \n"
    "[section]\n"
    "no sign here\n"
    "Quoted = \"  kept  \"\n"
    "Directory = second, does not count\n"
    "Empty =\n"
    "; Ports = 1\n"
    "Semicolon = a;b=c";

TEST(SettingsTextTest, Get_Example_ValuesOfItsLines) {
  const SettingsText text(kExample);
  EXPECT_EQ(text.Get("directory"), "data");
  EXPECT_EQ(text.Get("UserName"), "Jo Doe/Acme");
  EXPECT_EQ(text.Get("quoted"), "  kept  ");
  EXPECT_EQ(text.Get("Empty"), "");
  EXPECT_EQ(text.Get("Semicolon"), "a;b=c");
  for (const char* name : {"Ports", "[section]", "no sign here", "", "Direct"})
    EXPECT_EQ(text.Get(name), std::nullopt);
  EXPECT_EQ(text.Text(), kExample);
}

TEST(SettingsTextTest, Set_OneName_OtherLinesStayByteForByte) {
  SettingsText text(kExample);
  text.Set("USERNAME", "Max");
  std::string expected(kExample);
  expected.replace(expected.find("  userNAME=  Jo Doe/Acme  "), 26, "  userNAME= Max");
  EXPECT_EQ(text.Text(), expected);
  text.Set("New", "value");
  EXPECT_EQ(text.Text(), expected + "\nNew = value\n");
  text.Set("New", std::nullopt);
  EXPECT_EQ(text.Text(), expected + "\n");
}

TEST(SettingsTextTest, Set_FileWithCarriageReturns_KeepsThem) {
  SettingsText text("A = 1\r\nB = 2\r\n");
  text.Set("A", "3");
  text.Set("C", "4");
  EXPECT_EQ(text.Text(), "A = 3\r\nB = 2\r\nC = 4\r\n");
}

TEST(SettingsTextTest, Get_ByteOrderMarkInFront_FirstLineIsFound) {
  SettingsText text(
      "\xef\xbb\xbf"
      "A = 1\nB = 2\n");
  EXPECT_EQ(text.Get("A"), "1");
  text.Set("A", "9");
  EXPECT_EQ(text.Get("A"), "9");
  EXPECT_TRUE(text.Text().starts_with("\xef\xbb\xbf"));
}

TEST(SettingsTextTest, Set_ValuesThatLookLikeMarks_ReadBackByteForByte) {
  for (const std::string value : {"", " ", " a ", "\"", "\"\"", "\"a\"", "\"a", "a\"", ";a", "=", "a=b", "\t",
                                  "\xc3\xa4", "[x]", "\" \""}) {
    SettingsText text(kExample);
    text.Set("Name", value);
    EXPECT_EQ(text.Get("Name"), value);
    EXPECT_EQ(SettingsText(text.Text()).Get("Name"), value);
  }
}

TEST(SettingsTextTest, Set_AroundTheLimits_TakenOrTooLong) {
  for (const size_t extra : {0u, 1u}) {
    SettingsText text;
    const EngStatus expected = extra == 0 ? status::kOk : status::kSettingTooLong;
    EXPECT_EQ(StatusOf([&] { text.Set(std::string(kSettingNameBytesMax + extra, 'n'), "v"); }), expected);
    EXPECT_EQ(StatusOf([&] { text.Set("n", std::string(kSettingValueBytesMax + extra, 'v')); }), expected);
  }
  EXPECT_EQ(StatusOf([] { SettingsText(std::string(kSettingsFileBytesMax, ' ')); }), status::kOk);
  EXPECT_EQ(StatusOf([] { SettingsText(std::string(kSettingsFileBytesMax + 1, ' ')); }),
            status::kBadSettings);
  EXPECT_EQ(StatusOf([] { SettingsText(std::string_view("a\0b", 3)); }), status::kBadSettings);
}

TEST(SettingsTextTest, Set_NamesAndValuesNoLineCanHold_RefusedAndTextAsBefore) {
  SettingsText text(kExample);
  for (const char* name : {"", "a=b", ";a", "[a", " a", "a ", "a\nb", "a\rb"})
    EXPECT_EQ(StatusOf([&] { text.Set(name, "v"); }), status::kSettingTooLong) << name;
  for (const std::string_view value :
       {std::string_view("a\nb"), std::string_view("\r"), std::string_view("a\0b", 3)})
    EXPECT_EQ(StatusOf([&] { text.Set("name", value); }), status::kSettingTooLong);
  EXPECT_EQ(text.Text(), kExample);
}

class SettingsFileTest : public testing::Test {
 protected:
  void SetUp() override { files.content["/etc/x.ini"] = kExample; }
  MemoryFiles files;
  SetClock clock;
};

TEST_F(SettingsFileTest, Constructor_NoFile_NoSettingsFile) {
  EXPECT_EQ(StatusOf([&] { SettingsFile file(files, clock, "/none"); }), status::kNoSettingsFile);
}

TEST_F(SettingsFileTest, Get_WithinAndAfterASecond_ChangeByOthersIsSeenThen) {
  SettingsFile file(files, clock, "/etc/x.ini");
  files.content["/etc/x.ini"] = "Directory = other\n";
  clock.now += kSettingsFreshNanoseconds - 1;
  EXPECT_EQ(file.Get("Directory"), "data");
  EXPECT_EQ(files.reads, 1);
  clock.now += 1;
  EXPECT_EQ(file.Get("Directory"), "other");
  EXPECT_EQ(files.reads, 2);
  files.content.erase("/etc/x.ini");
  clock.now += kSettingsFreshNanoseconds;
  EXPECT_EQ(file.Get("Directory"), "other");
}

TEST_F(SettingsFileTest, Set_FileChangedByOthers_BothChangesStay) {
  SettingsFile file(files, clock, "/etc/x.ini"), other(files, clock, "/etc/x.ini");
  file.Set("One", "1");
  other.Set("Two", "2");
  EXPECT_EQ(files.content["/etc/x.ini"], std::string(kExample) + "\nOne = 1\nTwo = 2\n");
  EXPECT_EQ(other.Get("One"), "1");
}

TEST_F(SettingsFileTest, Set_AnyStepFails_StatusAndNothingChanged) {
  SettingsFile file(files, clock, "/etc/x.ini");
  files.fail_replace = status::kDiskFull;
  EXPECT_EQ(StatusOf([&] { file.Set("Directory", "x"); }), status::kDiskFull);
  files.fail_replace = 0;
  files.fail_read = status::kNoAccess;
  EXPECT_EQ(StatusOf([&] { file.Set("Directory", "x"); }), status::kNoAccess);
  files.fail_read = 0;
  EXPECT_EQ(StatusOf([&] { file.Set("a=b", "x"); }), status::kSettingTooLong);
  EXPECT_EQ(file.Get("Directory"), "data");
  EXPECT_EQ(files.content["/etc/x.ini"], kExample);
  EXPECT_FALSE(files.locked);
}

TEST_F(SettingsFileTest, Remove_Name_AllItsLinesGo) {
  SettingsFile file(files, clock, "/etc/x.ini");
  file.Remove("Directory");
  EXPECT_EQ(file.Get("Directory"), std::nullopt);
}

class SettingsStartTest : public testing::Test {
 protected:
  void TearDown() override {
    while (Process().Started()) EngTerm();
  }
  MemoryFiles files;
  SetEnvironment environment;
  SeamGuard<Files> files_guard{Process().files, &files};
  SeamGuard<Environment> environment_guard{Process().environment, &environment};
};

TEST_F(SettingsStartTest, FindSettingsFile_EveryPlace_InTheDocumentedOrder) {
  environment.values = {{"XDG_CONFIG_HOME", "/xdg"}, {"HOME", "/users/jo"}};
  for (const char* path : {"/etc/brynd/BRYND.INI", "/users/jo/.config/brynd/BRYND.INI",
                           "/xdg/brynd/BRYND.INI", "/here/BRYND.INI"}) {
    files.content[path] = "";
    EXPECT_EQ(FindSettingsFile(0, nullptr), path);
  }
  environment.values["BRYND_INI"] = "/named.ini";
  EXPECT_EQ(FindSettingsFile(0, nullptr), "/named.ini");
  const char* const arguments[] = {"program", nullptr, "x=/no", "=/argument.ini"};
  EXPECT_EQ(FindSettingsFile(4, arguments), "/argument.ini");
  EXPECT_EQ(FindSettingsFile(3, arguments), "/named.ini");
}

TEST_F(SettingsStartTest, EngInit_NoFileAnywhere_NoSettingsFileAndNotStarted) {
  EXPECT_EQ(EngInit(0, nullptr), status::kNoSettingsFile);
  EXPECT_FALSE(Process().Started());
  environment.values["BRYND_INI"] = "/missing.ini";
  files.content["/here/BRYND.INI"] = "";
  EXPECT_EQ(EngInit(0, nullptr), status::kNoSettingsFile);
  EXPECT_EQ(EngInitWithIni("/missing.ini"), status::kNoSettingsFile);
  EXPECT_EQ(EngInitWithIni(nullptr), status::kBadArgument);
  EXPECT_EQ(EngThreadInit(), status::kNotInitialized);
  EXPECT_EQ(EngEnvironmentSet("a", "b"), status::kNotInitialized);
  char directory[256] = "untouched";
  EXPECT_EQ(EngDataDirectoryGet(directory), status::kNotInitialized);
  EXPECT_STREQ(directory, "untouched");
}

TEST_F(SettingsStartTest, EngInit_Twice_CountedAndSettingsUntilTheLastEnd) {
  files.content["/here/BRYND.INI"] = "Directory = data/\n";
  ASSERT_EQ(EngInit(0, nullptr), status::kOk);
  ASSERT_EQ(EngInitWithIni("/other, not read"), status::kOk);
  EXPECT_EQ(EngThreadInit(), status::kOk);
  char directory[256];
  ASSERT_EQ(EngDataDirectoryGet(directory), status::kOk);
  EXPECT_STREQ(directory, "/here/data");
  EngTerm();
  EXPECT_EQ(EngEnvironmentGet("Directory", nullptr, 0), 1);
  EngTerm();
  EXPECT_EQ(EngEnvironmentGet("Directory", nullptr, 0), 0);
  EXPECT_FALSE(Process().Started());
}

TEST_F(SettingsStartTest, EngDataDirectoryGet_FormsOfTheSetting_AbsolutePath) {
  struct Row {
    const char *path, *content, *directory;
  };
  constexpr Row rows[] = {{"/etc/brynd/BRYND.INI", "", "/etc/brynd"},
                          {"/etc/brynd/BRYND.INI", "Directory = /srv/data//\n", "/srv/data"},
                          {"sub/x.ini", "Directory = d\n", "/here/sub/d"},
                          {"/x.ini", "", "/"},
                          {"/x.ini", "Directory = d\n", "/d"}};
  for (const Row& row : rows) {
    files.content = {{row.path[0] == '/' ? row.path : std::string("/here/") + row.path, row.content}};
    ASSERT_EQ(EngInitWithIni(row.path), status::kOk) << row.path;
    char directory[256];
    ASSERT_EQ(EngDataDirectoryGet(directory), status::kOk);
    EXPECT_STREQ(directory, row.directory);
    EngTerm();
  }
}

TEST_F(SettingsStartTest, EngDataDirectoryGet_AroundTheRoom_FitsOrTooLong) {
  for (const size_t extra : {0u, 1u}) {
    files.content = {{"/here/BRYND.INI", "Directory = /" + std::string(254 + extra, 'd') + "\n"}};
    ASSERT_EQ(EngInit(0, nullptr), status::kOk);
    char directory[256] = "untouched";
    EXPECT_EQ(EngDataDirectoryGet(directory), extra == 0 ? status::kOk : status::kTextTooLong);
    EXPECT_EQ(std::string(directory).size(), extra == 0 ? 255u : 9u);
    EngTerm();
  }
}

TEST_F(SettingsStartTest, EngEnvironmentSetAndGet_TextBeyondAscii_FileIsUtf8) {
  files.content["/here/BRYND.INI"] = "";
  ASSERT_EQ(EngInit(0, nullptr), status::kOk);
  ASSERT_EQ(EngEnvironmentSet("Name", "J\xf6"), status::kOk);
  EXPECT_EQ(files.content["/here/BRYND.INI"], "Name = J\xc3\xb6\n");
  char value[8] = "";
  EXPECT_EQ(EngEnvironmentGet("NAME", value, 7), 1);
  EXPECT_STREQ(value, "J\xf6");
}

TEST_F(SettingsStartTest, EngEnvironmentGet_Limits_CutBetweenCharactersWithTheNulBehind) {
  files.content["/here/BRYND.INI"] = "Long = abcdef\nWide = a\xe2\x82\xac\n";
  ASSERT_EQ(EngInit(0, nullptr), status::kOk);
  char value[8];
  std::fill(std::begin(value), std::end(value), '#');
  EXPECT_EQ(EngEnvironmentGet("Long", value, 3), 1);
  EXPECT_EQ(std::string(value, 8), std::string("abc\0####", 8));
  EXPECT_EQ(EngEnvironmentGet("Long", value, 0), 1);
  EXPECT_EQ(value[0], 0);
  EXPECT_EQ(EngEnvironmentGet("Wide", value, 3), 1);
  EXPECT_STREQ(value, "a");
  EXPECT_EQ(EngEnvironmentGet("Missing", value, 3), 0);
  EXPECT_EQ(EngEnvironmentGet(nullptr, value, 3), 0);
  EXPECT_STREQ(value, "a");
  EXPECT_EQ(EngEnvironmentSet(nullptr, "x"), status::kBadArgument);
  EXPECT_EQ(EngEnvironmentSet("x", nullptr), status::kBadArgument);
}

// On the real file system: many threads change one file through objects of their own; no change is lost.
TEST(SettingsSystemTest, Set_ManyThreadsEachWithTheFile_NoChangeLost) {
  const auto folder =
      std::filesystem::temp_directory_path() / ("brynd_settings_" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  const std::string path = (folder / "BRYND.INI").string();
  SystemFiles().Replace(path, "; first line\n");
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread)
      threads.emplace_back([&, thread] {
        SettingsFile file(SystemFiles(), SystemClock(), path);
        for (int index = 0; index < 5; ++index)
          file.Set("Name" + std::to_string(thread) + "." + std::to_string(index), std::to_string(index));
      });
  }
  SettingsFile file(SystemFiles(), SystemClock(), path);
  for (int thread = 0; thread < 4; ++thread)
    for (int index = 0; index < 5; ++index)
      EXPECT_EQ(file.Get("Name" + std::to_string(thread) + "." + std::to_string(index)),
                std::to_string(index));
  EXPECT_TRUE(SystemFiles().Read(path)->starts_with("; first line\n"));
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace brynd
