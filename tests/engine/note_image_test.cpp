#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/checksum.h"
#include "engine/test_random.h"
#include "note/image.h"

using namespace brynd;

namespace {

struct ModelItem {
  uint16_t name_id, flags, type;
  uint32_t external;
  std::vector<std::byte> value;  // with type word; for external ones only its size counts
};

struct Model {
  NoteHeader header;
  std::vector<ModelItem> items;
};

TIMEDATE RandomTime(TestRandom& random) {
  return {{static_cast<uint32_t>(random.U64()), static_cast<uint32_t>(random.U64())}};
}

Model RandomModel(TestRandom& random, uint32_t item_limit) {
  Model model;
  model.header.note_flags = static_cast<uint16_t>(random.U64());
  model.header.note_class = static_cast<uint16_t>(random.U64());
  model.header.note_id = static_cast<uint32_t>(random.U64());
  model.header.originator.File = RandomTime(random);
  model.header.originator.Note = RandomTime(random);
  model.header.originator.Sequence = static_cast<uint32_t>(random.U64());
  model.header.originator.SequenceTime = RandomTime(random);
  model.header.created = RandomTime(random);
  model.header.modified = RandomTime(random);
  model.header.added = RandomTime(random);
  model.header.accessed = RandomTime(random);
  const uint32_t count = random.Below(item_limit + 1);
  for (uint32_t i = 0; i < count; ++i) {
    ModelItem item;
    item.name_id = static_cast<uint16_t>(random.Below(random.Below(4) == 0 ? 0xfff0 : 12));
    item.flags = static_cast<uint16_t>(random.U64());
    item.external = random.Below(8) == 0 ? model.header.next_external++ : 0;
    item.value.resize(item.external != 0 ? kInlineValueBytesMax + 1 + random.Below(100)
                                         : 2 + random.Below(60));
    for (std::byte& byte : item.value) byte = static_cast<std::byte>(random.U64());
    item.type = LoadU16(item.value.data());
    model.items.push_back(std::move(item));
  }
  return model;
}

std::vector<std::byte> Build(const Model& model) {
  ImageBuilder::Sizes sizes;
  sizes.item_count = static_cast<uint32_t>(model.items.size());
  for (const ModelItem& item : model.items) {
    if (item.external != 0)
      ++sizes.external_count;
    else
      sizes.inline_bytes += item.value.size();
  }
  ImageBuilder builder;
  EXPECT_TRUE(builder.Begin(sizes));
  for (uint32_t i = 0; i < model.items.size(); ++i) {
    const ModelItem& item = model.items[i];
    const auto length = static_cast<uint32_t>(item.value.size());
    builder.SetItem(i, item.name_id, item.flags,
                    item.external != 0 ? kExternalLengthWord : static_cast<uint16_t>(length));
    if (item.external != 0)
      builder.AddExternal(i, item.type, length, item.external);
    else
      CopyBytes(builder.AddValues(length), item.value.data(), length);
  }
  const Bytes image = builder.Finish(model.header);
  return {image.begin(), image.end()};
}

void ExpectItem(const ModelItem& model, const ImageItem& item) {
  EXPECT_EQ(model.name_id, item.name_id);
  EXPECT_EQ(model.flags, item.item_flags);
  EXPECT_EQ(model.type, item.type);
  EXPECT_EQ(model.external, item.external);
  EXPECT_EQ(model.value.size(), item.length);
  EXPECT_TRUE(model.external != 0 ? item.value.empty() : std::ranges::equal(model.value, item.value));
}

// Reads everything an image offers, as any user of a checked image may.
uint64_t WalkAll(const NoteImage& image) {
  uint64_t sum = image.ValueBytes() + image.MaxNameId() + image.Header().note_id;
  NoteImage::Cursor cursor = image.Items();
  for (ImageItem item; cursor.Next(&item);) {
    sum += item.length + item.type;
    for (const std::byte byte : item.value) sum += std::to_integer<uint64_t>(byte);
    const ImageItem again = image.Item(cursor.Index());
    EXPECT_EQ(item.length, again.length);
    EXPECT_EQ(item.value.data(), again.value.data());
  }
  for (uint32_t name = 0; name < 16; ++name) sum += image.FindName(static_cast<uint16_t>(name));
  return sum;
}

void Resign(std::vector<std::byte>* image) {
  if (image->size() >= kImageHeaderBytes) {
    StoreU32(image->data(), static_cast<uint32_t>(Checksum64(Bytes(*image).subspan(4))));
  }
}

TEST(NoteImageTest, Check_ImageOfRandomModel_ReadsBackWhole) {
  TestRandom random(SeedOfRun());
  for (int round = 0; round < 500; ++round) {
    const Model model = RandomModel(random, 60);
    const std::vector<std::byte> stored = Build(model);
    const std::optional<NoteImage> image = NoteImage::Check(stored);
    ASSERT_TRUE(image);
    const NoteHeader header = image->Header();
    EXPECT_EQ(0, std::memcmp(&header.originator, &model.header.originator, sizeof header.originator));
    EXPECT_EQ(model.header.note_flags, header.note_flags);
    EXPECT_EQ(model.header.note_class, header.note_class);
    EXPECT_EQ(model.header.note_id, header.note_id);
    EXPECT_EQ(model.header.next_external, header.next_external);
    EXPECT_EQ(0, std::memcmp(&header.created, &model.header.created, sizeof(TIMEDATE)));
    EXPECT_EQ(0, std::memcmp(&header.modified, &model.header.modified, sizeof(TIMEDATE)));
    EXPECT_EQ(0, std::memcmp(&header.added, &model.header.added, sizeof(TIMEDATE)));
    EXPECT_EQ(0, std::memcmp(&header.accessed, &model.header.accessed, sizeof(TIMEDATE)));
    ASSERT_EQ(model.items.size(), image->ItemCount());
    NoteImage::Cursor cursor = image->Items();
    ImageItem item;
    uint32_t largest = NoteImage::kNone;
    for (uint32_t i = 0; i < model.items.size(); ++i) {
      ASSERT_TRUE(cursor.Next(&item));
      ExpectItem(model.items[i], item);
      ExpectItem(model.items[i], image->Item(i));
      largest = largest == NoteImage::kNone ? item.name_id : std::max<uint32_t>(largest, item.name_id);
    }
    EXPECT_FALSE(cursor.Next(&item));
    EXPECT_EQ(largest, image->MaxNameId());
    for (uint32_t from = 0; from < 5; ++from) {
      for (uint16_t name = 0; name < 14; ++name) {
        const auto begin = model.items.begin() + std::min<size_t>(from, model.items.size());
        const auto found =
            std::find_if(begin, model.items.end(), [&](const ModelItem& m) { return m.name_id == name; });
        const uint32_t expected = found == model.items.end()
                                      ? NoteImage::kNone
                                      : static_cast<uint32_t>(found - model.items.begin());
        EXPECT_EQ(expected, image->FindName(name, from));
      }
    }
  }
}

TEST(NoteImageTest, Check_EveryTruncation_Refused) {
  TestRandom random(SeedOfRun());
  const std::vector<std::byte> stored = Build(RandomModel(random, 20));
  for (size_t bytes = 0; bytes < stored.size(); ++bytes) {
    std::vector<std::byte> cut(stored.begin(), stored.begin() + static_cast<ptrdiff_t>(bytes));
    EXPECT_FALSE(NoteImage::Check(cut)) << bytes;
    if (bytes >= kImageHeaderBytes) {  // with a length and a checksum that fit, the lengths must still tell
      StoreU32(cut.data() + 12, static_cast<uint32_t>(bytes));
      Resign(&cut);
      EXPECT_FALSE(NoteImage::Check(cut)) << bytes;
    }
  }
}

TEST(NoteImageTest, Check_EveryByteFlipped_Refused) {
  TestRandom random(SeedOfRun());
  std::vector<std::byte> stored = Build(RandomModel(random, 20));
  for (size_t at = 0; at < stored.size(); ++at) {
    const std::byte kept = stored[at];
    for (const int mask : {0x01, 0x80, 0xff}) {
      stored[at] = kept ^ static_cast<std::byte>(mask);
      EXPECT_FALSE(NoteImage::Check(stored)) << at;
    }
    stored[at] = kept;
  }
  EXPECT_TRUE(NoteImage::Check(stored));
}

TEST(NoteImageTest, Check_ForgedWithFittingChecksum_RefusedOrHarmless) {
  TestRandom random(SeedOfRun());
  uint32_t accepted = 0, refused = 0;
  for (int round = 0; round < 6000; ++round) {
    std::vector<std::byte> forged = Build(RandomModel(random, 12));
    for (uint32_t change = 0; change <= random.Below(3); ++change) {
      const size_t area =
          random.Below(3) == 0 ? forged.size() : std::min<size_t>(forged.size(), kImageHeaderBytes + 160);
      forged[random.Below(static_cast<uint32_t>(area))] = static_cast<std::byte>(random.U64());
    }
    Resign(&forged);
    const std::vector<std::byte> exact(forged);  // its end is the end of an allocation
    const std::optional<NoteImage> image = NoteImage::Check(exact);
    if (image) WalkAll(*image);
    ++(image ? accepted : refused);
  }
  EXPECT_GT(accepted, 0u);
  EXPECT_GT(refused, 0u);
}

TEST(NoteImageTest, Check_StubWithItems_Refused) {
  Model model;
  model.items.push_back({1, 0, 0x500, 0, std::vector<std::byte>(4)});
  std::vector<std::byte> stored = Build(model);
  ASSERT_TRUE(NoteImage::Check(stored));
  stored[5] = std::byte{2};
  Resign(&stored);
  EXPECT_FALSE(NoteImage::Check(stored));
}

TEST(NoteImageTest, Check_ValueShorterThanItsTypeWord_Refused) {
  for (const uint32_t bytes : {0u, 1u, 2u}) {
    Model model;
    model.items.push_back({1, 0, 0, 0, std::vector<std::byte>(bytes < 2 ? 2 : bytes)});
    std::vector<std::byte> stored = Build(model);
    StoreU16(stored.data() + kImageHeaderBytes + 2, static_cast<uint16_t>(bytes));
    stored.resize(kImageHeaderBytes + kImageItemBytes + bytes);
    StoreU32(stored.data() + 12, static_cast<uint32_t>(stored.size()));
    Resign(&stored);
    EXPECT_EQ(bytes == 2, NoteImage::Check(stored).has_value()) << bytes;
  }
}

TEST(NoteImageTest, Check_ExternalLengthAtItsLimits) {
  for (const uint32_t length : {0u, 1u, 2u, kValueBytesMax, kValueBytesMax + 1, 0xffffffffu}) {
    Model model;
    model.header.next_external = 2;
    model.items.push_back({1, 0, 0, 1, std::vector<std::byte>(kInlineValueBytesMax + 1)});
    std::vector<std::byte> stored = Build(model);
    StoreU32(stored.data() + kImageHeaderBytes + kImageItemBytes + 4, length);
    Resign(&stored);
    EXPECT_EQ(length >= 2 && length <= kValueBytesMax, NoteImage::Check(stored).has_value()) << length;
  }
}

TEST(NoteImageTest, BuildStub_ChecksAsStubWithItsHeader) {
  TestRandom random(SeedOfRun());
  Model model = RandomModel(random, 0);
  model.header.form = NoteForm::kStub;
  std::array<std::byte, kImageHeaderBytes> room;
  const std::optional<NoteImage> image = NoteImage::Check(BuildStub(model.header, room));
  ASSERT_TRUE(image);
  EXPECT_TRUE(image->IsStub());
  EXPECT_EQ(0u, image->ItemCount());
  EXPECT_EQ(NoteImage::kNone, image->MaxNameId());
  EXPECT_EQ(model.header.note_id, image->NoteId());
}

TEST(NoteImageTest, Begin_ImageTooLong_Refused) {
  ImageBuilder builder;
  EXPECT_TRUE(builder.Begin({.item_count = 0, .external_count = 0, .inline_bytes = 100}));
  EXPECT_FALSE(builder.Begin({.item_count = 0, .external_count = 0, .inline_bytes = kImageBytesMax}));
}

}  // namespace
