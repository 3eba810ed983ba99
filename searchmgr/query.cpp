#include "searchmgr/query.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "debug/text.h"
#include "searchmgr/query_text.h"
#include "searchmgr/stop_words.h"

namespace {

constexpr std::string_view kSeparators = "\t\r\n";
constexpr std::string_view kBlanks = " \v\f";
constexpr Xapian::termcount kMostExpansions = 100;
constexpr int kMostWildcards = 10;  // beyond them a star has no meaning: each costs as 100 words
constexpr std::size_t kCorrectedSize = 256;  // a longer text is not corrected: each word costs

// Queries, each once: to ask again costs as much and finds no more.
struct QuerySet {
  std::vector<Xapian::Query> queries;
  std::set<std::string> known;  // their keys
};

// What one field is asked for, or a piece of free text: any of it.
struct Demand {
  std::string prefix;  // of the field; empty: free text
  QuerySet any;
  bool restricts = false;  // has to be met, however words are joined
};

struct Builder {
  const Schema &schema;
  Xapian::Query::op oper;
  Xapian::Stem stem;
  const Xapian::Stopper *stopper;
  Xapian::QueryParser parser;
  int wildcards = 0;
  std::vector<Demand> demands;
  QuerySet free_text;  // those of demands without a prefix
  QuerySet excluded;
  std::vector<std::string> marks;
};

// What a query asks for, wherever in the text it stood.
std::string KeyOf(const Xapian::Query &query) {
  if (query.get_type() == Xapian::Query::LEAF_TERM) return *query.get_terms_begin() + '\n';
  if (query.get_num_subqueries() == 0) return query.serialise() + '\n';
  std::string key = std::to_string(query.get_type()) + '(';
  for (std::size_t i = 0; i < query.get_num_subqueries(); ++i) key += KeyOf(query.get_subquery(i));
  return key + ')';
}

bool AddOnce(QuerySet *set, const Xapian::Query &query) {
  if (!set->known.insert(KeyOf(query)).second) return false;
  set->queries.push_back(query);
  return true;
}

// Adds a query, or where the operator joins several those for themselves.
void AddJoined(QuerySet *set, const Xapian::Query &query, Xapian::Query::op oper) {
  if (query.get_type() != oper) {
    AddOnce(set, query);
    return;
  }
  for (std::size_t i = 0; i < query.get_num_subqueries(); ++i)
    AddJoined(set, query.get_subquery(i), oper);
}

Xapian::Query Joined(Xapian::Query::op oper, const std::vector<Xapian::Query> &queries) {
  return {oper, queries.begin(), queries.end()};
}

// Looks through the tokens with "@".  Null, or what is wrong with one of them.
const char *ReadOper(std::string_view predicate, Xapian::Query::op *oper) {
  *oper = Xapian::Query::OP_AND;
  for (;;) {
    const std::string_view token = Text_Token(&predicate, kSeparators);
    if (token.empty()) return nullptr;
    if (token.front() != '@') continue;
    if (!token.starts_with("@OPER="))
      return "Unable to parse query: a header field stands behind the start of the query";
    if (token == "@OPER=AND")
      *oper = Xapian::Query::OP_AND;
    else if (token == "@OPER=OR")
      *oper = Xapian::Query::OP_OR;
    else
      return "Unable to parse query: @OPER is neither AND nor OR";
  }
}

// The tokens without "@".
std::string TextOf(std::string_view predicate) {
  std::string text;
  for (std::string_view token = Text_Token(&predicate, kSeparators); !token.empty();
       token = Text_Token(&predicate, kSeparators)) {
    if (token.front() == '@') continue;
    if (!text.empty()) text += '\t';
    text += token;
  }
  return text;
}

// What the indexer stemmed with; omindex and scriptindex take English when they are not told.
Xapian::Stem StemOf(const Schema &schema) {
  if (schema.origin == SchemaOrigin::kOmega) return Xapian::Stem("english");
  return schema.language.empty() ? Xapian::Stem() : Xapian::Stem(schema.language);
}

Builder BuilderFor(const Xapian::Database &database, const Schema &schema, Xapian::Query::op oper) {
  Builder builder = {schema, oper, StemOf(schema), StopWords_Of(schema.language), {}, 0, {}, {},
                     {},     {}};
  builder.parser.set_database(database);
  builder.parser.set_default_op(oper);
  builder.parser.set_stemmer(builder.stem);
  builder.parser.set_stemming_strategy(Xapian::QueryParser::STEM_SOME);
  builder.parser.set_stopper(builder.stopper);
  builder.parser.set_max_expansion(kMostExpansions, Xapian::Query::WILDCARD_LIMIT_MOST_FREQUENT);
  return builder;
}

// Nothing, where Xapian's parser finds no way through.
Xapian::Query Parse(Xapian::QueryParser *parser, std::string_view text, unsigned flags,
                    const std::string &prefix) {
  try {
    return parser->parse_query(std::string(text), flags, prefix);
  } catch (const Xapian::QueryParserError &) {
    return {};
  }
}

// A word before one of these would not be stemmed: they belong to the parser's own language.
std::string WithoutMarks(const Builder &builder, std::string_view text) {
  std::string words(text);
  if (builder.stem.is_none()) return words;
  for (char &c : words)
    if (std::string_view("\"()*<=>[]{}").find(c) != std::string_view::npos) c = ' ';
  return words;
}

Xapian::Query OfWords(Builder *builder, std::string_view text, const std::string &prefix) {
  const std::string plain = WithoutMarks(*builder, text);
  Xapian::Query all = Parse(&builder->parser, plain, 0, prefix);
  if (all.empty()) {  // stop words alone are what is looked for
    builder->parser.set_stopper(nullptr);
    all = Parse(&builder->parser, plain, 0, prefix);
    builder->parser.set_stopper(builder->stopper);
  }
  QuerySet words;
  if (!all.empty()) AddJoined(&words, all, builder->oper);
  return Joined(builder->oper, words.queries);
}

Xapian::Query OfWildcard(Builder *builder, std::string_view text, const std::string &prefix) {
  if (builder->wildcards == kMostWildcards) return OfWords(builder, text, prefix);
  ++builder->wildcards;
  return Parse(&builder->parser, text, Xapian::QueryParser::FLAG_WILDCARD, prefix);
}

// The value of a field that Omega's indexers keep whole, such as a type: they part a prefix of
// several letters from a capital.
Xapian::Query OfOmega(std::string prefix, std::string_view value) {
  if (prefix.size() > 1 && value.front() >= 'A' && value.front() <= 'Z') prefix += ':';
  return {0.0, Xapian::Query(Schema_ShortTerm(prefix.append(value)))};
}

Xapian::Query OfPhrase(Builder *builder, std::string_view text, const std::string &prefix) {
  const std::string quoted = std::string("\"").append(text).append("\"");
  Xapian::Query phrase = Parse(&builder->parser, quoted, Xapian::QueryParser::FLAG_PHRASE, prefix);
  if (builder->schema.origin != SchemaOrigin::kOmega || prefix.empty()) return phrase;
  return {Xapian::Query::OP_OR, phrase, OfOmega(prefix, text)};
}

Xapian::Query OfRange(const Schema &schema, const SchemaField &field, std::string_view text) {
  const Xapian::valueno slot = Schema_Slot(schema, field);
  ValueRange range;
  (void)QueryText_Range(field.kind, text, &range);
  if (!range.high)
    return {Xapian::Query::OP_VALUE_GE, slot, Xapian::sortable_serialise(*range.low)};
  const std::string high = Xapian::sortable_serialise(*range.high);
  if (!range.low) return {Xapian::Query::OP_VALUE_LE, slot, high};
  return {Xapian::Query::OP_VALUE_RANGE, slot, Xapian::sortable_serialise(*range.low), high};
}

Xapian::Query OfPiece(Builder *builder, const TextPart &part, const TextPiece &piece) {
  const std::string prefix =
      part.name.empty() ? std::string() : Schema_Prefix(builder->schema, part.name);
  switch (piece.kind) {
    case PieceKind::kWords: return OfWords(builder, piece.text, prefix);
    case PieceKind::kPhrase: return OfPhrase(builder, piece.text, prefix);
    case PieceKind::kWildcard: return OfWildcard(builder, piece.text, prefix);
    case PieceKind::kExact:
      return {0.0, Xapian::Query(Schema_ExactTerm(part.field->name, piece.text))};
    case PieceKind::kRange: return OfRange(builder->schema, *part.field, piece.text);
  }
  return {};
}

bool Restricts(PieceKind kind) { return kind == PieceKind::kExact || kind == PieceKind::kRange; }

// The words of a piece as stems, in their order.  A term that is stemmed already has a "Z" before
// it; words are in small letters, so none begins like that.
void AddMarks(Builder *builder, std::string_view text) {
  const Xapian::Query words = OfWords(builder, text, "");
  for (auto term = words.get_terms_begin(); term != words.get_terms_end(); ++term) {
    const std::string word = *term;
    const std::string stem = word.starts_with('Z') ? word.substr(1) : builder->stem(word);
    if (std::find(builder->marks.begin(), builder->marks.end(), stem) == builder->marks.end())
      builder->marks.push_back(stem);
  }
}

Demand *DemandFor(Builder *builder, const std::string &prefix) {
  for (Demand &demand : builder->demands)
    if (demand.prefix == prefix) return &demand;
  builder->demands.push_back({prefix, {}, false});
  return &builder->demands.back();
}

// Each piece for itself: the operator joins it to all others.
void AddFreeText(Builder *builder, const QuerySet &wanted) {
  for (const Xapian::Query &query : wanted.queries)
    if (AddOnce(&builder->free_text, query)) builder->demands.push_back({"", {{query}, {}}, false});
}

void AddWanted(Builder *builder, const TextPart &part, const QuerySet &wanted, bool restricts) {
  if (wanted.queries.empty()) return;
  if (part.name.empty()) return AddFreeText(builder, wanted);
  const Xapian::Query all = Joined(builder->oper, wanted.queries);
  if (part.exclude) {
    AddOnce(&builder->excluded, all);
    return;
  }
  Demand *demand = DemandFor(builder, Schema_Prefix(builder->schema, part.name));
  AddOnce(&demand->any, all);
  demand->restricts = demand->restricts || restricts;
}

void AddPart(Builder *builder, const TextPart &part) {
  QuerySet wanted;
  bool restricts = false;
  for (const TextPiece &piece : part.pieces) {
    const Xapian::Query query = OfPiece(builder, part, piece);
    if (query.empty()) continue;  // an empty field of a form asks for nothing
    AddOnce(piece.exclude ? &builder->excluded : &wanted, query);
    if (piece.exclude || part.exclude) continue;
    restricts = restricts || Restricts(piece.kind);
    if (piece.kind == PieceKind::kWords || piece.kind == PieceKind::kPhrase)
      AddMarks(builder, piece.text);
  }
  AddWanted(builder, part, wanted, restricts);
}

// All that was added as one query.  Null, or why there is none.
const char *Join(const Builder &builder, Xapian::Query *query) {
  constexpr auto kAnd = Xapian::Query::OP_AND, kOr = Xapian::Query::OP_OR;
  std::vector<Xapian::Query> required, words;
  for (const Demand &demand : builder.demands) {
    const bool always = demand.restricts || builder.oper == kAnd;
    const Xapian::Query any = Joined(kOr, demand.any.queries);
    if (always)
      required.push_back(any);
    else
      words.push_back(any);
  }
  if (!words.empty()) required.insert(required.begin(), Joined(kOr, words));
  const std::vector<Xapian::Query> &excluded = builder.excluded.queries;
  if (required.empty() && excluded.empty())
    return "Unable to parse query: it has no search terms; type a word to look for";
  if (required.empty())
    return "Unable to parse query: it only says what to leave out; type a word to look for";
  *query = Joined(kAnd, required);
  if (!excluded.empty()) *query = {Xapian::Query::OP_AND_NOT, *query, Joined(kOr, excluded)};
  return nullptr;
}

const char *Build(Builder *builder, const std::vector<TextPart> &parts, Xapian::Query *query) {
  for (const TextPart &part : parts) AddPart(builder, part);
  return Join(*builder, query);
}

// Words of a keyword are not in the spelling data, and quotes around a value ask for just that.
bool HasSpelling(const Schema &schema, const TextPart &part, const TextPiece &piece) {
  if (part.field != nullptr && part.field->kind == FieldKind::kKeyword) return false;
  const bool is_value = schema.origin == SchemaOrigin::kOmega && !part.name.empty();
  if (is_value && piece.kind == PieceKind::kPhrase) return false;
  return piece.kind == PieceKind::kWords || piece.kind == PieceKind::kPhrase;
}

// A word as it should be spelled; empty: the database knows it, or no better one.
std::string CorrectedWord(Xapian::QueryParser *parser, const Xapian::Database &database,
                          std::string_view word) {
  const Xapian::Query terms = Parse(parser, word, 0, "");
  const auto is_known = [&](const std::string &term) { return database.term_exists(term); };
  if (std::all_of(terms.get_terms_begin(), terms.get_terms_end(), is_known)) return {};
  (void)Parse(parser, word, Xapian::QueryParser::FLAG_SPELLING_CORRECTION, "");
  return parser->get_corrected_query_string();
}

// The words of a text that can be misspelt, in their order.
std::vector<std::string_view> SpelledWords(const Schema &schema,
                                           const std::vector<TextPart> &parts) {
  std::vector<std::string_view> words;
  for (const TextPart &part : parts)
    for (const TextPiece &piece : part.pieces) {
      if (!HasSpelling(schema, part, piece)) continue;
      std::string_view rest = piece.text;
      for (std::string_view word = Text_Token(&rest, kBlanks); !word.empty();
           word = Text_Token(&rest, kBlanks))
        words.push_back(word);
    }
  return words;
}

// The text with other words for those that are not known; empty: there are none to change.
std::string Corrected(const Xapian::Database &database, const Schema &schema, std::string_view text,
                      const std::vector<TextPart> &parts) {
  if (text.size() > kCorrectedSize || database.spellings_begin() == database.spellings_end())
    return {};
  Xapian::QueryParser parser;  // which does not stem
  parser.set_database(database);
  std::string corrected;
  std::size_t done = 0;
  for (const std::string_view word : SpelledWords(schema, parts)) {
    const std::string better = CorrectedWord(&parser, database, word);
    if (better.empty()) continue;
    const std::size_t begin = static_cast<std::size_t>(word.data() - text.data());
    corrected.append(text.substr(done, begin - done)).append(better);
    done = begin + word.size();
  }
  if (!corrected.empty()) corrected.append(text.substr(done));
  return corrected;
}

}  // namespace

const char *Query_Parse(const Xapian::Database &database, const Schema &schema,
                        const char *predicate, SearchQuery *query) {
  *query = {};
  if (predicate == nullptr)
    return "Unable to parse query: there is none, or a header field before it was refused";
  Xapian::Query::op oper;
  const char *reason = ReadOper(predicate, &oper);
  if (reason != nullptr) return reason;
  const std::string text = TextOf(predicate);
  Builder builder = BuilderFor(database, schema, oper);
  reason = Build(&builder, QueryText_Read(text, schema), &query->query);
  if (reason != nullptr) return reason;
  query->marks = builder.marks;
  return nullptr;
}

CorrectedQuery Query_Correct(const Xapian::Database &database, const Schema &schema,
                             const char *predicate) {
  CorrectedQuery corrected;
  Xapian::Query::op oper;
  if (predicate == nullptr || ReadOper(predicate, &oper) != nullptr) return corrected;
  const std::string text = TextOf(predicate);
  corrected.text = Corrected(database, schema, text, QueryText_Read(text, schema));
  if (corrected.text.empty()) return corrected;
  Builder builder = BuilderFor(database, schema, oper);
  (void)Build(&builder, QueryText_Read(corrected.text, schema), &corrected.query);
  return corrected;
}
