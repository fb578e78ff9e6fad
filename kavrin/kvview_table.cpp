// Stored words of views and columns and the public values that stand for them.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

struct BITROW {
  int32_t value;
  uint32_t bits;
};

constexpr BITROW kOpen[] = {{1, 0}, {2, 0x20}, {3, 0x40}};
constexpr BITROW kRefresh[] = {{1, 0}, {2, 0x3000}, {3, 0x1000}, {4, 0x2000}};
constexpr BITROW kHeading[] = {{1, 0}, {2, 0x400}, {3, 0x100}};
constexpr BITROW kUnread[] = {{0, 0}, {1, 0x10}, {2, 4}};
constexpr BITROW kColSort[] = {{0, 0}, {1, 1}, {3, 5}, {4, 3}, {7, 7}};
constexpr BITROW kSecondColSort[] = {{0, 0}, {1, 0x1000}, {3, 0x3000}};
constexpr BITROW kAction[] = {{0, 0}, {0x100, 0x100}, {0x200, 0x200}, {0x300, 0x300}, {0x800, 0x800}};
constexpr BITROW kAlignment[] = {{0, 0}, {1, 1}, {2, 2}};

constexpr int32_t kSpacingMax = 5;

template <size_t RowCount>
constexpr uint32_t MaskOf(const BITROW (&rows)[RowCount]) {
  uint32_t mask = 0;
  for (const BITROW& row : rows) mask |= row.bits;
  return mask;
}

// The row whose bits are exactly those that are set, else the first one whose bits all are: words that this
// library did not write have any bits.
template <size_t RowCount>
int32_t Read(const BITROW (&rows)[RowCount], uint32_t flags) {
  const uint32_t bits = flags & MaskOf(rows);
  for (const BITROW& row : rows)
    if (row.bits == bits) return row.value;
  for (const BITROW& row : rows)
    if (row.bits != 0 && (row.bits & bits) == row.bits) return row.value;
  return rows[0].value;
}

template <size_t RowCount>
const BITROW* Find(const BITROW (&rows)[RowCount], int32_t value) {
  for (const BITROW& row : rows)
    if (row.value == value) return &row;
  return nullptr;
}

template <size_t RowCount, typename Word>
uint32_t TranslateBits(const BITROW (&rows)[RowCount], int direction, int32_t* value, Word* flags,
                       uint32_t unknown_status = KVFAIL_BAD_ENUM) {
  if (direction == kTranslateRead) {
    *value = Read(rows, *flags);
    return KVSUCCESS;
  }
  const BITROW* row = Find(rows, *value);
  if (row == nullptr) return unknown_status;
  *flags = static_cast<Word>(*flags | row->bits);
  return KVSUCCESS;
}

}  // namespace

uint32_t KVIViewTranslateOpen(int Translate, int32_t* on_open, uint32_t* flags) {
  return TranslateBits(kOpen, Translate, on_open, flags);
}

uint32_t KVIViewTranslateRefresh(int Translate, int32_t* on_refresh, uint32_t* flags) {
  return TranslateBits(kRefresh, Translate, on_refresh, flags);
}

uint32_t KVIViewTranslateHeading(int Translate, int32_t* heading, uint32_t* flags) {
  return TranslateBits(kHeading, Translate, heading, flags);
}

uint32_t KVIViewTranslateUnread(int Translate, int32_t* unread, uint32_t* flags) {
  return TranslateBits(kUnread, Translate, unread, flags, KVSUCCESS);
}

uint32_t KVIViewTranslateSpacing(int Translate, int32_t* spacing, uint8_t* stored) {
  if (Translate == kTranslateRead) {
    if (*stored + 1 > kSpacingMax) return KVFAIL_BAD_FORMAT;
    *spacing = *stored + 1;
    return KVSUCCESS;
  }
  if (*spacing < 1) return KVFAIL_BAD_ENUM;
  *stored = static_cast<uint8_t>(*spacing - 1);
  return KVSUCCESS;
}

uint32_t KVIColumnTranslateColSort(int Translate, int32_t* sort, uint16_t* flags) {
  return TranslateBits(kColSort, Translate, sort, flags);
}

uint32_t KVIColumnTranslateSecondColSort(int Translate, int32_t* second_sort, uint16_t* flags) {
  return TranslateBits(kSecondColSort, Translate, second_sort, flags);
}

uint32_t KVIColumnTranslateAction(int Translate, int32_t* action, uint16_t* flags) {
  return TranslateBits(kAction, Translate, action, flags, KVSUCCESS);
}

uint32_t KVIColumnTranslateAlignment(int Translate, int32_t* justify, uint16_t* alignment) {
  return TranslateBits(kAlignment, Translate, justify, alignment);
}
