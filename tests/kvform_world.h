// Forms for tests: records made byte by byte, pages made through the public calls, and what was read of them.
#ifndef KVFORM_WORLD_H
#define KVFORM_WORLD_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kit/form_builder.h"
#include "kit/kit.h"
#include "kvdoc_world.h"
#include "kvint.h"

namespace kvform {

using kit::FormBuilder;
using kit::FormField;

inline const std::string kTrue = "@True";

// A member of a packed record, copied from where it lies.
template <typename Member>
Member Plain(Member member) {
  return member;
}

// A field with just a name.
inline FormField Named(const std::string& name, uint16_t type = BRTYPE_TEXT,
                       uint16_t flags = kit::kFieldFlagEditable) {
  FormField field;
  field.name = name;
  field.type = type;
  field.flags = flags;
  return field;
}

class FormTest : public kvdoc::DocumentTest {
 protected:
  FormBuilder Form(const std::string& title) const { return {EngineDatabase(), title}; }

  // The spec as the library reads it, null after a failure.
  _FORMSPEC* SpecOf(uint32_t formid) const {
    _FORMSPEC* spec = nullptr;
    EXPECT_EQ(_KVIFormGetSpec(session_, Base(), formid, nullptr, &spec), KVSUCCESS);
    return spec;
  }
  uint32_t SpecStatus(uint32_t formid) const {
    _FORMSPEC* spec = nullptr;
    const uint32_t status = _KVIFormGetSpec(session_, Base(), formid, nullptr, &spec);
    EXPECT_EQ(spec != nullptr, status == KVSUCCESS);
    return status;
  }
  _FORMSPEC* SubformOf(uint32_t subfid) const {
    _FORMSPEC* spec = nullptr;
    EXPECT_EQ(KVISubformGetSpec(Base(), subfid, &spec), KVSUCCESS);
    return spec;
  }
  uint32_t SubformStatus(uint32_t subfid) const {
    _FORMSPEC* spec = nullptr;
    const uint32_t status = KVISubformGetSpec(Base(), subfid, &spec);
    EXPECT_EQ(spec != nullptr, status == KVSUCCESS);
    return status;
  }
  size_t ListedSpecs() const {
    size_t count = 0;
    for (const _FORMSPEC* spec = Base()->dbinfo->forms; spec != nullptr; spec = spec->next) ++count;
    return count;
  }
  size_t SharedFields() const {
    size_t count = 0;
    for (const _SHAREDFIELDSPEC* field = Base()->dbinfo->sfields; field != nullptr; field = field->next)
      ++count;
    return count;
  }

  // Names of the fields that the list of fields gives, and the status that ended it.
  std::vector<std::string> FieldNames(uint32_t formid, uint32_t* end = nullptr) const {
    std::vector<std::string> names;
    KVFIELD field;
    uint32_t status = KVFieldList(database_, formid, KVLIST_FIRST, &field);
    for (; status == KVSUCCESS; status = KVFieldList(database_, formid, KVLIST_NEXT, &field))
      names.emplace_back(field.name);
    if (end != nullptr) *end = status;
    return names;
  }

  void Set(int32_t property, int32_t value) const { SetDatabaseBool(database_, property, value); }
  static void SetVersion(uint32_t version) { KVICurrentSession()->kvprog_version = version; }

  // A page of stored records, opened as a composite of a new document.
  uint32_t Page(const std::string& bytes) {
    const uint32_t document = New();
    Append(NoteOf(document), {"Page", BRTYPE_COMPOSITE, 0, bytes});
    uint32_t page = 0;
    EXPECT_EQ(KVCompositeOpen(document, "Page", &page), KVSUCCESS);
    return page;
  }
  static std::string Padded(std::string bytes) {
    if (bytes.size() % 2 != 0) bytes.push_back(0);
    return bytes;
  }
  static std::string FieldsPage(const std::vector<FormField>& fields) {
    std::string bytes;
    for (const FormField& field : fields) bytes += Padded(kit::FieldBytes(field));
    return bytes;
  }
  size_t CountForms() const {
    size_t count = 0;
    const auto callback = [](void* parameter, const SEARCH_MATCH* match, const ITEM_TABLE*) -> EngStatus {
      if (match->SERetFlags & 1) ++*static_cast<size_t*>(parameter);
      return 0;
    };
    EXPECT_EQ(EngDbSearch(EngineDatabase(), 0, nullptr, 0, BRCLASS_FORM, nullptr, callback, &count, nullptr),
              0);
    return count;
  }
};

}  // namespace kvform

#endif
