// Navigators: design records of the view class that this library handles as wholes.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

uint32_t KVNavigatorLocateByName(uint32_t database, const char* navname) {
  return _KVIViewClassLocate({.database = database,
                              .name = navname,
                              .may_be_private = false,
                              .kind = KVDESIGN_NAVIGATOR,
                              .none_status = KVFAIL_NO_NAVIGATOR});
}

uint32_t KVNavigatorCopy(uint32_t src_database, uint32_t src_navid, uint32_t dest_database,
                         const char* dest_navname, uint32_t* dest_navid) {
  return _KVIViewClassCopy({.src_database = src_database,
                            .src_id = src_navid,
                            .dest_database = dest_database,
                            .dest_name = dest_navname,
                            .dest_id = dest_navid,
                            .checks_length = false,
                            .kind = KVDESIGN_NAVIGATOR,
                            .none_status = KVFAIL_NO_NAVIGATOR});
}

uint32_t KVNavigatorDelete(uint32_t database, uint32_t navid) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (navid == 0) return KVError(KVFAIL_NO_NAVIGATOR);
  if (!_KVIHasKind(session, dbase, navid, KVDESIGN_NAVIGATOR)) return KVError(KVFAIL_NO_NAVIGATOR);
  if (uint16_t brstatus = EngNoteDelete(dbase->dbhand, navid, 0)) return KVError(brstatus);
  return KVSUCCESS;
}
