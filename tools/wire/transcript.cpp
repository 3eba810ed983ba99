#include "tools/wire/transcript.h"

#include <sysexits.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <utility>

#include "tools/common/tool.h"
#include "tools/wire/token.h"

namespace {

constexpr std::uint64_t kMostN8 = 255;  // bytes behind a length of one

struct Reader {
  std::string file;
  Transcript *transcript;
  std::string *wrong;
  std::map<std::string, std::vector<Item>> names;  // of let
  std::vector<Step> common;                        // steps in front of the first case
  std::set<std::string> cases;                     // their names
  std::set<std::string> kept, common_kept;         // names of keep: of the case, of all
  bool starts = false, common_starts = false;      // a program: the case, all
  std::vector<Token> tokens;                       // of one statement
  std::size_t at = 0;
  std::size_t copied = 0;  // items for names of let and for cases that have steps in common
};

bool Wrong(const Reader &reader, int line, const std::string &why) {
  *reader.wrong = reader.file + ":" + std::to_string(line) + ": " + why;
  return false;
}

const Token &Here(const Reader &reader) { return reader.tokens[reader.at]; }

bool WrongHere(const Reader &reader, const std::string &why) {
  const Token &token = Here(reader);
  const std::string found =
      token.kind == TokenKind::kEnd ? "the end of the line" : "'" + token.text + "'";
  return Wrong(reader, token.line, why + ", not " + found);
}

bool Is(const Reader &reader, const char *word) {
  return Here(reader).kind == TokenKind::kWord && Here(reader).text == word;
}

bool IsSign(const Reader &reader, const char *sign) {
  return Here(reader).kind == TokenKind::kSign && Here(reader).text == sign;
}

bool TakeIf(Reader *reader, const char *word) {
  if (!Is(*reader, word)) return false;
  ++reader->at;
  return true;
}

bool TakeSign(Reader *reader, const char *sign) {
  if (!IsSign(*reader, sign)) return false;
  ++reader->at;
  return true;
}

bool TakeWord(Reader *reader, std::string *word, const char *what) {
  if (Here(*reader).kind != TokenKind::kWord) return WrongHere(*reader, what);
  *word = Here(*reader).text;
  ++reader->at;
  return true;
}

bool TakeNumber(Reader *reader, int least, int most, int *number) {
  const std::string &text = Here(*reader).text;
  const char *end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, *number);
  if (Here(*reader).kind != TokenKind::kWord || code != std::errc{} || stop != end ||
      *number < least || *number > most)
    return WrongHere(*reader, "here stands a number from " + std::to_string(least) + " to " +
                                  std::to_string(most));
  ++reader->at;
  return true;
}

bool TakeMs(Reader *reader, int *number) {
  if (!TakeNumber(reader, 0, kTranscriptMs, number)) return false;
  return TakeIf(reader, "ms") || WrongHere(*reader, "behind a time stands ms");
}

// How large items are when every name and every repetition is written out.
struct Extent {
  std::size_t items = 0;
  std::uint64_t bytes = 0;
  int depth = 0;
};

Extent ExtentOf(const std::vector<Item> &items) {
  Extent all;
  for (const Item &item : items) {
    const Extent inside = ExtentOf(item.inside);
    const auto times = static_cast<std::uint64_t>(item.kind == ItemKind::kTimes ? item.count : 1);
    // More than is allowed is no number that has to be exact, and must not overflow.
    const std::uint64_t once = std::min<std::uint64_t>(inside.bytes, kTranscriptSize) + 1;
    all.bytes += std::min<std::uint64_t>(once * times + item.text.size(), kTranscriptSize + 1);
    all.items += inside.items + 1;
    all.depth = std::max(all.depth, inside.items > 0 ? inside.depth + 1 : 0);
  }
  return all;
}

bool Copy(Reader *reader, int line, std::size_t items) {
  reader->copied += items;
  return reader->copied <= kTranscriptItems ||
         Wrong(*reader, line,
               "names of let and steps of every case are more than " +
                   std::to_string(kTranscriptItems) + " items");
}

