// What survives a killed process, a power failure, a failing disk. Each sweep runs one script of writes again
// and again with the next operation failing, then compares what is found with the states the script went
// through.
#include <sqlite3.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <set>
#include <thread>
#include <vector>

#include "engine/store_fixture.h"

namespace store_test {

namespace store = brynd::store;

namespace {

constexpr uint32_t kUnids = 12;
constexpr uint32_t kUnknown = 0xffffffff;

enum class StepKind : uint8_t { kWrite, kCompact, kCopy, kReopen, kPause };

struct EditStep {
  enum class Kind : uint8_t { kPutNote, kDeleteNote, kPutRecord, kRemoveRecord, kPutUnid } kind;
  NoteId note_id;
  std::string key, value;
};

struct Step {
  StepKind kind = StepKind::kWrite;
  Durability durability = Durability::kLazy;
  bool abandon = false;
  std::vector<EditStep> edits = {};
};

using Script = std::vector<Step>;

EditStep RandomEdit(std::mt19937_64& random) {
  const size_t bytes = random() % 12 == 0 ? 20000 : random() % 1200;
  EditStep edit{.kind = static_cast<EditStep::Kind>(random() % 5),
                .note_id = static_cast<NoteId>(1 + random() % 25),
                .key = std::to_string(random() % 15),
                .value = std::string(bytes, static_cast<char>('a' + random() % 26))};
  if (random() % 2 == 0) edit.kind = EditStep::Kind::kPutNote;
  return edit;
}

Script MakeScript(uint64_t seed, size_t writes) {
  std::mt19937_64 random(seed);
  Script script;
  for (size_t at = 0; at < writes; ++at) {
    Step step;
    step.durability = random() % 4 == 0 ? Durability::kDurable : Durability::kLazy;
    step.abandon = random() % 9 == 0;
    const size_t edits = random() % 3 == 0 ? 1 + random() % 12 : 1;
    for (size_t edit = 0; edit < edits; ++edit) step.edits.push_back(RandomEdit(random));
    script.push_back(step);
    if (at % 16 == 7) script.push_back({.kind = StepKind::kCompact});
    if (at % 16 == 11) script.push_back({.kind = StepKind::kReopen});
    if (at == 3) script.push_back({.kind = StepKind::kPause});
    if (at == writes / 2) script.push_back({.kind = StepKind::kCopy});
  }
  return script;
}

std::string UnidKey(uint32_t number) { return "u" + std::to_string(number); }

void ApplyTo(Model* model, const Step& step) {
  for (const EditStep& edit : step.edits) {
    const std::string unid_key = UnidKey(edit.note_id % kUnids);
    switch (edit.kind) {
      case EditStep::Kind::kPutNote:
        (*model)[NoteKey(edit.note_id)] = edit.value;
        break;
      case EditStep::Kind::kDeleteNote:
        model->erase(NoteKey(edit.note_id));
        break;
      case EditStep::Kind::kPutRecord:
        (*model)[RecordKey(1, edit.key)] = edit.value;
        break;
      case EditStep::Kind::kRemoveRecord:
        model->erase(RecordKey(1, edit.key));
        break;
      case EditStep::Kind::kPutUnid:
        (*model)[unid_key] = std::to_string(edit.note_id);
        break;
    }
  }
}

void ApplyTo(Write& write, const Step& step) {
  for (const EditStep& edit : step.edits) {
    switch (edit.kind) {
      case EditStep::Kind::kPutNote:
        write.PutNote(edit.note_id, BytesOf(edit.value));
        break;
      case EditStep::Kind::kDeleteNote:
        write.DeleteRow(edit.note_id);
        break;
      case EditStep::Kind::kPutRecord:
        write.PutRecord(1, BytesOf(edit.key), BytesOf(edit.value));
        break;
      case EditStep::Kind::kRemoveRecord:
        write.RemoveRecord(1, BytesOf(edit.key));
        break;
      case EditStep::Kind::kPutUnid:
        write.PutUnid(UnidOf(edit.note_id % kUnids), edit.note_id);
        break;
    }
  }
}

// All states the script goes through when everything succeeds; states[n] is the one after n committed writes.
std::vector<Model> StatesOf(const Script& script) {
  std::vector<Model> states(1);
  for (const Step& step : script) {
    if (step.kind != StepKind::kWrite || step.abandon) continue;
    Model next = states.back();
    ApplyTo(&next, step);
    states.push_back(next);
  }
  return states;
}

Model WholeContents(Database& database) {
  Model model = Contents(database);
  for (uint32_t number = 0; number < kUnids; ++number) {
    const NoteId note_id = database.FindUnid(UnidOf(number));
    if (note_id != 0) model[UnidKey(number)] = std::to_string(note_id);
  }
  return model;
}

// How far a run has come: writes begun, writes known to be on disk. (States are counted, so begun is the
// newest possible.)
struct Progress {
  std::atomic<uint32_t> begun{0}, durable{0};
};

void RunStep(std::unique_ptr<Database>* database, const Step& step, const OpenOptions& options,
             Progress* progress) {
  const std::string path = (*database)->Path();
  switch (step.kind) {
    case StepKind::kWrite: {
      if (!step.abandon) ++progress->begun;
      Write write = (*database)->BeginWrite();
      ApplyTo(write, step);
      if (step.abandon) return;
      write.Commit(step.durability);
      if (step.durability == Durability::kDurable) progress->durable = progress->begun.load();
      return;
    }
    case StepKind::kCompact:
      (*database)->Compact();
      progress->durable = progress->begun.load();
      return;
    case StepKind::kCopy:
      store::Copy(path, path + ".copy", {.open = options, .overwrite = true});
      return;
    case StepKind::kReopen:
      (*database)->Close();
      progress->durable = progress->begun.load();
      *database = Open(path, options);
      return;
    case StepKind::kPause:
      std::this_thread::sleep_for(std::chrono::milliseconds(16));
      return;
  }
}

void RunScript(const std::string& path, const Script& script, const OpenOptions& options,
               Progress* progress) {
  std::unique_ptr<Database> database = Open(path, options);
  for (const Step& step : script) RunStep(&database, step, options, progress);
  database->Close();
  progress->durable = progress->begun.load();
}

// The number of the state a file is in, looking only at those that are allowed; kUnknown when it is none of
// them.
uint32_t StateFound(const std::string& path, const std::vector<Model>& states, uint32_t first,
                    uint32_t last) {
  uint32_t found = kUnknown;
  const EngStatus code = StatusOf([&] {
    auto database = Open(path, {.vfs = vfs_shim::Name()});
    const Model contents = WholeContents(*database);
    if (!database->ChangesSince(0, [](const store::NoteChange&) {})) return;
    for (uint32_t number = first; number <= last && number < states.size(); ++number) {
      if (contents == states[number]) found = number;
    }
    Put(*database, 999, "it can be written to again", Durability::kDurable);
    database->Close();
  });
  return code == status::kOk ? found : kUnknown;
}

bool IsSound(const std::string& path) {
  sqlite3* raw = nullptr;
  sqlite3_stmt* statement = nullptr;
  sqlite3_open(path.c_str(), &raw);
  sqlite3_prepare_v2(raw, "PRAGMA integrity_check", -1, &statement, nullptr);
  const bool sound =
      sqlite3_step(statement) == SQLITE_ROW &&
      std::string_view(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0))) == "ok";
  sqlite3_finalize(statement);
  sqlite3_close(raw);
  return sound;
}

