// What formulas see of notes: a stored image directly, or an open note that they may change.
// (1) Neither builds a note object nor copies a value in memory; external values are fetched and kept.
// (2) Tokens are canonical tokens of the database's dictionary.
#pragma once

#include <map>
#include <vector>

#include "formula/host.h"
#include "note/database.h"
#include "note/note.h"

namespace brynd {

// Facts that both hosts answer alike.
formula::DocumentFacts FactsOfImage(const ImageView& view);
formula::DocumentFacts FactsOfNote(Note& note);
formula::DatabaseFacts FactsOfDatabase(Database& database);

// A stored note. One host serves a whole scan: Show moves it from image to image.
class ImageHost final : public formula::Host {
 public:
  explicit ImageHost(brynd::Database& database) noexcept : database_(database) {}
  void Show(const ImageView& view) noexcept {
    view_.emplace(view);
    if (!fetched_.empty()) fetched_.clear();
  }

  formula::NameScope Scope() const override;
  formula::NameToken Bind(std::string_view name) override;
  bool Find(formula::NameToken token, formula::ItemView* item) override;
  void ItemNames(std::vector<std::string>* names) override;
  void Document(formula::DocumentFacts* facts) override;
  void Database(formula::DatabaseFacts* facts) override;

 private:
  bool FindExternal(const ImageItem& stored, formula::ItemView* item);

  brynd::Database& database_;
  std::optional<ImageView> view_;
  std::map<uint32_t, std::vector<std::byte>> fetched_;  // external values of the image shown, by number
};

// An open note.
class NoteHost final : public formula::Host {
 public:
  explicit NoteHost(Note& note) noexcept : note_(note) {}

  formula::NameScope Scope() const override;
  formula::NameToken Bind(std::string_view name) override;
  bool Find(formula::NameToken token, formula::ItemView* item) override;
  void ItemNames(std::vector<std::string>* names) override;
  bool WriteItem(std::string_view name, const formula::ItemView& item) override;
  bool DeleteItem(std::string_view name) override;
  void Document(formula::DocumentFacts* facts) override;
  void Database(formula::DatabaseFacts* facts) override;

 private:
  Note& note_;
};

}  // namespace brynd
