#include "web/conf.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "protocol/cmd_hdr.h"
#include "web/lines.h"
#include "web/places.h"

namespace {

constexpr std::size_t kMacroSize = 123;  // of a macro's name, so that the daemon finds its .tail

// Each says what is wrong with a value, or null.

const char *WrongAddress(const std::string &value) {
  in_addr address;
  return inet_pton(AF_INET, value.c_str(), &address) == 1 ? nullptr : "takes an IPv4 address";
}

const char *WrongPath(const std::string &value) {
  return value.starts_with('/') ? nullptr : "takes an absolute path";
}

const char *WrongLog(const std::string &value) {
  return value == "-" || value.starts_with('/') ? nullptr
                                                : "takes an absolute path, or - for standard error";
}

const char *WrongAnswer(const std::string &value) {
  return value == "yes" || value == "no" ? nullptr : "takes yes or no";
}

const char *WrongUrl(const std::string &value) {
  constexpr const char *kHost =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.-:[]";
  for (const std::string_view scheme : {"http://", "https://"})
    if (value.starts_with(scheme) && value.size() > scheme.size() &&
        value.find_first_not_of(kHost, scheme.size()) == std::string::npos)
      return nullptr;
  if (value == "-") return nullptr;
  return "takes http://HOST or https://HOST, or - for the host that a browser names";
}

struct Row {
  const char *name;
  const char *value;  // the default
  std::string WebConf::*text;
  const char *(*wrong)(const std::string &value);
  std::int32_t WebConf::*number;  // where text is null
  std::int32_t least, most;
  const char *help;
};

constexpr Row Text(const char *name, const char *value, std::string WebConf::*text,
                   const char *(*wrong)(const std::string &), const char *help) {
  return {name, value, text, wrong, nullptr, 0, 0, help};
}

constexpr Row Number(const char *name, const char *value, std::int32_t WebConf::*number,
                     std::int32_t least, std::int32_t most, const char *help) {
  return {name, value, nullptr, nullptr, number, least, most, help};
}

constexpr Row kRows[] = {
    Text("listen-address", "127.0.0.1", &WebConf::listen_address, WrongAddress,
         "where browsers, or the web server before this one, connect"),
    Number("listen-port", "8080", &WebConf::listen_port, 1, 65535, "its port"),
    Text("daemon-address", "127.0.0.1", &WebConf::daemon_address, WrongAddress,
         "of the Communications Manager"),
    Number("daemon-port", "8001", &WebConf::daemon_port, 1, 32767, "its client port"),
    Number("daemon-admin-port", "8002", &WebConf::admin_port, 1, 32767,
           "its admin port, which /healthz asks"),
    Text("macro-directory", kWebMacros, &WebConf::macro_directory, WrongPath,
         "the macros and frames of the groups"),
    Text("static-directory", kWebStatic, &WebConf::static_directory, WrongPath,
         "the files under /static/"),
    Text("front-page", kWebFront, &WebConf::front_page, WrongPath, "the form, also below an error"),
    Text("texts", kWebTexts, &WebConf::texts, WrongPath, "the sentences of the pages"),
    Text("log", "-", &WebConf::log, WrongLog, "a line of JSON a request; - is standard error"),
    Text("log-queries", "yes", &WebConf::log_queries, WrongAnswer, "no leaves out what was asked"),
    Text("public-url", "-", &WebConf::public_url, WrongUrl,
         "how a browser names this server; - as it does itself"),
    Number("page-hits", "10", &WebConf::page_hits, 1, 100, "hits a page"),
    Number("deadline", "10000", &WebConf::deadline, 100, 600000,
           "milliseconds from a request to the end of its page"),
    Number("connections", "6", &WebConf::connections, 1, 1000, "to the daemon at once"),
    Number("waiting", "1000", &WebConf::waiting, 0, 100000, "requests that wait for one"),
    Number("clients", "1100", &WebConf::clients, 1, 100000, "connections of browsers in all"),
    Number("client-connections", "100", &WebConf::client_connections, 0, 100000,
           "of one address that is not of this machine; 0 is no limit"),
    Number("client-rate", "20", &WebConf::client_rate, 0, 100000,
           "searches and documents of one such address a second; 0 is no limit"),
    Number("client-burst", "100", &WebConf::client_burst, 1, 100000, "of them at once"),
    Number("sender-time", "15", &WebConf::sender_time, 1, 3600,
           "seconds for a browser to send a request"),
    Number("reader-time", "60", &WebConf::reader_time, 1, 3600,
           "seconds for a browser to read a page"),
};

constexpr const char *kGroup = "packages results document Packages";

bool IsNumber(std::string_view value, const Row &row, std::int32_t *number) {
  const auto [stop, code] = std::from_chars(value.data(), value.data() + value.size(), *number);
  return code == std::errc{} && stop == value.data() + value.size() && *number >= row.least &&
         *number <= row.most;
}

// What is wrong with the value, or nothing.
std::string Set(const Row &row, std::string_view value, WebConf *conf) {
  const std::string name = row.name;
  if (row.text != nullptr) {
    const char *wrong = row.wrong(std::string(value));
    if (wrong != nullptr) return name + " " + wrong + ", not '" + std::string(value) + "'";
    conf->*row.text = value;
  } else if (!IsNumber(value, row, &(conf->*row.number))) {
    return name + " takes a number from " + std::to_string(row.least) + " to " +
           std::to_string(row.most) + ", not '" + std::string(value) + "'";
  }
  return {};
}

std::string HasGroup(const std::string &id) {
  return "the documents of " + id + " have their group already";
}

std::string AddGroup(std::string_view value, WebConf *conf) {
  WebGroup group;
  group.id = Lines_Word(&value);
  group.results = Lines_Word(&value);
  group.document = Lines_Word(&value);
  group.title = value;
  if (!Conf_IsName(group.id) || !Conf_IsName(group.results) || !Conf_IsName(group.document) ||
      group.title.empty())
    return "group takes an id, the macro of its hits, the macro of its documents and a title";
  if (Conf_Group(*conf, group.id) != nullptr) return "group " + group.id + " stands here twice";
  if (Conf_GroupOfDocuments(*conf, group.id) != nullptr) return HasGroup(group.id);
  conf->groups.push_back(group);
  return {};
}

std::string AddSort(std::string_view value, WebConf *conf) {
  const std::string id(Lines_Word(&value));
  const WebSort sort = {std::string(Lines_Word(&value)), std::string(value)};
  if (!Conf_IsName(id) || !Conf_IsName(sort.key) || sort.title.empty())
    return "sort takes the id of a group, a field with '-' before it for descending order, and a title";
  for (WebGroup &group : conf->groups) {
    if (group.id != id) continue;
    group.sorts.push_back(sort);
    return {};
  }
  return "sort names the group " + id + ", which no line above it does";
}

std::string AddDocuments(std::string_view value, WebConf *conf) {
  const std::string id(Lines_Word(&value)), group(value);
  if (!Conf_IsName(id) || !Conf_IsName(group))
    return "documents takes the id of a Document Manager and the group whose macro shows its documents";
  if (Conf_Group(*conf, group) == nullptr)
    return "documents names the group " + group + ", which no line above it does";
  if (Conf_GroupOfDocuments(*conf, id) != nullptr) return HasGroup(id);
  conf->documents.push_back({id, group});
  return {};
}

std::string Take(std::string_view name, std::string_view value, WebConf *conf) {
  if (name == "group") return AddGroup(value, conf);
  if (name == "sort") return AddSort(value, conf);
  if (name == "documents") return AddDocuments(value, conf);
  for (const Row &row : kRows)
    if (name == row.name) return Set(row, value, conf);
  return "no setting has the name '" + std::string(name) + "'";
}

// A macro's name is sent to the daemon with its directory: the frames of a document are looked for
// elsewhere otherwise.
bool NameMacros(WebConf *conf, std::string *wrong) {
  for (WebGroup &group : conf->groups)
    for (std::string *macro : {&group.results, &group.document}) {
      *macro = conf->macro_directory + "/" + *macro;
      if (macro->size() <= kMacroSize) continue;
      *wrong = *macro + ": a macro goes by at most " + std::to_string(kMacroSize) + " characters";
      return false;
    }
  return true;
}

std::string FileText(const std::string &path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// What begins with a tab is a message of the service, until the hits begin.
bool FramesAreRight(const WebConf &conf, std::string *wrong) {
  for (const WebGroup &group : conf.groups) {
    std::ifstream file(group.results + ".hdr", std::ios::binary);
    int number = 0;
    for (std::string line; std::getline(file, line);) {
      ++number;
      if (line.find('\t') == std::string::npos) continue;
      *wrong = group.results + ".hdr:" + std::to_string(number) +
               ": holds a tab, with which a message of the service begins; write blanks";
      return false;
    }
  }
  return true;
}

}  // namespace

WebConf Conf_Default() {
  WebConf conf = {};
  for (const Row &row : kRows) (void)Set(row, row.value, &conf);
  return conf;
}

bool Conf_Read(const std::string &path, WebConf *conf, std::string *wrong) {
  *conf = Conf_Default();
  std::set<std::string, std::less<>> seen;
  const auto take = [conf, &seen](std::string_view name, std::string_view value) {
    const bool list = name == "group" || name == "sort" || name == "documents";
    if (!list && !seen.emplace(name).second) return std::string(name) + " stands here twice";
    return Take(name, value, conf);
  };
  if (!Lines_Read(path, take, wrong)) return false;
  if (conf->groups.empty()) (void)AddGroup(kGroup, conf);
  if (!NameMacros(conf, wrong) || !FramesAreRight(*conf, wrong)) return false;
  for (WebGroup &group : conf->groups)
    group.numbered = FileText(group.results + ".mo").find("<!--korvo:hit-->") != std::string::npos;
  return true;
}

bool Conf_CheckFiles(const WebConf &conf, std::string *wrong) {
  std::vector<std::string> files = {conf.front_page, conf.static_directory + "/."};
  for (const WebGroup &group : conf.groups)
    files.insert(files.end(), {group.results + ".mo", group.document + ".mo"});
  for (const std::string &file : files) {
    if (access(file.c_str(), R_OK) == 0) continue;
    *wrong = file + ": cannot be read: " + std::strerror(errno);
    return false;
  }
  const std::string &log = conf.log;
  const std::string folder = log.substr(0, log.rfind('/') + 1);  // where it is made
  if (log == "-" || access(log.c_str(), W_OK) == 0) return true;
  if (errno == ENOENT && access(folder.c_str(), W_OK) == 0) return true;
  *wrong = log + ": cannot be opened: " + std::strerror(errno);
  return false;
}

bool Conf_IsName(std::string_view text) {
  constexpr const char *kName = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
  return !text.empty() && text.size() < kHdrText &&
         text.find_first_not_of(kName) == std::string_view::npos;
}

const WebGroup *Conf_Group(const WebConf &conf, std::string_view id) {
  for (const WebGroup &group : conf.groups)
    if (group.id == id) return &group;
  return nullptr;
}

const WebGroup *Conf_GroupOfDocuments(const WebConf &conf, std::string_view id) {
  for (const WebDocuments &documents : conf.documents)
    if (documents.id == id) return Conf_Group(conf, documents.group);
  return Conf_Group(conf, id);
}

std::string Conf_Help() {
  std::string help;
  for (const Row &row : kRows) {
    help.append("  ").append(row.name).append(" ").append(row.value);
    if (row.text == nullptr)
      help.append(" (")
          .append(std::to_string(row.least))
          .append(" to ")
          .append(std::to_string(row.most))
          .append(")");
    help.append("\n      ").append(row.help).append("\n");
  }
  return help.append("  group ")
      .append(kGroup)
      .append(
          "\n      id, macro of its hits, macro of its documents, title; a line each\n"
          "  sort ID FIELD TITLE\n      an order that a group offers besides relevance; -FIELD descends\n"
          "  documents ID GROUP\n      a Document Manager that holds documents of the group too\n");
}
