// tools/query/answer.h: what the service sends back, piece by piece as it arrives.
#ifndef TOOLS_QUERY_ANSWER_H
#define TOOLS_QUERY_ANSWER_H

#include <cstddef>
#include <string>
#include <string_view>

struct Answer {
  std::size_t size = 0;    // bytes so far
  bool error = false;      // an error line is among them
  char last = '\n';        // byte
  std::string unfinished;  // the beginning of an error line, perhaps
};

// Counts the bytes in.  An error of the service may stand right behind other text, without a line
// of its own, so it is looked for everywhere.
void Answer_Add(Answer *answer, std::string_view bytes);

// The bytes for a terminal: control characters other than tab and newline as \xHH.  last is the
// byte before.
std::string Answer_Readable(std::string_view bytes, char last);

#endif
