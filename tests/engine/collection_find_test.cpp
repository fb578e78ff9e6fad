// Rows by key: whole and leading, any case, any accent, several columns, categories; against a plain count.
#include "collection/find.h"
#include "engine/collection_view_fixture.h"

namespace {

using namespace brynd;

class FindTest : public ViewFixture {
 protected:
  struct Found {
    EngStatus status = 0;
    uint32_t matches = 0;
    std::vector<uint32_t> tumbler;
  };
  static Found Find(EngCollection collection, const std::vector<std::string>& values, uint16_t flags) {
    ByteBuilder out;
    size_t bytes = sizeof(ITEM_TABLE);
    for (const std::string& value : values) bytes += sizeof(ITEM) + value.size();
    out.U16(static_cast<uint16_t>(bytes));
    out.U16(static_cast<uint16_t>(values.size()));
    for (const std::string& value : values) {
      out.U16(0);
      out.U16(static_cast<uint16_t>(value.size()));
    }
    for (const std::string& value : values) out.Text(value);
    Found found;
    COLLECTIONPOSITION position{};
    found.status = EngCollectionFindKey(collection, out.View().data(), flags, &position, &found.matches);
    found.tumbler = TumblerOf(position);
    return found;
  }
  static std::string Text(const std::string& text) { return std::string("\0\5", 2) + text; }
  static std::string Number(double number) {
    return std::string("\0\3", 2) + std::string(reinterpret_cast<const char*>(&number), 8);
  }
  void Store(const std::vector<std::string>& keys) {
    for (const std::string& key : keys) {
      ModelDocument document;
      document.key = key;
      document.first = {key.substr(0, 1)};
      document.number = static_cast<double>(key.size());
      StoreDocument(&document);
    }
  }
};

TEST_F(FindTest, EngCollectionFindKey_TextOfAllKinds_SameAsPlainCount) {
  const std::vector<std::string> keys = {"apple",
                                         "Apple",
                                         "APPLE",
                                         "\xc3\xa4pple",
                                         "apples",
                                         "Applesauce",
                                         "b",
                                         "banana",
                                         "Ba",
                                         "pear",
                                         "p\xc3\xa9"
                                         "ar"};
  Store(keys);
  for (const bool descending : {false, true}) {
    const EngCollection collection = OpenView(MakeView(ColumnsOf({.key_descending = descending})));
    const std::vector<ReadRow> rows = ReadAll(collection);
    ASSERT_EQ(keys.size(), rows.size());
    for (const char* sought : {"apple", "Apple", "app", "B", "ba", "pear", "zz", "a"}) {
      for (const uint16_t flags : {0, 1, 2, 3, 8, 9, 10, 11}) {
        const CollationStrength strength{(flags & 2) != 0, (flags & 8) != 0};
        uint32_t count = 0;
        std::vector<uint32_t> first;
        for (const ReadRow& row : rows) {
          std::string text = row.values[0].substr(2);
          // A letter with an accent takes two bytes here.
          const size_t length = std::string_view(sought).size();
          bool same = CollateText(text, sought, strength) == 0;
          if ((flags & 1) != 0) same = CollateText(text.substr(0, length), sought, strength) == 0;
          if (same && count++ == 0) first = row.tumbler;
        }
        const Found found = Find(collection, {Text(sought)}, flags);
        if (count == 0) {
          EXPECT_EQ(status::kNotFound, found.status) << sought << " flags " << flags;
          continue;
        }
        EXPECT_EQ(0, found.status) << sought << " flags " << flags << " descending " << descending;
        // With both left out, a leading part is found across accents too, which takes more bytes than the
        // key.
        if ((flags & 0xb) == 0xb)
          EXPECT_GE(found.matches, count) << sought;
        else
          EXPECT_EQ(count, found.matches) << sought << " flags " << flags << " descending " << descending;
        if ((flags & 0xb) != 0xb) {
          EXPECT_EQ(first, found.tumbler) << sought << " flags " << flags;
        }
        uint32_t by_name = 0;
        COLLECTIONPOSITION position{};
        EXPECT_EQ(0, EngCollectionFindName(collection, sought, flags, &position, &by_name));
        EXPECT_EQ(found.matches, by_name);
        EXPECT_EQ(found.tumbler, TumblerOf(position));
      }
    }
    EXPECT_EQ(0, EngCollectionClose(collection));
  }
}

TEST_F(FindTest, EngCollectionFindKey_CategoryColumn_RestsOnCategoryAndCountsDocuments) {
  Store({"apple", "Avocado", "banana", "cherry", "Coconut"});
  const EngCollection collection = OpenView(MakeView(ColumnsOf({.category_count = 1})));
  Found found = Find(collection, {Text("A")}, 0);
  EXPECT_EQ(0, found.status);
  EXPECT_EQ((std::vector<uint32_t>{1}), found.tumbler);
  EXPECT_EQ(2u, found.matches);
  found = Find(collection, {Text("c"), Text("coconut")}, 2);
  EXPECT_EQ((std::vector<uint32_t>{3, 2}), found.tumbler);
  EXPECT_EQ(1u, found.matches);
  EXPECT_EQ(status::kNotFound, Find(collection, {Text("c"), Text("coconut")}, 0).status);
  EXPECT_EQ(status::kNotFound, Find(collection, {Text("d")}, 0).status);
  EXPECT_EQ(status::kNotFound, Find(collection, {Text("d"), Text("x")}, 1).status);
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(FindTest, EngCollectionFindKey_NumbersAndTwoColumns_ExactMatches) {
  Store({"aa", "bbb", "cc", "dddd", "ee", "Ee"});
  const std::vector<ViewColumn> columns = {{"Number", "", 1, 0}, {"$0002", "Key", 1, 0}};
  const EngCollection collection = OpenView(MakeView(columns));
  EXPECT_EQ(4u, Find(collection, {Number(2)}, 0).matches);
  EXPECT_EQ(1u, Find(collection, {Number(3)}, 3).matches);
  EXPECT_EQ((std::vector<uint32_t>{5}), Find(collection, {Number(3)}, 0).tumbler);
  EXPECT_EQ(status::kNotFound, Find(collection, {Number(7)}, 0).status);
  EXPECT_EQ(status::kNotFound, Find(collection, {Text("2")}, 0).status);
  EXPECT_EQ(1u, Find(collection, {Number(2), Text("cc")}, 0).matches);
  EXPECT_EQ(2u, Find(collection, {Number(2), Text("ee")}, 2).matches);
  EXPECT_EQ(2u, Find(collection, {Number(2), Text("e")}, 11).matches);
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(FindTest, EngCollectionFindKey_BadTables_BadArgument) {
  Store({"a"});
  const EngCollection collection = OpenView(MakeView(ColumnsOf({})));
  EXPECT_EQ(status::kBadArgument, Find(collection, {}, 0).status);
  EXPECT_EQ(status::kBadArgument, Find(collection, {Text("a"), Text("b")}, 0).status);
  EXPECT_EQ(status::kBadArgument, Find(collection, {"a"}, 0).status);
  const char too_short[] = {2, 0, 1, 0}, items_missing[] = {4, 0, 9, 0},
             value_missing[] = {8, 0, 1, 0, 0, 0, 5, 0};
  for (const char* table : {too_short, items_missing, value_missing}) {
    EXPECT_EQ(status::kBadArgument, EngCollectionFindKey(collection, table, 0, nullptr, nullptr));
  }
  EXPECT_EQ(status::kBadArgument, EngCollectionFindKey(collection, nullptr, 0, nullptr, nullptr));
  EXPECT_EQ(status::kBadArgument, EngCollectionFindName(collection, nullptr, 0, nullptr, nullptr));
  EXPECT_EQ(0, EngCollectionFindName(collection, "a", 0, nullptr, nullptr));
  EXPECT_EQ(0, EngCollectionClose(collection));
  EXPECT_EQ(status::kBadHandle, EngCollectionFindName(collection, "a", 0, nullptr, nullptr));
}

}  // namespace
