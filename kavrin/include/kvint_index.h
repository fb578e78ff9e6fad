// Records of open indexes.
#ifndef KVINT_INDEX_H
#define KVINT_INDEX_H

#include "kvint_document.h"

struct _BINDFIELD;
struct _INDEX_VCACHE;
struct FTSEARCH;

// The current row of a view.
struct VIEWROW {
  uint32_t summ_hand;
  uint32_t view_category;
  uint16_t view_level;
  char* view_summary;
  uint32_t noteid;
  uint32_t index_hand;
  INDEXSPECIALINFO index_info;
  void* index_pos;
};

// One open index, owned by the session.
struct _INDEX {
  uint32_t index;
  _DATABASE* dbase;
  int32_t flat_view;
  uint16_t search_class;
  _FORMSPEC* active_form;
  _VIEWSPEC* active_view;
  _DATABASE* active_view_dbase;
  uint32_t* doc_idlist;
  int16_t doc_idlist_count;
  uint16_t collhand;
  COLLECTIONPOSITION collpos;
  uint32_t unread_hand;
  uint32_t collapse_hand;
  int32_t coll_first;
  uint32_t doc_count;
  uint32_t doc_index;
  _BINDFIELD* bindlist;
  _DOCUMENT last_load;
  VIEWROW viewrow;
  FTSEARCH* ftsearch;
  uint32_t key_index;
  KVDATETIME index_datetime;
  _INDEX_VCACHE* pvcache;
  _INDEX* next;
  _INDEX* prev;
};

#endif
