// web/texts.h: the sentences of the pages, which a site can translate.
#ifndef WEB_TEXTS_H
#define WEB_TEXTS_H

#include <array>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "web/trouble.h"

enum class TextName {
  kThousands,
  kAbout,
  kExactly,
  kOne,
  kNothing,
  kBehind,
  kTry,
  kSpelling,
  kPages,
  kPrevious,
  kNext,
  kSort,
  kRelevance,
  kGroups,
  kIncomplete,
};

inline constexpr int kTextNames = 15;

struct Texts {
  std::array<std::string, kTextNames> texts;
  std::array<std::string, kTroubles> troubles;  // that of none is empty

  const std::string &operator[](TextName name) const {
    return texts[static_cast<std::size_t>(name)];
  }
  const std::string &operator[](Trouble name) const {
    return troubles[static_cast<std::size_t>(name)];
  }
};

// False: *wrong is one line that names the file and the reason.  A file has every text.
bool Texts_Read(const std::string &path, Texts *texts, std::string *wrong);

// The text with each {NAME} replaced by its value.
std::string Texts_Fill(std::string_view text,
                       std::initializer_list<std::pair<std::string_view, std::string>> values);

// 1,234
std::string Texts_Count(const Texts &texts, int number);

#endif
