// tests/fuzz/support/fuzz.h: what every fuzz target is made of.
//
// A target defines Fuzz_Run.  The driver runs every input twice, with the log at INFO and at
// WARNING, and both runs must show the same.  With KORVO_FUZZ_SHOW in the environment that goes to
// standard output, for a look at a seed, or to compare the builds of two word sizes.
//
// An input is text as far as it can be, so that seeds are written by hand and a dictionary helps.
// Four bytes do not stand for themselves:
//
//   0xfc      a part of the input ends
//   0xff      a segment of the part ends: what the other side of a connection sends at once
//   0xfe n    the byte before it, 64 * n times more
//   0xfd b    the byte b, whatever it is
#ifndef TESTS_FUZZ_SUPPORT_FUZZ_H
#define TESTS_FUZZ_SUPPORT_FUZZ_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

struct Part {
  std::vector<std::string> segments;

  std::string Whole() const;  // the segments, joined
};

struct Input {
  std::vector<Part> parts;

  const Part &operator[](std::size_t index) const;  // an empty part behind the last
};

// Carries the input out, checks what must hold, and returns all that can be seen of it.
std::string Fuzz_Run(const Input &input);

// Sees each message of the log, terminated, where a target sets it.
extern void (*Fuzz_OnMessage)(const char *text);

// The words of a message, behind its separator and header.
std::string_view Fuzz_Words(const char *text);

// The unsigned number in the size bytes of text at offset, little-endian; fallback where text is
// shorter.
int Fuzz_Number(std::string_view text, std::size_t offset, std::size_t size, int fallback);

// Bytes on the heap and no more, so that the sanitizer sees the first step too far.
using Bytes = std::vector<char>;
Bytes Fuzz_Terminated(std::string_view text);

// What text is as a C string.
std::string Fuzz_UpToNul(std::string_view text);

template <std::size_t N>
bool Fuzz_IsTerminated(const char (&field)[N]) {
  return std::string_view(field, N).find('\0') != std::string_view::npos;
}

[[noreturn]] void Fuzz_Fail(const char *what, const char *file, int line);

#define FUZZ_CHECK(condition) \
  ((condition) ? static_cast<void>(0) : Fuzz_Fail(#condition, __FILE__, __LINE__))

#endif
