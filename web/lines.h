// web/lines.h: files of lines NAME VALUE, as the configuration and the texts are.
//
// Blanks and tabs part the name from the value, which goes to the end of the line; "#" at the start
// of a line makes a comment.
#ifndef WEB_LINES_H
#define WEB_LINES_H

#include <functional>
#include <string>
#include <string_view>

// What is wrong with a line, or nothing.
using LineFn = std::function<std::string(std::string_view name, std::string_view value)>;

// Gives each line to take until one is wrong.  False: *wrong names the file, the line and the
// reason.
bool Lines_Read(const std::string &path, const LineFn &take, std::string *wrong);

// The text without the blanks and tabs around it.
std::string_view Lines_Trim(std::string_view text);

// The first word of the text, which is taken off it with the blanks behind it.
std::string_view Lines_Word(std::string_view *text);

#endif
