#include "docmgr/script.h"

#include <array>

#include "debug/log.h"
#include "debug/text.h"

namespace {

struct Word {
  std::string_view text;
  bool Script::*wish;
};

constexpr std::array<Word, 4> kWords = {{{"html", &Script::html},
                                         {"snippet", &Script::snippet},
                                         {"place", &Script::place},
                                         {"all", &Script::all}}};
constexpr std::string_view kMark = "mark:";

bool TakeWord(Script *script, std::string_view text) {
  for (const Word &word : kWords) {
    if (word.text != text) continue;
    script->*word.wish = true;
    return true;
  }
  if (!text.starts_with(kMark) || text.size() == kMark.size()) return false;
  script->marks.emplace_back(text.substr(kMark.size()));
  return true;
}

}  // namespace

Script Script_Read(std::string_view text) {
  Script script;
  for (std::string_view word = Text_Token(&text, " "); !word.empty(); word = Text_Token(&text, " "))
    if (!TakeWord(&script, word))
      DPRINTF(nullptr, kWarning, "[DocMgr: Script] There is no word '%s'\n",
              std::string(word).c_str());
  return script;
}
