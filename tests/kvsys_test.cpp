#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <vector>

#include "kit/kit.h"
#include "kvint_system.h"

namespace {

// A clock that stands still and a sleep that is only noted down.
struct Slept {
  int64_t now = 1000;
  std::vector<uint32_t> msecs;
};
Slept* slept = nullptr;

class SystemTest : public kit::KavrinTest {
 protected:
  void SetUp() override {
    KavrinTest::SetUp();
    slept = &slept_;
    pgSystem = &kSystem;
    start_directory_ = std::filesystem::current_path();
    std::filesystem::current_path(directory().path());
  }
  void TearDown() override {
    std::filesystem::current_path(start_directory_);
    pgSystem = &kv_operating_system;
    KavrinTest::TearDown();
  }

  Slept slept_;

 private:
  static constexpr KVSYSTEM kSystem{[]() { return slept->now; },
                                    [](uint32_t msec) { slept->msecs.push_back(msec); }};
  std::filesystem::path start_directory_;
};

std::vector<std::string> FilesHere() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator("."))
    names.push_back(entry.path().filename().string());
  return names;
}

}  // namespace

TEST_F(SystemTest, KVIFileOpen_EveryModeWord_OpensAsToldOrFails) {
  struct Row {
    uint16_t flags;
    bool opens_missing, opens_present, keeps_content;
  };
  static constexpr Row kRows[] = {{1, false, true, true},  {3, false, true, true}, {10, false, true, true},
                                  {11, false, true, true}, {6, true, true, false}, {7, true, true, false},
                                  {14, true, true, true},  {15, true, true, true}};
  for (uint16_t flags = 0; flags < 32; ++flags) {
    SCOPED_TRACE(flags);
    const Row* row = nullptr;
    for (const Row& candidate : kRows)
      if (candidate.flags == (flags & 15)) row = &candidate;
    std::filesystem::remove("missing");
    KVFILE file = KVIFileOpen("missing", flags);
    EXPECT_EQ(file != nullptr, row != nullptr && row->opens_missing);
    if (file != nullptr) KVIFileClose(file);
    std::ofstream("present") << "abc";
    file = KVIFileOpen("present", flags);
    EXPECT_EQ(file != nullptr, row != nullptr && row->opens_present);
    if (file != nullptr) KVIFileClose(file);
    const bool keeps_content = row == nullptr || row->keeps_content;
    EXPECT_EQ(std::filesystem::file_size("present"), keeps_content ? 3u : 0u);
  }
}

TEST_F(SystemTest, KVIFile_WriteSeekReadDelete) {
  KVFILE file = KVIFileOpen("data", KVFILE_READ | KVFILE_WRITE | KVFILE_CREATE | KVFILE_BINARY);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(KVIFileWrite(file, "0123456789", 10), 10u);
  EXPECT_EQ(KVIFileSeek(file, 3, 0), 3u);
  char buffer[16] = "";
  EXPECT_EQ(KVIFileRead(file, buffer, 4), 4u);
  EXPECT_STREQ(buffer, "3456");
  EXPECT_EQ(KVIFileSeek(file, -1, 1), 6u);
  EXPECT_EQ(KVIFileSeek(file, -2, 2), 8u);
  EXPECT_EQ(KVIFileSeek(file, 0, 3), 0u);
  EXPECT_EQ(KVIFileEOF(file), 0);
  EXPECT_EQ(KVIFileRead(file, buffer, 16), 2u);
  EXPECT_NE(KVIFileEOF(file), 0);
  EXPECT_EQ(KVIFileClose(file), 0);
  EXPECT_TRUE(KVIFileDelete("data"));
  EXPECT_FALSE(KVIFileDelete("data"));
}

TEST_F(SystemTest, KVIFileReadWrite_LengthLimit_65534Moves65535DoesNot) {
  std::vector<char> bytes(65536, 'x');
  KVFILE file = KVIFileOpen("data", KVFILE_READ | KVFILE_WRITE | KVFILE_CREATE);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(KVIFileWrite(file, bytes.data(), 65535), 0u);
  EXPECT_EQ(KVIFileWrite(file, bytes.data(), 65534), 65534u);
  KVIFileSeek(file, 0, 0);
  EXPECT_EQ(KVIFileRead(file, bytes.data(), 65535), 0u);
  EXPECT_EQ(KVIFileRead(file, bytes.data(), 65534), 65534u);
  KVIFileClose(file);
}

