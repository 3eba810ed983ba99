// docmgr/snippet.h: the passage of a text that shows why a search found it.
#ifndef DOCMGR_SNIPPET_H
#define DOCMGR_SNIPPET_H

#include <cstddef>
#include <string>
#include <string_view>

#include "docmgr/words.h"

// Bytes of a passage, more or less; a text that is no longer is its own passage.
inline constexpr std::size_t kSnippetSize = 300;

// Bytes of a text in which a passage is looked for: a text can be a whole book.
inline constexpr std::size_t kSnippetReach = 65536;

// The best passage for the wanted words, or the start of the text if none of them is there. "..."
// stands for what was left out in front of it and behind it.
std::string Snippet_Of(std::string_view text, const Wanted &wanted);

#endif
