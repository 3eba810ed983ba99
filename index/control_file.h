// index/control_file.h: reads documents in the control format of package lists.
//
// A line "Name: value" begins a field, a line that begins with a blank or a tab continues the value
// above it, and an empty line ends the document.
#ifndef INDEX_CONTROL_FILE_H
#define INDEX_CONTROL_FILE_H

#include <istream>

#include "store/field.h"

enum class ControlResult {
  kDocument,
  kEnd,
  kBadLine,  // neither a field nor a continuation; reader->line is its number
  kFailed,   // the stream cannot be read
};

struct ControlReader {
  std::istream *in;
  int line;  // the number of the last line read, from 1
};

// Reads the next document.  Each value becomes one line of text: its lines are joined by a blank, a
// line that is a lone "." is an empty one, and control characters turn into blanks.
ControlResult ControlFile_Read(ControlReader *reader, Fields *fields);

#endif
