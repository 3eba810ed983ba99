// A macro of any bytes, checked for documents of any kind: every document of a finding shows it in
// the engine, and a macro without a finding makes what was promised.
//
// Parts: code; what tells the kind of documents, none for what the code wants.
#include <algorithm>

#include "tests/fuzz/support/fuzz.h"
#include "tests/tools/engine.h"
#include "tests/tools/shows.h"
#include "tools/macro/documents.h"

namespace {

// A name that would end where a document is cut is no field of it.
bool AreNames(const Documents &documents) {
  return std::all_of(documents.places.begin(), documents.places.end(),
                     [](const Place &place) { return place.name.find('\0') == std::string::npos; });
}

void CheckDocument(const std::string &document) {
  std::string again;
  FUZZ_CHECK(Check_Unshow(Check_Show(document), &again));
  FUZZ_CHECK(again == document);
}

void CheckFindings(const std::string &code, const std::vector<Finding> &findings) {
  FUZZ_CHECK(findings.size() <= 200);
  std::size_t before = 0;
  for (const Finding &finding : findings) {
    FUZZ_CHECK(finding.offset >= before && finding.offset <= code.size());
    FUZZ_CHECK(!finding.what.empty());
    before = finding.offset;
    CheckDocument(finding.witness.document);
    CheckDocument(finding.witness.fetched);
    if (finding.shown) FUZZ_CHECK(Engine_Shows(code, finding));
  }
}

// The shortest document of the kind.
void CheckPromise(const std::string &code, const Documents &documents) {
  std::string document;
  for (const Place &place : documents.places)
    if (place.always) document += "\t" + place.name + "=" + (place.refers ? "G T 1" : "");
  document += "\t\n";
  if (document.size() > kDocumentMost) return;
  SetRegisters(0);
  const PageRun run = RunPage(code, {document, document});
  FUZZ_CHECK(run.result == 1 && !run.loops && !run.cut);
  FUZZ_CHECK(run.log.empty());
  FUZZ_CHECK(!run.outputs.at(0).empty() && !run.outputs.at(1).empty());
}

std::string Shown(const std::vector<Finding> &findings) {
  std::string shown;
  for (const Finding &finding : findings)
    shown += std::to_string(finding.offset) + ' ' + finding.what + ' ' +
             Check_Show(finding.witness.document) + '\n';
  return shown;
}

}  // namespace

std::string Fuzz_Run(const Input &input) {
  const std::string code = input[0].Whole(), told = input[1].Whole();
  Documents documents;
  int line = 0;
  std::string wrong;
  const bool is_right = Documents_Read(told, &documents, &line, &wrong);
  FUZZ_CHECK(is_right == wrong.empty());
  FUZZ_CHECK(line >= 0 && line <= std::count(told.begin(), told.end(), '\n') + 1);
  if (!is_right) return std::to_string(line) + ": " + wrong;
  if (told.empty()) documents = Documents_For(code);
  if (!AreNames(documents)) return "";
  const std::vector<Finding> findings = Check_Macro(code, documents);
  CheckFindings(code, findings);
  if (findings.empty()) CheckPromise(code, documents);
  return Shown(findings);
}
