// Every cell of the matrix against a slow plain model: the whole result, every limit around it, both rules
// for text that does not fit, the caller's buffer and an allocated one, the exact length and the estimate.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "kit/kit.h"
#include "kvint.h"

namespace {

constexpr char kFill = '\x5a';
constexpr int kRounds = 60;

using Random = std::mt19937_64;

uint64_t SeedOfRun() {
  const char* given = std::getenv("KV_SEED");
  const uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 0) : std::random_device{}();
  std::printf("KV_SEED=%llu\n", static_cast<unsigned long long>(seed));
  return seed;
}

uint32_t Below(Random* random, uint32_t bound) { return static_cast<uint32_t>((*random)() % bound); }

// A value as the model keeps it. One field or another counts, by type.
struct Value {
  uint32_t type = 0;
  std::string scalar;                // 8 bytes
  std::string text;                  // bytes
  std::vector<std::string> entries;  // of a text list
  std::vector<std::string> singles;  // 8 bytes each
  std::vector<std::pair<std::string, std::string>> ranges;
};

std::string Word(size_t value) {
  return {static_cast<char>(value & 0xff), static_cast<char>(value >> 8 & 0xff)};
}

std::string Encode(const Value& value) {
  std::string bytes;
  switch (value.type) {
    case KVTYPE_NUMBER:
    case KVTYPE_DATETIME:
      return value.scalar;
    case KVTYPE_TEXT:
    case KVTYPE_FORMULA:
      return value.text;
    case KVTYPE_TEXTLIST:
      bytes = Word(value.entries.size());
      for (const std::string& entry : value.entries) bytes += Word(entry.size());
      for (const std::string& entry : value.entries) bytes += entry;
      return bytes;
    default:
      bytes = Word(value.singles.size()) + Word(value.ranges.size());
      for (const std::string& single : value.singles) bytes += single;
      for (const auto& range : value.ranges) bytes += range.first + range.second;
      return bytes;
  }
}

struct Settings {
  uint32_t display = KVLISTDISP_COMMA;
  uint32_t allowed = 14;
  std::string newline = "\r\n";
  uint32_t flags = 0;  // of _DataConvert
};

bool IsNumberKind(uint32_t type) { return type == KVTYPE_NUMBER || type == KVTYPE_NUMBERLIST; }

class MatrixTest : public kit::KavrinTest {
 protected:
  void SetUp() override {
    kit::KavrinTest::SetUp();
    session_ = KVICurrentSession();
    KVINTERNATIONAL intl;
    ASSERT_EQ(KVGetInternational(&intl), KVSUCCESS);
    intl.date_order = KVDATEORDER_0;
    std::strcpy(intl.date_sep, "/");
    std::strcpy(intl.time_sep, ":");
    ASSERT_EQ(KVSetInternational(&intl), KVSUCCESS);
  }

  void Apply(const Settings& settings) {
    KVFORMAT format = KVFORMAT_DEFAULT;
    format.listsep.display = static_cast<int32_t>(settings.display);
    format.listsep.sepallow_flags = settings.allowed;
    ASSERT_EQ(KVSetFormat(&format), KVSUCCESS);
    ASSERT_EQ(KVSetProperty(KVPROP_SESS_NEWLINE, settings.newline.c_str()), KVSUCCESS);
  }

  // ---- The model

  std::string Show(uint32_t type, const std::string& value) {
    char text[80];
    uint16_t bytes = 0;
    const INTLFORMAT& intl = session_->format.intl;
    const FORMAT& format = session_->format.format;
    if (IsNumberKind(type)) {
      double number;
      std::memcpy(&number, value.data(), 8);
      EXPECT_EQ(EngNumberToText(&intl, &format.nfmt, &number, text, 39, &bytes), 0);
    } else {
      TIMEDATE date;
      std::memcpy(&date, value.data(), 8);
      EXPECT_EQ(EngTimedateToText(&intl, &format.tfmt, &date, text, 79, &bytes), 0);
    }
    return {text, bytes};
  }

