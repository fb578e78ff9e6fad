#include <sqlite3.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <new>

#include "engine/data_fixture.h"
#include "engine/test_random.h"
#include "note/search.h"

using namespace brynd;

namespace {

// Allocations of this thread by operator new; the store's own thread has its own.
thread_local uint64_t allocation_count = 0;

}  // namespace

void* operator new(size_t bytes) {
  ++allocation_count;
  if (void* address = std::malloc(bytes == 0 ? 1 : bytes)) return address;
  throw std::bad_alloc();
}
void operator delete(void* address) noexcept { std::free(address); }
void operator delete(void* address, size_t) noexcept { std::free(address); }

namespace {

class SearchTest : public DataFixture {
 protected:
  using Ids = std::vector<uint32_t>;

  // A search whose callback runs any code.
  using Callback = std::function<EngStatus(const SEARCH_MATCH& match)>;
  EngStatus SearchWith(const Callback& callback, TIMEDATE* until = nullptr) {
    const auto run = [](void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE* summary) -> EngStatus {
      EXPECT_EQ(nullptr, summary) << "not asked for";
      EXPECT_EQ(0, match->SummaryLength);
      SEARCH_MATCH copy;
      std::memcpy(&copy, match, sizeof copy);
      return (*static_cast<const Callback*>(parameter))(copy);
    };
    return EngDbSearch(db_, 0, nullptr, 0, 1, nullptr, run, const_cast<Callback*>(&callback), until);
  }
  uint64_t AllocationsOfSearch(EngMem formula) {
    const SearchQuery query{.formula = memory::FindBytes(formula), .class_mask = 1, .since = kWildcardTime};
    uint32_t found = 0;
    const SearchVisitor count = [&](const SEARCH_MATCH&, Bytes) -> EngStatus {
      ++found;
      return 0;
    };
    const uint64_t before = allocation_count;
    EXPECT_EQ(0, SearchNotes(Shared(db_), query, count));
    const uint64_t taken = allocation_count - before;
    EXPECT_NE(0u, found);
    return taken;
  }
};

TEST_F(SearchTest, ClassMatches_ClassBitsAndThePrivateBit) {
  EXPECT_TRUE(ClassMatches(1, 1));
  EXPECT_TRUE(ClassMatches(0x8008, 8)) << "a default record is one of its class";
  EXPECT_TRUE(ClassMatches(8, 0x1008));
  EXPECT_TRUE(ClassMatches(0x1008, 0x1008));
  EXPECT_FALSE(ClassMatches(0x1008, 8)) << "private records only when they are asked for";
  EXPECT_FALSE(ClassMatches(0x1008, 0x1004));
  EXPECT_FALSE(ClassMatches(0x1001, 0x1000)) << "the private bit is no class";
  EXPECT_FALSE(ClassMatches(0x8008, 0x8000));
  EXPECT_FALSE(ClassMatches(4, 8));
  EXPECT_FALSE(ClassMatches(1, 0));
  for (const uint16_t note_class : {0x0000, 0x0001, 0x1200, 0x8008, 0x4000})
    EXPECT_TRUE(ClassMatches(note_class, 0x7fff));
}

TEST_F(SearchTest, EngDbSearch_ModelOfRandomNotes) {
  TestRandom random(SeedOfRun());
  SetClock clock;
  const SeamGuard guard(Process().clock, static_cast<Clock*>(&clock));
  struct Row {
    uint16_t note_class;
    int64_t stored;
    std::string section;
    int size;
  };
  std::map<uint32_t, Row> model;
  constexpr uint16_t kClasses[] = {1, 1, 1, 4, 8, 0x1008, 0x8008, 0x200, 0x1200, 0x400};
  constexpr const char* kSections[] = {"games", "Games", "libs", ""};
  for (int step = 0; step < 400; ++step) {
    if (random.Below(3) == 0) clock.Pass(random.Below(3));
    if (random.Below(6) == 0 && !model.empty()) {
      const auto victim = std::next(model.begin(), random.Below(static_cast<uint32_t>(model.size())));
      ASSERT_EQ(0, EngNoteDelete(db_, victim->first, 4));
      model.erase(victim);
      continue;
    }
    Row row{kClasses[random.Below(std::size(kClasses))], clock.now,
            kSections[random.Below(std::size(kSections))], static_cast<int>(random.Below(2000))};
    const EngNote note = NewNote();
    ASSERT_EQ(0, EngNoteInfoSet(note, 3, &row.note_class));
    if (!row.section.empty()) {
      ASSERT_EQ(0, AppendText(note, "Section", row.section));
    }
    const double size = row.size;
    ASSERT_EQ(0, EngItemAppend(note, 4, "InstalledSize", 13, BRTYPE_NUMBER, &size, sizeof size));
    ASSERT_EQ(0, EngNoteUpdate(note, 4));
    model[IdOf(note)] = row;
    ASSERT_EQ(0, EngNoteClose(note));
  }
  const EngMem formula = Compile("section = \"games\" & InstalledSize > 1000");
  for (int round = 0; round < 60; ++round) {
    const uint16_t mask =
        static_cast<uint16_t>(random.U64() & 0x1fff & ~0x10u);  // the icon record is not in the model
    SetClock since_clock;
    since_clock.now =
        std::next(model.begin(), random.Below(static_cast<uint32_t>(model.size())))->second.stored;
    const TIMEDATE since = since_clock.Now();
    const bool by_time = random.Below(2) == 0, by_formula = random.Below(2) == 0;
    Ids expected;
    for (const auto& [id, row] : model) {
      if ((row.note_class & mask & 0xfff) == 0 || ((row.note_class & 0x1000) != 0 && (mask & 0x1000) == 0))
        continue;
      if (by_time && row.stored < since_clock.now) continue;
      if (by_formula && (row.section != "games" || row.size <= 1000)) continue;
      expected.push_back(id);
    }
    const Found found = Search(mask, by_formula ? formula : 0, by_time ? &since : nullptr);
    ASSERT_EQ(0, found.outcome);
    ASSERT_EQ(expected, found.ids) << mask;
    EXPECT_EQ(0, InstantCompare(clock.Now(), found.until));
  }
  EXPECT_EQ(0, EngMemFree(formula));
}

TEST_F(SearchTest, EngDbSearch_MatchSaysWhatTheNoteIs) {
  const uint32_t id = StoreText("Title", "x");
  SEARCH_MATCH match{};
  EXPECT_EQ(0, SearchWith([&](const SEARCH_MATCH& found) -> EngStatus {
              match = found;
              return 0;
            }));
  const EngNote note = OpenNote(id);
  const ORIGINATORID originator = OriginatorOf(note);
  EXPECT_EQ(0, EngNoteClose(note));
  TIMEDATE file;
  EXPECT_EQ(0, EngDbIdGet(db_, &file));
  EXPECT_TRUE(SameOriginator(originator, match.OriginatorID));
  EXPECT_EQ(0, std::memcmp(&file, &match.ID.File, sizeof file));
  EXPECT_EQ(0, std::memcmp(&originator.Note, &match.ID.Note, sizeof originator.Note));
  EXPECT_EQ(id, match.ID.NoteID);
  EXPECT_EQ(1, match.NoteClass);
  EXPECT_EQ(0, match.Privileges);
}

TEST_F(SearchTest, EngDbSearch_SinceIsInclusive_UntilIsTheNextSince) {
  SetClock clock;
  const SeamGuard guard(Process().clock, static_cast<Clock*>(&clock));
  const uint32_t early = StoreText("Title", "early");
  clock.Pass(1);
  const uint32_t late = StoreText("Title", "late");
  const TIMEDATE at = clock.Now();
  EXPECT_EQ((Ids{late}), Search(1, 0, &at).ids);
  clock.Pass(1);
  const TIMEDATE behind = clock.Now();
  EXPECT_EQ(Ids{}, Search(1, 0, &behind).ids);
  const TIMEDATE all = kWildcardTime;
  const Found found = Search(1, 0, &all);
  EXPECT_EQ((Ids{early, late}), found.ids);
  const uint32_t next = StoreText("Title", "in the very hundredth of the search");
  EXPECT_EQ((Ids{next}), Search(1, 0, &found.until).ids);
}

TEST_F(SearchTest, EngDbSearch_CallbackStatus_EndsAndIsTheResult) {
  for (int i = 0; i < 5; ++i) StoreText("Title", "x");
  int calls = 0;
  TIMEDATE until{{7, 7}};
  EXPECT_EQ(0xc123,
            SearchWith([&](const SEARCH_MATCH&) -> EngStatus { return ++calls == 3 ? 0xc123 : 0; }, &until));
  EXPECT_EQ(3, calls);
  EXPECT_EQ(7u, until.Innards[0]) << "a search that was ended says no time";
}

TEST_F(SearchTest, EngDbSearch_CallbackReadsWritesAndDeletes) {
  Ids ids;
  for (int i = 0; i < 50; ++i) ids.push_back(StoreText("Title", std::to_string(i)));
  Ids seen;
  EXPECT_EQ(0, SearchWith([&](const SEARCH_MATCH& match) -> EngStatus {
              const uint32_t id = match.ID.NoteID;
              seen.push_back(id);
              const EngNote note = OpenNote(id);
              EXPECT_EQ(std::to_string(seen.size() - 1), Text(note, "Title"));
              EXPECT_EQ(0, AppendText(note, "Seen", std::string(5000, 's')));
              EXPECT_EQ(0, EngNoteUpdate(note, id % 2 == 0 ? 4 : 0));
              EXPECT_EQ(0, EngNoteClose(note));
              StoreText("Title", "made meanwhile", 4);  // must not be met, or the search had no end
              if (id % 3 == 0) {
                EXPECT_EQ(0, EngNoteDelete(db_, id, 4));
              }
              return 0;
            }));
  EXPECT_EQ(ids, seen);
  size_t left = 0;
  for (const uint32_t id : ids) left += id % 3 != 0;
  EXPECT_EQ(left + ids.size(), Search(1).ids.size());
}

TEST_F(SearchTest, EngDbSearch_CallbackDeletesAllOthers_SearchEnds) {
  for (int i = 0; i < 20; ++i) StoreText("Title", "x", 4);
  int calls = 0;
  EXPECT_EQ(0, SearchWith([&](const SEARCH_MATCH& match) -> EngStatus {
              ++calls;
              for (const uint32_t id : Search(1).ids)  // a search within a search
                if (id != match.ID.NoteID) {
                  EXPECT_EQ(0, EngNoteDelete(db_, id, 4));
                }
              return 0;
            }));
  EXPECT_GE(calls, 1);
  EXPECT_EQ(1u, Search(1).ids.size());
}

TEST_F(SearchTest, EngDbSearch_CallbackClosesTheDatabase_EndsWithBadHandle) {
  for (int i = 0; i < 5; ++i) StoreText("Title", "x");
  int calls = 0;
  EXPECT_EQ(status::kBadHandle, SearchWith([&](const SEARCH_MATCH& match) -> EngStatus {
              ++calls;
              EngNote note = 0;
              EXPECT_EQ(0, EngNoteOpen(db_, match.ID.NoteID, 0, &note));
              EXPECT_EQ(0, EngDbClose(db_));
              EXPECT_EQ(status::kBadHandle, EngNoteClose(note));
              EXPECT_EQ(status::kBadHandle, EngNoteOpen(db_, match.ID.NoteID, 0, &note));
              return 0;
            }));
  EXPECT_EQ(1, calls);
  EXPECT_EQ(1u, store::OpenHandleCount()) << "that of the other database";
  ASSERT_EQ(0, EngDbOpen("test", &db_));
  EXPECT_EQ(0x123, SearchWith([&](const SEARCH_MATCH&) -> EngStatus {
              EXPECT_EQ(0, EngDbClose(db_));
              return 0x123;
            }));
  ASSERT_EQ(0, EngDbOpen("test", &db_));
  // Closed by the inner one of two searches.
  EXPECT_EQ(status::kBadHandle, SearchWith([&](const SEARCH_MATCH&) -> EngStatus {
              EXPECT_EQ(status::kBadHandle,
                        SearchWith([&](const SEARCH_MATCH&) -> EngStatus { return EngDbClose(db_); }));
              return 0;
            }));
  ASSERT_EQ(0, EngDbOpen("test", &db_));
  EXPECT_EQ(5u, Search(1).ids.size());
}

TEST_F(SearchTest, EngDbSearch_CallbackFreesTheFormula_SearchGoesOn) {
  for (int i = 0; i < 5; ++i) StoreText("Title", "yes");
  struct State {
    EngMem formula;
    int calls;
  } state{Compile("Title = \"yes\""), 0};
  const auto run = [](void* parameter, const SEARCH_MATCH*, const ITEM_TABLE*) -> EngStatus {
    auto* found = static_cast<State*>(parameter);
    if (++found->calls == 1) {
      EXPECT_EQ(0, EngMemFree(found->formula));
    }
    return 0;
  };
  EXPECT_EQ(0, EngDbSearch(db_, state.formula, nullptr, 0, 1, nullptr, run, &state, nullptr));
  EXPECT_EQ(5, state.calls);
}

TEST_F(SearchTest, EngDbSearch_DamagedNotes_ArePassedOver) {
  Ids ids;
  for (int i = 0; i < 3; ++i) ids.push_back(StoreText("Title", "x"));
  const Record whole = RawNote(Owner(), ids[1]);
  ForEachHarm(whole, [&](const Record& harmed) {
    PutRawNote(Owner(), ids[1], harmed);
    ASSERT_EQ((Ids{ids[0], ids[2]}), Search(1).ids);
  });
  PutRawNote(Owner(), ids[1], RawNote(Owner(), ids[0]));
  EXPECT_EQ((Ids{ids[0], ids[2]}), Search(1).ids) << "a note under the id of another";
  PutRawNote(Owner(), ids[1], whole);
  EXPECT_EQ(ids, Search(1).ids);
}

TEST_F(SearchTest, EngDbSearch_DamagedLongValue_NoteIsPassedOver) {
  const uint32_t first = StoreText("Long", std::string(30000, 'x'));
  const uint32_t second = StoreText("Long", std::string(30001, 'x'));
  const EngMem formula = Compile("@Length(Long) > 100");
  EXPECT_EQ((Ids{first, second}), Search(1, formula).ids);
  std::vector<Record> keys;
  Owner().Store().ScanRecords(space::kValues, {}, std::nullopt, [&](Bytes key, Bytes) {
    keys.emplace_back(key.begin(), key.end());
    return true;
  });
  ASSERT_EQ(2u, keys.size());
  PutRaw(Owner(), space::kValues, keys[0], BytesOf("damaged"));
  const Found found = Search(1, formula);
  EXPECT_EQ(0, found.outcome);
  EXPECT_EQ((Ids{second}), found.ids);
  EXPECT_EQ(0, EngMemFree(formula));
}

TEST_F(SearchTest, EngDbSearch_HarmedFormula_StatusOrAnswer) {
  StoreText("Title", "x");
  const EngMem formula = Compile("Title = \"x\" & @Length(Title) < 3");
  const MutableBytes block = memory::FindBytes(formula);
  const Record whole(block.begin(), block.end());
  int refused = 0;
  ForEachHarm(whole, [&](const Record& harmed) {
    if (harmed.empty()) return;  // a block without bytes is no formula at all: everything is selected
    const MemoryBlock copy = MemoryCopy(harmed);
    const Found found = Search(1, copy.handle());
    if (found.outcome != 0) {
      ++refused;
      EXPECT_EQ(0x300, found.outcome & 0x3f00) << found.outcome;
    }
  });
  EXPECT_GT(refused, static_cast<int>(whole.size()));
  EXPECT_EQ(0, EngMemFree(formula));
}

TEST_F(SearchTest, SearchNotes_TakesNothingFromTheHeapForANote) {
  const EngMem formula = Compile("Section = \"games\" & InstalledSize > 1000");
  const auto add = [&](int count) {
    for (int i = 0; i < count; ++i) {
      const EngNote note = NewNote();
      const double size = i * 20;
      EXPECT_EQ(0, AppendText(note, "Section", i % 3 == 0 ? "games" : "libs"));
      EXPECT_EQ(0, EngItemAppend(note, 4, "InstalledSize", 13, BRTYPE_NUMBER, &size, sizeof size));
      // The last one durably: a batch that ends between two searches would have the second renew its view.
      EXPECT_EQ(0, EngNoteUpdate(note, i + 1 == count ? 0 : 4));
      EXPECT_EQ(0, EngNoteClose(note));
    }
  };
  add(300);
  AllocationsOfSearch(formula);
  const uint64_t few = AllocationsOfSearch(formula);
  add(2000);
  AllocationsOfSearch(formula);
  EXPECT_EQ(few, AllocationsOfSearch(formula));
  EXPECT_NE(0u, few) << "the counter counts";
  EXPECT_EQ(0, EngMemFree(formula));
}

TEST_F(SearchTest, VisitChangedSince_StubsToo_DamagedOnesCounted) {
  SetClock clock;
  const SeamGuard guard(Process().clock, static_cast<Clock*>(&clock));
  const uint32_t kept = StoreText("Title", "x"), deleted = StoreText("Title", "x"),
                 damaged = StoreText("Title", "x");
  const TIMEDATE since = clock.Pass(5);
  ASSERT_EQ(0, EngNoteDelete(db_, deleted, 0));
  PutRawNote(Owner(), damaged, BytesOf("damaged"));
  std::vector<std::pair<uint32_t, bool>> seen;
  const auto keep = [&](const ImageView& view) { seen.emplace_back(view.NoteId(), view.IsStub()); };
  EXPECT_EQ(1u, VisitChangedSince(Owner(), 1, since, keep));
  EXPECT_EQ((std::vector<std::pair<uint32_t, bool>>{{deleted, true}}), seen);
  seen.clear();
  EXPECT_EQ(1u, VisitChangedSince(Owner(), 1, kWildcardTime, keep));
  EXPECT_EQ((std::vector<std::pair<uint32_t, bool>>{{kept, false}, {deleted, true}}), seen);
}

TEST_F(SearchTest, LastModified_DataAndOtherApart) {
  SetClock clock;
  const SeamGuard guard(Process().clock, static_cast<Clock*>(&clock));
  EXPECT_TRUE(IsWildcard(LastModified(Owner()).data));
  EXPECT_FALSE(IsWildcard(LastModified(Owner()).other)) << "the icon record";
  clock.now = SystemClock().UnixNanoseconds();  // the icon record was made by the system's clock
  const TIMEDATE data = clock.Pass(100);
  const uint32_t id = StoreText("Title", "x");
  EXPECT_EQ(0, InstantCompare(data, LastModified(Owner()).data));
  const TIMEDATE other = clock.Pass(10);
  StoreClass(8);
  EXPECT_EQ(0, InstantCompare(data, LastModified(Owner()).data));
  EXPECT_EQ(0, InstantCompare(other, LastModified(Owner()).other));
  const TIMEDATE deletion = clock.Pass(10);
  ASSERT_EQ(0, EngNoteDelete(db_, id, 0));
  EXPECT_EQ(0, InstantCompare(deletion, LastModified(Owner()).data)) << "a deletion is a change";
}

// The stamps of a database against a scan of all its notes, while data and other notes come, change and go.
TEST_F(SearchTest, LastModified_AnyChanges_AsAScanFinds) {
  TestRandom random(SeedOfRun());
  std::vector<uint32_t> ids;
  const auto compare = [&](int step) {
    ModifiedTimes scanned{.data = kWildcardTime, .other = kWildcardTime};
    VisitChangedSince(Owner(), BRCLASS_ALL, kWildcardTime, [&](const ImageView& view) {
      TIMEDATE& last = CountsAsData(view.NoteClass()) ? scanned.data : scanned.other;
      if (InstantCompare(view.Image().Modified(), last) > 0) last = view.Image().Modified();
    });
    const ModifiedTimes told = LastModified(Owner());
    ASSERT_EQ(0, std::memcmp(&scanned.data, &told.data, sizeof told.data)) << step;
    ASSERT_EQ(0, std::memcmp(&scanned.other, &told.other, sizeof told.other)) << step;
  };
  compare(-1);
  for (int step = 0; step < 120; ++step) {
    const uint16_t update_word = random.Below(2) == 0 ? kUpdateNoCommit : 0;
    const uint64_t what = ids.empty() ? 0 : random.Below(10);
    if (what < 6) {
      const EngNote note = what < 4 ? NewNote() : OpenNote(ids[random.Below(ids.size())]);
      if (what < 4 && random.Below(3) == 0) {
        const uint16_t design = BRCLASS_FORM;
        EXPECT_EQ(0, EngNoteInfoSet(note, 3, &design));
      }
      AppendText(note, "Title", "x");
      EXPECT_EQ(0, EngNoteUpdate(note, update_word));
      if (what < 4) ids.push_back(IdOf(note));
      EXPECT_EQ(0, EngNoteClose(note));
    } else if (what < 7) {
      EXPECT_EQ(0, EngNoteDelete(db_, ids.back(), update_word));
      ids.pop_back();
    } else if (what < 8) {
      EXPECT_EQ(0, EngDbInfoSet(db_, "a change that is none of a note"));
    } else if (what < 9) {
      Reopen();
    }
    compare(step);
  }
}

// A journal that has forgotten all changes of data does not make the answer wrong.
TEST_F(SearchTest, LastModified_JournalForgotten_Scans) {
  StoreText("Title", "x");
  const ModifiedTimes before = LastModified(Owner());
  ASSERT_FALSE(IsWildcard(before.data));
  ASSERT_EQ(0, EngDbClose(db_));
  sqlite3* raw = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open((folder_ + "/test.QDB").c_str(), &raw));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(raw,
                                    "DELETE FROM journal; INSERT INTO journal VALUES(1000,x''); "
                                    "UPDATE note SET made=NULL",
                                    nullptr, nullptr, nullptr));
  sqlite3_close(raw);
  ASSERT_EQ(0, EngDbOpen("test", &db_));
  const ModifiedTimes after = LastModified(Owner());
  EXPECT_EQ(0, std::memcmp(&before, &after, sizeof after));
}

}  // namespace