TEST_F(SystemTest, KVIFileOpenTemp_WithoutCreate_NoNameWritten) {
  char name[kTempNameBytes] = "untouched";
  EXPECT_EQ(KVIFileOpenTemp(name, KVFILE_READ), nullptr);
  EXPECT_STREQ(name, "untouched");
}

TEST_F(SystemTest, KVIFileOpenTemp_NoSuchMode_AllNamesTriedAndNoFileMade) {
  char name[kTempNameBytes] = "untouched";
  const size_t before = FilesHere().size();
  EXPECT_EQ(KVIFileOpenTemp(name, KVFILE_READ | KVFILE_CREATE), nullptr);
  EXPECT_STREQ(name, "KVI64999.TMP");
  EXPECT_EQ(FilesHere().size(), before);
}

TEST_F(SystemTest, KVIFileOpenTemp_TakenNames_NextFreeNumber) {
  std::ofstream("KVI00000.TMP") << "taken";
  std::filesystem::create_directory("KVI00001.TMP");
  char name[kTempNameBytes];
  const uint16_t flags = KVFILE_READ | KVFILE_WRITE | KVFILE_CREATE;
  KVFILE file = KVIFileOpenTemp(name, flags);
  ASSERT_NE(file, nullptr);
  EXPECT_STREQ(name, "KVI00002.TMP");
  char next_name[kTempNameBytes];
  KVFILE next = KVIFileOpenTemp(next_name, flags | KVFILE_BINARY);
  ASSERT_NE(next, nullptr);
  EXPECT_STREQ(next_name, "KVI00003.TMP");
  EXPECT_EQ(std::filesystem::file_size("KVI00000.TMP"), 5u);
  KVIFileClose(file);
  KVIFileClose(next);
  for (const char* made : {"KVI00000.TMP", "KVI00001.TMP", "KVI00002.TMP", "KVI00003.TMP"})
    EXPECT_TRUE(KVIFileDelete(made));
}

TEST_F(SystemTest, KVIFileOpenTemp_NoFolderToWriteIn_FailsWhenTheNamesAreUsedUp) {
  std::filesystem::create_directory("gone");
  std::filesystem::current_path("gone");
  std::filesystem::remove(directory().File("gone"));
  char name[kTempNameBytes];
  EXPECT_EQ(KVIFileOpenTemp(name, KVFILE_WRITE | KVFILE_CREATE), nullptr);
  EXPECT_STREQ(name, "KVI64999.TMP");
  std::filesystem::current_path(directory().path());
}

TEST_F(SystemTest, KVIFileOpen_NullName_Fails) { EXPECT_EQ(KVIFileOpen(nullptr, KVFILE_READ), nullptr); }

TEST_F(SystemTest, KVIchdir_PathsAndDrives) {
  std::filesystem::create_directory("sub");
  EXPECT_EQ(KVIchdir(nullptr), -1);
  EXPECT_EQ(KVIchdir(""), -1);
  EXPECT_EQ(KVIchdir("missing"), -1);
  EXPECT_EQ(KVIchdir("C:"), -1);
  EXPECT_EQ(KVIchdir("sub"), 0);
  EXPECT_EQ(KVIchdir("C:.."), 0);
  char here[512];
  EXPECT_STREQ(KVIgetdir(here, sizeof here), std::filesystem::canonical(directory().path()).c_str());
  EXPECT_STREQ(KVIgetdir(here, 3), "");
  EXPECT_EQ(FilesHere().size(), 2u);  // the settings file and the folder
}

