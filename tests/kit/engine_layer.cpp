#include "kit/engine_layer.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "brynd.h"
#include "kit/fault.h"

namespace kit {

static constinit thread_local Spy* current_spy = nullptr;
static constinit thread_local int engine_depth = 0;  // above 0 the engine is calling itself

Spy::Spy() : outer_(current_spy) { current_spy = this; }
Spy::~Spy() { current_spy = outer_; }

std::vector<std::string> Spy::Names() const {
  std::vector<std::string> names;
  for (const EngineCall& call : calls_) names.emplace_back(call.name);
  return names;
}

size_t Spy::Count(std::string_view name) const {
  return static_cast<size_t>(
      std::ranges::count_if(calls_, [&](const EngineCall& call) { return name == call.name; }));
}

const EngineCall* Spy::Find(std::string_view name, size_t nth) const {
  for (const EngineCall& call : calls_)
    if (name == call.name && nth-- == 0) return &call;
  return nullptr;
}

static constinit thread_local Answer* current_answer = nullptr;

Answer::Answer(std::string_view name, uint64_t result)
    : Answer(name, [result](const std::vector<uint64_t>&) { return result; }) {}
Answer::Answer(std::string_view name, Work work)
    : name_(name), work_(std::move(work)), outer_(current_answer) {
  current_answer = this;
}
Answer::~Answer() { current_answer = outer_; }

const Answer* Answer::To(std::string_view name) {
  for (const Answer* answer = current_answer; answer != nullptr; answer = answer->outer_)
    if (answer->name_ == name) return answer;
  return nullptr;
}

// ---- Arguments as words and texts

template <typename Value>
static uint64_t Word(Value value) {
  if constexpr (std::is_pointer_v<Value>)
    return reinterpret_cast<uintptr_t>(value);
  else if constexpr (std::is_same_v<Value, BLOCKID>)
    return uint64_t{value.pool} << 16 | value.block;
  else if constexpr (std::is_signed_v<Value>)
    return static_cast<uint64_t>(static_cast<int64_t>(value));
  else
    return static_cast<uint64_t>(value);
}

template <typename Result>
static Result Value(uint64_t word) {
  if constexpr (std::is_pointer_v<Result>)
    return reinterpret_cast<Result>(static_cast<uintptr_t>(word));
  else
    return static_cast<Result>(word);
}

// Parameters of a declaration "(const char* name, uint16_t name_bytes)", one text each.
static std::vector<std::string_view> Parameters(std::string_view declaration) {
  std::vector<std::string_view> parameters;
  declaration = declaration.substr(1, declaration.size() - 2);
  while (!declaration.empty()) {
    const size_t comma = std::min(declaration.find(", "), declaration.size());
    parameters.push_back(declaration.substr(0, comma));
    declaration.remove_prefix(std::min(comma + 2, declaration.size()));
  }
  return parameters;
}

// A const char* is text: of the length that the next parameter "..._bytes" tells, else up to its NUL.
static std::vector<std::string> Texts(std::string_view declaration, const std::vector<uint64_t>& words) {
  const std::vector<std::string_view> parameters = Parameters(declaration);
  std::vector<std::string> texts(words.size());
  for (size_t place = 0; place < words.size() && place < parameters.size(); ++place) {
    if (!parameters[place].starts_with("const char* ") || words[place] == 0) continue;
    const auto* text = reinterpret_cast<const char*>(words[place]);
    // A length of 0xffff stands for a text that ends with its NUL.
    const bool counted = place + 1 < parameters.size() && parameters[place + 1].ends_with("_bytes") &&
                         words[place + 1] != 0xffff;
    texts[place] = counted ? std::string(text, words[place + 1]) : std::string(text);
  }
  return texts;
}

// ---- The way through

struct CallInfo {
  const char* name;
  const char* result;
  const char* parameters;
  bool gives_back;  // closes or frees what it is given

