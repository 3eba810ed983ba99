// index/control_file.h: reads documents in the control format of package lists.
//
// A line "Name: value" begins a field, a line that begins with a blank or a tab continues the value
// above it, and an empty line ends the document.
#ifndef INDEX_CONTROL_FILE_H
#define INDEX_CONTROL_FILE_H

#include "index/reader.h"

// Reads the next document.  Each value becomes one line of text: its lines are joined by a blank, a
// line that is a lone "." is an empty one, and control characters turn into blanks.
ReadResult ControlFile_Read(Reader *reader, Fields *fields);

#endif
