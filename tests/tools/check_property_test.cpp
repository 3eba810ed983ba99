// What a check says, held to the engine: macros and documents by chance.
//
// KORVO_MACRO_CASES sets how many macros there are; each seed is printed where it fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <set>

#include "macro/ops.h"
#include "tests/tools/engine.h"
#include "tests/tools/shows.h"
#include "tools/macro/check.h"
#include "tools/macro/decode.h"

namespace {

using namespace std::string_literals;
using Random = std::mt19937;

std::size_t Below(Random *random, std::size_t limit) { return (*random)() % limit; }
bool OneIn(Random *random, std::size_t count) { return Below(random, count) == 0; }

// Macros.

std::string Short(const std::string &text) { return static_cast<char>(text.size()) + text; }

std::string Long(const std::string &text) {
  std::string out;
  for (int i = 0; i < 4; ++i) out += static_cast<char>(text.size() >> (8 * i) & 0xff);
  return out + text;
}

std::string Name(Random *random) {
  static const std::vector<std::string> kNames = {"A", "B", "C", "D", "E", "F", "Ref", "Big"};
  if (OneIn(random, 40)) return "Unknown";
  if (OneIn(random, 60)) return "\tA";
  if (OneIn(random, 30)) {
    const std::size_t at = Below(random, kNames.size());
    return kNames[at] + (at % 3 == 0 ? "=" : "=b");
  }
  if (OneIn(random, 200)) return std::string(300, 'n').substr(Below(random, 300));
  return kNames[Below(random, kNames.size())];
}

std::string Text(Random *random) {
  if (OneIn(random, 8)) return "<li>";
  return std::string(Below(random, 20), 't');
}

std::string Value(Random *random, const std::string &name) {
  if (OneIn(random, 6)) return "\x02" + Long(name);
  if (OneIn(random, 6)) return "\x43"s + static_cast<char>(Below(random, 3)) + Short(name);
  return "\x42" + Short(name);
}

std::string Instruction_(Random *random) {
  const std::string byte(1, static_cast<char>(Below(random, OneIn(random, 60) ? 256 : 4)));
  switch (Below(random, 40)) {
    case 0: return "\x08";
    case 1: return "\x09";
    case 2: return "\x0a" + byte;
    case 3: return "\x0b" + byte;
    case 4: return "\x07";
    case 5: return "\x0c" + Short(Name(random));
    case 6: return "\x44" + Short(Name(random));
    case 7:
    case 8:
    case 9: return "\x03"s + std::string(4, '\0');
    case 10:
      return OneIn(random, 6) ? "\x03" + Long(std::string(Below(random, 9000), 'x')).substr(0, 4)
                              : "";
    case 11: return OneIn(random, 6) ? "\x0d" + Short(Name(random)) + Short("/m") : "";
    case 12: return OneIn(random, 4) ? "\x0e" + Short(Name(random)) : "";
    case 13: return OneIn(random, 4) ? "\x0f" + byte + Short(Name(random)) : "";
    case 14: return OneIn(random, 20) ? "\x01" + Long(std::string(Below(random, 41000), 't')) : "";
    case 15: return OneIn(random, 30) ? std::string(1, static_cast<char>((*random)())) : "";
    case 16: return OneIn(random, 30) ? "\x08\x08\x08\x08\x08\x08" : "";
    default:
      return Below(random, 3) == 0 ? "\x41" + Short(Text(random)) : Value(random, Name(random));
  }
}

// A page as people write it: what it names stands in the order of the documents.
std::string Sensible(Random *random, const Documents &documents) {
  std::string code = "\x41" + Short(OneIn(random, 2) ? "* " : "<p>");
  for (const Place &place : documents.places) {
    if (OneIn(random, 2)) continue;
    code += Value(random, place.name) + "\x41" + Short(Text(random));
    if (OneIn(random, 6))
      code +=
          "\x08"
          "\x0c"s +
          Short(place.name) + "\x09";
    if (OneIn(random, 8)) code += "\x0a\x02\x0b\x02"s;
  }
  return code + "\0"s;
}

std::string Macro(Random *random, const Documents &documents) {
  if (documents.given && OneIn(random, 3)) return Sensible(random, documents);
  std::string code;
  for (std::size_t steps = Below(random, OneIn(random, 4) ? 60 : 8); steps > 0; --steps)
    code += Instruction_(random);
  if (!OneIn(random, 10)) code += '\0';
  if (OneIn(random, 10)) code.resize(Below(random, code.size() + 1));
  return code;
}

// Documents.

Documents Kind(Random *random) {
  Documents documents;
  documents.given = true;
  documents.html = OneIn(random, 2);
  for (const char *name : {"A", "B", "C", "Ref", "D", "E", "F", "Big"}) {
    if (OneIn(random, 4)) continue;
    Place place;
    place.name = name;
    place.most = OneIn(random, 3) ? kValueMost : Below(random, 300) + 20;
    if (place.name == "Ref") place.refers = true, place.brings = OneIn(random, 2) ? 500 : 30000;
    if (place.name == "Big" && OneIn(random, 3)) place.most = 9000;
    place.always = !OneIn(random, 6);
    documents.places.push_back(place);
    for (std::size_t more = OneIn(random, 4) ? Below(random, 4) : 0; more > 0; --more) {
      place.always = place.always && OneIn(random, 2);
      documents.places.push_back(place);
    }
  }
  if (OneIn(random, 5))
    for (Place &place : documents.places) place.always = false;
  return documents;
}

std::string ValueOf(Random *random, const Place &place, std::size_t room) {
  if (place.refers) return OneIn(random, 3) ? "b=,Type,1" : "Group Type 1";
  const std::size_t most = std::min(place.most, room);
  const std::size_t size =
      OneIn(random, 3) ? most : Below(random, std::min<std::size_t>(most, 12) + 1);
  std::string value(size, 'v');
  // As a name that holds "=" wants it.
  if (OneIn(random, 3))
    value.replace(0, std::min<std::size_t>(size, 2),
                  OneIn(random, 2) ? "b=" : "==", std::min<std::size_t>(size, 2));
  return value;
}

std::string Document(Random *random, const Documents &documents) {
  std::size_t room = kDocumentMost - std::min(kDocumentMost, Documents_Frame(documents) + 100);
  std::vector<std::string> fields;
  std::string text, lacking;
  for (const Place &place : documents.places) {
    // The ones that are left out are the last of their name.
    if (!place.always && (lacking == place.name || OneIn(random, 3))) {
      lacking = place.name;
      continue;
    }
    const std::string value = ValueOf(random, place, room);
    room -= std::min(room, value.size());
    fields.push_back("\t" + place.name + "=" + value);
  }
  const auto is_always = [](const Place &place) { return place.always; };
  // As they are stored.
  if (std::none_of(documents.places.begin(), documents.places.end(), is_always))
    std::shuffle(fields.begin(), fields.end(), *random);
  for (const std::string &field : fields) text += field;
  return text + "\t\n";
}

std::size_t MostFetched(const Documents &documents) {
  std::size_t most = 0;
  for (const Place &place : documents.places) most = std::max(most, place.brings);
  return most;
}

std::string Fetched(Random *random, const Documents &documents) {
  if (OneIn(random, 3)) return "";
  std::string text =
      "\tB=inserted\tQ=" + std::string(Below(random, MostFetched(documents) + 1), 'q');
  text.resize(std::min(text.size(), MostFetched(documents)));
  return text;
}

std::string Described(const std::string &code, const std::vector<Finding> &findings) {
  std::string text = "\ncode " + Check_Show(code) + "\n";
  for (const Finding &finding : findings)
    text += std::to_string(finding.offset) + ": " + finding.what +
            (finding.shown ? "" : " (not shown)") + ": " + Check_Show(finding.witness.document) +
            "\n";
  return text;
}

struct Tally {
  int accepted = 0;
  int costly = 0;
  int faulty = 0;
  int shown = 0;
  int unshown = 0;
  int told = 0;   // faults of those
  int alone = 0;  // with no other document in front
};

// Behind it the run depends on a document of which the size alone is known, and one document stands
// for all that the values of a witness name.
bool TakesAnother(const std::string &code, std::size_t before) {
  Instruction at;
  for (std::size_t i = 0; i < before; i += at.size) {
    Decode_At(code, i, &at);
    if (at.op == kOpFetch || at.op == kOpInsert || at.op == kOpInsertSkip) return true;
  }
  return false;
}

// A macro that may run does what was promised, with every document.
void ExpectPromise(Random *random, const std::string &code, const Documents &documents,
                   const std::vector<Finding> &findings) {
  SetRegisters(0);
  for (int i = 0; i < 4; ++i) {
    const std::string document = Document(random, documents);
    const PageRun run = RunPage(code, {document, document}, Fetched(random, documents));
    const auto said = [&] {
      return Described(code, findings) + "document " + Check_Show(document) + "\n";
    };
    ASSERT_EQ(1, run.result) << run.log << said();
    ASSERT_FALSE(run.loops) << said();
    ASSERT_FALSE(run.outputs.at(0).empty()) << said();
    ASSERT_FALSE(run.cut) << said();
    ASSERT_TRUE(!findings.empty() || run.log.empty()) << run.log << said();
  }
}

void TryOne(unsigned seed, Tally *tally) {
  Random random(seed);
  const bool given = !OneIn(&random, 4);
  Documents documents = given ? Kind(&random) : Documents{};
  const std::string code = Macro(&random, documents);
  if (!given) documents = Documents_For(code);
  const std::vector<Finding> findings = Check_Macro(code, documents);
  bool fault_shown = false;
  for (const Finding &finding : findings) {
    ASSERT_TRUE(!finding.shown || Engine_Shows(code, finding))
        << "seed " << seed << Described(code, {finding});
    fault_shown |= finding.shown && Check_IsFault(finding);
    ++(finding.shown ? tally->shown : tally->unshown);
    if (finding.shown || !Check_IsFault(finding)) continue;
    ++tally->told;
    if (TakesAnother(code, finding.offset)) continue;
    ++tally->alone;
    std::printf("seed %u: a fault without a document%s", seed, Described(code, {finding}).c_str());
  }
  const bool is_faulty = std::any_of(findings.begin(), findings.end(), Check_IsFault);
  // What stands behind another finding may need a document that shows both.
  ASSERT_TRUE(findings.empty() || findings.front().shown)
      << "seed " << seed << Described(code, findings);
  // Of an inserted document nothing is known but its size.
  const bool inserts = std::any_of(findings.begin(), findings.end(), [](const Finding &finding) {
    return finding.fault == Fault::kInsertLine;
  });
  ASSERT_TRUE(!is_faulty || fault_shown || inserts) << "seed " << seed << Described(code, findings);
  ++(findings.empty() ? tally->accepted : is_faulty ? tally->faulty : tally->costly);
  if (is_faulty) return;
  ASSERT_NO_FATAL_FAILURE(ExpectPromise(&random, code, documents, findings)) << "seed " << seed;
}

// A macro for every kind of finding, each shown by the engine.
TEST(CheckProperty, EveryKind_HasItsDocument) {
  const std::string x = "\x41\x01x";
  const std::string macros[] = {
      x + "\x14",                                     // no such op-code
      x + "\x41\x09",                                 // cut
      x + "\x0a\x10",                                 // a register beyond
      x + std::string(11, '\x08'),                    // the stack is full
      x + "\x09",                                     // and empty
      x + "\x0b\x01",                                 // a register that is not written
      "\x42" + Short("A"),                            // nothing
      x + "\x07\x07",                                 // the output, and a document as it is
      x + "\x0d" + Short("Z") + Short("/m"),          // a field that no document has
      x + "\x0d" + Short("Ref") + Short("/m"),        // the slots
      x + "\x0d" + Short("A") + Short("/m"),          // no name of a document
      x + "\x0e" + Short("Ref"),                      // more than a document takes
      x + "\x42" + Short("C"),                        // lacks
      x + "\x42" + Short("B") + "\x42" + Short("A"),  // the order
      x + "\x42" + Short("B"),                        // a long value
      "\x41\x03<p>\x42" + Short("A"),                 // HTML
  };
  const Documents documents = {
      true, false, {{"A"}, {"Ref", 4095, true, true, 39000}, {"B", 30000}, {"C", 9, false}}};
  std::set<Fault> shown;
  for (const std::string &code : macros)
    for (const Finding &finding : Check_Macro(code, documents))
      if (finding.shown && Engine_Shows(code, finding)) shown.insert(finding.fault);
  for (int kind = 0; kind <= static_cast<int>(Fault::kHtml); ++kind)
    EXPECT_EQ(1U, shown.count(static_cast<Fault>(kind))) << kind;
}

TEST(CheckProperty, WhatItSays_IsWhatTheEngineDoes) {
  const char *wanted = std::getenv("KORVO_MACRO_CASES");
  const auto cases = static_cast<unsigned>(wanted != nullptr ? std::atoi(wanted) : 2000);
  const char *first = std::getenv("KORVO_MACRO_SEED");
  const auto start = static_cast<unsigned>(first != nullptr ? std::atoi(first) : 1);
  Tally tally;
  for (unsigned seed = start; seed < start + cases; ++seed)
    ASSERT_NO_FATAL_FAILURE(TryOne(seed, &tally));
  std::printf(
      "%d accepted, %d that cost, %d with a fault; %d findings shown, %d only told, %d of them faults\n",
      tally.accepted, tally.costly, tally.faulty, tally.shown, tally.unshown, tally.told);
  if (cases < 500) return;
  EXPECT_GT(tally.accepted, static_cast<int>(cases) / 50);
  EXPECT_GT(tally.costly, static_cast<int>(cases) / 50);
  EXPECT_GT(tally.faulty, static_cast<int>(cases) / 50);
  EXPECT_LT(tally.told, tally.faulty / 80);
  // Seldom two look-ups contradict each other, for the first says nothing about the document.
  EXPECT_LE(tally.alone, static_cast<int>(cases) / 10000);
}

}  // namespace
