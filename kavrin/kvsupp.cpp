// The heap seam, the state of a session by number, and small services that belong to no family.
#include <cstdlib>

#include "kvint_session.h"
#include "kvint_system.h"

// ---- Heap

static void* AllocateFromSystem(size_t bytes) { return std::calloc(1, bytes); }
static void* ReallocateFromSystem(void* block, size_t new_bytes) { return std::realloc(block, new_bytes); }
static void ReleaseToSystem(void* block) { std::free(block); }

const KVHEAP kv_system_heap{AllocateFromSystem, ReallocateFromSystem, ReleaseToSystem};
constinit const KVHEAP* pgHeap = &kv_system_heap;

void* KVIAllocateBytes(size_t bytes) { return pgHeap->allocate(bytes == 0 ? 1 : bytes); }

void* KVIReallocateBytes(void* block, size_t new_bytes) {
  return pgHeap->reallocate(block, new_bytes == 0 ? 1 : new_bytes);
}

void KVIFree(void* block) { pgHeap->release(block); }

char* KVICopyText(const char* text, size_t text_bytes) {
  if (text_bytes == SIZE_MAX) return nullptr;
  auto* copy = static_cast<char*>(KVIAllocateBytes(text_bytes + 1));
  if (copy == nullptr) return nullptr;
  KVICopyBytes(copy, text, text_bytes);
  copy[text_bytes] = 0;
  return copy;
}

// ---- State of the session

static void ClearTextList(KVTEXTLIST* textlist) {
  KVIFree(textlist->buffer);
  *textlist = {};
}

static void ClearCatalog(_api_session* session) {
  if (session->dbcat_collect != 0) EngCollectionClose(session->dbcat_collect);
  session->dbcat_collect = 0;
  if (session->dbcat_dbhand != 0) EngDbClose(session->dbcat_dbhand);
  session->dbcat_dbhand = 0;
  KVIFreeAndClear(&session->dbcat_server);
}

static void FreeDirectory(_DBDIR** list, _DBDIR** current, char** server, char** directory) {
  while (*list != nullptr) {
    _DBDIR* entry = *list;
    *list = entry->next;
    KVIFree(entry->path);
    KVIFree(entry->name);
    KVIFree(entry);
  }
  *current = nullptr;
  KVIFreeAndClear(server);
  KVIFreeAndClear(directory);
}

static void FreeSchedule(_api_session* session) {
  while (session->sched_list != nullptr) {
    _SCHEDULE* schedule = session->sched_list;
    session->sched_list = schedule->next;
    KVIFree(schedule);
  }
}

uint32_t _ClearState(_api_session* session, int state) {
  switch (state) {
    case kStateServerList:
      ClearTextList(&session->srvlist);
      break;
    case kStateCatalog:
      ClearCatalog(session);
      break;
    case kStateDirectory:
      FreeDirectory(&session->dbdir_list, &session->dbdir_current, &session->dbdir_server,
                    &session->dbdir_directory);
      break;
    case kStateTemplates:
      FreeDirectory(&session->dbtemp_list, &session->dbtemp_current, &session->dbtemp_server,
                    &session->dbtemp_directory);
      break;
    case kStateSchedule:
      FreeSchedule(session);
      break;
    default:
      break;
  }
  return KVSUCCESS;
}

// ---- Names

// A component without a label loses whatever stands before a later label: the search for the label does not
// stop at a separator. Applications see names in that form, so it stays.
uint32_t _FormatUsername(_api_session* session, const char* oldname, char* newname) {
  if (session->abbreviate_names == 0) {
    KVICopyBytes(newname, oldname, std::strlen(oldname) + 1);
    return KVSUCCESS;
  }
  while (*oldname != 0) {
    if (const char* label_end = KVIstrchr(oldname, '=')) oldname = label_end + 1;
    const char* separator = KVIstrchr(oldname, '/');
    const size_t part_bytes =
        separator == nullptr ? std::strlen(oldname) : static_cast<size_t>(separator + 1 - oldname);
    std::memmove(newname, oldname, part_bytes);
    newname += part_bytes;
    oldname += part_bytes;
  }
  *newname = 0;
  return KVSUCCESS;
}
