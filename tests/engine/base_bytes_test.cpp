#include <gtest/gtest.h>

#include <cmath>

#include "base/bytes.h"
#include "base/checksum.h"
#include "engine/test_random.h"

using namespace brynd;

namespace {

TEST(BytesTest, ByteReader_ReadsWhatByteWriterWrote) {
  std::byte room[100];
  ByteWriter out(room, sizeof room);
  out.U8(1);
  out.U16(0x1234);
  out.U32(0x89abcdef);
  out.U64(0x0123456789abcdefu);
  out.I32(-5);
  out.I64(-6);
  out.F64(2.5);
  out.Varint(300);
  out.Text("abc");
  out.Fill(std::byte{9}, 2);
  ASSERT_TRUE(out);
  ByteReader in(out.Written());
  EXPECT_EQ(1, in.U8());
  EXPECT_EQ(0x1234, in.U16());
  EXPECT_EQ(0x89abcdefu, in.U32());
  EXPECT_EQ(0x0123456789abcdefu, in.U64());
  EXPECT_EQ(-5, in.I32());
  EXPECT_EQ(-6, in.I64());
  EXPECT_EQ(2.5, in.F64());
  EXPECT_EQ(300u, in.Varint());
  EXPECT_EQ("abc", in.Text(3));
  EXPECT_EQ(2u, in.Left());
  EXPECT_EQ(9, in.U8());
  EXPECT_EQ(9, in.U8());
  EXPECT_TRUE(in);
  EXPECT_EQ(std::byte{0x34}, room[1]) << "little-endian";
}

TEST(BytesTest, ByteReader_ShortRead_YieldsZeroAndFailsForGood) {
  for (size_t size = 0; size < 8; ++size) {
    // One buffer for all sizes: the optimiser then does not guess at reads that the size forbids.
    const std::vector<std::byte> bytes(8, std::byte{0xff});
    ByteReader in(Bytes(bytes).first(size));
    EXPECT_EQ(0u, in.U64());
    EXPECT_TRUE(in.Failed());
    EXPECT_EQ(0u, in.Left());
    EXPECT_EQ(0u, in.U8()) << "no read succeeds after a failed one";
    EXPECT_TRUE(in.Take(1).empty());
    EXPECT_TRUE(in.Failed());
  }
  ByteReader empty;
  EXPECT_EQ(0, empty.U8());
  EXPECT_TRUE(empty.Failed());
}

TEST(BytesTest, ByteReader_TakeSkipSeek_KeepToTheEnd) {
  const std::vector<std::byte> bytes(10);
  ByteReader in(bytes);
  in.Seek(10);
  EXPECT_TRUE(in);
  in.Seek(4);
  EXPECT_EQ(6u, in.Left());
  EXPECT_EQ(6u, in.Rest().size());
  EXPECT_TRUE(in.Take(0).empty());
  EXPECT_TRUE(in);
  in.Seek(11);
  EXPECT_TRUE(in.Failed());
  in.Seek(0);
  EXPECT_TRUE(in.Failed()) << "seeking does not mend a failed reader";
  ByteReader huge(bytes);
  huge.Skip(SIZE_MAX);
  EXPECT_TRUE(huge.Failed());
}

TEST(BytesTest, ByteWriter_NoRoom_WritesNothingMore) {
  std::byte room[4] = {};
  ByteWriter out(room, 3);
  out.U16(0xffff);
  out.U16(0xffff);
  EXPECT_TRUE(out.Failed());
  out.U8(1);
  EXPECT_EQ(2u, out.Position());
  EXPECT_EQ(std::byte{0}, room[2]);
  EXPECT_EQ(std::byte{0}, room[3]);
}

TEST(BytesTest, Varint_AllLengths_ThereAndBack) {
  TestRandom random(SeedOfRun());
  for (unsigned bits = 0; bits <= 64; ++bits) {
    const uint64_t value = bits == 0 ? 0 : random.U64() >> (64 - bits);
    std::byte room[10];
    ByteWriter out(room, sizeof room);
    out.Varint(value);
    ASSERT_TRUE(out);
    ByteReader in(out.Written());
    EXPECT_EQ(value, in.Varint());
    EXPECT_EQ(0u, in.Left());
    ByteReader cut(out.Written().first(out.Position() - 1));
    EXPECT_EQ(0u, cut.Varint());
    EXPECT_TRUE(cut.Failed());
  }
}

TEST(BytesTest, Varint_Overlong_Fails) {
  const std::vector<std::byte> bytes(11, std::byte{0xff});
  ByteReader in(bytes);
  EXPECT_EQ(0u, in.Varint());
  EXPECT_TRUE(in.Failed());
  std::vector<std::byte> tenth(10, std::byte{0xff});
  tenth[9] = std::byte{2};  // a 65th bit
  ByteReader beyond(tenth);
  beyond.Varint();
  EXPECT_TRUE(beyond.Failed());
}

TEST(BytesTest, LoadAndStore_AtOddAddresses) {
  std::byte room[16];
  for (size_t offset = 0; offset < 8; ++offset) {
    StoreF64(room + offset, 1.5);
    EXPECT_EQ(1.5, LoadF64(room + offset));
    StoreU32(room + offset, 7);
    EXPECT_EQ(7u, LoadU32(room + offset));
  }
}

TEST(BytesTest, ByteBuilder_GrowsAndPatches) {
  ByteBuilder out;
  out.U16(0);
  out.Text("hello");
  out.U32(5);
  out.F64(1);
  StoreU16(out.At(0), 77);
  ByteReader in(out.View());
  EXPECT_EQ(77, in.U16());
  EXPECT_EQ("hello", in.Text(5));
  EXPECT_EQ(5u, in.U32());
  EXPECT_EQ(1.0, in.F64());
  EXPECT_EQ(0u, in.Left());
}

TEST(BytesTest, Checksum64_KnownValueAndSensitiveToEveryBit) {
  EXPECT_EQ(0x2d06800538d394c2u, Checksum64(Bytes())) << "XXH3 of nothing";
  std::vector<std::byte> bytes(67, std::byte{1});
  const uint64_t whole = Checksum64(bytes);
  for (size_t bit = 0; bit < bytes.size() * 8; ++bit) {
    bytes[bit / 8] ^= std::byte(1u << bit % 8);
    EXPECT_NE(whole, Checksum64(bytes));
    bytes[bit / 8] ^= std::byte(1u << bit % 8);
  }
  EXPECT_EQ(whole, Checksum64(bytes));
  EXPECT_NE(Checksum64(bytes, 1), Checksum64(bytes, 2));
}

}  // namespace
