#include "web/page.h"

#include <algorithm>

#include "web/html.h"

namespace {

constexpr int kPagesAround = 4;  // of the one that is shown

std::string Link(const std::string &address, const std::string &attributes,
                 const std::string &text) {
  return "<li><a href=\"" + Html_Escape(address) + "\"" + attributes + ">" + Html_Escape(text) +
         "</a></li>";
}

// All that was searched for, as one text.
std::string Words(const Asked &asked) {
  std::string words = asked.text;
  for (const auto &[name, value] : asked.fields)
    words.append(words.empty() ? "" : " ").append(name).append("=").append(value);
  return words;
}

// What was typed; who came by a field alone can type that field too.
std::string Typed(const Asked &asked) { return asked.text.empty() ? Words(asked) : asked.text; }

// That is searched: whoever names another gets no page of hits.
const WebGroup &GroupOf(const PageView &view) { return *Conf_Group(*view.conf, view.asked->group); }

std::string Status(const PageView &view, const PageFacts &facts) {
  const Texts &texts = *view.texts;
  const PageStatus &status = facts.status;
  if (!facts.known) return {};
  if (status.matches > 0 && status.shown == 0)
    return Html_Escape(
        Texts_Fill(texts[TextName::kBehind], {{"matches", Texts_Count(texts, status.matches)}}));
  if (status.matches == 0)
    return Html_Escape(Texts_Fill(texts[TextName::kNothing], {{"query", Words(*view.asked)},
                                                              {"group", GroupOf(view).title}})) +
           " " + Html_Escape(texts[TextName::kTry]);
  if (status.exact && status.matches == 1) return Html_Escape(texts[TextName::kOne]);
  return Html_Escape(Texts_Fill(texts[status.exact ? TextName::kExactly : TextName::kAbout],
                                {{"matches", Texts_Count(texts, status.matches)},
                                 {"first", Texts_Count(texts, status.first)},
                                 {"last", Texts_Count(texts, status.first + status.shown - 1)}}));
}

std::string Pager(const PageView &view, const PageFacts &facts) {
  const int hits = view.conf->page_hits;
  const bool behind = facts.status.shown == 0;  // the last page
  if (!facts.known || facts.status.matches <= (behind ? 0 : hits)) return {};
  const int last = std::min((facts.status.matches - 1) / hits + 1, kStatusMostHits / hits);
  const int page = behind ? last + 1 : std::clamp((facts.status.first - 1) / hits + 1, 1, last);
  const auto link = [&](int to, const char *attributes, const std::string &text) {
    return Link(Asked_Link(*view.asked, to, view.asked->sort), attributes, text);
  };
  std::string items;
  if (page > 1) items += link(page - 1, " rel=\"prev\"", (*view.texts)[TextName::kPrevious]);
  for (int at = std::max(1, page - kPagesAround); at <= std::min(last, page + kPagesAround); ++at)
    items += link(at, at == page ? " aria-current=\"page\"" : "", Texts_Count(*view.texts, at));
  if (page < last) items += link(page + 1, " rel=\"next\"", (*view.texts)[TextName::kNext]);
  return "<nav class=\"pager\" aria-label=\"" + Html_Escape((*view.texts)[TextName::kPages]) +
         "\"><ul>" + items + "</ul></nav>";
}

std::string Sort(const PageView &view, const PageFacts &facts) {
  if (!facts.known || facts.status.shown == 0) return {};
  const std::vector<WebSort> &sorts = GroupOf(view).sorts;
  if (sorts.empty()) return {};
  const auto link = [&](const std::string &key, const std::string &title) {
    return Link(Asked_Link(*view.asked, 1, key),
                key == view.asked->sort ? " aria-current=\"true\"" : "", title);
  };
  std::string items = link("", (*view.texts)[TextName::kRelevance]);
  for (const WebSort &sort : sorts) items += link(sort.key, sort.title);
  return "<nav class=\"sort\" aria-labelledby=\"sort\"><p id=\"sort\">" +
         Html_Escape((*view.texts)[TextName::kSort]) + "</p><ul>" + items + "</ul></nav>";
}

std::string Groups(const PageView &view) {
  const std::vector<WebGroup> &groups = view.conf->groups;
  if (groups.size() == 1)
    return "<input type=\"hidden\" name=\"group\" value=\"" + Html_Escape(groups[0].id) + "\">";
  std::string items;
  for (const WebGroup &group : groups)
    items += "<option value=\"" + Html_Escape(group.id) + "\"" +
             (group.id == view.asked->group ? " selected>" : ">") + Html_Escape(group.title) +
             "</option>";
  return "<label>" + Html_Escape((*view.texts)[TextName::kGroups]) + " <select name=\"group\">" +
         items + "</select></label>";
}

std::string Spelling(const PageView &view, const PageFacts &facts) {
  if (facts.status.spelling.empty()) return {};
  Asked meant = *view.asked;
  meant.text = facts.status.spelling;
  meant.fields.clear();  // the Search Manager gives all that was asked as one text
  return "<p class=\"spelling\">" + Html_Escape((*view.texts)[TextName::kSpelling]) +
         " <a href=\"" + Html_Escape(Asked_Link(meant, 1, meant.sort)) + "\">" +
         Html_Escape(meant.text) + "</a>?</p>";
}

// Something of the page is not there.
bool IsLoss(Trouble trouble) {
  switch (trouble) {
    case Trouble::kShards:
    case Trouble::kLostDocument:
    case Trouble::kMissingHits:
    case Trouble::kBroken:
    case Trouble::kFailed:
    case Trouble::kGone:
    case Trouble::kTooLate: return true;
    default: return false;
  }
}

std::string Notice(const PageView &view, const PageFacts &facts) {
  if (facts.unsaid.empty()) return {};
  bool loss = false;  // a page of its own lacks nothing
  std::string sentences;
  for (const Trouble trouble : facts.unsaid) {
    sentences += "<p>" + Html_Escape((*view.texts)[trouble]) + "</p>";
    loss = loss || (!view.front && IsLoss(trouble));
  }
  if (!loss) return "<div class=\"notice\" role=\"alert\">" + sentences + "</div>";
  return "<div class=\"notice incomplete\" role=\"alert\">" + sentences + "<p>" +
         Html_Escape((*view.texts)[TextName::kIncomplete]) + "</p></div>";
}

// A name of a list, with what stands around it: blanks, and a condition in parentheses.
std::string NameLink(const PageView &view, std::string_view item) {
  const std::size_t begin = std::min(item.find_first_not_of(" \r\n"), item.size());
  const std::string_view rest = item.substr(begin);
  const std::string_view name = rest.substr(0, rest.find_first_of(" \r\n"));
  if (name.empty()) return std::string(item);
  Asked search;
  search.group = view.asked->group;
  search.text = Html_Unescape(name);
  return std::string(item.substr(0, begin)) + "<a href=\"" +
         Html_Escape(Asked_Link(search, 1, "")) + "\">" + std::string(name) + "</a>" +
         std::string(rest.substr(name.size()));
}

// A list is HTML already: commas and strokes part its names, the first word of each is searched.
std::string Links(const PageView &view, std::string_view list) {
  std::string links;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find_first_of(",|"), list.size());
    links += NameLink(view, list.substr(0, end));
    links += list.substr(end, 1);
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return links;
}

}  // namespace

std::string Page_Fill(const PageView &view, Placeholder which, const PageFacts &facts) {
  switch (which) {
    case Placeholder::kQuery: return Html_Escape(Typed(*view.asked));
    case Placeholder::kStatus: return Status(view, facts);
    case Placeholder::kPager: return Pager(view, facts);
    case Placeholder::kSort: return Sort(view, facts);
    case Placeholder::kGroups: return Groups(view);
    case Placeholder::kSpelling: return Spelling(view, facts);
    case Placeholder::kNotice: return Notice(view, facts);
    case Placeholder::kLinks: return Links(view, facts.list);
    default: return std::to_string(std::max(facts.status.first, 1) + facts.hits - 1);
  }
}

std::string Page_Front(const PageView &view, const std::string &frame, Trouble trouble) {
  std::string page;
  PageView front = view;
  front.front = true;
  Filter filter = Filter_Begin(false, [&front](Placeholder which, const PageFacts &facts) {
    return Page_Fill(front, which, facts);
  });
  if (trouble != Trouble::kNone) filter.facts.troubles = filter.facts.unsaid = {trouble};
  Filter_Feed(&filter, frame, &page);
  Filter_End(&filter, Trouble::kNone, &page);
  return page;
}
