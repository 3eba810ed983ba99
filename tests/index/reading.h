// tests/index/reading.h: readers over texts.
#ifndef TESTS_INDEX_READING_H
#define TESTS_INDEX_READING_H

#include <cstdint>
#include <string>

#include "index/reader.h"

// Gives the bytes of a text in pieces of at most that many.
Lines LinesOf(std::string text, std::size_t piece = 7);

struct ReadOutcome {
  ReadResult result;
  std::int64_t line;
  std::string fields;    // NAME=[value] of each
  std::string expected;  // of a fault
};

// Reads count documents and tells of the last.
ReadOutcome ReadNth(Format format, const std::string &text, int count = 1);

// The fault that reading the text for the count-th time ends with: LINE: WHAT WAS EXPECTED.
std::string FaultOf(Format format, const std::string &text, int count = 1);

#endif
