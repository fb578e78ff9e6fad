// Settings of a session: properties, environment strings, default format, international settings, character
// sets.
#include <cstddef>
#include <iterator>

#include "kvint_convert.h"
#include "kvint_database.h"
#include "kvint_system.h"

static constexpr uint32_t kServerNameMax = 255;
static constexpr uint32_t kSummaryLimitMax = 15360;
static constexpr uint32_t kMaxDbSizeMax = 4;
static constexpr uint32_t kEnvironmentTextMax = 150;
static constexpr uint32_t kUserNameBytes =
    512;  // room for the user's name in the upper half of the session's buffer
static constexpr uint32_t kTranslateBytesMax = 0xffff;

// ---- Properties: what each reads and writes

using ReadProperty = uint32_t (*)(_api_session* session, size_t field, void* value);
using WriteProperty = uint32_t (*)(_api_session* session, size_t field, const void* value);

static void* FieldOf(_api_session* session, size_t field) { return reinterpret_cast<char*>(session) + field; }

// Reads a field of 32 bits, bool or number.
static uint32_t ReadWord(_api_session* session, size_t field, void* value) {
  KVICopyBytes(value, FieldOf(session, field), sizeof(uint32_t));
  return KVSUCCESS;
}

static uint32_t WriteBool(_api_session* session, size_t field, const void* value) {
  if (value == nullptr) return KVFAIL_NULL_PARAM;
  const int32_t word = KVILoad<uint32_t>(value) != 0 ? 1 : 0;
  KVICopyBytes(FieldOf(session, field), &word, sizeof word);
  return KVSUCCESS;
}

static uint32_t WriteReadOnly(_api_session*, size_t, const void*) { return KVFAIL_READ_ONLY_PROPERTY; }

static void CopyOut(void* value, const char* text, size_t limit) {
  KVIstrnncpy(static_cast<char*>(value), text == nullptr ? "" : text, limit);
}

static uint32_t ReadLocalServer(_api_session* session, size_t, void* value) {
  CopyOut(value, session->local_servername, kServerNameMax);
  return KVSUCCESS;
}

static uint32_t WriteLocalServer(_api_session* session, size_t, const void* value) {
  const auto* text = static_cast<const char*>(value);
  char* server = nullptr;
  if (!KVIEmpty(text)) {
    server = KVICopyText(text, strnlen(text, kServerNameMax));
    if (server == nullptr) return KVFAIL_NO_MEMORY;
  }
  KVIFree(session->local_servername);
  session->local_servername = server;
  return KVSUCCESS;
}

static uint32_t WriteKeepMailDb(_api_session* session, size_t field, const void* value) {
  if (uint32_t status = WriteBool(session, field, value)) return status;
  if (session->keep_maildb_open != 0) return KVSUCCESS;
  if (session->maildb_dbhand != 0) EngMailBoxClose(session->maildb_dbhand);
  if (session->mailbox_dbhand != 0) EngDbClose(session->mailbox_dbhand);
  session->maildb_dbhand = session->mailbox_dbhand = 0;
  return KVSUCCESS;
}

static uint32_t WriteSummaryLimit(_api_session* session, size_t, const void* value) {
  if (value == nullptr) return KVFAIL_NULL_PARAM;
  const uint32_t limit = KVILoad<uint32_t>(value);
  if (limit > kSummaryLimitMax) return KVFAIL_DATA_TOO_LONG;
  session->summary_limit_default = limit;
  return KVSUCCESS;
}

static uint32_t WriteViewRows(_api_session* session, size_t, const void* value) {
  if (value == nullptr) return KVFAIL_NULL_PARAM;
  const uint32_t rows = KVILoad<uint32_t>(value);
  session->vcache_rows = rows == 0 ? 1 : rows;
  return KVSUCCESS;
}

static uint32_t WriteMaxDbSize(_api_session* session, size_t, const void* value) {
  if (value == nullptr) return KVFAIL_NULL_PARAM;
  const uint32_t size = KVILoad<uint32_t>(value);
  session->max_db_size_default = size < 1 ? 1 : size > kMaxDbSizeMax ? kMaxDbSizeMax : size;
  return KVSUCCESS;
}

static char* UserNamePlace(_api_session* session) {
  static_assert(2 * kUserNameBytes <= kSessionBufferBytes && kNetPathBytes <= kUserNameBytes);
  return session->buffer + kUserNameBytes;
}

