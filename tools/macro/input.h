// tools/macro/input.h: documents out of files, as the service would get them.
#ifndef TOOLS_MACRO_INPUT_H
#define TOOLS_MACRO_INPUT_H

#include <string>
#include <string_view>
#include <vector>

// Appends the documents of a text: control format, JSON Lines where it begins with "{", or a line a
// document where it begins with a tab.  Each is written with a tab behind its last field, unless it
// is such a line, which stays as it is.  Empty, or what is wrong and on which line.
std::string Input_Read(std::string_view text, std::vector<std::string> *documents);

// One line of JSON Lines.  Empty, or what is wrong.
std::string Input_ReadJson(std::string_view line, std::string *document);

#endif
