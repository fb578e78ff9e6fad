// Reads the package index that the system's package manager keeps: records of "Field: value" lines, blank
// lines between.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct Field {
  std::string_view name;
  std::string_view value;  // continuation lines included, as they stand
};

struct Record {
  std::vector<Field> fields;
  // The value of a field; empty without one.
  std::string_view Get(std::string_view name) const;
};

// The text of all indexes of this system, one behind the other, and how many files they were. Falls back to
// the index that ships with this program.
struct IndexText {
  std::string text;
  std::string source;
};
IndexText ReadSystemIndex(const char* shipped_path);

// Takes the next record off the text; false at the end. The record's views point into the text.
bool NextRecord(std::string_view* text, Record* record);
