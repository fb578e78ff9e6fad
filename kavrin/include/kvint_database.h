// Records of open databases and their internal functions.
#ifndef KVINT_DATABASE_H
#define KVINT_DATABASE_H

#include "kvint_design.h"
#include "kvint_session.h"

struct _AGENTSPEC;
struct _FORMSPEC;
struct _SHAREDFIELDSPEC;
struct _VIEWSPEC;

// One open database handle, owned by the session that opened it.
struct _DATABASE {
  uint32_t database;
  uint32_t dbhand;
  _KVDBINFO* dbinfo;  // shared, never null while open
  int32_t delay_commit;
  int32_t strict_bind;
  int32_t strict_bind_compute;
  int32_t docopen_design;
  int32_t fetch_design_code;
  uint32_t summary_limit;
  uint32_t vcache_rows;
  int32_t read_subf_fields;
  uint16_t br_build;
  KVDESIGNLIST formlist;
  KVDESIGNLIST subformlist;
  KVDESIGNLIST viewlist;
  KVDESIGNLIST folderlist;
  KVDESIGNLIST navlist;
  KVDESIGNLIST agentlist;
  KVTEXTLIST acllist;
  uint32_t aclhand;            // engine memory of the access control list, 0 until first needed
  int32_t acl_dirty;           // the list is written back when the database is closed
  char* acllog;                // history log text
  uint32_t last_formula_hand;  // engine memory of the last executed formula
  uint32_t last_compute_hand;  // the compute handle that belongs to it
  _DATABASE* next;
  _DATABASE* prev;
};

// What all handles of a session on one database share; freed with the last of them.
struct _KVDBINFO {
  TIMEDATE dbid;  // identity, compared as 8 bytes
  char* server_name;
  char* db_relpath;
  char* db_title;
  _FORMSPEC* forms;
  _VIEWSPEC* views;
  _AGENTSPEC* agents;
  _SHAREDFIELDSPEC* sfields;
  uint32_t usage_count;
  _KVDBINFO* next;
};

// ---- State of a database by number

constexpr int kStateFormList = 6;
constexpr int kStateSubformList = 7;
constexpr int kStateViewList = 8;
constexpr int kStateFolderList = 9;
constexpr int kStateNavigatorList = 10;
constexpr int kStateAgentList = 11;
constexpr int kStateAclList = 12;
constexpr int kStateAcl = 13;
constexpr int kStateAclLog = 14;
constexpr int kStateDbInfo = 15;
constexpr int kStateIndexes = 16;
constexpr int kStateSpecIndexes = 17;
constexpr int kStateDocuments = 18;
constexpr int kStateExecuted = 19;
constexpr int kStateEngineDatabase = 20;
constexpr int kStateTable = 29;

// Releases one kind of state; safe when it is empty. info points at the close flags in states 18 and 20 and
// may be null else.
uint32_t _ClearDatabaseState(_api_session* session, _DATABASE* dbase, int state, const uint32_t* info);
// Releases all states in order and the record. With pbrynd_handle the engine's database stays open and goes
// to the caller.
uint32_t _CloseDATABASE(_api_session* session, uint32_t database, uint32_t dbclose_flags,
                        uint32_t* pbrynd_handle);

// ---- What handles on one database share

constexpr size_t kDbInfoBytes = 128;      // the engine's information string
constexpr uint16_t kDbInfoTextMax = 127;  // characters of one field of it, and of all four together

// The session's record of the engine database, null if there is none.
_KVDBINFO* _KVISessionGetDbInfo(_api_session* session, EngDb dbh);
// A new record that no list holds; KVFAIL_NO_MEMORY.
uint32_t KVIDbInfoCreate(EngDb dbh, const char* szServer, const char* szPath, _KVDBINFO** pNewDBI);

// ---- Paths

constexpr size_t kNetPathBytes = 512;

// The network path of a file; szOutput has kNetPathBytes and is empty on failure. szPort and szServer may be
// null.
uint16_t KVIDbGetNetPath(const char* szPort, const char* szServer, const char* szFile, char* szOutput);
// True when the name is the one that the session has for this machine.
bool _KVIIsLocalServer(const _api_session* session, const char* server);
// The path to give to the engine: filepath itself on this machine, else the network path, built in netpath. A
// status is the one of that building; path is then empty.
uint16_t _KVIDbPath(const _api_session* session, const char* server, const char* filepath,
                    char (&netpath)[kNetPathBytes], const char** path);

// ---- Records of a database that its functions write

constexpr uint32_t kIconRecord = 0xffff0010u;

// One field of an information string, at most text_bytes characters; text has kDbInfoBytes + 1.
void KVIDbInfoField(const char* info, uint16_t field, char* text, uint16_t text_bytes);
// Writes the information string to the title of the icon record.
uint16_t KVIDbRefreshIconInfo(EngDb dbh, const char* szInfo);

constexpr int kTranslateRead = 1;
constexpr int kTranslateWrite = 2;
// Reads or writes the stored-form property; KVFAIL_INTERNAL when there is no icon record.
uint32_t KVIDbTranslateStoredForm(int Translate, int32_t* pHTProp, EngDb hLNDb);

// Writes one view of all documents into an empty database.
uint16_t KVIDbCreateDefaultView(EngDb dbhand);

#endif
