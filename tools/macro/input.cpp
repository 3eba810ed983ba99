#include "tools/macro/input.h"

#include <algorithm>

namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

std::string_view TakeLine(std::string_view *text) {
  const std::size_t size = std::min(text->find('\n'), text->size());
  const std::string_view line = text->substr(0, size);
  text->remove_prefix(std::min(size + 1, text->size()));
  return line;
}

// A name as the indexer takes it; any other could be taken for the end of its field.
bool IsName(std::string_view name) {
  const auto is_letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
  constexpr std::string_view kOthers = "0123456789-_.";
  return !name.empty() && is_letter(name.front()) &&
         std::all_of(name.begin(), name.end(), [&](char c) {
           return is_letter(c) || kOthers.find(c) != std::string_view::npos;
         });
}

std::string_view Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// A value is one line without control characters.
void AppendValue(std::string *document, std::string_view value) {
  for (const char c : value) *document += (c >= 0 && c < ' ') || c == 0x7f ? ' ' : c;
}

void Finish(std::string *document, std::vector<std::string> *documents) {
  if (!document->empty()) documents->push_back(*document + "\t\n");
  document->clear();
}

// A line of the control format; false: it is none.
bool TakeControlLine(std::string_view line, std::string *document) {
  if (line[0] == ' ' || line[0] == '\t') {
    if (document->empty()) return false;
    const std::string_view more = Trimmed(line);
    if (more == ".") return true;
    if (!document->ends_with('=')) *document += ' ';
    AppendValue(document, more);
    return true;
  }
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || !IsName(line.substr(0, colon))) return false;
  document->append("\t").append(line.substr(0, colon)).append("=");
  AppendValue(document, Trimmed(line.substr(colon + 1)));
  return true;
}

std::string ReadControl(std::string_view text, std::vector<std::string> *documents) {
  std::string document;
  for (int number = 1; !text.empty(); ++number) {
    const std::string_view line = TakeLine(&text);
    if (Trimmed(line).empty())
      Finish(&document, documents);
    else if (!TakeControlLine(line, &document))
      return std::to_string(number) + ": expected \"Name: value\"";
  }
  Finish(&document, documents);
  return "";
}

std::string ReadRaw(std::string_view text, std::vector<std::string> *documents) {
  while (!text.empty()) {
    const std::string_view line = TakeLine(&text);
    if (!Trimmed(line).empty()) documents->push_back(std::string(line) + "\n");
  }
  return "";
}

std::string ReadJsonLines(std::string_view text, std::vector<std::string> *documents) {
  for (int number = 1; !text.empty(); ++number) {
    const std::string_view line = TakeLine(&text);
    if (Trimmed(line).empty()) continue;
    std::string document;
    const std::string wrong = Input_ReadJson(line, &document);
    if (!wrong.empty()) return std::to_string(number) + ": " + wrong;
    if (document.empty()) return std::to_string(number) + ": expected a field in the object";
    Finish(&document, documents);
  }
  return "";
}

// JSON.

struct Json {
  std::string_view rest;
  std::string *document;
  int depth = 0;
};

constexpr int kDepthMost = 32;

char NextOf(Json *json) {
  const std::size_t skip = std::min(json->rest.find_first_not_of(" \t\r\n"), json->rest.size());
  json->rest.remove_prefix(skip);
  return json->rest.empty() ? '\0' : json->rest[0];
}

bool Take(Json *json, char c) {
  if (NextOf(json) != c) return false;
  json->rest.remove_prefix(1);
  return true;
}

void AppendUtf8(std::string *text, unsigned code) {
  const auto add = [text](unsigned byte) { *text += static_cast<char>(byte); };
  if (code < 0x80) return add(code);
  if (code < 0x800) {
    add(0xc0 | code >> 6);
  } else {
    if (code < 0x10000) {
      add(0xe0 | code >> 12);
    } else {
      add(0xf0 | code >> 18);
      add(0x80 | (code >> 12 & 0x3f));
    }
    add(0x80 | (code >> 6 & 0x3f));
  }
  add(0x80 | (code & 0x3f));
}

