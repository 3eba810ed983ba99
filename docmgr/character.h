// docmgr/character.h: one character of a text that may be no UTF-8.
#ifndef DOCMGR_CHARACTER_H
#define DOCMGR_CHARACTER_H

#include <xapian.h>

#include <cstddef>
#include <string_view>

struct Character {
  unsigned code;
  std::size_t size;  // bytes that it takes
};

// The character at that place; no byte at the end of the text.  As in the index a byte that begins
// none is one by itself, that of Latin-1.
inline Character Character_At(std::string_view text, std::size_t at) {
  if (at >= text.size()) return {0, 0};
  const auto first = static_cast<unsigned char>(text[at]);
  if (first < 0x80) return {first, 1};
  const std::size_t left = text.size() - at;
  Xapian::Utf8Iterator next(text.data() + at, left);
  const unsigned code = *next;
  ++next;
  return {code, left - next.left()};
}

#endif
