// store/peer.h: which of this process's connections has ended.
#ifndef STORE_PEER_H
#define STORE_PEER_H

// Whether a TCP connection of this process to that address, dotted text and port, has been ended
// by the other side and read to its end.  For connections that a library holds.  Logs nothing.
bool Peer_HasEnded(const char *host, unsigned port);

#endif
