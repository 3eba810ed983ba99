// debug/text.h: bounded text in fixed arrays, and the one reader of decimal numbers.
//
// Every fixed field of a record and every work buffer is filled through these helpers.  They always
// terminate what they write; the result says whether the text fitted, and the caller refuses or
// cuts.
#ifndef DEBUG_TEXT_H
#define DEBUG_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string_view>

// Copies at most size - 1 bytes of src and a terminator; size is that of dst, at least 1.  False:
// cut.
[[nodiscard]] bool Text_CopyTo(char *dst, std::size_t size, std::string_view src);

// Formats as snprintf does; what has %s, %d and %ld alone at a fraction of the cost for a new
// process.  False: the text was cut to size - 1 bytes.
[[nodiscard, gnu::format(printf, 3, 4)]] bool Text_FormatTo(char *dst, std::size_t size,
                                                            const char *format, ...);

template <std::size_t N>
[[nodiscard]] bool Text_Copy(char (&dst)[N], std::string_view src) {
  return Text_CopyTo(dst, N, src);
}

// The length of a terminated text; 0 for null.
int Text_Length(const char *text);

// The decimal number at the start of text as a strtol of 32 bits reads it: white space and a sign
// are accepted, reading stops at the first non-digit, no digits give 0, and a value out of range
// gives INT32_MIN or INT32_MAX.  Both word sizes agree.
std::int32_t Text_ToInt32(std::string_view text);

// The same number as a port: its low 16 bits, signed, so 32768 to 65535 read as negative.
std::int16_t Text_ToPort(std::string_view text);

// Takes the next token off *rest, leading separators skipped.  Empty: no token is left.
std::string_view Text_Token(std::string_view *rest, std::string_view separators);

#endif
