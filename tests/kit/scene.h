// What a call of the contract table finds in place: databases, documents with items, and room of exact size
// for its arguments.
#ifndef KIT_SCENE_H
#define KIT_SCENE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kavrin.h"

namespace kit {

enum class Needs { kNothing, kDatabase, kDocument, kComposite, kIndex };
enum class Object {
  kDatabase,
  kOtherDatabase,
  kDocument,
  kOtherDocument,
  kComposite,
  kOtherComposite,
  kIndex
};

// Makes the databases that scenes open; once for a data directory, with the library started.
bool MakeSceneFiles(const std::string& folder);

class Scene {
 public:
  Scene(std::string folder, Needs needs);
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // False when the databases or documents could not be made.
  bool ready() const { return ready_; }
  uint32_t Handle(Object object) const {
    return object == Object::kIndex ? index_ : handles_[static_cast<size_t>(object)];
  }
  // A handle of that kind that has been closed, and an open handle of another kind.
  uint32_t ClosedHandle(Object object);
  uint32_t WrongHandle(Object object) const;
  uint32_t docid() const { return docid_; }
  KVUNID* unid() { return &unid_; }

  // Texts and bytes that live as long as the scene; a block has exactly the size asked for.
  const char* Text(const std::string& text);
  void* Bytes(size_t bytes);
  void* Copy(const void* source, size_t bytes);
  std::string File(const std::string& name) const { return folder_ + "/" + name; }
  // A database that nobody has open, and a path without a file.
  const char* FreshDatabase();
  const char* FreshPath();

  // Closes whatever the calling thread's session has open.
  static void CloseAll();

 private:
  bool OpenDatabases();
  bool MakeDocuments();
  bool MakeComposites();

  std::string folder_;
  bool ready_ = false;
  uint32_t handles_[6] = {};
  uint32_t docid_ = 0;
  KVUNID unid_{};
  std::vector<std::unique_ptr<char[]>> blocks_;
  std::vector<std::string> files_;
  uint32_t index_ = 0;
};

}  // namespace kit

#endif
