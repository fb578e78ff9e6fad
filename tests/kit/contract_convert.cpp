// Rows of conversions, date-times and lists.
#include <cstring>

#include "kit/contract.h"

namespace kit {

static Argument Type(uint64_t type) { return Enum(type, 10, KVFAIL_BAD_ENUM); }

static Row Convert(const char* variant, Argument src_type, uint64_t src_length, Argument source,
                   Argument dest_type) {
  return {"KVConvert",
          variant,
          ByWords(KVConvert),
          Result::kStatus,
          SessionBy::kThread,
          Needs::kNothing,
          {std::move(src_type), Plain(src_length), std::move(source), std::move(dest_type), Plain(200),
           Out(201, KVFAIL_NULL_PARAM), Out(4, kMayBeNull)}};
}

static std::vector<Row> ConversionRows() {
  const double number = 42.5;
  std::vector<Row> rows{
      Convert("", Type(KVTYPE_NUMBER), 8, In(number, KVFAIL_NULL_PARAM), Type(KVTYPE_TEXT)),
      Convert("text to list", Type(KVTYPE_TEXT), 0, Text("a, b; c", KVFAIL_NULL_PARAM),
              Type(KVTYPE_TEXTLIST)),
      Convert("text to numbers", Type(KVTYPE_TEXT), 0, Text("1-5, 7", KVFAIL_NULL_PARAM),
              Type(KVTYPE_NUMBERLIST)),
      Convert("text to formula", Type(KVTYPE_TEXT), 0, Text("1 + 2", KVFAIL_NULL_PARAM),
              Type(KVTYPE_FORMULA)),
      {.function = "KVConvertGetLength",
       .variant = "",
       .call = ByWords(KVConvertGetLength),
       .result = Result::kValue,
       .arguments = {Plain(KVTYPE_NUMBER), Plain(8), In(number, KVFAIL_NULL_PARAM), Plain(KVTYPE_TEXT)},
       .ignores = {"EngNumberToText"},
       .fault_statuses = {KVSUCCESS}},
  };
  for (Row& row : rows) row.fault_statuses.push_back(KVFAIL_BAD_FORMAT);  // formatting that fails
  rows[3].fault_statuses = {KVFAIL_FORMULA};
  return rows;
}

static Argument Now() {
  return Pointer(
      [](Scene& scene) -> const void* {
        auto* datetime = static_cast<KVDATETIME*>(scene.Bytes(sizeof(KVDATETIME)));
        KVDatetimeGetCurrent(datetime);
        return datetime;
      },
      KVFAIL_NULL_PARAM);
}

static Argument Parts(int32_t year, int32_t month, int32_t day) {
  KVDATETIMESUMM parts{};
  parts.year = year;
  parts.month = month;
  parts.day = day;
  return In(parts, KVFAIL_NULL_PARAM);
}

static Row DatetimeRow(const char* name, Call call, std::vector<Argument> arguments) {
  return {
      name, "", std::move(call), Result::kStatus, SessionBy::kThread, Needs::kNothing, std::move(arguments)};
}

static std::vector<Row> DatetimeRows() {
  const uint32_t null = KVFAIL_NULL_PARAM;
  std::vector<Row> rows{
      DatetimeRow("KVDatetimeGetCurrent", ByWords(KVDatetimeGetCurrent), {Out(8, null)}),
      DatetimeRow("KVDatetimeCreate", ByWords(KVDatetimeCreate), {Parts(1997, 3, 4), Plain(0), Out(8, null)}),
      DatetimeRow("KVDatetimeFetch", ByWords(KVDatetimeFetch), {Now(), Out(sizeof(KVDATETIMESUMM), null)}),
      DatetimeRow("KVDatetimeAdjust", ByWords(KVDatetimeAdjust), {Parts(0, 0, 1), Now()}),
      DatetimeRow("KVDatetimeConstant", ByWords(KVDatetimeConstant),
                  {Enum(1, 4, KVFAIL_BAD_ENUM), Out(8, null)}),
      DatetimeRow("KVDatetimeGetProperty", ByWords(KVDatetimeGetProperty),
                  {Now(), Enum(1, 3, KVFAIL_BAD_PROPERTY), Out(4, null)}),
      DatetimeRow("KVDatetimeCompare", ByWords(KVDatetimeCompare), {Now(), Now()}),
      DatetimeRow("KVDatetimeGetDiff", ByWords(KVDatetimeGetDiff), {Now(), Now(), Enum(0, 9, KVSUCCESS)}),
  };
  for (Row& row : rows) row.fault_statuses = {KVFAIL_BAD_DATETIME};
  for (const size_t row : {4u, 7u}) rows[row].ignores = {"EngTimeSpecial", "EngTimeToLocal"};
  for (const size_t row : {6u, 7u}) rows[row].result = Result::kValue;
  return rows;
}

// A list whose counts and values are written out.
static Argument List(const std::vector<uint16_t>& words, size_t value_bytes) {
  std::string bytes(reinterpret_cast<const char*>(words.data()), words.size() * 2);
  bytes.append(value_bytes, 'x');
  return Pointer([bytes](Scene& scene) -> const void* { return scene.Copy(bytes.data(), bytes.size()); },
                 KVFAIL_NULL_PARAM);
}
static Argument Texts() { return List({2, 3, 1}, 4); }
static Argument Numbers() { return List({1, 1}, 24); }

static std::vector<Row> ListRows() {
  const auto row = [](const char* name, Call call, std::vector<Argument> arguments) {
    return Row{
        name, "", std::move(call), Result::kCount, SessionBy::kThread, Needs::kNothing, std::move(arguments)};
  };
  return {
      row("KVTextListGetCount", ByWords(KVTextListGetCount), {Texts()}),
      row("KVTextListGetLength", ByWords(KVTextListGetLength), {Texts(), Plain(1)}),
      row("KVTextListFetch", ByWords(KVTextListFetch),
          {Texts(), Plain(1), Plain(4), Out(4, KVFAIL_NULL_PARAM)}),
      row("KVTextListGetPointer", ByWords(KVTextListGetPointer), {Texts(), Plain(1), Out(4, kMayBeNull)}),
      row("KVNumberListGetCount", ByWords(KVNumberListGetCount), {Numbers()}),
      row("KVNumberListGetLength", ByWords(KVNumberListGetLength), {Numbers(), Plain(1)}),
      row("KVNumberListFetch", ByWords(KVNumberListFetch), {Numbers(), Plain(1), Out(8, KVFAIL_NULL_PARAM)}),
      row("KVNumberListGetPointer", ByWords(KVNumberListGetPointer),
          {Numbers(), Plain(2), Out(4, kMayBeNull)}),
      row("KVDatetimeListGetCount", ByWords(KVDatetimeListGetCount), {Numbers(), Out(4, kMayBeNull)}),
      row("KVDatetimeListGetLength", ByWords(KVDatetimeListGetLength), {Numbers(), Plain(1)}),
      row("KVDatetimeListFetch", ByWords(KVDatetimeListFetch),
          {Numbers(), Plain(2), Out(8, KVFAIL_NULL_PARAM), Out(8, kMayBeNull)}),
      row("KVDatetimeListGetPointer", ByWords(KVDatetimeListGetPointer),
          {Numbers(), Plain(2), Out(4, kMayBeNull)}),
  };
}

std::vector<Row> ConvertRows() {
  std::vector<Row> rows;
  for (const auto& part : {ConversionRows, DatetimeRows, ListRows})
    for (Row& row : part()) rows.push_back(std::move(row));
  return rows;
}

}  // namespace kit
