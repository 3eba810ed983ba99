// web/conf.h: the configuration of korvo-web.
//
// One table has each name with its default, its limits and what it is for; the reader, --check,
// --help and the defaults all come from it.
#ifndef WEB_CONF_H
#define WEB_CONF_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct WebSort {
  std::string key;  // as SORT takes it
  std::string title;
};

// What may be asked.
struct WebGroup {
  std::string id;
  std::string results, document;  // macros, as the daemon is given them
  std::string title;
  std::vector<WebSort> sorts;  // besides relevance
  bool numbered = false;       // the macro of hits gives each its number
};

// A Document Manager that holds documents of a group's searches and is no group itself.
struct WebDocuments {
  std::string id, group;
};

struct WebConf {
  std::string listen_address, daemon_address;
  std::string macro_directory, static_directory, front_page, texts, log, log_queries, public_url;
  std::int32_t listen_port, daemon_port, admin_port;
  std::int32_t page_hits;
  std::int32_t deadline;  // milliseconds
  std::int32_t connections, waiting;
  std::int32_t clients, client_connections, client_rate, client_burst;
  std::int32_t sender_time, reader_time;  // seconds
  std::vector<WebGroup> groups;
  std::vector<WebDocuments> documents;
};

// The defaults.
WebConf Conf_Default();

// The defaults with what a file says.  False: *wrong is one line that names the file, the line and
// the reason.
bool Conf_Read(const std::string &path, WebConf *conf, std::string *wrong);

// Whether the files that it names can be read and the log be written.  False: *wrong as above.
bool Conf_CheckFiles(const WebConf &conf, std::string *wrong);

// Whether it can be an id, a field or a macro: no byte of it means anything to the daemon.
bool Conf_IsName(std::string_view text);

// The group of that id, or null.
const WebGroup *Conf_Group(const WebConf &conf, std::string_view id);

// The group that the documents of that Document Manager belong to, or null.
const WebGroup *Conf_GroupOfDocuments(const WebConf &conf, std::string_view id);

// A line a name: its default, its limits and what it is for.
std::string Conf_Help();

#endif
