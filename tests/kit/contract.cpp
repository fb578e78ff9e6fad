#include "kit/contract.h"

#include <algorithm>
#include <cstdio>

#include "kit/fixture.h"

namespace kit {

// ---- Arguments

Argument Value(std::function<uint64_t(Scene&)> value) { return {Argument::Role::kPlain, std::move(value)}; }

Argument Plain(uint64_t word) {
  return Value([word](Scene&) { return word; });
}

Argument Handle(Object object, uint32_t miss_status) {
  return {Argument::Role::kHandle, [object](Scene& scene) -> uint64_t { return scene.Handle(object); },
          object, miss_status};
}

Argument Enum(uint64_t word, uint64_t past, uint32_t past_status) {
  return {Argument::Role::kEnum, [word](Scene&) { return word; }, Object::kDatabase, past_status, past};
}

Argument Pointer(std::function<const void*(Scene&)> value, uint32_t null_status) {
  return {Argument::Role::kPointer,
          [value](Scene& scene) -> uint64_t { return reinterpret_cast<uintptr_t>(value(scene)); },
          Object::kDatabase, null_status};
}

Argument Text(const std::string& text, uint32_t null_status) {
  return Pointer([text](Scene& scene) -> const void* { return scene.Text(text); }, null_status);
}

Argument Out(size_t bytes, uint32_t null_status) {
  return Pointer([bytes](Scene& scene) -> const void* { return scene.Bytes(bytes); }, null_status);
}

std::vector<Row> AllRows() {
  std::vector<Row> rows;
  for (const auto& family : {SessionRows, ConvertRows, DatabaseRows, DocumentRows, ItemRows, DesignRows,
                             FormRows, CompositeRows, ViewRows, IndexRows})
    for (Row& row : family()) rows.push_back(std::move(row));
  return rows;
}

std::string NameOf(const Row& row) {
  return *row.variant == 0 ? row.function : std::string(row.function) + "/" + row.variant;
}

void PrintTo(const Row& row, std::ostream* stream) { *stream << NameOf(row); }

// ---- What went wrong

static std::string Hex(uint64_t word) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(word));
  return text;
}

class Findings {
 public:
  explicit Findings(std::string place) : place_(std::move(place)) {}
  void Add(const std::string& text) { text_ += place_ + ": " + text + "\n"; }
  void AddTo(std::string* all) const { *all += text_; }

 private:
  std::string place_, text_;
};

struct Outcome {
  uint64_t result = 0;
  uint32_t status = KVSUCCESS;  // returned, or told by KVErrorFetch
};

static Outcome MakeCall(const Row& row, const Words& words) {
  Outcome outcome{row.call(words), KVSUCCESS};
  if (row.result == Result::kStatus)
    outcome.status = static_cast<uint32_t>(outcome.result);
  else if (row.result != Result::kNothing)
    outcome.status = LastError().status;
  return outcome;
}

static Words MakeWords(const Row& row, Scene& scene) {
  if (row.prepare) row.prepare(scene);
  Words words;
  for (const Argument& argument : row.arguments) words.push_back(argument.value(scene));
  return words;
}

// Statuses that a missing session gives are returned, and recorded nowhere.
static void ExpectStatus(const Row& row, const Outcome& outcome, uint32_t expected, Findings* findings) {
  if (row.result == Result::kNothing) return;
  if (outcome.status != expected)
    findings->Add("status " + Hex(outcome.status) + ", expected " + Hex(expected));
  if (row.result == Result::kCount && expected != KVSUCCESS && outcome.result != 0)
    findings->Add("result " + Hex(outcome.result) + " with a failure");
  if (row.session != SessionBy::kNone && row.result == Result::kStatus && LastError().status != expected)
    findings->Add("KVErrorFetch tells " + Hex(LastError().status) + ", expected " + Hex(expected));
}

static void ExpectNothingLeft(const MemoryState& before, Findings* findings) {
  const MemoryState after = Memory();
  if (after.blocks != before.blocks)
    findings->Add("engine blocks " + std::to_string(before.blocks) + ", then " +
                  std::to_string(after.blocks));
  if (after.locks != before.locks)
    findings->Add("locks " + std::to_string(before.locks) + ", then " + std::to_string(after.locks));
  if (after.heap_blocks != before.heap_blocks)
    findings->Add("heap blocks " + std::to_string(before.heap_blocks) + ", then " +
                  std::to_string(after.heap_blocks));
}

// ---- One run with one thing changed

using Change = std::function<void(Scene&, Words&)>;

