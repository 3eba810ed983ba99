#include "tools/ctl/request.h"

#include <sysexits.h>

#include <algorithm>

#include "tools/common/tool.h"

namespace {

// The bytes of the UTF-8 character that the text begins with; 0: it begins with none.
std::size_t CharacterLength(std::string_view text) {
  struct Form {
    unsigned char least, most;  // of the first byte
    unsigned char length;
    unsigned char least_second, most_second;  // no longer form than needed, no half of a pair
  };
  constexpr Form kForms[] = {
      {0x00, 0x7f, 1, 0, 0},       {0xc2, 0xdf, 2, 0x80, 0xbf}, {0xe0, 0xe0, 3, 0xa0, 0xbf},
      {0xe1, 0xec, 3, 0x80, 0xbf}, {0xed, 0xed, 3, 0x80, 0x9f}, {0xee, 0xef, 3, 0x80, 0xbf},
      {0xf0, 0xf0, 4, 0x90, 0xbf}, {0xf1, 0xf3, 4, 0x80, 0xbf}, {0xf4, 0xf4, 4, 0x80, 0x8f}};
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  for (const Form &form : kForms) {
    if (byte(0) < form.least || byte(0) > form.most) continue;
    if (text.size() < form.length) return 0;
    if (form.length > 1 && (byte(1) < form.least_second || byte(1) > form.most_second)) return 0;
    for (std::size_t i = 2; i < form.length; ++i)
      if (byte(i) < 0x80 || byte(i) > 0xbf) return 0;
    return form.length;
  }
  return 0;
}

}  // namespace

const char *Request_Word(const Request &request, std::size_t at) {
  return at < request.words.size() ? request.words[at].c_str() : "";
}

bool Request_HasPlace(const Request &request) {
  return request.peer.port != 0 || request.peer.host != nullptr;
}

std::vector<const ConfLine *> Request_Lines(const Request &request, const Conf &conf) {
  return Conf_Take(conf, Request_Word(request, 0));
}

std::vector<Target> Request_Targets(Request *request) {
  std::vector<Target> targets;
  Peer *peer = &request->peer;
  if (Request_HasPlace(*request)) {
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
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    const std::size_t length = CharacterLength(text.substr(at));
    if (c == '"' || c == '\\') quoted += '\\';
    if (length == 0)
      quoted += "\xef\xbf\xbd";
    else if (c >= 0 && c < ' ')
      quoted += Tool_Format("\\u%04x", static_cast<unsigned>(c));
    else
      quoted += text.substr(at, length);
    at += std::max<std::size_t>(length, 1);
  }
  return quoted + '"';
}
