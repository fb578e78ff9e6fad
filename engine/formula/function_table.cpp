#include "formula/function_table.h"

#include <algorithm>
#include <array>

#include "base/text.h"

namespace brynd::formula {

namespace {

constexpr uint8_t kAny = 255;  // as many arguments as fit

constexpr FunctionRow kFunctions[] = {
    {1, "If", 3, kAny, Form::kIf, kOddCount, nullptr},
    {2, "Do", 1, kAny, Form::kCall, kTakesNothing, CallDo},
    {3, "Return", 1, 1, Form::kReturn, 0, nullptr},
    {4, "Select", 2, kAny, Form::kCall, kTakesNothing, CallSelect},
    {5, "Set", 2, 2, Form::kCall, kNamedSets | kTakesNothing, CallSet},
    {6, "SetField", 2, 2, Form::kCall, kWrites | kNotInColumns | kTakesNothing, CallSetField},
    {7, "GetField", 1, 1, Form::kCall, 0, CallGetField},
    {8, "DeleteField", 0, 0, Form::kCall, 0, CallDeleteField},
    {9, "Unavailable", 0, 0, Form::kCall, 0, CallUnavailable},
    {10, "For", 4, kAny, Form::kFor, 0, nullptr},
    {11, "While", 2, kAny, Form::kWhile, 0, nullptr},
    {12, "DoWhile", 2, kAny, Form::kDoWhile, 0, nullptr},
    {13, "IfError", 1, 2, Form::kIfError, 0, nullptr},
    {14, "IsError", 1, 1, Form::kCall, kTakesErrors, CallIsError},
    {15, "Error", 0, 0, Form::kCall, 0, CallError},
    {16, "Success", 0, 0, Form::kCall, 0, CallSuccess},
    {17, "Failure", 1, 1, Form::kCall, 0, CallFailure},
    {18, "True", 0, 0, Form::kCall, 0, CallTrue},
    {19, "False", 0, 0, Form::kCall, 0, CallFalse},
    {20, "Yes", 0, 0, Form::kCall, 0, CallYes},
    {21, "No", 0, 0, Form::kCall, 0, CallNo},
    {22, "Nothing", 0, 0, Form::kCall, 0, CallNothing},
    {23, "Eval", 1, 1, Form::kCall, 0, CallEval},
    {30, "Elements", 1, 1, Form::kCall, 0, CallElements},
    {31, "Subset", 2, 2, Form::kCall, 0, CallSubset},
    {32, "Member", 2, 2, Form::kCall, 0, CallMember},
    {33, "IsMember", 2, 2, Form::kCall, 0, CallIsMember},
    {34, "IsNotMember", 2, 2, Form::kCall, 0, CallIsNotMember},
    {35, "Unique", 0, 1, Form::kCall, 0, CallUnique},
    {36, "Sort", 1, 2, Form::kCall, 0, CallSort},
    {37, "Transform", 3, 3, Form::kTransform, 0, nullptr},
    {38, "Keywords", 2, 3, Form::kCall, 0, CallKeywords},
    {39, "Nth", 2, 2, Form::kCall, 0, CallNth},
    {40, "IsNull", 1, 1, Form::kCall, 0, CallIsNull},
    {41, "IsText", 1, 1, Form::kCall, 0, CallIsText},
    {42, "List", 1, kAny, Form::kCall, 0, CallList},
    {43, "Intersection", 2, 2, Form::kCall, 0, CallIntersection},
    {44, "Difference", 2, 2, Form::kCall, 0, CallDifference},
    {50, "Text", 1, 2, Form::kCall, 0, CallText},
    {51, "TextToNumber", 1, 1, Form::kCall, 0, CallTextToNumber},
    {52, "TextToTime", 1, 1, Form::kCall, 0, CallTextToTime},
    {53, "ToNumber", 1, 1, Form::kCall, 0, CallToNumber},
    {54, "ToTime", 1, 1, Form::kCall, 0, CallToTime},
    {55, "ToText", 1, 1, Form::kCall, 0, CallToText},
    {56, "Length", 1, 1, Form::kCall, 0, CallLength},
    {57, "Left", 2, 2, Form::kCall, 0, CallLeft},
    {58, "LeftBack", 2, 2, Form::kCall, 0, CallLeftBack},
    {59, "Right", 2, 2, Form::kCall, 0, CallRight},
    {60, "RightBack", 2, 2, Form::kCall, 0, CallRightBack},
    {61, "Middle", 3, 3, Form::kCall, 0, CallMiddle},
    {62, "MiddleBack", 3, 3, Form::kCall, 0, CallMiddleBack},
    {63, "Word", 3, 3, Form::kCall, 0, CallWord},
    {64, "Trim", 1, 1, Form::kCall, 0, CallTrim},
    {65, "UpperCase", 1, 1, Form::kCall, 0, CallUpperCase},
    {66, "LowerCase", 1, 1, Form::kCall, 0, CallLowerCase},
    {67, "ProperCase", 1, 1, Form::kCall, 0, CallProperCase},
    {68, "Contains", 2, 2, Form::kCall, 0, CallContains},
    {69, "Begins", 2, 2, Form::kCall, 0, CallBegins},
    {70, "Ends", 2, 2, Form::kCall, 0, CallEnds},
    {71, "Matches", 2, 2, Form::kCall, 0, CallMatches},
    {72, "Like", 2, 3, Form::kCall, 0, CallLike},
    {73, "Compare", 2, 3, Form::kCall, 0, CallCompare},
    {74, "ReplaceSubstring", 3, 3, Form::kCall, 0, CallReplaceSubstring},
    {75, "Replace", 3, 3, Form::kCall, 0, CallReplace},
    {76, "Repeat", 2, 3, Form::kCall, 0, CallRepeat},
    {77, "Char", 1, 1, Form::kCall, 0, CallChar},
    {78, "Code", 1, 1, Form::kCall, 0, CallCode},
    {79, "NewLine", 0, 0, Form::kCall, 0, CallNewLine},
    {80, "Explode", 1, 4, Form::kCall, 0, CallExplode},
    {81, "Implode", 1, 2, Form::kCall, 0, CallImplode},
    {82, "Abstract", 4, 4, Form::kCall, 0, CallAbstract},
    {83, "Ascii", 1, 1, Form::kCall, 0, CallAscii},
    {84, "Soundex", 1, 1, Form::kCall, 0, CallSoundex},
    {85, "URLEncode", 1, 1, Form::kCall, 0, CallURLEncode},
    {86, "URLDecode", 1, 1, Form::kCall, 0, CallURLDecode},
    {87, "Base64Encode", 1, 1, Form::kCall, 0, CallBase64Encode},
    {88, "Base64Decode", 1, 1, Form::kCall, 0, CallBase64Decode},
    {89, "Hash", 1, 1, Form::kCall, 0, CallHash},
    {90, "Name", 2, 2, Form::kCall, 0, CallName},
    {91, "FileName", 1, 1, Form::kCall, 0, CallFileName},
    {92, "FileExtension", 1, 1, Form::kCall, 0, CallFileExtension},
    {93, "FileFolder", 1, 1, Form::kCall, 0, CallFileFolder},
    {102, "All", 0, 0, Form::kCall, 0, CallAll},
    {103, "AllChildren", 0, 0, Form::kCall, kHierarchy, CallAllChildren},
    {104, "AllDescendants", 0, 0, Form::kCall, kHierarchy, CallAllDescendants},
    {105, "IsResponseDoc", 0, 0, Form::kCall, 0, CallIsResponseDoc},
    {106, "IsNewDoc", 0, 0, Form::kCall, 0, CallIsNewDoc},
    {107, "IsAvailable", 1, 1, Form::kAvailable, 0, nullptr},
    {108, "IsUnavailable", 1, 1, Form::kAvailable, 0, nullptr},
    {109, "IsCategory", 0, 2, Form::kCall, kHierarchy, CallIsCategory},
    {110, "IsExpandable", 0, 2, Form::kCall, kHierarchy, CallIsExpandable},
    {111, "NoteID", 0, 0, Form::kCall, 0, CallNoteID},
    {112, "DocumentUniqueID", 0, 0, Form::kCall, 0, CallDocumentUniqueID},
    {113, "InheritedDocumentUniqueID", 0, 0, Form::kCall, 0, CallInheritedDocumentUniqueID},
    {114, "Created", 0, 0, Form::kCall, 0, CallCreated},
    {115, "Modified", 0, 0, Form::kCall, 0, CallModified},
    {116, "Accessed", 0, 0, Form::kCall, 0, CallAccessed},
    {117, "AddedToThisFile", 0, 0, Form::kCall, 0, CallAddedToThisFile},
    {118, "Author", 0, 0, Form::kCall, 0, CallAuthor},
    {119, "DocLength", 0, 0, Form::kCall, 0, CallDocLength},
    {120, "DocFields", 0, 0, Form::kCall, 0, CallDocFields},
    {121, "DocParentNumber", 0, 1, Form::kCall, kHierarchy, CallDocParentNumber},
    {122, "DocChildren", 0, 3, Form::kCall, kHierarchy, CallDocChildren},
    {123, "DocDescendants", 0, 3, Form::kCall, kHierarchy, CallDocDescendants},
    {124, "DocSiblings", 0, 0, Form::kCall, kHierarchy, CallDocSiblings},
    {125, "DocLevel", 0, 0, Form::kCall, kHierarchy, CallDocLevel},
    {126, "Responses", 0, 0, Form::kCall, kHierarchy, CallResponses},
    {127, "Attachments", 0, 0, Form::kCall, 0, CallAttachments},
    {128, "AttachmentNames", 0, 0, Form::kCall, 0, CallAttachmentNames},
    {129, "AttachmentLengths", 0, 0, Form::kCall, 0, CallAttachmentLengths},
    {130, "DeleteDocument", 0, 0, Form::kCall, kWrites | kNotInColumns, CallDeleteDocument},
    {131, "Form", 0, 0, Form::kCall, 0, CallForm},
    {132, "Version", 0, 0, Form::kCall, 0, CallVersion},
    {133, "ReplicaID", 0, 0, Form::kCall, 0, CallReplicaID},
    {134, "DbName", 0, 0, Form::kCall, 0, CallDbName},
    {135, "DbTitle", 0, 0, Form::kCall, 0, CallDbTitle},
    {136, "DbManager", 0, 0, Form::kCall, 0, CallDbManager},
    {137, "UserName", 0, 0, Form::kCall, 0, CallUserName},
    {138, "UserNamesList", 0, 0, Form::kCall, 0, CallUserNamesList},
    {139, "UserRoles", 0, 0, Form::kCall, 0, CallUserRoles},
    {140, "UserAccess", 0, 1, Form::kCall, 0, CallUserAccess},
    {141, "Environment", 1, 1, Form::kCall, 0, CallEnvironment},
    {142, "SetEnvironment", 2, 2, Form::kCall, kWrites | kNotInColumns, CallSetEnvironment},
    {143, "ClientType", 0, 0, Form::kCall, 0, CallClientType},
    {144, "Platform", 0, 0, Form::kCall, 0, CallPlatform},
    {146, "DocNumber", 0, 1, Form::kCall, kHierarchy, CallDocNumber},
    {200, "Abs", 1, 1, Form::kCall, 0, CallAbs},
    {201, "Sign", 1, 1, Form::kCall, 0, CallSign},
    {202, "Integer", 1, 1, Form::kCall, 0, CallInteger},
    {203, "Round", 1, 2, Form::kCall, 0, CallRound},
    {204, "Modulo", 2, 2, Form::kCall, 0, CallModulo},
    {205, "Power", 2, 2, Form::kCall, 0, CallPower},
    {206, "Sqrt", 1, 1, Form::kCall, 0, CallSqrt},
    {207, "Exp", 1, 1, Form::kCall, 0, CallExp},
    {208, "Ln", 1, 1, Form::kCall, 0, CallLn},
    {209, "Log", 1, 1, Form::kCall, 0, CallLog},
    {210, "Pi", 0, 0, Form::kCall, 0, CallPi},
    {211, "Sin", 1, 1, Form::kCall, 0, CallSin},
    {212, "Cos", 1, 1, Form::kCall, 0, CallCos},
    {213, "Tan", 1, 1, Form::kCall, 0, CallTan},
    {214, "ASin", 1, 1, Form::kCall, 0, CallASin},
    {215, "ACos", 1, 1, Form::kCall, 0, CallACos},
    {216, "ATan", 1, 1, Form::kCall, 0, CallATan},
    {217, "ATan2", 2, 2, Form::kCall, 0, CallATan2},
    {218, "Max", 1, 2, Form::kCall, 0, CallMax},
    {219, "Min", 1, 2, Form::kCall, 0, CallMin},
    {220, "Sum", 1, kAny, Form::kCall, 0, CallSum},
    {221, "Average", 1, kAny, Form::kCall, 0, CallAverage},
    {222, "Random", 0, 0, Form::kCall, 0, CallRandom},
    {223, "FloatEq", 2, 3, Form::kCall, 0, CallFloatEq},
    {224, "IsNumber", 1, 1, Form::kCall, 0, CallIsNumber},
    {225, "Count", 1, 1, Form::kCall, 0, CallCount},
    {230, "Now", 0, 0, Form::kCall, kClock, CallNow},
    {231, "Today", 0, 0, Form::kCall, kClock, CallToday},
    {232, "Yesterday", 0, 0, Form::kCall, kClock, CallYesterday},
    {233, "Tomorrow", 0, 0, Form::kCall, kClock, CallTomorrow},
    {234, "Date", 1, 6, Form::kCall, 0, CallDate},
    {235, "Time", 1, 6, Form::kCall, 0, CallTime},
    {236, "TimeMerge", 2, 2, Form::kCall, 0, CallTimeMerge},
    {237, "Year", 1, 1, Form::kCall, 0, CallYear},
    {238, "Month", 1, 1, Form::kCall, 0, CallMonth},
    {239, "Day", 1, 1, Form::kCall, 0, CallDay},
    {240, "Weekday", 1, 1, Form::kCall, 0, CallWeekday},
    {241, "Hour", 1, 1, Form::kCall, 0, CallHour},
    {242, "Minute", 1, 1, Form::kCall, 0, CallMinute},
    {243, "Second", 1, 1, Form::kCall, 0, CallSecond},
    {244, "Adjust", 7, 7, Form::kCall, 0, CallAdjust},
    {245, "TimeZone", 0, 1, Form::kCall, 0, CallTimeZone},
    {246, "TimeToTextInZone", 2, 3, Form::kCall, 0, CallTimeToTextInZone},
    {247, "BusinessDays", 2, 4, Form::kCall, 0, CallBusinessDays},
    {248, "IsTime", 1, 1, Form::kCall, 0, CallIsTime},
    {249, "WeekNumber", 1, 1, Form::kCall, 0, CallWeekNumber},
    {250, "TimeDiff", 2, 2, Form::kCall, 0, CallTimeDiff},
    {260, "DbColumn", 4, 4, Form::kCall, 0, CallDbColumn},
    {261, "DbLookup", 5, 6, Form::kCall, 0, CallDbLookup},
    {262, "DbExists", 1, 2, Form::kCall, 0, CallDbExists},
    {263, "GetDocField", 2, 2, Form::kCall, 0, CallGetDocField},
    {264, "SetDocField", 3, 3, Form::kCall, kWrites | kTakesNothing, CallSetDocField},
};

static_assert(std::ranges::is_sorted(kFunctions, std::ranges::less_equal{}, &FunctionRow::number) &&
                  std::ranges::adjacent_find(kFunctions, {}, &FunctionRow::number) == std::end(kFunctions),
              "numbers rise and none is given twice");

constexpr uint16_t kNumbersEnd = kFunctions[std::size(kFunctions) - 1].number + 1;

constexpr auto kRowOfNumber = [] {
  std::array<uint8_t, kNumbersEnd> rows{};  // 0: no function has the number
  for (size_t index = 0; index < std::size(kFunctions); ++index)
    rows[kFunctions[index].number] = static_cast<uint8_t>(index + 1);
  return rows;
}();
static_assert(std::size(kFunctions) < 255, "rows are found through one byte");

constexpr const FunctionRow& RowOf(uint16_t number) { return kFunctions[kRowOfNumber[number] - 1]; }
static_assert(RowOf(kFunctionAll).name == "All" && RowOf(kFunctionDocNumber).name == "DocNumber");

}  // namespace

std::span<const FunctionRow> Functions() { return kFunctions; }

const FunctionRow* FindFunction(uint16_t number) {
  if (number >= kNumbersEnd || kRowOfNumber[number] == 0) return nullptr;
  return &RowOf(number);
}

const FunctionRow* FindFunction(std::string_view name) {
  if (EqualFold(name, "TOUT")) return &RowOf(kFunctionAll);
  for (const FunctionRow& row : kFunctions)
    if (EqualFold(row.name, name)) return &row;
  return nullptr;
}

}  // namespace brynd::formula