bool TooDeep(const Reader &reader) {
  return Wrong(reader, Here(reader).line, "items stand too deep within each other");
}

bool TakeItem(Reader *reader, int depth, Item *item);

// Items up to one of the words that end them, a closing bracket or the end of the statement.
bool TakeItems(Reader *reader, int depth, std::vector<Item> *items) {
  while (Here(*reader).kind != TokenKind::kEnd && !IsSign(*reader, ")")) {
    for (const char *word : {"in", "before", "not", "or"})
      if (Is(*reader, word)) return true;
    if (!TakeItem(reader, depth, &items->emplace_back())) return false;
  }
  return true;
}

// Bytes that the items make at the least: the folder, a port and what is kept are known later.
std::uint64_t LeastOf(const std::vector<Item> &items) {
  std::uint64_t least = 0;
  for (const Item &item : items) {
    if (item.kind == ItemKind::kLiteral) least += item.text.size();
    if (item.kind == ItemKind::kOrdinal || item.kind == ItemKind::kN8) least += 1;
    if (item.kind == ItemKind::kN32) least += 4;
    const auto times = static_cast<std::uint64_t>(item.kind == ItemKind::kTimes ? item.count : 1);
    least += std::min<std::uint64_t>(LeastOf(item.inside), kTranscriptSize) * times;
  }
  return least;
}

// All items of a statement.
bool TakeAllItems(Reader *reader, std::vector<Item> *items) {
  const int line = Here(*reader).line;
  if (!TakeItems(reader, 0, items)) return false;
  return ExtentOf(*items).bytes <= kTranscriptSize ||
         Wrong(*reader, line, "items make more than " + std::to_string(kTranscriptSize) + " bytes");
}

bool TakeInside(Reader *reader, int depth, ItemKind kind, Item *item) {
  item->kind = kind;
  return TakeItem(reader, depth + 1, &item->inside.emplace_back());
}

// What has a length in front of it has to be known.
bool TakeCounted(Reader *reader, int depth, ItemKind kind, Item *item) {
  const int line = Here(*reader).line;
  if (!TakeInside(reader, depth, kind, item)) return false;
  if (Transcript_HasPattern(*item))
    return Wrong(*reader, line, "what has a length in front of it has no patterns");
  const std::uint64_t least = LeastOf(item->inside);
  return kind != ItemKind::kN8 || least <= kMostN8 ||
         Wrong(*reader, line,
               "what stands behind n8 has at most 255 bytes, not " + std::to_string(least));
}

bool TakeGroup(Reader *reader, int depth, Item *item) {
  item->kind = ItemKind::kGroup;
  if (!TakeItems(reader, depth + 1, &item->inside)) return false;
  return TakeSign(reader, ")") || WrongHere(*reader, "a bracket has no second");
}

bool TakeEither(Reader *reader, int depth, Item *item) {
  item->kind = ItemKind::kEither;
  do
    if (!TakeItem(reader, depth + 1, &item->inside.emplace_back())) return false;
  while (TakeIf(reader, "or"));
  return item->inside.size() > 1 ||
         WrongHere(*reader, "behind either stand two items at least, with or between");
}

// COMMAND NAME=ITEM... behind record or header-of
bool TakeCommand(Reader *reader, int depth, Item *item) {
  const bool is_record = item->kind == ItemKind::kRecord;
  if (!TakeWord(reader, &item->text,
                is_record ? "behind record stands the word of its command"
                          : "behind header-of stands the word of its command"))
    return false;
  while (Here(*reader).kind == TokenKind::kWord) {
    const std::size_t name = reader->at++;
    if (!TakeSign(reader, "=")) {
      reader->at = name;
      break;
    }
    Item &field = item->inside.emplace_back();
    field.kind = ItemKind::kField;
    field.text = reader->tokens[name].text;
    if (!TakeItem(reader, depth + 1, &field.inside.emplace_back())) return false;
  }
  return true;
}

