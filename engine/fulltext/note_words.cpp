#include "fulltext/note_words.h"

#include <algorithm>

#include "base/boundary.h"
#include "note/item_text.h"

namespace brynd::fulltext {

namespace {

// Rich text is a run of records: a word with the record's kind, then its length, in one of three forms. A
// record of odd length is followed by a byte that does not count.
constexpr uint16_t kRecordText = 0xff85;            // text behind a head of 8 bytes
constexpr uint16_t kRecordParagraph = 0x81;         // begins a paragraph
constexpr size_t kRecordTextHeadBytes = 2 + 2 + 4;  // kind, length, font

struct Record {
  uint16_t kind = 0;
  Bytes bytes;
};

bool NextRecord(ByteReader* in, Record* record) noexcept {
  if (in->Left() < 2) return false;
  ByteReader head(in->Address(), in->Left());
  const uint16_t word = head.U16();
  const uint16_t high = word >> 8;
  size_t length = high;
  record->kind = word;
  if (high == 0xff)
    length = head.U16();
  else if (high == 0)
    length = head.U32();
  else
    record->kind = word & 0xff;
  if (!head || length < head.Position() || length > in->Left()) return false;
  record->bytes = in->Take(length);
  if ((length & 1) != 0 && in->Left() != 0) in->Skip(1);
  return true;
}

}  // namespace

void AppendRichText(Bytes value, std::string* text) {
  ByteReader in(value);
  in.Skip(kTypeWordBytes);
  for (Record record; NextRecord(&in, &record);) {
    if (record.kind == kRecordParagraph) text->push_back('\0');
    if (record.kind == kRecordText && record.bytes.size() > kRecordTextHeadBytes)
      text->append(brynd::TextOf(record.bytes.subspan(kRecordTextHeadBytes)));
  }
}

std::string_view NoteTexts::TextOf(const ImageView& view, const ImageItem& item) {
  Bytes value = item.value;
  if (item.external != 0) {
    external_.resize(item.length);
    const EngStatus code =
        AtBoundary([&] { database_.LoadExternal(view.NoteId(), item.external, external_); });
    if (code == status::kDamaged || code == status::kConflict) return {};
    Check(code);
    value = external_;
  }
  if (value.size() < kTypeWordBytes) return {};
  if (item.type == BRTYPE_TEXT) return brynd::TextOf(value.subspan(kTypeWordBytes));
  text_.clear();
  if (item.type == BRTYPE_COMPOSITE) {
    AppendRichText(value, &text_);
    return text_;
  }
  const uint16_t count = TextEntryCount(value);
  for (uint16_t entry = 0; entry < count; ++entry) text_.append(TextEntry(value, entry)).push_back('\0');
  return text_;
}

void NoteTexts::Visit(const ImageView& view,
                      store::Visitor<void(const ImageItem&, std::string_view)> visitor) {
  NoteImage::Cursor items = view.Image().Items();
  for (ImageItem item; items.Next(&item);) {
    if (item.type != BRTYPE_TEXT && item.type != BRTYPE_TEXT_LIST && item.type != BRTYPE_COMPOSITE) continue;
    if (view.NameOf(item).starts_with('$')) continue;
    const std::string_view text = TextOf(view, item);
    if (!text.empty()) visitor(item, text);
  }
}

void NoteWords::FindSentences(std::string_view text) {
  sentence_ends_.clear();
  if (with_sentences_) breaker_.BreakSentences(text, [&](size_t end) { sentence_ends_.push_back(end); });
}

void NoteWords::Read(const ImageView& view) {
  words_.clear();
  folded_.clear();
  exact_.clear();
  uint32_t position = 0, sentence = 0, paragraph = 0;
  texts_.Visit(view, [&](const ImageItem& item, std::string_view text) {
    const uint32_t first = position;
    const NameToken name = view.CanonicalOf(item);
    FindSentences(text);
    size_t next_sentence = 0, looked_at = 0;
    ++sentence;
    ++paragraph;
    breaker_.Break(text, [&](const FoundWord& found) {
      const std::string_view between = text.substr(looked_at, found.begin - looked_at);
      looked_at = found.end;
      if (between.find_first_of(std::string_view("\0\n", 2)) != std::string_view::npos) {
        ++paragraph;
        ++sentence;
      }
      while (next_sentence < sentence_ends_.size() && sentence_ends_[next_sentence] <= found.begin) {
        ++next_sentence;
        ++sentence;
      }
      if (stop_words_.Contains(found.folded)) return;
      words_.push_back({.position = position++,
                        .name = name,
                        .sentence = sentence,
                        .paragraph = paragraph,
                        .folded_at = static_cast<uint32_t>(folded_.size()),
                        .exact_at = static_cast<uint32_t>(exact_.size()),
                        .folded_bytes = static_cast<uint16_t>(found.folded.size()),
                        .exact_bytes = static_cast<uint16_t>(found.exact.size())});
      folded_.append(found.folded);
      exact_.append(found.exact);
    });
    if (position != first) ++position;
  });
}

}  // namespace brynd::fulltext
