#include "web/html.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr std::string_view kPlain =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
struct Entity {
  char character;
  std::string_view html;
};

constexpr Entity kEntities[] = {
    {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"}};

constexpr char kDigits[] = "0123456789ABCDEF";

int Digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// The byte of an escape at the start of the text, or -1.
int Escaped(std::string_view text) {
  if (text.size() < 3 || text[0] != '%') return -1;
  const int high = Digit(text[1]), low = Digit(text[2]);
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

unsigned Byte(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
}

// The bytes of the character at the start of a text, or 0 where none is.
std::size_t CharacterSize(std::string_view text) {
  const unsigned first = Byte(text, 0);
  if (first < 0x80) return 1;
  const std::size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4) return 0;
  for (std::size_t at = 1; at < size; ++at)
    if ((Byte(text, at) & 0xc0) != 0x80) return 0;
  const unsigned second = Byte(text, 1);
  if (first == 0xe0 && second < 0xa0) return 0;  // a shorter form exists
  if (first == 0xed && second > 0x9f) return 0;  // half of a pair of UTF-16
  if (first == 0xf0 && second < 0x90) return 0;
  return first == 0xf4 && second > 0x8f ? 0 : size;
}

// Of one byte, or one of those that UTF-8 writes in two.
bool IsControl(std::string_view character) {
  const unsigned first = Byte(character, 0);
  return first < 0x20 || first == 0x7f || (first == 0xc2 && Byte(character, 1) < 0xa0);
}

}  // namespace

std::string Html_Escape(std::string_view text) {
  std::string html;
  for (const char c : text) {
    const auto *known = std::find_if(std::begin(kEntities), std::end(kEntities),
                                     [c](const Entity &entity) { return entity.character == c; });
    if (known == std::end(kEntities))
      html += c;
    else
      html += known->html;
  }
  return html;
}

std::string Html_Unescape(std::string_view html) {
  std::string text;
  while (!html.empty()) {
    const auto *known =
        std::find_if(std::begin(kEntities), std::end(kEntities),
                     [html](const Entity &entity) { return html.starts_with(entity.html); });
    const bool is_entity = known != std::end(kEntities);
    text += is_entity ? known->character : html[0];
    html.remove_prefix(is_entity ? known->html.size() : 1);
  }
  return text;
}

std::string Html_UrlEncode(std::string_view text) {
  std::string url;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (kPlain.find(c) != std::string_view::npos)
      url += c;
    else
      url.append("%").append({kDigits[byte >> 4], kDigits[byte & 15]});
  }
  return url;
}

std::string Html_UrlDecode(std::string_view text, bool plus) {
  std::string bytes;
  while (!text.empty()) {
    const int byte = Escaped(text);
    bytes += byte >= 0 ? static_cast<char>(byte) : plus && text[0] == '+' ? ' ' : text[0];
    text.remove_prefix(byte >= 0 ? 3 : 1);
  }
  return bytes;
}

std::string Html_Clean(std::string_view text) {
  std::string clean;
  while (!text.empty()) {
    const std::size_t size = CharacterSize(text);
    const std::string_view character = text.substr(0, size);
    if (size == 0)
      clean += "\xef\xbf\xbd";
    else if (IsControl(character))
      clean += ' ';
    else
      clean += character;
    text.remove_prefix(size == 0 ? 1 : size);
  }
  return clean;
}