  bool HasStatus() const { return std::strcmp(result, "EngStatus") == 0; }
};

static constexpr const char* kGivingBack[] = {
    "EngMemFree",
    "EngMemUnlock",
    "EngDbClose",
    "EngDbSessionClose",
    "EngNoteClose",
    "EngMailBoxClose",
    "EngLibraryFree",
    "EngIdTableDestroy",
    "EngCollectionClose",
    "EngComputeEnd",
    "EngFullTextSearchClose",
    "EngMailMessageClose",
    "EngAgentHandleClose",
    "EngAgentContextDestroy",
    "EngCertifierContextFree",
    "EngTaskStatusLineDelete",
    "EngObjectFree",
};

static bool GivesBack(const char* name) {
  return std::ranges::any_of(kGivingBack, [&](const char* entry) { return std::strcmp(entry, name) == 0; });
}

static bool FaultHits(const CallInfo& call) {
  Fault* fault = ArmedFault();
  if (fault == nullptr) return false;
  if (fault->kind() == FaultKind::kEngineCall) return call.HasStatus() && fault->FailsCall(call.name);
  const bool allocates =
      std::strcmp(call.name, "EngMemAlloc") == 0 || std::strcmp(call.name, "EngMemRealloc") == 0;
  return allocates && fault->FailsAllocation(call.name);
}

template <typename Function>
class Interposed;

template <typename Result, typename... Arguments>
class Interposed<Result (*)(Arguments...)> {
 public:
  using Function = Result (*)(Arguments...);
  Interposed(const CallInfo& call, Function real) : call_(call), real_(real) {}

  Result operator()(Arguments... arguments) const {
    if (engine_depth > 0) return Pass(arguments...);
    const bool fails = FaultHits(call_);
    const uint16_t failure = fails ? ArmedFault()->status() : 0;
    if constexpr (std::is_void_v<Result>) {
      Pass(arguments...);
      Record(0, arguments...);
    } else {
      const Answer* answer = Answer::To(call_.name);
      const Result result = answer != nullptr ? Value<Result>(answer->Give({Word(arguments)...}))
                                              : Perform(fails, failure, arguments...);
      Record(Word(result), arguments...);
      return result;
    }
  }

 private:
  Result Perform(bool fails, uint16_t failure, Arguments... arguments) const {
    if constexpr (std::is_same_v<Result, EngStatus>) {
      if (fails && !call_.gives_back) return failure;
      const Result result = Pass(arguments...);
      return fails ? failure : result;
    } else {
      return Pass(arguments...);
    }
  }

  Result Pass(Arguments... arguments) const {
    struct Depth {
      Depth() { ++engine_depth; }
      ~Depth() { --engine_depth; }
    } depth;
    if (real_ != nullptr) return real_(arguments...);
    constexpr EngStatus kNotAvailable = 0x1ff;
    std::fprintf(stderr, "engine call %s is missing\n", call_.name);
    if constexpr (std::is_same_v<Result, EngStatus>) return kNotAvailable;
    if constexpr (!std::is_void_v<Result>) return Result{};
  }

  void Record(uint64_t result, Arguments... arguments) const {
    if (current_spy == nullptr) return;
    Quiet quiet;
    std::vector<uint64_t> words{Word(arguments)...};
    std::vector<std::string> texts = Texts(call_.parameters, words);
    current_spy->Add({call_.name, std::move(words), std::move(texts), result});
  }

  const CallInfo& call_;
  Function real_;
};

template <typename Function>
static Function RealCall(const char* name) {
  Quiet quiet;
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool EngineIsComplete(std::vector<std::string>* names) {
#define ENGINE_CALL(name, result, parameters, arguments) \
  if (dlsym(RTLD_NEXT, #name) == nullptr) names->emplace_back(#name);
#include "kit/engine_calls.def"
#undef ENGINE_CALL
  return names->empty();
}

}  // namespace kit

#define ENGINE_CALL(name, result, parameters, arguments)                                 \
  extern "C" result name parameters {                                                    \
    static const kit::CallInfo call{#name, #result, #parameters, kit::GivesBack(#name)}; \
    static const auto real = kit::RealCall<decltype(&name)>(#name);                      \
    return kit::Interposed<decltype(&name)>(call, real) arguments;                       \
  }
#include "kit/engine_calls.def"
#undef ENGINE_CALL
