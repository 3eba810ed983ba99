#include "tests/tools/shows.h"

#include "tests/tools/engine.h"
#include "tools/macro/decode.h"

namespace {

bool LogsAt(const std::string &code, const Finding &finding) {
  Instruction at;
  Decode_At(code, finding.offset, &at);
  const std::vector<std::string> documents = {finding.witness.document};
  SetRegisters(0);
  const PageRun before =
      RunPage(code.substr(0, finding.offset), documents, finding.witness.fetched);
  SetRegisters(0);
  const PageRun after =
      RunPage(code.substr(0, finding.offset + at.size), documents, finding.witness.fetched);
  return after.log.size() > before.log.size() + 100;
}

bool IsOfTheDocumentBefore(const std::string &code, const Finding &finding) {
  const std::string prefix = code.substr(0, finding.offset + 2);
  SetRegisters(0);
  const int first = RunPage(prefix, {finding.witness.document}, finding.witness.fetched).cursor;
  SetRegisters(1);
  const int later = RunPage(prefix, {finding.witness.document}, finding.witness.fetched).cursor;
  SetRegisters(0);
  return first == 0 && later == 1;
}

// What stands behind the fetch may end the page sooner.
bool TakesAllSlots(const std::string &code, const Finding &finding) {
  Instruction at;
  Decode_At(code, finding.offset, &at);
  const std::vector<std::string> documents(static_cast<std::size_t>(finding.witness.times),
                                           finding.witness.document);
  SetRegisters(0);
  const PageRun run =
      RunPage(code.substr(0, finding.offset + at.size), documents, finding.witness.fetched);
  return run.log.find("no place for another macro") != std::string::npos;
}

bool EndsAt(const PageRun &run, std::size_t offset) {
  return run.result == -1 &&
         run.log.find("at offset " + std::to_string(offset) + ":") != std::string::npos;
}

}  // namespace

bool Engine_Shows(const std::string &code, const Finding &finding) {
  const Witness &witness = finding.witness;
  SetRegisters(0);
  const std::vector<std::string> documents(static_cast<std::size_t>(witness.times),
                                           witness.document);
  const PageRun run = RunPage(code, documents, witness.fetched);
  switch (finding.fault) {
    case Fault::kUndefined: return run.loops;
    case Fault::kCut:
    case Fault::kBeyond:
    case Fault::kStackFull:
    case Fault::kStackEmpty:
    case Fault::kOutput: return EndsAt(run, finding.offset);
    case Fault::kWords: return run.result == -1;
    case Fault::kNothing: return run.result == 1 && run.outputs.at(0).empty();
    case Fault::kRegister: return IsOfTheDocumentBefore(code, finding);
    case Fault::kInsertRoom: return run.cut;
    case Fault::kFetchSlots: return TakesAllSlots(code, finding);
    case Fault::kHtml: return true;  // what a page is for is nothing that a run shows
    default: return LogsAt(code, finding);
  }
}
