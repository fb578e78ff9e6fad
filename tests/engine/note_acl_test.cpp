#include <string>

#include "engine/data_fixture.h"
#include "engine/test_random.h"
#include "note/acl.h"

using namespace brynd;

namespace {

class AclTest : public DataFixture {
 protected:
  static std::string RandomName(TestRandom& random, size_t least) {
    return std::string(least + random.Below(20), static_cast<char>('a' + random.Below(26)));
  }
  static Acl RandomAcl(TestRandom& random) {
    Acl acl;
    acl.flags = static_cast<uint32_t>(random.U64());
    acl.admin_server = RandomName(random, 0);
    for (uint32_t count = random.Below(12); count != 0; --count) {
      AclEntry& entry = acl.entries.emplace_back();
      entry.name = RandomName(random, 1);
      entry.level = static_cast<AclLevel>(random.Below(7));
      entry.flags = static_cast<uint16_t>(random.U64());
      for (std::byte& role : entry.roles) role = static_cast<std::byte>(random.Below(256));
    }
    for (uint32_t count = random.Below(10); count != 0; --count) acl.roles.push_back(RandomName(random, 0));
    acl.history = std::string(random.Below(60), '\0') + "line";
    return acl;
  }
  static void ExpectSame(const Acl& left, const Acl& right) {
    EXPECT_EQ(left.flags, right.flags);
    EXPECT_EQ(left.admin_server, right.admin_server);
    EXPECT_EQ(left.roles, right.roles);
    EXPECT_EQ(left.history, right.history);
    ASSERT_EQ(left.entries.size(), right.entries.size());
    for (size_t i = 0; i < left.entries.size(); ++i) {
      EXPECT_EQ(left.entries[i].name, right.entries[i].name);
      EXPECT_EQ(left.entries[i].level, right.entries[i].level);
      EXPECT_EQ(left.entries[i].flags, right.entries[i].flags);
      EXPECT_EQ(left.entries[i].roles, right.entries[i].roles);
    }
  }
  static bool Parses(const Acl& acl) { return ParseAcl(BuildAcl(acl)).has_value(); }
  static Acl WithEntries(size_t count) {
    Acl acl;
    acl.entries.assign(count, {.name = "n", .level = AclLevel::kReader});
    return acl;
  }
  std::vector<std::byte> Stored() { return ReadAcl(Owner()); }
};

TEST_F(AclTest, NewAcl_OneEntryForEverybody) {
  const std::optional<Acl> acl = ParseAcl(BuildAcl(NewAcl()));
  ASSERT_TRUE(acl.has_value());
  ASSERT_EQ(1u, acl->entries.size());
  EXPECT_EQ("-Default-", acl->entries[0].name);
  EXPECT_EQ(0u, acl->flags);
  EXPECT_TRUE(acl->roles.empty() && acl->history.empty() && acl->admin_server.empty());
}

TEST_F(AclTest, BuildThenParse_RandomLists_AreTheSame) {
  TestRandom random(SeedOfRun());
  for (int round = 0; round < 500; ++round) {
    const Acl acl = RandomAcl(random);
    const std::optional<Acl> parsed = ParseAcl(BuildAcl(acl));
    ASSERT_TRUE(parsed.has_value());
    ExpectSame(acl, *parsed);
  }
}

TEST_F(AclTest, ParseAcl_HarmedBytes_RefusedOrWhole) {
  TestRandom random(SeedOfRun());
  for (int round = 0; round < 20; ++round) {
    const Record whole = BuildAcl(RandomAcl(random));
    ForEachHarm(whole, [&](const Record& harmed) {
      const std::optional<Acl> parsed = ParseAcl(harmed);
      if (harmed.size() < whole.size()) {
        EXPECT_FALSE(parsed.has_value());
      }
      if (parsed) {
        EXPECT_EQ(harmed, BuildAcl(*parsed)) << "what is taken is taken whole";
      }
    });
    Record longer = whole;
    longer.push_back(std::byte{0});
    EXPECT_FALSE(ParseAcl(longer).has_value());
  }
}

TEST_F(AclTest, ParseAcl_EachLimit_BelowAtAndAbove) {
  for (const size_t entries : {kAclEntriesMax - 1, kAclEntriesMax, kAclEntriesMax + 1})
    EXPECT_EQ(entries <= kAclEntriesMax, Parses(WithEntries(entries))) << entries;
  for (const size_t bytes : {kAclNameBytesMax - 1, kAclNameBytesMax, kAclNameBytesMax + 1}) {
    Acl acl = WithEntries(1);
    acl.entries[0].name.assign(bytes, 'n');
    EXPECT_EQ(bytes <= kAclNameBytesMax, Parses(acl));
    acl = {};
    acl.admin_server.assign(bytes, 'n');
    EXPECT_EQ(bytes <= kAclNameBytesMax, Parses(acl));
    acl = {};
    acl.roles.assign(1, std::string(bytes, 'n'));
    EXPECT_EQ(bytes <= kAclNameBytesMax, Parses(acl));
  }
  for (const size_t roles : {kAclRolesMax - 1, kAclRolesMax, kAclRolesMax + 1}) {
    Acl acl;
    acl.roles.assign(roles, "r");
    EXPECT_EQ(roles <= kAclRolesMax, Parses(acl));
  }
  for (const size_t bytes : {kAclHistoryBytesMax - 1, kAclHistoryBytesMax, kAclHistoryBytesMax + 1}) {
    Acl acl;
    acl.history.assign(bytes, 'h');
    EXPECT_EQ(bytes <= kAclHistoryBytesMax, Parses(acl));
  }
  Acl acl = WithEntries(1);
  acl.entries[0].level = static_cast<AclLevel>(7);
  EXPECT_FALSE(Parses(acl));
  acl = WithEntries(1);
  acl.entries[0].name.clear();
  EXPECT_FALSE(Parses(acl));
  acl.entries[0].name = std::string("a\0b", 3);
  EXPECT_FALSE(Parses(acl));
}

TEST_F(AclTest, StoreAcl_ReadBackAfterReopen) {
  EXPECT_EQ(BuildAcl(NewAcl()), Stored()) << "a database without a list has the new one";
  TestRandom random(SeedOfRun());
  const Record list = BuildAcl(RandomAcl(random));
  StoreAcl(Owner(), list);
  Reopen();
  EXPECT_EQ(list, Stored());
  EXPECT_EQ(status::kBadAcl, AtBoundary([&] { StoreAcl(Owner(), Bytes(list).first(list.size() - 1)); }));
  EXPECT_EQ(status::kBadAcl, AtBoundary([&] { StoreAcl(Owner(), {}); }));
  EXPECT_EQ(list, Stored()) << "a refused list changes nothing";
}

TEST_F(AclTest, ReadAcl_HarmedRecord_Status) {
  StoreAcl(Owner(), BuildAcl(NewAcl()));
  const Record whole = RawOf(Owner(), space::kDatabase, BytesOf("acl"));
  int harms = 0;
  ForEachHarm(whole, [&](const Record& harmed) {
    PutRaw(Owner(), space::kDatabase, BytesOf("acl"), harmed);
    EngMem acl = 0;
    const EngStatus outcome = EngDbAclRead(db_, &acl);
    if (outcome == status::kOk) {
      EXPECT_EQ(BuildAcl(NewAcl()), Record(memory::FindBytes(acl).begin(), memory::FindBytes(acl).end()));
      EXPECT_EQ(0, EngMemFree(acl));
    } else {
      EXPECT_EQ(status::kDamaged, outcome);
      ++harms;
    }
  });
  EXPECT_GE(harms, static_cast<int>(4 * (whole.size() - 3)));
  PutFact(Owner(), "acl", BytesOf("no list"));
  EXPECT_EQ(status::kBadAcl, AtBoundary([&] { Stored(); }));
}

TEST_F(AclTest, TemplateAcl_EntriesInBracketsAlone) {
  Acl of_template;
  of_template.flags = 1;
  of_template.roles = {"Admins"};
  of_template.history = "old";
  of_template.admin_server = "Server";
  const auto add = [&](std::string name, AclLevel level) {
    of_template.entries.push_back({.name = std::move(name), .level = level, .flags = 3});
  };
  add("-Default-", AclLevel::kManager);
  add("Stays", AclLevel::kManager);
  add("[Ann]", AclLevel::kEditor);
  add("[-default-]", AclLevel::kReader);
  add("[]", AclLevel::kManager);
  add("[open", AclLevel::kManager);
  add("[ANN]", AclLevel::kAuthor);
  const Acl taken = TemplateAcl(of_template);
  EXPECT_EQ(1u, taken.flags);
  EXPECT_EQ(of_template.roles, taken.roles);
  EXPECT_EQ("", taken.history);
  ASSERT_EQ(2u, taken.entries.size());
  EXPECT_EQ("-default-", taken.entries[0].name);
  EXPECT_EQ(AclLevel::kReader, taken.entries[0].level);
  EXPECT_EQ("ANN", taken.entries[1].name);
  EXPECT_EQ(AclLevel::kAuthor, taken.entries[1].level) << "the last one of a name counts";
  EXPECT_EQ(3, taken.entries[1].flags);
  EXPECT_TRUE(Parses(taken));
}

}  // namespace
