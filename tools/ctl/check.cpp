#include <sysexits.h>

#include <filesystem>

#include "tools/common/tool.h"
#include "tools/ctl/commands.h"
#include "tools/ctl/survey.h"

namespace {

constexpr int kExitSurvived = 1;  // the exit status when all programs would start

std::string Plain(const Remark &finding) {
  return Tool_Format("%s:%d: %s\n", finding.path.c_str(), finding.number, finding.text.c_str());
}

std::string Json(const Remark &finding) {
  return Tool_Format("{\"file\": %s, \"line\": %d, \"fatal\": %s, \"text\": %s}",
                     Request_Json(finding.path).c_str(), finding.number,
                     finding.is_fatal ? "true" : "false", Request_Json(finding.text).c_str());
}

std::string Shown(const Survey &survey, Form form) {
  std::string text;
  for (const Remark &finding : survey.findings)
    text += form == Form::kPlain ? Plain(finding) : (text.empty() ? "[" : ",\n ") + Json(finding);
  if (form == Form::kPlain) return text;
  return text.empty() ? "[]\n" : text + "]\n";
}

std::vector<std::string> FoldersOf(const Request &request) {
  if (!request.macros.empty()) return {request.macros};
  std::vector<std::string> folders;
  for (const std::string &usual : {request.dir + "/macros", std::string(kCtlMacros)})
    if (std::error_code error; std::filesystem::is_directory(usual, error))
      folders.push_back(usual);
  return folders;
}

}  // namespace

int Command_Check(Request *request) {
  const std::string name = Request_Word(*request, 0);
  // An empty name is none of a program; it does not mean all.
  if (name.empty() && !request->words.empty()) Request_Lines(*request, Conf_Read(request->dir));
  // A program starts whatever its macros are.
  const bool has_pages = name.empty() || !request->macros.empty();
  const Survey survey =
      Survey_All(request->dir, name, has_pages ? FoldersOf(*request) : std::vector<std::string>());
  Tool_Print(Shown(survey, request->form));
  int status = EX_OK;
  for (const Remark &finding : survey.findings)
    if (status != EX_CONFIG) status = finding.is_fatal ? EX_CONFIG : kExitSurvived;
  return status;
}

std::vector<std::string> Command_Findings(const std::string &dir, const std::string &name) {
  std::vector<std::string> texts;
  for (const Remark &finding : Survey_All(dir, name, {}).findings) {
    texts.push_back(Plain(finding));
    texts.back().pop_back();
  }
  return texts;
}
