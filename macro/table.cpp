#include "macro/table.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "debug/fd_guard.h"
#include "debug/log.h"
#include "debug/signal_hold.h"
#include "debug/text.h"

namespace {

struct Slot {
  unsigned char *code;
  int size;
  const char *name;  // null until the slot is closed, then empty
  bool on_heap;
};

// The code of small macros lies behind the slots: a new process pays for each page that it touches,
// and for the heap with several.
struct Table {
  Slot slots[kMacroSlots];
  int count;
  std::size_t near_used;
  unsigned char near[3072];
};

Table table;

constexpr std::size_t kPathSize = 2048;
constexpr off_t kMaxFile = INT32_MAX / 2 - 1;  // the buffer is twice the file

// Kept: a loaded macro has no name here, so every open loads anew.
int FindSlot(const char *name) {
  for (int i = 0; i < table.count; ++i)
    if (table.slots[i].name != nullptr && std::strcmp(table.slots[i].name, name) == 0) return i;
  return -1;
}

bool FormatPath(char (&path)[kPathSize + 1], const char *name) {
  if (name[0] == '/') return Text_FormatTo(path, sizeof path, "%s.mo", name);
  return Text_FormatTo(path, sizeof path, "%s/%s.mo", kLibraryDir, name);
}

void Release(Slot *slot) {
  if (slot->on_heap) {
    const SignalHold hold;
    std::free(slot->code);
  }
  *slot = {};
}

bool FitsNear(off_t file_size) {
  return file_size <= static_cast<off_t>(sizeof table.near - table.near_used);
}

// A new buffer in place of what a failed open left behind.  What lies near is taken for good once
// the macro is loaded.
bool Allocate(Slot *slot, off_t file_size) {
  Release(slot);
  if (FitsNear(file_size)) {
    slot->code = table.near + table.near_used;
    return true;
  }
  const SignalHold hold;
  errno = ENOMEM;
  if (file_size <= kMaxFile)
    slot->code = static_cast<unsigned char *>(std::malloc(2 * static_cast<std::size_t>(file_size)));
  slot->on_heap = slot->code != nullptr;
  return slot->on_heap;
}

// Fills the slot from the file; what is read ends the code, whatever the size was.  False: logged.
bool Load(Slot *slot, const char *path) {
  struct stat status;
  if (stat(path, &status) != 0) {
    DPRINTF(nullptr, kWarning, "[Macro: Open] Unable to open macro '%s': errno = %d\n", path,
            errno);
    return false;
  }
  if (!Allocate(slot, status.st_size)) {
    DPRINTF(nullptr, kWarning,
            "[Macro: Open] Unable to malloc space for macro in '%s': errno = %d\n", path, errno);
    return false;
  }
  const FdGuard file(open(path, O_RDONLY));
  if (file.Get() < 0) {
    DPRINTF(nullptr, kWarning, "[Macro: Open] Unable to open macro '%s': errno = %d\n", path,
            errno);
    return false;
  }
  const ssize_t got = read(file.Get(), slot->code, static_cast<std::size_t>(status.st_size));
  if (got < 0) {
    DPRINTF(nullptr, kWarning, "[Macro: Open] Unable to read macro '%s': errno = %d\n", path,
            errno);
    return false;
  }
  slot->size = static_cast<int>(got);
  if (!slot->on_heap) table.near_used += static_cast<std::size_t>(status.st_size);
  return true;
}

}  // namespace

int Macro_Open(const char *name) {
  const int known = FindSlot(name);
  if (known >= 0) return known;
  char path[kPathSize + 1];
  if (!FormatPath(path, name)) {
    DPRINTF(nullptr, kWarning, "[Macro: Open] Unable to open macro '%s': errno = %d\n", path,
            ENAMETOOLONG);
    return -1;
  }
  if (table.count == kMacroSlots) {
    DPRINTF(nullptr, kWarning, "[Macro: Open] Unable to open macro '%s': all %d slots are taken\n",
            path, kMacroSlots);
    return -1;
  }
  if (!Load(&table.slots[table.count], path)) return -1;
  return table.count++;
}

int Macro_Close(int handle) {
  if (handle < 0 || handle >= table.count) return 1;
  Release(&table.slots[handle]);
  table.slots[handle].name = "";
  return 1;
}

int Macro_CloseAll() {
  for (int i = 0; i < table.count; ++i) Macro_Close(i);
  return 1;
}

const unsigned char *Macro_Code(int handle, int *size) {
  *size = 0;
  if (handle < 0 || handle >= table.count) return nullptr;
  *size = table.slots[handle].size;
  return table.slots[handle].code;
}
