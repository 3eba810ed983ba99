// searchmgr/status.h: what a page can say of a search beside its hits.
#ifndef SEARCHMGR_STATUS_H
#define SEARCHMGR_STATUS_H

#include <cstdint>
#include <string>

struct SearchStatus {
  std::uint64_t matches;
  bool exact;           // matches is a count and no estimate
  std::uint64_t first;  // the ordinal of the first hit shown, from 1
  std::uint64_t shown;
  int shards_searched, shards;
  std::int64_t milliseconds;
  std::string spelling;  // empty: none
};

// The record: a comment of HTML that the daemon sends on as it stands.
std::string Status_Record(const SearchStatus &status);

// Every byte but letters, digits, "-", "." and "_" as "%" and two hexadecimal digits (RFC 3986),
// and no two hyphens behind each other, so that no text of a user can end a comment.
std::string Status_Encode(const std::string &text);

#endif
