// Canonical records: sizes that stored data relies on, and every record there and back.
#include <gtest/gtest.h>

#include <map>
#include <numeric>
#include <vector>

#include "base/ods.h"
#include "brynd_memory.h"
#include "brynd_types.h"

namespace brynd {
namespace {

// Written out independently of the field strings.
const std::map<uint16_t, uint16_t> kSizes = {
    {0, 2},    {1, 4},    {3, 1},   {10, 8},   {15, 8},   {21, 2},   {27, 6},   {29, 10},      {30, 32},
    {43, 38},  {59, 6},   {60, 7},  {109, 2},  {110, 70}, {111, 4},  {113, 8},  {114, 24},     {118, 36},
    {119, 34}, {230, 12}, {316, 2}, {332, 10}, {374, 4},  {375, 12}, {428, 46}, {0x7001, 102}, {0x7002, 48}};

TEST(OdsTest, EngOdsLength_EveryCode_SizeOfTheTableAndNoneOfOthers) {
  for (uint32_t type = 0; type <= 0xffff; ++type) {
    const auto found = kSizes.find(static_cast<uint16_t>(type));
    ASSERT_EQ(EngOdsLength(static_cast<uint16_t>(type)), found == kSizes.end() ? 0 : found->second) << type;
  }
}

TEST(OdsTest, EngOdsReadAndWrite_EveryRow_ThereAndBackAtOddAddresses) {
  constexpr uint16_t kCount = 3;
  for (const OdsRow& row : OdsRows()) {
    const size_t byte_count = EngOdsLength(row.type) * size_t{kCount};
    std::vector<unsigned char> stored(byte_count + 2), record(byte_count + 2, 0xee),
        back(byte_count + 2, 0xdd);
    std::iota(stored.begin(), stored.end(), static_cast<unsigned char>(row.type));

    const void* source = stored.data() + 1;
    EngOdsRead(&source, row.type, record.data() + 1, kCount);
    EXPECT_EQ(source, stored.data() + 1 + byte_count) << row.type;
    EXPECT_EQ(record.front(), 0xee);
    EXPECT_EQ(record.back(), 0xee);

    void* target = back.data() + 1;
    EngOdsWrite(&target, row.type, record.data() + 1, kCount);
    EXPECT_EQ(target, back.data() + 1 + byte_count) << row.type;
    EXPECT_TRUE(std::equal(stored.begin() + 1, stored.end() - 1, back.begin() + 1)) << row.type;
    EXPECT_EQ(back.front(), 0xdd);
    EXPECT_EQ(back.back(), 0xdd);
  }
}

TEST(OdsTest, EngOdsRead_ObjectDescriptor_FieldsAsStored) {
  const unsigned char stored[] = {3, 0, 0x78, 0x56, 0x34, 0x12};
  OBJECT_DESCRIPTOR descriptor{};
  const void* source = stored;
  EngOdsRead(&source, 27, &descriptor, 1);
  EXPECT_EQ(descriptor.ObjectType, 3);
  EXPECT_EQ(uint32_t{descriptor.RRV}, 0x12345678u);
}

TEST(OdsTest, EngOdsReadAndWrite_UnknownCodeOrNothing_NothingMoves) {
  unsigned char stored[4] = {1, 2, 3, 4}, record[4] = {9, 9, 9, 9};
  const void* source = stored;
  void* target = stored;
  EngOdsRead(&source, 2, record, 1);
  EngOdsWrite(&target, 0xffff, record, 1);
  EngOdsRead(&source, 0, record, 0);
  EngOdsRead(&source, 0, nullptr, 1);
  EngOdsWrite(&target, 0, nullptr, 1);
  EngOdsRead(nullptr, 0, record, 1);
  EngOdsWrite(nullptr, 0, record, 1);
  EXPECT_EQ(source, stored);
  EXPECT_EQ(target, stored);
  EXPECT_EQ(record[0], 9);
  EXPECT_EQ(stored[0], 1);
}

}  // namespace
}  // namespace brynd
