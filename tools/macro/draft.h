// tools/macro/draft.h: documents that are tried, each to show a finding.
#ifndef TOOLS_MACRO_DRAFT_H
#define TOOLS_MACRO_DRAFT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tools/macro/check.h"
#include "tools/macro/documents.h"

// For each place the value, or that it is left out.
struct Draft {
  std::vector<bool> has;
  std::vector<std::string> values;
  std::string fetched;  // what the values name; empty: it is not to be had
};

// A value of so many bytes, as far as the place has them and a document's name needs no more.
std::string Draft_Value(const Place &place, std::size_t size);

// All places, each with a value of so many bytes.
Draft Draft_Ample(const Documents &documents, std::size_t size);

std::string Draft_Written(const Documents &documents, const Draft &draft);

// The names that are looked up, each as often as a look-up wants it.
std::vector<std::string> Draft_Names(std::string_view code);

// A document that a value names: the names from that one on, with values that fill a page, or short
// ones, and then as large as one of this kind brings, or no larger.
std::string Draft_Named(const Documents &documents, const std::vector<std::string> &names,
                        std::size_t first, bool is_short);

// The same documents, each field of a fetch or an insert naming another.
Documents Draft_Referring(std::string_view code, Documents documents);

// The same documents, with values that begin as a name that holds "=" wants it; where several want
// one field, the one of that turn; in every other turn the last field of a name begins otherwise.
// False: no name holds "=".
bool Draft_Begin(std::string_view code, std::size_t turn, Documents *documents);

// Those that show most of what there is, the plainest first; and those for the rest.
std::vector<Draft> Draft_Simple(std::string_view code, const Documents &documents);
std::vector<Draft> Draft_Aimed(std::string_view code, const Documents &documents,
                               const std::vector<Finding> &findings);

#endif
