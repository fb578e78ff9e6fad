// Attached files: the value of a $FILE item is its type word, an OBJECT_DESCRIPTOR of object type 0 and
//
//   offset  size  meaning (behind the type word)
//   6       2     bytes of the name
//   8       8     host, compression, attributes, flags
//   16      4     bytes of the file
//   20      16    when it was made and changed
//   36      ...   name, engine text
#pragma once

#include <string_view>

#include "base/bytes.h"
#include "brynd.h"

namespace brynd {

inline constexpr std::string_view kFileItemName = "$FILE";
inline constexpr uint16_t kFileObjectType = 0;

struct FileObject {
  uint32_t file_bytes = 0;
  std::string_view name;  // in place
};

// False for a value that is no whole description of a file; it begins with its type word.
inline bool ReadFileObject(Bytes value, FileObject* file) noexcept {
  ByteReader in(value);
  const uint16_t type = in.U16(), object_type = in.U16();
  in.Take(sizeof(uint32_t));
  const uint16_t name_bytes = in.U16();
  in.Take(4 * sizeof(uint16_t));
  file->file_bytes = in.U32();
  in.Take(2 * sizeof(TIMEDATE));
  file->name = in.Text(name_bytes);
  return !in.Failed() && type == BRTYPE_OBJECT && object_type == kFileObjectType;
}

}  // namespace brynd
