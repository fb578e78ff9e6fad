// The boundary as a whole: the list of calls is the headers, and what is not built yet says so and touches
// nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <string>
#include <type_traits>

#include "base/library.h"
#include "base/status.h"
#include "brynd.h"

namespace brynd {
namespace {

// Each entry of the list has the type of the call it names.
#define ENGINE_CALL(name, result, parameters, arguments) \
  static_assert(std::is_same_v<decltype(&name), result(*) parameters>, #name);
#include "kit/engine_calls.def"
#undef ENGINE_CALL

constexpr const char* kCalls[] = {
#define ENGINE_CALL(name, result, parameters, arguments) #name,
#include "kit/engine_calls.def"
#undef ENGINE_CALL
};

TEST(BoundaryTest, ListOfCalls_Whole_EveryNameOnce) {
  const std::set<std::string> names(std::begin(kCalls), std::end(kCalls));
  EXPECT_EQ(names.size(), std::size(kCalls));
  EXPECT_EQ(names.size(), 207u);
}

// What pointers of a call point to; it must come back as it was.
alignas(16) std::array<unsigned char, 1024> g_room;

template <class T>
T Argument(uint32_t number) {
  if constexpr (std::is_pointer_v<T>) {
    if constexpr (std::is_function_v<std::remove_pointer_t<T>>) return nullptr;
    else return number == 0 ? nullptr : reinterpret_cast<T>(g_room.data());
  } else if constexpr (std::is_integral_v<T>) {
    return static_cast<T>(number);
  } else {
    return T{};
  }
}

// Calls with every number as told and every address at g_room, or null for number 0.
template <class Result, class... Arguments>
Result CallWith(Result (*call)(Arguments...), uint32_t number) {
  return call(Argument<Arguments>(number)...);
}

struct LaterCall {
  const char* name;
  EngStatus (*call)(uint32_t number);
  bool closes;  // takes a handle and nothing else, for which 0 is none
};

template <auto kCall>
EngStatus Numbered(uint32_t number) {
  return CallWith(kCall, number);
}

#define LATER(name) LaterCall{#name, Numbered<&name>, false}
#define LATER_CLOSE(name) LaterCall{#name, Numbered<&name>, true}

constexpr LaterCall kLaterCalls[] = {
    LATER(EngItemToComposite), LATER(EngDbAccessGet),
    LATER(EngTranslateSpecial), LATER(EngMailBoxOpen),
    LATER_CLOSE(EngMailBoxClose), LATER(EngMailMessageCreate), LATER_CLOSE(EngMailMessageClose),
    LATER(EngMailItemGet), LATER(EngMailItemGetHandle), LATER(EngMailHeaderItemAdd),
    LATER(EngMailHeaderItemAddByHandle), LATER(EngMailHeaderItemReplace), LATER(EngMailTransferLocal),
    LATER(EngAgentHandleOpen), LATER_CLOSE(EngAgentHandleClose), LATER(EngAgentContextCreate),
    LATER_CLOSE(EngAgentContextDestroy), LATER(EngAgentExecute), LATER(EngKeyFilePasswordHash),
    LATER(EngCertifierContextGet), LATER_CLOSE(EngCertifierContextFree), LATER(EngRegIdInfoGet),
    LATER(EngRegCertifierNew), LATER(EngRegServerNew), LATER(EngRegWorkstationNew), LATER(EngServerListGet),
    LATER(EngServerConsoleCommand), LATER(EngReplicate), LATER_CLOSE(EngTaskStatusLineDelete),
    LATER(EngTaskStatusTextSet), LATER(EngTaskDefaultsQuery), LATER(EngTaskDefaultsSet),
    LATER(EngTaskLogText), LATER(EngAclEntriesEnum), LATER(EngAclEntryAdd), LATER(EngAclEntryDelete),
    LATER(EngAclEntryUpdate), LATER(EngAclAccessLookup), LATER(EngAclRoleNameGet), LATER(EngAclRoleNameSet),
    LATER(EngAclAdminServerGet), LATER(EngAclAdminServerSet), LATER(EngAclFlagsGet), LATER(EngAclFlagsSet),
    LATER(EngAclHistoryGet), LATER(EngNoteSign), LATER(EngNoteUnsign), LATER(EngNoteDecrypt),
    LATER(EngNoteCopyEncrypted), LATER(EngNoteFileAttach), LATER(EngNoteFileExtract),
    LATER(EngNoteFileDetach),
};

TEST(BoundaryTest, LaterCalls_AnyArguments_NotAvailableAndNothingTouched) {
  for (const LaterCall& later : kLaterCalls) {
    for (const uint32_t number : {0u, 1u, 0xffffffffu}) {
      g_room.fill(0x5a);
      const EngStatus expected = later.closes && number == 0 ? status::kOk : status::kNotAvailable;
      EXPECT_EQ(later.call(number), expected) << later.name << " with " << number;
      EXPECT_TRUE(std::ranges::all_of(g_room, [](unsigned char byte) { return byte == 0x5a; })) << later.name;
    }
  }
}

TEST(BoundaryTest, EngColorMapToV3_Later_SharedColoursStayOthersAreBlack) {
  for (uint32_t color = 0; color < 300; ++color) EXPECT_EQ(EngColorMapToV3(color), color < 16 ? color : 0u);
}

TEST(BoundaryTest, TaskCallsWithoutStatus_Later_NeutralAnswers) {
  EXPECT_EQ(EngTaskStatusLineCreate("name"), 0u);
  EXPECT_EQ(EngTaskStatusLineCreate(nullptr), 0u);
  EXPECT_EQ(EngTaskShouldStop(), 0);
}

TEST(BoundaryTest, EngMessageLoad_NotAvailable_HasAText) {
  char text[256] = "";
  EXPECT_GT(EngMessageLoad(0, status::kNotAvailable, text, 255), 0);
  EXPECT_NE(std::strstr(text, "not available"), nullptr);
}

TEST(BoundaryTest, EngLibraryLoad_NamesThatLeadElsewhere_BadPathAndOutputsAlone) {
  void* library = g_room.data();
  void* procedure = g_room.data();
  for (const char* name : {"", "../x", "/tmp/x", "a\\b", "c:x"})
    EXPECT_EQ(EngLibraryLoad(name, 0, &library, &procedure), status::kBadPath) << name;
  EXPECT_EQ(EngLibraryLoad(std::string(65, 'x').c_str(), 0, &library, &procedure), status::kBadPath);
  EXPECT_EQ(EngLibraryLoad("no_such_library", 0, &library, &procedure), status::kNoLibrary);
  EXPECT_EQ(EngLibraryLoad(nullptr, 0, &library, &procedure), status::kBadArgument);
  EXPECT_EQ(EngLibraryLoad("x", 0, nullptr, &procedure), status::kBadArgument);
  EXPECT_EQ(library, g_room.data());
  EXPECT_EQ(procedure, g_room.data());
}

TEST(BoundaryTest, EngLibraryFree_NothingLoaded_BadHandle) {
  EXPECT_EQ(EngLibraryFree(g_room.data()), status::kBadHandle);
  EXPECT_EQ(EngLibraryFree(nullptr), status::kOk);
}

}  // namespace
}  // namespace brynd
