// The design index: keys, upkeep and lookups.
#include "note/design_index.h"

#include <algorithm>
#include <set>

#include "base/charset.h"
#include "base/text.h"
#include "base/time.h"

namespace brynd::design_index {

namespace {

constexpr char kTitle = 'T', kPrivateTitle = 'P', kSpecial = 'S', kRows = 'R';
constexpr uint16_t kKindMask = 0x0fff;   // class bits that tell the kind of a record
constexpr size_t kFoldedBytesMax = 600;  // of a title or an owner in a key
constexpr size_t kIdBytes = 4;
static_assert(1 + 2 + 2 * (kFoldedBytesMax + 1) + kIdBytes <= store::kKeyBytesMax);

using Key = std::string;

void AddClass(Key* key, uint16_t note_class) {
  note_class &= kKindMask;
  key->push_back(static_cast<char>(note_class >> 8));
  key->push_back(static_cast<char>(note_class & 0xff));
}

void AddId(Key* key, uint32_t id) {
  for (int shift = 24; shift >= 0; shift -= 8) key->push_back(static_cast<char>(id >> shift & 0xff));
}

// False for a text that no key can hold.
bool AddText(Key* key, std::string_view text) {
  const std::string folded = LowerCase(text);
  if (folded.size() > kFoldedBytesMax || folded.find('\0') != std::string::npos) return false;
  key->append(folded).push_back('\0');
  return true;
}

uint32_t IdAtEnd(Bytes key) noexcept {
  return key.size() < kIdBytes ? 0 : __builtin_bswap32(LoadU32(key.data() + key.size() - kIdBytes));
}

Key KeyOfRows(uint32_t note_id) {
  Key key(1, kRows);
  AddId(&key, note_id);
  return key;
}

bool IsSpecial(uint16_t note_class) noexcept {
  return (note_class & BRCLASS_DEFAULT) != 0 || (note_class & kKindMask) == BRCLASS_ICON;
}

// The rows that stand for a record, but for 'R'.
std::set<Key> KeysOf(const Entry& entry) {
  std::set<Key> keys;
  const bool is_private = (entry.note_class & BRCLASS_PRIVATE) != 0;
  for (const std::string& name : entry.names) {
    Key key(1, is_private ? kPrivateTitle : kTitle);
    AddClass(&key, entry.note_class);
    if (is_private && !AddText(&key, entry.owner)) continue;
    if (!AddText(&key, name)) continue;
    AddId(&key, entry.note_id);
    keys.insert(std::move(key));
  }
  if (IsSpecial(entry.note_class)) {
    Key key(1, kSpecial);
    AddClass(&key, entry.note_class);
    AddId(&key, entry.note_id);
    keys.insert(std::move(key));
  }
  return keys;
}

std::set<Key> StoredKeys(Database& database, uint32_t note_id) {
  std::set<Key> keys;
  database.Store().ReadRecord(space::kDesign, BytesOf(KeyOfRows(note_id)), [&](Bytes value) {
    ByteReader in(value);
    while (in.Left() != 0) {
      const Key key(in.Text(in.U16()));
      if (in.Failed()) Fail(status::kDamaged);
      keys.insert(key);
    }
  });
  return keys;
}

void PutKeys(DatabaseWrite& write, const Entry& entry, const std::set<Key>& keys) {
  const uint64_t instant = InstantKey(entry.modified);
  ByteBuilder rows;
  for (const Key& key : keys) {
    const bool special = key[0] == kSpecial;
    write.Records().PutRecord(space::kDesign, BytesOf(key),
                              special ? BytesAt(&instant, sizeof instant) : Bytes());
    rows.U16(static_cast<uint16_t>(key.size()));
    rows.Text(key);
  }
  write.Records().PutRecord(space::kDesign, BytesOf(KeyOfRows(entry.note_id)), rows.View());
}

// Shows the ids of the rows that begin with a prefix, rising, until the visitor returns false.
void ScanPrefix(Database& database, const Key& prefix,
                store::Visitor<bool(uint32_t id, Bytes value)> visitor) {
  database.Store().ScanRecords(space::kDesign, BytesOf(prefix), std::nullopt, [&](Bytes key, Bytes value) {
    if (key.size() < prefix.size() || !SameBytes(key.first(prefix.size()), BytesOf(prefix))) return false;
    if (key.size() != prefix.size() + kIdBytes) return true;
    return visitor(IdAtEnd(key), value);
  });
}

uint32_t FirstOf(Database& database, const Key& prefix) {
  uint32_t found = 0;
  ScanPrefix(database, prefix, [&](uint32_t id, Bytes) {
    found = id;
    return false;
  });
  return found;
}

void AddParts(std::vector<std::string>* names, std::string_view whole) {
  names->emplace_back(whole);
  if (FindCharacter(whole, '|') == std::string_view::npos) return;
  for (size_t begin = 0; begin <= whole.size();) {
    const size_t end = std::min(FindCharacter(whole, '|', begin), whole.size());
    names->emplace_back(TrimBlanks(whole.substr(begin, end - begin)));
    begin = end + 1;
  }
}

}  // namespace

std::vector<std::string> NamesOfTitle(Bytes value) {
  std::vector<std::string> names;
  ByteReader in(value);
  const uint16_t type = in.U16();
  if (type == BRTYPE_TEXT) {
    AddParts(&names, TextOf(in.Rest()));
  } else if (type == BRTYPE_TEXT_LIST) {
    const uint16_t count = in.U16();
    ByteReader lengths(in.Take(2 * size_t{count}));
    std::string whole;
    std::vector<std::string> entries;
    for (uint16_t i = 0; i < count && !in.Failed(); ++i) {
      entries.emplace_back(in.Text(lengths.U16()));
      if (in.Failed()) break;
      whole.append(i == 0 ? "" : "|").append(entries.back());
    }
    if (in.Failed()) return {};
    names.push_back(std::move(whole));
    if (count > 1) names.insert(names.end(), entries.begin(), entries.end());
  }
  return names;
}

std::string FirstText(Bytes value) {
  ByteReader in(value);
  const uint16_t type = in.U16();
  if (type == BRTYPE_TEXT) return std::string(TextOf(in.Rest()));
  if (type != BRTYPE_TEXT_LIST || in.U16() == 0) return {};
  in.Seek(kTypeWordBytes);
  const uint16_t count = in.U16(), first_bytes = in.U16();
  in.Skip(2 * size_t{count} - 2);
  return std::string(in.Text(first_bytes));
}

void Update(DatabaseWrite& write, const Entry& entry) {
  const std::set<Key> former = StoredKeys(write.Owner(), entry.note_id), keys = KeysOf(entry);
  if (former == keys) return;
  for (const Key& key : former) {
    if (!keys.contains(key)) write.Records().RemoveRecord(space::kDesign, BytesOf(key));
  }
  PutKeys(write, entry, keys);
}

void Remove(DatabaseWrite& write, uint32_t note_id) {
  for (const Key& key : StoredKeys(write.Owner(), note_id)) {
    write.Records().RemoveRecord(space::kDesign, BytesOf(key));
  }
  write.Records().RemoveRecord(space::kDesign, BytesOf(KeyOfRows(note_id)));
}

uint32_t Find(Database& database, std::string_view name, uint16_t note_class) {
  Key prefix(1, kTitle);
  AddClass(&prefix, note_class);
  return AddText(&prefix, name) ? FirstOf(database, prefix) : 0;
}

uint32_t FindPrivate(Database& database, std::string_view name, uint16_t note_class, std::string_view owner) {
  Key prefix(1, kPrivateTitle);
  AddClass(&prefix, note_class);
  return AddText(&prefix, owner) && AddText(&prefix, name) ? FirstOf(database, prefix) : 0;
}

uint32_t Special(Database& database, uint16_t note_class) {
  Key prefix(1, kSpecial);
  AddClass(&prefix, note_class);
  uint32_t found = 0;
  uint64_t latest = 0;
  ScanPrefix(database, prefix, [&](uint32_t id, Bytes value) {
    const uint64_t instant = value.size() == sizeof(uint64_t) ? LoadU64(value.data()) : 0;
    if (found == 0 || instant >= latest) {
      found = id;
      latest = instant;
    }
    return true;
  });
  return found;
}

}  // namespace brynd::design_index
