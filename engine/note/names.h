// The name dictionary of a database: images carry 16-bit name ids, this says which spelling an id stands for.
//
// A spelling met here has a token (a number of this dictionary in this process); some spellings have a stored
// id too. Spellings that differ in case alone share one canonical token, so two names are the same when their
// canonical tokens are.
// (1) A token, once given, stands for its spelling as long as the dictionary lives.
// (2) Stored ids are dense from 0, in the order of the store's records; what it took back is forgotten.
// (3) Names compare as base/text.h folds them.
// (4) Lookups take no lock and do not allocate, also while another thread adds names.
// (5) The exact table is a hint alone: a slot holds some token, and the entry says whether it is the one
//     wanted.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "note/image.h"

namespace brynd {

using NameToken = uint32_t;
constexpr NameToken kNoName = 0xffffffff;
constexpr uint32_t kNotStored = 0xffffffff;
constexpr uint32_t kNameBytesMax = 255;
constexpr uint32_t kStoredNamesMax = 0xfff0;
constexpr uint32_t kNameTokensMax = 0x40000;  // spellings in memory, those never stored included

class NameDictionary {
 public:
  NameDictionary();
  ~NameDictionary();
  NameDictionary(const NameDictionary&) = delete;
  NameDictionary& operator=(const NameDictionary&) = delete;

  // The canonical token of a name; kNoName when no spelling of it was ever met.
  NameToken Lookup(std::string_view name) const noexcept;
  // The token of this very spelling, met now if never before. Fails with "too many names", "bad argument".
  NameToken Intern(std::string_view spelling);

  NameToken Canonical(NameToken token) const noexcept { return Entry(token).canonical; }
  std::string_view Spelling(NameToken token) const noexcept {
    const NameEntry& entry = Entry(token);
    return {entry.text, entry.bytes};
  }

  // Stored ids.
  uint32_t StoredCount() const noexcept { return stored_count_.load(std::memory_order_acquire); }
  NameToken OfStored(uint16_t id) const noexcept {
    return stored_[id / kChunkEntries].load(std::memory_order_acquire)[id % kChunkEntries].load(
        std::memory_order_relaxed);
  }
  uint32_t StoredId(NameToken token) const noexcept {
    return Entry(token).stored_id.load(std::memory_order_relaxed);
  }
  // The store holds this spelling under the next id.
  void Learn(std::string_view spelling);
  // Gives the spelling the next id; the caller writes it to the store in the transaction that needs it.
  uint16_t Assign(NameToken token);
  // Ids from `stored_count` on never came into the store: their transaction was taken back.
  void Forget(uint32_t stored_count) noexcept;

  // The first item of an image that carries the canonical name, at or behind `from`; NoteImage::kNone without
  // one. Every name id of the image must be below StoredCount().
  uint32_t FindIn(const NoteImage& image, NameToken canonical, uint32_t from = 0) const noexcept;
  // Whether the stored name id stands for the canonical name.
  bool IsStoredName(uint16_t id, NameToken canonical) const noexcept {
    return Entry(OfStored(id)).canonical == canonical;
  }

  // Unique in the process, never reused; the edition rises with every new canonical name.
  uint64_t Identity() const noexcept { return identity_; }
  uint64_t Edition() const noexcept { return edition_.load(std::memory_order_acquire); }

 private:
  // A short spelling as words: with its length they tell it from every other. No words for longer ones.
  struct NameWords {
    uint64_t first = 0, middle = 0, last = 0;
    friend bool operator==(const NameWords&, const NameWords&) = default;
  };
  static constexpr size_t kWordsBytesMax = 3 * sizeof(uint64_t);
  static NameWords WordsOf(std::string_view spelling) noexcept;

  // A cache line.
  struct alignas(64) NameEntry {
    NameWords words;
    uint32_t folded_hash = 0;
    NameToken canonical = kNoName;
    NameToken next_spelling = kNoName;  // chain of the spellings of one name, from the canonical entry
    uint8_t bytes = 0;
    const char* text = nullptr;
    std::atomic<uint32_t> stored_id{kNotStored};
    std::atomic<uint32_t> single_id{kNotStored};  // canonical entries: the one stored id of the name
    std::atomic<uint32_t> stored_spellings{0};    // canonical entries: how many spellings are stored
  };
  static constexpr uint32_t kChunkEntries = 256;
  static constexpr uint32_t kExactSlots = 512;
  struct Slots;  // one open-addressing table of canonical tokens

  const NameEntry& Entry(NameToken token) const noexcept {
    return chunks_[token / kChunkEntries].load(std::memory_order_acquire)[token % kChunkEntries];
  }
  NameEntry& Entry(NameToken token) noexcept {
    return chunks_[token / kChunkEntries].load(std::memory_order_acquire)[token % kChunkEntries];
  }
  NameToken FindExact(std::string_view spelling) const noexcept;
  void KeepExact(std::string_view spelling, NameToken token) const noexcept;
  NameToken LookupHashed(std::string_view name, uint64_t hash) const noexcept;
  NameToken InternLocked(std::string_view spelling);
  const char* KeepText(std::string_view text);
  void InsertCanonical(NameToken token);
  void SetStored(NameToken token, uint32_t id);

  std::atomic<Slots*> slots_{nullptr};
  std::atomic<uint32_t> token_count_{0};
  std::atomic<uint32_t> stored_count_{0};
  std::atomic<uint64_t> edition_{1};
  uint64_t identity_ = 0;
  // Tokens of short spellings met lately, by their words; kNoName is an empty slot.
  mutable std::array<std::atomic<NameToken>, kExactSlots> exact_;
  std::unique_ptr<std::atomic<NameEntry*>[]> chunks_;
  std::unique_ptr<std::atomic<std::atomic<NameToken>*>[]> stored_;
  // What the lock-free readers may still look at lives as long as the dictionary.
  std::mutex mutex_;
  std::vector<std::unique_ptr<Slots>> all_slots_;
  std::vector<std::unique_ptr<NameEntry[]>> all_chunks_;
  std::vector<std::unique_ptr<std::atomic<NameToken>[]>> all_stored_;
  std::vector<std::unique_ptr<char[]>> text_blocks_;
  size_t text_used_ = 0;
};

}  // namespace brynd
