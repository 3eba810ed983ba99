#include "web/asked.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

#include "web/html.h"
#include "web/status.h"

namespace {

constexpr std::size_t kMostFields = 32;

struct Path {
  const char *start;
  Route route;
  const char *name;
};

// A path that ends with a stroke has something behind it.
constexpr Path kPaths[] = {{"/", Route::kFront, "front"},
                           {"/search", Route::kSearch, "search"},
                           {"/doc/", Route::kDocument, "doc"},
                           {"/opensearch.xml", Route::kOpenSearch, "opensearch"},
                           {"/metrics", Route::kMetrics, "metrics"},
                           {"/healthz", Route::kHealth, "healthz"},
                           {"/static/", Route::kStatic, "static"}};

// The number, or otherwise.
std::int32_t ToNumber(std::string_view text, std::int32_t otherwise) {
  std::int32_t number = 0;
  const auto [stop, code] = std::from_chars(text.data(), text.data() + text.size(), number);
  return code == std::errc{} && stop == text.data() + text.size() ? number : otherwise;
}

// A text of a user: no "@" begins it, for that would be a field of the header.
std::string Words(std::string_view value) {
  std::string text = Html_Clean(value);
  text.erase(0, text.find_first_not_of(" @"));
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

void TakeParameter(std::string_view name, const std::string &value, Asked *asked) {
  if (name == "q") {
    asked->text = Words(value);
  } else if (name == "group") {
    asked->group = Html_Clean(value);
  } else if (name == "page") {
    asked->page = std::clamp(ToNumber(value, 1), 1, kStatusMostHits);
  } else if (name == "sort") {
    asked->sort = Conf_IsName(value) ? value : "";
  } else if (name == "type") {
    asked->type = Conf_IsName(value) ? value : "";
  } else if (Conf_IsName(name) && asked->fields.size() < kMostFields) {
    const std::string words = Words(value);
    if (!words.empty()) asked->fields.emplace_back(name, words);
  }
}

void TakeParameters(std::string_view query, Asked *asked) {
  while (!query.empty()) {
    const std::string_view pair = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(pair.size() + 1, query.size()));
    const std::size_t equals = std::min(pair.find('='), pair.size());
    const std::string_view value = pair.substr(std::min(equals + 1, pair.size()));
    TakeParameter(Html_UrlDecode(pair.substr(0, equals), true), Html_UrlDecode(value, true), asked);
  }
}

void TakePath(std::string_view path, Asked *asked) {
  for (const Path &known : kPaths) {
    const std::string_view start = known.start;
    const bool folder = start.size() > 1 && start.ends_with('/');
    if (folder ? path.starts_with(start) : path == start) asked->route = known.route;
  }
  if (asked->route == Route::kStatic) asked->file = Html_UrlDecode(path.substr(8), false);
  if (asked->route != Route::kDocument) return;
  const std::string_view rest = path.substr(5);
  const std::size_t stroke = rest.find('/');
  asked->keeper = asked->group = Html_Clean(Html_UrlDecode(rest.substr(0, stroke), false));
  if (stroke != std::string_view::npos) asked->number = ToNumber(rest.substr(stroke + 1), -1);
}

void AddField(std::string *line, const char *name, std::string_view value) {
  line->append("\t@").append(name).append("=").append(value);
}

// A target without its scheme and host.
std::string_view WithoutHost(std::string_view target) {
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (target.size() < scheme.size() ||
        strncasecmp(target.data(), scheme.data(), scheme.size()) != 0)
      continue;
    const std::size_t host = target.find_first_of("/?", scheme.size());
    return target.substr(std::min(host, target.size()));
  }
  return target;
}

}  // namespace

Asked Asked_Read(std::string_view target) {
  Asked asked;
  const std::string_view local = WithoutHost(target);
  const std::size_t query = std::min(local.find('?'), local.size());
  TakeParameters(local.substr(std::min(query + 1, local.size())), &asked);
  const bool bare = query == 0 && !target.empty() && target[0] != '?';  // a host alone
  TakePath(bare ? "/" : local.substr(0, query), &asked);  // its group, not that of a parameter
  return asked;
}

const char *Asked_Name(Route route) {
  for (const Path &path : kPaths)
    if (path.route == route) return path.name;
  return "none";
}

bool Asked_HasQuery(const Asked &asked) { return !asked.text.empty() || !asked.fields.empty(); }

bool Asked_Line(const Asked &asked, const WebGroup &group, const WebConf &conf,
                std::int32_t deadline, std::string *line) {
  const bool search = asked.route == Route::kSearch;
  const std::int32_t last = kStatusMostHits / conf.page_hits;  // page
  line->clear();
  AddField(line, "COMMAND", search ? "QUERY" : "GETDOC");
  AddField(line, "SEARCHGROUP", search ? group.id : asked.keeper);
  AddField(line, "MACROFILE", search ? group.results : group.document);
  AddField(line, "SCRIPT", "html place all snippet");
  if (search) {
    AddField(line, "MAXHITS", std::to_string(conf.page_hits));
    AddField(line, "FIRSTHIT", std::to_string((std::min(asked.page, last) - 1) * conf.page_hits));
    if (!asked.sort.empty()) AddField(line, "SORT", asked.sort);
    AddField(line, "DEADLINE", std::to_string(deadline));
    AddField(line, "STATUS", "1");
    if (!asked.text.empty()) line->append("\t").append(asked.text);
    for (const auto &[name, words] : asked.fields)
      line->append("\t").append(name).append("=").append(words);
  } else {
    if (!asked.type.empty()) AddField(line, "RECTYPE", asked.type);
    AddField(line, "DOCNUM", std::to_string(asked.number));
  }
  const bool fits = line->size() <= kAskedLine;
  *line += '\n';
  return fits;
}

std::string Asked_Link(const Asked &asked, std::int32_t page, std::string_view sort) {
  std::string link = "/search?q=";
  link.append(Html_UrlEncode(asked.text));
  if (!asked.group.empty()) link.append("&group=").append(Html_UrlEncode(asked.group));
  if (page > 1) link.append("&page=").append(std::to_string(page));
  if (!sort.empty()) link.append("&sort=").append(Html_UrlEncode(sort));
  for (const auto &[name, words] : asked.fields)
    link.append("&").append(Html_UrlEncode(name)).append("=").append(Html_UrlEncode(words));
  return link;
}
