#include "store/sqlite/change_counter.h"

namespace brynd::store {

namespace {

constexpr int kRegionBytes = 32768;  // the size SQLite maps the index in
constexpr uint32_t kIndexFormat = 3007000;
constexpr size_t kTransactions = 1, kFrames = 2, kChecksum = 3;  // as 8-byte words

uint64_t LoadWord(const volatile uint64_t* words, size_t index) noexcept {
  return __atomic_load_n(words + index, __ATOMIC_ACQUIRE);
}

}  // namespace

void ChangeCounter::Attach(Connection& connection) noexcept {
  sqlite3_file* file = connection.MainFile();
  if (words_ != nullptr || file == nullptr || connection.LogFile() == nullptr) return;
  if (file->pMethods->iVersion < 2 || file->pMethods->xShmMap == nullptr) return;
  void volatile* region = nullptr;
  if (file->pMethods->xShmMap(file, 0, kRegionBytes, 0, &region) != SQLITE_OK || region == nullptr) return;
  const auto* words = static_cast<const volatile uint64_t*>(region);
  if (static_cast<uint32_t>(LoadWord(words, 0)) == kIndexFormat) words_ = words;
}

ChangeCounter::Value ChangeCounter::Read() const noexcept {
  if (words_ == nullptr) return {};
  return {LoadWord(words_, kTransactions), LoadWord(words_, kFrames), LoadWord(words_, kChecksum)};
}

bool ChangeCounter::Moved(const Value& since) const noexcept {
  return words_ == nullptr || LoadWord(words_, kTransactions) != since.transactions ||
         LoadWord(words_, kFrames) != since.frames || LoadWord(words_, kChecksum) != since.checksum;
}

uint32_t ChangeCounter::Frames() const noexcept {
  return words_ == nullptr ? 0 : static_cast<uint32_t>(LoadWord(words_, kFrames));
}

}  // namespace brynd::store
