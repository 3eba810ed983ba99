// tests/macro/file_seams.h: memory and file calls of the program that a case makes fail.
#ifndef TESTS_MACRO_FILE_SEAMS_H
#define TESTS_MACRO_FILE_SEAMS_H

#include <cstddef>
#include <string>

struct FileSeams {
  // The errno of the next call, which then fails; 0: it passes through.
  int fail_malloc, fail_calloc, fail_stat, fail_open;

  std::size_t malloc_size;  // of the last malloc()
  std::string opened;       // path of the last open()

  // stat() and open() find a file below `from` below `to` instead; empty: everything where it is.
  std::string from, to;
};

extern FileSeams &file_seams;

#endif