static std::string RunOnce(const Row& row, const std::string& folder, const std::string& what,
                           uint32_t expected, const Change& change) {
  std::string all;
  Findings findings(NameOf(row) + ", " + what);
  const MemoryState before = Memory();
  {
    Scene scene(folder, row.needs);
    if (!scene.ready()) findings.Add("the scene cannot be made");
    Words words = MakeWords(row, scene);
    if (change) change(scene, words);
    const Outcome outcome = MakeCall(row, words);
    ExpectStatus(row, outcome, expected, &findings);
    if (outcome.status == KVSUCCESS && row.finish) row.finish(scene, words);
    if (row.cleanup) row.cleanup();
  }
  ExpectNothingLeft(before, &findings);
  findings.AddTo(&all);
  return all;
}

static std::string RunArgument(const Row& row, const std::string& folder, size_t place) {
  const Argument& argument = row.arguments[place];
  const std::string name = "argument " + std::to_string(place + 1) + " ";
  std::string all;
  const auto run = [&](const std::string& what, uint32_t expected, const Change& change) {
    all += RunOnce(row, folder, name + what, expected, change);
  };
  const uint32_t wrong_status =
      argument.wrong_status == kMayBeNull ? row.valid_status : argument.wrong_status;
  if (argument.role == Argument::Role::kPointer)
    run("null", wrong_status, [place](Scene&, Words& words) { words[place] = 0; });
  if (argument.role == Argument::Role::kEnum)
    for (const uint64_t word : {argument.past, ~uint64_t{0}})
      run(Hex(word), wrong_status, [place, word](Scene&, Words& words) { words[place] = word; });
  if (argument.role == Argument::Role::kHandle) {
    run("closed", wrong_status,
        [&](Scene& scene, Words& words) { words[place] = scene.ClosedHandle(argument.object); });
    run("of another kind", wrong_status,
        [&](Scene& scene, Words& words) { words[place] = scene.WrongHandle(argument.object); });
    run("0", wrong_status, [place](Scene&, Words& words) { words[place] = 0; });
  }
  return all;
}

// ---- Other threads

// Status of the call in a thread that does not own the handles, or has no session.
static uint32_t ForeignStatus(const Row& row) {
  if (row.foreign_status) return *row.foreign_status;
  if (row.session == SessionBy::kHandle) return KVFAIL_BAD_HANDLE;
  for (const Argument& argument : row.arguments)
    if (argument.role == Argument::Role::kHandle) return argument.wrong_status;
  return row.valid_status;
}

static void ExpectNoSession(const Row& row, uint64_t result, uint32_t expected, Findings* findings) {
  if (row.result == Result::kStatus && result != expected)
    findings->Add("status " + Hex(result) + ", expected " + Hex(expected));
  if ((row.result == Result::kCount || row.result == Result::kValue) && result != 0)
    findings->Add("result " + Hex(result) + ", expected 0");
}

static std::string RunThreads(const Row& row, const std::string& folder) {
  std::string all;
  if (row.session == SessionBy::kNone) return all;
  const MemoryState before = Memory();
  Findings findings(NameOf(row) + ", other threads");
  {
    Scene scene(folder, row.needs);
    const Words words = MakeWords(row, scene);
    InThread([&] {
      const uint32_t expected =
          row.session == SessionBy::kHandle ? KVFAIL_BAD_HANDLE : KVFAIL_THREAD_NOT_INITIALIZED;
      ExpectNoSession(row, row.call(words), expected, &findings);
    });
    InSession([&] {
      const uint32_t expected = ForeignStatus(row);
      const uint64_t result = row.call(words);
      if (row.result == Result::kStatus && result != expected)
        findings.Add("status " + Hex(result) + " in another session, expected " + Hex(expected));
      if (expected == KVSUCCESS && row.finish) row.finish(scene, words);
      Scene::CloseAll();
    });
    if (row.cleanup) row.cleanup();
  }
  ExpectNothingLeft(before, &findings);
  findings.AddTo(&all);
  return all;
}

std::string RunContract(const Row& row, const std::string& folder) {
  std::string all = RunOnce(row, folder, "as it stands", row.valid_status, nullptr);
  for (size_t place = 0; place < row.arguments.size(); ++place) all += RunArgument(row, folder, place);
  all += RunThreads(row, folder);
  all += RunOnce(row, folder, "once more", row.valid_status, nullptr);
  return all;
}

std::string RunWithoutLibrary(const Row& row, const std::string& folder) {
  std::string all;
  if (row.session == SessionBy::kNone) return all;
  Findings findings(NameOf(row) + ", library not started");
  Scene scene(folder, Needs::kNothing);
  Words words;
  for (const Argument& argument : row.arguments) words.push_back(argument.value(scene));
  ExpectNoSession(row, row.call(words), KVFAIL_NOT_INITIALIZED, &findings);
  findings.AddTo(&all);
  return all;
}

// ---- Faults

// An engine status that no function maps, with flag bits that must not come through.
static constexpr uint16_t kInjected = 0x42fe;
static constexpr uint32_t kInjectedMasked = kInjected & 0x3fff;
static constexpr uint32_t kEngineNoMemory = 0x107;

