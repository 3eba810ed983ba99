#include "tools/wire/exchange.h"

#include <algorithm>
#include <initializer_list>
#include <set>

#include "tools/common/tool.h"
#include "tools/wire/header.h"
#include "tools/wire/transcript.h"

namespace {

// Bytes that are looked at of a request, and of a line of an answer.
constexpr std::size_t kLine = 8192;
constexpr std::string_view kError = "\t@COMMAND=ERROR\t";

bool IsOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

bool IsNumber(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string_view ValueOf(std::string_view line, std::string_view name) {
  std::string_view value;
  return Header_Find(line, name, &value) ? value : std::string_view();
}

// A name that the wire knows tells nothing of a user.
bool IsKnown(std::string_view name) {
  return IsOneOf(name, {"COMMAND", "BESTFIT", "SEARCHGROUP", "RECTYPE", "MACROFILE", "DOCNUM",
                        "MAXHITS", "SCRIPT", "SEQNUM", "AUTHCODE", "FILENAME", "EXPDATE",
                        "FIRSTHIT", "SORT", "DEADLINE", "STATUS"});
}

// Whether a client and no user has chosen the value.
bool IsOfTheClient(const HeaderField &field, bool is_getdoc) {
  if (IsOneOf(field.name, {"BESTFIT", "DOCNUM", "MAXHITS", "SEQNUM", "EXPDATE", "FIRSTHIT",
                           "DEADLINE", "STATUS"}))
    return IsNumber(field.value);
  if (field.name == "COMMAND") return IsOneOf(field.value, {"QUERY", "GETDOC"});
  if (field.name == "RECTYPE") return is_getdoc;
  return IsOneOf(field.name, {"SEARCHGROUP", "MACROFILE"});
}

std::string Hidden(std::string_view text) {
  std::string hidden(text);
  for (char &c : hidden)
    if (c != '\t' && c != '\r' && c != '\n') c = 'x';
  return hidden;
}

// A byte is the character of its number.
std::string Json(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\')
      out.append("\\").append(1, c);
    else if (c == '\t')
      out += "\\t";
    else if (c == '\n')
      out += "\\n";
    else if (byte < 0x20 || byte >= 0x7f)
      out += Tool_Format("\\u%04x", byte);
    else
      out += c;
  }
  return out + "\"";
}

// Milliseconds from the beginning, or null for what has not been.
std::string Ms(const Exchange &exchange, ExchangeClock::time_point time) {
  if (time == ExchangeClock::time_point{}) return "null";
  return Tool_Format("%.3f",
                     std::chrono::duration<double, std::milli>(time - exchange.begin).count());
}

std::size_t Count(std::string_view text, std::string_view word) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(word, at)) != std::string_view::npos; ++at) ++count;
  return count;
}

void Add(Exchange *exchange, const std::string &step) {
  if (exchange->recorded && !Exchange_IsTooLong(*exchange)) exchange->transcript += step + "\n";
}

// A HIT is a line of its own; an ERROR of the daemon may stand anywhere in a page.
void TakeLineOfAnswer(Exchange *exchange, std::string_view bytes) {
  std::string *line = &exchange->unfinished;
  line->append(bytes.substr(0, kLine - std::min(kLine, line->size())));
  if (!bytes.ends_with('\n')) return;
  if (!line->ends_with('\n')) line->push_back('\n');
  if (ValueOf(*line, "COMMAND") == "HIT") ++exchange->hits;
  line->clear();
}

}  // namespace

std::string Exchange_Redact(std::string_view line) {
  const bool is_getdoc = ValueOf(line, "COMMAND") == "GETDOC";
  std::set<std::string_view> names;
  std::string text;
  for (HeaderField field;;) {
    const char separator = line.empty() ? '\0' : line[0];
    if (!Header_Take(&line, &field)) return text + Hidden(line);
    // The second field of a name may be one that a user wrote behind those of the client.
    const bool kept = names.insert(field.name).second && IsOfTheClient(field, is_getdoc);
    text.append(1, separator).append("@");
    text.append(IsKnown(field.name) ? std::string(field.name) : Hidden(field.name));
    text.append("=").append(kept ? std::string(field.value) : Hidden(field.value));
  }
}

