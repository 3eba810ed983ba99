#include "web/visit.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

#include "debug/fd_guard.h"
#include "web/health.h"
#include "web/html.h"

namespace {

constexpr const char *kHtml = "text/html; charset=utf-8";
constexpr std::size_t kBlock = 16384;  // of a page, for the library
constexpr const char *kFallback =
    "<!DOCTYPE html>\n<html lang=\"en\"><head><title>Search</title></head><body><h1>Search</h1>\n"
    "<!--korvo:notice-->\n<form role=\"search\" action=\"/search\"><label>Search for "
    "<input name=\"q\" type=\"search\" value=\"<!--korvo:query-->\"></label>\n"
    "<!--korvo:groups-->\n<button>Search</button></form></body></html>\n";

struct Header {
  const char *name, *value;
};

constexpr Header kHeaders[] = {
    {"Content-Security-Policy",
     "default-src 'none'; style-src 'self'; img-src 'self'; form-action 'self'; base-uri 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
};

struct FileType {
  std::string_view ending;
  const char *type;
};

constexpr FileType kTypes[] = {{".css", "text/css; charset=utf-8"},
                               {".html", kHtml},
                               {".ico", "image/x-icon"},
                               {".jpg", "image/jpeg"},
                               {".png", "image/png"},
                               {".svg", "image/svg+xml"},
                               {".txt", "text/plain; charset=utf-8"}};

PageView ViewOf(const Visit &visit) {
  return {&visit.server->conf, &visit.server->texts, &visit.asked, false};
}

double Since(const Visit &visit) { return Clock_Ms(WebClock::now() - visit.arrived); }

// Gives the library an answer, which it owns from then on.
bool Give(Visit *visit, int status, const char *type, MHD_Response *response) {
  if (response == nullptr) return false;
  MHD_add_response_header(response, "Content-Type", type);
  for (const Header &header : kHeaders)
    MHD_add_response_header(response, header.name, header.value);
  if (status == 405) MHD_add_response_header(response, "Allow", "GET, HEAD");
  if (status == 429 || status == 503) MHD_add_response_header(response, "Retry-After", "5");
  if (visit->server->stopping) MHD_add_response_header(response, "Connection", "close");
  visit->status = status;
  visit->answering = true;
  const bool given =
      MHD_queue_response(visit->connection, static_cast<unsigned>(status), response) == MHD_YES;
  MHD_destroy_response(response);
  return given;
}

bool GiveText(Visit *visit, int status, const char *type, const std::string &text) {
  visit->bytes = visit->head ? 0 : text.size();
  visit->first_ms = Since(*visit);
  return Give(visit, status, type,
              MHD_create_response_from_buffer(text.size(), const_cast<char *>(text.data()),
                                              MHD_RESPMEM_MUST_COPY));
}

// The frame behind what is shown, as the daemon sends it.
std::string TailFrame(const std::string &macro) {
  std::string text(kTailFrameSize, '\0');
  const FdGuard file(open((macro + ".tail").c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  const ssize_t got = read(file.Get(), text.data(), text.size());  // none where it is not open
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  return text.substr(0, text.find('\0'));
}

std::string FrontFrame(Visit *visit) {
  std::ostringstream text;
  std::ifstream file(visit->server->conf.front_page, std::ios::binary);
  visit->fallback = !(text << file.rdbuf());  // nothing comes of one that is not open, either
  return visit->fallback ? kFallback : text.str();
}

// The form, with a notice where there is a trouble.
bool GiveFront(Visit *visit, Trouble trouble) {
  visit->trouble = trouble;
  return GiveText(visit, Trouble_Info(trouble).status, kHtml,
                  Page_Front(ViewOf(*visit), FrontFrame(visit), trouble));
}

std::string BaseUrl(const Visit &visit) {
  if (visit.server->conf.public_url != "-") return visit.server->conf.public_url;
  const char *host = MHD_lookup_connection_value(visit.connection, MHD_HEADER_KIND, "Host");
  constexpr const char *kHost =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.-:[]";
  const bool right = host != nullptr && *host != '\0' && host[std::strspn(host, kHost)] == '\0';
  return std::string("http://") + (right ? host : "localhost");
}

bool GiveOpenSearch(Visit *visit) {
  const std::string title = Html_Escape(visit->server->conf.groups[0].title);
  const std::string url = Html_Escape(BaseUrl(*visit));
  return GiveText(visit, 200, "application/opensearchdescription+xml",
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                  "<OpenSearchDescription xmlns=\"http://a9.com/-/spec/opensearch/1.1/\">\n"
                  "<ShortName>" +
                      title + "</ShortName>\n<Description>" + title +
                      "</Description>\n"
                      "<InputEncoding>UTF-8</InputEncoding>\n"
                      "<Url type=\"text/html\" template=\"" +
                      url +
                      "/search?q={searchTerms}\"/>\n"
                      "</OpenSearchDescription>\n");
}

// A name that leads nowhere else.
bool IsFileName(const std::string &name) {
  return !name.empty() && name[0] != '.' && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

const char *TypeOf(std::string_view name) {
  for (const FileType &known : kTypes)
    if (name.ends_with(known.ending)) return known.type;
  return "application/octet-stream";
}

// Gives the library the next bytes of a file.
ssize_t ReadStatic(void *cls, std::uint64_t at, char *buffer, std::size_t size) {
  auto *visit = static_cast<Visit *>(cls);
  const ssize_t got = pread(visit->file, buffer, size, static_cast<off_t>(at));
  if (got <= 0) return MHD_CONTENT_READER_END_WITH_ERROR;  // it has become shorter
  if (visit->first_ms < 0) visit->first_ms = Since(*visit);
  visit->bytes += static_cast<std::uint64_t>(got);
  return got;
}

bool GiveFile(Visit *visit) {
  const std::string &name = visit->asked.file;
  if (!IsFileName(name)) return GiveFront(visit, Trouble::kNoPage);
  const std::string path = visit->server->conf.static_directory + "/" + name;
  FdGuard file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat info = {};
  if (fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode))
    return GiveFront(visit, Trouble::kNoPage);
  visit->file = file.Release();
  return Give(visit, 200, TypeOf(name),
              MHD_create_response_from_callback(static_cast<std::uint64_t>(info.st_size), kBlock,
                                                ReadStatic, visit, nullptr));
}

void Suspend(Visit *visit) {
  visit->suspended = true;
  MHD_suspend_connection(visit->connection);
}

// Gives the library the next bytes of a page.
ssize_t ReadPage(void *cls, std::uint64_t, char *buffer, std::size_t size) {
  auto *visit = static_cast<Visit *>(cls);
  std::string &out = visit->exchange.out;
  if (visit->left) return MHD_CONTENT_READER_END_WITH_ERROR;
  if (out.empty() && visit->exchange.stage == Stage::kOver) return MHD_CONTENT_READER_END_OF_STREAM;
  if (out.empty()) {
    Suspend(visit);
    return 0;
  }
  const std::size_t taken = std::min(size, out.size());
  out.copy(buffer, taken);
  out.erase(0, taken);
  if (visit->first_ms < 0) visit->first_ms = Since(*visit);
  visit->bytes += taken;
  return static_cast<ssize_t>(taken);
}

bool GivePage(Visit *visit) {
  if (visit->exchange.trouble != Trouble::kNone) return GiveFront(visit, visit->exchange.trouble);
  return Give(
      visit, 200, kHtml,
      MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kBlock, ReadPage, visit, nullptr));
}

Filter FilterOf(Visit *visit, const WebGroup &group) {
  const bool search = visit->asked.route == Route::kSearch;
  Filter filter = Filter_Begin(search, [visit](Placeholder which, const PageFacts &facts) {
    return Page_Fill(ViewOf(*visit), which, facts);
  });
  filter.numbered = search && group.numbered;
  filter.tail = [macro = search ? group.results : group.document] { return TailFrame(macro); };
  return filter;
}

// Puts a search or a document into the queue.
bool Ask(Visit *visit, const WebGroup &group) {
  Server *server = visit->server;
  const std::int32_t limit = server->conf.deadline;
  const std::int32_t search = limit / 5 * 4;  // the rest is for the documents
  std::string line;
  if (!Asked_Line(visit->asked, group, server->conf, search, &line))
    return GiveFront(visit, Trouble::kLongRequest);
  if (!Rates_Take(&server->rates, visit->browser->address, visit->arrived))
    return GiveFront(visit, Trouble::kTooMany);
  visit->exchange.line = line;
  visit->exchange.deadline = visit->arrived + std::chrono::milliseconds(limit);
  visit->exchange.filter = FilterOf(visit, group);
  if (!Door_Enter(&server->door, &visit->exchange)) return GiveFront(visit, Trouble::kBusy);
  visit->queued = true;
  Suspend(visit);
  return true;
}

bool Search(Visit *visit) {
  if (visit->asked.group.empty()) visit->asked.group = visit->server->conf.groups[0].id;
  const WebGroup *group = Conf_Group(visit->server->conf, visit->asked.group);
  if (group == nullptr) return GiveFront(visit, Trouble::kNoGroup);
  if (!Asked_HasQuery(visit->asked)) return GiveFront(visit, Trouble::kNone);
  return Ask(visit, *group);
}

// Other Document Managers hold documents too, but only those of the file are asked.
bool Document(Visit *visit) {
  const WebGroup *group = Conf_GroupOfDocuments(visit->server->conf, visit->asked.keeper);
  if (group == nullptr) return GiveFront(visit, Trouble::kNoGroup);
  visit->asked.group = group->id;  // where its links search
  if (visit->asked.number < 0) return GiveFront(visit, Trouble::kNoDocument);
  return Ask(visit, *group);
}

bool AskHealth(Visit *visit) {
  constexpr std::chrono::milliseconds kPatience(1000);
  visit->exchange.deadline = visit->arrived + kPatience;
  visit->health = Health_Ask(visit->server->conf);
  if (visit->health < 0) return GiveText(visit, 503, "text/plain", "the daemon does not answer\n");
  Suspend(visit);
  return true;
}

bool GiveHealth(Visit *visit) {
  const bool well = Health_IsAnswered(visit->health);
  return GiveText(visit, well ? 200 : 503, "text/plain",
                  well ? "ok\n" : "the daemon does not answer\n");
}

bool GiveMeasures(Visit *visit) {
  const Server &server = *visit->server;
  return GiveText(visit, 200, "text/plain; version=0.0.4",
                  Measures_Text(server.measures, server.visits.size(), server.door.waiting.size()));
}

std::vector<Trouble> TroublesOf(const Visit &visit) {
  std::vector<Trouble> troubles = visit.exchange.filter.facts.troubles;
  if (visit.trouble != Trouble::kNone &&
      std::find(troubles.begin(), troubles.end(), visit.trouble) == troubles.end())
    troubles.insert(troubles.begin(), visit.trouble);
  return troubles;
}

bool Begin(Visit *visit) {
  visit->begun = true;
  visit->asked = Asked_Read(visit->target);
  if (visit->server->stopping) return GiveFront(visit, Trouble::kStopping);
  switch (visit->asked.route) {
    case Route::kFront: return GiveFront(visit, Trouble::kNone);
    case Route::kSearch: return Search(visit);
    case Route::kDocument: return Document(visit);
    case Route::kOpenSearch: return GiveOpenSearch(visit);
    case Route::kMetrics: return GiveMeasures(visit);
    case Route::kHealth: return AskHealth(visit);
    case Route::kStatic: return GiveFile(visit);
    default: return GiveFront(visit, Trouble::kNoPage);
  }
}

}  // namespace

bool Visit_Serve(Visit *visit) {
  if (visit->left) return false;
  if (!visit->begun) return Begin(visit);
  return visit->health >= 0 ? GiveHealth(visit) : GivePage(visit);
}

bool Visit_Refuse(Visit *visit) {
  visit->begun = true;
  visit->asked = Asked_Read(visit->target);
  return GiveFront(visit, Trouble::kMethod);
}

bool Visit_IsReady(const Visit &visit) {
  if (visit.left || visit.exchange.stage == Stage::kOver) return true;
  if (visit.health >= 0) return false;  // the loop sees its answer
  return visit.exchange.stage == Stage::kGiving && !visit.exchange.out.empty();
}

void Visit_Resume(Visit *visit) {
  if (!visit->suspended) return;
  visit->suspended = false;
  MHD_resume_connection(visit->connection);
}

void Visit_Finish(Visit *visit) {
  Server *server = visit->server;
  Door_Leave(&server->door, &visit->exchange);
  if (visit->health >= 0) close(visit->health);
  if (visit->file >= 0) close(visit->file);
  const PageFacts &facts = visit->exchange.filter.facts;
  const VisitRecord finished = {
      &visit->asked, visit->browser->address, visit->status, TroublesOf(*visit), &facts,
      visit->bytes,  visit->first_ms,         Since(*visit), visit->fallback};
  Journal_Write(&server->journal, finished);
  Measures_Add(&server->measures, finished);
  server->visits.erase(visit->self);
}
