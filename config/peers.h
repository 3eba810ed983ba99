// config/peers.h: the peers that announced themselves.
//
// The lists belong to the main process.  A child sees them as they stood at its fork.
#ifndef CONFIG_PEERS_H
#define CONFIG_PEERS_H

#include "net/sock.h"

struct INIT_CHILDINFO {
  char ID[64];
  char Type;
  SockAddr ClientAddr;
  SockAddr AdminAddr;
  INIT_CHILDINFO *Next;  // of the same list, or null
};

extern INIT_CHILDINFO *DocMgrList;
extern INIT_CHILDINFO *SearchMgrList;

// The first record whose ID is id exactly, or null.
INIT_CHILDINFO *Init_FindPeer(INIT_CHILDINFO *list, const char *id);

// Insert child, which calloc gave, and take it over.  A record of the same ID is replaced in its
// place and freed; a new ID is appended.
void Init_InsertDocMgr(INIT_CHILDINFO *child);

// The same, but a replaced record that is not the head takes all behind it out of the list.
void Init_InsertSearchMgr(INIT_CHILDINFO *child);

#endif
