// The library as several processes and threads use it at once, and as a killed one leaves its database.
//
// Children run before any library runs in the test itself, so that each has its own. What a child has been
// told is stored it writes to a pipe; the parent compares that with what it finds.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "brynd.h"
#include "kit/kit.h"

namespace {

constexpr uint16_t kConflict = 0x240;
constexpr uint16_t kPlainClass = 0xff01;
constexpr int kIncrements = 60;  // of each writer

// A library of this thread with documents that follow no form.
class Library {
 public:
  explicit Library(const std::string& ini) {
    status_ = kit::StartLibrary(ini);
    const int32_t off = 0;
    if (status_ == KVSUCCESS) KVSetProperty(KVPROP_SESS_STRICT_BIND, &off);
  }
  ~Library() {
    if (status_ == KVSUCCESS) KVTerm(0);
  }
  bool IsRunning() const { return status_ == KVSUCCESS; }

 private:
  uint32_t status_;
};

uint32_t NoteIdOf(uint32_t document) {
  EngNote note = 0;
  uint32_t docid = 0;
  if (KVDocumentGetBryndHandle(document, KVTOBRYND_GET_HANDLE, &note) == KVSUCCESS)
    EngNoteInfoGet(note, 1, &docid);
  return docid;
}

double NumberOf(uint32_t document) {
  double number = -1;
  uint32_t length = sizeof number;
  int32_t type = KVTYPE_NUMBER;
  KVItemFetch(document, "Number", nullptr, &length, &type, &number);
  return number;
}

uint32_t StoreNumber(uint32_t database, double number, uint32_t docwrite_flags) {
  uint32_t document = 0;
  if (KVDocumentCreate(database, 0, &document) != KVSUCCESS) return 0;
  KVItemPut(document, "Number", KVTYPE_NUMBER, sizeof number, KVTYPE_NUMBER, &number, 0);
  const uint32_t status = KVDocumentSave(document, docwrite_flags);
  const uint32_t docid = status == KVSUCCESS ? NoteIdOf(document) : 0;
  KVDocumentClose(document, KVDOCWRITE_DISCARD);
  return docid;
}

// Adds 1 to a document; on a conflict reads it again. False when something else fails.
bool Increment(uint32_t database, uint32_t docid) {
  for (;;) {
    uint32_t document = 0;
    if (KVDocumentOpen(database, docid, 0, &document) != KVSUCCESS) return false;
    const double next = NumberOf(document) + 1;
    KVItemPut(document, "Number", KVTYPE_NUMBER, sizeof next, KVTYPE_NUMBER, &next, 0);
    const uint32_t status = KVDocumentSave(document, KVDOCWRITE_COMMIT);
    KVDocumentClose(document, KVDOCWRITE_DISCARD);
    if (status == KVSUCCESS) return true;
    if (status != kConflict) return false;
  }
}

bool IncrementMany(const std::string& path, uint32_t docid) {
  uint32_t database = 0;
  if (KVDatabaseOpen(nullptr, path.c_str(), 0, &database) != KVSUCCESS) return false;
  bool all = true;
  for (int i = 0; i < kIncrements; ++i) all = Increment(database, docid) && all;
  return KVDatabaseClose(database, 0) == KVSUCCESS && all;
}

// One session in the first thread of a process and one in a second thread, both counting up.
bool TwoThreadsIncrement(const std::string& ini, const std::string& path, uint32_t docid) {
  Library library(ini);
  if (!library.IsRunning()) return false;
  bool second = false;
  std::thread thread([&] {
    if (KVInitThread(0) != KVSUCCESS) return;
    const int32_t off = 0;
    KVSetProperty(KVPROP_SESS_STRICT_BIND, &off);
    second = IncrementMany(path, docid);
    KVTerm(KVTERM_THREAD);
  });
  const bool first = IncrementMany(path, docid);
  thread.join();
  return first && second;
}

pid_t StartChild(const std::function<bool()>& work) {
  const pid_t child = fork();
  if (child != 0) return child;
  _exit(work() ? 0 : 1);
}

int WaitFor(pid_t child) {
  int state = 0;
  waitpid(child, &state, 0);
  return WIFEXITED(state) ? WEXITSTATUS(state) : -WTERMSIG(state);
}

class ProcessTest : public testing::Test {
 protected:
  std::string ini() const { return directory_.ini(); }
  std::string path() const { return directory_.File("shared.QDB"); }

