#include "web/filter.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::string_view kOpen = "<!--korvo:", kClose = "-->";
constexpr std::string_view kErrorMark = "\t@COMMAND=ERROR\t";
constexpr std::size_t kPlaceholderSize = 64;  // at most
constexpr std::size_t kListSize = 4096;       // of what becomes links
constexpr std::size_t kErrorSize = 128;       // of an error line that tells which one it is
constexpr std::size_t kRecordSize = 4096;     // of a status or a reason
constexpr std::size_t kFrameSize = 16384;     // that is held back; the daemon sends no longer one

struct Name {
  std::string_view text;
  Placeholder which;
  bool awaits;  // the facts of the search
};

constexpr Name kNames[] = {
    {"query", Placeholder::kQuery, false},   {"status", Placeholder::kStatus, true},
    {"pager", Placeholder::kPager, true},    {"sort", Placeholder::kSort, true},
    {"groups", Placeholder::kGroups, false}, {"spelling", Placeholder::kSpelling, true},
    {"notice", Placeholder::kNotice, true},  {"hit", Placeholder::kHit, false},
    {"links", Placeholder::kLinks, false},
};

// What stands at the start of a text.
enum class Kind { kMore, kPlain, kPlaceholder, kStatus, kReason, kError };  // more: still open

struct Item {
  Kind kind;
  std::size_t size;
  const Name *name;
  PageStatus status;
  Trouble trouble;
  bool skips;  // the rest of an error line is to come
};

Item Plain(std::size_t size) { return {Kind::kPlain, size, nullptr, {}, {}, false}; }
Item More() { return {Kind::kMore, 0, nullptr, {}, {}, false}; }

// The text may yet become what begins with the mark.
bool MayBecome(std::string_view text, std::string_view mark) {
  return text.size() < mark.size() && mark.starts_with(text);
}

// A placeholder of that size, and the list behind it if it takes one.
Item Named(const Filter &filter, std::string_view text, std::size_t size, const Name &name) {
  if (name.which == Placeholder::kLinks) {
    const std::string_view rest = text.substr(size, kListSize);
    const std::size_t end = rest.find_first_of("<\t");
    if (end == std::string_view::npos && rest.size() == kListSize) return Plain(size);
    if (end == std::string_view::npos && !filter.ended) return More();
    size += std::min(end, rest.size());
  }
  return {Kind::kPlaceholder, size, &name, {}, {}, false};
}

Item PlaceholderAt(const Filter &filter, std::string_view text) {
  if (MayBecome(text, kOpen) && !filter.ended) return More();
  if (!text.starts_with(kOpen)) return Plain(1);
  const std::size_t close = text.substr(0, kPlaceholderSize).find(kClose, kOpen.size());
  if (close == std::string_view::npos)
    return text.size() < kPlaceholderSize && !filter.ended ? More() : Plain(1);
  const std::string_view word = text.substr(kOpen.size(), close - kOpen.size());
  for (const Name &name : kNames)
    if (word == name.text) return Named(filter, text, close + kClose.size(), name);
  return Plain(1);
}

// An error line of the daemon, which may end without a newline where a frame begins.
Item ErrorAt(const Filter &filter, std::string_view text) {
  const std::string_view rest = text.substr(kErrorMark.size());
  const bool whole = rest.find_first_of("\n<") != std::string_view::npos;
  if (rest.size() < kErrorSize && !whole && !filter.ended) return More();
  std::size_t size = 0;
  const Trouble trouble = Trouble_OfLine(rest, &size);
  return {Kind::kError, kErrorMark.size() + size, nullptr, {}, trouble, size == 0};
}

