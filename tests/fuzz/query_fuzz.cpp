// The text of a search: every text has an answer, which holds what its pieces promise.
//
// Parts: predicate; schema, "given", "omega" or none.
#include <algorithm>
#include <sstream>

#include "searchmgr/query.h"
#include "searchmgr/query_text.h"
#include "tests/fuzz/support/fuzz.h"
#include "tests/fuzz/support/scratch.h"

namespace {

constexpr int kMostWildcards = 10;

Schema SchemaNamed(std::string_view name) {
  Schema schema;
  if (name == "omega") schema.origin = SchemaOrigin::kOmega;
  if (name != "given") return schema;
  std::istringstream in(
      "@language english\nTitle text\nTopic keyword\nPages number\nAdded date\nNote stored\n");
  SchemaError error;
  FUZZ_CHECK(Schema_Read(&in, &schema, &error));
  return schema;
}

// On disk, for others have no spelling data.
Xapian::Database MakeDatabase() {
  const std::string path = Fuzz_ScratchDir() + "/db";
  Xapian::WritableDatabase database(path, Xapian::DB_CREATE_OR_OVERWRITE);
  Xapian::Document document;
  Xapian::TermGenerator terms;
  terms.set_document(document);
  terms.set_database(database);
  terms.set_flags(Xapian::TermGenerator::FLAG_SPELLING);
  terms.set_stemmer(Xapian::Stem("english"));
  terms.index_text("green tea c++ and a network of printers");
  terms.index_text("green tea", 1, "XTITLE:");
  document.add_boolean_term(Schema_ExactTerm("Topic", "tea"));
  document.add_value(2, Xapian::sortable_serialise(10));
  database.add_document(document);
  database.commit();
  return Xapian::Database(path);
}

void CheckPiece(const TextPart &part, const TextPiece &piece) {
  FUZZ_CHECK(!piece.text.empty());
  FUZZ_CHECK(piece.text.find_first_of("\t\r\n") == std::string_view::npos);
  if (piece.kind == PieceKind::kExact) FUZZ_CHECK(part.field->kind == FieldKind::kKeyword);
  if (piece.kind == PieceKind::kPhrase || piece.kind == PieceKind::kExact)
    FUZZ_CHECK(piece.text.find('"') == std::string_view::npos);
  if (piece.kind != PieceKind::kRange) return;
  ValueRange range;
  FUZZ_CHECK(QueryText_Range(part.field->kind, piece.text, &range));
  FUZZ_CHECK(range.low || range.high);
  FUZZ_CHECK(!range.low || !range.high || *range.low <= *range.high);
}

// The pieces stand in the text one behind the other.
void CheckPieces(std::string_view text, const Schema &schema) {
  const char *at = text.data();
  for (const TextPart &part : QueryText_Read(text, schema))
    for (const TextPiece &piece : part.pieces) {
      CheckPiece(part, piece);
      FUZZ_CHECK(piece.text.data() >= at);
      at = piece.text.data() + piece.text.size();
      FUZZ_CHECK(at <= text.data() + text.size());
    }
}

int Wildcards(const Xapian::Query &query) {
  if (query.get_type() == Xapian::Query::OP_WILDCARD) return 1;
  int count = 0;
  for (std::size_t i = 0; i < query.get_num_subqueries(); ++i)
    count += Wildcards(query.get_subquery(i));
  return count;
}

std::string Found(const Xapian::Database &database, const Xapian::Query &query) {
  FUZZ_CHECK(!query.empty());
  FUZZ_CHECK(Wildcards(query) <= kMostWildcards);
  Xapian::Enquire enquire(database);
  enquire.set_query(query);
  return query.get_description() + " " + std::to_string(enquire.get_mset(0, 10).size()) + "\n";
}

std::string Shown(const Xapian::Database &database, const SearchQuery &query) {
  std::string shown = Found(database, query.query);
  for (const std::string &mark : query.marks) {
    FUZZ_CHECK(!mark.empty() && mark.find_first_of(" \t\r\n") == std::string::npos);
    FUZZ_CHECK(std::count(query.marks.begin(), query.marks.end(), mark) == 1);
    shown += mark + " ";
  }
  return shown;
}

std::string Shown(const Xapian::Database &database, const CorrectedQuery &corrected) {
  FUZZ_CHECK(corrected.text.empty() == corrected.query.empty());
  if (corrected.text.empty()) return {};
  return corrected.text + "\n" + Found(database, corrected.query);
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  static const Xapian::Database kDatabase = MakeDatabase();
  const Schema schema = SchemaNamed(input[1].Whole());
  const Bytes predicate = Fuzz_Terminated(Fuzz_UpToNul(input[0].Whole()));
  CheckPieces(predicate.data(), schema);

  SearchQuery query;
  const char *reason = Query_Parse(kDatabase, schema, predicate.data(), &query);
  const CorrectedQuery corrected = Query_Correct(kDatabase, schema, predicate.data());
  if (reason == nullptr) return Shown(kDatabase, query) + Shown(kDatabase, corrected);
  FUZZ_CHECK(std::string_view(reason).starts_with("Unable to parse query: "));
  FUZZ_CHECK(query.query.empty() && query.marks.empty());
  return reason;
}
