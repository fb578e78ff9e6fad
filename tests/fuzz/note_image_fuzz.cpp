// Stored notes from any bytes: what Check lets through can be read in every way, and an open note made of it
// stored again.
//
// The first byte of the input chooses: bit 1 gives the rest a checksum and a length that fit, so that the
// fuzzer gets past them.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <vector>

#include "base/checksum.h"
#include "note/design_index.h"
#include "note/image.h"
#include "note/item_text.h"
#include "note/names.h"
#include "note/reference.h"

using namespace brynd;

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

void ReadValue(Bytes value) {
  TextOfValue(value);
  double number = 0;
  NumberOfValue(value, &number);
  UNIVERSALNOTEID parent;
  FirstReference(value, &parent);
  design_index::NamesOfTitle(value);
  design_index::FirstText(value);
}

// The same items built anew give an image that reads the same.
void BuildAgain(const NoteImage& image) {
  ImageBuilder::Sizes sizes{.item_count = image.ItemCount(),
                            .external_count = image.ExternalCount(),
                            .inline_bytes = image.InlineValues().size()};
  ImageBuilder builder;
  if (sizes.item_count > kItemCountMax || !builder.Begin(sizes)) return;
  NoteImage::Cursor cursor = image.Items();
  for (ImageItem item; cursor.Next(&item);) {
    const bool external = item.external != 0;
    builder.SetItem(cursor.Index(), item.name_id, item.item_flags,
                    external ? kExternalLengthWord : static_cast<uint16_t>(item.length));
    if (external)
      builder.AddExternal(cursor.Index(), item.type, item.length, item.external);
    else
      CopyBytes(builder.AddValues(item.length), item.value.data(), item.length);
  }
  const std::optional<NoteImage> again = NoteImage::Check(builder.Finish(image.Header()));
  Require(again.has_value() && again->ValueBytes() == image.ValueBytes() &&
          again->MaxNameId() == image.MaxNameId());
}

void ReadAll(const NoteImage& image) {
  uint64_t bytes = 0;
  uint32_t index = 0;
  NoteImage::Cursor cursor = image.Items();
  for (ImageItem item; cursor.Next(&item); ++index) {
    bytes += item.length;
    const ImageItem same = image.Item(index);
    Require(same.length == item.length && same.value.data() == item.value.data() &&
            same.external == item.external);
    const uint32_t found = image.FindName(item.name_id);
    Require(found <= index && image.NameId(found) == item.name_id);
    if (index < 64) ReadValue(item.value);
  }
  Require(index == image.ItemCount() && bytes == image.ValueBytes());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::vector<std::byte> stored(size - 1);
  CopyBytes(stored.data(), data + 1, size - 1);
  if ((data[0] & 1) != 0 && stored.size() >= kImageHeaderBytes) {
    StoreU32(stored.data() + 12, static_cast<uint32_t>(stored.size()));
    StoreU32(stored.data(), static_cast<uint32_t>(Checksum64(Bytes(stored).subspan(4))));
  }
  const std::optional<NoteImage> image = NoteImage::Check(stored);
  if (!image) return 0;
  ReadAll(*image);
  BuildAgain(*image);
  return 0;
}