static uint32_t ReadUserName(_api_session* session, size_t, void* value) {
  char* user = UserNamePlace(session);
  *static_cast<char*>(value) = 0;
  *user = 0;
  if (uint16_t brstatus = EngUserNameGet(user)) return brstatus;
  _FormatUsername(session, user, static_cast<char*>(value));
  return KVSUCCESS;
}

static uint32_t ReadTimeZone(_api_session*, size_t, void* value) {
  int32_t zone = 0, dst = 0;
  EngTimeZoneGet(&zone, &dst);
  KVIStore<int32_t>(value, zone);
  return KVSUCCESS;
}

static uint32_t ReadDaylight(_api_session*, size_t, void* value) {
  int32_t zone = 0, dst = 0;
  EngTimeZoneGet(&zone, &dst);
  KVIStore<int32_t>(value, dst != 0 ? 1 : 0);
  return KVSUCCESS;
}

// A session runs on a server when the user's name is one: then the empty file name on it opens.
static uint32_t ReadOnServer(_api_session* session, size_t, void* value) {
  char* user = UserNamePlace(session);
  EngDb database = 0;
  KVIStore<int32_t>(value, 0);
  *user = 0;
  if (uint16_t brstatus = EngUserNameGet(user)) return brstatus;
  if (KVIDbGetNetPath(nullptr, user, "", session->buffer) != 0) return KVSUCCESS;
  if (EngDbOpen(session->buffer, &database) != 0) return KVSUCCESS;
  EngDbClose(database);
  KVIStore<int32_t>(value, 1);
  return KVSUCCESS;
}

static uint32_t ReadNewline(_api_session* session, size_t, void* value) {
  CopyOut(value, session->newline_delimiter, static_cast<size_t>(session->newline_delim_len));
  return KVSUCCESS;
}

// Five characters fill the field; the length says where the delimiter ends.
static uint32_t WriteNewline(_api_session* session, size_t, const void* value) {
  const auto* text = static_cast<const char*>(value);
  if (KVIEmpty(text)) return KVSUCCESS;
  const size_t bytes = strnlen(text, kNewlineBytesMax + 1);
  if (bytes > kNewlineBytesMax) return KVFAIL_DATA_TOO_LONG;
  std::memset(session->newline_delimiter, 0, kNewlineBytesMax);
  KVICopyBytes(session->newline_delimiter, text, bytes);
  session->newline_delim_len = static_cast<int32_t>(bytes);
  return KVSUCCESS;
}

static uint32_t ReadBrVersion(_api_session* session, size_t, void* value) {
  constexpr size_t kVersionMax = 80;
  CopyOut(value, session->br_version, kVersionMax);
  return KVSUCCESS;
}

static uint32_t ReadTaskName(_api_session* session, size_t, void* value) {
  CopyOut(value, session->default_task_name, kTaskNameBytesMax);
  return KVSUCCESS;
}

// 256 characters fill the field; readers bound their copy by its size.
static uint32_t WriteTaskName(_api_session* session, size_t, const void* value) {
  const auto* text = static_cast<const char*>(value);
  if (KVIEmpty(text)) return KVSUCCESS;
  const size_t bytes = strnlen(text, kTaskNameBytesMax + 1);
  if (bytes > kTaskNameBytesMax) return KVFAIL_DATA_TOO_LONG;
  std::memset(session->default_task_name, 0, kTaskNameBytesMax);
  KVICopyBytes(session->default_task_name, text, bytes);
  return KVSUCCESS;
}

static uint32_t ReadBuild(_api_session* session, size_t, void* value) {
  KVIStore<uint32_t>(value, session->br_build);
  return KVSUCCESS;
}

// ---- Properties: the table

struct PROPERTYROW {
  int32_t property;
  ReadProperty read;
  WriteProperty write;
  size_t field;  // of the session, for the functions that work on any field
};

