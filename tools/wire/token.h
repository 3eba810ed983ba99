// tools/wire/token.h: the lines of a transcript as words, texts and signs.
#ifndef TOOLS_WIRE_TOKEN_H
#define TOOLS_WIRE_TOKEN_H

#include <string>
#include <string_view>
#include <vector>

enum class TokenKind { kWord, kText, kSign, kEnd };

struct Token {
  TokenKind kind = TokenKind::kEnd;
  std::string text;
  int line = 0;
};

// Appends the tokens of one line of a file, up to a comment; false with what is wrong with it.
bool Token_TakeLine(std::string_view rest, int line, std::vector<Token> *tokens, std::string *why);

// Without the blanks at both ends.
std::string_view Token_Trim(std::string_view text);

#endif