  static std::string Joined(const std::vector<std::string>& parts, uint32_t display) {
    const char* const kSeparators[] = {", ", " ", ", ", "; ", "\n", "\n\n"};
    std::string text;
    for (size_t i = 0; i < parts.size(); ++i) text += (i == 0 ? "" : kSeparators[display]) + parts[i];
    return text;
  }

  std::vector<std::string> ShownEntries(const Value& value) {
    std::vector<std::string> entries;
    for (const std::string& single : value.singles) entries.push_back(Show(value.type, single));
    for (const auto& range : value.ranges)
      entries.push_back(Show(value.type, range.first) + "-" + Show(value.type, range.second));
    return entries;
  }

  static std::string WithNewlines(const std::string& text, const Settings& settings) {
    if ((settings.flags & KVCONV_LINES) == 0 || (settings.flags & KVCONV_SRC_TERMINATED) != 0) return text;
    std::string lines;
    for (char c : text) c == 0 ? lines += settings.newline : lines += c;
    return lines;
  }

  static bool Separates(char c, uint32_t allowed) {
    if ((allowed & 0x1f) == 0) allowed = 14;
    return (c == ' ' && (allowed & 1)) || (c == ',' && (allowed & 2)) || (c == ';' && (allowed & 4)) ||
           (c == '\n' && (allowed & 0x18)) || c == 0;
  }

  static std::vector<std::string> SplitText(const std::string& text, uint32_t allowed) {
    std::vector<std::string> entries(1);
    for (size_t i = 0; i < text.size(); ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      const bool is_two = (byte >= 1 && byte <= 8) || byte == 0xb || byte == 0xc || byte == 0xe ||
                          byte == 0xf || (byte >= 0x18 && byte <= 0x1f);
      const size_t bytes = is_two ? 2 : byte >= 0x10 && byte <= 0x17 ? 3 : 1;
      if (bytes == 1 && Separates(text[i], allowed)) {
        entries.emplace_back();
        continue;
      }
      entries.back() += text.substr(i, bytes);
      i += bytes - 1;
    }
    std::vector<std::string> trimmed;
    for (const std::string& entry : entries) {
      const size_t start = entry.find_first_not_of(" \t\n\v\f\r");
      if (start == std::string::npos) continue;
      trimmed.push_back(entry.substr(start, entry.find_last_not_of(" \t\n\v\f\r") + 1 - start));
    }
    return trimmed;
  }

  // The result of a conversion without limits; a status when there is none.
  struct Expected {
    uint32_t status = KVSUCCESS;
    std::string bytes;
  };

  Expected Scalar(const Value& value) {
    const bool is_list = value.type == KVTYPE_NUMBERLIST || value.type == KVTYPE_DATETIMELIST;
    if (!is_list) return {KVSUCCESS, value.scalar};
    if (!value.singles.empty()) return {KVSUCCESS, value.singles[0]};
    if (!value.ranges.empty()) return {KVSUCCESS, value.ranges[0].first};
    return {KVFAIL_BAD_FORMAT, ""};
  }

  Expected Model(const Value& value, uint32_t dest_type, const Settings& settings) {
    Value out;
    out.type = dest_type;
    switch (dest_type) {
      case KVTYPE_NUMBER:
      case KVTYPE_DATETIME:
        return Scalar(value);
      case KVTYPE_TEXT:
        if (value.type == KVTYPE_TEXT) return {KVSUCCESS, WithNewlines(value.text, settings)};
        if (value.type == KVTYPE_TEXTLIST) return {KVSUCCESS, Joined(value.entries, settings.display)};
        if (!value.scalar.empty()) return {KVSUCCESS, Show(value.type, value.scalar)};
        return {KVSUCCESS, Joined(ShownEntries(value), settings.display)};
      case KVTYPE_TEXTLIST:
        if (value.type == KVTYPE_TEXT)
          out.entries = SplitText(value.text, settings.allowed);
        else if (value.type == KVTYPE_TEXTLIST)
          out.entries = value.entries;
        else if (!value.scalar.empty())
          out.entries = {Show(value.type, value.scalar)};
        else
          out.entries = ShownEntries(value);
        return {KVSUCCESS, Encode(out)};
      default:
        out.singles = value.scalar.empty() ? value.singles : std::vector<std::string>{value.scalar};
        out.ranges = value.ranges;
        return {KVSUCCESS, Encode(out)};
    }
  }

