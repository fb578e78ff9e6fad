#include "kit/fixture.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "brynd.h"

namespace kit {

DataDirectory::DataDirectory() {
  std::string pattern = (std::filesystem::temp_directory_path() / "kavrin-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) std::abort();
  path_ = pattern;
  std::ofstream(ini()) << "; settings of a test\nDirectory=" << path_ << "\nUserName=CN=Test User/O=Kavrin\n";
}

DataDirectory::~DataDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string DataDirectory::StrayFiles() const {
  static constexpr const char* kStrayEndings[] = {"-wal", "-shm", "-journal", ".TMP", ".tmp", ".new", "~"};
  std::string strays;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(path_)) {
    const std::string name = entry.path().filename().string();
    for (const char* ending : kStrayEndings)
      if (name.ends_with(ending)) strays += name + " ";
  }
  return strays;
}

ErrorState LastError() {
  ErrorState state;
  char message[KVMESSAGE_BYTES];
  KVErrorFetch(&state.status, &state.severity, message);
  if (state.status != KVFAIL_NOT_INITIALIZED || state.severity != 0) state.message = message;
  return state;
}

MemoryState Memory() {
  MemoryState memory;
  EngMemStats(&memory.blocks, &memory.bytes, &memory.locks);
  memory.heap_blocks = HeapBlocks();
  return memory;
}

uint32_t StartLibrary(const std::string& ini, uint32_t version) {
  std::string path = ini;
  return _KVInit(version, KVINIT_INI_FILE, 0, reinterpret_cast<char**>(path.data()));
}

void InThread(const std::function<void()>& work) { std::thread(work).join(); }

void InSession(const std::function<void()>& work) {
  InThread([&] {
    ASSERT_EQ(KVInitThread(0), KVSUCCESS);
    work();
    EXPECT_EQ(KVTerm(KVTERM_THREAD), KVSUCCESS);
  });
}

void KavrinTest::SetUp() {
  ASSERT_EQ(StartLibrary(directory_.ini()), KVSUCCESS);
  running_ = true;
}

void KavrinTest::EndLibrary() {
  if (running_) {
    EXPECT_EQ(KVTerm(0), KVSUCCESS);
  }
  running_ = false;
}

void KavrinTest::TearDown() {
  EndLibrary();
  const MemoryState memory = Memory();
  EXPECT_EQ(memory.blocks, 0u) << "engine blocks left";
  EXPECT_EQ(memory.locks, 0u) << "locks left";
  EXPECT_EQ(memory.heap_blocks, 0) << "blocks of the library's heap left";
  EXPECT_EQ(directory_.StrayFiles(), "");
}

std::string KavrinTest::MakeDatabase(const std::string& name) {
  constexpr uint16_t kPlainClass = 0xff01;
  std::string path = directory_.File(name);
  EXPECT_EQ(EngDbCreate(path.c_str(), kPlainClass, 0, 0, 0, 1), 0);
  return path;
}

}  // namespace kit
