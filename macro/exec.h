// macro/exec.h: runs a page macro over a document.
#ifndef MACRO_EXEC_H
#define MACRO_EXEC_H

#include "protocol/cmd_hdr.h"

// Fetches the document that hdr names into out, whose storage is one byte larger than the capacity
// *len; *len becomes the document's length.  raw copies are asked for with format 0.  1, or 0 with
// *len as it was.
using Macro_FetchFn = int (*)(int macro, CmdHdr *hdr, char *out, int *len, int format);

// Set once, by the program's start-up.  Null: every fetch fails.
void Macro_SetFetch(Macro_FetchFn fetch);

// Runs an open macro over a document.  *len is the capacity of output and becomes the number of
// bytes written, which may include NULs.  room is the number of bytes that the document's own
// buffer has behind its text, for what a macro inserts into the document.  1, or -1 with *len as it
// was: the macro is malformed, asks for more than there is, or names a document in less than three
// words.
int Macro_Exec(int handle, char *document, char *output, int *len, int room = 0);

#endif
