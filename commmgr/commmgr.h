// commmgr/commmgr.h: what the Communications Manager does with a command.
#ifndef COMMMGR_COMMMGR_H
#define COMMMGR_COMMMGR_H

#include "config/conf_file.h"
#include "net/sock.h"
#include "protocol/cmd_hdr.h"

// What comes in and is not kept: a document until it is formatted, a frame until it is sent.  One
// for both, since a child pays for each page that it touches.
extern MessageBuffer CommMgr_Incoming;

// Empties the peer lists, logs the configuration and hands document retrieval to the macro
// engine; 1.
int CommMgr_Startup(const ConfigInfo *config, const DBInfo *dbinfo);

// Answers one client command, QUERY or GETDOC.  listener is not used; sock stays open.
void CommMgr_ClientCmd(int listener, int sock, const char *text);

// Carries out one administrative datagram.
void CommMgr_Admin(int sock, SockAddr *sender, const char *buf, int len);

// Relays a Search Manager's records to the client until the search is complete, the stream ends,
// something fails or max_hits documents are sent; max_hits 0 or less: no limit.  Closes neither
// socket.
void CommMgr_Results(int macro, int search_sock, int client_sock, std::int32_t max_hits);

// Send the file base.hdr or base.tail to the client, its first 10238 characters at most.  A file
// that cannot be read is logged and left out.
void CommMgr_SendHdr(const char *base, int client_sock);
void CommMgr_SendTail(const char *base, int client_sock);

// Fetches one document from the Document Manager that hdr->SearchGroup names.  hdr->Command becomes
// GETDOC once that is known.  *len is the capacity of out, whose storage is one byte larger, and
// becomes the document's length.  format 1 runs the macro over it; otherwise it is copied raw, as
// far as it fits.  1, also when the Document Manager closed without an answer (*len 0), or 0,
// logged.
int CommMgr_GetDoc(int macro, CmdHdr *hdr, char *out, int *len, int format);

#endif