static constexpr PROPERTYROW kProperties[] = {
    {KVPROP_SESS_LOCAL_SERVER, ReadLocalServer, WriteLocalServer, 0},
    {KVPROP_SESS_TRUNCATE_TEXT, ReadWord, WriteBool, offsetof(_api_session, truncate_text)},
    {KVPROP_SESS_KEEP_MAILDB_OPEN, ReadWord, WriteKeepMailDb, offsetof(_api_session, keep_maildb_open)},
    {KVPROP_SESS_ABBREVIATE_NAMES, ReadWord, WriteBool, offsetof(_api_session, abbreviate_names)},
    {KVPROP_SESS_SUMMARY_LIMIT, ReadWord, WriteSummaryLimit, offsetof(_api_session, summary_limit_default)},
    {KVPROP_SESS_DELAY_COMMIT, ReadWord, WriteBool, offsetof(_api_session, delay_commit_default)},
    {KVPROP_SESS_STRICT_BIND, ReadWord, WriteBool, offsetof(_api_session, strict_bind_default)},
    {KVPROP_SESS_FETCH_DESIGN_CODE, ReadWord, WriteBool, offsetof(_api_session, fetch_design_code_default)},
    {KVPROP_SESS_DOCOPEN_DESIGN, ReadWord, WriteBool, offsetof(_api_session, docopen_design_default)},
    {KVPROP_SESS_USER_NAME, ReadUserName, WriteReadOnly, 0},
    {KVPROP_SESS_TIME_ZONE, ReadTimeZone, WriteReadOnly, 0},
    {KVPROP_SESS_DST, ReadDaylight, WriteReadOnly, 0},
    {KVPROP_SESS_ON_SERVER, ReadOnServer, WriteReadOnly, 0},
    {KVPROP_SESS_NEWLINE, ReadNewline, WriteNewline, 0},
    {KVPROP_SESS_BR_VERSION, ReadBrVersion, WriteReadOnly, 0},
    {KVPROP_SESS_TASK_NAME, ReadTaskName, WriteTaskName, 0},
    {KVPROP_SESS_VCACHE_ROWS, ReadWord, WriteViewRows, offsetof(_api_session, vcache_rows)},
    {KVPROP_SESS_READ_SUBF_FIELDS, ReadWord, WriteBool, offsetof(_api_session, read_subf_fields_default)},
    {KVPROP_SESS_MAX_DB_SIZE, ReadWord, WriteMaxDbSize, offsetof(_api_session, max_db_size_default)},
    {KVPROP_SESS_BR_BUILD, ReadBuild, WriteReadOnly, 0},
    {KVPROP_SESS_STRICT_BIND_COMPUTE, ReadWord, WriteBool, offsetof(_api_session, strict_bind_comp_default)},
};

static constexpr bool PropertiesAreNumbered() {
  for (size_t row = 0; row < std::size(kProperties); ++row)
    if (kProperties[row].property != static_cast<int32_t>(row + 1)) return false;
  return true;
}
static_assert(PropertiesAreNumbered(), "row n - 1 holds property n");

// The row of a property that callers of this version know, null if there is none.
static const PROPERTYROW* FindProperty(uint32_t version, int32_t property) {
  constexpr int32_t kLastOldProperty = 17;
  constexpr int32_t kLastMiddleProperty = 20;
  if (version < kVersionFourth && property > kLastOldProperty) return nullptr;
  if (version < kVersionNewest && property > kLastMiddleProperty) return nullptr;
  if (property < 1 || property > static_cast<int32_t>(std::size(kProperties))) return nullptr;
  return &kProperties[property - 1];
}

uint32_t KVGetProperty(int32_t property, void* value) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (value == nullptr) return KVError(KVFAIL_NULL_PARAM);
  const PROPERTYROW* row = FindProperty(session->kvprog_version, property);
  if (row == nullptr) return KVError(KVFAIL_BAD_PROPERTY);
  if (uint32_t status = row->read(session, row->field, value)) return KVError(status);
  return KVSUCCESS;
}

uint32_t KVSetProperty(int32_t property, const void* value) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  const PROPERTYROW* row = FindProperty(session->kvprog_version, property);
  if (row == nullptr) return KVError(KVFAIL_BAD_PROPERTY);
  if (uint32_t status = row->write(session, row->field, value)) return KVError(status);
  return KVSUCCESS;
}

// ---- Environment strings

