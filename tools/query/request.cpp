#include "tools/query/request.h"

#include <string_view>

#include "protocol/cmd_hdr.h"

namespace {

bool HoldsSeparator(std::string_view text) {
  return text.find_first_of("\t\n\r") != std::string_view::npos;
}

bool IsPair(std::string_view word) { return word.find('=') != std::string_view::npos; }

struct Value {
  const char *option;
  const std::string &text;
  bool needed;
};

std::string WrongValue(const Value &value) {
  const std::string option = value.option;
  if (value.needed && value.text.empty())
    return option + " is missing: a request names a group and a macro";
  if (HoldsSeparator(value.text))
    return option + " holds a tab, newline or carriage return; a value goes without";
  if (value.text.size() >= kHdrText)
    return option + " is longer than " + std::to_string(kHdrText - 1) +
           " bytes, the most that a field holds";
  return {};
}

// What the options say already, and what would end the header.
bool IsTaken(std::string_view name) {
  for (const std::string_view taken :
       {"COMMAND", "SEARCHGROUP", "RECTYPE", "MACROFILE", "DOCNUM", "MAXHITS", "OPER"})
    if (name == taken) return true;
  return false;
}

std::string WrongHeader(const std::string &field) {
  constexpr std::size_t kMost = 1024;  // bytes of a field that is read
  const std::string_view name = std::string_view(field).substr(0, field.find('='));
  if (name.size() == field.size() || name.empty() ||
      name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") != std::string_view::npos)
    return "--header takes NAME=VALUE with a name in capitals, as in SORT=Date, not '" + field +
           "'";
  if (IsTaken(name)) return "--header has no say in " + std::string(name) + "; there is an option";
  if (HoldsSeparator(field))
    return "--header holds a tab, newline or carriage return; a value goes without";
  if (field.size() >= kMost) return "--header has a value of more bytes than a field holds";
  return {};
}

std::string WrongWord(std::string_view word) {
  if (word.empty()) return "an argument is empty; leave it out";
  if (HoldsSeparator(word))
    return "an argument holds a tab, newline or carriage return; put a blank in its place";
  if (word[0] == '@' && word != "@OPER=AND" && word != "@OPER=OR")
    return "an argument begins with '@'; only @OPER=AND and @OPER=OR may";
  return {};
}

std::string WrongPredicate(const Request &request) {
  if (request.doc >= 0 && !request.predicate.empty())
    return "--doc asks for one document; leave out what to search for, or --doc";
  if (request.doc >= 0 && request.max_hits >= 0)
    return "--doc asks for one document; leave out --max-hits, or --doc";
  if (request.doc < 0 && request.predicate.empty())
    return "there is nothing to search for; give words or NAME=terms, or --doc";
  for (const std::string &word : request.predicate) {
    std::string wrong = WrongWord(word);
    if (!wrong.empty()) return wrong;
  }
  return {};
}

std::string WrongRequest(const Request &request) {
  const Value values[] = {{"--group (or KORVO_GROUP)", request.group, true},
                          {"--macro (or KORVO_MACRO)", request.macro, true},
                          {"--type", request.type, false}};
  for (const Value &value : values) {
    std::string wrong = WrongValue(value);
    if (!wrong.empty()) return wrong;
  }
  for (const std::string &field : request.headers) {
    std::string wrong = WrongHeader(field);
    if (!wrong.empty()) return wrong;
  }
  return WrongPredicate(request);
}

void AddField(std::string *line, const char *name, std::string_view value) {
  line->append("\t@").append(name).append("=").append(value);
}

void AddPredicate(std::string *line, const std::vector<std::string> &predicate) {
  bool after_word = false;
  for (const std::string &word : predicate) {
    const bool free_text = !IsPair(word);
    line->append(free_text && after_word ? " " : "\t").append(word);
    after_word = free_text;
  }
}

}  // namespace

bool Request_Format(const Request &request, std::string *line, std::string *wrong) {
  line->clear();
  *wrong = WrongRequest(request);
  if (!wrong->empty()) return false;
  AddField(line, "COMMAND", request.doc < 0 ? "QUERY" : "GETDOC");
  AddField(line, "SEARCHGROUP", request.group);
  if (!request.type.empty()) AddField(line, "RECTYPE", request.type);
  AddField(line, "MACROFILE", request.macro);
  if (request.doc >= 0) AddField(line, "DOCNUM", std::to_string(request.doc));
  if (request.max_hits >= 0) AddField(line, "MAXHITS", std::to_string(request.max_hits));
  for (const std::string &field : request.headers) line->append("\t@").append(field);
  AddPredicate(line, request.predicate);
  if (line->size() > kRequestSize) {
    *wrong = "the request has " + std::to_string(line->size()) + " bytes; a line takes " +
             std::to_string(kRequestSize) + ", so search for less";
    line->clear();
    return false;
  }
  *line += '\n';
  return true;
}