TEST_F(SystemTest, KVIBryndLibBuildName_Names) {
  struct Row {
    const char* name;
    const char* built;
  };
  for (const Row& row :
       {Row{"$ABC", "NABC"}, Row{"ABC", "NABC"}, Row{"", "N"}, Row{"1", "N"}, Row{"_x", "Nx"}}) {
    char built[16] = "?";
    KVIBryndLibBuildName(built, row.name);
    EXPECT_STREQ(built, row.built);
  }
  char kept[] = "kept";
  KVIBryndLibBuildName(kept, nullptr);
  KVIBryndLibBuildName(nullptr, "x");
  EXPECT_STREQ(kept, "kept");
  char extension[8];
  KVIBryndLibGetExt(extension);
  EXPECT_STREQ(extension, ".DLL");
}

TEST_F(SystemTest, KVIBryndProcGetAddrByName_NullsAndMissingLibrary) {
  void* library = nullptr;
  void* address = nullptr;
  EXPECT_EQ(KVIBryndProcGetAddrByName(nullptr, "p", &library, &address), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIBryndProcGetAddrByName("m", nullptr, &library, &address), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIBryndProcGetAddrByName("m", "p", nullptr, &address), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIBryndProcGetAddrByName("m", "p", &library, nullptr), KVFAIL_NULL_PARAM);
  kit::Spy spy;
  const uint32_t status = KVIBryndProcGetAddrByName("$nosuchlibrary", "p", &library, &address);
  EXPECT_NE(status, 0u);
  EXPECT_EQ(status & 0x80000000u, 0u);
  EXPECT_EQ(library, nullptr);
  ASSERT_EQ(spy.Count("EngLibraryLoad"), 1u);
  EXPECT_EQ(spy.Find("EngLibraryLoad")->texts[0], "Nnosuchlibrary");
}

TEST_F(SystemTest, BryndWait_FutureTime_PollsEveryFiveSecondsAndClearsTheYieldWord) {
  int32_t winyield = 7;
  kit::Spy spy;
  EXPECT_EQ(BryndWait(1012, &winyield), 0);
  EXPECT_EQ(slept_.msecs, (std::vector<uint32_t>{5000, 5000, 2000}));
  EXPECT_EQ(spy.Count("EngTaskShouldStop"), 2u);
  EXPECT_EQ(winyield, 0);
}

TEST_F(SystemTest, BryndWait_UnderFiveSeconds_AsksOnceThenSleepsTheRest) {
  kit::Spy spy;
  EXPECT_EQ(BryndWait(1004, nullptr), 0);
  EXPECT_EQ(slept_.msecs, std::vector<uint32_t>{4000});
  EXPECT_EQ(spy.Count("EngTaskShouldStop"), 1u);
}

TEST_F(SystemTest, BryndWait_TimePassed_SleepsTheRemainderOfTheUnsignedDifference) {
  EXPECT_EQ(BryndWait(990, nullptr), 0);
  EXPECT_EQ(slept_.msecs, std::vector<uint32_t>{(0u - 10000u) % 5000u});
}

TEST_F(SystemTest, BryndYield_TimeUp_OneAsWhenToldToStop) {
  int32_t winyield = 7;
  EXPECT_EQ(BryndYield(7000, &winyield), 1);
  EXPECT_EQ(slept_.msecs, (std::vector<uint32_t>{5000, 2000}));
  EXPECT_EQ(winyield, 0);
}

TEST_F(SystemTest, BryndWaitAndBryndYield_ToldToStop_OneWithoutSleepingAndTheYieldWordStays) {
  kit::Answer stop("EngTaskShouldStop", 1);
  int32_t winyield = 7;
  EXPECT_EQ(BryndWait(1012, &winyield), 1);
  EXPECT_EQ(BryndWait(1001, &winyield), 1);
  EXPECT_EQ(BryndYield(7000, &winyield), 1);
  EXPECT_EQ(BryndYield(10, &winyield), 1);
  EXPECT_TRUE(slept_.msecs.empty());
  EXPECT_EQ(winyield, 7);
}

TEST_F(SystemTest, KVISleep_RealClock_SleepsAtLeastThatLong) {
  pgSystem = &kv_operating_system;
  const auto start = std::chrono::steady_clock::now();
  KVISleep(20);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
  EXPECT_GT(pgSystem->seconds(), 1700000000);
}

