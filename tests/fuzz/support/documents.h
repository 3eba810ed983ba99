// tests/fuzz/support/documents.h: what the indexer's readers make of an input.
#ifndef TESTS_FUZZ_SUPPORT_DOCUMENTS_H
#define TESTS_FUZZ_SUPPORT_DOCUMENTS_H

#include <string>
#include <vector>

#include "index/reader.h"
#include "tests/fuzz/support/fuzz.h"

struct Documents {
  std::vector<Fields> all;  // leaving faulty ones out
  std::string shown;        // each of them, and each fault
};

// Reads the part to its end, a segment at a time, and checks what holds for every format.
Documents Fuzz_ReadDocuments(Format format, const Part &part);

// The same, whole and cut otherwise, must give the same.
Documents Fuzz_ReadCut(Format format, const Part &part);

// Whether two readings gave the same documents.
bool Fuzz_SameDocuments(const std::vector<Fields> &a, const std::vector<Fields> &b);

#endif
