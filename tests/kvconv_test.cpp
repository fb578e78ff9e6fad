// The types, the frame of conversion and the public calls: order of checks, statuses, what a failure leaves
// behind.
#include <cstring>
#include <string>
#include <vector>

#include "kit/kit.h"
#include "kvint.h"

namespace {

using kit::LastError;

constexpr char kFill = '\x5a';

// The pairs that convert, destination first.
constexpr const char* kPartners[kKVTypeCount] = {"",     "1245", "12345678", "2346", "123456",
                                                 "1245", "2346", "27",       "28"};

bool Converts(uint32_t dest_type, uint32_t src_type) {
  return std::strchr(kPartners[dest_type], static_cast<int>('0' + src_type)) != nullptr && src_type != 0;
}

std::string TextList(const std::vector<std::string>& entries) {
  std::string list(2 + 2 * entries.size(), 0);
  KVIStore<uint16_t>(list.data(), static_cast<uint16_t>(entries.size()));
  for (size_t i = 0; i < entries.size(); ++i) {
    KVIStore<uint16_t>(list.data() + 2 + 2 * i, static_cast<uint16_t>(entries[i].size()));
    list += entries[i];
  }
  return list;
}

std::string NumberList(const std::vector<double>& singles, const std::vector<double>& ranges) {
  std::string list(4, 0);
  KVIStore<uint16_t>(list.data(), static_cast<uint16_t>(singles.size()));
  KVIStore<uint16_t>(list.data() + 2, static_cast<uint16_t>(ranges.size() / 2));
  for (const auto* values : {&singles, &ranges})
    for (double value : *values) list.append(reinterpret_cast<const char*>(&value), sizeof value);
  return list;
}

std::string NumberBytes(double number) { return {reinterpret_cast<const char*>(&number), sizeof number}; }

class ConvertTest : public kit::KavrinTest {
 protected:
  _api_session* session() { return KVICurrentSession(); }

  // Converts to a buffer of that room that is otherwise filled, and keeps status, length and the whole
  // buffer.
  uint32_t Convert(uint16_t src_type, const std::string& source, uint16_t dest_type, uint32_t dest_length,
                   uint32_t room = 512) {
    buffer_.assign(room, kFill);
    actual_ = 0xdeadbeef;
    return KVConvert(src_type, static_cast<uint32_t>(source.size()), source.data(), dest_type, dest_length,
                     buffer_.data(), &actual_);
  }
  std::string result() const { return buffer_.substr(0, actual_); }
  void SetTruncate(int32_t truncate) {
    ASSERT_EQ(KVSetProperty(KVPROP_SESS_TRUNCATE_TEXT, &truncate), KVSUCCESS);
  }

