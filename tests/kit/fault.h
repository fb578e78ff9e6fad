// Faults on order: the n-th engine call, or the n-th allocation, of the thread that armed the fault fails.
//
// (1) A failing call that opens, reads or writes is not made. (2) A failing call that gives something back is
// made, and then reported as failed: what it was given is gone. (3) Calls without a status never fail. (4)
// Nothing of the kit itself fails.
#ifndef KIT_FAULT_H
#define KIT_FAULT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace kit {

enum class FaultKind { kEngineCall, kAllocation };

// Arms a fault from its making to Disarm or its end. One at a time in a thread.
class Fault {
 public:
  // The nth engine call, from 1, gives status; with a name, the nth call of that name. for_good: all later
  // ones too.
  static Fault EngineCall(uint32_t nth, uint16_t status, std::string_view name = {}, bool for_good = false);
  // The nth allocation, from 1: of the library's heap, by operator new in the engine, or by EngMemAlloc.
  static Fault Allocation(uint32_t nth, bool for_good = false);
  ~Fault();
  Fault(const Fault&) = delete;
  Fault& operator=(const Fault&) = delete;

  void Disarm();
  bool Hit() const { return hits_ != 0; }
  uint32_t hits() const { return hits_; }
  // What failed: the engine call's name, "heap" or "new".
  const std::string& hit_name() const { return hit_name_; }
  FaultKind kind() const { return kind_; }
  uint16_t status() const { return status_; }
  bool for_good() const { return for_good_; }

  // Asked by the layers: whether this call, this allocation fails.
  bool FailsCall(const char* call);
  bool FailsAllocation(const char* allocator);

 private:
  Fault(FaultKind kind, uint32_t nth, uint16_t status, std::string_view name, bool for_good);
  bool Count(const char* what);

  FaultKind kind_;
  uint32_t left_;
  uint16_t status_;
  std::string name_;
  bool for_good_;
  uint32_t hits_ = 0;
  std::string hit_name_;
};

// The fault that is armed in this thread, null if none.
Fault* ArmedFault();

// While one lives, faults and spies of this thread stay still: the kit's own work.
class Quiet {
 public:
  Quiet();
  ~Quiet();
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;

 private:
  Fault* fault_;
};

// Blocks of the library's heap that live now, of all threads.
int64_t HeapBlocks();

}  // namespace kit

#endif
