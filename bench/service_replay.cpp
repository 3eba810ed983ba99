// korvo-service-replay SEARCH_PORT DOC_PORT OWN_SEARCH_PORT OWN_DOC_PORT FOLDER: plays two
// managers.
//
// Asks the real ones first for every page of FOLDER/line.requests and its documents, so that a
// daemon above it gets the same answers without a search.  FOLDER/documents.requests then has the
// GETDOC lines of each page, and FOLDER/replay.ready says that it listens.
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "bench/player.h"
#include "bench/requests.h"

namespace {

// What the daemon asks for a hit of such a page.
std::string Getdoc(std::string_view number) {
  return std::string(
             "\t@COMMAND=GETDOC\t@BESTFIT=0\t@SEARCHGROUP=packages\t@RECTYPE=packages\t@MACROFILE=\t@DOCNUM=")
      .append(number)
      .append("\t@SCRIPT=\t@SEQNUM=0\t@AUTHCODE=\t@FILENAME=\t@EXPDATE=0\n");
}

std::vector<std::string> GetdocsOf(std::string_view hits) {
  constexpr std::string_view kName = "\t@DOCNUM=";
  std::vector<std::string> lines;
  for (std::size_t at = hits.find(kName); at != std::string_view::npos; at = hits.find(kName, at)) {
    at += kName.size();
    lines.push_back(Getdoc(hits.substr(at, hits.find_first_of("\t\n", at) - at)));
  }
  return lines;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 6) return 64;
  const std::string folder = argv[5];
  Answers answers;
  std::vector<std::string> documents;
  for (const std::string &request : Requests_Read(folder + "/line.requests")) {
    const std::string hits = Requests_Ask(std::atoi(argv[1]), request);
    answers[request] = hits;
    std::string lines;
    for (const std::string &line : GetdocsOf(hits)) {
      lines += line;
      std::string &answer = answers[line];
      if (answer.empty()) answer = Requests_Ask(std::atoi(argv[2]), line);
    }
    documents.push_back(lines);
  }
  Requests_Write(folder + "/documents.requests", documents);
  Player_Run({std::atoi(argv[3]), std::atoi(argv[4])}, answers, folder + "/replay.ready");
}
