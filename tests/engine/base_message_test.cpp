#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "base/boundary.h"
#include "base/message.h"
#include "base/status.h"
#include "brynd_init.h"

using namespace brynd;

namespace {

TEST(MessageTest, EngMessageLoad_VersionText_FitsEightyCharactersAndNamesTheBuild) {
  char text[81];
  const uint16_t length = EngMessageLoad(0, 1, text, 80);
  ASSERT_GT(length, 0);
  ASSERT_LT(length, 80);
  EXPECT_EQ(0, std::string(text).rfind("Brynd Release 5.0", 0));
  EXPECT_EQ(length, std::string(text).size());
  EXPECT_NE(std::string::npos, std::string(text).find(std::to_string(kEngineBuildNumber)));
  EXPECT_GE(kEngineBuildNumber, 136);
}

struct StatusRow {
  EngStatus code;
  std::string_view name, text;
};
constexpr StatusRow kStatuses[] = {
#define BRYND_STATUS(name, code, text) {code, #name, text},
#include "base/statuses.def"
#undef BRYND_STATUS
};

TEST(MessageTest, EngMessageLoad_EveryStatus_HasATextThatFits) {
  EXPECT_GT(std::size(kStatuses), 60u);
  for (const StatusRow& row : kStatuses) {
    char loaded[255];
    const uint16_t length = EngMessageLoad(0, row.code, loaded, sizeof loaded);
    EXPECT_EQ(row.text, std::string_view(loaded, length));
    EXPECT_EQ(0, loaded[length]);
    EXPECT_EQ(row.name, StatusName(row.code));
    EXPECT_EQ(row.text, Failure(row.code).what());
  }
}

TEST(MessageTest, FixedCodes_AreWhatCallersCompare) {
  EXPECT_EQ(0x103, status::kNoFile);
  EXPECT_EQ(0x104, status::kFileExists);
  EXPECT_EQ(0x107, status::kNoMemory);
  EXPECT_EQ(0x1a5, status::kNoSettingsFile);
  EXPECT_EQ(0x222, status::kNoItem);
  EXPECT_EQ(0x227, status::kNoNote);
  EXPECT_FALSE(StatusText(0x23c).empty());
  EXPECT_EQ(0x240, status::kConflict);
  EXPECT_EQ(0x246, status::kSearchTruncated);
  EXPECT_EQ(0x404, status::kNotFound);
  EXPECT_EQ(0x423, status::kAclEntryExists);
  EXPECT_EQ(0x424, status::kNoAclEntry);
  EXPECT_EQ(0xf02, status::kFullTextNoIndex);
  EXPECT_EQ(0xf22, status::kFullTextNoHit);
}

TEST(MessageTest, EngMessageLoad_DesignSelection_IsASelection) {
  char text[256];
  const uint16_t length = EngMessageLoad(0, 7108, text, 255);
  EXPECT_EQ("SELECT @All", std::string(text, length));
}

TEST(MessageTest, EngMessageLoad_FlagBitsOfAStatusDoNotMatter) {
  char text[256], flagged[256];
  ASSERT_GT(EngMessageLoad(0, 0x103, text, 255), 0);
  ASSERT_GT(EngMessageLoad(0, 0xc103, flagged, 255), 0);
  EXPECT_STREQ(text, flagged);
}

TEST(MessageTest, EngMessageLoad_UnknownCodeOrModule_EmptyText) {
  char text[10] = "x";
  EXPECT_EQ(0, EngMessageLoad(0, 0x3ffe, text, sizeof text));
  EXPECT_STREQ("", text);
  text[0] = 'x';
  EXPECT_EQ(0, EngMessageLoad(5, 1, text, sizeof text));
  EXPECT_STREQ("", text);
}

TEST(MessageTest, EngMessageLoad_SmallBuffer_CutAndTerminatedInside) {
  for (uint16_t room = 0; room < 30; ++room) {
    char text[40];
    std::fill(std::begin(text), std::end(text), '#');
    const uint16_t length = EngMessageLoad(0, 1, text, room);
    EXPECT_EQ(room == 0 ? 0 : std::min(room - 1, 80), length);
    if (room != 0) {
      EXPECT_EQ(0, text[length]);
    }
    EXPECT_EQ('#', text[room]);
  }
  EXPECT_EQ(0, EngMessageLoad(0, 1, nullptr, 10));
}

TEST(MessageTest, AtBoundary_TurnsEveryEndIntoAStatus) {
  EXPECT_EQ(0, AtBoundary([] {}));
  EXPECT_EQ(0x404, AtBoundary([]() -> EngStatus { return 0x404; }));
  EXPECT_EQ(0x227, AtBoundary([] { Fail(status::kNoNote); }));
  EXPECT_EQ(0x227, AtBoundary([] { Check(status::kNoNote); }));
  EXPECT_EQ(0x107, AtBoundary([] { throw std::bad_alloc(); }));
  EXPECT_EQ(status::kInternal, AtBoundary([] { throw std::runtime_error("x"); }));
  EXPECT_EQ(status::kInternal, AtBoundary([] { throw 5; }));
}

}  // namespace
