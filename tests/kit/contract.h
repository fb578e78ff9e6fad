// The contract table: every exported function with a call that succeeds, and what happens when one thing
// about it is wrong. The contract test runs each row with every wrong thing; the fault test runs each row
// with every fault. Each family has its rows in contract_<family>.cpp.
#ifndef KIT_CONTRACT_H
#define KIT_CONTRACT_H

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "kit/scene.h"

namespace kit {

// Arguments of a call, one word each; pointers as addresses.
using Words = std::vector<uint64_t>;

// ---- A call by words

template <typename Value>
Value FromWord(uint64_t word) {
  if constexpr (std::is_pointer_v<Value>)
    return reinterpret_cast<Value>(static_cast<uintptr_t>(word));
  else
    return static_cast<Value>(word);
}

template <typename Result, typename... Parameters, size_t... Place>
uint64_t CallByWords(Result (*function)(Parameters...), const Words& words, std::index_sequence<Place...>) {
  if constexpr (std::is_void_v<Result>) {
    function(FromWord<Parameters>(words.at(Place))...);
    return 0;
  } else if constexpr (std::is_pointer_v<Result>) {
    return reinterpret_cast<uintptr_t>(function(FromWord<Parameters>(words.at(Place))...));
  } else {
    return static_cast<uint64_t>(function(FromWord<Parameters>(words.at(Place))...));
  }
}

using Call = std::function<uint64_t(const Words&)>;

template <typename Result, typename... Parameters>
Call ByWords(Result (*function)(Parameters...)) {
  return [function](const Words& words) {
    return CallByWords(function, words, std::index_sequence_for<Parameters...>());
  };
}

// ---- Arguments

constexpr uint32_t kMayBeNull = KVSUCCESS;

struct Argument {
  enum class Role { kPlain, kHandle, kPointer, kEnum } role = Role::kPlain;
  std::function<uint64_t(Scene&)> value;
  Object object = Object::kDatabase;  // of a handle
  uint32_t wrong_status = KVSUCCESS;  // for a null, for a number out of range, for a handle of nothing
  uint64_t past = 0;                  // one past the end of an enumeration
};

Argument Plain(uint64_t word);
Argument Value(std::function<uint64_t(Scene&)> value);
Argument Handle(Object object, uint32_t miss_status);
Argument Enum(uint64_t word, uint64_t past, uint32_t past_status);
// A text of the caller's.
Argument Text(const std::string& text, uint32_t null_status);
// Bytes of the caller's that the function reads, writes, or both.
Argument Out(size_t bytes, uint32_t null_status);
Argument Pointer(std::function<const void*(Scene&)> value, uint32_t null_status);
template <typename Record>
Argument In(const Record& record, uint32_t null_status) {
  return Pointer([record](Scene& scene) { return scene.Copy(&record, sizeof record); }, null_status);
}

// ---- Rows

enum class Result {
  kStatus,  // the function returns its status
  kCount,   // it returns a count, length, id or address, 0 for failures, which KVErrorFetch tells
  kValue,   // it returns a number; failures are told by KVErrorFetch alone
  kNothing  // it returns nothing, or nothing that tells of failures
};

enum class SessionBy { kHandle, kThread, kNone };

struct Row {
  const char* function;
  const char* variant;  // tells rows of one function apart
  Call call;
  Result result = Result::kStatus;
  SessionBy session = SessionBy::kThread;
  Needs needs = Needs::kNothing;
  std::vector<Argument> arguments;
  // Optional, by name:
  uint32_t valid_status = KVSUCCESS;            // of the call as it stands
  std::optional<uint32_t> foreign_status = {};  // in another thread's session, when the rules do not give it
  std::function<void(Scene&)> prepare = {};     // before the arguments are made
  std::function<void(Scene&, const Words&)> finish =
      {};                                 // after a call that succeeded: gives back what it handed out
  std::function<void()> cleanup = {};     // in any case, at the end
  std::vector<const char*> ignores = {};  // engine calls whose failure the function does not report
  std::vector<uint32_t> fault_statuses =
      {};  // statuses that it gives for failures of the engine or of memory
  std::function<std::string(Scene&, const Words&)> undone = {};  // after a fault: what should not be there
};

std::vector<Row> SessionRows();
std::vector<Row> ConvertRows();
std::vector<Row> DatabaseRows();
std::vector<Row> DocumentRows();
std::vector<Row> ItemRows();
std::vector<Row> DesignRows();
std::vector<Row> FormRows();
std::vector<Row> CompositeRows();
std::vector<Row> ViewRows();
std::vector<Row> IndexRows();
std::vector<Row> AllRows();

std::string NameOf(const Row& row);
void PrintTo(const Row& row, std::ostream* stream);

// ---- Runs; each returns what was found wrong, one line a finding, empty when all is as it should be

// Runs the row as it stands and with every wrong thing. The library is started on the folder.
std::string RunContract(const Row& row, const std::string& folder);
// Runs the row before the library is started.
std::string RunWithoutLibrary(const Row& row, const std::string& folder);

struct FaultCounts {
  uint32_t engine_calls = 0, allocations = 0;
};
// Runs the row with the 1st, 2nd, 3rd ... engine call, then allocation, failing, until the fault is past the
// end.
std::string RunFaults(const Row& row, const std::string& folder, FaultCounts* counts);

}  // namespace kit

#endif
