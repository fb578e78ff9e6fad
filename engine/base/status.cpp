#include "base/status.h"

#include <algorithm>
#include <iterator>
#include <new>

#include "base/boundary.h"

namespace brynd {
namespace {

struct StatusRow {
  EngStatus code;
  std::string_view name, text;
};

constexpr StatusRow kStatuses[] = {
#define BRYND_STATUS(name, code, text) {code, #name, text},
#include "base/statuses.def"
#undef BRYND_STATUS
};

static_assert(std::ranges::adjacent_find(kStatuses, std::ranges::greater_equal{}, &StatusRow::code) ==
                  std::end(kStatuses),
              "statuses.def is sorted by code, each code once");
static_assert(std::ranges::all_of(kStatuses,
                                  [](const StatusRow& row) {
                                    return row.code != 0 && row.code < 0x4000 && !row.text.empty() &&
                                           row.text.size() < 255;
                                  }),
              "codes have 14 bits; texts fit a buffer of 255");

const StatusRow* FindStatus(EngStatus code) noexcept {
  const auto* row = std::ranges::lower_bound(kStatuses, code, {}, &StatusRow::code);
  return row != std::end(kStatuses) && row->code == code ? row : nullptr;
}

}  // namespace

const char* Failure::what() const noexcept {
  const StatusRow* row = FindStatus(code_);
  // A literal, so a NUL stands behind it.
  return row == nullptr ? "unknown engine status" : row->text.data();
}

void Fail(EngStatus code) { throw Failure(code); }

std::string_view StatusText(EngStatus code) noexcept {
  const StatusRow* row = FindStatus(code);
  return row == nullptr ? std::string_view() : row->text;
}

std::string_view StatusName(EngStatus code) noexcept {
  const StatusRow* row = FindStatus(code);
  return row == nullptr ? std::string_view() : row->name;
}

EngStatus StatusOfCurrentException() noexcept {
  try {
    throw;
  } catch (const Failure& failure) {
    return failure.status();
  } catch (const std::bad_alloc&) {
    return status::kNoMemory;
  } catch (...) {
    return status::kInternal;
  }
}

}  // namespace brynd