struct PlainItem {
  const char *word;
  ItemKind kind;
};

constexpr PlainItem kPlainItems[] = {
    {"dir", ItemKind::kDir},   {"digits", ItemKind::kDigits}, {"text", ItemKind::kText},
    {"line", ItemKind::kLine}, {"header", ItemKind::kHeader}, {"ordinal", ItemKind::kOrdinal}};

bool TakeNamed(Reader *reader, int depth, Item *item) {
  const auto found = reader->names.find(Here(*reader).text);
  if (Here(*reader).kind != TokenKind::kWord || found == reader->names.end())
    return WrongHere(*reader, "here stands a text in quotes, an item or a name of let");
  const Extent extent = ExtentOf(found->second);
  if (depth + extent.depth >= kTranscriptDepth) return TooDeep(*reader);
  if (!Copy(reader, Here(*reader).line, extent.items + 1)) return false;
  item->kind = ItemKind::kGroup;
  item->inside = found->second;
  ++reader->at;
  return true;
}

bool TakeItem(Reader *reader, int depth, Item *item) {
  if (depth > kTranscriptDepth) return TooDeep(*reader);
  if (Here(*reader).kind == TokenKind::kText) {
    item->text = reader->tokens[reader->at++].text;
    return true;
  }
  if (TakeSign(reader, "(")) return TakeGroup(reader, depth, item);
  for (const PlainItem &plain : kPlainItems) {
    item->kind = plain.kind;
    if (TakeIf(reader, plain.word)) return true;
  }
  if (TakeIf(reader, "n8")) return TakeCounted(reader, depth, ItemKind::kN8, item);
  if (TakeIf(reader, "n32")) return TakeCounted(reader, depth, ItemKind::kN32, item);
  if (TakeIf(reader, "either")) return TakeEither(reader, depth, item);
  if (TakeIf(reader, "any")) return TakeInside(reader, depth, ItemKind::kAny, item);
  item->kind = ItemKind::kRecord;
  if (TakeIf(reader, "record")) return TakeCommand(reader, depth, item);
  item->kind = ItemKind::kHeaderOf;
  if (TakeIf(reader, "header-of")) return TakeCommand(reader, depth, item);
  if (TakeIf(reader, "times"))
    return TakeNumber(reader, 0, kTranscriptTimes, &item->count) &&
           TakeInside(reader, depth, ItemKind::kTimes, item);
  if (TakeIf(reader, "bytes")) {
    item->kind = ItemKind::kBytes;
    return TakeNumber(reader, 0, kTranscriptSize, &item->count);
  }
  if (TakeIf(reader, "port")) {
    item->kind = ItemKind::kPort;
    return TakeWord(reader, &item->text, "behind port stands an actor");
  }
  if (TakeIf(reader, "kept")) {
    item->kind = ItemKind::kKept;
    return TakeWord(reader, &item->text, "behind kept stands a name");
  }
  if (TakeIf(reader, "keep"))
    return TakeWord(reader, &item->text, "behind keep stands a name") &&
           TakeInside(reader, depth, ItemKind::kKeep, item);
  return TakeNamed(reader, depth, item);
}

// What is sent has to be known.
bool TakeKnown(Reader *reader, std::vector<Item> *items) {
  const int line = Here(*reader).line;
  if (!TakeAllItems(reader, items)) return false;
  if (items->empty()) return WrongHere(*reader, "here stands at least one item");
  return std::none_of(items->begin(), items->end(), Transcript_HasPattern) ||
         Wrong(*reader, line, "what is sent or written has no patterns");
}

bool TakeSend(Reader *reader, Step *step) {
  step->verb = Verb::kSend;
  if (!TakeKnown(reader, &step->items)) return false;
  if (!TakeIf(reader, "in")) return true;
  if (!TakeIf(reader, "pieces") || !TakeIf(reader, "of"))
    return WrongHere(*reader, "here stands in pieces of NUMBER");
  if (!TakeNumber(reader, 1, kTranscriptTimes, &step->piece)) return false;
  return !TakeIf(reader, "every") || TakeMs(reader, &step->every);
}

