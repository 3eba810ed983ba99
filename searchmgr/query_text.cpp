#include "searchmgr/query_text.h"

#include <algorithm>

#include "debug/text.h"
#include "store/field.h"

namespace {

constexpr std::string_view kSeparators = "\t\r\n";
constexpr std::size_t kLongestName = 64;

// The token that is read, and how far.
struct Reader {
  const Schema &schema;
  std::string_view token;
  std::size_t at;
  std::vector<TextPart> *parts;
};

bool IsBlank(char c) { return c == ' ' || c == '\v' || c == '\f'; }

// Not <cctype>: bytes mean the same in every locale.
bool IsOfWord(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         (c & 0x80) != 0;
}

bool HasWord(std::string_view text) { return std::any_of(text.begin(), text.end(), IsOfWord); }

bool SkipBlanks(Reader *reader) {
  while (reader->at < reader->token.size() && IsBlank(reader->token[reader->at])) ++reader->at;
  return reader->at < reader->token.size();
}

void OpenFreeText(Reader *reader) { reader->parts->emplace_back(); }

void AddPiece(Reader *reader, TextPiece piece) {
  if (!piece.text.empty()) reader->parts->back().pieces.push_back(piece);
}

// Where the word or what else stands at start ends.  A quote behind a word is an inch, or one too
// many; any other begins a phrase when it has its second.
std::size_t EndOfBare(std::string_view token, std::size_t start) {
  std::size_t at = start + 1;
  while (at < token.size() && !IsBlank(token[at])) {
    const bool is_open = token[at] == '"' && !IsOfWord(token[at - 1]) &&
                         token.find('"', at + 1) != std::string_view::npos;
    if (is_open) return at;
    ++at;
  }
  return at;
}

// What stands between the quotes at the start of text.  False: there are no two.
bool Quoted(std::string_view text, std::string_view *inside) {
  if (!text.starts_with('"')) return false;
  const std::size_t close = text.find('"', 1);
  if (close == std::string_view::npos) return false;
  *inside = text.substr(1, close - 1);
  return true;
}

// A word, or what stands between quotes, and how many bytes it takes with them.
struct Value {
  std::string_view text;
  std::size_t size;
};

Value ValueAt(std::string_view text) {
  std::string_view inside;
  if (Quoted(text, &inside)) return {inside, inside.size() + 2};
  const std::size_t end = text.empty() ? 0 : EndOfBare(text, 0);
  return {text.substr(0, end), end};
}

// The one value of a number or a date, which stands at from: what comes behind it is free text.
// False: what stands there is none, so that "NAME=" is no field there.
bool TakeRange(Reader *reader, TextPart part, std::size_t from) {
  Reader behind = *reader;
  behind.at = from;
  (void)SkipBlanks(&behind);
  const Value value = ValueAt(reader->token.substr(behind.at));
  ValueRange range;
  const bool is_range = QueryText_Range(part.field->kind, value.text, &range);
  const bool is_empty = from == reader->token.size() || IsBlank(reader->token[from]);
  if (!is_range && !is_empty) return false;
  if (range.low || range.high) part.pieces.push_back({PieceKind::kRange, false, value.text});
  reader->at = is_range ? behind.at + value.size : from;
  reader->parts->push_back(part);
  OpenFreeText(reader);
  return true;
}

// "NAME=" at start.  Without a schema any name will do, but only where a token begins: that is how
// forms write, and people type an equals sign for other reasons.
bool TakeName(Reader *reader, std::size_t start, bool exclude) {
  const std::string_view rest = reader->token.substr(start);
  const std::size_t equals = rest.substr(0, kLongestName + 1).find('=');
  if (equals == std::string_view::npos || !Field_IsName(rest.substr(0, equals))) return false;
  TextPart part = {rest.substr(0, equals), nullptr, exclude, {}};
  if (reader->schema.origin != SchemaOrigin::kGiven) {
    if (reader->at != 0) return false;
  } else {
    part.field = Schema_Find(reader->schema, part.name);
    if (part.field == nullptr || part.field->kind == FieldKind::kStored) return false;
    if (Schema_IsRanged(*part.field)) return TakeRange(reader, part, start + equals + 1);
  }
  reader->parts->push_back(part);
  reader->at = start + equals + 1;
  return true;
}

bool TakeQuoted(Reader *reader, std::size_t start, bool exclude) {
  std::string_view inside;
  if (!Quoted(reader->token.substr(start), &inside)) return false;
  const SchemaField *field = reader->parts->back().field;
  const bool is_exact = field != nullptr && field->kind == FieldKind::kKeyword;
  AddPiece(reader, {is_exact ? PieceKind::kExact : PieceKind::kPhrase, exclude, inside});
  if (is_exact) OpenFreeText(reader);
  reader->at = start + inside.size() + 2;
  return true;
}

// Words that stand together stay together, so that what binds them is seen.
void TakeBare(Reader *reader, std::size_t start, bool exclude) {
  reader->at = EndOfBare(reader->token, start);
  const std::string_view text = reader->token.substr(start, reader->at - start);
  const bool is_wildcard = text.ends_with('*') && HasWord(text);
  std::vector<TextPiece> &pieces = reader->parts->back().pieces;
  if (!is_wildcard && !exclude && !pieces.empty() && !pieces.back().exclude &&
      pieces.back().kind == PieceKind::kWords) {
    const char *begin = pieces.back().text.data();
    pieces.back().text = {begin, static_cast<std::size_t>(text.data() + text.size() - begin)};
    return;
  }
  AddPiece(reader, {is_wildcard ? PieceKind::kWildcard : PieceKind::kWords, exclude, text});
}

// "-" before a word, a phrase or a name; a dash between blanks, or two of them, are none.
bool IsExclusion(std::string_view text) {
  return text.size() > 1 && text[0] == '-' && text[1] != '-' && !IsBlank(text[1]);
}

void ReadToken(Reader reader) {
  OpenFreeText(&reader);
  while (SkipBlanks(&reader)) {
    const bool exclude = IsExclusion(reader.token.substr(reader.at));
    const std::size_t start = reader.at + (exclude ? 1 : 0);
    if (TakeName(&reader, start, exclude)) continue;
    const bool is_last = reader.parts->back().exclude;  // "-NAME=" is about one word or phrase
    if (!TakeQuoted(&reader, start, exclude)) TakeBare(&reader, start, exclude);
    if (is_last) OpenFreeText(&reader);
  }
}

bool SetEnd(FieldKind kind, std::string_view text, bool end, std::optional<double> *number) {
  if (text.empty()) return true;
  double value = 0;
  if (!Schema_Number(kind, text, end, &value)) return false;
  *number = value;
  return true;
}

}  // namespace

std::vector<TextPart> QueryText_Read(std::string_view text, const Schema &schema) {
  std::vector<TextPart> parts;
  for (std::string_view token = Text_Token(&text, kSeparators); !token.empty();
       token = Text_Token(&text, kSeparators))
    ReadToken({schema, token, 0, &parts});
  return parts;
}

bool QueryText_Range(FieldKind kind, std::string_view text, ValueRange *range) {
  *range = {};
  const std::size_t dots = text.find("..");
  std::string_view low = text.substr(0, dots), high = low;
  if (dots != std::string_view::npos)
    high = text.substr(std::min(text.find_first_not_of('.', dots), text.size()));
  if (!SetEnd(kind, low, false, &range->low) || !SetEnd(kind, high, true, &range->high)) {
    *range = {};
    return false;
  }
  if (!range->low || !range->high || *range->low <= *range->high) return true;
  return SetEnd(kind, high, false, &range->low) && SetEnd(kind, low, true, &range->high);
}