void RemoveAllBut(const std::string& folder, const std::string& kept) {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path() != kept) std::filesystem::remove_all(entry.path());
  }
}

}  // namespace

class StoreCrashTest : public StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    vfs_shim::Name();
    empty_ = folder_.File("empty");
    Create(empty_)->Close();
  }

  void StartAnew() {
    RemoveAllBut(folder_.Path(), empty_);
    std::filesystem::copy_file(empty_, path_);
  }

  void ExpectCopyAbsentOrWhole(const std::vector<Model>& states) {
    if (!store::Exists(path_ + ".copy")) return;
    EXPECT_NE(StateFound(path_ + ".copy", states, 0, kUnknown - 1), kUnknown);
    ++copies_seen_;
  }

  std::string empty_;
  uint32_t copies_seen_ = 0;
};

// Memory that a child process shares: it tells how far it has come.
Progress* SharedProgress() {
  void* memory = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) std::abort();
  return std::construct_at(static_cast<Progress*>(memory));
}

TEST_F(StoreCrashTest, Kill_AtEveryChangeOfTheDisk_DurableWritesThereLazyOnesAPrefix) {
  const uint64_t seed = SeedOfRun();
  const Script script = MakeScript(seed, 28);
  const std::vector<Model> states = StatesOf(script);
  Progress* const shared = SharedProgress();
  uint32_t kills = 0, partial = 0;
  for (uint64_t nth = 1; nth < 5000; ++nth) {
    StartAnew();
    shared->begun = shared->durable = 0;
    const pid_t child = StartChild([&] {
      vfs_shim::SkipRealSyncs(true);
      vfs_shim::KillAtChange(nth);
      RunScript(path_, script, {.vfs = vfs_shim::Name()}, shared);
    });
    const int outcome = EndOf(child);
    vfs_shim::SkipRealSyncs(true);
    const uint32_t durable = shared->durable, begun = shared->begun;
    const uint32_t found = StateFound(path_, states, durable, begun);
    ASSERT_NE(found, kUnknown) << "kill " << nth << " durable " << durable << " begun " << begun;
    ASSERT_TRUE(nth % 8 != 0 || IsSound(path_)) << "kill " << nth;
    ExpectCopyAbsentOrWhole(states);
    if (!WIFSIGNALED(outcome)) {
      EXPECT_EQ(outcome, 0);
      EXPECT_EQ(found, states.size() - 1);
      break;
    }
    ++kills;
    partial += found < begun ? 1 : 0;
  }
  std::printf("%u kills hit, %u lost a tail, %u copies compared\n", kills, partial, copies_seen_);
  EXPECT_GT(kills, 100u);
  EXPECT_GT(partial, 0u);
  EXPECT_GT(copies_seen_, 0u);
  munmap(shared, sizeof(Progress));
}

