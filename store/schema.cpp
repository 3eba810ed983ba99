#include "store/schema.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cinttypes>
#include <ctime>
#include <sstream>

#include "debug/text.h"
#include "store/field.h"

namespace {

constexpr const char *kMetadataKey = "korvo-schema";
constexpr std::string_view kVersionLine = "# korvo-schema 1\n";
constexpr std::string_view kBlanks = " \t\r";
constexpr std::size_t kMostFields = 500;
constexpr std::size_t kMostLine = 1024;
constexpr Xapian::termcount kMostWeight = 100;
constexpr std::size_t kTermSize = 240;  // Xapian takes 245 bytes

struct Kind {
  std::string_view word;
  FieldKind kind;
};

constexpr std::array<Kind, 5> kKinds = {{{"text", FieldKind::kText},
                                         {"keyword", FieldKind::kKeyword},
                                         {"number", FieldKind::kNumber},
                                         {"date", FieldKind::kDate},
                                         {"stored", FieldKind::kStored}}};

// The letters that Omega's indexers give to what they know of a document.
struct OmegaPrefix {
  std::string_view name;  // in small letters
  std::string_view prefix;
};

constexpr std::array<OmegaPrefix, 13> kOmegaPrefixes = {{{"author", "A"},
                                                         {"caption", "S"},
                                                         {"ext", "E"},
                                                         {"filename", "F"},
                                                         {"host", "H"},
                                                         {"keywords", "K"},
                                                         {"language", "L"},
                                                         {"path", "P"},
                                                         {"site", "H"},
                                                         {"subject", "S"},
                                                         {"title", "S"},
                                                         {"topic", "B"},
                                                         {"type", "T"}}};

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool SameName(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return Lower(x) == Lower(y); });
}

// What a line of a schema adds; an empty text, or what would be right.

std::string SetKind(SchemaField *field, std::string_view word) {
  for (const Kind &kind : kKinds) {
    if (kind.word != word) continue;
    field->kind = kind.kind;
    return {};
  }
  return "a kind is text, keyword, number, date or stored, not '" + std::string(word) + "'";
}

std::string SetWeight(SchemaField *field, std::string_view digits) {
  const char *end = digits.data() + digits.size();
  const auto [stop, code] = std::from_chars(digits.data(), end, field->weight);
  if (code == std::errc{} && stop == end && field->weight >= 1 && field->weight <= kMostWeight &&
      field->kind == FieldKind::kText)
    return {};
  return "weight takes a number from 1 to 100, and belongs to a text";
}

std::string SetOption(SchemaField *field, std::string_view option) {
  constexpr std::string_view kWeight = "weight=";
  if (option.starts_with(kWeight)) return SetWeight(field, option.substr(kWeight.size()));
  if (option == "id") {
    field->id = true;
  } else if (option == "body") {
    if (field->kind != FieldKind::kText) return "only a text can be the body";
    field->body = true;
  } else if (option == "sort") {
    if (field->kind == FieldKind::kStored) return "what is only stored cannot be sorted by";
    field->sort = true;
  } else {
    return "an option is id, body, sort or weight=N, not '" + std::string(option) + "'";
  }
  return {};
}

// What a second field may not have.
std::string Clash(const Schema &schema, const SchemaField &field) {
  if (schema.fields.size() == kMostFields) return "a schema has at most 500 fields";
  for (const SchemaField &other : schema.fields) {
    if (SameName(other.name, field.name)) return "the field " + other.name + " is there already";
    if (other.id && field.id) return "the id is the field " + other.name + " already";
    if (other.body && field.body) return "the body is the field " + other.name + " already";
  }
  return {};
}

std::string AddField(Schema *schema, std::string_view name, std::string_view rest) {
  if (!Field_IsName(name))
    return "a name begins with a letter and has letters, digits, '-', '_' and '.' behind it, at most 64";
  SchemaField field = {std::string(name), FieldKind::kText};
  std::string wrong = SetKind(&field, Text_Token(&rest, kBlanks));
  for (std::string_view option = Text_Token(&rest, kBlanks); wrong.empty() && !option.empty();
       option = Text_Token(&rest, kBlanks))
    wrong = SetOption(&field, option);
  if (wrong.empty()) wrong = Clash(*schema, field);
  if (wrong.empty()) schema->fields.push_back(field);
  return wrong;
}

std::string SetLanguage(Schema *schema, std::string_view rest) {
  const std::string language(Text_Token(&rest, kBlanks));
  if (language.empty() || !Text_Token(&rest, kBlanks).empty())
    return "@language takes one name, as in @language english";
  const std::string known = Xapian::Stem::get_available_languages() + " none";
  std::string_view names = known;
  for (std::string_view name = Text_Token(&names, kBlanks); !name.empty();
       name = Text_Token(&names, kBlanks))
    if (name == language) {
      schema->language = language == "none" ? "" : language;
      return {};
    }
  return "there is no language '" + language + "'; there are " + known;
}

