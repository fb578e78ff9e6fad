// Records of open composites.
#ifndef KVINT_COMPOSITE_H
#define KVINT_COMPOSITE_H

#include "kvint_document.h"

struct COMPTEXT;

// One contiguous run of whole stored records.
struct _COMPNODE {
  BLOCKID value_bid;
  int32_t isbidlocked;
  char* value_ptr;
  uint32_t value_len;
  uint32_t value_offset;
  uint32_t field_count;
  int32_t comp_alloc;
  int32_t alloc;
  _COMPNODE* next;
};

// A cursor in a composite.
struct COMPRECORD {
  _COMPNODE* node;
  uint32_t node_index;
  uint32_t comp_index;
  uint32_t offset;
  char* buffer;
  uint16_t signature;
  uint32_t length;
  uint16_t align;
};

// The object behind a composite handle.
struct _COMPOSITE {
  uint32_t composite;
  _DOCUMENT* doc;
  _COMPNODE* nodelist;
  int32_t dirty;
  char* itemname;
  FORMAT* format;
  uint32_t current_index;
  COMPRECORD currec;
  COMPRECORD comprec;
  COMPTEXT* text;
  _COMPOSITE* docnext;
  _COMPOSITE* prev;
  _COMPOSITE* next;
};

// Writes a changed composite back into its document; success for an unchanged one or one without an item
// name.
uint32_t _CompStore(_api_session* session, _DOCUMENT* doc, _COMPOSITE* comp);
// Unlinks a composite from session and document and frees it.
void _CompFree(_api_session* session, _COMPOSITE* comp);

#endif
