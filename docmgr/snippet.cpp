#include "docmgr/snippet.h"

#include <algorithm>
#include <array>

#include "store/field.h"

namespace {

constexpr std::string_view kOmission = "...";
constexpr std::size_t kWindowSize = 8192;  // what Xapian looks at, 80 ns a byte
constexpr std::size_t kBefore = 1024;      // of it in front of the first word
constexpr std::size_t kLongWord = 64;

// The start of text, cut between two words where they are not too long for that.
std::string_view CutBetweenWords(std::string_view text, std::size_t size) {
  if (text.size() <= size) return text;
  const std::string_view cut = Field_Cut(text, size);
  const std::size_t blank = cut.find_last_of(' ');
  return blank == std::string_view::npos || cut.size() - blank > kLongWord ? cut
                                                                           : cut.substr(0, blank);
}

std::string StartOf(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  const std::string_view start = CutBetweenWords(text, kSnippetSize);
  return std::string(start).append(start.size() < text.size() ? kOmission : "");
}

// The part of text around its first wanted word that is worth a closer look.
Span WindowOf(std::string_view text, std::size_t first) {
  std::size_t begin = first > kBefore ? text.find(' ', first - kBefore) : 0;
  if (begin > first) begin = first;
  return {begin, begin + CutBetweenWords(text.substr(begin), kWindowSize).size()};
}

// Xapian's snippets are HTML, and here whoever shows a value decides that.  It promises no list of
// what it escapes; "&" is, so what was in the text stays apart.
struct Entity {
  std::string_view name;
  char meaning;
};

constexpr std::array<Entity, 4> kEntities = {
    {{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}}};

char TakeCharacter(std::string_view *html) {
  for (const Entity &entity : kEntities) {
    if (!html->starts_with(entity.name)) continue;
    html->remove_prefix(entity.name.size());
    return entity.meaning;
  }
  const char c = html->front();
  html->remove_prefix(1);
  return c;
}

std::string AsText(std::string_view html) {
  std::string text;
  while (!html.empty()) text += TakeCharacter(&html);
  return text;
}

// A match in no document at all: the words alone choose the passage, all of the same weight.
Xapian::MSet MatchOf(const Wanted &wanted) {
  static const Xapian::Database nothing =
      Xapian::WritableDatabase(std::string(), Xapian::DB_BACKEND_INMEMORY);
  std::vector<std::string> terms = wanted.words;
  for (const std::string &word : wanted.words) terms.push_back('Z' + word);
  Xapian::Enquire enquire(nothing);
  enquire.set_query(Xapian::Query(Xapian::Query::OP_OR, terms.begin(), terms.end()));
  return enquire.get_mset(0, 0);
}

std::string PassageOf(std::string_view text, const Wanted &wanted) {
  if (text.size() <= kSnippetSize) return std::string(text);  // Xapian would not escape it
  return AsText(MatchOf(wanted).snippet(std::string(text), kSnippetSize, wanted.stem,
                                        Xapian::MSet::SNIPPET_EXHAUSTIVE, "", "",
                                        std::string(kOmission)));
}

std::string_view WithoutOmissions(std::string_view passage) {
  if (passage.starts_with(kOmission)) passage.remove_prefix(kOmission.size());
  if (passage.ends_with(kOmission)) passage.remove_suffix(kOmission.size());
  return passage;
}

}  // namespace

std::string Snippet_Of(std::string_view text, const Wanted &wanted) {
  if (text.size() <= kSnippetSize) return std::string(text);
  const Spans first = Words_Find(wanted, text, kSnippetReach, 1);
  if (first.empty()) return StartOf(text);
  const Span window = WindowOf(text, first.front().begin);
  const std::string_view looked_at = text.substr(window.begin, window.end - window.begin);
  std::string passage = PassageOf(looked_at, wanted);
  // Where the window ends the text goes on.
  const std::string_view shown = WithoutOmissions(passage);
  const bool from_start = looked_at.starts_with(shown.substr(0, kLongWord));
  const bool to_end =
      looked_at.ends_with(shown.substr(shown.size() - std::min(shown.size(), kLongWord)));
  if (to_end && window.end < text.size() && !passage.ends_with(kOmission)) passage += kOmission;
  if (from_start && window.begin > 0 && !passage.starts_with(kOmission))
    passage.insert(0, kOmission);
  return passage;
}
