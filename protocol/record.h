// protocol/record.h: one framed message off a TCP socket.
#ifndef PROTOCOL_RECORD_H
#define PROTOCOL_RECORD_H

#include "protocol/cmd_hdr.h"

enum RecordResult : int {
  kRecordFailed = 0,
  kRecordRead = 1,  // also when the header was refused: look at hdr->Command
  kRecordOver = 2,  // the connection is closed, reset or not connected
};

// Reads one message, its newline included, and fills hdr from its header.  *len is the capacity of
// buf, whose storage is one byte larger; it becomes the message's length.  *rest is where the
// predicate begins in buf, or null.  Behind the message buf holds a terminator.
int Util_ReadInt(int sock, char *buf, int *len, CmdHdr *hdr, char **rest);

#endif
