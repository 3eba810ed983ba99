// The kinds of exchanges: a new one is a function and a row.
#include "tests/soak/draft.h"

namespace {

using What = Record::What;

constexpr int kRecordSize = 40960;

std::string Command(const Draft &draft, const std::string &fields, const std::string &name) {
  return "\t@COMMAND=" + name + "\t@SEQNUM=" + std::to_string(draft.exchange.number) + fields +
         "\twords\n";
}

std::string Macro(const Draft &draft) { return "\t@MACROFILE=" + draft.pages[0].base; }

// --- Searches ---

void Plain(Draft *draft) {
  draft->Query();
  const int records = draft->Pick(0, 5);
  for (int i = 0; i < records; ++i) {
    if (draft->One(4))
      draft->Raw(draft->Text(0, 300));
    else
      draft->Hit();
  }
  if (!draft->One(4)) draft->Complete();
}

void Limited(Draft *draft) {
  const int limit = draft->Pick(1, 3);
  draft->Query(draft->AnyPage(), limit);
  draft->Hits(limit + draft->Pick(0, 3));
}

void Dripping(Draft *draft) {
  draft->Query();
  draft->Raw("drop by drop");
  draft->Hit(40);
  draft->exchange.search->way = draft->One(2) ? Deed::Way::kDrip : Deed::Way::kPieces;
  draft->Last().deed->way = Deed::Way::kDrip;
  draft->Complete();
}

// The managers say a part of what they should, or nothing, until they are closed.
void Hanging(Draft *draft) {
  draft->Query();
  draft->Hits(draft->Pick(0, 2));
  draft->exchange.search->hold_ms = draft->Pick(50, 400);
  if (draft->exchange.documents.empty() || draft->One(2)) return;
  draft->Last().deed->answer.clear();
  draft->Last().deed->hold_ms = draft->Pick(50, 400);
  draft->Last().result = Document::Result::kEmpty;
}

void HalfClosed(Draft *draft) {
  draft->Query();
  draft->Hits(draft->Pick(0, 3));
  draft->exchange.search->end = Deed::End::kHalfClose;
  draft->exchange.search->hold_ms = draft->Pick(1, 50);
}

void ResetSearch(Draft *draft) {
  draft->Query();
  draft->Hits(draft->Pick(0, 3));
  draft->exchange.search->end = Deed::End::kReset;
  draft->exchange.search->hold_ms = draft->Pick(0, 5);
}

void UnreadSearch(Draft *draft) {
  draft->Query();
  draft->exchange.search->way = Deed::Way::kUnread;
}

void BadDocument(Draft *draft) {
  draft->Query();
  draft->Hits(draft->Pick(1, 4));
  draft->Misbehave(&draft->exchange.documents[static_cast<std::size_t>(
      draft->Pick(0, static_cast<int>(draft->exchange.documents.size()) - 1))]);
  draft->Complete();
}

void NoDocumentManager(Draft *draft) {
  draft->Query();
  draft->Hits(draft->Pick(0, 2));
  draft->document_group = draft->One(2) ? kUnknown[1] : kRefusing[1];
  draft->Hit();
  draft->Last().deed = nullptr;
  draft->Last().result = Document::Result::kFailed;
  draft->document_group = kSteady[1];
  draft->Hits(draft->Pick(0, 2));
}

void LastWords(Draft *draft) {
  draft->Query();
  draft->Hits(draft->Pick(0, 2));
  switch (draft->Pick(0, 4)) {
    case 0:
      draft->Add(What::kLastText, "\t@COMMAND=ERROR\tof the search\n", "\tof the search\n");
      break;
    case 1: draft->Add(What::kEnd, "\t@COMMAND=ERROR\n"); break;
    case 2: draft->Add(What::kEnd, "\t@COMMAND=OTHER\twords\n"); break;
    case 3: draft->Add(What::kEnd, "no header\n"); break;
    default: draft->Add(What::kEnd, "\n");
  }
  draft->Hits(draft->Pick(0, 2));
}

void LoneHeader(Draft *draft) {
  draft->Query();
  draft->Hit();
  draft->Add(What::kIgnored, "\t@COMMAND=RAW\n");
  draft->Hit();
}

// Records around the size of the buffer that takes them.
void Brim(Draft *draft) {
  const int size = kRecordSize + draft->Pick(-1, 1);
  const bool fits = size <= kRecordSize;
  draft->Query(draft->pages[0]);
  draft->Hit();
  const std::string head = "\t@COMMAND=RAW\t";
  const std::string text(static_cast<std::size_t>(size) - head.size() - 1, 'r');
  if (draft->One(2)) {
    draft->Add(fits ? What::kText : What::kOverflow, head + text + "\n", "\t" + text + "\n");
  } else {
    draft->Hit(0);
    Document &document = draft->Last();
    const auto missing = static_cast<std::size_t>(size) - document.deed->answer.size();
    const std::string more(missing, 'd');
    document.content.raw.insert(document.content.raw.size() - 1, more);
    document.deed->answer.insert(document.deed->answer.size() - 1, more);
    if (!fits) document.result = Document::Result::kFailed;
  }
  draft->Hit();
}

// A NUL hides the line ends that came with it: everything behind is waited through.
void Nul(Draft *draft) {
  draft->Query();
  draft->Hits(draft->Pick(0, 2));
  draft->Add(What::kEnd, std::string("\t@COMMAND=RAW\twith\0it\n", 22));
  if (draft->One(2)) draft->Raw("not seen");
}

void NoNewline(Draft *draft) {
  draft->Query();
  draft->Hits(draft->Pick(0, 2));
  draft->Add(What::kEnd, "\t@COMMAND=RAW\tno end");
}

void Endless(Draft *draft) {
  draft->Query();
  draft->Hit();
  draft->Add(What::kOverflow, "\t@COMMAND=RAW\t" + std::string(kRecordSize, 'e') + "\n");
}

void Many(Draft *draft) {
  draft->Query(draft->pages[1]);
  const int hits = draft->Pick(50, 200);
  for (int i = 0; i < hits; ++i) draft->Hit(draft->Pick(0, 40));
  draft->Complete();
}

void TenThousand(Draft *draft) {
  draft->Query(draft->pages[1], draft->One(4) ? 3 : 0);
  for (int i = 0; i < 10000; ++i) draft->Hit(10);
}

void Dying(Draft *draft) {
  draft->search_group = draft->One(3) ? kSteady[0] : kMortal[0];
  draft->document_group = draft->One(3) ? kSteady[1] : kMortal[1];
  draft->Query(draft->pages[static_cast<std::size_t>(draft->Pick(0, 1))]);
  const int hits = draft->Pick(1, 4);
  for (int i = 0; i < hits; ++i) draft->Hit(draft->Pick(0, 60));
  draft->exchange.search->way = draft->One(2) ? Deed::Way::kDrip : Deed::Way::kAtOnce;
  draft->Last().deed->way = draft->One(2) ? Deed::Way::kDrip : Deed::Way::kAtOnce;
  draft->exchange.search->hold_ms = draft->Pick(0, 30);
}

void RefusedSearch(Draft *draft) {
  draft->Fixed(
      Command(*draft, "\t@SEARCHGROUP=" + std::string(kRefusing[0]) + Macro(*draft), "QUERY"),
      "\t@COMMAND=ERROR\tUnable to connect to SearchMgr: rc = -111\n");
}

void UnknownSearch(Draft *draft) {
  const std::string group = draft->One(2) ? "\t@SEARCHGROUP=" + std::string(kUnknown[0]) : "";
  draft->Fixed(Command(*draft, group + Macro(*draft), "QUERY"),
               "\t@COMMAND=ERROR\tUnable to locate SearchMgr\n");
}

// The field behind which nothing is read any more leaves a QUERY without a limit.
void RefusedField(Draft *draft) {
  draft->Query(draft->pages[1]);
  std::string &request = draft->exchange.visit.request;
  request.insert(request.rfind('\t'), "\t@DOCNUM=-1\t@MAXHITS=1");
  draft->exchange.search->request = request;
  draft->Hits(3);
}

// --- Documents ---

void PlainGetDoc(Draft *draft) { draft->GetDoc(draft->AnyPage()); }

void BadGetDoc(Draft *draft) {
  draft->GetDoc(draft->AnyPage());
  draft->Misbehave(&draft->Last());
}

void UnknownGetDoc(Draft *draft) {
  draft->document_group = draft->One(2) ? kUnknown[1] : kRefusing[1];
  draft->GetDoc(draft->AnyPage());
  draft->Last().deed = nullptr;
  draft->Last().result = Document::Result::kFailed;
}

void DyingGetDoc(Draft *draft) {
  draft->document_group = kMortal[1];
  draft->GetDoc(draft->pages[1]);
  draft->Last().deed->way = draft->One(2) ? Deed::Way::kDrip : Deed::Way::kPieces;
}

// --- Commands that get no answer ---

void Unserved(Draft *draft) {
  const std::string macro = Macro(*draft), group = "\t@SEARCHGROUP=search";
  const std::string requests[] = {
      Command(*draft, macro + group, "FIND"),
      Command(*draft, macro + group, "query"),
      Command(*draft, macro + group, ""),
      Command(*draft, group, "QUERY"),
      Command(*draft, group + "\t@MACROFILE=/nowhere/none", "QUERY"),
      Command(*draft, group + "\t@MACROFILE=none", "GETDOC"),
      Command(*draft, group + macro, std::string(2000, 'Q')),
      "\n",
      "no header\n",
      "\t\n",
      "\t@\n",
      "\t@COMMAND\n",
      "\t@SEQNUM=-1\t@COMMAND=QUERY" + group + macro + "\twords\n",
      "\t@COMMAND=QUERY\n",
      "@COMMAND=QUERY" + group + macro + "\twords\n",
      draft->Text(1, 4000) + "\n",
      std::string("\t@COMMAND=QU\0ERY\n", 17),
  };
  draft->Fixed(requests[draft->Pick(0, static_cast<int>(std::size(requests)) - 1)], "");
  draft->exchange.visit.piece = 0;
  if (draft->exchange.visit.request.find('\0') != std::string::npos)
    draft->exchange.visit.end = Visit::End::kEndAndRead;  // whose line has no end for the daemon
}

void HalfLine(Draft *draft) {
  Plain(draft);
  std::string half = draft->exchange.visit.request;
  half.resize(static_cast<std::size_t>(draft->Pick(0, static_cast<int>(half.size()) - 1)));
  draft->Fixed(half, "");
  Visit &visit = draft->exchange.visit;
  visit.hold_ms = draft->Pick(0, 50);
  visit.end = draft->One(2) ? Visit::End::kEndAndRead : Visit::End::kReset;
  draft->exchange.left_early = visit.end == Visit::End::kReset;
}

void SendsNothing(Draft *draft) {
  draft->Fixed("", "");
  draft->exchange.visit.hold_ms = draft->Pick(0, 300);
  draft->exchange.visit.end = draft->One(2) ? Visit::End::kEndAndRead : Visit::End::kLeave;
  draft->exchange.left_early = draft->exchange.visit.end == Visit::End::kLeave;
}

// --- Clients that send oddly ---

void Overlong(Draft *draft) {
  Plain(draft);
  draft->exchange.visit.request.insert(
      0, std::string(static_cast<std::size_t>(draft->Pick(4096, 9000)), 'o') + "\n");
}

// A line that fills the buffer to the brim.
void FullLine(Draft *draft) {
  Plain(draft);
  std::string &request = draft->exchange.visit.request;
  request.insert(request.size() - 1, 4096 - request.size(), 'f');
  draft->exchange.search->request = request;
}

void TwoLines(Draft *draft) {
  draft->Query(draft->pages[1]);
  draft->Hits(2);
  draft->exchange.visit.request += "\t@COMMAND=QUERY\tis not looked at\n";
  draft->exchange.cut_short = true;
}

void InPieces(Draft *draft) {
  Plain(draft);
  draft->exchange.visit.piece = static_cast<std::size_t>(draft->Pick(1, 40));
}

// --- Clients that do not stay, or do not read ---

void Leaves(Draft *draft) {
  Plain(draft);
  Visit &visit = draft->exchange.visit;
  visit.end = draft->One(2) ? Visit::End::kLeave : Visit::End::kReset;
  visit.enough = static_cast<std::size_t>(draft->Pick(0, 100));
  visit.hold_ms = draft->One(2) ? 0 : draft->Pick(1, 10);
  draft->exchange.left_early = true;
}

void NeverReads(Draft *draft) {
  draft->Query(draft->pages[0]);
  for (int i = 0; i < 8; ++i) draft->Hit(39000);
  Visit &visit = draft->exchange.visit;
  visit.window = 32768;
  visit.hold_ms = draft->Pick(100, 500);
  if (draft->One(2)) return;  // it reads in the end
  visit.end = draft->One(2) ? Visit::End::kLeave : Visit::End::kReset;
  draft->exchange.left_early = true;
}

struct Kind {
  const char *name;
  int weight;
  void (*write)(Draft *draft);
};

constexpr Kind kKinds[] = {
    {"plain", 250, Plain},
    {"limited", 60, Limited},
    {"dripping", 40, Dripping},
    {"hanging", 30, Hanging},
    {"half closed", 20, HalfClosed},
    {"reset search", 40, ResetSearch},
    {"unread search", 20, UnreadSearch},
    {"bad document", 70, BadDocument},
    {"no document manager", 30, NoDocumentManager},
    {"last words", 40, LastWords},
    {"lone header", 15, LoneHeader},
    {"brim", 20, Brim},
    {"nul", 20, Nul},
    {"no newline", 20, NoNewline},
    {"endless", 10, Endless},
    {"many", 2, Many},
    {"dying", 80, Dying},
    {"refused search", 20, RefusedSearch},
    {"unknown search", 20, UnknownSearch},
    {"refused field", 20, RefusedField},
    {"getdoc", 80, PlainGetDoc},
    {"bad getdoc", 30, BadGetDoc},
    {"unknown getdoc", 15, UnknownGetDoc},
    {"dying getdoc", 30, DyingGetDoc},
    {"unserved", 70, Unserved},
    {"half line", 20, HalfLine},
    {"nothing sent", 15, SendsNothing},
    {"overlong", 6, Overlong},
    {"full line", 15, FullLine},
    {"two lines", 15, TwoLines},
    {"in pieces", 20, InPieces},
    {"leaves", 40, Leaves},
    {"never reads", 6, NeverReads},
};
constexpr Kind kRare = {"ten thousand", 0, TenThousand};
constexpr int kRareEvery = 20000;

const Kind &Choose(Draft *draft) {
  int total = 0;
  for (const Kind &kind : kKinds) total += kind.weight;
  int left = draft->Pick(1, total);
  const Kind *kind = kKinds;
  while ((left -= kind->weight) > 0) ++kind;
  return *kind;
}

}  // namespace

int Kinds_Count() { return static_cast<int>(std::size(kKinds)); }

void Kinds_Write(Draft *draft, bool in_turn) {
  const int number = draft->exchange.number;
  const Kind &kind = in_turn                                 ? kKinds[number % Kinds_Count()]
                     : number % kRareEvery == kRareEvery / 2 ? kRare
                                                             : Choose(draft);
  kind.write(draft);
  draft->exchange.kind = kind.name;
  if (draft->exchange.search != nullptr) draft->End();
}
