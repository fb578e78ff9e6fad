// What formulas see of notes: a stored image directly, or an open note that they may change.
// (1) Neither builds a note object nor copies a value in memory; external values are fetched and kept.
//     Another document is copied as it is stored.
// (2) Tokens are canonical tokens of the database's dictionary.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "formula/host.h"
#include "note/database.h"
#include "note/note.h"

namespace brynd {

// Facts that both hosts answer alike.
formula::DocumentFacts FactsOfImage(const ImageView& view);
formula::DocumentFacts FactsOfNote(Note& note);
formula::DatabaseFacts FactsOfDatabase(Database& database);
formula::AccessFacts AccessOf(Database& database, std::string_view user);

// How many stored documents refer to each document as their parent: counted once, at the first question.
class ResponseCounts {
 public:
  uint64_t Of(Database& database, const ORIGINATORID& originator);

 private:
  std::optional<std::map<store::Unid, uint64_t>> counts_;
};

// A stored note. One host serves a whole scan: Show moves it from image to image.
class ImageHost : public formula::Host {
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
  void Attachments(std::vector<formula::AttachedFile>* files) override;
  void Access(formula::AccessFacts* facts) override;
  std::unique_ptr<formula::Host> Stored(const UNIVERSALNOTEID& unid) override;
  uint64_t ResponseCount() override;
  bool DatabaseExists(std::string_view path) override;

 private:
  bool FindExternal(const ImageItem& stored, formula::ItemView* item);

  brynd::Database& database_;
  std::optional<ImageView> view_;
  std::map<uint32_t, std::vector<std::byte>> fetched_;  // external values of the image shown, by number
  ResponseCounts responses_;
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
  formula::Answer WriteStored(const UNIVERSALNOTEID& unid, std::string_view name,
                              const formula::ItemView* item) override;
  bool DeleteItem(std::string_view name) override;
  void Document(formula::DocumentFacts* facts) override;
  void Database(formula::DatabaseFacts* facts) override;
  void Attachments(std::vector<formula::AttachedFile>* files) override;
  void Access(formula::AccessFacts* facts) override;
  std::unique_ptr<formula::Host> Stored(const UNIVERSALNOTEID& unid) override;
  uint64_t ResponseCount() override;
  bool DatabaseExists(std::string_view path) override;

 private:
  Note& note_;
  ResponseCounts responses_;
};

}  // namespace brynd
