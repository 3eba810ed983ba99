#include "web/texts.h"

#include "web/lines.h"

namespace {

constexpr const char *kNames[kTextNames] = {
    "thousands", "about",    "exactly", "one",  "nothing",   "behind", "try",       "spelling",
    "pages",     "previous", "next",    "sort", "relevance", "groups", "incomplete"};

std::string Take(std::string_view name, std::string_view value, Texts *texts) {
  if (value.empty()) return "text " + std::string(name) + " is empty";
  for (std::size_t i = 0; i < kTextNames; ++i) {
    if (name != kNames[i]) continue;
    texts->texts[i] = value;
    return {};
  }
  for (std::size_t i = 1; i < kTroubles; ++i) {
    if (name != Trouble_Info(static_cast<Trouble>(i)).name) continue;
    texts->troubles[i] = value;
    return {};
  }
  return "no text has the name '" + std::string(name) + "'";
}

// The name of a text that is not there, or null.
const char *Missing(const Texts &texts) {
  for (std::size_t i = 0; i < kTextNames; ++i)
    if (texts.texts[i].empty()) return kNames[i];
  for (std::size_t i = 1; i < kTroubles; ++i)
    if (texts.troubles[i].empty()) return Trouble_Info(static_cast<Trouble>(i)).name;
  return nullptr;
}

}  // namespace

bool Texts_Read(const std::string &path, Texts *texts, std::string *wrong) {
  *texts = {};
  const auto take = [texts](std::string_view name, std::string_view value) {
    return Take(name, value, texts);
  };
  if (!Lines_Read(path, take, wrong)) return false;
  const char *missing = Missing(*texts);
  if (missing == nullptr) return true;
  *wrong = path + ": the text " + missing + " is missing";
  return false;
}

std::string Texts_Fill(std::string_view text,
                       std::initializer_list<std::pair<std::string_view, std::string>> values) {
  std::string filled;
  while (!text.empty()) {
    std::size_t taken = 1;
    for (const auto &[name, value] : values) {
      const std::string mark = std::string("{").append(name).append("}");
      if (!text.starts_with(mark)) continue;
      filled += value;
      taken = mark.size();
      break;
    }
    if (taken == 1) filled += text[0];
    text.remove_prefix(taken);
  }
  return filled;
}

std::string Texts_Count(const Texts &texts, int number) {
  std::string count = std::to_string(number);
  for (std::size_t at = count.size(); at > 3; at -= 3)
    count.insert(at - 3, texts[TextName::kThousands]);
  return count;
}