bool TakeHex4(Json *json, unsigned *code) {
  *code = 0;
  for (int i = 0; i < 4; ++i) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const char c = json->rest.empty() ? ' ' : json->rest[0];
    const std::size_t digit = kDigits.find(c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c);
    if (digit == std::string_view::npos) return false;
    *code = *code * 16 + static_cast<unsigned>(digit);
    json->rest.remove_prefix(1);
  }
  return true;
}

// The code behind \u, and behind it the other half of a pair.
bool TakeUnicode(Json *json, std::string *text) {
  unsigned code = 0, low = 0;
  if (!TakeHex4(json, &code)) return false;
  if (code >= 0xdc00 && code <= 0xdfff) return false;
  if (code >= 0xd800 && code < 0xdc00) {
    if (!json->rest.starts_with("\\u")) return false;
    json->rest.remove_prefix(2);
    if (!TakeHex4(json, &low) || low < 0xdc00 || low > 0xdfff) return false;
    code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
  }
  AppendUtf8(text, code);
  return true;
}

bool TakeString(Json *json, std::string *text) {
  if (!Take(json, '"')) return false;
  while (!json->rest.empty() && json->rest[0] != '"') {
    const char c = json->rest[0];
    json->rest.remove_prefix(1);
    if (c != '\\') {
      *text += c;
      continue;
    }
    constexpr std::string_view kLetters = "\"\\/bfnrt", kBytes = "\"\\/\b\f\n\r\t";
    const char letter = json->rest.empty() ? ' ' : json->rest[0];
    const std::size_t at = kLetters.find(letter);
    if (at == std::string_view::npos && letter != 'u') return false;
    json->rest.remove_prefix(1);
    if (letter != 'u')
      *text += kBytes[at];
    else if (!TakeUnicode(json, text))
      return false;
  }
  return Take(json, '"');
}

// A word of JSON, or what begins as a number and has its characters.
bool IsLiteral(std::string_view value) {
  if (value == "true" || value == "false" || value == "null") return true;
  constexpr std::string_view kFirst = "-0123456789";
  return !value.empty() && kFirst.find(value.front()) != std::string_view::npos &&
         value.find_first_not_of("-+.eE0123456789") == std::string_view::npos;
}

// A value of the field of that name: one, several, or those of an object with both names.
bool TakeValue(Json *json, const std::string &name);

bool TakeMember(Json *json, const std::string &name) {
  std::string key;
  if (!TakeString(json, &key) || !Take(json, ':')) return false;
  return TakeValue(json, name.empty() ? key : name + "." + key);
}

bool TakeAll(Json *json, char end, const std::string &name,
             bool (*take)(Json *, const std::string &)) {
  json->rest.remove_prefix(1);
  if (++json->depth > kDepthMost) return false;
  bool is_ended = Take(json, end);
  while (!is_ended) {
    if (!take(json, name)) return false;
    is_ended = !Take(json, ',');
    if (is_ended && !Take(json, end)) return false;
  }
  --json->depth;
  return true;
}

bool TakeValue(Json *json, const std::string &name) {
  const char c = NextOf(json);
  if (c == '{') return TakeAll(json, '}', name, TakeMember);
  if (c == '[') return TakeAll(json, ']', name, TakeValue);
  std::string value;
  if (c == '"') {
    if (!TakeString(json, &value)) return false;
  } else {
    const std::size_t size = std::min(json->rest.find_first_of(",]} \t\r\n"), json->rest.size());
    value = json->rest.substr(0, size);
    if (!IsLiteral(value)) return false;
    json->rest.remove_prefix(size);
    if (value == "null") return true;
  }
  if (!IsName(name)) return false;
  json->document->append("\t").append(name).append("=");
  AppendValue(json->document, value);
  return true;
}

}  // namespace

std::string Input_ReadJson(std::string_view line, std::string *document) {
  Json json = {line, document};
  if (NextOf(&json) == '{' && TakeValue(&json, "") && NextOf(&json) == '\0') return "";
  return "expected a JSON object on one line; it is wrong at byte " +
         std::to_string(line.size() - json.rest.size() + 1);
}

std::string Input_Read(std::string_view text, std::vector<std::string> *documents) {
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  if (text.starts_with('\t')) return ReadRaw(text, documents);
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first != std::string_view::npos && text[first] == '{') return ReadJsonLines(text, documents);
  return ReadControl(text, documents);
}
