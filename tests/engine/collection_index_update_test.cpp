// Collections kept up to date: random changes of documents against a model computed anew, for views of all
// kinds.
#include "collection/index_update.h"
#include "engine/collection_view_fixture.h"

namespace {

using namespace brynd;
using namespace brynd::collection;

class IndexUpdateTest : public ViewFixture {
 protected:
  static std::vector<std::string> RandomValues(TestRandom& random) {
    static const char* const kValues[] = {
        "Alpha", "beta",       "BETA", "Gamma\\Inner", "gamma\\inner\\deep", "\\", "Gamma", "delta",
        "",      "Zebra \\ x", "10"};
    std::vector<std::string> values;
    const uint32_t count = random.Below(6) == 0 ? random.Below(4) : 1;
    for (uint32_t i = 0; i < count; ++i) values.emplace_back(kValues[random.Below(std::size(kValues))]);
    return values;
  }

  static void Fill(TestRandom& random, Model& model, const ModelView& view, ModelDocument* document) {
    document->first = RandomValues(random);
    document->second = RandomValues(random);
    document->key =
        std::string(1, static_cast<char>('a' + random.Below(26))) + std::to_string(random.Below(40));
    document->number.reset();
    if (random.Below(4) != 0) document->number = static_cast<double>(random.Below(1000)) / 8;
    document->parent = 0;
    if (!view.responses || model.documents.empty() || random.Below(3) == 0) return;
    auto parent = model.documents.begin();
    std::advance(parent, random.Below(static_cast<uint32_t>(model.documents.size())));
    // A document that answers itself over others stands nowhere, and the model would not end.
    for (uint32_t above = parent->first; above != 0;) {
      if (above == document->id) return;
      const auto next = model.documents.find(above);
      above = next == model.documents.end() ? 0 : next->second.parent;
    }
    document->parent = parent->first;
  }

  void ChangeOne(TestRandom& random, Model& model, const ModelView& view, bool shrinks) {
    const uint32_t choice = random.Below(10);
    if (model.documents.empty() || choice < (shrinks ? 1u : 5u)) {
      ModelDocument document;
      Fill(random, model, view, &document);
      StoreDocument(&document);
      model.documents[document.id] = document;
      return;
    }
    auto victim = model.documents.begin();
    std::advance(victim, random.Below(static_cast<uint32_t>(model.documents.size())));
    if (choice < (shrinks ? 7u : 6u)) {
      ASSERT_EQ(0, EngNoteDelete(db_, victim->first, 4));
      model.documents.erase(victim);
    } else {
      ModelDocument changed = victim->second;
      if (random.Below(3) == 0)
        changed.number = 3;
      else
        Fill(random, model, view, &changed);
      StoreDocument(&changed);
      victim->second = changed;
    }
  }

  void RunRounds(const ModelView& view, int rounds) {
    TestRandom random(SeedOfRun());
    Model model(view);
    const uint32_t id = MakeView(ColumnsOf(view), view.responses);
    const EngCollection collection = OpenView(id);
    ASSERT_NO_FATAL_FAILURE(ExpectRows(collection, model, view));
    for (int round = 0; round < rounds; ++round) {
      const bool shrinks = round % 20 > 13;
      for (uint32_t n = 1 + random.Below(random.Below(6) == 0 ? 60 : 8); n != 0; --n)
        ChangeOne(random, model, view, shrinks);
      ASSERT_EQ(0, EngCollectionUpdate(collection));
      ASSERT_NO_FATAL_FAILURE(ExpectRows(collection, model, view)) << "round " << round;
    }
    // Building gives the same.
    const EngCollection anew = OpenView(id, 1);
    ASSERT_NO_FATAL_FAILURE(ExpectRows(anew, model, view));
    ASSERT_NO_FATAL_FAILURE(ExpectRows(collection, model, view));
    EXPECT_EQ(0, EngCollectionClose(anew));
    EXPECT_EQ(0, EngCollectionClose(collection));
  }
};

TEST_F(IndexUpdateTest, Apply_FlatView_SameAsModel) { RunRounds({}, 40); }
TEST_F(IndexUpdateTest, Apply_FlatViewDescending_SameAsModel) { RunRounds({.key_descending = true}, 20); }
TEST_F(IndexUpdateTest, Apply_OneCategoryColumn_SameAsModel) { RunRounds({.category_count = 1}, 40); }
TEST_F(IndexUpdateTest, Apply_TwoCategoryColumnsDescending_SameAsModel) {
  RunRounds({.category_count = 2, .first_descending = true}, 40);
}
TEST_F(IndexUpdateTest, Apply_Responses_SameAsModel) { RunRounds({.responses = true}, 40); }
TEST_F(IndexUpdateTest, Apply_ResponsesInTwoCategoryColumns_SameAsModel) {
  RunRounds({.category_count = 2, .responses = true, .total_kind = 1}, 60);
}
TEST_F(IndexUpdateTest, Apply_TotalsOfAllKinds_SameAsModel) {
  for (uint8_t kind = 1; kind <= 5; ++kind) {
    ASSERT_NO_FATAL_FAILURE(RunRounds({.category_count = 2, .total_kind = kind}, 12)) << int{kind};
    std::vector<uint32_t> ids;
    Owner().Store().ScanNotes(1, [&](uint32_t note_id, Bytes) { return ids.push_back(note_id), true; });
    for (const uint32_t note_id : ids) (void)EngNoteDelete(db_, note_id, 4);
  }
}

}  // namespace
