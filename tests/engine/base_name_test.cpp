// Hierarchical names and paths of servers.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "base/name.h"
#include "base/net_path.h"
#include "base/process.h"
#include "brynd_name.h"

namespace brynd {
namespace {

std::string Canonical(const std::string& name, const char* name_template = nullptr) {
  char output[256] = "untouched";
  uint16_t length = 0;
  if (EngStatus failure = EngNameCanonicalize(0, name_template, name.c_str(), output, 255, &length))
    return "status " + std::to_string(failure);
  EXPECT_EQ(std::string(output).size(), length);
  return output;
}

std::string Abbreviated(const std::string& name, const char* name_template = nullptr) {
  char output[256] = "untouched";
  if (EngStatus failure = EngNameAbbreviate(0, name_template, name.c_str(), output, 255, nullptr))
    return "status " + std::to_string(failure);
  return output;
}

struct NameRow {
  const char* written;
  const char* canonical;
  const char* abbreviated;
};

constexpr NameRow kNames[] = {
    {"CN=Jo Doe/OU=Dev/O=Acme", "CN=Jo Doe/OU=Dev/O=Acme", "Jo Doe/Dev/Acme"},
    {"Jo Doe/Dev/Acme", "CN=Jo Doe/OU=Dev/O=Acme", "Jo Doe/Dev/Acme"},
    {"jo/Acme", "CN=jo/O=Acme", "jo/Acme"},
    {"Jo/Dev/Acme/US", "CN=Jo/OU=Dev/O=Acme/C=US", "Jo/Dev/Acme/US"},
    {"Jo/US", "CN=Jo/O=US", "Jo/US"},
    {"CN=Jo/OU=Dev/O=AB", "CN=Jo/OU=Dev/O=AB", "Jo/Dev/O=AB"},
    {"cn=Jo/ou=A/OU=B/OU=C/OU=D/o=Acme/c=DE", "CN=Jo/OU=A/OU=B/OU=C/OU=D/O=Acme/C=DE", "Jo/A/B/C/D/Acme/DE"},
    {"O=Acme", "O=Acme", "O=Acme"},
    {"OU=Dev/O=Acme", "OU=Dev/O=Acme", "OU=Dev/O=Acme"},
    {"CN=Jo/C=US", "CN=Jo/C=US", "Jo/C=US"},
    {"Jo Doe", "Jo Doe", "Jo Doe"},
    {"CN=Jo", "CN=Jo", "CN=Jo"},
    {"  Jo / Dev / Acme ", "CN=Jo/OU=Dev/O=Acme", "Jo/Dev/Acme"},
    {"Jo/Acme@Net", "CN=Jo/O=Acme@Net", "Jo/Acme@Net"},
    {"jo@acme.example", "jo@acme.example", "jo@acme.example"},
};

TEST(NameTest, EngNameCanonicalizeAndAbbreviate_TableOfNames_BothFormsAndBack) {
  for (const NameRow& row : kNames) {
    EXPECT_EQ(Canonical(row.written), row.canonical) << row.written;
    EXPECT_EQ(Abbreviated(row.written), row.abbreviated) << row.written;
    EXPECT_EQ(Canonical(row.abbreviated), row.canonical) << row.written;
    EXPECT_EQ(Canonical(row.canonical), row.canonical) << row.written;
  }
}

TEST(NameTest, EngNameCanonicalize_NoNames_BadNameAndOutputAlone) {
  const std::string too_long(256, 'x');
  for (const std::string& name :
       {std::string(), std::string(" "), std::string("/"), std::string("a//b"), std::string("CN="),
        std::string("O=A/CN=b"), std::string("CN=a/CN=b"), std::string("CN=a/O=b/O=c"),
        std::string("a/1/2/3/4/5/Acme"), std::string("Jo@"), too_long}) {
    char output[300] = "untouched";
    uint16_t length = 7;
    EXPECT_EQ(EngNameCanonicalize(0, nullptr, name.c_str(), output, 255, &length), status::kBadName) << name;
    EXPECT_STREQ(output, "untouched");
    EXPECT_EQ(length, 7);
    EXPECT_EQ(EngNameAbbreviate(0, nullptr, name.c_str(), output, 255, nullptr), status::kBadName) << name;
    NAME_PARTS parts{};
    EXPECT_EQ(EngNameParse(0, nullptr, name.c_str(), &parts), status::kBadName) << name;
  }
}

TEST(NameTest, EngNameCanonicalize_AroundTheLimits_FitsOrTooLong) {
  const std::string flat(255, 'x');
  EXPECT_EQ(Canonical(flat), flat);
  char output[8] = "";
  EXPECT_EQ(EngNameCanonicalize(0, nullptr, "abcdefg", output, 7, nullptr), status::kOk);
  EXPECT_STREQ(output, "abcdefg");
  EXPECT_EQ(EngNameCanonicalize(0, nullptr, "abcdefgh", output, 7, nullptr), status::kTextTooLong);
  EXPECT_STREQ(output, "abcdefg");
  // The keys make it longer than a name can be.
  EXPECT_EQ(Canonical(std::string(250, 'x') + "/Acme"), "status " + std::to_string(status::kBadName));
}

TEST(NameTest, EngNameCanonicalize_Template_FlatNameTakesItsSurroundings) {
  EXPECT_EQ(Canonical("Jo", "CN=x/OU=Dev/O=Acme/C=US"), "CN=Jo/OU=Dev/O=Acme/C=US");
  EXPECT_EQ(Canonical("Jo/Other", "CN=x/OU=Dev/O=Acme"), "CN=Jo/O=Other");
  EXPECT_EQ(Canonical("Jo", "flat"), "Jo");
  EXPECT_EQ(Abbreviated("CN=Jo/OU=Dev/O=Acme", "CN=x/OU=dev/O=ACME"), "Jo");
  EXPECT_EQ(Abbreviated("CN=Jo/OU=Dev/O=Acme", "CN=x/O=Acme"), "Jo/Dev/Acme");
}

TEST(NameTest, EngNameParse_WholeName_PartsPointIntoIt) {
  const std::string name = "CN=Jo Doe/OU=Inner/OU=Outer/O=Acme/C=US@Net";
  NAME_PARTS parts{};
  ASSERT_EQ(EngNameParse(0, nullptr, name.c_str(), &parts), status::kOk);
  const auto text = [&](const char* part, uint32_t length) {
    EXPECT_GE(part, name.data());
    EXPECT_LE(part + length, name.data() + name.size());
    return std::string(part, length);
  };
  EXPECT_EQ(uint32_t{parts.Flags}, 1u);
  EXPECT_EQ(text(parts.CommonName, parts.CommonNameLength), "Jo Doe");
  EXPECT_EQ(text(parts.OrgUnit[0], parts.OrgUnitLength[0]), "Outer");
  EXPECT_EQ(text(parts.OrgUnit[1], parts.OrgUnitLength[1]), "Inner");
  EXPECT_EQ(uint32_t{parts.OrgUnitLength[2]}, 0u);
  EXPECT_EQ(parts.OrgUnit[2] == nullptr, true);
  EXPECT_EQ(text(parts.Org, parts.OrgLength), "Acme");
  EXPECT_EQ(text(parts.Country, parts.CountryLength), "US");
  EXPECT_EQ(text(parts.Domain, parts.DomainLength), "Net");
}

TEST(NameTest, AbbreviatedName_RandomNames_CanonicalFormComesBack) {
  std::mt19937 random(11);
  const char* const pieces[] = {
      "Jo", "Dev", "US", "Acme", "CN=", "OU=", "O=", "C=", "/", "/", "@", " ", "ab"};
  size_t names = 0;
  for (int round = 0; round < 50000; ++round) {
    std::string name;
    for (size_t piece = random() % 9; piece > 0; --piece) name += pieces[random() % std::size(pieces)];
    std::string canonical;
    try {
      canonical = CanonicalName(name);
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status(), status::kBadName);
      continue;
    }
    ++names;
    EXPECT_EQ(CanonicalName(canonical), canonical) << name;
    EXPECT_EQ(CanonicalName(AbbreviatedName(name)), canonical) << name;
  }
  EXPECT_GT(names, 1000u);
}

class OneSetting : public SettingsStore {
 public:
  explicit OneSetting(std::optional<std::string> value) : value_(std::move(value)) {}
  std::optional<std::string> Get(std::string_view name) override {
    return name == "UserName" ? value_ : std::nullopt;
  }
  void Set(std::string_view, std::string_view) override {}