  std::string buffer_;
  uint32_t actual_ = 0;
};

// Types

TEST_F(ConvertTest, GetBryndType_EachType_EngineWord) {
  constexpr uint16_t kWords[] = {0, 0x300, 0x500, 0x400, 0x501, 0x301, 0x401, 1, 0x600};
  for (uint32_t type = 0; type < kKVTypeCount; ++type) EXPECT_EQ(GetBryndType(type), kWords[type]) << type;
}

TEST_F(ConvertTest, GetKVType_EveryWord_ByFamilyAndExactWord) {
  for (uint32_t word = 0; word <= 0xffff; ++word) {
    uint32_t expected = KVTYPE_NONE;
    switch (word) {
      case 0x500:
        expected = KVTYPE_TEXT;
        break;
      case 0x501:
        expected = KVTYPE_TEXTLIST;
        break;
      case 0x300:
        expected = KVTYPE_NUMBER;
        break;
      case 0x301:
        expected = KVTYPE_NUMBERLIST;
        break;
      case 0x400:
        expected = KVTYPE_DATETIME;
        break;
      case 0x401:
        expected = KVTYPE_DATETIMELIST;
        break;
      case 1:
        expected = KVTYPE_COMPOSITE;
        break;
      default:
        if ((word & 0xff00) == 0x700) expected = KVTYPE_TEXT;
        if ((word & 0xff00) == 0x600) expected = KVTYPE_FORMULA;
    }
    ASSERT_EQ(GetKVType(static_cast<uint16_t>(word)), expected) << std::hex << word;
  }
}

TEST_F(ConvertTest, KVI_BRDataTypeRead_OddAddress_BothFormsRead) {
  const char stored[] = {0, 0x01, 0x05, 0};
  EXPECT_EQ(KVI_BRDataTypeRead(stored + 1, 0), 0x501);
  EXPECT_EQ(KVI_BRDataTypeRead(stored + 1, 1), 0x501);
}

TEST_F(ConvertTest, Tables_EveryPair_AsPublished) {
  for (uint32_t dest = 0; dest < kKVTypeCount; ++dest)
    for (uint32_t src = 0; src < kKVTypeCount; ++src) {
      EXPECT_EQ(convert_length[dest][src] != 0, Converts(dest, src)) << dest << " from " << src;
      const auto scalar = [](uint32_t type) { return type == 5 ? 1 : type == 4 ? 2 : type == 6 ? 3 : type; };
      const bool implicit = dest != 0 && scalar(dest) == scalar(src);
      EXPECT_EQ(implicit_convert[dest][src] != 0, implicit) << dest << " to " << src;
    }
  EXPECT_EQ(convert_length[KVTYPE_TEXT][KVTYPE_NUMBER], 39);
  EXPECT_EQ(convert_length[KVTYPE_TEXTLIST][KVTYPE_DATETIME], 81);
  constexpr uint16_t kSmallest[] = {8, 8, 1, 8, 2, 4, 4, 4, 2};
  for (uint32_t type = 0; type < kKVTypeCount; ++type) {
    EXPECT_EQ(min_length[type], kSmallest[type]);
    EXPECT_EQ(fixed_length[type] != 0, type == 1 || type == 3 || type == 7);
  }
}

// Order of checks

TEST_F(ConvertTest, KVConvert_Nulls_NullParamAndLengthCleared) {
  double number = 1;
  uint32_t actual = 7;
  EXPECT_EQ(KVConvert(99, 8, nullptr, 99, 8, &number, &actual), KVFAIL_NULL_PARAM);
  EXPECT_EQ(actual, 0u);
  EXPECT_EQ(LastError().status, KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVConvert(1, 8, &number, 2, 8, nullptr, nullptr), KVFAIL_NULL_PARAM);
  char text[40];
  EXPECT_EQ(KVConvert(1, 8, &number, 2, 39, text, nullptr), KVSUCCESS) << "the length is optional";
  EXPECT_STREQ(text, "1");
}

TEST_F(ConvertTest, KVConvert_TypesOutOfRange_BadEnumAboveNineIllegalAtNine) {
  for (uint16_t other : {0, 1, 8})
    for (uint16_t wrong : {10, 11, 255, 65535}) {
      EXPECT_EQ(Convert(wrong, NumberBytes(1), other, 100), KVFAIL_BAD_ENUM);
      EXPECT_EQ(Convert(other, NumberBytes(1), wrong, 100), KVFAIL_BAD_ENUM);
    }
  EXPECT_EQ(Convert(9, NumberBytes(1), 2, 100), KVFAIL_ILLEGAL_CONVERSION);
  EXPECT_EQ(Convert(1, NumberBytes(1), 9, 100), KVFAIL_ILLEGAL_CONVERSION);
  EXPECT_EQ(Convert(9, NumberBytes(1), 10, 100), KVFAIL_BAD_ENUM);
  uint32_t length;
  EXPECT_EQ(_DataLength(session(), 9, 0, "", 9, 0, nullptr, nullptr, &length), KVFAIL_ILLEGAL_CONVERSION);
  EXPECT_EQ(_DataLength(session(), 10, 0, "", 1, 0, nullptr, nullptr, &length), KVFAIL_BAD_ENUM);
  EXPECT_EQ(_DataLength(session(), 1, 0, "", 10, 0, nullptr, nullptr, &length), KVFAIL_BAD_ENUM);
}

TEST_F(ConvertTest, KVConvert_PairsThatDoNotConvert_IllegalAndBufferUntouched) {
  uint32_t refused = 0;
  for (uint16_t dest = 0; dest < kKVTypeCount; ++dest)
    for (uint16_t src = 0; src < kKVTypeCount; ++src) {
      if (Converts(dest, src)) continue;
      ++refused;
      EXPECT_EQ(Convert(src, std::string(64, 0), dest, 100), KVFAIL_ILLEGAL_CONVERSION) << src << dest;
      EXPECT_EQ(buffer_, std::string(buffer_.size(), kFill));
      EXPECT_EQ(LastError().status, KVFAIL_ILLEGAL_CONVERSION);
      EXPECT_EQ(actual_, 0u);
      uint32_t length = 5;
      EXPECT_EQ(_DataLength(session(), src, 0, "", dest, 0, nullptr, nullptr, &length),
                KVFAIL_ILLEGAL_CONVERSION);
      EXPECT_EQ(length, 0u);
    }
  EXPECT_EQ(refused, 81u - 34u);
}

TEST_F(ConvertTest, CompConvert_EachCompositePair_NeedsADocumentOrIsNotAvailable) {
  struct Pair {
    uint16_t src, dest;
    uint32_t status;
  };
  constexpr Pair kPairs[] = {{KVTYPE_TEXT, KVTYPE_COMPOSITE, KVFAIL_ILLEGAL_CONVERSION},
                             {KVTYPE_COMPOSITE, KVTYPE_TEXT, kEngNotAvailable},
                             {KVTYPE_COMPOSITE, KVTYPE_COMPOSITE, KVFAIL_ILLEGAL_CONVERSION}};
  for (const Pair& pair : kPairs) {
    EXPECT_EQ(Convert(pair.src, "text", pair.dest, 100), pair.status);
    EXPECT_EQ(LastError().status, pair.status);
    EXPECT_FALSE(LastError().message.empty());
    EXPECT_EQ(buffer_, std::string(buffer_.size(), kFill));
  }
  uint32_t length = 9;
  EXPECT_EQ(_DataLength(session(), KVTYPE_COMPOSITE, 4, "text", KVTYPE_TEXT, 0, nullptr, nullptr, &length),
            KVSUCCESS);
  EXPECT_EQ(length, 0u) << "a composite that cannot be converted has no length, without a failure";
  EXPECT_EQ(_DataLength(session(), KVTYPE_TEXT, 4, "text", KVTYPE_COMPOSITE, 0, nullptr, nullptr, &length),
            KVSUCCESS);
  EXPECT_EQ(length, 4u);
}

TEST_F(ConvertTest, KVConvert_NoSession_DirectStatus) {
  kit::InThread([] {
    char text[8];
    EXPECT_EQ(KVConvert(2, 1, "1", 1, 8, text, nullptr), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVConvertGetLength(2, 1, "1", 1), 0u);
  });
}

// Sizes of buffers

TEST_F(ConvertTest, KVConvert_BelowSmallestBuffer_TooLongAndUntouched) {
  const std::string sources[kKVTypeCount] = {"",
                                             NumberBytes(1),
                                             "1",
                                             NumberBytes(0),
                                             TextList({"1", "2"}),
                                             NumberList({1, 2}, {}),
                                             NumberList({}, {}),
                                             "",
                                             ""};
  for (uint16_t dest = 1; dest < kKVTypeCount; ++dest) {
    if (dest == KVTYPE_COMPOSITE) continue;
    for (uint16_t src = 1; src < kKVTypeCount; ++src) {
      if (!Converts(dest, src) || src == KVTYPE_COMPOSITE || min_length[dest] == 1) continue;
      EXPECT_EQ(Convert(src, sources[src], dest, min_length[dest] - 1u), KVFAIL_DATA_TOO_LONG) << src << dest;
      EXPECT_EQ(buffer_, std::string(buffer_.size(), kFill)) << src << dest;
    }
  }
}

TEST_F(ConvertTest, KVConvert_NumberTextTooLong_TooLongUntouchedOrCut) {
  const std::string number = NumberBytes(123456789.25);  // 12 characters
  EXPECT_EQ(Convert(KVTYPE_NUMBER, number, KVTYPE_TEXT, 5), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(buffer_, std::string(buffer_.size(), kFill));
  EXPECT_EQ(actual_, 0u);
  SetTruncate(1);
  EXPECT_EQ(Convert(KVTYPE_NUMBER, number, KVTYPE_TEXT, 5), KVSUCCESS);
  EXPECT_EQ(result(), "12345");
  EXPECT_EQ(buffer_[5], 0);
  EXPECT_EQ(buffer_[6], kFill);
  SetTruncate(0);
  EXPECT_EQ(Convert(KVTYPE_NUMBER, number, KVTYPE_TEXT, 11), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(Convert(KVTYPE_NUMBER, number, KVTYPE_TEXT, 12), KVSUCCESS);
  EXPECT_EQ(result(), "123456789.25");
  EXPECT_EQ(Convert(KVTYPE_NUMBER, number, KVTYPE_TEXT, 0), KVSUCCESS) << "0 is no limit";
  EXPECT_EQ(result(), "123456789.25");
}

// Numbers out of text

TEST_F(ConvertTest, KVConvert_TextThatIsNoNumber_Zero) {
  for (const char* text : {"abc", "", "nan", "inf", "-", ".", "+-1", "e5"}) {
    EXPECT_EQ(KVConvert(KVTYPE_TEXT, 0, text, KVTYPE_NUMBER, 8, buffer_.assign(8, kFill).data(), nullptr),
              KVSUCCESS)
        << text;
    EXPECT_EQ(buffer_, NumberBytes(0)) << text;
  }
}

TEST_F(ConvertTest, KVConvert_HundredDigits_FirstEightyCount) {
  const std::string digits(100, '1');
  ASSERT_EQ(Convert(KVTYPE_TEXT, digits, KVTYPE_NUMBER, 8), KVSUCCESS);
  EXPECT_EQ(result(), NumberBytes(std::strtod(digits.substr(0, 80).c_str(), nullptr)));
  ASSERT_EQ(Convert(KVTYPE_TEXTLIST, TextList({digits}), KVTYPE_NUMBER, 8), KVSUCCESS);
  EXPECT_EQ(result(), NumberBytes(std::strtod(digits.substr(0, 80).c_str(), nullptr)));
}

TEST_F(ConvertTest, KVConvert_NumberOutOfRange_TooLongAndCleared) {
  for (const char* text : {"1e309", "-1e400", "1e99999999999"}) {
    EXPECT_EQ(Convert(KVTYPE_TEXT, text, KVTYPE_NUMBER, 8), KVFAIL_DATA_TOO_LONG) << text;
    EXPECT_EQ(buffer_.substr(0, 8), std::string(8, 0));
    EXPECT_EQ(buffer_[8], kFill);
    EXPECT_EQ(actual_, 0u);
  }
  EXPECT_EQ(Convert(KVTYPE_TEXT, "1e-400", KVTYPE_NUMBER, 8), KVSUCCESS) << "too small is 0";
  EXPECT_EQ(result(), NumberBytes(0));
}

TEST_F(ConvertTest, KVConvert_EmptyListToScalar_BadFormatAndCleared) {
  const std::string empty_text = TextList({}), empty_range = NumberList({}, {});
  for (uint16_t dest : {KVTYPE_NUMBER, KVTYPE_DATETIME}) {
    EXPECT_EQ(Convert(KVTYPE_TEXTLIST, empty_text, dest, 8), KVFAIL_BAD_FORMAT);
    EXPECT_EQ(buffer_.substr(0, 8), std::string(8, 0));
    const uint16_t list = dest == KVTYPE_NUMBER ? KVTYPE_NUMBERLIST : KVTYPE_DATETIMELIST;
    EXPECT_EQ(Convert(list, empty_range, dest, 8), KVFAIL_BAD_FORMAT);
    EXPECT_EQ(buffer_.substr(0, 8), std::string(8, 0));
  }
}

TEST_F(ConvertTest, KVConvert_RangeToNumber_LowEnd) {
  ASSERT_EQ(Convert(KVTYPE_NUMBERLIST, NumberList({}, {5, 1}), KVTYPE_NUMBER, 8), KVSUCCESS);
  EXPECT_EQ(result(), NumberBytes(5));
}

// Stored values and callers' own

TEST_F(ConvertTest, DataConvert_DamagedStoredValue_BadFormatAndCleared) {
  struct Damaged {
    uint32_t type;
    std::string bytes;
  };
  std::string long_entry = TextList({"abc", "def"});
  KVIStore<uint16_t>(long_entry.data() + 4, 4);
  std::string many_entries = TextList({"abc"});
  KVIStore<uint16_t>(many_entries.data(), 0xffff);
  std::string many_ranges = NumberList({1}, {});
  KVIStore<uint16_t>(many_ranges.data() + 2, 1);
  const Damaged values[] = {{KVTYPE_NUMBER, "1234567"},
                            {KVTYPE_NUMBER, ""},
                            {KVTYPE_DATETIME, "1234567"},
                            {KVTYPE_TEXTLIST, ""},
                            {KVTYPE_TEXTLIST, "\1"},
                            {KVTYPE_TEXTLIST, long_entry},
                            {KVTYPE_TEXTLIST, many_entries},
                            {KVTYPE_NUMBERLIST, "123"},
                            {KVTYPE_NUMBERLIST, many_ranges},
                            {KVTYPE_DATETIMELIST, many_ranges},
                            {KVTYPE_FORMULA, "\5"},
                            {KVTYPE_FORMULA, std::string("\5\0ab", 4)},
                            {KVTYPE_FORMULA, std::string("\1\0ab", 4)}};
  for (const Damaged& value : values)
    for (uint32_t dest : {value.type, uint32_t{KVTYPE_TEXT}}) {
      // An exact copy on the heap, so that a checker sees any byte read behind it.
      const std::vector<char> exact(value.bytes.begin(), value.bytes.end());
      std::string buffer(512, kFill);
      uint32_t actual = 0;
      EXPECT_EQ(_DataConvert(session(), nullptr, nullptr, value.type, static_cast<uint32_t>(exact.size()),
                             exact.data(), KVCONV_LINES, nullptr, nullptr, dest, 500, buffer.data(), &actual),
                KVFAIL_BAD_FORMAT)
          << value.type << " " << value.bytes.size();
      EXPECT_EQ(buffer.substr(0, min_length[dest]), std::string(min_length[dest], 0));
      EXPECT_EQ(buffer[min_length[dest]], kFill);
      char* block = nullptr;
      EXPECT_EQ(
          _DataConvert(session(), nullptr, nullptr, value.type, static_cast<uint32_t>(exact.size()),
                       exact.data(), KVCONV_LINES | KVCONV_ALLOC, nullptr, nullptr, dest, 0, &block, &actual),
          KVFAIL_BAD_FORMAT);
      EXPECT_EQ(block, nullptr);
    }
}

TEST_F(ConvertTest, KVConvert_OwnNumber_LengthBesideItDoesNotCount) {
  const double number = 12;
  for (uint32_t length : {0u, 4u, 8u, 100u}) {
    char text[40];
    ASSERT_EQ(KVConvert(KVTYPE_NUMBER, length, &number, KVTYPE_TEXT, 39, text, nullptr), KVSUCCESS);
    EXPECT_STREQ(text, "12");
  }
}

TEST_F(ConvertTest, KVConvert_UnalignedSourceAndTarget_SameAsAligned) {
  std::vector<char> room(200, 0);
  const std::string list = NumberList({1.5, 2.5}, {3, 4});
  for (size_t shift = 0; shift < 8; ++shift) {
    std::memcpy(room.data() + shift, list.data(), list.size());
    uint32_t actual = 0;
    ASSERT_EQ(KVConvert(KVTYPE_NUMBERLIST, 0, room.data() + shift, KVTYPE_NUMBERLIST, 0,
                        room.data() + 100 + shift, &actual),
              KVSUCCESS);
    EXPECT_EQ(std::string(room.data() + 100 + shift, actual), list);
  }
}

// Characters that are cut

TEST_F(ConvertTest, KVConvert_CutCharacterAtSourceEnd_LeftOut) {
  EXPECT_EQ(Convert(KVTYPE_TEXT, "ab\x05", KVTYPE_TEXT, 100), KVSUCCESS);
  EXPECT_EQ(result(), "ab");
  EXPECT_EQ(Convert(KVTYPE_TEXT, "ab\x10\x90", KVTYPE_TEXT, 100), KVSUCCESS);
  EXPECT_EQ(result(), "ab");
  EXPECT_EQ(Convert(KVTYPE_TEXT, "\x10", KVTYPE_TEXT, 100), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(LastError().status, KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(Convert(KVTYPE_TEXT, "\x10\x90", KVTYPE_NUMBER, 100), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(ConvertTest, KVConvert_TruncationCutsCharacter_LeftOut) {
  SetTruncate(1);
  EXPECT_EQ(Convert(KVTYPE_TEXT,
                    "ab\x10\x90\x91"
                    "cd",
                    KVTYPE_TEXT, 4),
            KVSUCCESS);
  EXPECT_EQ(result(), "ab");
  EXPECT_EQ(buffer_[2], 0);
  EXPECT_EQ(Convert(KVTYPE_TEXT,
                    "ab\x10\x90\x91"
                    "cd",
                    KVTYPE_TEXT, 5),
            KVSUCCESS);
  EXPECT_EQ(result(), "ab\x10\x90\x91");
  EXPECT_EQ(Convert(KVTYPE_TEXT, "\x10\x90\x91", KVTYPE_TEXT, 1), KVSUCCESS);
  EXPECT_EQ(result(), "") << "nothing whole fits";
}

TEST_F(ConvertTest, KVConvert_ShortTextInLongBuffer_NothingBehindItTouched) {
  EXPECT_EQ(Convert(KVTYPE_TEXT, "ab", KVTYPE_TEXT, 100), KVSUCCESS);
  EXPECT_EQ(result(), "ab");
  EXPECT_EQ(buffer_[2], 0);
  EXPECT_EQ(buffer_.substr(3), std::string(buffer_.size() - 3, kFill));
}

// Lines

TEST_F(ConvertTest, KVConvert_TextWithNul_CopiedAsItStands) {
  const std::string text("a\0b", 3);
  EXPECT_EQ(Convert(KVTYPE_TEXT, text, KVTYPE_TEXT, 100), KVSUCCESS);
  EXPECT_EQ(result(), text);
}

TEST_F(ConvertTest, DataConvert_LinesOfStoredText_SessionNewlineUpToTheLimit) {
  const std::string text("ab\0cd\0e", 7);
  const auto read = [&](uint32_t limit, uint32_t* actual) {
    buffer_.assign(64, kFill);
    return _DataConvert(session(), nullptr, nullptr, KVTYPE_TEXT, 7, text.data(), KVCONV_LINES, nullptr,
                        nullptr, KVTYPE_TEXT, limit, buffer_.data(), actual);
  };
  uint32_t actual = 0;
  ASSERT_EQ(read(0, &actual), KVSUCCESS);
  EXPECT_EQ(buffer_.substr(0, actual), "ab\r\ncd\r\ne");
  EXPECT_EQ(buffer_[actual], 0);
  EXPECT_EQ(read(8, &actual), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(buffer_, std::string(64, kFill));
  ASSERT_EQ(read(9, &actual), KVSUCCESS);
  SetTruncate(1);
  const std::string whole = "ab\r\ncd\r\ne";
  for (uint32_t limit = 1; limit <= 12; ++limit) {
    ASSERT_EQ(read(limit, &actual), KVSUCCESS);
    EXPECT_EQ(buffer_.substr(0, actual), whole.substr(0, limit));
    EXPECT_EQ(buffer_[actual], 0);
    EXPECT_EQ(buffer_[actual + 1], kFill);
  }
}

TEST_F(ConvertTest, DataConvert_NewlinesOfOtherLengths_Expanded) {
  const std::string text("a\0b", 3);
  for (const char* newline : {"\n", "<br>", "12345"}) {
    ASSERT_EQ(KVSetProperty(KVPROP_SESS_NEWLINE, newline), KVSUCCESS);
    char* block = nullptr;
    uint32_t actual = 0;
    ASSERT_EQ(_DataConvert(session(), nullptr, nullptr, KVTYPE_TEXT, 3, text.data(),
                           KVCONV_LINES | KVCONV_ALLOC, nullptr, nullptr, KVTYPE_TEXT, 0, &block, &actual),
              KVSUCCESS);
    EXPECT_EQ(std::string(block, actual), "a" + std::string(newline) + "b");
    EXPECT_EQ(block[actual], 0);
    KVIFree(block);
    uint32_t length = 0;
    ASSERT_EQ(_DataLength(session(), KVTYPE_TEXT, 3, text.data(), KVTYPE_TEXT, KVCONV_LINES, nullptr, nullptr,
                          &length),
              KVSUCCESS);
    EXPECT_EQ(length, actual);
  }
}

// Lengths

TEST_F(ConvertTest, KVConvertGetLength_Failures_ZeroAndNullAloneReported) {
  EXPECT_EQ(KVConvertGetLength(2, 0, nullptr, 1), 0u);
  EXPECT_EQ(LastError().status, KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVConvertGetLength(KVTYPE_TEXT, 3, "abc", KVTYPE_NUMBERLIST), 0u);
  EXPECT_EQ(LastError().status, KVSUCCESS);
  EXPECT_EQ(KVConvertGetLength(11, 3, "abc", KVTYPE_NUMBERLIST), 0u);
  EXPECT_EQ(LastError().status, KVSUCCESS);
}

TEST_F(ConvertTest, KVConvertGetLength_Results_AsConvertedLater) {
  const double number = 1.5;
  EXPECT_EQ(KVConvertGetLength(KVTYPE_NUMBER, 8, &number, KVTYPE_TEXT), 3u);
  EXPECT_EQ(KVConvertGetLength(KVTYPE_NUMBER, 8, &number, KVTYPE_TEXTLIST), 7u);
  EXPECT_EQ(KVConvertGetLength(KVTYPE_NUMBER, 8, &number, KVTYPE_NUMBERLIST), 12u);
  EXPECT_EQ(KVConvertGetLength(KVTYPE_NUMBER, 8, &number, KVTYPE_NUMBER), 8u);
  EXPECT_EQ(KVConvertGetLength(KVTYPE_TEXT, 0, "", KVTYPE_TEXTLIST), 2u);
  EXPECT_EQ(KVConvertGetLength(KVTYPE_TEXT, 0, "", KVTYPE_NUMBERLIST), 4u);
  EXPECT_EQ(KVConvertGetLength(KVTYPE_TEXT, 0, "1-5, 7", KVTYPE_NUMBERLIST), 28u);
  EXPECT_EQ(KVConvertGetLength(KVTYPE_TEXT, 0, "a, bc ;d", KVTYPE_TEXTLIST), 2u + 6u + 4u);
}

TEST_F(ConvertTest, DataLength_Estimates_NeverBelowTheExactLengthAndAsTold) {
  const auto length = [&](uint32_t src, const std::string& source, uint32_t dest, uint32_t flags) {
    uint32_t bytes = 0;
    EXPECT_EQ(_DataLength(session(), src, static_cast<uint32_t>(source.size()), source.data(), dest, flags,
                          nullptr, nullptr, &bytes),
              KVSUCCESS);
    return bytes;
  };
  EXPECT_EQ(length(KVTYPE_NUMBER, NumberBytes(1), KVTYPE_TEXT, KVCONV_ESTIMATE), 39u);
  EXPECT_EQ(length(KVTYPE_NUMBER, NumberBytes(1), KVTYPE_TEXTLIST, KVCONV_ESTIMATE), 43u);
  EXPECT_EQ(length(KVTYPE_DATETIME, NumberBytes(0), KVTYPE_TEXT, KVCONV_ESTIMATE), 79u);
  EXPECT_EQ(length(KVTYPE_TEXTLIST, TextList({"1", "2-3"}), KVTYPE_NUMBERLIST, KVCONV_ESTIMATE), 36u);
  EXPECT_EQ(length(KVTYPE_TEXT, "1,2;3", KVTYPE_NUMBERLIST, KVCONV_ESTIMATE), 3u * 16 + 4);
  const std::string list = NumberList({1, 2, 3}, {4, 5, 6, 7});
  EXPECT_EQ(length(KVTYPE_NUMBERLIST, list, KVTYPE_TEXT, KVCONV_ESTIMATE), 79u * 2 + 2 * 2 + 3 * 39);
  EXPECT_EQ(length(KVTYPE_NUMBERLIST, list, KVTYPE_TEXTLIST, KVCONV_ESTIMATE), 79u * 2 + 5 * 2 + 2 + 3 * 39);
  EXPECT_EQ(length(KVTYPE_NUMBERLIST, list, KVTYPE_TEXT, 0), std::strlen("1, 2, 3, 4-5, 6-7"));
  EXPECT_EQ(length(KVTYPE_NUMBERLIST, list, KVTYPE_TEXTLIST, 0), 2u + 10 + std::strlen("1234-56-7"));
  EXPECT_EQ(length(KVTYPE_NUMBERLIST, NumberList({}, {}), KVTYPE_TEXT, 0), 0u);
  EXPECT_EQ(length(KVTYPE_NUMBERLIST, NumberList({}, {}), KVTYPE_TEXT, KVCONV_ESTIMATE), 0u);
  EXPECT_EQ(length(KVTYPE_TEXTLIST, TextList({}), KVTYPE_TEXT, 0), 0u);
}

TEST_F(ConvertTest, DataLength_SingleValues_CountedForTextSourcesAlone) {
  uint32_t length = 0, singles = 99;
  ASSERT_EQ(
      _DataLength(session(), KVTYPE_TEXT, 8, "1-5, 7,9", KVTYPE_NUMBERLIST, 0, nullptr, &singles, &length),
      KVSUCCESS);
  EXPECT_EQ(singles, 2u);
  EXPECT_EQ(length, 4u + 4 * 8);
  const std::string list = TextList({"1-2", "3"});
  ASSERT_EQ(_DataLength(session(), KVTYPE_TEXTLIST, 0, list.data(), KVTYPE_NUMBERLIST, KVCONV_SRC_TERMINATED,
                        nullptr, &singles, &length),
            KVSUCCESS);
  EXPECT_EQ(singles, 1u);
  EXPECT_EQ(length, 4u + 3 * 8);
  singles = 99;
  EXPECT_EQ(_DataLength(session(), KVTYPE_TEXT, 1, "x", KVTYPE_NUMBERLIST, 0, nullptr, &singles, &length),
            KVFAIL_BAD_FORMAT);
  EXPECT_EQ(singles, 0u);
}

// Limits of lists

TEST_F(ConvertTest, KVConvert_TextListLimits_EntriesAndBytes) {
  for (uint32_t entries : {65534u, 65535u, 65536u}) {
    std::string text;
    for (uint32_t i = 0; i < entries; ++i) text += "x,";
    const uint32_t expected = entries <= 65535 ? 2 + entries * 3 : 0;
    EXPECT_EQ(
        KVConvertGetLength(KVTYPE_TEXT, static_cast<uint32_t>(text.size()), text.data(), KVTYPE_TEXTLIST),
        expected);
    EXPECT_EQ(Convert(KVTYPE_TEXT, text, KVTYPE_TEXTLIST, 0, 300000),
              expected == 0 ? KVFAIL_DATA_TOO_LONG : KVSUCCESS);
    EXPECT_EQ(actual_, expected);
  }
  for (uint32_t bytes : {65534u, 65535u, 65536u}) {
    const std::string text(bytes, 'x');
    EXPECT_EQ(Convert(KVTYPE_TEXT, text, KVTYPE_TEXTLIST, 0, 70000),
              bytes <= 65535 ? KVSUCCESS : KVFAIL_DATA_TOO_LONG);
    EXPECT_EQ(actual_, bytes <= 65535 ? bytes + 4 : 0);
  }
}

TEST_F(ConvertTest, KVConvert_NumberListLimits_SinglesAndRanges) {
  for (uint32_t entries : {65535u, 65536u})
    for (bool range : {false, true}) {
      std::string text;
      for (uint32_t i = 0; i < entries; ++i) text += range ? "1-2," : "3,";
      EXPECT_EQ(Convert(KVTYPE_TEXT, text, KVTYPE_NUMBERLIST, 0, 1100000),
                entries <= 65535 ? KVSUCCESS : KVFAIL_DATA_TOO_LONG);
      EXPECT_EQ(actual_, entries <= 65535 ? 4 + entries * (range ? 16 : 8) : 0);
    }
  std::string list = NumberList(std::vector<double>(65535, 1), {1, 2});
  EXPECT_EQ(Convert(KVTYPE_NUMBERLIST, list, KVTYPE_TEXTLIST, 0, 500000), KVFAIL_DATA_TOO_LONG)
      << "65536 entries";
  list = NumberList(std::vector<double>(65534, 1), {1, 2});
  EXPECT_EQ(Convert(KVTYPE_NUMBERLIST, list, KVTYPE_TEXTLIST, 0, 500000), KVSUCCESS);
}

// Formulas

TEST_F(ConvertTest, KVConvert_FormulaTextAndBack_SameText) {
  ASSERT_EQ(Convert(KVTYPE_TEXT, "1 + 2", KVTYPE_FORMULA, 0), KVSUCCESS);
  const std::string formula = result();
  EXPECT_EQ(KVILoad<uint16_t>(formula.data()), formula.size());
  EXPECT_EQ(KVConvertGetLength(KVTYPE_TEXT, 5, "1 + 2", KVTYPE_FORMULA), formula.size());
  ASSERT_EQ(Convert(KVTYPE_FORMULA, formula, KVTYPE_FORMULA, 0), KVSUCCESS);
  EXPECT_EQ(result(), formula);
  EXPECT_EQ(Convert(KVTYPE_FORMULA, formula, KVTYPE_FORMULA, static_cast<uint32_t>(formula.size() - 1)),
            KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(buffer_, std::string(buffer_.size(), kFill));
  ASSERT_EQ(Convert(KVTYPE_FORMULA, formula, KVTYPE_TEXT, 0), KVSUCCESS);
  EXPECT_EQ(result(), "1 + 2");
  EXPECT_EQ(KVConvertGetLength(KVTYPE_FORMULA, 0, formula.data(), KVTYPE_TEXT), 5u);
  EXPECT_EQ(Convert(KVTYPE_FORMULA, formula, KVTYPE_TEXT, 4), KVFAIL_DATA_TOO_LONG);
  SetTruncate(1);
  EXPECT_EQ(Convert(KVTYPE_FORMULA, formula, KVTYPE_TEXT, 4), KVSUCCESS);
  EXPECT_EQ(result(), "1 + ");
}

TEST_F(ConvertTest, KVConvert_FormulaThatDoesNotCompile_FormulaStatusWithFragment) {
  EXPECT_EQ(Convert(KVTYPE_TEXT, "1 + )", KVTYPE_FORMULA, 0), KVFAIL_FORMULA);
  EXPECT_EQ(LastError().status, KVFAIL_FORMULA);
  EXPECT_EQ(LastError().message.rfind("Formula error near '", 0), 0u) << LastError().message;
  EXPECT_EQ(LastError().message.back(), '\'');
  EXPECT_EQ(buffer_.substr(0, 2), std::string(2, 0));
  EXPECT_EQ(buffer_[2], kFill);
  EXPECT_EQ(Convert(KVTYPE_TEXT, std::string(65536, ' '), KVTYPE_FORMULA, 0), KVFAIL_DATA_TOO_LONG);
}

}  // namespace
