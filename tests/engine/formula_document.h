// The document that formulas of tests and of the manual are computed for, and the machine it lies on: the
// clock stands at 2024-03-15 14:30:45.50, a Friday, the zone is GMT, random numbers are counted.
#pragma once

#include <cstdlib>

#include "base/charset.h"
#include "base/intl.h"
#include "base/process.h"
#include "base/time.h"
#include "engine/formula_memory_host.h"
#include "formula/time_text.h"

namespace brynd::formula {

struct FormulaRow {
  const char* source;
  const char* expected;  // as Compute shows it
};

class FixedClock : public Clock {
 public:
  int64_t UnixNanoseconds() override {
    ++reads;
    return int64_t{1710513045} * 1000000000 + 500000000;
  }
  uint64_t MonotonicNanoseconds() override { return 0; }
  void SleepMilliseconds(uint32_t) override {}
  int reads = 0;
};

class CountingRandom : public RandomSource {
 public:
  void Fill(MutableBytes target) override {
    for (std::byte& byte : target) byte = static_cast<std::byte>(++counter_);
  }

 private:
  uint8_t counter_ = 0;
};

inline const bool kZoneIsSet = setenv("TZ", "UTC", 1) == 0;

inline TIMEDATE At(int32_t year, int32_t month, int32_t day, uint32_t ticks) {
  return {{ticks, static_cast<uint32_t>(JulianDay(year, month, day))}};
}

// A stored value as the manual writes it: elements apart by " : ", times in brackets, "error 6", "nothing".
inline std::string Readable(Bytes stored) {
  const uint16_t type = LoadU16(stored.data());
  if (type == kWordError) return "error " + std::to_string(LoadU16(stored.data() + 2));
  if (type == kWordUnavailable) return "nothing";
  Arena arena;
  const Value value = ReadItem({type, stored.subspan(2)}, arena);
  std::string text;
  for (uint32_t index = 0; index < value.Count(); ++index) {
    if (index != 0) text += index >= value.singles && (index - value.singles) % 2 == 1 ? ".." : " : ";
    if (value.IsTime()) text += "[" + TimeText(IntlFromSettings(), value.TimeAt(index)) + "]";
    char digits[32];
    if (value.IsNumber())
      text.append(digits,
                  static_cast<size_t>(snprintf(digits, sizeof digits, "%.15g", value.NumberAt(index))));
    if (!value.IsText()) continue;
    text += '"';
    for (const char letter : Utf8FromEngine(value.TextAt(index))) {
      if (letter == '"' || letter == '\\') text += '\\';
      text += letter;
    }
    text += '"';
  }
  return text;
}

// The result of a formula as the manual writes it; what the compiler says when it does not compile.
inline std::string ComputeReadable(std::string_view source, Host& host) {
  std::vector<std::byte> compiled;
  CompileError error;
  if (const EngStatus refused = Compile(source, {}, &compiled, &error))
    return std::string(StatusName(refused));
  Evaluator evaluator(Program::Load(compiled));
  return Readable(evaluator.Evaluate(host).value);
}

class FormulaDocument {
 public:
  FormulaDocument() {
    FillParent();
    FillItems();
    host_.document.note_id = 0x8f6;
    host_.document.is_response = true;
    host_.document.parent = {parent_.document.originator.File, parent_.document.originator.Note};
    host_.document.created = At(2020, 1, 2, 0);
    host_.document.length = 4096;
    host_.document.originator.File = {{0x11111111, 0x22222222}};
    host_.document.originator.Note = {{0x33333333, 0xabcdef01}};
    host_.database.title = "Packages";
    host_.database.path = "data/packages.qdb";
    host_.database.replica_id = {{0x00112233, 0x852572a0}};
    host_.settings["Color"] = "blue";
    host_.files = {{"plan.txt", 1200}, {"photo.png", 34567}};
    host_.access = {.level = 4,
                    .user_names = {"CN=Ann Author/O=Acme", "*/O=Acme"},
                    .user_roles = {"[Press]"},
                    .managers = {"CN=Max Manager/O=Acme", "Server"}};
    host_.responses = 2;
    host_.others = {&parent_};
    host_.has_views = true;
  }

  // A document whose record is as it was at the beginning.
  MemoryHost Fresh() const { return host_; }

 protected:
  void FillParent() {
    parent_.AddText("Form", "Topic");
    parent_.AddText("Subject", "Greetings");
    parent_.AddNumbers("Votes", {4, 2});
    parent_.document.note_id = 0x8f2;
    parent_.document.originator.File = {{0x11111111, 0x22222222}};
    parent_.document.originator.Note = {{0x44444444, 0xabcdef02}};
  }
  void FillItems() {
    host_.AddText("Form", "Memo");
    host_.AddText("Subject", "Hello World");
    host_.AddNumber("Size", 12.5);
    host_.AddTexts("Tags", {"red", "green", "blue"});
    host_.AddNumbers("Numbers", {3, 1, 2});
    host_.AddNumbers("Ranged", {5, 1, 3}, 1);
    host_.AddValue("When", Value::Time(At(2024, 2, 29, 36000u * 100)));
    host_.AddText("Empty", "");
    host_.Add("Body", 1, CompositeOf("The first line, a bit long.", "Second!"));
    host_.AddText("Accented", "\xe9t\xe9");              // Latin-1 in engine text
    host_.AddText("Wide", "\x10\x84\xb1\x10\x84\xb2z");  // two characters of three bytes and one of one
    host_.AddTexts("$UpdatedBy", {"CN=Ann Author/O=Acme", "CN=Bob/O=Acme"});
  }
  // Two runs of text with a paragraph between them.
  static std::vector<std::byte> CompositeOf(std::string_view first, std::string_view second) {
    ByteBuilder out;
    for (const std::string_view text : {first, second}) {
      if (out.Size() != 0) out.U16(0x0281);
      out.U16(0xff85);
      out.U16(static_cast<uint16_t>(8 + text.size()));
      out.U32(0);
      out.Text(text);
      if (text.size() % 2 != 0) out.U8(0);
    }
    return out.Release();
  }

  MemoryHost host_, parent_;
  FixedClock clock_;
  CountingRandom random_;
  SeamGuard<Clock> clock_guard_{Process().clock, &clock_};
  SeamGuard<RandomSource> random_guard_{Process().random, &random_};
};

}  // namespace brynd::formula