uint32_t KVGetEnvironmentString(const char* name, uint32_t length, char* value) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (KVIEmpty(name)) return KVError(KVFAIL_NULL_PARAM);
  if (value == nullptr) return KVError(KVFAIL_NULL_PARAM);
  *value = 0;
  if (length == 0 || length > kEnvironmentTextMax) length = kEnvironmentTextMax;
  if (!EngEnvironmentGet(name, value, static_cast<uint16_t>(length))) return KVError(KVFAIL_NOT_FOUND);
  uint32_t value_bytes = static_cast<uint32_t>(strnlen(value, length));
  ReviseSplitCharacter(&value_bytes, value, 1);
  return KVSUCCESS;
}

uint32_t KVSetEnvironmentString(const char* name, const char* value, uint32_t setenv_flags) {
  constexpr uint16_t kProbeBytes = 2;
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (KVIEmpty(name)) return KVError(KVFAIL_NULL_PARAM);
  if (value == nullptr) return KVError(KVFAIL_NULL_PARAM);
  if (strnlen(value, kEnvironmentTextMax + 1) > kEnvironmentTextMax) return KVError(KVFAIL_DATA_TOO_LONG);
  if (setenv_flags != KVSETENV_CREATE && !EngEnvironmentGet(name, session->buffer, kProbeBytes))
    return KVError(KVFAIL_NOT_FOUND);
  return KVError(EngEnvironmentSet(name, value));
}

// ---- Formats

uint32_t KVGetFormat(KVFORMAT* format) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (format == nullptr) return KVError(KVFAIL_NULL_PARAM);
  const FORMAT& own = session->format.format;
  const uint16_t listsep = own.listsep;
  GetFormat(format, &own.nfmt, &own.tfmt, &listsep);
  return KVSUCCESS;
}

uint32_t KVSetFormat(const KVFORMAT* format) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (format == nullptr) return KVError(KVFAIL_NULL_PARAM);
  FORMAT& own = session->format.format;
  uint16_t listsep = own.listsep;
  if (uint32_t status = PutFormat(format, &own.nfmt, &own.tfmt, &listsep)) return KVError(status);
  own.listsep = listsep;
  return KVSUCCESS;
}

// ---- International settings

// A text of the public record and its twin in the engine's.
struct INTLTEXTROW {
  size_t public_offset;
  size_t engine_offset;
  size_t field_bytes;
};

static constexpr INTLTEXTROW kIntlTexts[] = {
    {offsetof(KVINTERNATIONAL, am_string), offsetof(INTLFORMAT, AMString),
     sizeof(KVINTERNATIONAL::am_string)},
    {offsetof(KVINTERNATIONAL, pm_string), offsetof(INTLFORMAT, PMString),
     sizeof(KVINTERNATIONAL::pm_string)},
    {offsetof(KVINTERNATIONAL, currency_symbol), offsetof(INTLFORMAT, CurrencyString),
     sizeof(KVINTERNATIONAL::currency_symbol)},
    {offsetof(KVINTERNATIONAL, thousand_sep), offsetof(INTLFORMAT, ThousandString),
     sizeof(KVINTERNATIONAL::thousand_sep)},
    {offsetof(KVINTERNATIONAL, decimal_sep), offsetof(INTLFORMAT, DecimalString),
     sizeof(KVINTERNATIONAL::decimal_sep)},
    {offsetof(KVINTERNATIONAL, date_sep), offsetof(INTLFORMAT, DateString),
     sizeof(KVINTERNATIONAL::date_sep)},
    {offsetof(KVINTERNATIONAL, time_sep), offsetof(INTLFORMAT, TimeString),
     sizeof(KVINTERNATIONAL::time_sep)},
    {offsetof(KVINTERNATIONAL, yesterday_string), offsetof(INTLFORMAT, YesterdayString),
     sizeof(KVINTERNATIONAL::yesterday_string)},
    {offsetof(KVINTERNATIONAL, today_string), offsetof(INTLFORMAT, TodayString),
     sizeof(KVINTERNATIONAL::today_string)},
    {offsetof(KVINTERNATIONAL, tomorrow_string), offsetof(INTLFORMAT, TomorrowString),
     sizeof(KVINTERNATIONAL::tomorrow_string)},
};

// Bits of the engine's flags by date order; the first one set wins.
static constexpr uint16_t kDateOrderBits[] = {BRINTL_DATE_MDY, BRINTL_DATE_DMY, BRINTL_DATE_YMD};
static constexpr uint16_t kIntlFlagMask = 0x1f;
static constexpr int32_t kTimeZoneMax = 11;
static constexpr uint32_t kCurrencyDigitsMax = 255;

