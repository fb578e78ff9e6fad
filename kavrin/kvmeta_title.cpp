// Titles of design records: `menu\cascade|name`, taken apart, put together, stored and read.
//
// (1) The first synonym holds the names for menus, the last one is the name; a title without synonyms is all
// of them at once. (2) What is stored is hostile: a piece never reaches past the value it lies in.
#include <algorithm>
#include <string_view>

#include "kvint.h"

namespace {

constexpr char kTitleItem[] = "$TITLE";
constexpr uint16_t kTitleItemBytes = sizeof kTitleItem - 1;
constexpr uint16_t kTypeWordBytes = 2;
constexpr uint16_t kQixNameMax = kDesignNameBytes - 1;

// ---- Taking apart

struct TITLE {
  std::string_view name;
  std::string_view menu;
  std::string_view cascade;
  int32_t hidden;
};

// The first synonym at its first backslash.
void SplitMenu(std::string_view first, TITLE* title) {
  const size_t backslash = first.find('\\');
  title->menu = first.substr(0, backslash);
  if (backslash != std::string_view::npos) title->cascade = first.substr(backslash + 1);
}

void ReadText(std::string_view text, TITLE* title) {
  const size_t bar = text.find('|');
  const std::string_view first = text.substr(0, bar);
  const bool has_synonyms = bar != std::string_view::npos;
  if (has_synonyms || first.find('\\') != std::string_view::npos) SplitMenu(first, title);
  title->name = has_synonyms ? text.substr(text.rfind('|') + 1) : text;
}

// False for a list whose count or lengths go past its end.
bool ReadList(std::string_view list, TITLE* title) {
  constexpr size_t kWord = sizeof(uint16_t);
  if (list.size() < kWord) return false;
  const size_t count = KVILoad<uint16_t>(list.data());
  if (count > (list.size() - kWord) / kWord) return false;
  std::string_view texts = list.substr(kWord + count * kWord);
  for (size_t i = 1; i <= count; ++i) {
    const size_t entry_bytes = KVILoad<uint16_t>(list.data() + i * kWord);
    if (entry_bytes > texts.size()) return false;
    const std::string_view entry = texts.substr(0, entry_bytes);
    texts.remove_prefix(entry_bytes);
    if (i == 1 && count > 1) SplitMenu(entry, title);
    title->name = entry;
  }
  return true;
}

void DropParentheses(TITLE* title) {
  if (!title->menu.starts_with('(')) return;
  title->hidden = 1;
  title->menu.remove_prefix(1);
  std::string_view* last = title->cascade.empty() ? &title->menu : &title->cascade;
  if (last->ends_with(')')) last->remove_suffix(1);
}

void StripBlanks(std::string_view* text) {
  while (text->starts_with(' ')) text->remove_prefix(1);
  while (text->ends_with(' ')) text->remove_suffix(1);
}

void Put(std::string_view piece, const char** text, uint16_t* text_bytes) {
  *text = piece.empty() ? nullptr : piece.data();
  *text_bytes = static_cast<uint16_t>(piece.size());
}

// ---- Putting together

bool IsWhiteSpace(char character) { return character == ' ' || (character >= '\t' && character <= '\r'); }

const char* SkipWhiteSpace(const char* text) {
  while (IsWhiteSpace(*text)) ++text;
  return text;
}

// A text that grows up to kDesignNameBytes with its NUL; characters beyond that are dropped.
struct TITLETEXT {
  char* text;
  size_t text_bytes;
};

void Add(TITLETEXT* title, const char* piece) {
  const size_t piece_bytes = std::min(strlen(piece), kDesignNameBytes - 1 - title->text_bytes);
  KVICopyBytes(title->text + title->text_bytes, piece, piece_bytes);
  title->text_bytes += piece_bytes;
}

uint32_t CheckPiece(const char* piece) {
  if (strpbrk(piece, "()\\|") != nullptr) return KVFAIL_BAD_FORMAT;
  return strlen(piece) > kDesignPieceMax ? KVFAIL_DATA_TOO_LONG : KVSUCCESS;
}

// What a title is made of; nothing is null.
struct NAMES {
  const char* name;
  const char* menu;
  const char* cascade;
};

uint32_t CheckNames(const NAMES& names) {
  if (*names.name == 0) return KVFAIL_BAD_FORMAT;
  if (*names.cascade != 0 && *names.menu == 0) return KVFAIL_BAD_FORMAT;
  if (uint32_t status = CheckPiece(names.menu)) return status;
  if (uint32_t status = CheckPiece(names.cascade)) return status;
  if (*names.name == '(' && names.name[strlen(names.name) - 1] != ')') return KVFAIL_BAD_FORMAT;
  return KVSUCCESS;
}

// szOut is empty on entry.
uint32_t BuildWithMenu(const NAMES& names, TITLETEXT* title) {
  const bool is_hidden = *names.name == '(';
  if (is_hidden) Add(title, "(");
  Add(title, names.menu);
  if (*names.cascade != 0) {
    Add(title, "\\");
    Add(title, names.cascade);
  }
  if (is_hidden) Add(title, ")");
  if (strcmp(names.name, title->text) == 0) return KVSUCCESS;
  if (strchr(names.name, '\\') != nullptr) {
    memset(title->text, 0, kDesignNameBytes);
    return KVFAIL_BAD_FORMAT;
  }
  const char* name = SkipWhiteSpace(names.name);
  if (*name == 0) return KVSUCCESS;
  Add(title, "|");
  Add(title, name);
  return KVSUCCESS;
}

// ---- Storing

// Puts the part for menus, or the whole, in parentheses. text has room for two characters more.
uint32_t Hide(char* text) {
  if (*text == '(') return KVSUCCESS;
  const size_t text_bytes = strlen(text);
  if (text_bytes + 2 > kDesignTitleMax) return KVFAIL_DATA_TOO_LONG;
  const size_t menu_bytes = std::string_view(text).substr(0, std::string_view(text).find('|')).size();
  memmove(text + menu_bytes + 2, text + menu_bytes, text_bytes - menu_bytes + 1);
  memmove(text + 1, text, menu_bytes);
  *text = '(';
  text[menu_bytes + 1] = ')';
  return KVSUCCESS;
}

uint16_t AddSynonym(EngNote note, const char* text, size_t text_bytes) {
  return EngItemTextListAppend(note, kTitleItem, text, static_cast<uint16_t>(text_bytes), 1);
}

// Each synonym is an entry of a list; a title without any is a text. The last one is appended too: setting
// it as the text would replace the list.
uint16_t StoreSynonyms(EngNote note, const char* text) {
  const char* piece = text;
  while (const char* bar = strchr(piece, '|')) {
    if (uint16_t brstatus = AddSynonym(note, piece, static_cast<size_t>(bar - piece))) return brstatus;
    piece = SkipWhiteSpace(bar + 1);
  }
  if (piece != text) return AddSynonym(note, piece, strlen(piece));
  return EngItemTextSet(note, kTitleItem, text, static_cast<uint32_t>(strlen(text)));
}

// ---- Reading

// Copies for those outputs that are wanted; false when there is no memory, and then nothing is left.
bool CopyPieces(const std::string_view (&pieces)[3], char** const (&outputs)[3]) {
  for (size_t i = 0; i < std::size(pieces); ++i) {
    if (outputs[i] == nullptr) continue;
    *outputs[i] = KVICopyText(pieces[i].data(), pieces[i].size());
    if (*outputs[i] != nullptr) continue;
    for (size_t done = 0; done < i; ++done)
      if (outputs[done] != nullptr) KVIFreeAndClear(outputs[done]);
    return false;
  }
  return true;
}

}  // namespace

