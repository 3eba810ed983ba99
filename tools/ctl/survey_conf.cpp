#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <cstring>

#include "debug/text.h"
#include "tools/common/tool.h"
#include "tools/ctl/survey.h"

namespace {

constexpr std::size_t kMaxId = sizeof ConfigInfo::ID - 1;
constexpr std::int16_t kFirstOfUsers = 1024;  // those before it need a right of root

void ReportLine(Survey *survey, const ConfLine &line, Weight weight, const std::string &text) {
  Survey_Report(survey, survey->conf.path, line.number, weight, text);
}

// Whether one of those that were named cannot start without it; a line without a type could be any.
bool IsConcerned(const Survey &survey, const ConfLine &line) {
  const auto is_same = [&line](const ConfLine *other) {
    return other->words[0] == line.words[0] && other->words[1] == line.words[1];
  };
  return survey.own.empty() || line.words.size() < 2 || !line.is_complete ||
         std::any_of(survey.own.begin(), survey.own.end(), is_same) ||
         std::any_of(survey.above.begin(), survey.above.end(), is_same);
}

bool IsType(const std::string &word) {
  return word == "C" || word == "S" || word == "D" || word == "E";
}

// As README.Debian says: systemd takes others for paths and placeholders.
bool IsUnitName(const std::string &id) {
  return std::all_of(id.begin(), id.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == ':' ||
           c == '_' || c == '.' || c == '-' || c == '@';
  });
}

void CheckWords(Survey *survey, const ConfLine &line) {
  const std::vector<std::string> &words = line.words;
  if (line.is_complete && !IsUnitName(words[0]))
    ReportLine(survey, line, Weight::kSurvived,
               Tool_Format("ID %s can be in no name of a unit, and korvo.target does not start it; "
                           "make it of letters, digits and : _ . - alone",
                           words[0].c_str()));
  if (words[0].size() > kMaxId)
    ReportLine(survey, line, Weight::kSurvived,
               Tool_Format("ID is longer than %d characters and is cut; shorten it",
                           static_cast<int>(kMaxId)));
  if (words.size() > 1 && !IsType(words[1]))
    ReportLine(survey, line, Weight::kFatal,
               Tool_Format("TYPE %s is none of C, S, D and E; take one of them", words[1].c_str()));
  if (words.size() < 6)
    ReportLine(survey, line, Weight::kFatal,
               Tool_Format("has %d of the 6 words ID TYPE IP CLIENTPORT ADMINPORT PARENTID; add "
                           "the rest",
                           static_cast<int>(words.size())));
}

// Of the networks of this machine.
bool IsBroadcast(in_addr address) {
  ifaddrs *first = nullptr;
  if (getifaddrs(&first) != 0) return false;
  bool is_broadcast = false;
  for (const ifaddrs *one = first; one != nullptr; one = one->ifa_next) {
    if (one->ifa_addr == nullptr || one->ifa_netmask == nullptr ||
        one->ifa_addr->sa_family != AF_INET || (one->ifa_flags & IFF_POINTOPOINT) != 0)
      continue;
    sockaddr_in own, mask;
    std::memcpy(&own, one->ifa_addr, sizeof own);
    std::memcpy(&mask, one->ifa_netmask, sizeof mask);
    const std::uint32_t hosts = ~mask.sin_addr.s_addr;
    // A network of one or of two hosts has none.
    if (ntohl(hosts) > 1 && (own.sin_addr.s_addr | hosts) == address.s_addr) is_broadcast = true;
  }
  freeifaddrs(first);
  return is_broadcast;
}

bool CanListen(in_addr address) {
  return address.s_addr != INADDR_NONE && address.s_addr != INADDR_ANY &&
         !IN_MULTICAST(ntohl(address.s_addr)) && !IsBroadcast(address);
}

void CheckAddress(Survey *survey, const ConfLine &line) {
  const char *word = line.words[2].c_str();
  in_addr address = {inet_addr(line.config.IP)};
  if (!CanListen(address))
    return ReportLine(survey, line, Weight::kFatal,
                      Tool_Format("IP %s is no address to listen on; take an IPv4 address of the "
                                  "machine",
                                  word));
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address, text, sizeof text);
  if (std::strcmp(text, word) != 0)
    ReportLine(survey, line, Weight::kSurvived,
               Tool_Format("IP %s is read as %s; write it so", word, text));
  if (!survey->own.empty() && Survey_IsOwn(*survey, line) && !Conf_IsHere(line))
    ReportLine(survey, line, Weight::kFatal,
               Tool_Format("IP %s is no address of this machine; start the program where it is, "
                           "or change it",
                           word));
}

