// config/index_arrays.h: cuts the text of an index into a table.
#ifndef CONFIG_INDEX_ARRAYS_H
#define CONFIG_INDEX_ARRAYS_H

#include <cstdint>

struct IndexEntry {
  const char *Name;  // inside the buffer
  std::int32_t Offset;
  std::int32_t Size;
};

// Fills entries[1] to entries[max] from name, offset and size tokens parted by tabs and newlines;
// the caller provides max + 1 entries.  buffer is changed and must outlive the table.  Returns the
// number of complete entries; a name without both numbers is logged at 101 and ends the table.
int SrchEngine_SetupArrays(IndexEntry *entries, int max, char *buffer);

#endif