  // ---- Random values

  static std::string NumberBytes(double number) {
    std::string bytes(8, 0);
    std::memcpy(bytes.data(), &number, 8);
    return bytes;
  }
  static double RandomNumber(Random* random) {
    switch (Below(random, 5)) {
      case 0:
        return Below(random, 1000);
      case 1:
        return -static_cast<double>(Below(random, 1000000)) / 64;
      case 2:
        return std::ldexp(static_cast<double>(Below(random, 1u << 20)),
                          static_cast<int>(Below(random, 200)) - 100);
      case 3:
        return 0;
      default:
        return static_cast<double>(Below(random, 100000)) / 8;
    }
  }
  // A date and time, and the text that reads back as it.
  std::pair<std::string, std::string> RandomDate(Random* random) {
    TIME time{};
    time.year = 1900 + static_cast<int32_t>(Below(random, 300));
    time.month = 1 + static_cast<int32_t>(Below(random, 12));
    time.day = 1 + static_cast<int32_t>(Below(random, 28));
    time.hour = static_cast<int32_t>(Below(random, 24));
    time.minute = static_cast<int32_t>(Below(random, 60));
    time.second = static_cast<int32_t>(Below(random, 60));
    int32_t zone = 0, summer = 0;
    EngTimeZoneGet(&zone, &summer);
    time.zone = zone;
    time.dst = summer;
    EXPECT_EQ(EngTimeFromLocal(&time), 0);
    char text[40];
    std::snprintf(text, sizeof text, "%d/%d/%d %02d:%02d:%02d", time.month, time.day, time.year, time.hour,
                  time.minute, time.second);
    std::string bytes(8, 0);
    std::memcpy(bytes.data(), &time.GM, 8);
    return {bytes, text};
  }
  // A value of the kind, and a text that reads back as it.
  std::pair<std::string, std::string> RandomKind(Random* random, bool is_number) {
    if (!is_number) return RandomDate(random);
    const double number = RandomNumber(random);
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", number);
    return {NumberBytes(number), text};
  }

  static std::string RandomText(Random* random, uint32_t bytes_max) {
    const std::string kCharacters[] = {"a",
                                       "B",
                                       "7",
                                       "-",
                                       " ",
                                       "  ",
                                       ",",
                                       ";",
                                       "\n",
                                       "\r\n",
                                       std::string(1, 0),
                                       "\t",
                                       "\x05\x99",
                                       "\x10\x90\x91",
                                       "\xe4",
                                       "word",
                                       "\x0b\xaa"};
    std::string text;
    const uint32_t bytes = Below(random, bytes_max);
    while (text.size() < bytes) text += kCharacters[Below(random, std::size(kCharacters))];
    return text;
  }

  Value RandomValue(Random* random, uint32_t type) {
    Value value;
    value.type = type;
    const bool is_number = IsNumberKind(type);
    switch (type) {
      case KVTYPE_NUMBER:
      case KVTYPE_DATETIME:
        value.scalar = RandomKind(random, is_number).first;
        break;
      case KVTYPE_TEXT:
        value.text = RandomText(random, Below(random, 4) == 0 ? 3000 : 40);
        break;
      case KVTYPE_TEXTLIST:
        for (uint32_t i = Below(random, 6); i != 0; --i) value.entries.push_back(RandomText(random, 30));
        break;
      default:
        for (uint32_t i = Below(random, 4); i != 0; --i)
          value.singles.push_back(RandomKind(random, is_number).first);
        for (uint32_t i = Below(random, 4); i != 0; --i)
          value.ranges.emplace_back(RandomKind(random, is_number).first, RandomKind(random, is_number).first);
    }
    return value;
  }

