// tools/macro/check.h: what a macro does with every document, told before it runs.
//
// The code has no jumps, so one pass over it sees all runs at once: for the cursor it keeps the
// fields between which it may stand, for the output the most and the least that it may hold.  What
// the pass cannot rule out is a finding, and a document is looked for that shows it.
#ifndef TOOLS_MACRO_CHECK_H
#define TOOLS_MACRO_CHECK_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tools/macro/documents.h"

enum class Fault {
  kUndefined,   // an op-code that does not exist is reached
  kCut,         // an operand runs past the end
  kBeyond,      // an operand is larger than a run takes
  kStackFull,   // the eleventh cursor
  kStackEmpty,  // a pop of none
  kRegister,    // a register is read before it is written
  kOutput,      // more than a page takes
  kNothing,     // nothing may be written, which ends the page
  kFetchLacks,  // the field of a fetch may be missing, and its macro's name is code then
  kWords,       // a value may not be the three words of a document's name
  kInsertRoom,  // more than a document takes
  // From here on a run goes on, but leaves a line in the log or a page that is not meant.
  kUnknown,     // no document has the field
  kLacks,       // a document may lack it
  kOrder,       // a look-up may start again from the beginning
  kValue,       // a value may be cut
  kFetchSlots,  // the twentieth document of a page finds no place for the macro of a fetch
  kInsertLine,  // an insert is logged
  kHtml,        // a value may be taken for HTML
};

// What shows a finding.
struct Witness {
  std::string document;
  int times = 1;        // that it is in the page
  std::string fetched;  // the document that one of its fields names, if it matters
};

struct Finding {
  std::size_t offset;
  Fault fault;
  std::string what;
  bool shown = false;  // there is a witness
  Witness witness = {};
};

// In the order of the code, each once for an instruction, and at most 100 of each weight.  The page
// is one of HTML where its frames are, or its texts.
std::vector<Finding> Check_Macro(std::string_view code, const Documents &documents,
                                 bool is_html = false);

// Whether a text begins a tag, which only HTML has.
bool Check_HasMarkup(std::string_view text);

// Whether a run may end, go on for ever, or leave the page; otherwise a finding only costs.
inline bool Check_IsFault(const Finding &finding) { return finding.fault < Fault::kUnknown; }

// A document as a line shows it, and that line as a document again: \t, \n, \\, \xHH, and \{N} for
// the byte before it N times in all.  Nothing: the line is not so written.
std::string Check_Show(std::string_view document);
bool Check_Unshow(std::string_view line, std::string *document);

#endif
