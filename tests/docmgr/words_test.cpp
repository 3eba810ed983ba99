#include "docmgr/words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

// The text with its wanted words in brackets.
std::string Found(const std::string &language, const std::vector<std::string> &words,
                  const std::string &text, std::size_t size = SIZE_MAX) {
  std::string shown;
  std::size_t at = 0;
  for (const Span &span : Words_Find(Words_Wanted(language, words), text, size)) {
    shown += text.substr(at, span.begin - at) + "[" +
             text.substr(span.begin, span.end - span.begin) + "]";
    at = span.end;
  }
  return shown + text.substr(at);
}

// Letters, digits and what joins words, bad bytes among them, and much of what is likely to meet.
const std::vector<std::string> kPieces = {"a",
                                          "B",
                                          "c",
                                          "Ing",
                                          "s",
                                          "ed",
                                          "9",
                                          "0",
                                          "_",
                                          " ",
                                          " ",
                                          "'",
                                          "&",
                                          ".",
                                          ",",
                                          ";",
                                          ":",
                                          "-",
                                          "+",
                                          "#",
                                          "\xc3\xa4",
                                          "\xc3\x84",
                                          "\xe2\x80\x99",
                                          "\xe2\x80\x9b",
                                          "\xe2\x80\x8b",
                                          "\xef\xbb\xbf",
                                          "\xc2\xb7",
                                          "\xd7\xb4",
                                          "\xe2\x80\xa7",
                                          "\xcd\xbe",
                                          "\xe2\x81\x84",
                                          "\xd9\xa3",
                                          "\xd0\x96",
                                          "\xe4\xb8\xad",
                                          "\xcc\x81",
                                          "\xe4",
                                          "\xff",
                                          "\x80",
                                          "\xc3",
                                          "\xf0\x9f\x98\x80",
                                          "\xf0\x90\x90\x80",
                                          "\xc7\x85",
                                          "\xca\xb0"};

std::string RandomText(std::mt19937 *random) {
  std::string text;
  for (std::size_t count = (*random)() % 14; count > 0; --count)
    text += kPieces[(*random)() % kPieces.size()];
  if ((*random)() % 16 == 0) text += std::string(58 + (*random)() % 9, 'x');
  return text;
}

// What the indexer of Xapian has for a text, stems with their "Z".
std::vector<std::string> TermsOf(const std::string &text) {
  Xapian::Document document;
  Xapian::TermGenerator generator;
  generator.set_stemmer(Xapian::Stem("english"));
  generator.set_document(document);
  generator.index_text(text);
  return {document.termlist_begin(), document.termlist_end()};
}

}  // namespace

TEST(Words, AreFoundByTheirStem) {
  EXPECT_EQ(Found("english", {"shell", "interpret"}, "The shell's Interpreters, shellfish SHELLS"),
            "The [shell's] [Interpreters], shellfish [SHELLS]");
  EXPECT_EQ(Found("german", {"haus"}, "H\xc3\xa4user und Haus"), "[H\xc3\xa4user] und [Haus]");
}

TEST(Words, AreFoundAsTheyStand) {
  EXPECT_EQ(Found("english", {"Running"}, "running runs"), "[running] runs");
  EXPECT_EQ(Found("", {"shells"}, "Shells shell"), "[Shells] shell");
}

TEST(Words, AreThoseOfTheIndex) {
  EXPECT_EQ(Found("english", {"c++", "at&t", "un", "1.5", "it"}, "C++ AT&T U.N. 1.5 it's"),
            "[C++] [AT&T] [U.N.] [1.5] [it's]");
  EXPECT_EQ(Found("", {"c", "at", "u", "5", "it"}, "C++ AT&T U.N. 1.5 it's"),
            "C++ AT&T U.N. 1.5 it's");
  EXPECT_EQ(Found("", {"b\xc3\xa4r"}, "B\xe4r b\xc3\xa4r"), "[B\xe4r] [b\xc3\xa4r]");
}

TEST(Words, ThatBeginWithADigitHaveNoStem) {
  EXPECT_EQ(Found("english", {"9shell"}, "9shells 9shell"), "9shells [9shell]");
}

TEST(Words, StopsWhereItIsTold) {
  EXPECT_EQ(Found("", {"ab"}, "ab ab ab", 3), "[ab] ab ab");
  EXPECT_EQ(Found("", {"ab"}, "ab ab ab", 4), "[ab] [ab] ab");
  EXPECT_EQ(Words_Find(Words_Wanted("", {"ab"}), "ab ab ab", SIZE_MAX, 2).size(), 2u);
}

TEST(Words, NothingWantedIsNothingFound) {
  EXPECT_EQ(Found("english", {}, "ab"), "ab");
  EXPECT_EQ(Found("english", {""}, "ab - "), "ab - ");
}

// Each term of a text is found in it, and what is found are its terms.
TEST(Words, OfRandomTextsAreXapians) {
  std::mt19937 random(1);
  for (int i = 0; i < 20000; ++i) {
    const std::string text = RandomText(&random);
    std::vector<std::string> again;
    for (const std::string &term : TermsOf(text)) {
      const bool stem = term.front() == 'Z';
      const Wanted wanted =
          stem ? Words_Wanted("english", {term.substr(1)}) : Words_Wanted("", {term});
      const Spans spans = Words_Find(wanted, text, SIZE_MAX);
      ASSERT_FALSE(spans.empty()) << "'" << text << "' has " << term;
      for (const Span &span : spans)
        for (const std::string &word : TermsOf(text.substr(span.begin, span.end - span.begin)))
          if (stem == (word.front() == 'Z')) again.push_back(word);
    }
    std::sort(again.begin(), again.end());
    again.erase(std::unique(again.begin(), again.end()), again.end());
    ASSERT_EQ(again, TermsOf(text)) << "'" << text << "'";
  }
}