  // A text or text list that holds values of the destination's kind, which the model has at hand.
  Value RandomWritten(Random* random, uint32_t type, uint32_t dest_type, const Settings& settings) {
    const bool is_number = IsNumberKind(dest_type);
    const bool to_list = dest_type == KVTYPE_NUMBERLIST || dest_type == KVTYPE_DATETIMELIST;
    Value value;
    value.type = type;
    const uint32_t value_count = to_list ? Below(random, 5) : 1;
    std::string text;
    for (uint32_t i = 0; i < value_count; ++i) {
      const auto [low, low_text] = RandomKind(random, is_number);
      std::string entry = std::string(Below(random, 3), ' ') + low_text;
      const bool blank_separates = (settings.allowed & 1) != 0;
      if (to_list && Below(random, 2) == 0) {
        const auto [high, high_text] = RandomKind(random, is_number);
        value.ranges.emplace_back(low, high);
        entry += blank_separates
                     ? "-"
                     : std::string(Below(random, 2), ' ') + "-" + std::string(Below(random, 2), '\t');
        entry += high_text;
      } else if (to_list) {
        value.singles.push_back(low);
      } else {
        value.scalar = low;
      }
      value.entries.push_back(entry);
      text += (i == 0 ? "" : (settings.allowed & 2) != 0 ? "," : ";") + entry;
    }
    value.text = text;
    return value;
  }

  // ---- The check

  static std::string SourceBytes(const Value& value) {
    Value plain;
    plain.type = value.type;
    plain.scalar = value.scalar;
    plain.text = value.text;
    plain.entries = value.entries;
    plain.singles = value.singles;
    plain.ranges = value.ranges;
    return Encode(plain);
  }

  void CheckLimit(const std::vector<char>& source, uint32_t src_type, uint32_t dest_type,
                  const Settings& settings, const Expected& expected, uint32_t limit, bool truncate) {
    session_->truncate_text = truncate ? 1 : 0;
    const size_t room = std::max<size_t>(expected.bytes.size(), limit) + 24;
    std::string buffer(room, kFill);
    uint32_t actual = 0xabcdabcd;
    const uint32_t status = _DataConvert(session_, nullptr, nullptr, src_type,
                                         static_cast<uint32_t>(source.size()), source.data(), settings.flags,
                                         nullptr, nullptr, dest_type, limit, buffer.data(), &actual);
    session_->truncate_text = 0;
    const bool is_text = dest_type == KVTYPE_TEXT;
    const bool fits = limit == 0 || expected.bytes.size() <= limit;
    if (limit != 0 && limit < min_length[dest_type]) {
      ASSERT_EQ(status, KVFAIL_DATA_TOO_LONG);
      ASSERT_EQ(buffer, std::string(room, kFill));
    } else if (expected.status != KVSUCCESS) {
      ASSERT_EQ(status, expected.status);
    } else if (!fits && !(is_text && truncate)) {
      ASSERT_EQ(status, KVFAIL_DATA_TOO_LONG) << limit << " for " << expected.bytes.size();
      ASSERT_EQ(buffer, std::string(room, kFill));
    } else {
      ASSERT_EQ(status, KVSUCCESS) << limit << " for " << expected.bytes.size();
      const std::string result = fits ? expected.bytes : expected.bytes.substr(0, limit);
      ASSERT_EQ(actual, result.size());
      ASSERT_EQ(buffer.substr(0, actual), result);
      if (is_text) {
        ASSERT_EQ(buffer[actual], 0);
      }
      const size_t used = actual + (is_text ? 1 : 0);
      ASSERT_EQ(buffer.substr(used), std::string(room - used, kFill)) << "written behind the result";
    }
  }

