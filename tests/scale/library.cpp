#include "tests/scale/library.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr std::uint32_t kWords = 20000;
constexpr int kTitle = 6, kBody = 40;

// Syllables, so that no word is the beginning of another.
std::string Word(std::uint32_t number) {
  constexpr const char *kSyllables[] = {"ba", "de", "fi", "go", "hu", "ka", "le", "mi",
                                        "no", "pu", "ra", "se", "ti", "vo", "zu", "xa"};
  std::string word;
  for (int i = 0; i < 4; ++i, number /= 16) word += kSyllables[number % 16];
  return word;
}

std::uint32_t DrawWord(Draw *draw) {
  const double x = draw->Below(1000000) / 1000000.0;
  return static_cast<std::uint32_t>(std::pow(kWords, x)) - 1;
}

std::string Text(Draw *draw, int words) {
  std::string text;
  for (int i = 0; i < words; ++i) text.append(i == 0 ? "" : " ").append(Word(DrawWord(draw)));
  return text;
}

}  // namespace

std::uint32_t Draw::Below(std::uint32_t limit) {
  state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
  return static_cast<std::uint32_t>((state_ >> 33) % limit);
}

std::string Library::Document(int number) const {
  Draw draw(static_cast<std::uint64_t>(number) + 1);
  std::string document = "Id: d" + std::to_string(number) + "\n";
  document.append("Title: ").append(Text(&draw, kTitle));
  return document.append("\nBody: ").append(Text(&draw, kBody)).append("\n\n");
}

std::string Library::Documents(int first, int step) const {
  std::string text;
  for (int i = first; i < kLibraryDocuments; i += step) text += Document(i);
  return text;
}

std::vector<std::string> Library::Queries(int count) const {
  Draw draw(4711);
  std::vector<std::string> queries;
  for (int i = 0; i < count; ++i) switch (i % 5) {
      case 0: queries.push_back("\t" + Text(&draw, 1)); break;
      case 1: queries.push_back("\t" + Text(&draw, 2)); break;
      case 2: queries.push_back("\t@OPER=OR\t" + Text(&draw, 3)); break;
      case 3: queries.push_back("\tTitle=" + Text(&draw, 1)); break;
      default: {
        // Two words that stand together somewhere.
        const std::string document =
            Document(static_cast<int>(draw.Below(static_cast<std::uint32_t>(kLibraryDocuments))));
        const std::size_t body = document.find("Body: ") + 6;
        queries.push_back("\t\"" + document.substr(body, 17) + "\"");
      }
    }
  return queries;
}
