#include "kit/scene.h"

#include <cstring>
#include <filesystem>

#include "brynd.h"
#include "kvint_database.h"

namespace kit {

static constexpr uint16_t kPlainClass = 0xff01;

static bool MakeFile(const std::string& path) {
  return EngDbCreate(path.c_str(), kPlainClass, 0, 0, 0, 1) == 0;
}

bool MakeSceneFiles(const std::string& folder) {
  return MakeFile(folder + "/one.qdb") && MakeFile(folder + "/two.qdb");
}

Scene::Scene(std::string folder, Needs needs) : folder_(std::move(folder)) {
  const int32_t off = 0;
  if (needs == Needs::kNothing) {
    ready_ = true;
    return;
  }
  if (KVSetProperty(KVPROP_SESS_STRICT_BIND, &off) != KVSUCCESS) return;
  ready_ = OpenDatabases() && (needs == Needs::kDatabase || needs == Needs::kIndex || MakeDocuments());
  if (ready_ && needs == Needs::kComposite) ready_ = MakeComposites();
  if (ready_ && needs == Needs::kIndex) ready_ = KVIndexOpen(handles_[0], &index_) == KVSUCCESS;
}

Scene::~Scene() {
  CloseAll();
  std::error_code ignored;
  for (const std::string& file : files_) std::filesystem::remove(file, ignored);
}

void Scene::CloseAll() {
  _api_session* session = KVICurrentSession();
  if (session == nullptr) return;
  for (_DATABASE*& bucket : session->dbtab)
    while (bucket != nullptr) {
      const _DATABASE* head = bucket;
      KVDatabaseClose(head->database, 0);
      if (bucket == head) return;  // cannot be closed; the proof at the end will tell
    }
}

bool Scene::OpenDatabases() {
  return KVDatabaseOpen(nullptr, Text(File("one.qdb")), 0, &handles_[0]) == KVSUCCESS &&
         KVDatabaseOpen(nullptr, Text(File("two.qdb")), 0, &handles_[1]) == KVSUCCESS;
}

bool Scene::MakeDocuments() {
  for (const size_t place : {2u, 3u}) {
    if (KVDocumentCreate(handles_[place - 2], 0, &handles_[place]) != KVSUCCESS) return false;
    if (KVItemPut(handles_[place], "Subject", 0, 0, KVTYPE_TEXT, "A subject", 0) != KVSUCCESS) return false;
    const double number = 42.5;
    if (KVItemPut(handles_[place], "Number", 0, 8, KVTYPE_NUMBER, &number, 0) != KVSUCCESS) return false;
    if (KVItemAppendTextList(handles_[place], "List", "one", 0, 1) != KVSUCCESS) return false;
    if (KVDocumentSave(handles_[place], KVDOCWRITE_NOCOMMIT) != KVSUCCESS) return false;
  }
  uint32_t note = 0;
  ORIGINATORID originator{};
  if (KVDocumentGetBryndHandle(handles_[2], KVTOBRYND_GET_HANDLE, &note) != KVSUCCESS) return false;
  if (EngNoteInfoGet(note, 1, &docid_) != 0 || EngNoteInfoGet(note, 2, &originator) != 0) return false;
  std::memcpy(&unid_, &originator, sizeof unid_);
  return true;
}

// One that is new and not written yet, and one that is open on an item of the other document.
bool Scene::MakeComposites() {
  KVCDTEXT text{KVFONTSTYLE_DEFAULT, 4, const_cast<char*>("text")};
  for (const size_t place : {4u, 5u}) {
    if (KVCompositeCreate(handles_[place - 2], "Body", &handles_[place]) != KVSUCCESS) return false;
    for (int i = 0; i < 3; ++i)
      if (KVCDRecordInsert(handles_[place], 0, KVCDTYPE_TEXT, &text) != KVSUCCESS) return false;
  }
  return KVCompositeClose(handles_[5], 0) == KVSUCCESS &&
         KVCompositeOpen(handles_[3], "Body", &handles_[5]) == KVSUCCESS;
}

uint32_t Scene::ClosedHandle(Object object) {
  uint32_t handle = 0;
  if (object == Object::kDatabase || object == Object::kOtherDatabase) {
    KVDatabaseOpen(nullptr, Text(File("one.qdb")), 0, &handle);
    KVDatabaseClose(handle, 0);
  } else if (object == Object::kComposite || object == Object::kOtherComposite) {
    KVCompositeCreate(handles_[2], nullptr, &handle);
    KVCompositeClose(handle, 0);
  } else if (object == Object::kIndex) {
    KVIndexOpen(handles_[0], &handle);
    KVIndexClose(handle);
  } else {
    KVDocumentCreate(handles_[0], 0, &handle);
    KVDocumentClose(handle, KVDOCWRITE_DISCARD);
  }
  return handle;
}

uint32_t Scene::WrongHandle(Object object) const {
  const bool database = object == Object::kDatabase || object == Object::kOtherDatabase ||
                        object == Object::kComposite || object == Object::kOtherComposite;
  return database ? handles_[2] : handles_[0];
}

const char* Scene::Text(const std::string& text) {
  // An array of its own, so that a read behind the NUL is seen.
  return static_cast<const char*>(Copy(text.c_str(), text.size() + 1));
}

void* Scene::Bytes(size_t bytes) {
  blocks_.push_back(std::make_unique<char[]>(bytes));
  return blocks_.back().get();
}

void* Scene::Copy(const void* source, size_t bytes) {
  void* copy = Bytes(bytes);
  std::memcpy(copy, source, bytes);
  return copy;
}

const char* Scene::FreshPath() {
  static int number = 0;
  files_.push_back(File("fresh" + std::to_string(++number) + ".qdb"));
  return Text(files_.back());
}

const char* Scene::FreshDatabase() {
  const char* path = FreshPath();
  if (!MakeFile(path)) ready_ = false;
  return path;
}

}  // namespace kit
