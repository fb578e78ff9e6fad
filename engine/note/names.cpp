// The name dictionary. Readers follow atomic pointers into tables that only ever grow; writers hold the
// mutex. A table of slots that has become too small is replaced by a larger one and kept until the end, since
// a reader may still be in it.
#include "note/names.h"

#include <algorithm>
#include <cassert>

#include "base/status.h"
#include "base/text.h"

namespace brynd {

// Open addressing over canonical tokens; kNoName marks an empty slot. At most half of the slots are filled.
struct NameDictionary::Slots {
  explicit Slots(uint32_t slot_count)
      : mask(slot_count - 1), tokens(std::make_unique<std::atomic<NameToken>[]>(slot_count)) {
    for (uint32_t i = 0; i < slot_count; ++i) tokens[i].store(kNoName, std::memory_order_relaxed);
  }
  uint32_t mask;
  uint32_t used = 0;
  std::unique_ptr<std::atomic<NameToken>[]> tokens;
};

namespace {

constexpr uint32_t kFirstSlots = 128;
constexpr size_t kTextBlockBytes = 4096;
std::atomic<uint64_t> next_identity{1};

}  // namespace

NameDictionary::NameDictionary()
    : identity_(next_identity.fetch_add(1, std::memory_order_relaxed)),
      chunks_(std::make_unique<std::atomic<NameEntry*>[]>(kNameTokensMax / kChunkEntries)),
      stored_(std::make_unique<std::atomic<std::atomic<NameToken>*>[]>(0x10000 / kChunkEntries)) {
  for (std::atomic<NameToken>& slot : exact_) slot.store(kNoName, std::memory_order_relaxed);
  all_slots_.push_back(std::make_unique<Slots>(kFirstSlots));
  slots_.store(all_slots_.back().get(), std::memory_order_release);
}

NameDictionary::~NameDictionary() = default;

NameDictionary::NameWords NameDictionary::WordsOf(std::string_view spelling) noexcept {
  const char* at = spelling.data();
  const size_t bytes = spelling.size();
  if (bytes < 8) return {LoadTail(at, bytes), 0, 0};
  return {LoadU64(at), bytes > 16 ? LoadU64(at + 8) : 0, LoadU64(at + bytes - 8)};
}

// The slot of a short spelling in the exact table.
static uint32_t ExactSlot(uint64_t first, uint64_t last, size_t bytes) noexcept {
  const uint64_t mixed = (first ^ (last << 1 | last >> 63) ^ bytes) * 0x9e3779b97f4a7c15u;
  return static_cast<uint32_t>(mixed >> 55);
}

// The token of this very spelling when it was met lately. Folds nothing: names are nearly always written as
// they were before.
NameToken NameDictionary::FindExact(std::string_view spelling) const noexcept {
  static_assert(kExactSlots == 1u << (64 - 55));
  if (spelling.size() > kWordsBytesMax) return kNoName;
  const NameWords words = WordsOf(spelling);
  const NameToken token =
      exact_[ExactSlot(words.first, words.last, spelling.size())].load(std::memory_order_acquire);
  if (token == kNoName) return kNoName;
  const NameEntry& entry = Entry(token);
  return entry.words == words && entry.bytes == spelling.size() ? token : kNoName;
}

void NameDictionary::KeepExact(std::string_view spelling, NameToken token) const noexcept {
  if (spelling.size() > kWordsBytesMax) return;
  const NameWords words = WordsOf(spelling);
  exact_[ExactSlot(words.first, words.last, spelling.size())].store(token, std::memory_order_release);
}

NameToken NameDictionary::LookupHashed(std::string_view name, uint64_t hash) const noexcept {
  const Slots* slots = slots_.load(std::memory_order_acquire);
  const uint32_t folded_hash = static_cast<uint32_t>(hash);
  for (uint32_t at = folded_hash & slots->mask;; at = (at + 1) & slots->mask) {
    const NameToken token = slots->tokens[at].load(std::memory_order_acquire);
    if (token == kNoName) return kNoName;
    const NameEntry& entry = Entry(token);
    if (entry.folded_hash == folded_hash && EqualFold(name, {entry.text, entry.bytes})) return token;
  }
}

NameToken NameDictionary::Lookup(std::string_view name) const noexcept {
  if (const NameToken token = FindExact(name); token != kNoName) return Canonical(token);
  const NameToken canonical = LookupHashed(name, HashFold(name));
  if (canonical != kNoName && Spelling(canonical) == name) KeepExact(name, canonical);
  return canonical;
}

NameToken NameDictionary::Intern(std::string_view spelling) {
  if (spelling.empty() || spelling.size() > kNameBytesMax) Fail(status::kBadItemName);
  if (const NameToken token = FindExact(spelling); token != kNoName) return token;
  const NameToken canonical = Lookup(spelling);
  if (canonical != kNoName && Spelling(canonical) == spelling) return canonical;
  std::lock_guard lock(mutex_);
  const NameToken token = InternLocked(spelling);
  KeepExact(spelling, token);
  return token;
}

NameToken NameDictionary::InternLocked(std::string_view spelling) {
  const uint64_t hash = HashFold(spelling);
  NameToken canonical = LookupHashed(spelling, hash);
  NameToken last = kNoName;
  for (NameToken token = canonical; token != kNoName; token = Entry(token).next_spelling) {
    if (Spelling(token) == spelling) return token;
    last = token;
  }
  const NameToken token = token_count_.load(std::memory_order_relaxed);
  if (token >= kNameTokensMax) Fail(status::kTooManyNames);
  if (token % kChunkEntries == 0) {
    all_chunks_.push_back(std::make_unique<NameEntry[]>(kChunkEntries));
    chunks_[token / kChunkEntries].store(all_chunks_.back().get(), std::memory_order_release);
  }
  NameEntry& entry = Entry(token);
  entry.text = KeepText(spelling);
  entry.bytes = static_cast<uint8_t>(spelling.size());
  if (spelling.size() <= kWordsBytesMax) entry.words = WordsOf(spelling);
  entry.folded_hash = static_cast<uint32_t>(hash);
  entry.canonical = canonical == kNoName ? token : canonical;
  if (canonical == kNoName)
    InsertCanonical(token);  // publishes the entry
  else
    Entry(last).next_spelling = token;  // chains are walked under the mutex alone
  token_count_.store(token + 1, std::memory_order_release);
  return token;
}

const char* NameDictionary::KeepText(std::string_view text) {
  if (text_blocks_.empty() || kTextBlockBytes - text_used_ < text.size()) {
    text_blocks_.push_back(std::make_unique<char[]>(kTextBlockBytes));
    text_used_ = 0;
  }
  char* kept = text_blocks_.back().get() + text_used_;
  CopyBytes(kept, text.data(), text.size());
  text_used_ += text.size();
  return kept;
}

void NameDictionary::InsertCanonical(NameToken token) {
  const auto insert = [this](Slots& slots, NameToken added) {
    uint32_t at = Entry(added).folded_hash & slots.mask;
    while (slots.tokens[at].load(std::memory_order_relaxed) != kNoName) at = (at + 1) & slots.mask;
    slots.tokens[at].store(added, std::memory_order_release);
    ++slots.used;
  };
  Slots* slots = slots_.load(std::memory_order_relaxed);
  if (2 * (slots->used + 1) > slots->mask) {
    auto larger = std::make_unique<Slots>(2 * (slots->mask + 1));
    for (uint32_t i = 0; i <= slots->mask; ++i) {
      const NameToken moved = slots->tokens[i].load(std::memory_order_relaxed);
      if (moved != kNoName) insert(*larger, moved);
    }
    all_slots_.push_back(std::move(larger));
    slots = all_slots_.back().get();
    insert(*slots, token);
    slots_.store(slots, std::memory_order_release);
  } else {
    insert(*slots, token);
  }
  edition_.fetch_add(1, std::memory_order_acq_rel);
}

void NameDictionary::SetStored(NameToken token, uint32_t id) {
  if (stored_[id / kChunkEntries].load(std::memory_order_relaxed) == nullptr) {
    all_stored_.push_back(std::make_unique<std::atomic<NameToken>[]>(kChunkEntries));
    stored_[id / kChunkEntries].store(all_stored_.back().get(), std::memory_order_release);
  }
  NameEntry& entry = Entry(token);
  NameEntry& first = Entry(entry.canonical);
  stored_[id / kChunkEntries].load(std::memory_order_relaxed)[id % kChunkEntries].store(
      token, std::memory_order_relaxed);
  entry.stored_id.store(id, std::memory_order_relaxed);
  first.single_id.store(id, std::memory_order_relaxed);
  first.stored_spellings.fetch_add(1, std::memory_order_release);
  stored_count_.store(id + 1, std::memory_order_release);
}

void NameDictionary::Learn(std::string_view spelling) {
  std::lock_guard lock(mutex_);
  const uint32_t id = stored_count_.load(std::memory_order_relaxed);
  if (id >= kStoredNamesMax || spelling.empty() || spelling.size() > kNameBytesMax) Fail(status::kDamaged);
  const NameToken token = InternLocked(spelling);
  if (Entry(token).stored_id.load(std::memory_order_relaxed) != kNotStored) Fail(status::kDamaged);
  SetStored(token, id);
}

uint16_t NameDictionary::Assign(NameToken token) {
  std::lock_guard lock(mutex_);
  const uint32_t id = stored_count_.load(std::memory_order_relaxed);
  assert(Entry(token).stored_id.load(std::memory_order_relaxed) == kNotStored);
  if (id >= kStoredNamesMax) Fail(status::kTooManyNames);
  SetStored(token, id);
  return static_cast<uint16_t>(id);
}

void NameDictionary::Forget(uint32_t stored_count) noexcept {
  std::lock_guard lock(mutex_);
  for (uint32_t id = stored_count_.load(std::memory_order_relaxed); id-- > stored_count;) {
    NameEntry& entry = Entry(OfStored(static_cast<uint16_t>(id)));
    NameEntry& first = Entry(entry.canonical);
    entry.stored_id.store(kNotStored, std::memory_order_relaxed);
    if (first.stored_spellings.fetch_sub(1, std::memory_order_relaxed) == 1) {
      first.single_id.store(kNotStored, std::memory_order_relaxed);
      continue;
    }
    // What remains has a lower id; with one spelling left it is the one FindIn asks for.
    for (NameToken token = entry.canonical; token != kNoName; token = Entry(token).next_spelling) {
      const uint32_t left = Entry(token).stored_id.load(std::memory_order_relaxed);
      if (left != kNotStored) first.single_id.store(left, std::memory_order_relaxed);
    }
  }
  const uint32_t known = stored_count_.load(std::memory_order_relaxed);
  stored_count_.store(std::min(known, stored_count), std::memory_order_release);
}

uint32_t NameDictionary::FindIn(const NoteImage& image, NameToken canonical, uint32_t from) const noexcept {
  const NameEntry& entry = Entry(canonical);
  const uint32_t spellings = entry.stored_spellings.load(std::memory_order_acquire);
  if (spellings == 0) return NoteImage::kNone;
  if (spellings == 1) {
    return image.FindName(static_cast<uint16_t>(entry.single_id.load(std::memory_order_relaxed)), from);
  }
  for (uint32_t index = from; index < image.ItemCount(); ++index) {
    if (IsStoredName(image.NameId(index), canonical)) return index;
  }
  return NoteImage::kNone;
}

}  // namespace brynd
