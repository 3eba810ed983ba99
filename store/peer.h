// store/peer.h: whether a connection of this process is up.
#ifndef STORE_PEER_H
#define STORE_PEER_H

// Whether a TCP connection of this process to that address, dotted text and port, is up: neither
// ended by the other side and read to its end, nor reset, nor closed.  For connections that a
// library holds.  Logs nothing.
bool Peer_IsUp(const char *host, unsigned port);

#endif
