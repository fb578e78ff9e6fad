// The world of a test: a fresh data directory with a settings file, the library started on it, and the proof
// at the end that nothing is left: no engine block, no lock, no block of the library's heap, no stray file.
#ifndef KIT_FIXTURE_H
#define KIT_FIXTURE_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

#include "kavrin.h"
#include "kit/engine_layer.h"
#include "kit/fault.h"

namespace kit {

// A temporary data directory with BRYND.INI; removed with all that is in it.
class DataDirectory {
 public:
  DataDirectory();
  ~DataDirectory();
  DataDirectory(const DataDirectory&) = delete;
  DataDirectory& operator=(const DataDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string ini() const { return path_ + "/BRYND.INI"; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  // Names of files that nobody keeps: journals, temporary files, lock files.
  std::string StrayFiles() const;

 private:
  std::string path_;
};

// What the last call of this thread left in the error state.
struct ErrorState {
  uint32_t status = 0;
  int32_t severity = 0;
  std::string message;
};
ErrorState LastError();

struct MemoryState {
  uint64_t blocks = 0, bytes = 0, locks = 0;
  int64_t heap_blocks = 0;
};
MemoryState Memory();

// Starts the library in this thread on a settings file.
uint32_t StartLibrary(const std::string& ini, uint32_t version = KVAPI_VERSION);

// Runs the work in a thread of its own, without and with a session, and waits for it.
void InThread(const std::function<void()>& work);
void InSession(const std::function<void()>& work);

class KavrinTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // An empty database below the data directory; returns the path to open it by.
  std::string MakeDatabase(const std::string& name);
  const DataDirectory& directory() const { return directory_; }

  // Ends the library now; TearDown then only proves that nothing is left.
  void EndLibrary();
  bool running_ = false;

 private:
  DataDirectory directory_;
};

}  // namespace kit

#endif
