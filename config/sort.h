// config/sort.h: the two quicksorts that the index of a Search Engine is built with.
#ifndef CONFIG_SORT_H
#define CONFIG_SORT_H

#include <cstdint>

// Sorts first to last, both inclusive, ascending.
void Util_SortU32(std::uint32_t *first, std::uint32_t *last);

// Orders array[low] to array[high], both inclusive, by strcmp; only the pointers move.  The order
// is that of the partition below and, where a swap moves the pivot, not always ascending.
void Util_SortStrings(const char **array, int low, int high);

#endif