// The next line, or its first kMostLine + 1 bytes: nobody's file fills the memory.  False: the end.
bool ReadLine(std::istream *in, std::string *line) {
  line->clear();
  for (char c = 0; in->get(c) && c != '\n';) {
    line->push_back(c);
    if (line->size() > kMostLine) return true;
  }
  return !line->empty() || in->good();
}

std::string TakeLine(Schema *schema, std::string_view line) {
  if (line.size() > kMostLine) return "a line has at most 1024 bytes";
  if (line.find('\0') != std::string_view::npos) return "a line of text has no NUL";
  const std::string_view word = Text_Token(&line, kBlanks);
  if (word.empty() || word.front() == '#') return {};
  if (word == "@language") return SetLanguage(schema, line);
  if (word.front() == '@') return "@language is the only word with '@'";
  return AddField(schema, word, line);
}

std::string KindWord(FieldKind kind) {
  for (const Kind &known : kKinds)
    if (known.kind == kind) return std::string(known.word);
  return {};
}

// FNV-1a in 64 bits: the same in every build, as a term that stays in the index has to be.
std::uint64_t Hash(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  return hash;
}

// Omega's records are lines; ours begin with a tab.  A database without documents is nobody's yet.
SchemaOrigin OriginOf(const Xapian::Database &database) {
  Xapian::Enquire any(database);  // the list of all documents would come whole from an engine
  any.set_query(Xapian::Query::MatchAll);
  const Xapian::MSet first = any.get_mset(0, 1);
  if (first.empty()) return SchemaOrigin::kNone;
  const std::string data = database.get_document(*first.begin()).get_data();
  return data.empty() || data.front() == '\t' ? SchemaOrigin::kNone : SchemaOrigin::kOmega;
}

std::string OmegaPrefixOf(std::string_view name) {
  for (const OmegaPrefix &known : kOmegaPrefixes)
    if (SameName(known.name, name)) return std::string(known.prefix);
  std::string prefix = "X";
  for (const char c : name) prefix += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return prefix;
}

}  // namespace

bool Schema_Read(std::istream *in, Schema *schema, SchemaError *error) {
  *schema = {};
  schema->origin = SchemaOrigin::kGiven;
  *error = {};
  std::string line;
  while (ReadLine(in, &line)) {
    ++error->line;
    error->reason = TakeLine(schema, line);
    if (!error->reason.empty()) return false;
  }
  if (in->bad())
    error->reason = "it cannot be read";
  else if (schema->fields.empty())
    error->reason = "a schema names at least one field";
  return error->reason.empty();
}

std::string Schema_Text(const Schema &schema) {
  std::string text(kVersionLine);
  if (!schema.language.empty()) text.append("@language ").append(schema.language).append("\n");
  for (const SchemaField &field : schema.fields) {
    text.append(field.name).append(" ").append(KindWord(field.kind));
    if (field.id) text += " id";
    if (field.body) text += " body";
    if (field.sort) text += " sort";
    if (field.weight != 1) text.append(" weight=").append(std::to_string(field.weight));
    text += '\n';
  }
  return text;
}

void Schema_Store(Xapian::WritableDatabase *database, const Schema &schema) {
  database->set_metadata(kMetadataKey, Schema_Text(schema));
}

Schema Schema_Of(const Xapian::Database &database) {
  const std::string text = database.get_metadata(kMetadataKey);
  Schema schema;
  if (text.empty()) {
    schema.origin = OriginOf(database);
    return schema;
  }
  if (!text.starts_with(kVersionLine))
    throw Xapian::DatabaseVersionError("its schema is of another version of this program");
  std::istringstream in(text);
  SchemaError error;
  if (!Schema_Read(&in, &schema, &error))
    throw Xapian::DatabaseVersionError("its schema cannot be read: " + error.reason);
  return schema;
}

const SchemaField *Schema_Find(const Schema &schema, std::string_view name) {
  for (const SchemaField &field : schema.fields)
    if (SameName(field.name, name)) return &field;
  return nullptr;
}

Xapian::valueno Schema_Slot(const Schema &schema, const SchemaField &field) {
  return static_cast<Xapian::valueno>(&field - schema.fields.data());
}

bool Schema_IsRanged(const SchemaField &field) {
  return field.kind == FieldKind::kNumber || field.kind == FieldKind::kDate;
}

bool Schema_IsSorted(const SchemaField &field) { return field.sort || Schema_IsRanged(field); }

std::string Schema_ShortTerm(std::string term) {
  if (term.size() <= kTermSize) return term;
  char digits[17];
  (void)Text_FormatTo(digits, sizeof digits, "%016" PRIx64, Hash(term));
  return term.substr(0, kTermSize - 16) + digits;
}

std::string Schema_ExactTerm(std::string_view name, std::string_view value) {
  return Schema_ShortTerm(Field_Prefix(name).append("=").append(value));
}

std::string Schema_Prefix(const Schema &schema, std::string_view name) {
  return schema.origin == SchemaOrigin::kOmega ? OmegaPrefixOf(name) : Field_Prefix(name);
}
