#include <sysexits.h>

#include <map>

#include "tools/common/tool.h"
#include "tools/ctl/commands.h"
#include "tools/ctl/unit.h"

namespace {

// A program, how deep it stands, and what it answered.
struct Node {
  const ConfLine *line;
  std::size_t depth;
  Asked asked;
};

using Children = std::map<const ConfLine *, std::vector<const ConfLine *>>;

// Parents before their children; an engine below its Search Manager, if it has one.
void AddBelow(std::vector<Node> *nodes, const Conf &conf, const Children &children,
              const std::vector<const ConfLine *> &lines, const ConfLine *parent,
              std::size_t depth) {
  for (const ConfLine *line : lines) {
    if (parent != nullptr && Conf_Parents(conf, *line)[0] != parent) continue;
    nodes->push_back({line, depth, {}});
    if (const auto below = children.find(line); below != children.end())
      AddBelow(nodes, conf, children, below->second, line, depth + 1);
  }
}

std::vector<Node> MakeTree(const Conf &conf) {
  std::vector<const ConfLine *> roots = Conf_Programs(conf);
  std::erase_if(roots, [&](const ConfLine *line) { return !Conf_Parents(conf, *line).empty(); });
  std::vector<Node> nodes;
  AddBelow(&nodes, conf, Conf_Children(conf), roots, nullptr, 0);
  return nodes;
}

void AskAll(std::vector<Node> *nodes, std::chrono::nanoseconds time) {
  std::vector<Target> targets;
  for (const Node &node : *nodes) targets.push_back(Ask_Target(*node.line));
  const std::vector<Asked> asked = Ask_Ping(targets, time);
  for (std::size_t i = 0; i < asked.size(); ++i) (*nodes)[i].asked = asked[i];
}

std::string PlainText(const Node &node) {
  const std::vector<std::string> &words = node.line->words;
  std::string text(2 * node.depth, ' ');
  for (std::size_t i = 0; i < 5; ++i) text += words[i] + (i < 4 ? " " : ": ");
  text += Ask_Text(node.asked);
  if (node.line->config.Type != 'C' && node.depth == 0)
    text += Tool_Format(" (its parent %s is missing)", node.line->config.ParentID);
  return text + "\n";
}

std::string JsonText(const Node &node) {
  const ConfigInfo &config = node.line->config;
  const bool is_up = node.asked.reply == Reply::kPong;
  return Tool_Format(
      "{\"id\": %s, \"type\": \"%c\", \"ip\": %s, \"clientport\": %d, \"adminport\": %d, "
      "\"parent\": %s, \"line\": %d, \"answer\": %s, \"ms\": %s}",
      Request_Json(node.line->words[0]).c_str(), config.Type, Request_Json(config.IP).c_str(),
      config.ClientPort, config.AdminPort, Request_Json(config.ParentID).c_str(), node.line->number,
      Request_Json(is_up ? "PONG" : Ask_Text(node.asked)).c_str(),
      is_up ? Tool_Format("%.3f", node.asked.milliseconds).c_str() : "null");
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

int Command_Units(Request *request) {
  const Conf conf = Conf_Read(request->dir);
  std::string text;
  for (const char type : {'C', 'S', 'D', 'E'})
    for (const ConfLine *line : Conf_Programs(conf))
      if (line->config.Type == type && Conf_IsHere(*line)) text += Unit_Name(*line) + "\n";
  Tool_Print(text);
  if (text.empty())
    Tool_Warn("%s has no program with an address of this machine", conf.path.c_str());
  return EX_OK;
}
