#include "protocol/pair.h"

#include <cstring>

#include "debug/log.h"
#include "debug/text.h"

namespace {

constexpr std::size_t kPatternSize = 256;
constexpr std::size_t kShownSize = 4096;  // of a pair in a log line

// The start of the wanted pair, at its name; null when text has fewer.
const char *FindPair(const char *text, const char *pattern, int occurrence) {
  const char *from = text;
  for (int found = 1;; ++found) {
    const char *match = std::strstr(from, pattern);
    if (match == nullptr) {
      DPRINTF(nullptr, kStatus, "[Util: Search4Pair] cannot find Selection: %d of tag: '%s'\n",
              occurrence, pattern);
      return nullptr;
    }
    DPRINTF(nullptr, kInfo, "[Util: Search4Pair] Selection %d of %d for tag %s = %s\n", found,
            occurrence, pattern, match);
    from = match + 1;
    if (found == occurrence) return from;
  }
}

// Apart, so that a split that succeeds needs no room on the stack for it.
[[gnu::noinline]] void ReportNoDelimiter(std::string_view pair, char delimiter) {
  char shown[kShownSize + 1];
  (void)Text_Copy(shown, pair);
  DPRINTF(nullptr, kWarning, "[Util: SplitPair] delim '%c' not found in pair '%s'\n", delimiter,
          shown);
}

}  // namespace

int Util_Search4Pair(const char *text, char *out, int *len, const char *tag, int occurrence) {
  if (tag == nullptr || text == nullptr || out == nullptr || len == nullptr) return 0;
  if (occurrence <= 0) return 0;
  char pattern[kPatternSize + 1];
  if (!Text_FormatTo(pattern, sizeof pattern, "\t%s=", tag)) {
    DPRINTF(nullptr, kWarning, "[Util: Search4Pair] tag of %d characters is too long\n",
            static_cast<int>(std::strlen(tag)));
    return 0;
  }
  const char *pair = FindPair(text, pattern, occurrence);
  if (pair == nullptr) return 0;

  const char *end = std::strpbrk(pair, "\t\n\r");
  if (end == nullptr) {
    DPRINTF(nullptr, kWarning, "[Util: Search4Pair] cannot find end of fieldvalpair: %s\n", pair);
    return 0;
  }
  const std::string_view whole(pair, static_cast<std::size_t>(end - pair));
  if (*len < 0 || whole.size() > static_cast<std::size_t>(*len)) {
    DPRINTF(nullptr, kWarning, "[Util: Search4Pair] fieldvalpair overflow\n");
    return 0;
  }
  (void)Text_CopyTo(out, static_cast<std::size_t>(*len) + 1, whole);
  *len = static_cast<int>(whole.size());
  // Kept: the ordinal is one past the last search.
  DPRINTF(nullptr, kInfo, "[Util: Search4Pair] Selection %d of %d for tag %s yeilds %s\n",
          occurrence + 1, occurrence, tag, out);
  return 1;
}

bool Util_SplitView(std::string_view pair, std::string_view *name, std::string_view *value,
                    char delimiter) {
  const std::size_t at = pair.find(delimiter);
  if (at == std::string_view::npos) {
    ReportNoDelimiter(pair, delimiter);
    return false;
  }
  *name = pair.substr(0, at);
  *value = pair.substr(at + 1);
  return true;
}

int Util_SplitInto(std::string_view pair, char *name, std::size_t name_size, char *value,
                   std::size_t value_size, char delimiter) {
  std::string_view before, behind;
  if (!Util_SplitView(pair, &before, &behind, delimiter)) return 0;
  const bool name_fits = Text_CopyTo(name, name_size, before);
  const bool value_fits = Text_CopyTo(value, value_size, behind);
  if (name_fits && value_fits) return 1;
  DPRINTF(nullptr, kWarning, "[Util: SplitPair] pair of %d characters is too long: '%s' = '%s'\n",
          static_cast<int>(pair.size()), name, value);
  return 0;
}
