// web/html.h: text as HTML and as a part of an address.
#ifndef WEB_HTML_H
#define WEB_HTML_H

#include <string>
#include <string_view>

// For the inside of an element or of a quoted attribute.
std::string Html_Escape(std::string_view text);

// The text that Html_Escape, or a Document Manager, has made that HTML of.
std::string Html_Unescape(std::string_view html);

// For the value of a query string.
std::string Html_UrlEncode(std::string_view text);

// The bytes that percent signs stand for; one that is no escape stands for itself, and with plus so
// does '+' for a blank.
std::string Html_UrlDecode(std::string_view text, bool plus);

// UTF-8 without control characters: those are blanks, and a byte that is no UTF-8 is U+FFFD.
std::string Html_Clean(std::string_view text);

#endif