uint32_t ParseTitle(const char* buffer, uint32_t length, uint16_t type, const char** name, uint16_t* namelen,
                    const char** dname1, uint16_t* dname1_len, const char** dname2, uint16_t* dname2_len,
                    int32_t* hidden) {
  Put({}, name, namelen);
  Put({}, dname1, dname1_len);
  Put({}, dname2, dname2_len);
  *hidden = 0;
  if (length == 0) return KVSUCCESS;
  TITLE title{};
  if (type == BRTYPE_TEXT && length <= UINT16_MAX) {
    ReadText({buffer, length}, &title);
  } else if (type != BRTYPE_TEXT_LIST || !ReadList({buffer, length}, &title)) {
    return KVFAIL_BAD_FORMAT;
  }
  if (title.menu.empty()) title.menu = title.name;
  DropParentheses(&title);
  for (std::string_view* piece : {&title.name, &title.menu, &title.cascade}) StripBlanks(piece);
  Put(title.name, name, namelen);
  Put(title.menu, dname1, dname1_len);
  Put(title.cascade, dname2, dname2_len);
  *hidden = title.hidden;
  return KVSUCCESS;
}

uint32_t KVIDesignNoteGetNames(EngNote notehand, char** name, char** menu_name, char** cascade_name,
                               int32_t* hidden) {
  char** const outputs[3] = {name, menu_name, cascade_name};
  for (char** output : outputs)
    if (output != nullptr) *output = nullptr;
  KVIStoreIf(hidden, 0);
  BLOCKID item;
  BLOCKID value;
  uint16_t type = 0;
  uint32_t value_bytes = 0;
  if (uint16_t brstatus =
          EngItemInfo(notehand, kTitleItem, kTitleItemBytes, &item, &type, &value, &value_bytes))
    return brstatus;
  if (value_bytes < kTypeWordBytes) return KVFAIL_BAD_FORMAT;
  const KVLocked block(value.pool, value.block);
  if (block.bytes == nullptr) return KVFAIL_BAD_FORMAT;
  const char* pieces[3];
  uint16_t piece_bytes[3];
  int32_t is_hidden = 0;
  if (uint32_t status =
          ParseTitle(block.bytes + kTypeWordBytes, value_bytes - kTypeWordBytes, type, &pieces[0],
                     &piece_bytes[0], &pieces[1], &piece_bytes[1], &pieces[2], &piece_bytes[2], &is_hidden))
    return status;
  if (!CopyPieces({{pieces[0], piece_bytes[0]}, {pieces[1], piece_bytes[1]}, {pieces[2], piece_bytes[2]}},
                  outputs))
    return KVFAIL_NO_MEMORY;
  KVIStoreIf(hidden, is_hidden);
  return KVSUCCESS;
}