bool TakeExpectation(Reader *reader, Step *step) {
  step->verb = Verb::kExpect;
  if (TakeIf(reader, "end"))
    step->verb = Verb::kExpectEnd;
  else if (TakeIf(reader, "reset"))
    step->verb = Verb::kExpectReset;
  else if (TakeIf(reader, "nothing")) {
    step->verb = Verb::kExpectNothing;
    if (!TakeIf(reader, "for")) return WrongHere(*reader, "behind nothing stands for NUMBER ms");
    return TakeMs(reader, &step->count);
  } else if (!TakeAllItems(reader, &step->items)) {
    return false;
  } else if (step->items.empty()) {
    return WrongHere(*reader, "here stands at least one item");
  }
  if (TakeIf(reader, "not")) {
    if (!Is(*reader, "before")) return WrongHere(*reader, "behind not stands before NUMBER ms");
    ++reader->at;
    if (!TakeMs(reader, &step->not_before)) return false;
  }
  return !TakeIf(reader, "before") || TakeMs(reader, &step->before);
}

struct ActorVerb {
  const char *word;
  Verb verb;
};

constexpr ActorVerb kActorVerbs[] = {{"connects", Verb::kConnect},
                                     {"closes", Verb::kClose},
                                     {"resets", Verb::kReset},
                                     {"half-closes", Verb::kHalfClose},
                                     {"leaves", Verb::kLeave}};

bool IsActor(const std::string &name) {
  const std::string role = name.substr(0, name.find('-'));
  for (const char *known : {"client", "searchmgr", "docmgr", "daemon", "admin"})
    if (role == known) return true;
  return false;
}

bool TakeActorStep(Reader *reader, Step *step) {
  if (!IsActor(step->actor)) {
    --reader->at;
    return WrongHere(*reader,
                     "a line begins with case, says, let, file, start, wait, log, output, status "
                     "or an actor: client, searchmgr, docmgr, daemon or admin, as in client-b");
  }
  if (TakeSign(reader, ">")) return TakeSend(reader, step);
  if (TakeSign(reader, "<")) return TakeExpectation(reader, step);
  for (const ActorVerb &verb : kActorVerbs) {
    step->verb = verb.verb;
    if (TakeIf(reader, verb.word)) return true;
  }
  step->verb = Verb::kNotCalled;
  if (TakeIf(reader, "is") && TakeIf(reader, "not") && TakeIf(reader, "called")) return true;
  return WrongHere(*reader,
                   "behind an actor stands >, <, connects, closes, resets, half-closes, leaves or "
                   "is not called");
}

bool TakeLog(Reader *reader, Step *step) {
  step->verb = TakeIf(reader, "lacks") ? Verb::kLogLacks : Verb::kLogHas;
  if (step->verb == Verb::kLogHas && !TakeIf(reader, "has"))
    return WrongHere(*reader, "behind log stands has or lacks");
  return TakeKnown(reader, &step->items);
}

bool TakeStep(Reader *reader, Step *step) {
  std::string word;
  if (!TakeWord(reader, &word, "a line begins with a word")) return false;
  if (word == "wait") {
    step->verb = Verb::kWait;
    return TakeMs(reader, &step->count);
  }
  if (word == "log") return TakeLog(reader, step);
  if (word == "file") {
    step->verb = Verb::kFile;
    if (!TakeWord(reader, &step->actor, "behind file stands a name")) return false;
    if (step->actor[0] == '/' || step->actor.find("..") != std::string::npos)
      return Wrong(*reader, step->line, "a file stands in the folder of its case");
    return TakeKnown(reader, &step->items);
  }
  if (word == "start") {
    step->verb = Verb::kStart;
    return TakeKnown(reader, &step->items);
  }
  if (word == "output") {
    step->verb = Verb::kOutput;
    return TakeAllItems(reader, &step->items);
  }
  if (word == "status") {
    step->verb = TakeIf(reader, "not") ? Verb::kStatusNot : Verb::kStatus;
    return TakeNumber(reader, 0, 255, &step->count);
  }
  step->actor = word;
  return TakeActorStep(reader, step);
}

