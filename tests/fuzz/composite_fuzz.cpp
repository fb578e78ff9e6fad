// Composites over any bytes: counted, listed, read as every type, changed and written back. What can be
// counted can be read record by record, and is the same run after a write; what cannot gives a status, and
// every walk ends.
//
// Input: a byte whose low half cuts the bytes into two items at that sixteenth, a byte for the number of
// changes (3 bytes each: kind, record, count), the changes, then the stored bytes.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "kvint.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

// Ends the library before the engine's own objects go, at the end of the process.
struct Ending {
  ~Ending() { KVTerm(0); }
};

uint32_t Database() {
  static const uint32_t database = [] {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("kavrin-composite-fuzz-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    std::string ini = (folder / "BRYND.INI").string();
    std::ofstream(ini) << "Directory=" << folder.string() << "\n";
    Require(_KVInit(KVAPI_VERSION, KVINIT_INI_FILE, 0, reinterpret_cast<char**>(ini.data())) == KVSUCCESS);
    const std::string path = (folder / "fuzz.qdb").string();
    Require(EngDbCreate(path.c_str(), 0xff01, 0, 0, 0, 1) == 0);
    const int32_t off = 0;
    Require(KVSetProperty(KVPROP_SESS_STRICT_BIND, &off) == KVSUCCESS);
    uint32_t opened = 0;
    Require(KVDatabaseOpen(nullptr, path.c_str(), 0, &opened) == KVSUCCESS);
    return opened;
  }();
  static const Ending ending;
  return database;
}

void Append(EngNote note, const uint8_t* bytes, size_t count) {
  Require(EngItemAppend(note, 0, "Body", 4, BRTYPE_COMPOSITE, bytes, static_cast<uint32_t>(count)) == 0);
}

// All records of the types that are known, and as bytes; the whole run.
std::string ReadAll(uint32_t composite, uint32_t count) {
  std::string run;
  for (uint32_t index = 1; index <= count; ++index) {
    int32_t cdtype = KVCDTYPE_UNKNOWN;
    KVCDUNKNOWN record{};
    Require(KVCDRecordGetPointer(composite, index, &cdtype, &record) == KVSUCCESS);
    run.append(record.buffer, record.length);
    if (record.length % 2 != 0) run += '\0';
    uint32_t bytes = 0;
    cdtype = 0;
    if (KVCDRecordGetInfo(composite, index, &cdtype, &bytes) != KVSUCCESS) continue;
    std::vector<char> buffer(size_t{bytes} + 1);
    COMPDATA data{};
    if (cdtype == KVCDTYPE_UNKNOWN) data.unknown.buffer = buffer.data();
    if (cdtype == KVCDTYPE_TEXT) data.text.buffer = buffer.data();
    if (cdtype == KVCDTYPE_FIELD) data.field.buffer = buffer.data();
    Require(KVCDRecordFetch(composite, index, &cdtype, &data) == KVSUCCESS);
    Require(KVCDRecordGetPointer(composite, index, &cdtype, &data) == KVSUCCESS);
  }
  return run;
}

void ListAll(uint32_t composite, size_t bytes) {
  int32_t list = KVLIST_FIRST;
  for (size_t steps = 0;; ++steps) {
    Require(steps <= bytes + 2);
    int32_t cdtype = 0;
    uint32_t index = 0;
    if (KVCDRecordList(composite, list, &cdtype, &index) != KVSUCCESS) break;
    Require(index != 0 && cdtype != 0);
    list = KVLIST_NEXT;
  }
  int32_t text = KVCDTYPE_TEXT;
  (void)KVCDRecordList(composite, KVLIST_LAST, &text, nullptr);
}

void Change(uint32_t composite, uint32_t add, const uint8_t* change) {
  const std::string filler(256, 't');
  KVCDTEXT text{KVFONTSTYLE_DEFAULT, change[2], const_cast<char*>(filler.data())};
  switch (change[0] % 6) {
    case 0:
      (void)KVCDRecordInsert(composite, change[1], KVCDTYPE_TEXT, &text);
      break;
    case 1:
      (void)KVCDRecordUpdate(composite, change[1], KVCDTYPE_TEXT, &text);
      break;
    case 2:
      (void)KVCDRecordDelete(composite, change[1], change[2]);
      break;
    case 3:
      (void)KVCompositeMerge(composite, change[1], add);
      break;
    case 4: {
      int32_t cdtype = 0;
      (void)KVCDRecordList(composite, change[1] % 7, &cdtype, nullptr);
      break;
    }
    default: {
      uint32_t copy = 0;
      uint32_t document = 0;
      (void)KVCompositeGetProperty(composite, KVPROP_COMPOSITE_DOCUMENT, &document);
      if (KVCompositeCopySubset(composite, change[1], change[2], document, nullptr, &copy) == KVSUCCESS)
        Require(KVCompositeClose(copy, 0) == KVSUCCESS);
    }
  }
}

void WalkRun(const uint8_t* bytes, size_t count) {
  const std::vector<char> run_bytes(bytes, bytes + count);
  CDRUN run{run_bytes.data(), count};
  size_t walked = 0;
  while (KVICDNextRecord(&run)) {
    Require(run.header.length >= run.header.header_bytes && run.header.step >= run.header.length);
    walked += run.header.step;
  }
  Require(walked + run.left_bytes == count && run.is_damaged == (run.left_bytes != 0));
  Require(CompSplitBuffer(run_bytes.data(), static_cast<uint32_t>(count)) <= walked);
}

// Writes the composite back and opens it again: the same run.
void WriteAndReadAgain(uint32_t document, uint32_t composite, uint32_t count) {
  const std::string before = ReadAll(composite, count);
  const uint32_t status = KVCompositeClose(composite, 0);
  if (status != KVSUCCESS) {
    Require(KVCompositeClose(composite, KVCOMPWRITE_DISCARD) == KVSUCCESS);
    return;
  }
  uint32_t again = 0;
  if (KVCompositeOpen(document, "Body", &again) != KVSUCCESS) {
    Require(before.empty());
    return;
  }
  Require(KVCDRecordGetCount(again) == count);
  Require(ReadAll(again, count) == before);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const uint32_t database = Database();
  const size_t change_count = std::min<size_t>(data[1] % 16, (size - 2) / 3);
  const uint8_t* changes = data + 2;
  const uint8_t* stored = changes + 3 * change_count;
  const auto stored_bytes = static_cast<size_t>(data + size - stored);
  if (stored_bytes > 100000) return 0;
  WalkRun(stored, stored_bytes);

  uint32_t document = 0, composite = 0, add = 0;
  Require(KVDocumentCreate(database, 0, &document) == KVSUCCESS);
  EngNote note = 0;
  Require(KVDocumentGetBryndHandle(document, KVTOBRYND_GET_HANDLE, &note) == KVSUCCESS);
  const size_t first_bytes = stored_bytes * (data[0] % 16) / 16;
  Append(note, stored, first_bytes);
  Append(note, stored + first_bytes, stored_bytes - first_bytes);
  Require(KVCompositeOpen(document, "Body", &composite) == KVSUCCESS);
  Require(KVCompositeCreate(document, nullptr, &add) == KVSUCCESS);
  KVCDTEXT text{KVFONTSTYLE_DEFAULT, 1, const_cast<char*>("t")};
  Require(KVCDRecordInsert(add, 0, KVCDTYPE_TEXT, &text) == KVSUCCESS);
  ListAll(composite, stored_bytes);
  for (size_t i = 0; i < change_count; ++i) Change(composite, add, changes + 3 * i);
  const uint32_t count = KVCDRecordGetCount(composite);
  if (count != KVFAIL_BAD_FORMAT) WriteAndReadAgain(document, composite, count);
  Require(KVDocumentClose(document, KVDOCWRITE_DISCARD) == KVSUCCESS);
  uint64_t locks = 0;
  EngMemStats(nullptr, nullptr, &locks);
  Require(locks == 0);
  return 0;
}