void Exchange_Begin(Exchange *exchange, std::chrono::milliseconds behind) {
  exchange->begin = ExchangeClock::now();
  exchange->wall = std::time(nullptr);
  for (; behind.count() > kTranscriptMs; behind -= std::chrono::milliseconds(kTranscriptMs))
    Add(exchange, Tool_Format("wait %d ms", kTranscriptMs));
  Add(exchange, Tool_Format("wait %d ms", static_cast<int>(behind.count())));
}

void Exchange_TakeRequest(Exchange *exchange, std::string_view bytes) {
  exchange->request_bytes += bytes.size();
  const bool before = exchange->asked != ExchangeClock::time_point{};
  const std::size_t newline = bytes.find('\n');
  const bool ends = !before && newline != std::string_view::npos;
  const std::string_view line = ends ? bytes.substr(0, newline + 1) : bytes;
  // A line of the service is far shorter; what never ends is not kept.
  if (!before) exchange->line += line.substr(0, kLine - exchange->line.size());
  if (ends) exchange->asked = ExchangeClock::now();
  if (!exchange->redacted)
    Add(exchange, "client > " + Transcript_Quote(bytes));
  else if (ends)
    Add(exchange, "client > " + Transcript_Quote(Exchange_Redact(exchange->line)));
}

void Exchange_TakeAnswer(Exchange *exchange, std::string_view bytes) {
  if (exchange->answer_bytes == 0) exchange->first = ExchangeClock::now();
  exchange->answer_bytes += bytes.size();
  const std::string whole = exchange->tail.append(bytes);
  exchange->errors += Count(whole, kError);
  // Less than the word, so that none is counted twice.
  exchange->tail = whole.substr(whole.size() - std::min(whole.size(), kError.size() - 1));
  for (std::string_view rest = bytes; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size() - 1) + 1;
    TakeLineOfAnswer(exchange, rest.substr(0, end));
    rest.remove_prefix(end);
  }
  Add(exchange, exchange->redacted ? Tool_Format("client < bytes %zu", bytes.size())
                                   : "client < " + Transcript_Quote(bytes));
}

void Exchange_Note(Exchange *exchange, const char *step) { Add(exchange, step); }

bool Exchange_IsTooLong(const Exchange &exchange) {
  return exchange.transcript.size() > std::size_t{kTranscriptSize};
}

std::string Exchange_Json(const Exchange &exchange) {
  char wall[32];
  std::tm parts = {};
  gmtime_r(&exchange.wall, &parts);
  std::strftime(wall, sizeof wall, "%Y-%m-%dT%H:%M:%SZ", &parts);
  const std::string line = exchange.redacted ? Exchange_Redact(exchange.line) : exchange.line;
  return Tool_Format(
      "{\"time\":\"%s\",\"number\":%d,\"command\":%s,\"group\":%s,\"request\":%s,"
      "\"request_bytes\":%zu,\"answer_bytes\":%zu,\"hits\":%zu,\"errors\":%zu,"
      "\"connected_ms\":%s,\"request_ms\":%s,\"first_ms\":%s,\"end_ms\":%s,\"end\":\"%s\"}\n",
      wall, exchange.number, Json(ValueOf(line, "COMMAND")).c_str(),
      Json(ValueOf(line, "SEARCHGROUP")).c_str(), Json(line).c_str(), exchange.request_bytes,
      exchange.answer_bytes, exchange.hits, exchange.errors,
      Ms(exchange, exchange.connected).c_str(), Ms(exchange, exchange.asked).c_str(),
      Ms(exchange, exchange.first).c_str(), Ms(exchange, exchange.last).c_str(), exchange.end);
}