// What begins with a tab and ends with its line: the comment, or a Search Manager's reason.
Item RecordAt(const Filter &filter, std::string_view text) {
  const std::size_t newline = text.substr(0, kRecordSize).find('\n');
  const bool whole = newline != std::string_view::npos;
  if (!whole && text.size() >= kRecordSize) return Plain(1);
  if (!whole && !filter.ended) return More();
  const std::size_t size = whole ? newline + 1 : text.size();
  const std::string_view line = text.substr(1, size - (whole ? 2 : 1));
  PageStatus status = {};
  if (Status_Read(line, &status)) return {Kind::kStatus, size, nullptr, status, {}, false};
  if (line.empty() || line[0] == '<') return Plain(1);
  return {Kind::kReason, size, nullptr, {}, Trouble_OfReason(line), false};
}

Item TabAt(const Filter &filter, std::string_view text, bool in_front) {
  if (MayBecome(text, kErrorMark)) {
    if (!filter.ended) return More();
    // An error line that was cut off.
    if (text.size() > 1) return {Kind::kError, text.size(), nullptr, {}, Trouble::kBroken, true};
  }
  if (text.starts_with(kErrorMark)) return ErrorAt(filter, text);
  // Among the hits a text may begin with a tab, and only what is known is no part of one.
  const bool reason = filter.facts.known && Trouble_MayBeReason(text.substr(1));
  return in_front || reason ? RecordAt(filter, text) : Plain(1);
}

Item ItemAt(const Filter &filter, std::size_t at) {
  const std::string_view text = std::string_view(filter.pending).substr(at);
  if (text[0] == '<') return PlaceholderAt(filter, text);
  // What was found by looking ahead is met again at its place.
  return TabAt(filter, text, filter.awaits || (filter.in_frame && at == filter.hits_begin));
}

void Add(PageFacts *facts, Trouble trouble) {
  if (std::find(facts->troubles.begin(), facts->troubles.end(), trouble) != facts->troubles.end())
    return;
  facts->troubles.push_back(trouble);
  facts->unsaid.push_back(trouble);
}

// What a record, a reason or an error line says.
void Learn(Filter *filter, const Item &item) {
  filter->awaits = false;
  if (item.kind != Kind::kStatus) return Add(&filter->facts, item.trouble);
  filter->facts.known = true;
  filter->facts.status = item.status;
  if (item.status.searched < item.status.shards) Add(&filter->facts, Trouble::kShards);
}

// Looks for the facts behind a placeholder that needs them.  False: they may still come.
bool LookAhead(Filter *filter, std::size_t from) {
  const std::string_view text = std::string_view(filter->pending).substr(from);
  for (std::size_t tab = text.find('\t'); tab < kFrameSize; tab = text.find('\t', tab + 1)) {
    const Item item = TabAt(*filter, text.substr(tab), true);
    if (item.kind == Kind::kMore) return false;
    if (item.kind == Kind::kPlain) continue;
    Learn(filter, item);
    filter->hits_begin = from + tab;
    filter->in_frame = true;
    return true;
  }
  if (text.size() < kFrameSize + kRecordSize && !filter->ended) return false;
  filter->awaits = false;  // whoever answers tells nothing
  return true;
}

// Something explains that the page is not whole.
bool IsToldOf(const PageFacts &facts) {
  return std::any_of(facts.troubles.begin(), facts.troubles.end(),
                     [](Trouble trouble) { return trouble != Trouble::kShards; });
}

// Hits that the Search Manager has sent and the page does not show: only a macro that numbers its
// hits lets them be counted.
void CountHits(Filter *filter, bool in_frame) {
  const PageFacts &facts = filter->facts;
  const bool numbered = filter->numbered || facts.hits > 0;
  if (in_frame || !facts.known || !numbered || facts.hits >= facts.status.shown) return;
  if (!IsToldOf(facts)) Add(&filter->facts, Trouble::kMissingHits);
}

void Fill(Filter *filter, Placeholder which, bool in_frame, std::string *out) {
  if (which == Placeholder::kHit) ++filter->facts.hits;
  if (which == Placeholder::kNotice) CountHits(filter, in_frame);
  *out += filter->fill(which, filter->facts);
  if (which == Placeholder::kNotice) filter->facts.unsaid.clear();
}

