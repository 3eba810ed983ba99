#include "searchmgr/stop_words.h"

#include <set>
#include <string>

#include "debug/text.h"

namespace {

// Articles, pronouns, conjunctions, prepositions and auxiliaries.
constexpr std::string_view kEnglish =
    "a about an and any are as at be been but by can could did do does for from had has have he her "
    "him his how i if in into is it its me my no nor not of on or our she should so than that the "
    "their them then there these they this those to us was we were what when where which who whom "
    "why will with would you your";
constexpr std::string_view kGerman =
    "aber als am an auch auf aus bei bin bist da dann das daß dass dein dem den der des die dir doch "
    "du durch ein eine einem einen einer eines er es euch für hat hatte ich ihm ihn ihr im in ist ja "
    "kein keine man mein mich mir mit nach nicht noch nur ob oder ohne sein sich sie sind so um und "
    "uns vom von vor war was weil wenn wer wie wir wird wo zu zum zur über";

class Words : public Xapian::Stopper {
 public:
  explicit Words(std::string_view list) {
    for (std::string_view word = Text_Token(&list, " "); !word.empty();
         word = Text_Token(&list, " "))
      words_.insert(word);
  }
  bool operator()(const std::string &word) const override { return words_.contains(word); }

 private:
  std::set<std::string_view> words_;
};

}  // namespace

const Xapian::Stopper *StopWords_Of(std::string_view language) {
  static const Words english(kEnglish), german(kGerman);
  if (language == "english" || language == "porter") return &english;
  if (language == "german" || language == "german2") return &german;
  return nullptr;
}
