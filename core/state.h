// core/state.h: the records of the running process.
//
// Written by start-up alone, before the first child exists; children read their copies.
#ifndef CORE_STATE_H
#define CORE_STATE_H

#include <cstdint>

#include "config/conf_file.h"
#include "net/sock.h"

inline constexpr int kMaxParents = 2;  // a Search Engine's Search Manager and Document Manager

struct MainCoreState {
  char ConfigPath[256];
  char DBPath[256];
  ConfigInfo Config;
  DBInfo Database;  // read for type 'E' alone
  ConfigInfo Parents[kMaxParents];
  std::int32_t ParentCount;
  SockAddr ClientAddr;
  SockAddr AdminAddr;
  SockAddr ParentClientAddr[kMaxParents];
  SockAddr ParentAdminAddr[kMaxParents];
  int Listener = -1;   // TCP
  int AdminSock = -1;  // UDP; closed in a child
};

extern MainCoreState MainCore_State;

#endif