void FillAt(Filter *filter, std::size_t at, const Item &item, std::string *out) {
  const std::string_view text = std::string_view(filter->pending).substr(at, item.size);
  if (item.name->which == Placeholder::kLinks)
    filter->facts.list = text.substr(text.find(kClose) + kClose.size());
  Fill(filter, item.name->which, filter->in_frame && at < filter->hits_begin, out);
}

// The rest of an error line, from at on.  True: its end is there.
bool Skip(Filter *filter, std::size_t *at) {
  const std::size_t end = filter->pending.find_first_of("\n<", *at);
  filter->skipping = end == std::string::npos;
  *at = filter->skipping ? filter->pending.size() : end + (filter->pending[end] == '\n' ? 1 : 0);
  return !filter->skipping;
}

// Deals with what stands at *at.  False: more has to come first.
bool Step(Filter *filter, std::size_t *at, std::string *out) {
  if (filter->skipping && !Skip(filter, at)) return false;
  const std::size_t special =
      std::min(filter->pending.find_first_of("<\t", *at), filter->pending.size());
  out->append(filter->pending, *at, special - *at);
  *at = special;
  if (special == filter->pending.size()) return false;

  const Item item = ItemAt(*filter, *at);
  if (item.kind == Kind::kMore) return false;
  if (item.kind == Kind::kPlaceholder && item.name->awaits && filter->awaits)
    return LookAhead(filter, *at);
  if (item.kind == Kind::kPlain)
    out->append(filter->pending, *at, item.size);
  else if (item.kind == Kind::kPlaceholder)
    FillAt(filter, *at, item, out);
  else
    Learn(filter, item);
  *at += item.size;
  filter->skipping = item.skips;
  return true;
}

void Run(Filter *filter, std::string *out) {
  std::size_t at = 0;
  const std::size_t begin = out->size();
  while (Step(filter, &at, out)) {
  }
  Markup_Feed(&filter->markup, std::string_view(*out).substr(begin));
  filter->pending.erase(0, at);
  filter->in_frame = filter->in_frame && filter->hits_begin >= at;
  filter->hits_begin -= filter->in_frame ? at : filter->hits_begin;
}

void Remember(std::string *last, std::string_view bytes) {
  last->append(bytes.substr(bytes.size() - std::min(bytes.size(), kTailFrameSize)));
  last->erase(0, last->size() - std::min(last->size(), kTailFrameSize));
}

// Ends a page that has broken off as the daemon would have.
void GiveTail(Filter *filter, const std::string &tail, std::string *out) {
  *out += Markup_Close(filter->markup, tail);
  filter->skipping = false;
  filter->pending = tail;
  Run(filter, out);
}

}  // namespace

Filter Filter_Begin(bool searching, FillFn fill) {
  Filter filter;
  filter.fill = std::move(fill);
  filter.awaits = searching;
  return filter;
}

void Filter_Feed(Filter *filter, std::string_view bytes, std::string *out) {
  if (filter->tail) Remember(&filter->last, bytes);
  filter->pending += bytes;
  Run(filter, out);
}

void Filter_Finish(Filter *filter, std::string *out) {
  filter->ended = true;
  Run(filter, out);
}

void Filter_End(Filter *filter, Trouble trouble, std::string *out) {
  if (trouble != Trouble::kNone) Add(&filter->facts, trouble);
  Filter_Finish(filter, out);
  const std::string tail = filter->tail ? filter->tail() : "";
  const bool whole = filter->last.ends_with(tail);
  if (!whole && !IsToldOf(filter->facts)) Add(&filter->facts, Trouble::kBroken);
  CountHits(filter, false);
  if (!whole) GiveTail(filter, tail, out);
  if (!filter->facts.unsaid.empty()) Fill(filter, Placeholder::kNotice, false, out);
}
