#include "tests/soak/draft.h"

namespace {

constexpr std::size_t kFetchSize = 32768;  // that a failed fetch leaves in the output, cleared

std::shared_ptr<Deed> MakeDeed(const std::string &request, const std::string &answer) {
  auto deed = std::make_shared<Deed>();
  deed->request = request;
  deed->answer = answer;
  return deed;
}

// What the daemon asks a Document Manager.
std::string Fetch(const std::string &group, int number, const std::string &macro, int sequence) {
  return "\t@COMMAND=GETDOC\t@BESTFIT=0\t@SEARCHGROUP=" + group +
         "\t@RECTYPE=text\t@MACROFILE=" + macro + "\t@DOCNUM=" + std::to_string(number) +
         "\t@SCRIPT=\t@SEQNUM=" + std::to_string(sequence) +
         "\t@AUTHCODE=\t@FILENAME=\t@EXPDATE=0\n";
}

std::string Named(const std::string &group, int number) {
  return "\t@SEARCHGROUP=" + group + "\t@RECTYPE=text\t@DOCNUM=" + std::to_string(number);
}

}  // namespace

std::string Draft::Text(int low, int high) {
  std::string text(static_cast<std::size_t>(Pick(low, high)), ' ');
  for (char &letter : text) letter = static_cast<char>(Pick('!', '~'));
  if (text.starts_with('@')) text[0] = 'a';  // would be a field of the header
  return text;
}

const Page &Draft::AnyPage() {
  // The second two end a page early and are rare.
  static constexpr int kUsual[] = {0, 1, 4, 5, 6, 7};
  return pages[static_cast<std::size_t>(One(20) ? Pick(2, 3) : kUsual[Pick(0, 5)])];
}

void Draft::Query(const Page &page, int max_hits) {
  exchange.page = &page;
  exchange.max_hits = max_hits;
  exchange.visit.request = "\t@COMMAND=QUERY\t@SEQNUM=" + std::to_string(exchange.number) +
                           "\t@SEARCHGROUP=" + search_group + "\t@MACROFILE=" + page.base;
  if (max_hits != 0) exchange.visit.request += "\t@MAXHITS=" + std::to_string(max_hits);
  exchange.visit.request += "\t" + Text(1, 60) + "\n";
  exchange.search = MakeDeed(exchange.visit.request, "");
  exchange.search->mortal = std::string(search_group) == kMortal[0];
}

// A document that the macro fetches while it formats another.
void Draft::AddFurther(Content *content) {
  const int number = (*next_document)++;
  const bool known = !One(8);
  const char *group = known ? kSteady[1] : kUnknown[1];
  content->raw += "\tFETCH=" + std::string(group) + ",text," + std::to_string(number);
  const bool inserts = exchange.page->base.ends_with("insert");
  if (!known) {
    if (!inserts) content->further = std::string(kFetchSize, '\0');
    return;
  }
  const std::string text = "\tFURTHER=" + std::to_string(number) + "\tWITH=" + Text(0, 100) + "\n";
  const bool answered = !One(8);
  exchange.fetched[number] =
      MakeDeed(Fetch(group, number, "", 0), answered ? "\t@COMMAND=HIT" + text : "");
  if (answered) content->further = text;
}

int Draft::AddDocument(const std::string &group, int body_size) {
  const int number = (*next_document)++;
  Document document;
  Content &content = document.content;
  content.name = "document " + std::to_string(number);
  content.body = Text(body_size, body_size);
  content.raw = "\tNAME=" + content.name + "\tBODY=" + content.body;
  if (exchange.page->fetches) AddFurther(&content);
  content.raw += "\tLAST=" + std::to_string(number) + "\n";
  const std::string macro = exchange.whole_document ? exchange.page->base : "";
  document.deed =
      MakeDeed(Fetch(group, number, macro, exchange.whole_document ? exchange.number : 0),
               "\t@COMMAND=HIT" + content.raw);
  document.deed->mortal = group == kMortal[1];
  exchange.fetched[number] = document.deed;
  exchange.documents.push_back(document);
  return number;
}

void Draft::Hit(int body_size) {
  const int number = AddDocument(document_group, body_size);
  exchange.records.push_back({"\t@COMMAND=HIT" + Named(document_group, number) + "\n",
                              Record::What::kHit, "", exchange.documents.size() - 1});
}

void Draft::Hits(int count) {
  for (int i = 0; i < count; ++i) Hit();
}

void Draft::Raw(const std::string &text) {
  Add(Record::What::kText, "\t@COMMAND=RAW\t" + text + "\n", "\t" + text + "\n");
}

void Draft::Add(Record::What what, const std::string &bytes, const std::string &text) {
  exchange.records.push_back({bytes, what, text, 0});
}

void Draft::End() {
  for (const Record &record : exchange.records) exchange.search->answer += record.bytes;
}

void Draft::GetDoc(const Page &page) {
  exchange.page = &page;
  exchange.whole_document = true;
  const int number = AddDocument(document_group, Pick(0, 300));
  exchange.visit.request = "\t@COMMAND=GETDOC\t@SEQNUM=" + std::to_string(exchange.number) +
                           "\t@MACROFILE=" + page.base + Named(document_group, number) +
                           "\tplease\n";
}

void Draft::Fixed(const std::string &request, const std::string &answer) {
  exchange.page = nullptr;
  exchange.visit.request = request;
  exchange.fixed = answer;
}

// The document's own manager fails in one of the ways that leave no doubt, or resets.
void Draft::Misbehave(Document *document) {
  Deed &deed = *document->deed;
  switch (Pick(0, 6)) {
    case 0:  // closes half way
      deed.answer.resize(
          static_cast<std::size_t>(Pick(0, static_cast<int>(deed.answer.size()) - 1)));
      document->result = Document::Result::kEmpty;
      break;
    case 1: deed.end = Deed::End::kReset; break;
    case 2:  // resets half way
      deed.answer.resize(deed.answer.size() / 2);
      deed.end = Deed::End::kReset;
      document->result = Document::Result::kEmpty;
      break;
    case 3:
      deed.answer = "\t@COMMAND=ERROR\tno such document\n";
      document->result = Document::Result::kFailed;
      break;
    case 4: deed.way = Deed::Way::kUnread; break;
    case 5:  // a NUL hides the line's end
      deed.answer.insert(deed.answer.size() / 2, 1, '\0');
      document->result = Document::Result::kEmpty;
      break;
    default: deed.answer = "no header at all\n"; document->result = Document::Result::kFailed;
  }
}