TEST_F(SystemTest, CharacterBytes_AllFirstBytes) {
  for (int first = 0; first < 256; ++first) {
    uint8_t expected = 0;
    const bool control = first == 0x09 || first == 0x0a || first == 0x0d;
    if (first >= 0x01 && first <= 0x1f && !control) expected = first >= 0x10 && first <= 0x17 ? 3 : 2;
    EXPECT_EQ(kCharacterBytes[first], expected) << first;
  }
}

TEST_F(SystemTest, KVIstrnncpy_Limits) {
  char target[8] = "zzzzzzz";
  EXPECT_EQ(KVIstrnncpy(target, "abcdef", 3), target);
  EXPECT_STREQ(target, "abc");
  EXPECT_EQ(target[4], 'z');
  EXPECT_STREQ(KVIstrnncpy(target, "ab", 7), "ab");
  EXPECT_STREQ(KVIstrnncpy(target, "ab", 0), "");
}

TEST_F(SystemTest, KVIdtoa_DigitsByLength) {
  char text[32];
  EXPECT_STREQ(KVIdtoa(1.0 / 3.0, text, 20), "0.333333333333333");
  EXPECT_STREQ(KVIdtoa(1.0 / 3.0, text, 18), "0.333333333333333");
  EXPECT_STREQ(KVIdtoa(1.0 / 3.0, text, 6), "0.333");
  EXPECT_STREQ(KVIdtoa(12345.0, text, 5), "1.2e+04");
  EXPECT_STREQ(KVIdtoa(12345.0, text, 0), "1e+04");
  EXPECT_STREQ(KVIdtoa(-0.5, text, 18), "-0.5");
  EXPECT_STREQ(KVIdtoa(-1.23456789012345e-300, text, 18), "-1.23456789012345e-300");
  EXPECT_STREQ(KVIdtoa(100.0, text, 18), "100");
}

TEST_F(SystemTest, KVImemchr_StepsOverMultiByteCharacters) {
  const char text[] = {'\x01', 'b', '\x10', 'b', 'b', 'a', 'b'};
  EXPECT_EQ(KVImemchr(text, 'b', sizeof text), text + 6);
  EXPECT_EQ(KVImemchr(text, 'a', sizeof text), text + 5);
  EXPECT_EQ(KVImemchr(text, 'b', 6), nullptr);
  EXPECT_EQ(KVImemchr(text, '\x01', sizeof text), nullptr);
  EXPECT_EQ(KVImemchr(text, 'b', 0), nullptr);
  const char cut[] = {'x', '\x10', 'b'};
  EXPECT_EQ(KVImemchr(cut, 'b', sizeof cut), nullptr);
}

TEST_F(SystemTest, KVIstrchrAndKVIstrrchr_FirstAndLastByWholeCharacters) {
  const char text[] = "a\x01=b=c\x10==d";
  EXPECT_EQ(KVIstrchr(text, '='), text + 4);
  EXPECT_EQ(KVIstrrchr(text, '='), text + 4);
  EXPECT_EQ(KVIstrchr(text, 'd'), text + 9);
  EXPECT_EQ(KVIstrchr(text, 'z'), nullptr);
  EXPECT_EQ(KVIstrrchr(text, 'z'), nullptr);
  EXPECT_EQ(KVIstrchr(text, 0), text + sizeof text - 1);
  const char cut[] = "ab\x10";  // the terminator stands inside a character
  EXPECT_EQ(KVIstrchr(cut, 'z'), nullptr);
  EXPECT_EQ(KVIstrrchr(cut, 'a'), cut);
}

TEST_F(SystemTest, KVIstrcspn_WholeCharactersOnly) {
  EXPECT_EQ(KVIstrcspn("abc,d", ",;"), 3u);
  EXPECT_EQ(KVIstrcspn("abc", ",;"), 3u);
  EXPECT_EQ(KVIstrcspn("", ",;"), 0u);
  EXPECT_EQ(KVIstrcspn("a\x01,b,c", ","), 4u);    // not the comma inside a character
  EXPECT_EQ(KVIstrcspn("a\x01,b", "\x01,"), 1u);  // a set may hold such a character
  EXPECT_EQ(KVIstrcspn("a,b", "\x01,"), 3u);
}