uint32_t KVIDesignNoteMakeName(const char* szName, const char* szMenu, const char* szCascade, char* szOut) {
  memset(szOut, 0, kDesignNameBytes);
  const NAMES names{.name = szName == nullptr ? "" : szName,
                    .menu = szMenu == nullptr ? "" : szMenu,
                    .cascade = szCascade == nullptr ? "" : szCascade};
  if (uint32_t status = CheckNames(names)) return status;
  TITLETEXT title{.text = szOut, .text_bytes = 0};
  if (*names.menu == 0)
    Add(&title, names.name);
  else if (uint32_t status = BuildWithMenu(names, &title))
    return status;
  return title.text_bytes > kDesignTitleMax ? KVFAIL_DATA_TOO_LONG : KVSUCCESS;
}

uint32_t _KVIDesignNoteSetTitle(_api_session* session, EngNote nh, const char* title, const char* menu_name,
                                const char* cascade_name, int text_only, int ForceHidden) {
  char* text = session->buffer;
  if (uint32_t status = KVIDesignNoteMakeName(title, menu_name, cascade_name, text)) return status;
  if (ForceHidden)
    if (uint32_t status = Hide(text)) return status;
  if (nh == 0) return KVSUCCESS;
  if (!text_only) return StoreSynonyms(nh, text);
  return EngItemTextSet(nh, kTitleItem, text, static_cast<uint32_t>(strlen(text)));
}

uint32_t KVIDesignNoteGetQIXName(EngNote nh, char* szQIXName, uint16_t* wLen) {
  memset(szQIXName, 0, kDesignNameBytes);
  KVIStoreIf<uint16_t>(wLen, 0);
  BLOCKID item;
  BLOCKID value;
  uint16_t type = 0;
  uint32_t value_bytes = 0;
  if (EngItemInfo(nh, kTitleItem, kTitleItemBytes, &item, &type, &value, &value_bytes))
    return KVFAIL_NOT_FOUND;
  if (type != BRTYPE_TEXT && type != BRTYPE_TEXT_LIST) return KVFAIL_BAD_FORMAT;
  const uint16_t name_bytes = type == BRTYPE_TEXT
                                  ? EngItemTextGet(nh, kTitleItem, szQIXName, kQixNameMax)
                                  : EngItemTextListEntry(nh, kTitleItem, 0, szQIXName, kQixNameMax);
  KVIStoreIf<uint16_t>(wLen, name_bytes);
  return KVSUCCESS;
}
