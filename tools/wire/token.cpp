#include "tools/wire/token.h"

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

bool IsWordByte(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
         c == '_' || c == '.' || c == '/';
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Takes an escape, whose backslash has been taken, off *rest.
bool TakeEscape(std::string_view *rest, std::string *text) {
  const char c = rest->empty() ? '\0' : (*rest)[0];
  if (c == 'x' && rest->size() >= 3 && HexDigit((*rest)[1]) >= 0 && HexDigit((*rest)[2]) >= 0) {
    *text += static_cast<char>(HexDigit((*rest)[1]) * 16 + HexDigit((*rest)[2]));
    rest->remove_prefix(3);
    return true;
  }
  switch (c) {
    case 't': *text += '\t'; break;
    case 'n': *text += '\n'; break;
    case 'r': *text += '\r'; break;
    case '"':
    case '\\': *text += c; break;
    default: return false;
  }
  rest->remove_prefix(1);
  return true;
}

// Takes a text in quotes off *rest; false with what is wrong with it.
bool TakeLiteral(std::string_view *rest, std::string *text, std::string *why) {
  rest->remove_prefix(1);
  while (!rest->empty() && (*rest)[0] != '"') {
    const char c = (*rest)[0];
    rest->remove_prefix(1);
    if (c != '\\')
      *text += c;
    else if (!TakeEscape(rest, text)) {
      *why = "an escape is \\t, \\n, \\r, \\\", \\\\ or \\x and two hexadecimal digits";
      return false;
    }
  }
  if (rest->empty()) {
    *why = "a text has no second quote on its line";
    return false;
  }
  rest->remove_prefix(1);
  return true;
}

}  // namespace

bool Token_TakeLine(std::string_view rest, int line, std::vector<Token> *tokens, std::string *why) {
  while (!rest.empty()) {
    Token token = {TokenKind::kWord, "", line};
    if (IsBlank(rest[0])) {
      rest.remove_prefix(1);
      continue;
    }
    if (rest[0] == '#') return true;
    if (rest[0] == '"') {
      token.kind = TokenKind::kText;
      if (!TakeLiteral(&rest, &token.text, why)) return false;
    } else if (IsWordByte(rest[0])) {
      for (; !rest.empty() && IsWordByte(rest[0]); rest.remove_prefix(1)) token.text += rest[0];
    } else {
      token.kind = TokenKind::kSign;
      token.text = rest[0];
      rest.remove_prefix(1);
    }
    tokens->push_back(token);
  }
  return true;
}

std::string_view Token_Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}
