// tools/wire/transcript.h: exchanges over the wire as a person writes them down.
//
// docs/transcripts.md describes the form.  A transcript is read whole, and every fault of it is
// found before anything is sent.
#ifndef TOOLS_WIRE_TRANSCRIPT_H
#define TOOLS_WIRE_TRANSCRIPT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

inline constexpr int kTranscriptSize = 64 << 20;  // bytes of a file, and of the items of a step
inline constexpr int kTranscriptTimes = 100000;   // that an item is repeated
inline constexpr int kTranscriptDepth = 16;       // items within each other
inline constexpr int kTranscriptItems = 1000000;  // for names of let, and for steps of every case
inline constexpr int kTranscriptMs = 3600000;     // of any time

enum class ItemKind {
  kLiteral,  // text
  kDir,      // the folder of the case
  kPort,     // that of the actor in text
  kGroup,    // inside, one behind the other
  kTimes,    // inside, count times
  kOrdinal,  // which of the times it is, from 1
  kN8,       // inside, behind its length in one byte
  kN32,      // inside, behind its length in four bytes, the least first
  kKept,     // what the name in text has kept
  // These stand in expectations only.
  kDigits,    // one or more
  kText,      // bytes other than tab and newline, or none
  kLine,      // bytes other than newline, or none
  kHeader,    // fields of a header, up to the predicate
  kBytes,     // count bytes of any kind
  kKeep,      // inside, and remembers it under the name in text
  kAny,       // inside, as often as it comes, or not at all
  kEither,    // one of inside
  kRecord,    // a line whose header has the command in text and, in any order, the fields inside
  kHeaderOf,  // the header of such a line alone
  kField,     // of a record or a header: text is its name, inside its value
};

struct Item {
  ItemKind kind = ItemKind::kLiteral;
  std::string text;
  int count = 0;
  std::vector<Item> inside;
};

enum class Verb {
  kSend,
  kExpect,
  kExpectEnd,      // in order
  kExpectReset,    // or in order
  kExpectNothing,  // for count milliseconds
  kConnect,
  kClose,
  kReset,
  kHalfClose,
  kLeave,      // nobody listens there any more
  kNotCalled,  // nobody has connected
  kWait,       // count milliseconds
  kLogHas,
  kLogLacks,
  kFile,    // actor is its name
  kStart,   // the program under test, with items for arguments
  kOutput,  // all that it has written
  kStatus,  // with which it ends
  kStatusNot,
};

struct Step {
  Verb verb = Verb::kSend;
  std::string actor;
  std::vector<Item> items;
  int count = 0;
  int piece = 0;       // bytes that are sent at once; 0: all
  int every = 0;       // milliseconds between two pieces
  int before = 0;      // milliseconds in which it must come; 0: no such limit
  int not_before = 0;  // milliseconds in which it must not
  int line = 0;
};

struct Case {
  std::string name;
  std::string says;  // the document and the sentence that it is for
  std::string file;
  int line = 0;
  std::vector<Step> steps;
};

struct Transcript {
  std::vector<Case> cases;
};

// Reads the text of a file.  False: *wrong is FILE:LINE: and what would be right.
bool Transcript_Parse(std::string_view text, const std::string &file, Transcript *transcript,
                      std::string *wrong);

// Reads a file.  EX_OK, or with the reason in *wrong EX_NOINPUT for one that cannot be read and
// EX_DATAERR for one that is no transcript.
int Transcript_Read(const std::string &path, Transcript *transcript, std::string *wrong);

// Whether what is in the item depends on what comes.
bool Transcript_HasPattern(const Item &item);

// The bytes as a literal of a transcript, quotes included.
std::string Transcript_Quote(std::string_view bytes);

#endif
