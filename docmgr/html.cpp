#include "docmgr/html.h"

#include "docmgr/character.h"

namespace {

constexpr unsigned kReplacement = 0xfffd;

// Empty: the character stands for itself.
std::string_view Entity(unsigned code) {
  switch (code) {
    case '&': return "&amp;";
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '"': return "&quot;";
    case '\'': return "&#39;";
    default: return {};
  }
}

// What no text of anybody's has: half of a surrogate pair, and the control characters that Latin-1
// has at 0x80 to 0x9f.
bool IsReplaced(const Character &character) {
  if (character.size == 1) return character.code >= 0x80 && character.code < 0xa0;
  return character.code >= 0xd800 && character.code <= 0xdfff;
}

// Appends the character at that place and returns the bytes that it took of text.
std::size_t AppendCharacter(std::string *html, std::string_view text, std::size_t at) {
  const Character character = Character_At(text, at);
  const std::string_view entity = Entity(character.code);
  if (!entity.empty())
    html->append(entity);
  else if (character.code < 0x80)
    html->push_back(static_cast<char>(character.code));
  else
    Xapian::Unicode::append_utf8(*html, IsReplaced(character) ? kReplacement : character.code);
  return character.size;
}

void AppendMarked(std::string *html, std::string_view word) {
  html->append("<mark>");
  for (std::size_t at = 0; at < word.size();) at += AppendCharacter(html, word, at);
  html->append("</mark>");
}

}  // namespace

std::string Html_Text(std::string_view text, const Spans &marks, std::size_t size) {
  std::string html;
  auto mark = marks.begin();
  for (std::size_t at = 0, fits = 0; at < text.size(); fits = html.size()) {
    if (mark != marks.end() && mark->begin == at) {
      AppendMarked(&html, text.substr(at, mark->end - at));
      at = mark++->end;
    } else {
      at += AppendCharacter(&html, text, at);
    }
    if (html.size() <= size) continue;
    html.resize(fits);
    break;
  }
  return html;
}
