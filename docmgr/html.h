// docmgr/html.h: text of anybody's as HTML, inside an element or a quoted attribute.
#ifndef DOCMGR_HTML_H
#define DOCMGR_HTML_H

#include <cstddef>
#include <string>
#include <string_view>

#include "docmgr/words.h"

// At most size bytes: the text with & < > " ' as entities and the marked words between <mark> and
// </mark>, cut where the next character or marked word does not fit whole.  The result is UTF-8: a
// byte that is none becomes the letter that it is in Latin-1, or U+FFFD where it is none there.
std::string Html_Text(std::string_view text, const Spans &marks, std::size_t size);

#endif
