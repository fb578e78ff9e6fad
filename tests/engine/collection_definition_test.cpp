// What a view record says of its collection: every column flag, records cut or changed at every byte.
#include "base/boundary.h"
#include "collection/definition.h"
#include "engine/collection_view_fixture.h"

namespace {

using namespace brynd;
using namespace brynd::collection;

class DefinitionTest : public ViewFixture {
 protected:
  // A view whose items are these bytes.
  uint32_t RawView(const std::string& formula, const std::string* format, const std::string* collation) {
    const EngNote note = NewNote();
    const uint16_t view_class = BRCLASS_VIEW;
    EXPECT_EQ(0, EngNoteInfoSet(note, 3, &view_class));
    if (!formula.empty()) AppendRaw(note, "$Formula", BRTYPE_FORMULA, formula);
    if (format != nullptr) AppendRaw(note, "$ViewFormat", 5, *format);
    if (collation != nullptr) AppendRaw(note, "$Collation", 2, *collation);
    EXPECT_EQ(0, EngNoteUpdate(note, 4));
    const uint32_t id = IdOf(note);
    EXPECT_EQ(0, EngNoteClose(note));
    return id;
  }
  Definition Read(uint32_t id) { return ReadDefinition(Owner(), id); }
  EngStatus Outcome(uint32_t id) {
    return AtBoundary([&] { Read(id); });
  }
  const std::vector<ViewColumn> columns_ = {{"A", "", 1, 0}, {"B", "", 3, 0}, {"C", "", 0, 5},
                                            {"D", "", 7, 2}, {"E", "", 5, 0}, {"F", "", 0, 6}};
};

TEST_F(DefinitionTest, ReadDefinition_AllColumnFlags_CategoriesFirstThenSorts) {
  const Definition definition = Read(MakeView(columns_, true));
  ASSERT_EQ(8u, definition.item_names.size());
  ASSERT_EQ(2u, definition.categories.size());
  EXPECT_EQ(1, definition.categories[0].item);
  EXPECT_FALSE(definition.categories[0].descending);
  EXPECT_EQ(3, definition.categories[1].item);
  EXPECT_TRUE(definition.categories[1].descending);
  ASSERT_EQ(2u, definition.sorts.size());
  EXPECT_EQ(0, definition.sorts[0].item);
  EXPECT_EQ(4, definition.sorts[1].item);
  EXPECT_TRUE(definition.sorts[1].descending);
  ASSERT_EQ(2u, definition.totals.size());
  EXPECT_EQ(TotalKind::kPercentOfAll, definition.totals[0].kind);
  EXPECT_EQ(TotalKind::kAverage, definition.totals[1].kind);
  EXPECT_TRUE(definition.responses);
  EXPECT_FALSE(definition.is_folder);
  EXPECT_EQ(BRCLASS_DATA, definition.class_mask);
}

TEST_F(DefinitionTest, ReadDefinition_AnythingChanged_AnotherFingerprint) {
  const uint64_t fingerprint = Read(MakeView(columns_)).fingerprint;
  EXPECT_EQ(fingerprint, Read(MakeView(columns_)).fingerprint);
  EXPECT_NE(fingerprint, Read(MakeView(columns_, true)).fingerprint);
  EXPECT_NE(fingerprint, Read(MakeView(columns_, false, "SELECT @All")).fingerprint);
  EXPECT_NE(fingerprint, Read(MakeView(columns_, false, "SELECT Form = \"Doc\"", "F")).fingerprint);
  std::vector<ViewColumn> other = columns_;
  other[0].flags = 5;
  EXPECT_NE(fingerprint, Read(MakeView(other)).fingerprint);
}

TEST_F(DefinitionTest, ReadDefinition_NoFormula_BadCollection) {
  const std::string format = ViewFormat(columns_);
  EXPECT_EQ(status::kBadCollection, Outcome(RawView("", &format, nullptr)));
  EXPECT_EQ(status::kFormulaBad, Outcome(RawView("nonsense", &format, nullptr)));
  const std::string formula = FormulaOf("SELECT @All", columns_, false);
  EXPECT_EQ(0, Outcome(RawView(formula, nullptr, nullptr)));
}

TEST_F(DefinitionTest, ReadDefinition_FormatCutOrChangedAnywhere_DefinitionOrBadCollection) {
  const std::string formula = FormulaOf("SELECT @All", columns_, false);
  const std::string format = ViewFormat(columns_);
  const size_t needed = 10 + columns_.size() * 32 + columns_.size();
  const EngNote note = NewNote();
  const uint16_t view_class = BRCLASS_VIEW;
  EXPECT_EQ(0, EngNoteInfoSet(note, 3, &view_class));
  AppendRaw(note, "$Formula", BRTYPE_FORMULA, formula);
  AppendRaw(note, "$ViewFormat", 5, format);
  EXPECT_EQ(0, EngNoteUpdate(note, 4));
  uint32_t refused = 0;
  for (size_t at = 0; at < needed; ++at) {
    for (const bool cut : {true, false}) {
      std::string harmed = format;
      if (cut)
        harmed.resize(at);
      else
        harmed[at] = static_cast<char>(harmed[at] ^ 0xff);
      EXPECT_EQ(0, EngItemDelete(note, "$ViewFormat", 11));
      AppendRaw(note, "$ViewFormat", 5, harmed);
      EXPECT_EQ(0, EngNoteUpdate(note, 4));
      const EngStatus outcome = Outcome(IdOf(note));
      ASSERT_TRUE(outcome == 0 || outcome == status::kBadCollection) << at << " " << outcome;
      if (cut) {
        ASSERT_EQ(status::kBadCollection, outcome) << at;
      }
      refused += outcome != 0;
    }
  }
  EXPECT_GT(refused, needed);
  EXPECT_EQ(0, EngNoteClose(note));
}

TEST_F(DefinitionTest, ReadDefinition_CollationAlone_SortsByItsNames) {
  const std::string formula = FormulaOf("SELECT @All", columns_, false);
  const std::string collation("\x15\0\2\0\0\x44\1\x66\0\0\0\1\0\0\x66\7\1\0\1\0EC", 22);
  const Definition definition = Read(RawView(formula, nullptr, &collation));
  ASSERT_EQ(1u, definition.sorts.size());
  EXPECT_EQ(4, definition.sorts[0].item);
  EXPECT_TRUE(definition.sorts[0].descending);
  ASSERT_EQ(1u, definition.categories.size());
  EXPECT_EQ(2, definition.categories[0].item);
  for (size_t at = 0; at < collation.size(); ++at) {
    const std::string cut = collation.substr(0, at);
    EXPECT_EQ(status::kBadCollection, Outcome(RawView(formula, nullptr, &cut))) << at;
  }
}

}  // namespace
