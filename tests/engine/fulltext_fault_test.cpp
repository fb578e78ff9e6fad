// Full text when the disk fails: whatever call meets the failure, what is found afterwards is what is there.
#include <filesystem>
#include <functional>
#include <string>

#include "base/boundary.h"
#include "fulltext_fixture.h"
#include "kit/vfs_shim.h"

namespace {

using namespace brynd;
using Ids = std::vector<uint32_t>;

class FullTextFaultTest : public FullTextFixture {
 protected:
  void SetUp() override {
    vfs_shim::Reset();
    store::SetDefaultVfs(vfs_shim::Name());
    FullTextFixture::SetUp();
  }
  void TearDown() override {
    vfs_shim::Reset();
    FullTextFixture::TearDown();
    store::SetDefaultVfs(nullptr);
  }

  // The file as it is now comes back for each run.
  void Keep() {
    ASSERT_EQ(0, EngDbClose(db_));
    std::filesystem::copy_file(folder_ + "/test.QDB", folder_ + "/kept");
    ASSERT_EQ(0, EngDbOpen("test", &db_));
  }
  void Restore() {
    ASSERT_EQ(0, EngDbClose(db_));
    std::filesystem::copy_file(folder_ + "/kept", folder_ + "/test.QDB",
                               std::filesystem::copy_options::overwrite_existing);
    ASSERT_EQ(0, EngDbOpen("test", &db_));
  }

  // Runs work with the n-th change of the disk failing, for n = 1, 2, 3 until none fails any more; afterwards
  // the index and the notes themselves must give the same hits.
  void Sweep(bool for_good, const std::function<void()>& work) {
    uint64_t runs = 0;
    for (uint64_t nth = 1;; ++nth) {
      Restore();
      vfs_shim::SetFault({.operations = vfs_shim::kChanges, .nth = nth, .for_good = for_good});
      work();
      EngDbClose(db_);
      const uint64_t hit = vfs_shim::FaultsHit();
      vfs_shim::Reset();
      ASSERT_EQ(0, EngDbOpen("test", &db_)) << nth;
      const Ids indexed = Find("word"), other = Find("other");
      const EngStatus deleted = EngFullTextIndexDelete(db_);
      ASSERT_TRUE(deleted == 0 || deleted == 0xf02) << nth;
      EXPECT_EQ(Find("word"), indexed) << nth;
      EXPECT_EQ(Find("other"), other) << nth;
      if (hit == 0) break;
      ++runs;
    }
    EXPECT_LT(5u, runs);
  }

  // Statuses are not looked at here: any may come.
  void Rewrite(uint32_t id, uint16_t update_word) {
    EngNote note = 0;
    if (EngNoteOpen(db_, id, 0, &note) != 0) return;
    EngItemDelete(note, "Body", 4);
    AppendText(note, "Body", "other");
    EngNoteUpdate(note, update_word);
    EngNoteClose(note);
  }
  void SearchOnce() {
    EngSearch search = 0;
    EngMem block = 0;
    ASSERT_EQ(0, EngFullTextSearchOpen(&search));
    if (EngFullTextSearchRun(db_, &search, 0, "word", 0, 0, 0, nullptr, nullptr, &block) == 0)
      EngMemFree(block);
    ASSERT_EQ(0, EngFullTextSearchClose(search));
  }

  uint32_t first_ = 0, second_ = 0;
};

TEST_F(FullTextFaultTest, Build_AnyChangeFails_HitsAreRight) {
  for (int i = 0; i < 20; ++i) Put("word number " + std::to_string(i));
  Keep();
  for (const bool for_good : {false, true}) Sweep(for_good, [&] { Build(); });
}

TEST_F(FullTextFaultTest, Search_AnyChangeFailsWhileItCatchesUp_HitsAreRight) {
  first_ = Put("word one");
  second_ = Put("word two");
  ASSERT_EQ(0, Build());
  Keep();
  for (const bool for_good : {false, true}) {
    Sweep(for_good, [&] {
      Rewrite(first_, 4);
      SearchOnce();
      Rewrite(second_, 0);
      SearchOnce();
    });
  }
}

TEST_F(FullTextFaultTest, Delete_AnyChangeFails_HitsAreRight) {
  Put("word one");
  ASSERT_EQ(0, Build());
  Keep();
  for (const bool for_good : {false, true}) Sweep(for_good, [&] { EngFullTextIndexDelete(db_); });
}

}  // namespace
