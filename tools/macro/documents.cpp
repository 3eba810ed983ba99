#include "tools/macro/documents.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "debug/text.h"

namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::size_t kPlacesMost = 1000;

// What "#: field" says of one.
struct Told {
  Place place;
  std::size_t least = 1;
  std::size_t times = 1;
};

struct Reading {
  std::vector<Told> fields;
  bool html = false;
  bool snippet = false;
  bool place = false;
  bool all = false;
  std::string wrong;
};

Told *FindOrAdd(Reading *reading, std::string_view name) {
  if (name.find('=') != std::string_view::npos)  // there its value begins
    reading->wrong.append("expected the name of a field, without '=', found '").append(name) +=
        '\'';
  for (Told &field : reading->fields)
    if (field.place.name == name) return &field;
  reading->fields.push_back({});
  reading->fields.back().place.name = name;
  return &reading->fields.back();
}

std::optional<std::size_t> ToNumber(std::string_view text, std::size_t most) {
  std::size_t value = 0;
  const auto [stop, code] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (code != std::errc{} || stop != text.data() + text.size() || value > most) return std::nullopt;
  return value;
}

bool TakeTimes(Told *field, std::string_view text) {
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos) return false;
  const auto least = ToNumber(text.substr(0, dash), 1000);
  const auto most = ToNumber(text.substr(dash + 1), 1000);
  if (!least || !most || *most == 0 || *least > *most) return false;
  field->least = *least;
  field->times = *most;
  return true;
}

bool TakeNumber(std::string_view word, std::string_view name, std::size_t *value) {
  if (!word.starts_with(name)) return false;
  const auto number = ToNumber(word.substr(name.size()), kDocumentMost);
  if (number) *value = *number;
  return number.has_value();
}

void TakeOption(Reading *reading, Told *field, std::string_view word) {
  constexpr std::string_view kTimes = "times=";
  if (word.starts_with(kTimes) && TakeTimes(field, word.substr(kTimes.size()))) return;
  if (TakeNumber(word, "most=", &field->place.most)) return;
  if (TakeNumber(word, "document=", &field->place.brings)) {
    field->place.refers = true;
    return;
  }
  reading->wrong.append("expected most=BYTES, times=LEAST-MOST or document=BYTES, found '");
  reading->wrong.append(word).append("'");
}

void TakeScript(Reading *reading, std::string_view words) {
  for (std::string_view word = Text_Token(&words, kBlanks); !word.empty();
       word = Text_Token(&words, kBlanks)) {
    reading->html |= word == "html";
    reading->snippet |= word == "snippet";
    reading->place |= word == "place";
    reading->all |= word == "all";
  }
}

// What stands behind "#:".
void TakeTold(Reading *reading, std::string_view words) {
  const std::string_view kind = Text_Token(&words, kBlanks);
  if (kind == "script") return TakeScript(reading, words);
  const std::string_view name = kind == "field" ? Text_Token(&words, kBlanks) : "";
  if (name.empty()) {
    reading->wrong = "expected '#: script WORD...' or '#: field NAME ...'";
    return;
  }
  Told *field = FindOrAdd(reading, name);
  for (std::string_view word = Text_Token(&words, kBlanks); !word.empty() && reading->wrong.empty();
       word = Text_Token(&words, kBlanks))
    TakeOption(reading, field, word);
  if (reading->wrong.empty() && field->place.refers && field->place.most < kReferenceLeast)
    reading->wrong = "expected most=5 or more of a field that names a document, in three words";
}

void TakeLine(Reading *reading, std::string_view line) {
  if (line.starts_with("#:")) return TakeTold(reading, line.substr(2));
  const std::string_view name = Text_Token(&line, kBlanks);
  if (name.empty() || name[0] == '#' || name[0] == '@') return;
  if (Text_Token(&line, kBlanks).empty()) {
    reading->wrong = "expected a line of a schema, NAME KIND";
    return;
  }
  FindOrAdd(reading, name);
}

void Add(Documents *documents, const Told &field, bool always) {
  for (std::size_t i = 0; i < field.times; ++i) {
    documents->places.push_back(field.place);
    documents->places.back().always = always && i < field.least;
  }
}

bool IsTaken(const Reading &reading, std::string_view name) {
  return (reading.snippet && name == "Snippet") ||
         (reading.place && (name == "SearchGroup" || name == "RecType" || name == "DocNum"));
}

void Fill(const Reading &reading, Documents *documents) {
  *documents = {};
  documents->given = true;
  documents->html = reading.html;
  for (const Told &field : reading.fields)
    if (!IsTaken(reading, field.place.name)) Add(documents, field, reading.all);
  const auto added = [&](const char *name, std::size_t most) {
    Told field;
    for (const Told &told : reading.fields)
      if (told.place.name == name) field = told;
    field.place.name = name;
    field.place.most = std::min(field.place.most, most);
    Add(documents, field, true);
  };
  if (reading.snippet) added("Snippet", kValueMost);
  if (!reading.place) return;
  added("SearchGroup", std::size_t{127} * 6);  // a header field, and each byte perhaps an entity
  added("RecType", std::size_t{127} * 6);
  added("DocNum", 11);
}

}  // namespace

bool Documents_Read(std::string_view text, Documents *documents, int *line, std::string *wrong) {
  Reading reading;
  for (*line = 1; !text.empty() && reading.wrong.empty(); ++*line) {
    const std::size_t size = std::min(text.find('\n'), text.size());
    TakeLine(&reading, text.substr(0, size));
    text.remove_prefix(std::min(size + 1, text.size()));
  }
  --*line;
  std::size_t places = 0;
  for (const Told &field : reading.fields) places += field.times;
  if (reading.wrong.empty() && places > kPlacesMost)
    reading.wrong =
        "expected fields that come 1000 times in all at most, found " + std::to_string(places);
  *wrong = reading.wrong;
  if (!wrong->empty()) return false;
  Fill(reading, documents);
  return true;
}

std::size_t Documents_Frame(const Documents &documents) {
  std::size_t frame = 2;  // the last tab and the newline
  for (const Place &place : documents.places) frame += place.name.size() + 2;
  return frame;
}

std::size_t Documents_Longest(const Documents &documents) {
  std::size_t size = Documents_Frame(documents);
  for (const Place &place : documents.places) size += place.most;
  return std::min(size, kDocumentMost);
}