void CheckPort(Survey *survey, const ConfLine &line, const char *name, const std::string &word) {
  const std::int16_t port = Text_ToPort(word);
  if (port <= 0)
    ReportLine(
        survey, line, Weight::kFatal,
        Tool_Format("%s %s cannot be used; take a number from 1 to 32767", name, word.c_str()));
  else if (word != std::to_string(port))
    ReportLine(survey, line, Weight::kSurvived,
               Tool_Format("%s %s is read as %d; write it so", name, word.c_str(), port));
  if (port > 0 && port < kFirstOfUsers)
    ReportLine(survey, line, Weight::kSurvived,
               Tool_Format("%s %d is root's, and the user of the units may not have it; take one "
                           "from %d on",
                           name, port, kFirstOfUsers));
}

// However it is written; text that is no address is nobody's.
bool IsSameAddress(const ConfLine &a, const ConfLine &b) {
  return std::strcmp(a.config.IP, b.config.IP) == 0 ||
         (inet_addr(a.config.IP) != INADDR_NONE &&
          inet_addr(a.config.IP) == inet_addr(b.config.IP));
}

// Two programs at one port: the second does not start.
void CheckTaken(Survey *survey, const ConfLine &line) {
  for (const ConfLine &other : survey->conf.lines) {
    if (&other == &line) return;
    if (!other.is_complete || !IsSameAddress(other, line)) continue;
    for (const bool is_client : {true, false}) {
      const auto port = is_client ? &ConfigInfo::ClientPort : &ConfigInfo::AdminPort;
      if (other.config.*port != line.config.*port) continue;
      ReportLine(survey, line, Weight::kFatal,
                 Tool_Format("%s %d of %s is that of %s in line %d, too; take another",
                             is_client ? "CLIENTPORT" : "ADMINPORT", line.config.*port,
                             line.config.IP, Conf_Name(other).c_str(), other.number));
    }
  }
}

void ReportNoParent(Survey *survey, const ConfLine &line) {
  const char *parent = line.config.ParentID;
  const char *shown = *parent != '\0' ? parent : "-";
  if (line.config.Type == 'E')
    ReportLine(survey, line, Weight::kFatal,
               Tool_Format("there is no Search Manager %s (type S) for PARENTID; add its line, or "
                           "name another",
                           shown));
  else
    ReportLine(survey, line, Weight::kFatal,
               Tool_Format("there is no Communications Manager %s (type C) for PARENTID; add its "
                           "line, or name another",
                           shown));
}

void CheckParents(Survey *survey, const ConfLine &line) {
  const std::vector<const ConfLine *> parents = Conf_Parents(survey->conf, line);
  if (line.config.Type == 'C') {
    if (line.config.ParentID[0] != '\0')
      ReportLine(survey, line, Weight::kSurvived,
                 Tool_Format("a Communications Manager has no parent; put - for %s",
                             line.config.ParentID));
    return;
  }
  const bool is_engine = line.config.Type == 'E';
  if (parents.empty() || parents[0]->config.Type != (is_engine ? 'S' : 'C'))
    return ReportNoParent(survey, line);
  if (is_engine && parents.size() < 2)
    ReportLine(survey, line, Weight::kSurvived,
               Tool_Format("there is no Document Manager %s (type D) for PARENTID, and its "
                           "documents cannot be fetched; add its line",
                           line.config.ParentID));
  for (const ConfLine *parent : parents)
    if (parent->number > line.number)
      ReportLine(survey, line, Weight::kSurvived,
                 Tool_Format("stands before its parent %s in line %d, and has to start behind it; "
                             "move it there",
                             Conf_Name(*parent).c_str(), parent->number));
}

void CheckDoubled(Survey *survey, const ConfLine &line) {
  for (const ConfLine &other : survey->conf.lines) {
    if (&other == &line) return;
    if (other.words[0] != line.words[0] || other.words.size() < 2 || line.words.size() < 2 ||
        other.words[1] != line.words[1])
      continue;
    return ReportLine(survey, line, Weight::kSurvived,
                      Tool_Format("line %d has this id and type, and only korvoctl announce takes "
                                  "a second one, as a standby; delete it unless it is one",
                                  other.number));
  }
}

void CheckLine(Survey *survey, const ConfLine &line) {
  if (!Survey_IsWanted(*survey, line.words[0]) || !IsConcerned(*survey, line)) return;
  CheckWords(survey, line);
  CheckDoubled(survey, line);
  if (!line.is_complete || !IsType(line.words[1])) return;
  CheckAddress(survey, line);
  CheckPort(survey, line, "CLIENTPORT", line.words[3]);
  CheckPort(survey, line, "ADMINPORT", line.words[4]);
  CheckTaken(survey, line);
  if (Survey_IsOwn(*survey, line)) CheckParents(survey, line);
}

}  // namespace

void Survey_Conf(Survey *survey) {
  for (const ConfLine &line : survey->conf.lines) CheckLine(survey, line);
}