// --- power failures
// --------------------------------------------------------------------------------------------------

class StorePowerTest : public StoreCrashTest {
 protected:
  struct Moment {
    std::string folder;
    uint32_t durable, begun;
  };

  // Runs the script once and writes down, at many moments, what the disk might hold if the power failed then.
  std::vector<Moment> Moments(const Script& script, const OpenOptions& options, uint64_t seed) {
    StartAnew();
    Progress progress;
    std::vector<Moment> moments;
    uint64_t events = 0;
    vfs_shim::StartPowerModel();
    vfs_shim::SetHook([&](const vfs_shim::Event& event) {
      if ((vfs_shim::Bit(event.operation) & vfs_shim::kChanges) == 0) return;
      const bool is_sync = event.operation == vfs_shim::Operation::kSync;
      if (++events % 3 != 0 && !is_sync) return;
      static constexpr uint32_t kChances[] = {0, 50, 90, 10};
      const uint32_t chance = kChances[moments.size() % 4];
      // Progress is read first: what is known to be on disk by now must be there, and the files are of later.
      const std::string folder = folder_.File("moment" + std::to_string(moments.size()));
      const uint32_t durable = progress.durable;
      std::filesystem::create_directory(folder);
      vfs_shim::WriteAfterPowerLoss(folder, seed + moments.size(), chance);
      moments.push_back({folder, durable, progress.begun});
    });
    RunScript(path_, script, options, &progress);
    vfs_shim::Reset();
    return moments;
  }

  // How many of the moments end in a state that is not allowed.
  uint32_t Violations(const std::vector<Moment>& moments, const std::vector<Model>& states) {
    vfs_shim::SkipRealSyncs(true);
    uint32_t violations = 0;
    for (const Moment& moment : moments) {
      const std::string file = moment.folder + "/base.qdb";
      // Before the first change of the file the model does not know it.
      if (!store::Exists(file)) continue;
      if (StateFound(file, states, moment.durable, moment.begun) == kUnknown) ++violations;
    }
    return violations;
  }
};

TEST_F(StorePowerTest, PowerLoss_AtManyMoments_DurableWritesThereLazyOnesAPrefix) {
  const uint64_t seed = SeedOfRun();
  for (uint64_t round = 0; round < 2; ++round) {
    const Script script = MakeScript(seed + round, 48);
    const std::vector<Moment> moments = Moments(script, {.vfs = vfs_shim::Name()}, seed);
    std::printf("%zu power failures\n", moments.size());
    EXPECT_GT(moments.size(), 50u);
    EXPECT_EQ(Violations(moments, StatesOf(script)), 0u);
  }
}

TEST_F(StorePowerTest, PowerLoss_StoreThatSkipsSyncs_IsFoundOut) {
  const uint64_t seed = SeedOfRun();
  const Script script = MakeScript(seed, 48);
  const std::vector<Moment> moments = Moments(script, {.vfs = vfs_shim::Name(), .skip_sync = true}, seed);
  const uint32_t violations = Violations(moments, StatesOf(script));
  std::printf("%u of %zu power failures lost a durable write\n", violations, moments.size());
  EXPECT_GT(violations, 0u);
}

// --- failing operations
// ----------------------------------------------------------------------------------------------

class StoreFaultTest : public StoreCrashTest {
 protected:
  // Runs the script with one fault; every failure must be a status, and what is found afterwards must be what
  // was reported. False when the fault lay beyond the end of the script.
  bool RunWith(const Script& script, const vfs_shim::Fault& fault) {
    StartAnew();
    vfs_shim::Reset();
    vfs_shim::SkipRealSyncs(true);
    vfs_shim::SetFault(fault);
    possible_.assign(1, {});
    certain_ = 0;
    newest_unknown_ = false;
    std::unique_ptr<Database> database;
    const OpenOptions options{.vfs = vfs_shim::Name()};
    StatusOf([&] { database = Open(path_, options); });
    for (const Step& step : script) {
      if (database == nullptr)
        OpenAgain(&database, options);
      else
        TryStep(&database, step, options);
    }
    const EngStatus closing = database == nullptr ? status::kOk : StatusOf([&] { database->Close(); });
    if (database != nullptr && closing == status::kOk)
      certain_ = possible_.size() - (newest_unknown_ ? 2 : 1);
    database.reset();
    const bool hit = vfs_shim::FaultsHit() != 0;
    vfs_shim::SetFault({});
    const uint32_t found = StateFound(path_, possible_, static_cast<uint32_t>(certain_), kUnknown - 1);
    EXPECT_NE(found, kUnknown) << "operations " << fault.operations << " nth " << fault.nth << " for good "
                               << fault.for_good << " certain " << certain_ << " of " << possible_.size();
    return hit;
  }

