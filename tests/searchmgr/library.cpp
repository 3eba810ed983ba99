#include "tests/searchmgr/library.h"

#include <gtest/gtest.h>

#include <sstream>

#include "store/field.h"

const char *const kLibrarySchema =
    "@language english\n"
    "Title text\n"
    "Section keyword\n"
    "Pages number\n"
    "Added date\n"
    "Note stored\n"
    "Text text body\n";

Schema SchemaFrom(const std::string &text) {
  std::istringstream in(text);
  Schema schema;
  SchemaError error;
  EXPECT_TRUE(Schema_Read(&in, &schema, &error)) << error.reason;
  return schema;
}

static void AddWords(Xapian::TermGenerator *terms, const std::string &words,
                     const std::string &prefix) {
  terms->index_text(words, 1, prefix);
  terms->increase_termpos(100);
}

void AddTo(Xapian::WritableDatabase *database, const Schema &schema, const Values &values) {
  Xapian::Document document;
  Xapian::TermGenerator terms, spelled;
  for (Xapian::TermGenerator *one : {&terms, &spelled}) {
    one->set_document(document);
    if (!schema.language.empty()) one->set_stemmer(Xapian::Stem(schema.language));
  }
  spelled.set_database(*database);
  spelled.set_flags(Xapian::TermGenerator::FLAG_SPELLING);
  for (const auto &[name, value] : values) {
    const SchemaField *field = Schema_Find(schema, name);
    const FieldKind kind = field != nullptr ? field->kind : FieldKind::kText;
    const std::string prefix = Schema_Prefix(schema, name);
    if (kind == FieldKind::kText) {
      AddWords(&spelled, value, "");
      terms.set_termpos(spelled.get_termpos());
    }
    if (kind == FieldKind::kText || kind == FieldKind::kKeyword) AddWords(&terms, value, prefix);
    spelled.set_termpos(terms.get_termpos());
    if (kind == FieldKind::kKeyword) document.add_boolean_term(Schema_ExactTerm(name, value));
    double number = 0;
    if (field != nullptr && Schema_IsRanged(*field) && Schema_Number(kind, value, false, &number))
      document.add_value(Schema_Slot(schema, *field), Xapian::sortable_serialise(number));
  }
  database->add_document(document);
}

Xapian::Database Library(const std::string &path) {
  Xapian::WritableDatabase database(path, Xapian::DB_CREATE_OR_OVERWRITE);
  const Schema schema = SchemaFrom(kLibrarySchema);
  const std::vector<Values> documents = {
      {{"Title", "Network printers"},
       {"Section", "Office Machines"},
       {"Pages", "10"},
       {"Added", "2026-01-31"},
       {"Text", "A printer that prints over the network."}},
      {{"Title", "Printing the news"},
       {"Section", "History"},
       {"Pages", "250"},
       {"Added", "2026-02-01T12:30"},
       {"Text", "How newspapers were printed."}},
      {{"Title", "Networks of trade"},
       {"Section", "History"},
       {"Pages", "320.5"},
       {"Added", "2025-12-24"},
       {"Text", "Trade routes, and what a trade network needs."}},
      {{"Title", "Fishing nets"},
       {"Section", "Sea"},
       {"Pages", "-3"},
       {"Text", "Netting C++ fish."}},
      {{"Title", "Printed circuits"},
       {"Section", "Machines"},
       {"Text", "Network cards and printers alike have a printed circuit."}},
      {{"Title", "An empty net"},
       {"Section", "Office"},
       {"Pages", "20"},
       {"Note", "secret"},
       {"Text", "Nothing was caught; printer, network and sea."}}};
  for (const Values &values : documents) AddTo(&database, schema, values);
  Schema_Store(&database, schema);
  database.commit();
  return Xapian::Database(path);
}
