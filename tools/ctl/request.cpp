#include "tools/ctl/request.h"

#include <sysexits.h>

#include "tools/common/tool.h"

const char *Request_Word(const Request &request, std::size_t at) {
  return at < request.words.size() ? request.words[at].c_str() : "";
}

std::vector<const ConfLine *> Request_Lines(const Request &request, const Conf &conf) {
  return Conf_Take(conf, Request_Word(request, 0));
}

std::vector<Target> Request_Targets(Request *request) {
  std::vector<Target> targets;
  Peer *peer = &request->peer;
  if (peer->port != 0 || peer->host != nullptr) {
    if (peer->host == nullptr) peer->host = "127.0.0.1";
    Target target;
    target.address = Peer_Address(peer, "--port");
    target.name = Tool_Format("%s/%d", peer->host, peer->port);
    targets.push_back(target);
    return targets;
  }
  const Conf conf = Conf_Read(request->dir);
  for (const ConfLine *line : Request_Lines(*request, conf)) targets.push_back(Ask_Target(*line));
  return targets;
}

std::string Request_Json(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    if (c >= 0 && c < ' ')
      quoted += Tool_Format("\\u%04x", static_cast<unsigned>(c));
    else
      quoted += c;
  }
  return quoted + '"';
}