 private:
  std::optional<std::string> value_;
};

TEST(NameTest, EngUserNameGet_SettingUserName_CanonicalInEngineText) {
  OneSetting settings("J\xc3\xb6/Acme");
  SeamGuard guard(Process().settings, &settings);
  char name[256] = "";
  ASSERT_EQ(EngUserNameGet(name), status::kOk);
  EXPECT_STREQ(name, "CN=J\xf6/O=Acme");
}

TEST(NameTest, EngUserNameGet_NoSetting_StatusAndNameAlone) {
  OneSetting settings(std::nullopt);
  SeamGuard guard(Process().settings, &settings);
  char name[256] = "untouched";
  EXPECT_EQ(EngUserNameGet(name), status::kNoSetting);
  EXPECT_STREQ(name, "untouched");
  EXPECT_EQ(EngUserNameGet(nullptr), status::kBadArgument);
}

TEST(NetPathTest, EngNetPathBuildAndParse_TableOfPaths_ThereAndBack) {
  struct Row {
    const char *port, *server, *file, *path;
  };
  constexpr Row rows[] = {{"", "", "mail/jo.QDB", "mail/jo.QDB"},
                          {"", "Hub", "a.QDB", "Hub!!a.QDB"},
                          {"TCP", "CN=Hub/O=Acme", "a.QDB", "TCP!!!CN=Hub/O=Acme!!a.QDB"},
                          {"TCP", "Hub", "", "TCP!!!Hub!!"},
                          {"", "", "", ""}};
  for (const Row& row : rows) {
    char path[512], port[256], server[256], file[256];
    ASSERT_EQ(EngNetPathBuild(row.port, row.server, row.file, path), status::kOk);
    EXPECT_STREQ(path, row.path);
    ASSERT_EQ(EngNetPathParse(path, port, server, file), status::kOk);
    EXPECT_STREQ(port, row.port);
    EXPECT_STREQ(server, row.server);
    EXPECT_STREQ(file, row.file);
  }
  char path[512];
  ASSERT_EQ(EngNetPathBuild("TCP", nullptr, "a.QDB", path), status::kOk);
  EXPECT_STREQ(path, "a.QDB");
}

TEST(NetPathTest, EngNetPathParse_PortWithoutFile_PortAndServer) {
  char port[256], server[256], file[256];
  ASSERT_EQ(EngNetPathParse("TCP!!!Hub", port, server, file), status::kOk);
  EXPECT_STREQ(port, "TCP");
  EXPECT_STREQ(server, "Hub");
  EXPECT_STREQ(file, "");
  ASSERT_EQ(EngNetPathParse("Hub!!x!!!y", port, nullptr, file), status::kOk);
  EXPECT_STREQ(port, "");
  EXPECT_STREQ(file, "x!!!y");
}

TEST(NetPathTest, EngNetPathBuild_AroundTheLimits_FitsOrBadPath) {
  char path[512] = "untouched", part[256];
  const std::string longest(255, 's'), too_long(256, 's');
  ASSERT_EQ(EngNetPathBuild(nullptr, nullptr, longest.c_str(), path), status::kOk);
  EXPECT_EQ(path, longest);
  EXPECT_EQ(EngNetPathBuild(nullptr, nullptr, too_long.c_str(), path), status::kBadPath);
  EXPECT_EQ(path, longest);
  ASSERT_EQ(EngNetPathBuild(nullptr, longest.c_str(), longest.substr(1).c_str(), path), status::kOk);
  EXPECT_EQ(std::string(path).size(), 511u);
  EXPECT_EQ(EngNetPathBuild(nullptr, longest.c_str(), longest.c_str(), path), status::kBadPath);
  EXPECT_EQ(EngNetPathBuild(nullptr, "a!b", "c", path), status::kBadPath);
  EXPECT_EQ(EngNetPathParse(too_long.c_str(), part, part, part), status::kBadPath);
  EXPECT_EQ(EngNetPathBuild(nullptr, "a", "b", nullptr), status::kBadArgument);
}

}  // namespace
}  // namespace brynd
