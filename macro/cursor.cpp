#include "macro/cursor.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "debug/log.h"
#include "debug/signal_hold.h"
#include "debug/text.h"

namespace {

constexpr std::size_t kPatternSize = 1024;
constexpr int kTermsSize = 2048;

// What a run works on.
struct Input {
  char *start;
  int length;
  int cursor;
};

Input input;

// The offset of the pattern at or behind from; -1: not there.
int Search(std::string_view pattern, int from) {
  if (from > input.length) return -1;
  const std::string_view text(input.start, static_cast<std::size_t>(input.length));
  const std::size_t at = text.find(pattern, static_cast<std::size_t>(from));
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

// From the cursor to the end, and then from the start.
int SearchAround(const char *name, const char *pattern) {
  const int at = Search(pattern, input.cursor);
  if (at >= 0) return at;
  DPRINTF(nullptr, kWarning, "[Macro: FindField] Wraparound looking for '%s' (%s)\n", name,
          pattern);
  return Search(pattern, 0);
}

// Where the text that position lies in ends.
const char *EndOf(const char *position) {
  const char *end = input.start + input.length;
  return position >= input.start && position <= end ? end : position + std::strlen(position);
}

// The first such byte before end, or end.
const char *Find(const char *from, const char *end, char byte) {
  const void *match = std::memchr(from, byte, static_cast<std::size_t>(end - from));
  return match != nullptr ? static_cast<const char *>(match) : end;
}

// Copies the value of the field at position into buffer, terminated if it is shorter than the
// capacity.  The length, or -1, logged.
int CopyTerms(const char *position, char *buffer, int capacity) {
  const std::string_view value = Macro_Terms(position, capacity);
  if (value.data() == nullptr) return -1;
  const auto count = static_cast<int>(value.copy(buffer, value.size()));
  if (count >= capacity) return -1;
  buffer[count] = '\0';
  return count;
}

char *HeapCopy(const char *text, int count) {
  const SignalHold hold;
  const auto size = static_cast<std::size_t>(count) + 1;
  auto *copy = static_cast<char *>(std::malloc(size));
  if (copy != nullptr) std::memcpy(copy, text, size);
  return copy;
}

// Stands apart, so that who has a buffer needs no room on the stack for this one.
[[gnu::noinline]] char *HeapTerms(const char *position, int *size) {
  char work[kTermsSize + 1];
  const int count = CopyTerms(position, work, kTermsSize);
  if (count < 0) return nullptr;
  *size = count;
  return HeapCopy(work, count);
}

}  // namespace

int Macro_SetInput(char *document) {
  input.start = document;
  input.cursor = 0;
  Macro_Remeasure();
  return 0;
}

void Macro_Remeasure() { input.length = static_cast<int>(std::strlen(input.start)); }

char *Macro_Document() { return input.start; }
int Macro_Length() { return input.length; }
int Macro_Cursor() { return input.cursor; }
void Macro_SetCursor(int offset) { input.cursor = std::clamp(offset, 0, input.length); }

int Macro_Seek(std::int32_t offset) {
  if (offset < 0 || offset >= input.length) return 0;
  input.cursor = offset;
  return 1;
}

const char *Macro_FindField(const char *name, int skip) {
  const int before = input.cursor;
  char pattern[kPatternSize + 1];
  const bool fits =
      Text_FormatTo(pattern, sizeof pattern, "%s%s=", name[0] == '\t' ? "" : "\t", name);
  int at = fits ? SearchAround(name, pattern) : -1;
  for (; at >= 0 && skip > 0; --skip) at = Search(pattern, at + 1);
  if (at < 0) {
    input.cursor = before;
    DPRINTF(nullptr, kWarning, "[Macro: FindField] Unable to find field = '%s' (%s)\n", name,
            pattern);
    return nullptr;
  }
  input.cursor = at;
  return input.start + at;
}

std::string_view Macro_Terms(const char *position, int capacity) {
  const char *end = EndOf(position);
  const char *equals = Find(position, end, '=');
  if (equals == end) {
    DPRINTF(nullptr, kWarning, "[Macro: GetTerms] Unable to locate delimeter in %s\n", position);
    return {};
  }
  const char *value = equals + 1;
  const auto room = static_cast<std::ptrdiff_t>(std::max(capacity, 0));
  const char *stop = Find(value, end - value > room ? value + room : end, '\t');
  const int count = static_cast<int>(stop - value);
  if (count >= capacity)
    DPRINTF(nullptr, kWarning, "[Macro: GetTerms] Buffer too small (size = %d)\n", count);
  return {value, static_cast<std::size_t>(count)};
}

char *Macro_GetTerms(const char *position, char *buffer, int *size) {
  if (buffer == nullptr) return HeapTerms(position, size);
  const int count = CopyTerms(position, buffer, *size);
  if (count < 0) return nullptr;
  *size = count;
  return buffer;
}
