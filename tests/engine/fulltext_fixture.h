// A database with documents to search, and short ways to search it.
#ifndef TESTS_ENGINE_FULLTEXT_FIXTURE_H
#define TESTS_ENGINE_FULLTEXT_FIXTURE_H

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/idtable.h"
#include "brynd_collection.h"
#include "fulltext/index.h"
#include "fulltext/search.h"
#include "note_fixture.h"

class FullTextFixture : public NoteFixture {
 protected:
  struct Hits {
    EngStatus code = 0;
    std::vector<uint32_t> ids;
    std::vector<uint8_t> scores;
  };

  void TearDown() override {
    EXPECT_EQ(0u, brynd::fulltext::Searches().Count());
    NoteFixture::TearDown();
  }

  EngStatus Build(uint16_t flags = 0, FT_INDEX_STATS* stats = nullptr) {
    return EngFullTextIndexBuild(db_, flags, nullptr, stats);
  }

  // A stored note with items of texts.
  uint32_t Put(std::initializer_list<std::pair<const char*, std::string>> items, uint16_t update_word = 0) {
    const EngNote note = NewNote();
    for (const auto& [name, text] : items) EXPECT_EQ(0, AppendText(note, name, text));
    EXPECT_EQ(0, EngNoteUpdate(note, update_word));
    const uint32_t id = IdOf(note);
    EXPECT_EQ(0, EngNoteClose(note));
    return id;
  }
  uint32_t Put(const std::string& text) { return Put({{"Body", text}}); }

  void Change(uint32_t id, const std::string& text, uint16_t update_word = 0) {
    const EngNote note = OpenNote(id);
    EXPECT_EQ(0, EngItemDelete(note, "Body", 4));
    EXPECT_EQ(0, AppendText(note, "Body", text));
    EXPECT_EQ(0, EngNoteUpdate(note, update_word));
    EXPECT_EQ(0, EngNoteClose(note));
  }

  // As a list block, taken apart.
  Hits Run(const std::string& query, uint32_t options = 0, uint16_t limit = 0, EngIdTable confine = 0) {
    return RunIn(db_, query, options, limit, confine);
  }
  static Hits RunIn(EngDb database, const std::string& query, uint32_t options = 0, uint16_t limit = 0,
                    EngIdTable confine = 0) {
    Hits hits;
    EngSearch search = 0;
    EXPECT_EQ(0, EngFullTextSearchOpen(&search));
    uint32_t count = 0x77;
    EngMem block = 0;
    hits.code = EngFullTextSearchRun(database, &search, 0, query.c_str(), options, limit, confine, &count,
                                     nullptr, &block);
    EXPECT_EQ(0, EngFullTextSearchClose(search));
    if (hits.code != 0) {
      EXPECT_EQ(0x77u, count);
      EXPECT_EQ(0u, block);
      return hits;
    }
    if ((options & 0x10) != 0) {
      brynd::IdTableOf(block).ForEach([&](uint32_t id) {
        hits.ids.push_back(id);
        return true;
      });
      EXPECT_EQ(0, EngIdTableDestroy(block));
    } else {
      const brynd::Bytes bytes = brynd::memory::FindBytes(block);
      EXPECT_EQ(8 + 5 * size_t{count}, bytes.size());
      brynd::ByteReader in(bytes);
      EXPECT_EQ(count, in.U32());
      EXPECT_EQ(0u, in.U32());
      for (uint32_t i = 0; i < count; ++i) hits.ids.push_back(in.U32());
      for (uint32_t i = 0; i < count; ++i) hits.scores.push_back(in.U8());
      EXPECT_EQ(0, EngMemFree(block));
    }
    EXPECT_EQ(count, hits.ids.size());
    return hits;
  }
  // The ids found; nothing found is no id.
  std::vector<uint32_t> Find(const std::string& query, uint32_t options = 0) {
    const Hits hits = Run(query, options);
    if (hits.code != 0) {
      EXPECT_EQ(0xf22, hits.code) << query;
    }
    return hits.ids;
  }
};

#endif
