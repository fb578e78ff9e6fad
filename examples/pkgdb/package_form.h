// The form of a package: which fields its documents have, of which type each is, what is computed, translated
// and validated. Made through the public interface alone.
#pragma once

#include <kavrin.h>

#include <set>
#include <string>
#include <string_view>
#include <vector>

// A field of a form. Formulas are texts; an empty one is none.
struct FormField {
  std::string name;
  int32_t type = KVTYPE_TEXT;
  uint32_t flags = KVFIELD_EDITABLE;
  std::string default_formula = {};
  std::string translation = {};
  std::string validation = {};
};

constexpr uint32_t kComputedField = KVFIELD_FLAG_COMPUTED | 0x8;  // computed and stored
constexpr uint32_t kDisplayField = KVFIELD_FLAG_COMPUTED;         // computed to be looked at, never stored

// How a field of the index becomes an item. Fields without a row are texts under their own name.
struct ItemOfField {
  std::string name;
  int32_t type;
  bool is_dependency;  // told in the subform
};
ItemOfField ItemFor(std::string_view field);

// Stores a form with these fields and, when a name is given, with that subform at its end; its id. Ends the
// program when that fails.
uint32_t StoreForm(uint32_t database, const std::string& name, const std::string& window_title,
                   const std::vector<FormField>& fields, const std::string& subform = {});
void StoreSubform(uint32_t database, const std::string& name, const std::vector<FormField>& fields);

// The form "Package" for an index with these fields, and its subform "Dependencies"; its id.
uint32_t StorePackageForm(uint32_t database, const std::set<std::string>& index_fields);
