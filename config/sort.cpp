#include "config/sort.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

// A value of the range that has a smaller one in it; null when all are equal.
const std::uint32_t *PivotU32(const std::uint32_t *first, const std::uint32_t *last) {
  const std::uint32_t *low = first, *median = first + (last - first) / 2, *high = last;
  if (*low > *median) std::swap(low, median);
  if (*median > *high) std::swap(median, high);
  if (*low > *median) std::swap(low, median);
  if (*low < *median) return median;
  if (*median < *high) return high;
  for (const std::uint32_t *other = first + 1; other <= last; ++other)
    if (*other != *first) return *other > *first ? other : first;
  return nullptr;
}

// The first element of the upper part.
std::uint32_t *PartitionU32(std::uint32_t *first, std::uint32_t *last, std::uint32_t pivot) {
  std::uint32_t *i = first, *j = last;
  while (j >= i) {
    while (*i < pivot) ++i;
    while (*j >= pivot) --j;
    if (j > i) std::swap(*i++, *j--);
  }
  return i;
}

bool Less(const char *a, const char *b) { return std::strcmp(a, b) < 0; }

// The index of the pivot, -1 when all are equal.  Puts the first, the middle and the last in order.
int PivotString(const char **array, int low, int high) {
  const int mid = low + (high - low) / 2;
  if (Less(array[mid], array[low])) std::swap(array[low], array[mid]);
  if (Less(array[high], array[low])) std::swap(array[low], array[high]);
  if (Less(array[high], array[mid])) std::swap(array[mid], array[high]);
  if (Less(array[low], array[mid])) return mid;
  if (Less(array[mid], array[high])) return high;
  for (int k = low + 1; k <= high; ++k)
    if (std::strcmp(array[k], array[low]) != 0) return Less(array[low], array[k]) ? k : low;
  return -1;
}

// Kept for the indexes that were built with it: the pivot goes by its place, so a swap can change
// it.
int PartitionStrings(const char **array, int low, int high, int pivot) {
  int i = low, j = high;
  while (j > i) {
    while (i < high && Less(array[i], array[pivot])) ++i;
    while (j > i && !Less(array[j], array[pivot])) --j;
    if (j > i) std::swap(array[i++], array[j--]);
  }
  return i;
}

}  // namespace

// Both sorts recurse into the smaller part and loop on the larger: the parts do not touch, and the
// stack stays small for every input.
void Util_SortU32(std::uint32_t *first, std::uint32_t *last) {
  while (first < last) {
    const std::uint32_t *pivot = PivotU32(first, last);
    if (pivot == nullptr) return;
    std::uint32_t *middle = PartitionU32(first, last, *pivot);
    if (middle - first < last - middle) {
      Util_SortU32(first, middle - 1);
      first = middle;
    } else {
      Util_SortU32(middle, last);
      last = middle - 1;
    }
  }
}

void Util_SortStrings(const char **array, int low, int high) {
  while (low < high) {
    const int pivot = PivotString(array, low, high);
    if (pivot < 0) return;
    const int middle = PartitionStrings(array, low, high, pivot);
    if (middle - low < high - middle) {
      Util_SortStrings(array, low, middle - 1);
      low = middle;
    } else {
      Util_SortStrings(array, middle, high);
      high = middle - 1;
    }
  }
}
