// What operators do with two values. Lists are paired, the shorter one repeating its last element; the
// permuted operators work on every pair of the two. An error value on either side is the result, the left one
// first.
#pragma once

#include <span>

#include "formula/code.h"
#include "formula/value.h"

namespace brynd::formula {

constexpr uint64_t kPairsMax = 16u << 20;  // of a permuted comparison

Value Operate(Op op, const Value& left, const Value& right, Arena& arena);
Value Negate(const Value& value, Arena& arena);

// The elements of both, single values first, then ranges.
Value JoinLists(const Value& left, const Value& right, Arena& arena);
Value JoinAll(std::span<const Value> values, Arena& arena);
Value ElementOf(const Value& list, uint32_t index);

// Exact equality of two elements; values of different types are never equal.
bool SameElement(const Value& left, uint32_t left_index, const Value& right, uint32_t right_index);
// Order of two texts: by the engine's collation, texts that it finds equal by their bytes.
int CompareTexts(std::string_view left, std::string_view right);
int CompareElements(const Value& left, uint32_t left_index, const Value& right, uint32_t right_index);

// Adds seconds to a time; a date without a time moves by whole days. An error when the result leaves the
// calendar.
Value AddSeconds(const TIMEDATE& time, double seconds);

}  // namespace brynd::formula
