// core/admin.h: the administrative commands that mean the same to every program.
#ifndef CORE_ADMIN_H
#define CORE_ADMIN_H

#include "net/sock.h"
#include "protocol/cmd_hdr.h"

// Checks and logs one datagram and fills hdr from it.  *rest is where its predicate begins, or
// null.  1, or 0: there is nothing to carry out, logged.
int Admin_Read(const SockAddr *sender, const char *buf, int len, CmdHdr *hdr, const char **rest);

// Carries out SETDEBUGLEVEL, PING, PONG, SHUTDOWNANNOUNCEMENT and SHUTDOWN.  1, or 0: it is none of
// them.
int Admin_Common(int sock, SockAddr *sender, const CmdHdr *hdr, const char *rest);

// What is said of a command word that a program does not know.
void Admin_Unknown(const CmdHdr *hdr);

#endif
