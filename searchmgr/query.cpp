#include "searchmgr/query.h"

#include <string>
#include <string_view>
#include <vector>

#include "debug/text.h"
#include "store/field.h"

namespace {

constexpr std::string_view kSeparators = "\t\r\n";

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

// The terms of one token, without an operator, a wildcard or a field of the query parser's own.
Xapian::Query ParseToken(Xapian::QueryParser *parser, std::string_view token) {
  const std::size_t equals = token.find('=');
  const bool is_field = equals != std::string_view::npos && Field_IsName(token.substr(0, equals));
  if (!is_field) return parser->parse_query(std::string(token), 0);
  return parser->parse_query(std::string(token.substr(equals + 1)), 0,
                             Field_Prefix(token.substr(0, equals)));
}

}  // namespace

const char *Query_Parse(const Xapian::Database &database, const char *predicate,
                        Xapian::Query *query) {
  if (predicate == nullptr)
    return "Unable to parse query: there is none, or a header field before it was refused";
  Xapian::Query::op oper;
  const char *reason = ReadOper(predicate, &oper);
  if (reason != nullptr) return reason;

  Xapian::QueryParser parser;
  parser.set_database(database);
  parser.set_default_op(oper);
  std::vector<Xapian::Query> parts;
  std::string_view rest = predicate;
  for (std::string_view token = Text_Token(&rest, kSeparators); !token.empty();
       token = Text_Token(&rest, kSeparators)) {
    if (token.front() == '@') continue;
    const Xapian::Query part = ParseToken(&parser, token);
    if (!part.empty()) parts.push_back(part);  // an empty field of a form asks for nothing
  }
  if (parts.empty()) return "Unable to parse query: it has no search terms";
  *query = Xapian::Query(oper, parts.begin(), parts.end());
  return nullptr;
}
