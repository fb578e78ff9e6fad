#include <gtest/gtest.h>

#include "base/charset.h"
#include "base/text.h"
#include "brynd_text.h"
#include "engine/test_random.h"

using namespace brynd;

namespace {

std::string Engine(char32_t character) {
  char bytes[kEngineCharacterBytesMax];
  return {bytes, PutEngineCharacter(character, bytes)};
}
std::string Utf8(char32_t character) {
  char bytes[kUtf8CharacterBytesMax];
  return {bytes, PutUtf8Character(character, bytes)};
}

TEST(CharsetTest, PutEngineCharacter_FormsOfEachRange) {
  EXPECT_EQ("A", Engine('A'));
  EXPECT_EQ("\t", Engine('\t'));
  EXPECT_EQ("\xe9", Engine(0xe9)) << "Latin-1 is one byte";
  EXPECT_EQ("\x80", Engine(0x80));
  EXPECT_EQ("\x10\x80\x81", Engine(1)) << "controls are sequences";
  EXPECT_EQ("\x10\x82\x80", Engine(0x100));
  EXPECT_EQ("\x10\xc1\xac", Engine(0x20ac));
  EXPECT_EQ("\x13\xff\xff", Engine(0xffff));
  EXPECT_EQ("\x14\x80\x80", Engine(0x10000));
  EXPECT_EQ("\x17\xff\xff", Engine(0x1ffff));
  EXPECT_EQ("\x13\xb0\xc0\x13\xb8\x80", Engine(0x20000)) << "the halves of a surrogate pair";
  EXPECT_EQ(Engine(0xfffd), Engine(0xd800)) << "a half alone is no character";
  EXPECT_EQ(Engine(0xfffd), Engine(0x110000));
}

TEST(CharsetTest, EveryCharacter_ThereAndBackThroughUtf8) {
  for (char32_t character = 0; character <= 0x10ffff; ++character) {
    if (character >= 0xd800 && character < 0xe000) continue;
    const std::string utf8 = Utf8(character), engine = Engine(character);
    char room[8];
    size_t bytes = Utf8ToEngine(utf8, room, sizeof room);
    ASSERT_EQ(engine, std::string_view(room, bytes)) << std::hex << static_cast<uint32_t>(character);
    bytes = EngineToUtf8(engine, room, sizeof room);
    ASSERT_EQ(utf8, std::string_view(room, bytes)) << std::hex << static_cast<uint32_t>(character);
    size_t position = 0;
    ASSERT_EQ(character, NextEngineCharacter(engine, &position));
    ASSERT_EQ(engine.size(), position);
    for (size_t index = 1; index < engine.size(); ++index)
      ASSERT_TRUE(index == 3 || static_cast<unsigned char>(engine[index]) >= 0x80);
  }
}

TEST(CharsetTest, EngCharsetTranslate_InvalidUtf8PassesAsLatin1) {
  const std::string_view invalid[] = {"\xff", "\xc0\x80",  "\xe0\x80\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80",
                                      "\xc3", "a\xe2\x82", "\x80"};
  for (const std::string_view text : invalid) {
    char room[32];
    const uint32_t bytes =
        EngCharsetTranslate(0, text.data(), static_cast<uint32_t>(text.size()), room, sizeof room);
    EXPECT_EQ(text, std::string_view(room, bytes)) << "each byte stands for itself";
  }
}

TEST(CharsetTest, EngCharsetTranslate_MalformedEngineText_UnknownCharacters) {
  const std::string unknown = Utf8(0xfffd);
  EXPECT_EQ(unknown + "c", Utf8FromEngine("\x01\x42"
                                          "c"))
      << "two bytes, unknown";
  EXPECT_EQ(unknown, Utf8FromEngine("\x10\x80")) << "cut off";
  EXPECT_EQ(unknown, Utf8FromEngine("\x01"));
  EXPECT_EQ(unknown + "c", Utf8FromEngine("\x10"
                                          "abc"))
      << "a prefix without its bytes";
  EXPECT_EQ(unknown, Utf8FromEngine("\x10\x80\x80")) << "a hidden NUL";
  EXPECT_EQ(unknown + "x", Utf8FromEngine("\x13\xb1\x80x")) << "half a pair";
  EXPECT_EQ(unknown, Utf8FromEngine("\x13\xb8\x80"));
  EXPECT_EQ(std::string("a\0b", 3), Utf8FromEngine(std::string_view("a\0b", 3)))
      << "NUL parts lines and stays";
}

TEST(CharsetTest, EngCharsetTranslate_LimitsAndBadArguments) {
  char room[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(0u, EngCharsetTranslate(2, "a", 1, room, 4));
  EXPECT_EQ(0u, EngCharsetTranslate(0, nullptr, 1, room, 4));
  EXPECT_EQ(0u, EngCharsetTranslate(0, "a", 1, nullptr, 4));
  EXPECT_EQ(0u, EngCharsetTranslate(0, "abc", 3, room, 0));
  EXPECT_EQ(0u, EngCharsetTranslate(0, "abc", 0, room, 4));
  EXPECT_EQ('#', room[0]);
  EXPECT_EQ(2u, EngCharsetTranslate(0, "ab\xe2\x82\xac", 5, room, 4)) << "three bytes do not fit behind two";
  EXPECT_EQ('#', room[2]);
}

std::string RandomUtf8(TestRandom& random) {
  std::string text;
  const uint32_t count = random.Below(40);
  for (uint32_t index = 0; index < count; ++index) {
    const uint32_t range = random.Below(6);
    const char32_t character = range < 2    ? random.Below(0x80)
                               : range == 2 ? random.Below(0x100)
                               : range == 3 ? random.Below(0xd800)
                               : range == 4 ? 0xe000 + random.Below(0x12000)
                                            : random.Below(0x10e000) + 0x2000;
    if (character < 0xd800 || character > 0xdfff) text += Utf8(character);
  }
  return text;
}

TEST(CharsetTest, RandomTexts_RoundTripAndNeverHalfASequenceAtAnyLimit) {
  TestRandom random(SeedOfRun());
  for (int round = 0; round < 3000; ++round) {
    const std::string utf8 = RandomUtf8(random), engine = EngineFromUtf8(utf8);
    ASSERT_EQ(utf8, Utf8FromEngine(engine));
    for (size_t limit = 0; limit <= engine.size(); ++limit) {
      std::string room(limit + 1, '#');
      const size_t bytes = Utf8ToEngine(utf8, room.data(), limit);
      ASSERT_LE(bytes, limit);
      ASSERT_EQ('#', room[limit]);
      ASSERT_EQ(engine.substr(0, bytes), room.substr(0, bytes));
      ASSERT_EQ(0u, utf8.rfind(Utf8FromEngine(room.substr(0, bytes)), 0)) << "whole characters only";
      ASSERT_TRUE(limit - bytes < 6 || bytes == engine.size());
    }
    for (size_t limit = 0; limit <= utf8.size(); limit += 3) {
      std::string room(limit + 1, '#');
      const size_t bytes = EngineToUtf8(engine, room.data(), limit);
      ASSERT_EQ('#', room[limit]);
      ASSERT_EQ(utf8.substr(0, bytes), room.substr(0, bytes));
      ASSERT_EQ(engine.substr(0, EngineFromUtf8(room.substr(0, bytes)).size()),
                EngineFromUtf8(room.substr(0, bytes)));
    }
  }
}

TEST(CharsetTest, RandomBytes_AreReadToTheEnd) {
  TestRandom random(SeedOfRun() + 1);
  for (int round = 0; round < 5000; ++round) {
    std::string text(random.Below(40), '\0');
    for (char& byte : text) byte = static_cast<char>(random.Below(random.Below(2) == 0 ? 256 : 40));
    size_t count = 0;
    for (size_t position = 0; position < text.size(); ++count) {
      const size_t before = position;
      const char32_t character = NextCharacter(text, &position);
      ASSERT_GT(position, before);
      ASSERT_LE(position, text.size());
      ASSERT_LE(character, 0x10ffffu);
      ASSERT_EQ(before, CharacterPosition(text, count));
    }
    ASSERT_EQ(count, CountCharacters(text));
    const std::string utf8 = Utf8FromEngine(text);
    for (size_t position = 0; position < utf8.size();) {
      const bool ascii = static_cast<unsigned char>(utf8[position]) < 0x80;
      const size_t before = position;
      NextUtf8Character(utf8, &position);
      ASSERT_TRUE(ascii || position - before > 1) << "the result is valid UTF-8";
    }
  }
}

TEST(CharsetTest, NextCharacter_TakesUtf8AsThatCharacter) {
  const std::string text = "\xc3\xa9\xe9\x10\xc1\xac";
  size_t position = 0;
  EXPECT_EQ(0xe9u, NextCharacter(text, &position));
  EXPECT_EQ(2u, position);
  EXPECT_EQ(0xe9u, NextCharacter(text, &position));
  EXPECT_EQ(0x20acu, NextCharacter(text, &position));
  EXPECT_EQ(text.size(), position);
}

TEST(CharsetTest, UpperCaseLowerCase_BeyondAscii) {
  EXPECT_EQ("ABC 1", UpperCase("aBc 1"));
  EXPECT_EQ("abc 1", LowerCase("aBC 1"));
  EXPECT_EQ("\xc9", UpperCase("\xe9"));
  EXPECT_EQ("\xe9", LowerCase("\xc3\x89")) << "UTF-8 inside engine text is read as that character";
  EXPECT_EQ("SS", UpperCase("\xdf"));
  EXPECT_EQ(Engine(0x3a9), UpperCase(Engine(0x3c9)));
}

TEST(CharsetTest, IsPlainAscii_WhatBothSetsShare) {
  EXPECT_TRUE(IsPlainAscii("hello, world\t\r\n and more than eight"));
  EXPECT_TRUE(IsPlainAscii(""));
  EXPECT_FALSE(IsPlainAscii("hello\x01"));
  EXPECT_FALSE(IsPlainAscii("hello, long enough \x80"));
}

TEST(CharsetTest, Utf16_PairsAndBack) {
  const std::string text = "a" + Engine(0x1f600) + Engine(0x20000) + "\xe9";
  EXPECT_EQ(6u, Utf16FromEngine(text).size());
  EXPECT_EQ(text, EngineFromUtf16(Utf16FromEngine(text)));
  EXPECT_EQ(Engine(0xfffd), EngineFromUtf16(std::u16string(1, static_cast<char16_t>(0xdc00))));
}

}  // namespace
