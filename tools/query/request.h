// tools/query/request.h: the line that asks the service for a page.
#ifndef TOOLS_QUERY_REQUEST_H
#define TOOLS_QUERY_REQUEST_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

inline constexpr std::size_t kRequestSize = 4095;  // of a line, without its newline

struct Request {
  std::string group;
  std::string macro;
  std::string type;            // empty: not sent
  std::int32_t max_hits = -1;  // below 0: not sent
  std::int32_t doc = -1;       // below 0: a QUERY, otherwise a GETDOC
  std::vector<std::string> headers;  // further fields of the header, NAME=VALUE
  std::vector<std::string> predicate;
};

// Writes the line, newline included.  False: *wrong says why no line can carry the request, and
// what would be right.  Words of free text that follow each other become one token, NAME=terms one
// of its own; no value can begin a field.
bool Request_Format(const Request &request, std::string *line, std::string *wrong);

#endif