  void TryStep(std::unique_ptr<Database>* database, const Step& step, const OpenOptions& options) {
    Progress ignored;
    const EngStatus code = StatusOf([&] { RunStep(database, step, options, &ignored); });
    if (code == status::kOk && step.kind == StepKind::kReopen && newest_unknown_) {
      SeeWhatIsThere(**database);
    } else if (code == status::kOk) {
      if (step.kind == StepKind::kWrite && !step.abandon) AddPossible(step);
      const bool flushed =
          step.kind == StepKind::kReopen || step.kind == StepKind::kCompact ||
          (step.kind == StepKind::kWrite && !step.abandon && step.durability == Durability::kDurable);
      if (flushed) certain_ = possible_.size() - 1;
    } else if (step.kind == StepKind::kWrite && code == status::kSyncFailed && !step.abandon) {
      AddPossible(step);  // it may be there or not
      newest_unknown_ = true;
    }
    if (code != status::kOk && step.kind == StepKind::kReopen) database->reset();
  }

  // After a close that failed it is open which of the last writes are there: the file tells, and the script
  // goes on from it.
  void OpenAgain(std::unique_ptr<Database>* database, const OpenOptions& options) {
    StatusOf([&] { *database = Open(path_, options); });
    if (*database != nullptr) SeeWhatIsThere(**database);
  }

  void SeeWhatIsThere(Database& database) {
    vfs_shim::PauseFaults(true);
    Model contents;
    EXPECT_EQ(StatusOf([&] { contents = WholeContents(database); }), status::kOk);
    vfs_shim::PauseFaults(false);
    const auto found = std::find(possible_.rbegin(), possible_.rend(), contents);
    const auto kept = static_cast<size_t>(std::distance(found, possible_.rend()));
    EXPECT_GT(kept, certain_) << "a write that was reported as durable is gone";
    possible_.resize(kept);
    certain_ = kept - 1;
    newest_unknown_ = false;
  }

  void AddPossible(const Step& step) {
    Model next = possible_.back();
    ApplyTo(&next, step);
    possible_.push_back(next);
  }

  void Sweep(const char* what, uint32_t operations, int result, uint64_t stride) {
    const Script script = MakeScript(SeedOfRun(), 24);
    for (const bool for_good : {false, true}) {
      uint64_t nth = 1;
      uint32_t hits = 0;
      while (
          RunWith(script, {.operations = operations, .nth = nth, .for_good = for_good, .result = result})) {
        ++hits;
        nth += stride;
        if (HasFailure()) return;
      }
      std::printf("%s, %s: %u faults hit\n", what, for_good ? "for good" : "once", hits);
      EXPECT_GT(hits, 3u);
    }
  }

  std::vector<Model> possible_;
  size_t certain_ = 0;
  bool newest_unknown_ = false;
};

TEST_F(StoreFaultTest, Sync_EachFails_WhatWasReportedIsThere) {
  Sweep("sync", vfs_shim::Bit(vfs_shim::Operation::kSync), 0, 1);
}

TEST_F(StoreFaultTest, Write_EachFails_WhatWasReportedIsThere) {
  const uint32_t operations =
      vfs_shim::Bit(vfs_shim::Operation::kWrite) | vfs_shim::Bit(vfs_shim::Operation::kTruncate);
  Sweep("write", operations, 0, 3);
  Sweep("write, disk full", vfs_shim::Bit(vfs_shim::Operation::kWrite), SQLITE_FULL, 7);
}

TEST_F(StoreFaultTest, Read_EachFails_WhatWasReportedIsThere) {
  Sweep("read", vfs_shim::Bit(vfs_shim::Operation::kRead), 0, 3);
}

TEST_F(StoreFaultTest, OpenLockDelete_EachFails_WhatWasReportedIsThere) {
  const uint32_t operations = vfs_shim::Bit(vfs_shim::Operation::kOpen) |
                              vfs_shim::Bit(vfs_shim::Operation::kLock) |
                              vfs_shim::Bit(vfs_shim::Operation::kDelete);
  Sweep("open, lock, delete", operations, 0, 1);
}

}  // namespace store_test
