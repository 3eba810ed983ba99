#include "searchmgr/request.h"

#include <algorithm>
#include <string_view>

#include "debug/text.h"

namespace {

constexpr std::string_view kSeparators = "\t\n\r";

struct Number {
  std::string_view name;  // on the wire
  std::int32_t SearchRequest::*value;
  std::int32_t least, most;
  const char *reason;  // against a value that is not between them
};

constexpr Number kNumbers[] = {
    {"FIRSTHIT", &SearchRequest::first_hit, 0, kRequestMostHits,
     "Unable to parse query: @FIRSTHIT takes a number of hits to skip, from 0 to 10000"},
    {"DEADLINE", &SearchRequest::deadline, 1, kRequestLongestDeadline,
     "Unable to parse query: @DEADLINE takes milliseconds, from 1 to 600000"},
    {"STATUS", &SearchRequest::status, 0, 1, "Unable to parse query: @STATUS takes 0 or 1"},
};

void SetSort(std::string_view value, SearchRequest *request) {
  request->sort_descending = value.starts_with('-');
  request->sort = value.substr(request->sort_descending ? 1 : 0);
}

void TakeField(std::string_view name, std::string_view value, SearchRequest *request) {
  if (name == "SORT") SetSort(value, request);
  for (const Number &number : kNumbers)
    if (number.name == name)
      request->*number.value = value.empty() ? SearchRequest().*number.value : Text_ToInt32(value);
}

// The next token of the header, its "@" left out, as Util_IntCmdHdr takes them: only what a
// separator ends is one.  Empty: the header has ended.
std::string_view TakeToken(std::string_view *text) {
  if (text->empty() || kSeparators.find(text->front()) == std::string_view::npos) return {};
  const std::size_t end = text->find_first_of(kSeparators, 1);
  if (end == std::string_view::npos) return {};
  std::string_view token = text->substr(1, end - 1);
  text->remove_prefix(end);
  if (!token.starts_with('@')) return {};
  token.remove_prefix(1);
  return token;
}

void TakeHeader(std::string_view text, SearchRequest *request) {
  for (std::string_view token = TakeToken(&text); !token.empty(); token = TakeToken(&text)) {
    const std::size_t equals = token.find('=');
    if (equals == std::string_view::npos) return;
    const std::string_view name = token.substr(0, equals);
    if (name == "OPER") return;
    TakeField(name, token.substr(equals + 1), request);
  }
}

}  // namespace

const char *Request_Read(const CmdHdr &hdr, const char *text, SearchRequest *request) {
  *request = {};
  TakeHeader(text, request);
  for (const Number &number : kNumbers)
    if (request->*number.value < number.least || request->*number.value > number.most)
      return number.reason;
  if (hdr.BestFit < 0 || hdr.BestFit > 100)
    return "Unable to parse query: @BESTFIT takes per cent of the best weight, from 0 to 100";
  request->best_fit = hdr.BestFit;
  if (hdr.MaxHits < 0)
    return "Unable to parse query: @MAXHITS takes the number of hits of a page, 0 or more";
  if (hdr.MaxHits > 0) request->hits = std::min(hdr.MaxHits, kRequestMostHits);
  if (request->first_hit > kRequestMostHits - request->hits)
    return "Unable to parse query: @FIRSTHIT and @MAXHITS together reach beyond hit 10000";
  return nullptr;
}

std::string Request_SortSlot(const SearchRequest &request, const Schema &schema,
                             Xapian::valueno *slot) {
  const SchemaField *field = Schema_Find(schema, request.sort);
  if (field != nullptr && Schema_IsSorted(*field)) {
    *slot = Schema_Slot(schema, *field);
    return {};
  }
  std::string names;  // not what was asked for: an answer repeats no text of a client
  for (const SchemaField &known : schema.fields)
    if (Schema_IsSorted(known)) names.append(names.empty() ? "" : ", ").append(known.name);
  if (names.empty()) return "Unable to sort: the database has no field that hits can be sorted by";
  return "Unable to sort: @SORT takes one of these fields, with '-' before it for descending order: " +
         names;
}
