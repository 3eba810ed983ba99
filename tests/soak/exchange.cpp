#include "tests/soak/exchange.h"

namespace {

constexpr const char *kNoDocument = "\t@COMMAND=ERROR\tUnable to retreive document.";
constexpr const char *kNoServer = "\t@COMMAND=ERROR\tUnable to locate Document Server.";
constexpr const char *kNoSearch =
    "\t@COMMAND=ERROR\tUnable to receive from Search Manager. Please contact Web Administrator.\n";

using Results = std::set<Document::Result>;

bool MayBeUnread(const Deed &deed) {
  return deed.way == Deed::Way::kUnread || (deed.mortal && !deed.read);
}

// What the daemon may make of a fetch.
Results Possible(const Document &document) {
  const Deed *deed = document.deed.get();
  if (deed == nullptr) return {document.result};
  if (MayBeUnread(*deed)) return {Document::Result::kFailed, Document::Result::kEmpty};
  if (deed->cut && deed->sent < deed->answer.size()) return {Document::Result::kEmpty};
  if (deed->end == Deed::End::kReset) return {document.result, Document::Result::kEmpty};
  return {document.result};
}

// The text of a hit or of a GETDOC; none: the fetch or its macro failed.
std::optional<std::string> Formatted(const Exchange &exchange, const Document &document,
                                     Document::Result result) {
  if (result == Document::Result::kFailed) return std::nullopt;
  if (result == Document::Result::kEmpty) return "";
  return exchange.page->format(document.content);
}

// How many records reach the daemon, at least and at most.
struct Range {
  std::size_t least, most;
};

Range Arrived(const Exchange &exchange) {
  const Deed &deed = *exchange.search;
  std::size_t bytes = 0, whole = 0;
  for (const Record &record : exchange.records) {
    bytes += record.bytes.size();
    if (deed.cut && bytes > deed.sent) break;
    if (record.bytes.back() == '\n') ++whole;
  }
  return {deed.end == Deed::End::kReset ? 0 : whole, whole};
}

// A page in the making, and the pages at which the relay may have ended.
struct Relay {
  const Exchange &exchange;
  std::string page;
  std::set<std::string> ends;
  int hits = 0;

  // False: the relay surely ends here.
  bool Hit(const Document &document) {
    if (exchange.max_hits > 0 && ++hits > exchange.max_hits) return End(page);
    std::string longer;
    for (const Document::Result result : Possible(document)) {
      const std::optional<std::string> text = Formatted(exchange, document, result);
      if (!text.has_value())
        End(page + kNoDocument);
      else if (text->empty())
        End(page);
      else
        longer = page + *text;
    }
    if (longer.empty()) return false;
    page = std::move(longer);
    return true;
  }

  bool End(const std::string &at) {
    ends.insert(at);
    return false;
  }

  bool Take(const Record &record) {
    switch (record.what) {
      case Record::What::kHit: return Hit(exchange.documents[record.document]);
      case Record::What::kText: page += record.text; return true;
      case Record::What::kLastText: return End(page + record.text);
      case Record::What::kEnd: return End(page);
      case Record::What::kOverflow: return End(page + kNoSearch);
      case Record::What::kIgnored: return true;
    }
    return false;
  }
};

std::set<std::string> QueryAnswers(const Exchange &exchange) {
  Relay relay = {exchange, exchange.page->header, {}, 0};
  const Deed &deed = *exchange.search;
  std::set<std::string> answers;
  if (MayBeUnread(deed)) {
    for (const char *error : {"-111", "-104", "-32"})
      answers.insert(
          "\t@COMMAND=ERROR\tUnable to connect to SearchMgr: rc = " + std::string(error) + "\n");
    relay.End(relay.page);
  } else {
    const Range arrived = Arrived(exchange);
    std::size_t taken = 0;
    bool goes_on = true;
    for (; goes_on && taken < arrived.most; ++taken) {
      if (taken >= arrived.least) relay.End(relay.page);
      goes_on = relay.Take(exchange.records[taken]);
    }
    if (goes_on) relay.End(relay.page);
  }
  for (const std::string &end : relay.ends) answers.insert(end + exchange.page->tail);
  return answers;
}

std::set<std::string> GetDocAnswers(const Exchange &exchange) {
  std::set<std::string> answers;
  const Document &document = exchange.documents[0];
  for (const Document::Result result : Possible(document)) {
    const std::optional<std::string> text = Formatted(exchange, document, result);
    if (!text.has_value())
      answers.insert(kNoServer);
    else if (text->empty() || text->front() == '\0')
      answers.insert(exchange.page->header);
    else
      answers.insert(exchange.page->header + text->c_str() + exchange.page->tail);
  }
  return answers;
}

}  // namespace

std::set<std::string> Exchange_Answers(const Exchange &exchange) {
  if (exchange.page == nullptr) return {exchange.fixed};
  return exchange.whole_document ? GetDocAnswers(exchange) : QueryAnswers(exchange);
}
