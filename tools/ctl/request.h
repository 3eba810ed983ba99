// tools/ctl/request.h: what a user asks of korvoctl.
#ifndef TOOLS_CTL_REQUEST_H
#define TOOLS_CTL_REQUEST_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/common/peer.h"
#include "tools/ctl/ask.h"
#include "tools/ctl/places.h"

enum class Form { kPlain, kJson, kNagios, kPrometheus };

struct Request {
  std::string command;
  std::vector<std::string> words;                     // behind the command
  Peer peer = {nullptr, 0, std::chrono::seconds(5)};  // of --host, --port and --timeout
  std::string dir = kCtlDir;
  Form form = Form::kPlain;
  std::string macros;               // a folder
  std::string macro;                // as queries name it
  std::chrono::seconds watch = {};  // 0: once
  std::chrono::seconds spell = {};  // of a level; 0: for good
  std::chrono::seconds older = {};
  std::string messages = kCtlMessages;  // of a log
  std::string module;
  std::string state = kCtlState;  // a folder
  std::int32_t level = 0;         // 0: all
  std::int32_t pid = 0;
  bool follow = false, count = false, explain = false;
};

// The word at that place, or nothing.
const char *Request_Word(const Request &request, std::size_t at);

// Whether --host or --port stands in place of an id.
bool Request_HasPlace(const Request &request);

// The lines that the id in the first word names.
std::vector<const ConfLine *> Request_Lines(const Request &request, const Conf &conf);

// Where --port points, or the programs of the id in the first word.  Ends the process when there is
// no such place.
std::vector<Target> Request_Targets(Request *request);

// Text in quotation marks, as JSON has it; U+FFFD for each byte that is no UTF-8.
std::string Request_Json(std::string_view text);

#endif
