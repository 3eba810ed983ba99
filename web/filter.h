// web/filter.h: the daemon's answer on its way to a browser.
//
// Bytes go in as they come and out as soon as nothing in front of them is open.  Placeholders of
// the frames are filled in, the Search Manager's comment and every error line are taken out and
// kept as facts.  However the input is cut, the output is the same.
//
// The facts of a search stand behind the header frame.  So from the first placeholder that tells of
// them the frame is held back until they have come; what holds them back is the search, and the
// hits behind it are not.
#ifndef WEB_FILTER_H
#define WEB_FILTER_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "web/markup.h"
#include "web/status.h"
#include "web/trouble.h"

inline constexpr std::size_t kTailFrameSize = 10238;  // bytes that the daemon sends of one

enum class Placeholder {
  kQuery,
  kStatus,
  kPager,
  kSort,
  kGroups,
  kSpelling,
  kNotice,
  kHit,
  kLinks
};

struct PageFacts {
  bool known = false;  // the status has come
  PageStatus status = {};
  int hits = 0;                   // placeholders of hits so far
  std::vector<Trouble> troubles;  // in the order of their lines
  std::vector<Trouble> unsaid;    // those that no notice has told of yet
  std::string list;               // the text behind a placeholder of links, up to the next tag
};

// What stands in the place of a placeholder.  A notice tells of all that is unsaid.
using FillFn = std::function<std::string(Placeholder which, const PageFacts &facts)>;

// The frame that ends a page, as the daemon sends it now; empty where there is none.
using TailFn = std::function<std::string()>;

struct Filter {
  FillFn fill;
  TailFn tail = {};       // an answer that does not end with it has broken off
  bool numbered = false;  // each hit has its placeholder
  bool awaits = false;    // a status is still to come
  PageFacts facts = {};
  std::string pending = {};    // input that is not decided yet
  std::size_t hits_begin = 0;  // in pending; counts while the frame is let go
  bool in_frame = false;       // the status was taken from behind what is pending
  bool skipping = false;       // within an error line
  bool ended = false;
  std::string last = {};  // the end of the input, as long as a frame can be
  Markup markup = {};     // of the output
};

// searching: the answer is that of a QUERY with STATUS=1.
Filter Filter_Begin(bool searching, FillFn fill);

void Filter_Feed(Filter *filter, std::string_view bytes, std::string *out);

// No more input comes: what was undecided is decided.
void Filter_Finish(Filter *filter, std::string *out);

// The same, and the answer is over.  trouble says what cut it short, or is kNone.  A page that has
// broken off is closed and gets its tail.  What no placeholder has told of stands at the end.
void Filter_End(Filter *filter, Trouble trouble, std::string *out);

#endif
