// Rows of the session functions and of the error functions.
#include "kit/contract.h"
#include "kit/fixture.h"
#include "kvint_session.h"

namespace kit {

static Argument Property(uint64_t property) { return Enum(property, 22, KVFAIL_BAD_PROPERTY); }

static std::vector<Row> ErrorRows() {
  return {
      {"KVErrorFetch",
       "",
       ByWords(KVErrorFetch),
       Result::kNothing,
       SessionBy::kNone,
       Needs::kNothing,
       {Out(4, kMayBeNull), Out(4, kMayBeNull), Out(KVMESSAGE_BYTES, kMayBeNull)}},
      {"KVErrorGetInfo",
       "",
       ByWords(KVErrorGetInfo),
       Result::kNothing,
       SessionBy::kNone,
       Needs::kNothing,
       {Plain(KVFAIL_BAD_ENUM), Out(4, kMayBeNull), Out(KVMESSAGE_BYTES, kMayBeNull)}},
      {.function = "KVErrorSetBuffer",
       .variant = "",
       .call = ByWords(KVErrorSetBuffer),
       .result = Result::kNothing,
       .session = SessionBy::kNone,
       .arguments = {Out(4, kMayBeNull), Out(4, kMayBeNull), Out(KVMESSAGE_BYTES, kMayBeNull)},
       .finish = [](Scene&, const Words&) { KVErrorSetBuffer(nullptr, nullptr, nullptr); }},
      {"KVErrorSetProcedure",
       "",
       ByWords(KVErrorSetProcedure),
       Result::kNothing,
       SessionBy::kNone,
       Needs::kNothing,
       {Plain(0), Plain(0)}},
  };
}

// The row starts once more than the test; where the call was refused, that start is undone here.
static void EndExtraStarts() {
  while (KVICurrentSession()->ref_count > 1) KVTerm(0);
}

static std::vector<Row> LifecycleRows() {
  return {
      {"KVGetAPILibraryVersion",
       "",
       ByWords(KVGetAPILibraryVersion),
       Result::kNothing,
       SessionBy::kNone,
       Needs::kNothing,
       {Out(KVVERSION_BYTES, kMayBeNull)}},
      {.function = "_KVInit",
       .variant = "",
       .call = ByWords(_KVInit),
       .session = SessionBy::kNone,
       .arguments = {Enum(KVAPI_VERSION, 0x45101, KVFAIL_BAD_VERSION), Plain(0), Plain(0), Plain(0)},
       .finish = [](Scene&, const Words&) { KVTerm(0); }},
      {.function = "KVTerm",
       .variant = "",
       .call = ByWords(KVTerm),
       .arguments = {Plain(0)},
       .foreign_status = KVFAIL_TERM_FAILED,
       .prepare = [](Scene&) { KVInitThread(0); },
       .cleanup = EndExtraStarts},
  };
}

static std::vector<Row> PropertyRows() {
  const uint32_t rows = 5;
  return {
      {"KVGetProperty",
       "",
       ByWords(KVGetProperty),
       Result::kStatus,
       SessionBy::kThread,
       Needs::kNothing,
       {Property(KVPROP_SESS_TRUNCATE_TEXT), Out(4, KVFAIL_NULL_PARAM)}},
      {"KVGetProperty",
       "user name",
       ByWords(KVGetProperty),
       Result::kStatus,
       SessionBy::kThread,
       Needs::kNothing,
       {Property(KVPROP_SESS_USER_NAME), Out(256, KVFAIL_NULL_PARAM)}},
      {.function = "KVGetProperty",
       .variant = "on server",
       .call = ByWords(KVGetProperty),
       .arguments = {Property(KVPROP_SESS_ON_SERVER), Out(4, KVFAIL_NULL_PARAM)},
       .ignores = {"EngDbOpen", "EngNetPathBuild", "EngNameCanonicalize"}},
      {"KVSetProperty",
       "",
       ByWords(KVSetProperty),
       Result::kStatus,
       SessionBy::kThread,
       Needs::kNothing,
       {Property(KVPROP_SESS_VCACHE_ROWS), In(rows, KVFAIL_NULL_PARAM)}},
      {.function = "KVSetProperty",
       .variant = "local server",
       .call = ByWords(KVSetProperty),
       .arguments = {Property(KVPROP_SESS_LOCAL_SERVER), Text("Hub", kMayBeNull)},
       .finish = [](Scene&, const Words&) { KVSetProperty(KVPROP_SESS_LOCAL_SERVER, nullptr); }},
  };
}

static std::vector<Row> SettingRows() {
  const KVFORMAT format = KVFORMAT_DEFAULT;
  const auto own_settings = [](Scene& scene) -> const void* {
    auto* intl = static_cast<KVINTERNATIONAL*>(scene.Bytes(sizeof(KVINTERNATIONAL)));
    KVGetInternational(intl);
    return intl;
  };
  return {
      {.function = "KVGetEnvironmentString",
       .variant = "",
       .call = ByWords(KVGetEnvironmentString),
       .arguments = {Text("Directory", KVFAIL_NULL_PARAM), Plain(0), Out(151, KVFAIL_NULL_PARAM)},
       .fault_statuses = {KVFAIL_NOT_FOUND}},
      {"KVSetEnvironmentString",
       "",
       ByWords(KVSetEnvironmentString),
       Result::kStatus,
       SessionBy::kThread,
       Needs::kNothing,
       {Text("ContractTest", KVFAIL_NULL_PARAM), Text("value", KVFAIL_NULL_PARAM), Plain(1)}},
      {"KVGetFormat",
       "",
       ByWords(KVGetFormat),
       Result::kStatus,
       SessionBy::kThread,
       Needs::kNothing,
       {Out(sizeof(KVFORMAT), KVFAIL_NULL_PARAM)}},
      {"KVSetFormat",
       "",
       ByWords(KVSetFormat),
       Result::kStatus,
       SessionBy::kThread,
       Needs::kNothing,
       {In(format, KVFAIL_NULL_PARAM)}},
      {"KVGetInternational",
       "",
       ByWords(KVGetInternational),
       Result::kStatus,
       SessionBy::kThread,
       Needs::kNothing,
       {Out(sizeof(KVINTERNATIONAL), KVFAIL_NULL_PARAM)}},
      {"KVSetInternational",
       "",
       ByWords(KVSetInternational),
       Result::kStatus,
       SessionBy::kThread,
       Needs::kNothing,
       {Pointer(own_settings, KVFAIL_NULL_PARAM)}},
      {"KVTranslate",
       "",
       ByWords(KVTranslate),
       Result::kStatus,
       SessionBy::kThread,
       Needs::kNothing,
       {Enum(KVTRANSLATE_TO_ENGINE, 2, KVFAIL_BAD_ENUM), Plain(3), Text("abc", KVFAIL_NULL_PARAM), Plain(8),
        Out(8, KVFAIL_NULL_PARAM), Out(4, kMayBeNull)}},
  };
}

std::vector<Row> SessionRows() {
  std::vector<Row> rows;
  for (const auto& part : {ErrorRows, LifecycleRows, PropertyRows, SettingRows})
    for (Row& row : part()) rows.push_back(std::move(row));
  return rows;
}

}  // namespace kit
