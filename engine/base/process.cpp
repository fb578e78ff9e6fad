#include "base/process.h"

#include <memory>

#include "base/memory.h"
#include "base/time.h"

namespace brynd {
namespace {

class NoSettingsStore final : public SettingsStore {
 public:
  std::optional<std::string> Get(std::string_view) override { return std::nullopt; }
  void Set(std::string_view, std::string_view) override { Fail(status::kNotInitialized); }
};

void LogLeaks(const LeakReport& report, LogSink* log) {
  log->Line("brynd: at EngTerm " + std::to_string(report.blocks) + " memory blocks of " +
            std::to_string(report.bytes) + " bytes were not freed, " + std::to_string(report.locks) +
            " locks not given back");
  memory::ForEach(
      [](void* context, MemHandle handle, uint16_t code, uint32_t byte_count, uint32_t lock_count) {
        static_cast<LogSink*>(context)->Line("brynd:   block " + std::to_string(handle) + ", type " +
                                             std::to_string(code) + ", " + std::to_string(byte_count) +
                                             " bytes, " + std::to_string(lock_count) + " locks");
      },
      log);
}

}  // namespace

SettingsStore& NoSettings() noexcept {
  static NoSettingsStore store;
  return store;
}

uint64_t RandomSource::U64() {
  std::byte bytes[8];
  Fill(bytes);
  return LoadU64(bytes);
}

TIMEDATE Clock::Now() {
  constexpr int64_t kNanosecondsPerHundredth = 10'000'000;
  const int64_t nanoseconds = UnixNanoseconds();
  int64_t hundredths = nanoseconds / kNanosecondsPerHundredth;
  if (nanoseconds % kNanosecondsPerHundredth < 0) --hundredths;
  return TimedateOfUnixHundredths(hundredths, ZoneByte(LocalOffsetAt(hundredths / kTicksPerSecond)));
}

void ProcessRecord::Start(const std::function<void()>& first) {
  std::lock_guard lock(mutex_);
  if (init_count_.load(std::memory_order_relaxed) == 0) {
    ReloadLocalZone();
    if (first) first();
  }
  init_count_.fetch_add(1, std::memory_order_release);
}

LeakReport ProcessRecord::Stop() noexcept {
  std::lock_guard lock(mutex_);
  if (init_count_.load(std::memory_order_relaxed) == 0) return {};
  if (init_count_.load(std::memory_order_relaxed) > 1) {
    init_count_.fetch_sub(1, std::memory_order_release);
    return {};
  }
  while (!hooks_.empty()) {  // a hook may register another
    const std::function<void()> hook = std::move(hooks_.back());
    hooks_.pop_back();
    hook();
  }
  init_count_.store(0, std::memory_order_release);
  settings = &NoSettings();
  data_directory.clear();
  const MemoryStats stats = memory::Stats();
  const LeakReport report{stats.blocks, stats.bytes, stats.locks};
  if (report.blocks != 0 || report.locks != 0) LogLeaks(report, log);
  return report;
}

void ProcessRecord::AtStop(std::function<void()> hook) {
  std::lock_guard lock(mutex_);
  hooks_.push_back(std::move(hook));
}

ProcessRecord& Process() noexcept {
  // Outlives every static object.
  static ProcessRecord* record = std::make_unique<ProcessRecord>().release();
  return *record;
}

}  // namespace brynd
