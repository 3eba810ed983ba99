#include <sysexits.h>

#include <cstring>

#include "tools/common/tool.h"
#include "tools/ctl/commands.h"

namespace {

// A program, how deep it stands, and what it answered.
struct Node {
  const ConfLine *line;
  std::size_t depth;
  Asked asked;
};

// Parents before their children; an engine below its Search Manager.
void AddBelow(std::vector<Node> *nodes, const Conf &conf, const ConfLine *parent,
              std::size_t depth) {
  for (const ConfLine *line : Conf_Programs(conf)) {
    const std::vector<const ConfLine *> parents = Conf_Parents(conf, *line);
    if ((parents.empty() ? nullptr : parents[0]) != parent) continue;
    nodes->push_back({line, depth, {}});
    if (line->config.Type == 'C' || line->config.Type == 'S')
      AddBelow(nodes, conf, line, depth + 1);
  }
}

std::vector<Node> MakeTree(const Conf &conf) {
  std::vector<Node> nodes;
  AddBelow(&nodes, conf, nullptr, 0);
  return nodes;
}

void AskAll(std::vector<Node> *nodes, std::chrono::nanoseconds time) {
  std::vector<Target> targets;
  for (const Node &node : *nodes) targets.push_back(Ask_Target(*node.line));
  const std::vector<Asked> asked = Ask_Ping(targets, time);
  for (std::size_t i = 0; i < asked.size(); ++i) (*nodes)[i].asked = asked[i];
}

std::string AnswerText(const Asked &asked) {
  if (asked.reply == Reply::kPong) return Tool_Format("PONG in %.3f ms", asked.milliseconds);
  return asked.reply == Reply::kNone ? "no answer" : std::strerror(asked.err);
}

std::string PlainText(const Node &node) {
  const ConfigInfo &config = node.line->config;
  const std::string orphan = config.Type != 'C' && node.depth == 0
                                 ? Tool_Format(" (its parent %s is missing)", config.ParentID)
                                 : "";
  return std::string(2 * node.depth, ' ') +
         Tool_Format("%s %c %s %d %d: %s%s\n", node.line->words[0].c_str(), config.Type, config.IP,
                     config.ClientPort, config.AdminPort, AnswerText(node.asked).c_str(),
                     orphan.c_str());
}

std::string JsonText(const Node &node) {
  const ConfigInfo &config = node.line->config;
  const bool is_up = node.asked.reply == Reply::kPong;
  return Tool_Format(
      "{\"id\": %s, \"type\": \"%c\", \"ip\": %s, \"clientport\": %d, \"adminport\": %d, "
      "\"parent\": %s, \"line\": %d, \"answer\": %s, \"ms\": %s}",
      Request_Json(node.line->words[0]).c_str(), config.Type, Request_Json(config.IP).c_str(),
      config.ClientPort, config.AdminPort, Request_Json(config.ParentID).c_str(), node.line->number,
      Request_Json(is_up ? "PONG" : AnswerText(node.asked)).c_str(),
      is_up ? Tool_Format("%.3f", node.asked.milliseconds).c_str() : "null");
}

const char *UnitOf(char type) {
  switch (type) {
    case 'C': return "korvo-commmgr@";
    case 'S': return "korvo-searchmgr@";
    case 'D': return "korvo-docmgr@";
    default: return "korvo-engine@";
  }
}

}  // namespace

int Command_List(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  std::vector<Node> nodes = MakeTree(conf);
  AskAll(&nodes, request->peer.left);
  std::string text;
  for (const Node &node : nodes) {
    if (request->form != Form::kJson)
      text += PlainText(node);
    else
      text += (text.empty() ? "[" : ",\n ") + JsonText(node);
  }
  if (request->form == Form::kJson) text += nodes.empty() ? "[]\n" : "]\n";
  Tool_Print(text);
  return EX_OK;
}

std::string Command_Unit(const ConfLine &line) {
  return UnitOf(line.config.Type) + line.words[0] + ".service";
}

int Command_Units(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  std::string text;
  for (const char type : {'C', 'S', 'D', 'E'})
    for (const ConfLine *line : Conf_Programs(conf))
      if (line->config.Type == type && Conf_IsHere(*line)) text += Command_Unit(*line) + "\n";
  Tool_Print(text);
  return EX_OK;
}
