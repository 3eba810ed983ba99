// config/announce.h: how a child makes itself known to its parents.
#ifndef CONFIG_ANNOUNCE_H
#define CONFIG_ANNOUNCE_H

#include "config/conf_file.h"
#include "config/peers.h"

// Checks config and fills both addresses from it.  1, or 0: logged at 104.
int Init_TCPIPSetup(const ConfigInfo *config, SockAddr *client, SockAddr *admin);

// Sends one STARTUPANNOUNCEMENT datagram to a parent's admin address; there is no acknowledgement.
// dbinfo may be null.  1, or 0: logged at 104.
int Init_Announce(SockAddr *parent, const ConfigInfo *config, const DBInfo *dbinfo);

// Fills child from the fields of an announcement, which text begins with.  1, or 0 with the fields
// so far.
int Init_RecvAnnounce(const char *text, INIT_CHILDINFO *child);

#endif
