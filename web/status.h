// web/status.h: what the Search Manager tells about a search.
#ifndef WEB_STATUS_H
#define WEB_STATUS_H

#include <cstdint>
#include <string>
#include <string_view>

inline constexpr std::int32_t kStatusMostHits = 10000;  // a Search Manager gives no hit behind it

struct PageStatus {
  std::int32_t matches;
  bool exact;  // matches is no estimate
  std::int32_t first, shown;
  std::int32_t searched, shards;
  std::string spelling;  // empty: nothing better is known
};

// Reads the comment of a line, from its "<!--korvo " to its "-->".  False: it is another comment.
bool Status_Read(std::string_view comment, PageStatus *status);

#endif
