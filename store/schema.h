// store/schema.h: what the fields of a database are.
//
// A schema is text, a line a field: NAME KIND and options, parted by blanks and tabs; "#" at the
// start of a line makes a comment, and the line "@language NAME" chooses stemming and stop words.
// The indexer keeps it in the database, so that whoever searches or shows it needs no file.
#ifndef STORE_SCHEMA_H
#define STORE_SCHEMA_H

#include <xapian.h>

#include <istream>
#include <string>
#include <string_view>
#include <vector>

enum class FieldKind {
  kText,     // words, searched with and without the name of the field
  kKeyword,  // words with the name alone, and the exact value
  kNumber,   // a range, a sort
  kDate,     // the same; seconds since 1970
  kStored,   // shown, not searched
};

struct SchemaField {
  std::string name;
  FieldKind kind;
  bool id = false;               // its value names the document; at most one field
  bool body = false;             // a snippet is taken from it; at most one field, of kind text
  bool sort = false;             // hits can be sorted by it; a number or a date always
  Xapian::termcount weight = 1;  // that a word of it counts, 1 to 100
};

enum class SchemaOrigin {
  kNone,   // a database without a schema: every field is words, as they stand
  kGiven,  // what a schema says
  kOmega,  // a database of Omega's indexers: fields have the prefixes that they give
};

struct Schema {
  SchemaOrigin origin = SchemaOrigin::kNone;
  std::string language;             // as Xapian::Stem takes it; empty: words are not stemmed
  std::vector<SchemaField> fields;  // in their order in a document
};

// Why a schema cannot be read: the line, from 1, and what would be right there.
struct SchemaError {
  int line;
  std::string reason;
};

// Fills schema from its text.  False: *error says why.
bool Schema_Read(std::istream *in, Schema *schema, SchemaError *error);

// The same text again, as it is kept in a database.  Equal schemas have equal texts.
std::string Schema_Text(const Schema &schema);

// Keeps a schema in a database, and finds what the fields of a database are.  Throw what Xapian
// throws; a schema of a later version of this program, or a damaged one, is a
// Xapian::DatabaseVersionError.
void Schema_Store(Xapian::WritableDatabase *database, const Schema &schema);
Schema Schema_Of(const Xapian::Database &database);

// The field of that name, capitals and small letters alike; null: there is none.
const SchemaField *Schema_Find(const Schema &schema, std::string_view name);

// The value slot of a field of this schema that has one: of kind number or date, or with the option
// sort.
Xapian::valueno Schema_Slot(const Schema &schema, const SchemaField &field);

// Whether hits can be sorted by a field, and asked for a range of it.
bool Schema_IsSorted(const SchemaField &field);
bool Schema_IsRanged(const SchemaField &field);

// A term that is too long for Xapian keeps its start and ends in the hash of the whole.
std::string Schema_ShortTerm(std::string term);

// The term that a document has for the exact value of a keyword field.
std::string Schema_ExactTerm(std::string_view name, std::string_view value);

// What stands before the terms of a field: Field_Prefix, or in a database of Omega's the letters
// that its indexers give to fields of that name.
std::string Schema_Prefix(const Schema &schema, std::string_view name);

// The number that a text names, as a value in a slot sorts: a decimal number, or a date as
// 2026, 2026-01, 2026-01-31, or 2026-01-31T12:30:00 with or without Z or an offset like +01:00
// (without one it is UTC).  False: it names none.  A date that names a span is its first second, or
// with end its last.
bool Schema_Number(FieldKind kind, std::string_view text, bool end, double *number);

#endif