  // Work in a child, so that this process never holds a library while it forks.
  void InOwnProcess(const std::function<bool()>& work) { ASSERT_EQ(WaitFor(StartChild(work)), 0); }

  void MakeDatabase() {
    InOwnProcess([&] {
      Library library(ini());
      return library.IsRunning() && EngDbCreate(path().c_str(), kPlainClass, 0, 0, 0, 1) == 0;
    });
  }

  kit::DataDirectory directory_;
};

TEST_F(ProcessTest, KVDocumentSave_TwoProcessesWithTwoThreadsEach_NoUpdateLost) {
  MakeDatabase();
  constexpr uint32_t kFirstDocument = 2;  // behind the icon record
  InOwnProcess([&] {
    Library library(ini());
    uint32_t database = 0;
    if (KVDatabaseOpen(nullptr, path().c_str(), 0, &database) != KVSUCCESS) return false;
    return StoreNumber(database, 0, KVDOCWRITE_COMMIT) == kFirstDocument;
  });
  const pid_t first = StartChild([&] { return TwoThreadsIncrement(ini(), path(), kFirstDocument); });
  const pid_t second = StartChild([&] { return TwoThreadsIncrement(ini(), path(), kFirstDocument); });
  EXPECT_EQ(WaitFor(first), 0);
  EXPECT_EQ(WaitFor(second), 0);
  InOwnProcess([&] {
    Library library(ini());
    uint32_t database = 0;
    uint32_t document = 0;
    if (KVDatabaseOpen(nullptr, path().c_str(), 0, &database) != KVSUCCESS) return false;
    if (KVDocumentOpen(database, kFirstDocument, 0, &document) != KVSUCCESS) return false;
    return NumberOf(document) == 4 * kIncrements;
  });
}

// ---- Design elements of another process

bool Pass(int pipe_end) { return write(pipe_end, "x", 1) == 1; }
bool Await(int pipe_end) {
  char byte = 0;
  return read(pipe_end, &byte, 1) == 1;
}

bool StoreForm(EngDb dbhand, const char* title, uint32_t id) {
  const uint16_t form_class = BRCLASS_FORM;
  EngNote note = 0;
  if (id == 0 ? EngNoteCreate(dbhand, &note) : EngNoteOpen(dbhand, id, 0, &note)) return false;
  bool done = EngNoteInfoSet(note, 3, &form_class) == 0;
  done = done && EngItemTextSet(note, "$TITLE", title, 0xffff) == 0 && EngNoteUpdate(note, 0) == 0;
  return EngNoteClose(note) == 0 && done;
}

uint32_t FormId(EngDb dbhand, const char* name) {
  uint32_t id = 0;
  return EngDesignFind(dbhand, name, BRCLASS_FORM, &id) == 0 ? id : 0;
}

// Names of all forms, each followed by a blank.
std::string ListForms(uint32_t database) {
  std::string names;
  KVFORMSUMM summ;
  for (int32_t list = KVLIST_REFRESH; KVFormList(database, list, &summ) == KVSUCCESS; list = KVLIST_NEXT)
    names += std::string(summ.name) + " ";
  return names;
}

// Stores, renames and deletes forms whenever it is told to go on.
bool ChangeForms(const std::string& ini, const std::string& path, int go, int done) {
  Library library(ini);
  uint32_t database = 0;
  EngDb dbhand = 0;
  if (!Await(go) || KVDatabaseOpen(nullptr, path.c_str(), 0, &database) != KVSUCCESS) return false;
  if (KVDatabaseGetBryndHandle(database, KVTOBRYND_GET_HANDLE, &dbhand) != KVSUCCESS) return false;
  if (!StoreForm(dbhand, "One", 0) || !StoreForm(dbhand, "Two|Alias", 0) || !Pass(done)) return false;
  if (!Await(go) || !StoreForm(dbhand, "Renamed", FormId(dbhand, "one")) || !Pass(done)) return false;
  if (!Await(go) || EngNoteDelete(dbhand, FormId(dbhand, "alias"), 0) || !Pass(done)) return false;
  return KVDatabaseClose(database, 0) == KVSUCCESS;
}

// Keeps one handle open all the time and looks each time the other has changed something.
bool WatchForms(const std::string& ini, const std::string& path, int go, int done) {
  Library library(ini);
  uint32_t database = 0;
  EngDb dbhand = 0;
  if (KVDatabaseOpen(nullptr, path.c_str(), 0, &database) != KVSUCCESS) return false;
  if (KVDatabaseGetBryndHandle(database, KVTOBRYND_GET_HANDLE, &dbhand) != KVSUCCESS) return false;
  if (FormId(dbhand, "One") != 0 || !ListForms(database).empty()) return false;
  if (!Pass(go) || !Await(done)) return false;
  const uint32_t one = FormId(dbhand, "One");
  if (one == 0 || FormId(dbhand, "alias") == 0 || ListForms(database) != "One Alias ") return false;
  if (!Pass(go) || !Await(done)) return false;
  if (FormId(dbhand, "One") != 0 || FormId(dbhand, "renamed") != one) return false;
  if (ListForms(database) != "Renamed Alias ") return false;
  if (!Pass(go) || !Await(done)) return false;
  if (FormId(dbhand, "alias") != 0 || ListForms(database) != "Renamed ") return false;
  return KVDatabaseClose(database, 0) == KVSUCCESS;
}

TEST_F(ProcessTest, KVFormList_FormsOfAnotherProcess_AreFoundAndListedAsTheyChange) {
  MakeDatabase();
  int go[2];
  int done[2];
  ASSERT_EQ(pipe(go), 0);
  ASSERT_EQ(pipe(done), 0);
  const pid_t watcher = StartChild([&] {
    close(done[1]);
    return WatchForms(ini(), path(), go[1], done[0]);
  });
  const pid_t changer = StartChild([&] {
    close(go[1]);
    return ChangeForms(ini(), path(), go[0], done[1]);
  });
  for (int end : {go[0], go[1], done[0], done[1]}) close(end);
  EXPECT_EQ(WaitFor(watcher), 0);
  EXPECT_EQ(WaitFor(changer), 0);
}

// What a child says of one stored document.
struct Told {
  uint32_t docid;
  uint32_t number;
};

// Stores documents until it is killed, and says of each durable one that it is stored.
bool StoreUntilKilled(const std::string& ini, const std::string& path, int pipe_end) {
  Library library(ini);
  uint32_t database = 0;
  if (KVDatabaseOpen(nullptr, path.c_str(), 0, &database) != KVSUCCESS) return false;
  for (uint32_t number = 1;; ++number) {
    const bool is_durable = number % 3 == 0;
    const uint32_t docid =
        StoreNumber(database, number, is_durable ? KVDOCWRITE_COMMIT : KVDOCWRITE_NOCOMMIT);
    if (docid == 0) return false;
    const Told told{docid, number};
    if (is_durable && write(pipe_end, &told, sizeof told) != sizeof told) return false;
  }
}

// Every document told of is there with its number, and so is each stored before it.
bool AllToldAreThere(const std::string& ini, const std::string& path, const std::vector<Told>& told) {
  Library library(ini);
  uint32_t database = 0;
  if (KVDatabaseOpen(nullptr, path.c_str(), 0, &database) != KVSUCCESS) return false;
  for (const Told& one : told)
    for (uint32_t back = 0; back < 3; ++back) {
      uint32_t document = 0;
      if (KVDocumentOpen(database, one.docid - back, 0, &document) != KVSUCCESS) return false;
      if (NumberOf(document) != one.number - back) return false;
      KVDocumentClose(document, KVDOCWRITE_DISCARD);
    }
  return KVDatabaseClose(database, 0) == KVSUCCESS;
}

TEST_F(ProcessTest, KVDocumentSave_ProcessKilledAtAnyMoment_NothingDurableLost) {
  const auto seed = static_cast<uint32_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  std::printf("KV_SEED=%u\n", seed);
  std::mt19937 random(seed);
  size_t told_count = 0;
  for (int round = 0; round < 12; ++round) {
    const kit::DataDirectory directory;
    const std::string file = directory.File("killed.QDB");
    InOwnProcess([&] {
      Library library(directory.ini());
      return EngDbCreate(file.c_str(), kPlainClass, 0, 0, 0, 1) == 0;
    });
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = StartChild([&] { return StoreUntilKilled(directory.ini(), file, ends[1]); });
    close(ends[1]);
    std::this_thread::sleep_for(std::chrono::milliseconds(30 + random() % 120));
    kill(child, SIGKILL);
    EXPECT_EQ(WaitFor(child), -SIGKILL);
    std::vector<Told> told;
    for (Told one; read(ends[0], &one, sizeof one) == sizeof one;) told.push_back(one);
    close(ends[0]);
    told_count += told.size();
    InOwnProcess([&] { return AllToldAreThere(directory.ini(), file, told); });
  }
  std::printf("%zu durable documents in 12 killed processes\n", told_count);
  EXPECT_GT(told_count, 0u);
}

TEST_F(ProcessTest, Exit_LibraryRunningAndDatabaseOpen_NoCrash) {
  MakeDatabase();
  const pid_t child = StartChild([&] {
    uint32_t database = 0;
    if (kit::StartLibrary(ini()) != KVSUCCESS) return false;
    const int32_t off = 0;
    KVSetProperty(KVPROP_SESS_STRICT_BIND, &off);
    if (KVDatabaseOpen(nullptr, path().c_str(), 0, &database) != KVSUCCESS) return false;
    if (StoreNumber(database, 7, KVDOCWRITE_NOCOMMIT) == 0) return false;
    std::exit(0);  // with what exit runs: the ends of statics, which the other children go without
  });
  EXPECT_EQ(WaitFor(child), 0);
}

TEST_F(ProcessTest, KVDocumentSave_DelayedCommit_OtherProcessSeesItSoon) {
  MakeDatabase();
  constexpr uint32_t kFirstDocument = 2;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t writer = StartChild([&] {
    Library library(ini());
    uint32_t database = 0;
    if (KVDatabaseOpen(nullptr, path().c_str(), 0, &database) != KVSUCCESS) return false;
    const bool stored = StoreNumber(database, 7, KVDOCWRITE_NOCOMMIT) == kFirstDocument;
    const char done = 1;
    if (write(ends[1], &done, 1) != 1) return false;
    std::this_thread::sleep_for(std::chrono::seconds(3));  // idle, with the handle open
    return stored;
  });
  char done = 0;
  ASSERT_EQ(read(ends[0], &done, 1), 1);
  InOwnProcess([&] {
    Library library(ini());
    uint32_t database = 0;
    uint32_t document = 0;
    if (KVDatabaseOpen(nullptr, path().c_str(), 0, &database) != KVSUCCESS) return false;
    // The promise is 20 ms; the machine may be slow, the writer's idle time is the bound.
    for (int tries = 0; tries < 200; ++tries) {
      if (KVDocumentOpen(database, kFirstDocument, 0, &document) == KVSUCCESS) return NumberOf(document) == 7;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  });
  EXPECT_EQ(WaitFor(writer), 0);
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