  void CheckAllocated(const std::vector<char>& source, uint32_t src_type, uint32_t dest_type,
                      const Settings& settings, const Expected& expected) {
    char* block = nullptr;
    uint32_t actual = 0;
    const uint32_t status = _DataConvert(
        session_, nullptr, nullptr, src_type, static_cast<uint32_t>(source.size()), source.data(),
        settings.flags | KVCONV_ALLOC, nullptr, nullptr, dest_type, 0, &block, &actual);
    ASSERT_EQ(status, expected.status);
    if (status != KVSUCCESS) {
      ASSERT_EQ(block, nullptr);
      return;
    }
    ASSERT_EQ(std::string(block, actual), expected.bytes);
    if (dest_type == KVTYPE_TEXT) {
      ASSERT_EQ(block[actual], 0);
    }
    KVIFree(block);
  }

  void CheckLengths(const std::vector<char>& source, uint32_t src_type, uint32_t dest_type,
                    const Settings& settings, const Expected& expected) {
    uint32_t exact = 0, estimate = 0;
    const auto length = [&](uint32_t flags, uint32_t* bytes) {
      return _DataLength(session_, src_type, static_cast<uint32_t>(source.size()), source.data(), dest_type,
                         settings.flags | flags, nullptr, nullptr, bytes);
    };
    ASSERT_EQ(length(0, &exact), KVSUCCESS);
    const bool is_fixed = fixed_length[dest_type] != 0;
    ASSERT_EQ(exact, is_fixed ? min_length[dest_type] : expected.bytes.size());
    ASSERT_EQ(length(KVCONV_ESTIMATE, &estimate), KVSUCCESS);
    const bool told_without_separators =
        dest_type == KVTYPE_TEXT && (src_type == KVTYPE_NUMBERLIST || src_type == KVTYPE_DATETIMELIST);
    if (!told_without_separators) {
      ASSERT_GE(estimate, exact);
    }
  }

  void CheckValue(const Value& value, uint32_t dest_type, const Settings& settings,
                  const Expected& expected) {
    const std::string bytes = SourceBytes(value);
    const std::vector<char> source(bytes.begin(),
                                   bytes.end());  // an exact block: a byte read behind it is seen
    const auto size = static_cast<uint32_t>(expected.bytes.size());
    std::vector<uint32_t> limits = {0, 1, 2, 3, 4, 7, 8, 9, size / 2 + 1, size + 1, size + 2, size + 100};
    if (size > 1) limits.push_back(size - 1);
    if (size > 0) limits.push_back(size);
    for (bool truncate : {false, true})
      for (uint32_t limit : limits) {
        CheckLimit(source, value.type, dest_type, settings, expected, limit, truncate);
        if (HasFatalFailure()) return;
      }
    CheckAllocated(source, value.type, dest_type, settings, expected);
    if (HasFatalFailure() || expected.status != KVSUCCESS) return;
    CheckLengths(source, value.type, dest_type, settings, expected);
  }

  static Settings RandomSettings(Random* random) {
    static const char* const kNewlines[] = {"\n", "\r\n", "<br>", "12345"};
    Settings settings;
    settings.display = Below(random, 6);
    settings.allowed = Below(random, 32);
    settings.newline = kNewlines[Below(random, std::size(kNewlines))];
    if (Below(random, 2) == 0) settings.flags = KVCONV_LINES;
    return settings;
  }

  _api_session* session_ = nullptr;
};

