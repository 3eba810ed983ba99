#include "web/markup.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr std::size_t kMostOpen = 64, kNameSize = 16;

// Elements that have no end.
constexpr std::string_view kVoid[] = {"area",  "base", "br",   "col",    "embed", "hr", "img",
                                      "input", "link", "meta", "source", "track", "wbr"};
// Elements that the next of their kind ends.
constexpr std::string_view kSiblings[] = {"p", "li", "dt", "dd", "option", "tr", "td"};

template <std::size_t N>
bool IsOneOf(const std::string_view (&names)[N], std::string_view name) {
  return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

void StartElement(Markup *markup) {
  std::vector<std::string> &open = markup->open;
  if (markup->name.empty() || IsOneOf(kVoid, markup->name)) return;
  if (!open.empty() && open.back() == markup->name && IsOneOf(kSiblings, markup->name)) return;
  if (open.size() < kMostOpen) open.push_back(markup->name);
}

void EndElement(Markup *markup) {
  std::vector<std::string> &open = markup->open;
  const auto found = std::find(open.rbegin(), open.rend(), markup->name);
  if (found != open.rend())
    open.erase(found.base() - 1, open.end());
  else if (markup->stray.empty())
    markup->stray = markup->name;
}

void EndTag(Markup *markup) {
  markup->place = MarkupPlace::kText;
  if (markup->ends)
    EndElement(markup);
  else
    StartElement(markup);
}

void BeginTag(Markup *markup, char c) {
  markup->place = c == '!' ? MarkupPlace::kBang : MarkupPlace::kTag;
  markup->ends = c == '/';
  markup->named = c == '!' || c == '?';
  markup->name.clear();
  if (IsLetter(c)) markup->name = static_cast<char>(c | 0x20);
}

void InTag(Markup *markup, char c) {
  const bool part = IsLetter(c) || (c >= '0' && c <= '9') || c == '-';
  markup->named = markup->named || !part;
  if (c == '>') return EndTag(markup);
  if (c == '"') markup->place = MarkupPlace::kDouble;
  if (c == '\'') markup->place = MarkupPlace::kSingle;
  if (!markup->named && markup->name.size() < kNameSize)
    markup->name += static_cast<char>(c | 0x20);
}

// Behind "<!", where two dashes make a comment.
void InBang(Markup *markup, char c) {
  const bool second = markup->place == MarkupPlace::kBangDash;
  if (c == '-') {
    markup->place = second ? MarkupPlace::kComment : MarkupPlace::kBangDash;
    return;
  }
  markup->place = MarkupPlace::kTag;
  InTag(markup, c);
}

void InComment(Markup *markup, char c) {
  const bool dashes = markup->place == MarkupPlace::kCommentDashes;
  if (c == '>' && dashes)
    markup->place = MarkupPlace::kText;
  else if (c != '-')
    markup->place = MarkupPlace::kComment;
  else
    markup->place = markup->place == MarkupPlace::kComment ? MarkupPlace::kCommentDash
                                                           : MarkupPlace::kCommentDashes;
}

// In a text it is a "<".
void Take(Markup *markup, char c) {
  switch (markup->place) {
    case MarkupPlace::kText: markup->place = MarkupPlace::kLess; break;
    case MarkupPlace::kLess:
      if (IsLetter(c) || c == '/' || c == '!' || c == '?')
        BeginTag(markup, c);
      else if (c != '<')
        markup->place = MarkupPlace::kText;
      break;
    case MarkupPlace::kTag: InTag(markup, c); break;
    case MarkupPlace::kDouble:
      if (c == '"') markup->place = MarkupPlace::kTag;
      break;
    case MarkupPlace::kSingle:
      if (c == '\'') markup->place = MarkupPlace::kTag;
      break;
    case MarkupPlace::kBang:
    case MarkupPlace::kBangDash: InBang(markup, c); break;
    default: InComment(markup, c);
  }
}

// What ends the tag or the comment that is open.
std::string_view EndOf(MarkupPlace place) {
  switch (place) {
    case MarkupPlace::kText:
    case MarkupPlace::kLess: return "";
    case MarkupPlace::kDouble: return "\">";
    case MarkupPlace::kSingle: return "'>";
    case MarkupPlace::kTag:
    case MarkupPlace::kBang:
    case MarkupPlace::kBangDash: return ">";
    default: return "-->";
  }
}

}  // namespace

void Markup_Feed(Markup *markup, std::string_view html) {
  while (!html.empty()) {
    if (markup->place == MarkupPlace::kText)  // most of a page
      html.remove_prefix(std::min(html.find('<'), html.size()));
    if (html.empty()) return;
    Take(markup, html[0]);
    html.remove_prefix(1);
  }
}

std::string Markup_Close(const Markup &markup, std::string_view frame) {
  Markup page = markup, end;
  std::string text(EndOf(markup.place));
  Markup_Feed(&page, text);
  Markup_Feed(&end, frame);
  if (std::find(page.open.begin(), page.open.end(), end.stray) == page.open.end()) return text;
  for (; page.open.back() != end.stray; page.open.pop_back())
    text.append("</").append(page.open.back()).append(">");
  return text;
}
