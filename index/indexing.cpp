#include "index/indexing.h"

#include <algorithm>

#include "store/document.h"

namespace {

constexpr Xapian::termpos kFieldGap = 100;  // no phrase reaches over the end of a field
constexpr std::size_t kPiece = 65536;       // bytes between two looks at the number of terms
constexpr Xapian::termcount kMostTerms = 1'000'000;  // a term takes up to 800 bytes of memory
constexpr std::size_t kSortSize = 240;               // bytes of a text in a slot
constexpr std::size_t kMostUnknown = 11;             // names that are kept: ten are shown

const Field *Find(const Fields &fields, std::string_view name) {
  const auto field = std::find_if(fields.begin(), fields.end(),
                                  [&](const Field &candidate) { return candidate.name == name; });
  return field != fields.end() ? &*field : nullptr;
}

std::string_view ValueOf(const Fields &fields, std::string_view name) {
  const Field *field = Find(fields, name);
  return field != nullptr ? std::string_view(field->value) : std::string_view();
}

// The front of a text that ends between two words, or as much as can be.
std::string_view TakePiece(std::string_view *text) {
  std::size_t size = text->size();
  if (size > kPiece) size = std::min(text->find(' ', kPiece), size);
  const std::string_view piece = text->substr(0, size);
  text->remove_prefix(size);
  return piece;
}

// False: the document has more terms than it may.
bool IndexWords(Indexing *indexing, const Xapian::Document &document, std::string_view text,
                Xapian::termcount weight, const std::string &prefix) {
  while (!text.empty()) {
    const std::string_view piece = TakePiece(&text);
    const Xapian::Utf8Iterator words(piece.data(), piece.size());
    if (indexing->positions)
      indexing->terms.index_text(words, weight, prefix);
    else
      indexing->terms.index_text_without_positions(words, weight, prefix);
    if (document.termlist_count() > kMostTerms) return false;
  }
  indexing->terms.increase_termpos(kFieldGap);
  return true;
}

std::string SmallLetters(std::string_view text) {
  std::string small;
  for (Xapian::Utf8Iterator c(text.data(), text.size()); c != Xapian::Utf8Iterator(); ++c)
    Xapian::Unicode::append_utf8(small, Xapian::Unicode::tolower(*c));
  return std::string(Field_Cut(small, kSortSize));
}

// The first value of a field decides.
bool AddValue(Xapian::Document *document, Xapian::valueno slot, const SchemaField &field,
              const std::string &text, std::string *expected) {
  if (!document->get_value(slot).empty()) return true;
  if (!Schema_IsRanged(field)) {
    document->add_value(slot, SmallLetters(text));
    return true;
  }
  double number = 0;
  if (text.empty()) return true;
  if (!Schema_Number(field.kind, text, false, &number)) {
    constexpr std::size_t kShown = 80;
    *expected = field.kind == FieldKind::kDate
                    ? "expected a date as 2026-01-31 or 2026-01-31T12:30:00Z in the field " +
                          field.name + ", not '" + std::string(Field_Cut(text, kShown)) + "'"
                    : "expected a number in the field " + field.name + ", not '" +
                          std::string(Field_Cut(text, kShown)) + "'";
    return false;
  }
  document->add_value(slot, Xapian::sortable_serialise(number));
  return true;
}

// A field of a database without a schema is words.
const SchemaField *KindOf(Indexing *indexing, Field *field) {
  static const SchemaField kWords = {"", FieldKind::kText};
  static const SchemaField kUnknown = {"", FieldKind::kStored};
  if (indexing->schema.origin == SchemaOrigin::kNone) return &kWords;
  const SchemaField *known = Schema_Find(indexing->schema, field->name);
  if (known != nullptr) {
    field->name = known->name;
    return known;
  }
  if (indexing->unknown.size() < kMostUnknown) indexing->unknown.insert(field->name);
  return &kUnknown;
}

bool AddField(Indexing *indexing, Field *field, Xapian::Document *document, std::string *expected) {
  const SchemaField *kind = KindOf(indexing, field);
  const bool words = kind->kind == FieldKind::kText,
             named = words || kind->kind == FieldKind::kKeyword;
  if ((words && !IndexWords(indexing, *document, field->value, kind->weight, "")) ||
      (named &&
       !IndexWords(indexing, *document, field->value, kind->weight, Field_Prefix(field->name)))) {
    *expected = "expected a document of at most 1000000 different terms";
    return false;
  }
  if (kind->kind == FieldKind::kKeyword)
    document->add_boolean_term(Schema_ExactTerm(field->name, field->value));
  return !Schema_IsSorted(*kind) ||
         AddValue(document, Schema_Slot(indexing->schema, *kind), *kind, field->value, expected);
}

}  // namespace

void Indexing_Begin(Indexing *indexing, const Schema &schema, Xapian::WritableDatabase *database,
                    bool spelling) {
  indexing->schema = schema;
  for (const SchemaField &field : schema.fields)
    if (field.id) indexing->id = field.name;
  if (!schema.language.empty()) indexing->terms.set_stemmer(Xapian::Stem(schema.language));
  if (!spelling) return;
  indexing->terms.set_database(*database);
  indexing->terms.set_flags(Xapian::TermGenerator::FLAG_SPELLING);
}

std::string Indexing_IdTerm(std::string_view name, std::string_view id) {
  std::string term = "Q";  // Xapian's letter for unique terms
  return Schema_ShortTerm(term.append(name).append("=").append(id));
}

std::string Indexing_UniqueTerm(const Indexing &indexing, const Fields &fields) {
  if (!indexing.id.empty()) return Indexing_IdTerm(indexing.id, ValueOf(fields, indexing.id));
  std::string state(fields.front().value);
  state.append("\n").append(ValueOf(fields, "Version"));
  state.append("\n").append(ValueOf(fields, "Architecture"));
  return Indexing_IdTerm(fields.front().name, state);
}

bool Indexing_Document(Indexing *indexing, Fields *fields, Xapian::Document *document,
                       std::string *expected) {
  *document = Xapian::Document();
  indexing->terms.set_document(*document);
  for (Field &field : *fields)
    if (!AddField(indexing, &field, document, expected)) return false;
  if (!indexing->id.empty() && ValueOf(*fields, indexing->id).empty()) {
    *expected = "expected a value of the field " + indexing->id + ", which names the document";
    return false;
  }
  document->add_boolean_term(Indexing_UniqueTerm(*indexing, *fields));
  document->set_data(Document_Data(*fields, &indexing->cut));
  return true;
}
