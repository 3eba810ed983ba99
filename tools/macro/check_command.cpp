// korvo-macro check: the findings as lines.
#include <sysexits.h>

#include "tools/common/tool.h"
#include "tools/macro/check.h"
#include "tools/macro/command.h"
#include "tools/macro/files.h"

namespace {

constexpr int kExitCosts = 1;
constexpr std::size_t kFieldsLimit = 1 << 20;

// A word about how much it matters.
const char *WeightOf(const Finding &finding, const Documents &documents) {
  if (Check_IsFault(finding)) return "fault";
  return finding.fault == Fault::kHtml && !documents.given ? "note" : "cost";
}

std::string WitnessText(const Finding &finding) {
  if (!finding.shown) return "; no document was found that shows it";
  std::string text = "; as with " + Check_Show(finding.witness.document);
  if (finding.witness.times > 1) text += Tool_Format(", %d times on a page", finding.witness.times);
  if (!finding.witness.fetched.empty())
    text += ", where the document that it names is " + Check_Show(finding.witness.fetched);
  return text;
}

void Print(const std::string &path, const Finding &finding, const Documents &documents,
           const AsmProgram &program) {
  const AsmLine *line = Asm_LineAt(program, finding.offset);
  std::string place = path;
  if (line != nullptr) place = std::string(line->file) + ":" + std::to_string(line->line);
  Tool_Print(Tool_Format("%s: offset %zu: %s: %s%s\n", place.c_str(), finding.offset,
                         WeightOf(finding, documents), finding.what.c_str(),
                         WitnessText(finding).c_str()));
}

Documents ReadDocuments(const std::string &path) {
  Documents documents;
  int line = 0;
  std::string wrong;
  const std::string text = Files_Read(path, kFieldsLimit);
  if (Documents_Read(text, &documents, &line, &wrong)) return documents;
  Tool_Line("%s:%d: %s", path.c_str(), line, wrong.c_str());
  std::exit(EX_DATAERR);
}

}  // namespace

int Command_Check(const Command &command) {
  AsmProgram program;
  const std::string &path = command.files.front();
  const std::string code = Files_Code(path, &program);
  const Documents documents =
      command.fields.empty() ? Documents_For(code) : ReadDocuments(command.fields);
  const bool is_html =
      Check_HasMarkup(Files_Frame(path, ".hdr")) || Check_HasMarkup(Files_Frame(path, ".tail"));
  int status = EX_OK;
  for (const Finding &finding : Check_Macro(code, documents, is_html)) {
    Print(path, finding, documents, program);
    if (Check_IsFault(finding))
      status = EX_DATAERR;
    else if (status == EX_OK && (finding.fault != Fault::kHtml || documents.given))
      status = kExitCosts;
  }
  return status;
}
