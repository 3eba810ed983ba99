// searchmgr/request.h: what a QUERY asks for beside its text.
//
// The wishes stand in the header of the line.  Whoever passes the line on skips those that it does
// not know, so that only a Search Manager reads them.
#ifndef SEARCHMGR_REQUEST_H
#define SEARCHMGR_REQUEST_H

#include <xapian.h>

#include <cstdint>
#include <string>

#include "protocol/cmd_hdr.h"
#include "store/schema.h"

inline constexpr std::int32_t kRequestDefaultHits = 100;  // each hit costs its reader a fetch
inline constexpr std::int32_t kRequestMostHits = 10000;   // bounds the memory of one answer
inline constexpr std::int32_t kRequestDefaultDeadline = 5000;
inline constexpr std::int32_t kRequestLongestDeadline = 600000;

struct SearchRequest {
  std::int32_t first_hit = 0;                       // FIRSTHIT: hits to skip
  std::int32_t hits = kRequestDefaultHits;          // MAXHITS: hits of the page
  std::int32_t deadline = kRequestDefaultDeadline;  // DEADLINE: milliseconds for the whole search
  std::int32_t best_fit = 0;     // BESTFIT: per cent of the best weight that a hit must have
  std::int32_t status = 0;       // STATUS: 1, a first record tells about the search
  std::string sort;              // SORT: a field; empty, by relevance
  bool sort_descending = false;  // "-" stood before its name
};

// Fills request from a line and from its header, as Util_IntCmdHdr has read it.  first_hit and hits
// together are at most kRequestMostHits.  Null, or the plain reason why it cannot be.
//
// A field that stands there twice counts the last time; an empty one is the same as none.
const char *Request_Read(const CmdHdr &hdr, const char *text, SearchRequest *request);

// The value slot that the hits are sorted by.  Empty, or the plain reason why they cannot be; only
// for a request with a field to sort by.
std::string Request_SortSlot(const SearchRequest &request, const Schema &schema,
                             Xapian::valueno *slot);

#endif
