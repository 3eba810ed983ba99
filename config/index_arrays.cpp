#include "config/index_arrays.h"

#include <algorithm>
#include <cstring>

#include "debug/log.h"
#include "debug/text.h"

int SrchEngine_SetupArrays(IndexEntry *entries, int max, char *buffer) {
  std::fill_n(entries, std::max(max, 0), IndexEntry{});
  char *state = nullptr;
  char *token = strtok_r(buffer, "\t\n", &state);
  int k = 1;
  for (; token != nullptr && k <= max; ++k) {
    entries[k].Name = token;
    token = strtok_r(nullptr, "\t\n", &state);
    if (token == nullptr) {
      DPRINTF(nullptr, kInfo,
              "[Srch Engine: SetupArrays] error tokenizing buffer for offset: entry # %d\n", k);
      return k - 1;
    }
    entries[k].Offset = Text_ToInt32(token);
    token = strtok_r(nullptr, "\t\n", &state);
    if (token == nullptr) {
      DPRINTF(nullptr, kInfo,
              "[Srch Engine: SetupArrays] error tokenizing buffer for size: entry # %d\n", k);
      return k - 1;
    }
    entries[k].Size = Text_ToInt32(token);
    token = strtok_r(nullptr, "\t\n", &state);
  }
  return k - 1;
}