static bool Holds(const std::vector<uint32_t>& statuses, uint32_t status) {
  return std::ranges::find(statuses, status) != statuses.end();
}

// Closing and freeing go on whatever they are told; a function may report their failure or not.
static constexpr const char* kIgnoredEverywhere[] = {"EngMemFree", "EngMemUnlock",      "EngNoteClose",
                                                     "EngDbClose", "EngIdTableDestroy", "EngComputeEnd",
                                                     "EngCollectionClose"};

static bool Ignores(const Row& row, const std::string& call) {
  const auto named = [&](const char* name) { return call == name; };
  return std::ranges::any_of(row.ignores, named) || std::ranges::any_of(kIgnoredEverywhere, named);
}

static bool Explains(const Row& row, const Fault& fault, uint32_t status) {
  if (Holds(row.fault_statuses, status)) return true;
  if (fault.kind() == FaultKind::kEngineCall)
    return status == kInjectedMasked || (status == row.valid_status && Ignores(row, fault.hit_name()));
  if (fault.hit_name() == "heap") return status == KVFAIL_NO_MEMORY;
  // Inside the engine a cache may do without, and a call whose failure is ignored stays ignored.
  return status == kEngineNoMemory || status == KVFAIL_NO_MEMORY || status == row.valid_status;
}

static void ExpectSessionWorks(Findings* findings) {
  int32_t truncate = 7;
  if (KVGetProperty(KVPROP_SESS_TRUNCATE_TEXT, &truncate) != KVSUCCESS || truncate != 0)
    findings->Add("the session does not work");
  if (LastError().status != KVSUCCESS) findings->Add("the error state stays");
}

static void Judge(const Row& row, Scene& scene, const Words& words, const Fault& fault,
                  const Outcome& outcome, Findings* findings) {
  if (!fault.Hit()) {
    if (outcome.status != row.valid_status && row.result != Result::kNothing)
      findings->Add("no fault, yet status " + Hex(outcome.status));
    return;
  }
  if (row.result != Result::kNothing && !Explains(row, fault, outcome.status))
    findings->Add("status " + Hex(outcome.status) + " when " + fault.hit_name() + " fails");
  // What takes things back needs the engine and memory too: with a fault for good nothing can be undone.
  if (outcome.status == KVSUCCESS || !row.undone || fault.for_good()) return;
  if (const std::string left = row.undone(scene, words); !left.empty())
    findings->Add(left + " when " + fault.hit_name() + " fails");
}

using MakeFault = std::function<Fault(uint32_t nth)>;

// True when the fault hit.
static bool RunFault(const Row& row, const std::string& folder, uint32_t nth, const MakeFault& make_fault,
                     Findings* findings) {
  const MemoryState before = Memory();
  bool hit = false;
  {
    Scene scene(folder, row.needs);
    if (!scene.ready()) findings->Add("the scene cannot be made");
    const Words words = MakeWords(row, scene);
    Fault fault = make_fault(nth);
    const uint64_t result = row.call(words);
    fault.Disarm();
    Outcome outcome{result, static_cast<uint32_t>(result)};
    if (row.result != Result::kStatus)
      outcome.status = row.result == Result::kNothing ? 0 : LastError().status;
    hit = fault.Hit();
    Judge(row, scene, words, fault, outcome, findings);
    if (outcome.status == KVSUCCESS && row.finish) row.finish(scene, words);
    if (row.cleanup) row.cleanup();
    ExpectSessionWorks(findings);
  }
  ExpectNothingLeft(before, findings);
  return hit;
}

static constexpr uint32_t kFaultsMax = 2000;

std::string RunFaults(const Row& row, const std::string& folder, FaultCounts* counts) {
  struct Sweep {
    const char* name;
    MakeFault make_fault;
    uint32_t* hits;
  };
  const Sweep sweeps[] = {
      {"engine call", [](uint32_t nth) { return Fault::EngineCall(nth, kInjected); }, &counts->engine_calls},
      {"every engine call from", [](uint32_t nth) { return Fault::EngineCall(nth, kInjected, {}, true); },
       &counts->engine_calls},
      {"allocation", [](uint32_t nth) { return Fault::Allocation(nth); }, &counts->allocations},
      {"every allocation from", [](uint32_t nth) { return Fault::Allocation(nth, true); },
       &counts->allocations},
  };
  std::string all;
  for (const Sweep& sweep : sweeps)
    for (uint32_t nth = 1; nth < kFaultsMax; ++nth) {
      Findings findings(NameOf(row) + ", " + sweep.name + " " + std::to_string(nth));
      const bool hit = RunFault(row, folder, nth, sweep.make_fault, &findings);
      findings.AddTo(&all);
      if (!hit) break;
      ++*sweep.hits;
    }
  return all;
}

}  // namespace kit