uint32_t KVGetInternational(KVINTERNATIONAL* intl) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (intl == nullptr) return KVError(KVFAIL_NULL_PARAM);
  const INTLFORMAT& own = session->format.intl;
  KVINTERNATIONAL result{};
  result.intl_flags = own.Flags & kIntlFlagMask;
  for (int32_t order = 2; order >= 0; --order)
    if ((own.Flags & kDateOrderBits[order]) != 0) result.date_order = order;
  result.currency_digits = own.CurrencyDigits;
  result.time_zone = own.TimeZone;
  for (const INTLTEXTROW& row : kIntlTexts)
    KVIstrnncpy(reinterpret_cast<char*>(&result) + row.public_offset,
                reinterpret_cast<const char*>(&own) + row.engine_offset, row.field_bytes - 1);
  KVICopyBytes(intl, &result, sizeof result);
  return KVSUCCESS;
}

static bool TextsFit(const KVINTERNATIONAL* intl) {
  for (const INTLTEXTROW& row : kIntlTexts)
    if (strnlen(reinterpret_cast<const char*>(intl) + row.public_offset, row.field_bytes) == row.field_bytes)
      return false;
  return true;
}

static void StoreTexts(API_FORMAT* format, const KVINTERNATIONAL* intl) {
  for (const INTLTEXTROW& row : kIntlTexts)
    KVIstrnncpy(reinterpret_cast<char*>(&format->intl) + row.engine_offset,
                reinterpret_cast<const char*>(intl) + row.public_offset, row.field_bytes - 1);
  format->datesep_len = static_cast<uint16_t>(std::strlen(format->intl.DateString));
  format->timesep_len = static_cast<uint16_t>(std::strlen(format->intl.TimeString));
  format->amstring_len = static_cast<uint16_t>(std::strlen(format->intl.AMString));
  format->pmstring_len = static_cast<uint16_t>(std::strlen(format->intl.PMString));
}

uint32_t KVSetInternational(const KVINTERNATIONAL* intl) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (intl == nullptr) return KVError(KVFAIL_NULL_PARAM);
  if (!TextsFit(intl)) return KVError(KVFAIL_DATA_TOO_LONG);
  INTLFORMAT& own = session->format.intl;
  if (intl->date_order < 0 || intl->date_order > KVDATEORDER_2) return KVError(KVFAIL_BAD_ENUM);
  // The date order is set before the numbers are looked at: a bad zone leaves it changed.
  own.Flags = kDateOrderBits[intl->date_order];
  if (intl->time_zone < -kTimeZoneMax || intl->time_zone > kTimeZoneMax) return KVError(KVFAIL_DATA_TOO_LONG);
  if (intl->currency_digits > kCurrencyDigitsMax) return KVError(KVFAIL_DATA_TOO_LONG);
  own.Flags |= static_cast<uint16_t>(intl->intl_flags & kIntlFlagMask);
  own.CurrencyDigits = static_cast<uint8_t>(intl->currency_digits);
  own.TimeZone = intl->time_zone;
  StoreTexts(&session->format, intl);
  return KVSUCCESS;
}

// ---- Character sets

uint32_t KVTranslate(int32_t translate, uint32_t src_length, const char* src_buffer, uint32_t dest_length,
                     char* dest_buffer, uint32_t* actual_length) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (src_buffer == nullptr) return KVError(KVFAIL_NULL_PARAM);
  if (dest_buffer == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStoreIf(actual_length, 0);
  if (translate < KVTRANSLATE_TO_ENGINE || translate > KVTRANSLATE_FROM_ENGINE)
    return KVError(KVFAIL_BAD_ENUM);
  if (src_length > kTranslateBytesMax) return KVError(KVFAIL_DATA_TOO_LONG);
  if (src_length == 0) return KVError(KVFAIL_NO_ACTION);
  if (dest_length > kTranslateBytesMax) dest_length = kTranslateBytesMax;
  if (dest_length == 0) return KVError(KVFAIL_DATA_TOO_LONG);
  const uint32_t written =
      EngCharsetTranslate(static_cast<uint16_t>(translate), src_buffer, src_length, dest_buffer, dest_length);
  KVIStoreIf(actual_length, static_cast<uint16_t>(written));
  return KVSUCCESS;
}