bool IsItemWord(const std::string &name) {
  for (const PlainItem &plain : kPlainItems)
    if (name == plain.word) return true;
  for (const char *word :
       {"n8", "n32", "any", "either", "record", "header-of", "times", "bytes", "port", "kept",
        "keep", "in", "or", "not", "before", "end", "reset", "nothing"})
    if (name == word) return true;
  return false;
}

bool TakeLet(Reader *reader) {
  std::string name;
  if (!TakeWord(reader, &name, "behind let stands a name")) return false;
  if (IsItemWord(name))
    return Wrong(*reader, Here(*reader).line, name + " is an item, and no name of let");
  if (reader->names.contains(name))
    return Wrong(*reader, reader->tokens.front().line, "there is a let " + name + " before");
  std::vector<Item> items;
  if (!TakeAllItems(reader, &items)) return false;
  reader->names[name] = items;
  return true;
}

// What an item leans on stands in front of it: a keep of its name, a times around an ordinal.
bool CheckItems(Reader *reader, int line, const std::vector<Item> &items, bool in_times) {
  for (const Item &item : items) {
    if (item.kind == ItemKind::kOrdinal && !in_times)
      return Wrong(*reader, line, "ordinal stands within times alone");
    if (item.kind == ItemKind::kKept && !reader->kept.contains(item.text))
      return Wrong(*reader, line, "nothing is kept as " + item.text + " before");
    if (!CheckItems(reader, line, item.inside, in_times || item.kind == ItemKind::kTimes))
      return false;
    if (item.kind == ItemKind::kKeep) reader->kept.insert(item.text);
  }
  return true;
}

bool CheckStep(Reader *reader, const Step &step) {
  if (step.verb == Verb::kStart && std::exchange(reader->starts, true))
    return Wrong(*reader, step.line, "a case starts one program");
  return CheckItems(reader, step.line, step.items, false);
}

// The case that was begun last has steps of its own.
bool EndCase(const Reader &reader) {
  const std::vector<Case> &cases = reader.transcript->cases;
  return cases.empty() || cases.back().steps.size() > reader.common.size() ||
         Wrong(reader, cases.back().line, "the case " + cases.back().name + " has no step");
}

bool TakeCase(Reader *reader) {
  if (!EndCase(*reader)) return false;
  Case begun = {"", "", reader->file, Here(*reader).line, reader->common};
  if (!TakeWord(reader, &begun.name, "behind case stands a name")) return false;
  if (!reader->cases.insert(begun.name).second)
    return Wrong(*reader, begun.line, "there is a case " + begun.name + " before");
  std::size_t items = begun.steps.size();
  for (const Step &step : begun.steps) items += ExtentOf(step.items).items;
  if (!Copy(reader, begun.line, items)) return false;
  if (reader->transcript->cases.empty()) {
    reader->common_kept = reader->kept;
    reader->common_starts = reader->starts;
  }
  reader->kept = reader->common_kept;
  reader->starts = reader->common_starts;
  reader->transcript->cases.push_back(begun);
  return true;
}

// One statement, whose tokens are there.
bool TakeStatement(Reader *reader) {
  const int line = reader->tokens.front().line;
  reader->tokens.push_back({TokenKind::kEnd, "", reader->tokens.back().line});
  reader->at = 0;
  Step step;
  step.line = line;
  bool good = false;
  if (TakeIf(reader, "case")) {
    good = TakeCase(reader);
  } else if (TakeIf(reader, "let")) {
    good = TakeLet(reader);
  } else {
    good = TakeStep(reader, &step) && CheckStep(reader, step);
    if (good && reader->transcript->cases.empty())
      reader->common.push_back(step);
    else if (good)
      reader->transcript->cases.back().steps.push_back(step);
  }
  if (good && Here(*reader).kind != TokenKind::kEnd)
    good = WrongHere(*reader, "here ends the line");
  reader->tokens.clear();
  return good;
}

