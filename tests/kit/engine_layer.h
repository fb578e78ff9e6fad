// The layer between library and engine: every engine call of the test program passes here. A Spy records the
// calls of its thread; a fault makes one of them fail. Calls that the engine makes of itself are not seen.
#ifndef KIT_ENGINE_LAYER_H
#define KIT_ENGINE_LAYER_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kit {

// One call as it was made. texts holds the contents of const char* arguments, empty texts elsewhere.
struct EngineCall {
  const char* name;
  std::vector<uint64_t> words;
  std::vector<std::string> texts;
  uint64_t result;
};

// Records the engine calls of the thread that made it, as long as it lives. Spies nest; the innermost
// records.
class Spy {
 public:
  Spy();
  ~Spy();
  Spy(const Spy&) = delete;
  Spy& operator=(const Spy&) = delete;

  const std::vector<EngineCall>& calls() const { return calls_; }
  std::vector<std::string> Names() const;
  size_t Count(std::string_view name) const;
  // The nth call of that name, from 0; null when there were fewer.
  const EngineCall* Find(std::string_view name, size_t nth = 0) const;
  void Clear() { calls_.clear(); }
  void Add(EngineCall call) { calls_.push_back(std::move(call)); }

 private:
  std::vector<EngineCall> calls_;
  Spy* outer_;
};

// While one lives, calls of that name in its thread are answered by it and not made. Spies see them.
class Answer {
 public:
  // words holds the arguments, pointers too; a real output can be written through them.
  using Work = std::function<uint64_t(const std::vector<uint64_t>& words)>;
  Answer(std::string_view name, uint64_t result);
  Answer(std::string_view name, Work work);
  ~Answer();
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  // The answer to a call of that name, null if there is none.
  static const Answer* To(std::string_view name);
  uint64_t Give(const std::vector<uint64_t>& words) const { return work_(words); }

 private:
  std::string name_;
  Work work_;
  Answer* outer_;
};

// True when every engine call of the boundary is in the engine that the program runs with; names tells those
// that are not.
bool EngineIsComplete(std::vector<std::string>* names);

}  // namespace kit

#endif