// All cells but those of composites and formulas; texts are read as values in the next test.
TEST_F(MatrixTest, DataConvert_RandomValues_AsTheModelAtEveryLimit) {
  Random random(SeedOfRun());
  uint32_t cells = 0;
  for (uint32_t dest = 1; dest <= KVTYPE_DATETIMELIST; ++dest)
    for (uint32_t src = 1; src <= KVTYPE_DATETIMELIST; ++src) {
      const bool is_read =
          (src == KVTYPE_TEXT || src == KVTYPE_TEXTLIST) && dest != KVTYPE_TEXT && dest != KVTYPE_TEXTLIST;
      if (convert_length[dest][src] == 0 || is_read) continue;
      ++cells;
      for (int round = 0; round < kRounds; ++round) {
        const Settings settings = RandomSettings(&random);
        Apply(settings);
        const Value value = RandomValue(&random, src);
        CheckValue(value, dest, settings, Model(value, dest, settings));
        ASSERT_FALSE(HasFatalFailure()) << dest << " from " << src << " round " << round;
      }
    }
  EXPECT_EQ(cells, 20u);
}

TEST_F(MatrixTest, DataConvert_WrittenValues_ReadAsTheModelAtEveryLimit) {
  Random random(SeedOfRun());
  for (uint32_t dest : {KVTYPE_NUMBER, KVTYPE_DATETIME, KVTYPE_NUMBERLIST, KVTYPE_DATETIMELIST})
    for (uint32_t src : {KVTYPE_TEXT, KVTYPE_TEXTLIST})
      for (int round = 0; round < kRounds; ++round) {
        Settings settings = RandomSettings(&random);
        const bool is_date = dest == KVTYPE_DATETIME || dest == KVTYPE_DATETIMELIST;
        settings.allowed = (settings.allowed | 6) & (is_date ? ~1u : ~0u);  // dates have a blank inside
        Apply(settings);
        const Value value = RandomWritten(&random, src, dest, settings);
        const bool to_list = dest == KVTYPE_NUMBERLIST || dest == KVTYPE_DATETIMELIST;
        Value read = value;
        if (to_list) read.scalar.clear();
        read.type = dest;
        const Expected expected = {KVSUCCESS, to_list ? Encode(read) : value.scalar};
        CheckValue(value, dest, settings, expected);
        ASSERT_FALSE(HasFatalFailure())
            << dest << " from " << src << " round " << round << ": " << value.text;
      }
}

TEST_F(MatrixTest, DataConvert_AllocationsFail_NoMemoryAndNothingKept) {
  Random random(SeedOfRun());
  Apply({});
  uint32_t faults = 0;
  for (uint32_t dest = 1; dest <= KVTYPE_DATETIMELIST; ++dest)
    for (uint32_t src = 1; src <= KVTYPE_DATETIMELIST; ++src) {
      if (convert_length[dest][src] == 0) continue;
      Value value = RandomValue(&random, src);
      if (src == KVTYPE_TEXT || src == KVTYPE_TEXTLIST) {
        value.text = IsNumberKind(dest) ? "1,2" : "3/4/1997,5/6/1997";
        value.entries = {IsNumberKind(dest) ? "1" : "3/4/1997"};
      }
      if (value.type >= KVTYPE_NUMBERLIST && value.singles.empty()) value.singles = {NumberBytes(0)};
      const std::string source = SourceBytes(value);
      for (uint32_t n = 1;; ++n) {
        char* block = nullptr;
        uint32_t actual = 0;
        const int64_t blocks = kit::HeapBlocks();
        kit::Fault fault = kit::Fault::Allocation(n);
        const uint32_t status =
            _DataConvert(session_, nullptr, nullptr, src, static_cast<uint32_t>(source.size()), source.data(),
                         KVCONV_ALLOC, nullptr, nullptr, dest, 0, &block, &actual);
        fault.Disarm();
        if (status == KVSUCCESS) KVIFree(block);
        ASSERT_EQ(kit::HeapBlocks(), blocks) << dest << " from " << src;
        if (!fault.Hit()) {
          ASSERT_EQ(status, KVSUCCESS) << dest << " from " << src;
          break;
        }
        ++faults;
        // Only the shrinking of a result may fail unseen.
        ASSERT_TRUE(status == KVFAIL_NO_MEMORY || (status == KVSUCCESS && n == 2))
            << dest << " from " << src << " " << status;
      }
    }
  EXPECT_EQ(faults, 2u * 28);
}

}  // namespace
