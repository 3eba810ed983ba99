// tests/scale/library.h: many documents that are the same in every run, and what is asked of them.
#ifndef TESTS_SCALE_LIBRARY_H
#define TESTS_SCALE_LIBRARY_H

#include <cstdint>
#include <string>
#include <vector>

inline constexpr int kLibraryDocuments = 100000;

// Words as rare as those of a language: the n-th is seen about 1/n as often as the first.
class Library {
 public:
  // A document in the control format; number from 0.
  std::string Document(int number) const;
  // Documents first, first + step, first + 2 * step ... in one text.
  std::string Documents(int first, int step) const;
  // Predicates: words, any of them, a phrase, a field.
  std::vector<std::string> Queries(int count) const;
};

// Numbers that look like chance, the same on every machine.
class Draw {
 public:
  explicit Draw(std::uint64_t seed) : state_(seed * 2862933555777941757ULL + 3037000493ULL) {}
  std::uint32_t Below(std::uint32_t limit);

 private:
  std::uint64_t state_;
};

#endif
