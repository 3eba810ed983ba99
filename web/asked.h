// web/asked.h: what a browser asks for, and the line that asks the daemon for it.
#ifndef WEB_ASKED_H
#define WEB_ASKED_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "web/conf.h"

inline constexpr std::size_t kAskedLine = 4095;  // of the daemon, without its newline

enum class Route { kNone, kFront, kSearch, kDocument, kOpenSearch, kMetrics, kHealth, kStatic };

inline constexpr std::size_t kRoutes = 8;

struct Asked {
  Route route = Route::kNone;
  std::string text;    // what a person has typed
  std::string group;   // that is searched
  std::string keeper;  // of a document: the id of its Document Manager
  std::int32_t page = 1;
  std::string sort;                                         // empty: by relevance
  std::vector<std::pair<std::string, std::string>> fields;  // of the form, none of them empty
  std::int32_t number = -1;                                 // of a document
  std::string type;                                         // of its record
  std::string file;                                         // below /static/
};

// Reads the target of a request line.  Every text is UTF-8 without control characters, so that none
// of it begins a field or ends a line of the daemon's.  What has no meaning is left out.
Asked Asked_Read(std::string_view target);

// The name of a route, as the log and the measures have it.
const char *Asked_Name(Route route);

// There is something to search for.
bool Asked_HasQuery(const Asked &asked);

// The line for the daemon, newline included; deadline is that of the search, in milliseconds.
// False: it would be too long.
bool Asked_Line(const Asked &asked, const WebGroup &group, const WebConf &conf,
                std::int32_t deadline, std::string *line);

// The address of the same search with another page and order; no HTML yet.
std::string Asked_Link(const Asked &asked, std::int32_t page, std::string_view sort);

#endif