// A line says DOCUMENT: SENTENCE, with the lines that go on with it, is no row of tokens.
bool TakeSays(const Reader &reader, int line, std::string_view text) {
  if (reader.transcript->cases.empty()) return Wrong(reader, line, "says stands in a case");
  std::string &says = reader.transcript->cases.back().says;
  if (!says.empty()) return Wrong(reader, line, "a case says one sentence");
  says = text;
  return true;
}

std::string_view TakeLine(std::string_view *rest) {
  const std::size_t end = std::min(rest->find('\n'), rest->size());
  const std::string_view line = rest->substr(0, end);
  rest->remove_prefix(std::min(end + 1, rest->size()));
  return line;
}

bool GoesOn(std::string_view rest) { return !rest.empty() && (rest[0] == ' ' || rest[0] == '\t'); }

bool ReadLines(Reader *reader, std::string_view rest) {
  constexpr std::string_view kSays = "says ";
  for (int number = 1; !rest.empty(); ++number) {
    const std::string_view line = TakeLine(&rest);
    if (line.starts_with(kSays)) {
      const int begin = number;
      std::string text(Token_Trim(line.substr(kSays.size())));
      for (; GoesOn(rest); ++number) text.append(" ").append(Token_Trim(TakeLine(&rest)));
      if (!TakeSays(*reader, begin, text)) return false;
      continue;
    }
    std::string why;
    if (!Token_TakeLine(line, number, &reader->tokens, &why)) return Wrong(*reader, number, why);
    if (GoesOn(rest) || reader->tokens.empty()) continue;
    if (!TakeStatement(reader)) return false;
  }
  return reader->tokens.empty() || TakeStatement(reader);
}

}  // namespace

bool Transcript_Parse(std::string_view text, const std::string &file, Transcript *transcript,
                      std::string *wrong) {
  Reader reader = {};
  reader.file = file;
  reader.transcript = transcript;
  reader.wrong = wrong;
  if (!ReadLines(&reader, text) || !EndCase(reader)) return false;
  if (!transcript->cases.empty()) return true;
  // A recording or something to play needs no name.
  if (reader.common.empty()) return Wrong(reader, 1, "there is no step in it");
  transcript->cases.push_back({"all", "", file, 1, std::move(reader.common)});
  return true;
}

int Transcript_Read(const std::string &path, Transcript *transcript, std::string *wrong) {
  std::FILE *file = std::fopen(path.c_str(), "re");
  std::string text;
  int err = file == nullptr ? errno : 0;
  char buffer[65536];
  for (std::size_t got = 1; err == 0 && got > 0 && text.size() <= std::size_t{kTranscriptSize};) {
    got = std::fread(buffer, 1, sizeof buffer, file);
    if (got == 0 && std::ferror(file) != 0) err = errno;
    text.append(buffer, got);
  }
  if (file != nullptr) std::fclose(file);
  if (err != 0) {
    *wrong = "cannot read " + path + ": " + std::strerror(err);
    return EX_NOINPUT;
  }
  if (text.size() > std::size_t{kTranscriptSize}) {
    *wrong = path + " has more than " + std::to_string(kTranscriptSize) + " bytes";
    return EX_DATAERR;
  }
  return Transcript_Parse(text, path, transcript, wrong) ? EX_OK : EX_DATAERR;
}

bool Transcript_HasPattern(const Item &item) {
  return item.kind >= ItemKind::kDigits ||
         std::any_of(item.inside.begin(), item.inside.end(), Transcript_HasPattern);
}

std::string Transcript_Quote(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "\"";
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\t')
      text += "\\t";
    else if (c == '\n')
      text += "\\n";
    else if (c == '"' || c == '\\')
      text.append("\\").append(1, c);
    else if (byte < 0x20 || byte >= 0x7f)
      text.append("\\x").append({kDigits[byte >> 4], kDigits[byte & 15]});
    else
      text += c;
  }
  return text + "\"";
}
