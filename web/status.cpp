#include "web/status.h"

#include "debug/text.h"
#include "web/html.h"

namespace {

void Take(std::string_view name, std::string_view value, PageStatus *status) {
  if (name == "matches") {
    status->exact = !value.starts_with('~');
    status->matches = Text_ToInt32(value.substr(status->exact ? 0 : 1));
  } else if (name == "first") {
    status->first = Text_ToInt32(value);
  } else if (name == "shown") {
    status->shown = Text_ToInt32(value);
  } else if (name == "shards") {
    status->searched = Text_ToInt32(value);
    status->shards = Text_ToInt32(value.substr(value.find('/') + 1));
  } else if (name == "spelling") {
    status->spelling = Html_Clean(Html_UrlDecode(value, false));
  }
}

// No Search Manager says anything else, and pages are counted with these.
bool IsPlausible(const PageStatus &status) {
  const bool hits = status.shown == 0 || (status.first > 0 && status.shown > 0 &&
                                          status.shown <= kStatusMostHits - status.first + 1);
  return status.matches >= 0 && status.first >= 0 && hits && status.searched >= 0 &&
         status.searched <= status.shards;
}

}  // namespace

bool Status_Read(std::string_view comment, PageStatus *status) {
  constexpr std::string_view kStart = "<!--korvo matches=", kEnd = "-->";
  constexpr std::size_t kWord = 10;  // the comment's first word, with its blank
  if (!comment.starts_with(kStart) || !comment.ends_with(kEnd)) return false;
  *status = {};
  std::string_view rest = comment.substr(kWord, comment.size() - kWord - kEnd.size());
  for (std::string_view pair = Text_Token(&rest, " "); !pair.empty();
       pair = Text_Token(&rest, " ")) {
    const std::size_t equals = pair.find('=');
    if (equals != std::string_view::npos)
      Take(pair.substr(0, equals), pair.substr(equals + 1), status);
  }
  return IsPlausible(*status);
}
